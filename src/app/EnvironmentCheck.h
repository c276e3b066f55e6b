#pragma once

// What the session must offer before the program can watch the file
// manager's windows and events (on X11: a reachable display with the XInput
// 2.2 and XTEST extensions). It takes the place of a permission check:
// nothing here can be granted, only found or not.

#include <string>
#include <vector>

namespace jorvane {

class EnvironmentCheck {
public:
    virtual ~EnvironmentCheck() = default;
    // What is missing, each as the phrase the user reads ("an X display",
    // "the XTEST extension"); empty when everything is there.
    virtual std::vector<std::string> missingRequirements() = 0;
};

}  // namespace jorvane

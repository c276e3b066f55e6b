#pragma once

// The session check on X11: the display can be reached and offers XInput 2.2
// (the tap's raw clicks) and XTEST (synthetic clicks and keys). X11 has no
// permission to grant; what is missing can only be found.

#include <string>
#include <utility>
#include <vector>

#include "app/EnvironmentCheck.h"

namespace jorvane::x11 {

class X11EnvironmentCheck final : public EnvironmentCheck {
public:
    // An empty display name is $DISPLAY.
    explicit X11EnvironmentCheck(std::string displayName = {}) : displayName_(std::move(displayName)) {}

    // "an X display" alone when the display cannot be reached; otherwise
    // "XInput 2.2" and "the XTEST extension" for what the server lacks.
    std::vector<std::string> missingRequirements() override;

private:
    std::string displayName_;
};

}  // namespace jorvane::x11

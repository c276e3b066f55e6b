#pragma once

// Opening files with the desktop's default application: "gio open", run
// without a shell (the path goes to it as it is) and left to finish on its
// own, so the bar never waits for an application to start.

#include <string>

#include "addressbar/Workspace.h"

namespace jorvane {

class GioWorkspace final : public Workspace {
public:
    // False when there is no such item or "gio" cannot be started; what the
    // default application then does is its own business.
    bool openFile(const std::string& path) override;
};

}  // namespace jorvane

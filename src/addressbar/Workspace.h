#pragma once

// The desktop's handling of files, as far as the address bar needs it.

#include <string>

namespace jorvane {

class Workspace {
public:
    virtual ~Workspace() = default;
    // Opens the item with its default application. False when there is no
    // such item or nothing could open it.
    virtual bool openFile(const std::string& path) = 0;
};

}  // namespace jorvane

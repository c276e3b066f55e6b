#pragma once

// Keeps every address it is asked to open, in order, and opens nothing.

#include <string>
#include <vector>

#include "app/AboutWindowController.h"

namespace jorvane {

class FakeURLOpener final : public URLOpener {
public:
    bool openURL(const std::string& url) override {
        opened.push_back(url);
        return true;
    }
    std::vector<std::string> opened;
};

}  // namespace jorvane

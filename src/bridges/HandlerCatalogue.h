#pragma once

// The file manager's handler catalogue: named handlers that query or command
// the file manager, called with a list of strings and answering a string or
// nothing. Each call is bounded by a time-out that the implementation
// enforces, so a file manager that hangs answers nothing instead of
// blocking its caller for good.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane {

class HandlerCatalogue {
public:
    virtual ~HandlerCatalogue() = default;
    // The handler's result; nothing when it returns nothing, is unknown,
    // fails or runs out of time. Callable from any thread.
    virtual std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) = 0;
};

}  // namespace jorvane

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

// A handler's answer together with the reason of a failure.
struct HandlerReply {
    // What call() answers.
    std::optional<std::string> answer;
    // When `answer` is nothing: why, in a short text the user can read ("The
    // server refused the login"); empty when the catalogue cannot tell.
    std::string failure;
};

class HandlerCatalogue {
public:
    virtual ~HandlerCatalogue() = default;
    // The handler's result; nothing when it returns nothing, is unknown,
    // fails or runs out of time. Callable from any thread.
    virtual std::optional<std::string> call(std::string_view name, const std::vector<std::string>& params) = 0;
    // call() with the reason of a failure, for handlers whose failures the
    // user must read ("mount"). Catalogues that know no reasons keep
    // this one.
    virtual HandlerReply callWithFailure(std::string_view name, const std::vector<std::string>& params) {
        return {call(name, params), {}};
    }
    // Asks the running calls of the handler to give up soon; they then answer
    // nothing. Handlers that cannot be given up finish as usual. Callable
    // from any thread.
    virtual void cancel(std::string_view name) { (void)name; }
};

}  // namespace jorvane

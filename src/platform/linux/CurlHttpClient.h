#pragma once

// The update check's network port over libcurl: one GET over HTTPS with the
// system's certificate checks, bounded in time and size. Redirects are
// followed only to the schemes the request itself may use, so a feed can never
// send the client to file:// or anything else.

#include "updater/AppcastUpdater.h"

#include <cstddef>
#include <optional>
#include <string>

namespace jorvane {

class CurlHttpClient final : public HttpClient {
public:
    struct Options {
        // Answers longer than this are dropped while they arrive.
        std::size_t maxBody = 1024 * 1024;
        // Plain http:// is refused unless the user named such a feed himself.
        bool allowPlainHttp = false;
        // Certificate authorities to trust instead of the system's (tests).
        std::string caFile;
        // Bounds the connection phase within the whole request's time-out.
        double connectTimeout = 10.0;
    };

    CurlHttpClient();
    explicit CurlHttpClient(Options options);
    std::optional<std::string> get(const std::string& url, double timeoutSeconds) override;

private:
    Options options_;
};

}  // namespace jorvane

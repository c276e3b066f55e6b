#pragma once

// A minimal HTTP/1.1 client over POSIX sockets for the update check: GET only,
// plain http:// (TLS is not supported in this version, so an https:// feed is
// refused with a log line), no redirects, one connection per request.

#include "app/AppcastUpdater.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace jorvane {

namespace http {

struct Url {
    std::string host;
    std::string port;  // "80" when absent
    std::string target;  // path and query, "/" when absent
};
// nullopt with the reason in `error` for anything but a well-formed http:// URL.
std::optional<Url> parseUrl(std::string_view url, std::string* error = nullptr);

// Decodes a complete response (status line, headers, body by Content-Length,
// chunked encoding, or up to the end of the connection). The body of a 2xx
// answer, else nullopt with the reason in `error`. A body longer than
// `maxBody` is refused.
std::optional<std::string> parseResponse(std::string_view raw, std::size_t maxBody, std::string* error = nullptr);

}  // namespace http

class SocketHttpClient final : public HttpClient {
public:
    static constexpr std::size_t kDefaultMaxBody = 1024 * 1024;
    explicit SocketHttpClient(std::size_t maxBody = kDefaultMaxBody) : maxBody_(maxBody) {}
    std::optional<std::string> get(const std::string& url, double timeoutSeconds) override;

private:
    std::size_t maxBody_;
};

}  // namespace jorvane

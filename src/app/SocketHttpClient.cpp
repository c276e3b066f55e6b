#include "app/SocketHttpClient.h"

#include "util/Diagnostics.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace jorvane {

namespace {

constexpr const char* kDomain = "update";
// Room for the status line and headers on top of the body.
constexpr std::size_t kMaxHead = 64 * 1024;

bool fail(std::string* error, std::string why) {
    if (error) *error = std::move(why);
    return false;
}

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// Decodes a chunked body; false when it is cut short or malformed.
bool decodeChunked(std::string_view in, std::size_t maxBody, std::string& out, std::string* error) {
    while (true) {
        const std::size_t eol = in.find("\r\n");
        if (eol == std::string_view::npos) return fail(error, "chunked body cut short");
        std::string_view sizeField = in.substr(0, eol);
        if (const std::size_t semi = sizeField.find(';'); semi != std::string_view::npos)
            sizeField = sizeField.substr(0, semi);
        sizeField = trim(sizeField);
        if (sizeField.empty() || sizeField.size() > 8) return fail(error, "bad chunk size");
        std::size_t size = 0;
        for (char c : sizeField) {
            int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
            if (d < 0) return fail(error, "bad chunk size");
            size = size * 16 + static_cast<std::size_t>(d);
        }
        in.remove_prefix(eol + 2);
        if (size == 0) return true;  // trailers, if any, are ignored
        if (out.size() + size > maxBody) return fail(error, "body larger than the limit");
        if (in.size() < size + 2) return fail(error, "chunked body cut short");
        out.append(in.substr(0, size));
        if (in.substr(size, 2) != "\r\n") return fail(error, "chunk not followed by CRLF");
        in.remove_prefix(size + 2);
    }
}

struct Fd {
    int fd = -1;
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
};

}  // namespace

namespace http {

std::optional<Url> parseUrl(std::string_view url, std::string* error) {
    constexpr std::string_view scheme = "http://";
    if (lower(url.substr(0, 8)) == "https://") {
        fail(error, "https is not supported in this version; use an http:// feed");
        return std::nullopt;
    }
    if (url.size() < scheme.size() || lower(url.substr(0, scheme.size())) != scheme) {
        fail(error, "not an http:// URL");
        return std::nullopt;
    }
    url.remove_prefix(scheme.size());
    const std::size_t slash = url.find_first_of("/?#");
    std::string_view authority = url.substr(0, slash);
    Url out;
    out.target = slash == std::string_view::npos ? "/" : std::string(url.substr(slash));
    if (const std::size_t hash = out.target.find('#'); hash != std::string::npos) out.target.resize(hash);
    if (out.target.empty() || out.target[0] != '/') out.target.insert(0, "/");
    if (authority.find('@') != std::string_view::npos) {
        fail(error, "user information in the URL is not supported");
        return std::nullopt;
    }
    std::string_view port = "80";
    if (!authority.empty() && authority.front() == '[') {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos) {
            fail(error, "unclosed IPv6 address");
            return std::nullopt;
        }
        out.host = std::string(authority.substr(1, close - 1));
        authority.remove_prefix(close + 1);
        if (!authority.empty()) {
            if (authority.front() != ':') {
                fail(error, "bad host");
                return std::nullopt;
            }
            port = authority.substr(1);
        }
    } else {
        const std::size_t colon = authority.find(':');
        out.host = std::string(authority.substr(0, colon));
        if (colon != std::string_view::npos) port = authority.substr(colon + 1);
    }
    if (out.host.empty()) {
        fail(error, "no host");
        return std::nullopt;
    }
    if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string_view::npos ||
        std::stoi(std::string(port)) < 1 || std::stoi(std::string(port)) > 65535) {
        fail(error, "bad port");
        return std::nullopt;
    }
    out.port = std::string(port);
    for (char c : out.target)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7F) {
            fail(error, "control character or space in the path");
            return std::nullopt;
        }
    return out;
}

std::optional<std::string> parseResponse(std::string_view raw, std::size_t maxBody, std::string* error) {
    const std::size_t headEnd = raw.find("\r\n\r\n");
    if (headEnd == std::string_view::npos) {
        fail(error, "no complete header");
        return std::nullopt;
    }
    std::string_view head = raw.substr(0, headEnd + 2);
    std::string_view rest = raw.substr(headEnd + 4);
    const std::size_t eol = head.find("\r\n");
    const std::string_view statusLine = head.substr(0, eol);
    head.remove_prefix(eol + 2);
    // "HTTP/1.x 200 OK"
    if (statusLine.size() < 12 || statusLine.substr(0, 7) != "HTTP/1." || statusLine[8] != ' ') {
        fail(error, "bad status line");
        return std::nullopt;
    }
    const std::string_view code = statusLine.substr(9, 3);
    if (code.find_first_not_of("0123456789") != std::string_view::npos) {
        fail(error, "bad status line");
        return std::nullopt;
    }
    if (code[0] != '2') {
        fail(error, "HTTP status " + std::string(trim(statusLine.substr(9))));
        return std::nullopt;
    }
    bool chunked = false;
    std::optional<std::size_t> length;
    while (!head.empty()) {
        const std::size_t end = head.find("\r\n");
        const std::string_view line = head.substr(0, end);
        head.remove_prefix(end == std::string_view::npos ? head.size() : end + 2);
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        const std::string name = lower(trim(line.substr(0, colon)));
        const std::string_view value = trim(line.substr(colon + 1));
        if (name == "transfer-encoding" && lower(value).find("chunked") != std::string::npos) chunked = true;
        if (name == "content-length") {
            if (value.empty() || value.size() > 15 || value.find_first_not_of("0123456789") != std::string_view::npos) {
                fail(error, "bad Content-Length");
                return std::nullopt;
            }
            length = static_cast<std::size_t>(std::stoull(std::string(value)));
        }
    }
    std::string body;
    if (chunked) {
        if (!decodeChunked(rest, maxBody, body, error)) return std::nullopt;
        return body;
    }
    if (length) {
        if (*length > maxBody) {
            fail(error, "body larger than the limit");
            return std::nullopt;
        }
        if (rest.size() < *length) {
            fail(error, "body cut short");
            return std::nullopt;
        }
        return std::string(rest.substr(0, *length));
    }
    if (rest.size() > maxBody) {
        fail(error, "body larger than the limit");
        return std::nullopt;
    }
    return std::string(rest);
}

}  // namespace http

std::optional<std::string> SocketHttpClient::get(const std::string& url, double timeoutSeconds) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(timeoutSeconds > 0 ? timeoutSeconds : 0));
    auto bad = [&](const std::string& why) -> std::optional<std::string> {
        KMLogInDomain(KMLogLevelWarn, kDomain, "GET %s: %s", url.c_str(), why.c_str());
        return std::nullopt;
    };
    auto remainingMs = [&]() -> int {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        return left <= 0 ? 0 : left > 1'000'000 ? 1'000'000 : static_cast<int>(left);
    };

    std::string error;
    const auto parsed = http::parseUrl(url, &error);
    if (!parsed) return bad(error);

    // Name resolution cannot be bounded by the deadline; feeds are expected to
    // name a host the resolver answers for quickly (or a literal address).
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int rc = ::getaddrinfo(parsed->host.c_str(), parsed->port.c_str(), &hints, &found); rc != 0)
        return bad(std::string("cannot resolve host: ") + ::gai_strerror(rc));
    std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, &::freeaddrinfo);

    Fd sock;
    std::string lastError = "no address";
    for (addrinfo* a = found; a; a = a->ai_next) {
        Fd s;
        s.fd = ::socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (s.fd < 0) {
            lastError = std::strerror(errno);
            continue;
        }
        if (::connect(s.fd, a->ai_addr, a->ai_addrlen) != 0) {
            if (errno != EINPROGRESS) {
                lastError = std::string("connect: ") + std::strerror(errno);
                continue;
            }
            pollfd p{s.fd, POLLOUT, 0};
            const int rc = ::poll(&p, 1, remainingMs());
            if (rc == 0) return bad("timed out connecting");
            int soError = 0;
            socklen_t len = sizeof soError;
            if (rc < 0 || ::getsockopt(s.fd, SOL_SOCKET, SO_ERROR, &soError, &len) != 0 || soError != 0) {
                lastError = std::string("connect: ") + std::strerror(soError ? soError : errno);
                continue;
            }
        }
        std::swap(sock.fd, s.fd);
        break;
    }
    if (sock.fd < 0) return bad(lastError);

    const std::string hostHeader =
        (parsed->host.find(':') != std::string::npos ? "[" + parsed->host + "]" : parsed->host) +
        (parsed->port == "80" ? "" : ":" + parsed->port);
    const std::string request = "GET " + parsed->target + " HTTP/1.1\r\nHost: " + hostHeader +
                                "\r\nUser-Agent: Jorvane-Update\r\nAccept: */*\r\nConnection: close\r\n\r\n";
    for (std::size_t sent = 0; sent < request.size();) {
        const ssize_t n = ::send(sock.fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            return bad(std::string("send: ") + std::strerror(errno));
        pollfd p{sock.fd, POLLOUT, 0};
        if (::poll(&p, 1, remainingMs()) <= 0) return bad("timed out sending the request");
    }

    // The server closes the connection after the answer (Connection: close);
    // a complete answer by Content-Length or the last chunk ends reading early.
    std::string raw;
    const std::size_t limit = maxBody_ + kMaxHead;
    char buffer[16 * 1024];
    while (true) {
        pollfd p{sock.fd, POLLIN, 0};
        const int ready = ::poll(&p, 1, remainingMs());
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return bad("timed out waiting for the answer");
        const ssize_t n = ::recv(sock.fd, buffer, sizeof buffer, 0);
        if (n < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) continue;
            return bad(std::string("recv: ") + std::strerror(errno));
        }
        if (n == 0) break;
        raw.append(buffer, static_cast<std::size_t>(n));
        if (raw.size() > limit) return bad("answer larger than the limit");
        std::string ignored;
        if (http::parseResponse(raw, maxBody_, &ignored) && raw.find("\r\n\r\n") != std::string::npos) {
            // Complete only when framed: a body read up to the end of the
            // connection needs the close.
            const std::string head = lower(raw.substr(0, raw.find("\r\n\r\n")));
            if (head.find("content-length") != std::string::npos || head.find("chunked") != std::string::npos) break;
        }
    }
    auto body = http::parseResponse(raw, maxBody_, &error);
    if (!body) return bad(error);
    return body;
}

}  // namespace jorvane

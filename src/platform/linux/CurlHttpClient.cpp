#include "platform/linux/CurlHttpClient.h"

#include "util/Diagnostics.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>
#include <string_view>

namespace jorvane {

namespace {

constexpr const char* kDomain = "update";

struct Download {
    std::string body;
    std::size_t limit = 0;
    bool overLimit = false;
};

std::size_t collect(char* data, std::size_t size, std::size_t count, void* user) {
    auto* download = static_cast<Download*>(user);
    const std::size_t n = size * count;
    if (download->body.size() + n > download->limit) {
        download->overLimit = true;
        return 0;  // makes curl stop with CURLE_WRITE_ERROR
    }
    download->body.append(data, n);
    return n;
}

// Case-insensitive, as schemes are; `scheme` is lower case.
bool hasScheme(std::string_view url, std::string_view scheme) {
    if (url.size() < scheme.size()) return false;
    for (std::size_t i = 0; i < scheme.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(url[i])) != scheme[i]) return false;
    return true;
}

// curl_global_init is not thread-safe; the first request does it once.
void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace

CurlHttpClient::CurlHttpClient() : CurlHttpClient(Options{}) {}

CurlHttpClient::CurlHttpClient(Options options) : options_(std::move(options)) {}

std::optional<std::string> CurlHttpClient::get(const std::string& url, double timeoutSeconds) {
    auto bad = [&](const char* why) -> std::optional<std::string> {
        log::inDomain(log::Warn, kDomain, "GET %s: %s", url.c_str(), why);
        return std::nullopt;
    };
    const bool https = hasScheme(url, "https://");
    const bool http = hasScheme(url, "http://");
    if (!https && !(http && options_.allowPlainHttp))
        return bad(http ? "plain http:// feeds are used only when set by the user" : "not an https:// address");

    initialiseCurlOnce();
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
    if (!curl) return bad("cannot start a transfer");

    const long timeoutMs = static_cast<long>(std::clamp(timeoutSeconds, 0.001, 3600.0) * 1000);
    const long connectMs = std::min(timeoutMs, static_cast<long>(std::max(options_.connectTimeout, 0.001) * 1000));
    // Only the scheme of the request itself, for the request and any redirect.
    const char* schemes = https ? "https" : "http,https";
    Download download;
    download.limit = options_.maxBody;
    char errorText[CURL_ERROR_SIZE] = {};

    CURL* c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, schemes);
    curl_easy_setopt(c, CURLOPT_REDIR_PROTOCOLS_STR, schemes);
    curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(c, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options_.caFile.empty()) curl_easy_setopt(c, CURLOPT_CAINFO, options_.caFile.c_str());
    curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, connectMs);
    // The worker thread must not be interrupted by curl's alarm-based resolver time-out.
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options_.maxBody));
    curl_easy_setopt(c, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(c, CURLOPT_USERAGENT, "Jorvane-Update");
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &download);
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, errorText);

    const CURLcode rc = curl_easy_perform(c);
    if (download.overLimit || rc == CURLE_FILESIZE_EXCEEDED) return bad("answer larger than the limit");
    if (rc != CURLE_OK) return bad(errorText[0] ? errorText : curl_easy_strerror(rc));
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status > 299) {
        const std::string why = "answered with status " + std::to_string(status);
        return bad(why.c_str());
    }
    return std::move(download.body);
}

}  // namespace jorvane

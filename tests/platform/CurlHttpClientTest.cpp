// The libcurl client against a local HTTPS server whose certificate is made
// for the test by the openssl command, signed by a test authority that only
// this test trusts.

#include "platform/linux/CurlHttpClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fakes/TestSupport.h"
#include "platform/linux/Subprocess.h"
#include "util/Diagnostics.h"

namespace jorvane {
namespace {

using namespace std::chrono_literals;

bool run(const std::vector<std::string>& argv) { return subprocess::run(argv, 30s).exitCode == 0; }

// A certificate authority and a server certificate for 127.0.0.1, plus a
// second authority that signed nothing here.
void makeCertificates(const std::string& dir) {
    const auto self = [&](const std::string& name) {
        return run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-keyout", dir + "/" + name + ".key", "-out", dir + "/" + name + ".pem", "-days", "1", "-subj",
                    "/CN=Jorvane test " + name});
    };
    ASSERT_TRUE(self("ca"));
    ASSERT_TRUE(self("other-ca"));
    ASSERT_TRUE(run({"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
                     dir + "/server.key", "-out", dir + "/server.csr", "-subj", "/CN=127.0.0.1"}));
    std::ofstream(dir + "/ext.cnf") << "subjectAltName=IP:127.0.0.1\n";
    ASSERT_TRUE(
        run({"openssl", "x509", "-req", "-in", dir + "/server.csr", "-CA", dir + "/ca.pem", "-CAkey", dir + "/ca.key",
             "-CAcreateserial", "-out", dir + "/server.pem", "-days", "1", "-extfile", dir + "/ext.cnf"}));
}

class CurlHttpClientTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir_ = std::make_unique<test::TempDir>();
        makeCertificates(dir_->str());
        const std::string portFile = dir_->str() + "/port";
        server_ = subprocess::spawn({"python3", JORVANE_SOURCE_DIR "/tests/platform/data/https_feed_server.py",
                                     dir_->str() + "/server.pem", dir_->str() + "/server.key", portFile})
                      .value_or(-1);
        ASSERT_GT(server_, 0);
        const auto giveUp = std::chrono::steady_clock::now() + 20s;
        while (port_ == 0 && std::chrono::steady_clock::now() < giveUp) {
            std::ifstream(portFile) >> port_;
            if (port_ == 0) std::this_thread::sleep_for(20ms);
        }
        ASSERT_NE(port_, 0) << "the test server did not start";
    }
    static void TearDownTestSuite() {
        if (server_ > 0) subprocess::stop(server_, 2000ms);
        server_ = -1;
        port_ = 0;
        dir_.reset();
    }

    static std::string url(const std::string& path) { return "https://127.0.0.1:" + std::to_string(port_) + path; }
    static CurlHttpClient::Options trusting(const std::string& ca = "ca") {
        return {.maxBody = 1024 * 1024, .allowPlainHttp = false, .caFile = dir_->str() + "/" + ca + ".pem"};
    }

    static inline std::unique_ptr<test::TempDir> dir_;
    static inline pid_t server_ = -1;
    static inline int port_ = 0;
};

TEST_F(CurlHttpClientTest, AFeedFromATrustedServerIsRead) {
    const auto body = CurlHttpClient(trusting()).get(url("/feed"), 10);
    ASSERT_TRUE(body);
    EXPECT_NE(body->find("<rss>"), std::string::npos);
}

struct RefusedCase {
    const char* name;
    std::string path;
    std::string ca;
    double timeout;
    std::string logged;  // part of the warning that says why
};

class Refused : public CurlHttpClientTest, public testing::WithParamInterface<RefusedCase> {};

TEST_P(Refused, WithoutABodyAndSaysWhy) {
    std::string log;
    log::setSink([&log](log::Stream, std::string_view line) { log.append(line); });
    log::setDomainLevel("update", log::Warn);
    const auto began = std::chrono::steady_clock::now();
    EXPECT_FALSE(CurlHttpClient(trusting(GetParam().ca)).get(url(GetParam().path), GetParam().timeout));
    EXPECT_LT(std::chrono::steady_clock::now() - began, 4s) << "the time-out bounds every refusal";
    log::setSink(nullptr);
    log::clearDomainLevels();
    EXPECT_NE(log.find(GetParam().logged), std::string::npos) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Answers, Refused,
    testing::Values(RefusedCase{"ACertificateNoTrustedAuthoritySigned", "/feed", "other-ca", 10,
                                "SSL certificate problem"},
                    RefusedCase{"ASlowServerPastTheTimeOut", "/slow", "ca", 0.5, "timed out"},
                    RefusedCase{"ABodyAboveTheSizeCap", "/huge", "ca", 10, "larger than the limit"},
                    RefusedCase{"ARedirectToAFile", "/to-file", "ca", 10, "\"file\" not supported"},
                    RefusedCase{"ARedirectToPlainHttp", "/to-http", "ca", 10, "\"http\" not supported"},
                    RefusedCase{"AMissingFeed", "/missing", "ca", 10, "status 404"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(CurlHttpClientTest, PlainHttpAndOtherSchemesAreRefusedBeforeAnyConnection) {
    CurlHttpClient client(trusting());
    EXPECT_FALSE(client.get("http://127.0.0.1:" + std::to_string(port_) + "/feed", 2));
    EXPECT_FALSE(client.get("file:///etc/hostname", 2));
    EXPECT_FALSE(client.get("ftp://127.0.0.1/feed", 2));
    // Allowing plain http:// lets no other scheme in.
    auto options = trusting();
    options.allowPlainHttp = true;
    EXPECT_FALSE(CurlHttpClient(options).get("file:///etc/hostname", 2));
}

}  // namespace
}  // namespace jorvane

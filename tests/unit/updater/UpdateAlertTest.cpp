// The update offer: the versions it names, and that only "Download" opens
// the release's address.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakeAlerts.h"
#include "updater/UpdateAlert.h"

namespace jorvane::test {
namespace {

TEST(UpdateAlert, namesTheShortVersionOrElseTheVersionAndTheRunningOne) {
    const AlertSpec alert = UpdateAlert::alertFor({"120", "1.2", "http://example.test/j.tar.gz", "Jorvane 1.2"}, "1.1");
    EXPECT_EQ(alert.messageText, "A new version of Jorvane is available!");
    EXPECT_EQ(alert.informativeText,
              "Jorvane 1.2 is now available\u2014you have 1.1. Would you like to download it now?");
    EXPECT_THAT(alert.buttons, testing::ElementsAre("Download", "Remind Me Later"));
    EXPECT_THAT(UpdateAlert::alertFor({"120", "", "", ""}, "1.1").informativeText,
                testing::HasSubstr("Jorvane 120 is now available"));
}

TEST(UpdateAlert, onlyDownloadOpensTheAddress) {
    FakeAlerts alerts;
    std::vector<std::string> opened;
    const auto open = [&](const std::string& url) { opened.push_back(url); };
    const UpdateOffer offer{"2", "2.0", "http://example.test/j-2.tar.gz", ""};

    alerts.answerNext(kAlertSecondButton);
    EXPECT_FALSE(UpdateAlert::offer(alerts, offer, "1.0", open));
    EXPECT_TRUE(opened.empty());
    EXPECT_TRUE(UpdateAlert::offer(alerts, offer, "1.0", open));
    EXPECT_EQ(opened, std::vector<std::string>{"http://example.test/j-2.tar.gz"});
    EXPECT_TRUE(UpdateAlert::offer(alerts, UpdateOffer{"2", "", "", ""}, "1.0", open));
    EXPECT_EQ(opened.size(), 1u) << "an offer without an address opens nothing";
    for (const char* address : {"file:///etc/passwd", "smb://host/x", "javascript:alert(1)"})
        EXPECT_TRUE(UpdateAlert::offer(alerts, UpdateOffer{"2", "", address, ""}, "1.0", open));
    EXPECT_EQ(opened.size(), 1u) << "only web addresses are opened";
}

}  // namespace
}  // namespace jorvane::test

#include "Model.h"

#include <QImage>

#include <gtest/gtest.h>

#include <set>

using namespace rzdev;

namespace {

struct Company {
    Company() { model.loadDemo(12); }
    Clock clock;
    Model model{clock};
};

} // namespace

TEST(DevServerModel, TimeStampsAreIsoTextInUtc) {
    EXPECT_EQ(isoMs(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(isoSeconds(1731000000123), "2024-11-07T17:20:00Z");
    EXPECT_EQ(parseIso("2026-01-02T03:04:05.678Z"), 1767323045678);
    EXPECT_EQ(parseIso("2026-01-02T03:04:05Z"), 1767323045000);
    EXPECT_FALSE(parseIso("garbage"));
}

TEST(DevServerModel, TheDemoCompanyHasItsFixture) {
    Company c;
    EXPECT_EQ(c.model.users.size(), 12u);
    EXPECT_EQ(c.model.groups.size(), 3u);
    EXPECT_EQ(c.model.flows.size(), 2u);
    EXPECT_EQ(c.model.queues.size(), 2u);
    std::set<std::string> extensions, emails;
    for (const auto& u : c.model.users) {
        extensions.insert(u.extension);
        emails.insert(u.email);
    }
    EXPECT_EQ(extensions.size(), 12u);
    EXPECT_EQ(emails.size(), 12u);
    const auto me = c.model.meJson(c.model.users.front());
    EXPECT_EQ(me.at("forwarding").size(), 4u);
    EXPECT_EQ(c.model.membershipsJson("u-001").size(), 2u);
}

TEST(DevServerModel, EveryCallFlowOfTheDirectoryHasAnExtensionToCall) {
    Company c;
    const auto flows = c.model.directoryJson().at("flows");
    ASSERT_EQ(flows.size(), 2u);
    EXPECT_EQ(flows[0].at("extension"), "700");
    EXPECT_EQ(flows[1].at("extension"), "701");
}

TEST(DevServerModel, ALargeCompanyKeepsIdsAndExtensionsUnique) {
    Clock clock;
    Model model(clock);
    model.loadDemo(10000);
    std::set<std::string> ids, extensions, emails;
    for (const auto& u : model.users) {
        ids.insert(u.id);
        extensions.insert(u.extension);
        emails.insert(u.email);
    }
    EXPECT_EQ(ids.size(), 10000u);
    EXPECT_EQ(extensions.size(), 10000u);
    EXPECT_EQ(emails.size(), 10000u);
}

TEST(DevServerModel, TheDirectoryTagFollowsTheContent) {
    Company c;
    const auto tag = c.model.directoryETag();
    EXPECT_EQ(c.model.directoryETag(), tag);
    c.model.users[3].name = "Someone Else";
    c.model.directoryChanged();
    EXPECT_NE(c.model.directoryETag(), tag);
    EXPECT_TRUE(c.model.directoryBytes().contains("Someone Else"));
}

TEST(DevServerModel, TheCallLogPagesByStartTime) {
    Company c;
    const auto first = c.model.callLogPage("u-001", 50, std::nullopt).at("calls");
    ASSERT_EQ(first.size(), 50u);
    const auto last = parseIso(first.back().at("startAt").get<std::string>());
    ASSERT_TRUE(last);
    const auto next = c.model.callLogPage("u-001", 50, last).at("calls");
    ASSERT_FALSE(next.empty());
    EXPECT_LT(*parseIso(next.front().at("startAt").get<std::string>()), *last);
    EXPECT_TRUE(c.model.callLogPage("u-002", 50, std::nullopt).at("calls").empty());
}

TEST(DevServerModel, GeneratedPicturesAndRecordingsAreRealMedia) {
    const auto jpeg = generatedAvatar("u-001");
    const QImage image = QImage::fromData(jpeg, "JPEG");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.width(), 120);
    EXPECT_NE(generatedAvatar("u-002"), jpeg);
    const auto wav = speechLikeWav(2.5, 1);
    EXPECT_EQ(wav.size(), 44 + 2 * 8000 * 5 / 2);
    EXPECT_TRUE(wav.startsWith("RIFF"));
}

TEST(DevServerModel, ABoardNamesItsAgentsAndStampsItsCallers) {
    Company c;
    const auto board = c.model.boardJson(c.model.queues.front());
    EXPECT_EQ(board.at("agents")[1].at("name"), "Ben Okafor");
    EXPECT_EQ(board.at("agents")[1].at("extension"), "202");
    EXPECT_TRUE(board.at("waiting")[0].at("since").is_number_integer());
    EXPECT_FALSE(board.at("waiting")[0].contains("agent"));
    EXPECT_TRUE(board.at("waiting")[1].contains("agent"));
}

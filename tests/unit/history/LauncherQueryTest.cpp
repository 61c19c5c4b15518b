#include "history/LauncherQuery.h"

#include <gtest/gtest.h>

// What the desktop's launchers are answered from the directory file.
namespace {

const QList<DirectoryContact> rows = {
    {"201", "Anna Berger", "Colleague"},  {"202", "Ben Okafor", "Colleague"},
    {"204", "Jonas Müller", "Colleague"}, {"209", "Benedikt Roth", "Colleague"},
    {"204", "Room 204 desk", "Group"},    {"600", "Sales", "Group"},
    {"700", "Main line", "Call flow"},
};

} // namespace

TEST(LauncherQuery, OneWordFindsNamesHoldingItInFileOrder) {
    EXPECT_EQ(LauncherQuery::ids(LauncherQuery::search(rows, {"ben"})),
              QStringList({"202", "209"}));
}

TEST(LauncherQuery, EveryWordMustFindTheContact) {
    EXPECT_EQ(LauncherQuery::ids(LauncherQuery::search(rows, {"ben", "oka"})),
              QStringList({"202"}));
    EXPECT_EQ(LauncherQuery::ids(LauncherQuery::search(rows, {"okafor", "ben"})),
              QStringList({"202"}));
}

TEST(LauncherQuery, AnExtensionFindsItsContactOnce) {
    // A colleague and a group share 204: one result, the colleague (the first).
    const auto found = LauncherQuery::search(rows, {"204"});
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found[0].name, "Jonas Müller");
}

TEST(LauncherQuery, NoWordsFindNothing) {
    EXPECT_TRUE(LauncherQuery::search(rows, {}).isEmpty());
    EXPECT_TRUE(LauncherQuery::search(rows, {" "}).isEmpty());
}

TEST(LauncherQuery, MullerFindsMueller) {
    EXPECT_EQ(LauncherQuery::ids(LauncherQuery::search(rows, {"muller"})), QStringList({"204"}));
}

TEST(LauncherQuery, ANarrowerSearchKeepsOnlyEarlierResults) {
    EXPECT_EQ(LauncherQuery::ids(LauncherQuery::narrow(rows, {"202"}, {"bene"})), QStringList());
    EXPECT_EQ(LauncherQuery::ids(LauncherQuery::narrow(rows, {"202", "209"}, {"bene"})),
              QStringList({"209"}));
}

TEST(LauncherQuery, TheDescriptionIsKindExtensionAndPresenceWhenKnown) {
    EXPECT_EQ(LauncherQuery::description(rows[1], ""), "Colleague · 202");
    EXPECT_EQ(LauncherQuery::description(rows[1], "On a call"), "Colleague · 202 · On a call");
}

#include "DirectoryScreen.h"

#include "RunTask.h"
#include "history/DirectoryCache.h"

// The directory screen in each state of its loading ladder, light and dark.

TEST_F(DirectoryScreen, TheSkeletonShowsWhileTheFirstReadIsUnderWay) {
    server.control("POST", "faults", {{"path", "api/directory"}, {"delayMs", 3000}, {"count", 2}});
    signIn();
    for (const bool dark : {false, true}) {
        host(directoryView, dark);
        ASSERT_TRUE(shows("directorySkeleton"))
            << app().session().hasDirectory() << app().session().hasDirectoryError()
            << app().session().directoryErrorText().toStdString();
        EXPECT_FALSE(shows("directoryList"));
        EXPECT_FALSE(shows("directoryLoadError"));
        screenshot(dark ? "directory-skeleton-dark" : "directory-skeleton-light");
    }
    // The delayed answer arrives and the list replaces the skeleton.
    ASSERT_TRUE(
        spinUntil([&] { return shows("directoryList"); }, std::chrono::milliseconds(10000)));
    EXPECT_FALSE(shows("directorySkeleton"));
}

TEST_F(DirectoryScreen, AFirstReadThatFailsShowsTheErrorAndTryAgainLoadsTheList) {
    server.control(
        "POST", "faults",
        {{"path", "api/directory"}, {"status", 503}, {"body", "maintenance"}, {"count", 100}});
    signIn();
    // The sign-in's own read has failed; each screen shown reads again, and fails too.
    ASSERT_TRUE(spinUntil([&] { return app().session().directoryError().has_value(); },
                          std::chrono::milliseconds(10000)));
    for (const bool dark : {false, true}) {
        host(directoryView, dark);
        ASSERT_TRUE(spinUntil([&] { return shows("directoryLoadError"); },
                              std::chrono::milliseconds(10000)));
        EXPECT_FALSE(shows("directoryList"));
        EXPECT_FALSE(shows("directoryStale"));
        EXPECT_TRUE(itemWithText("HTTP 503: maintenance"));
        screenshot(dark ? "directory-error-dark" : "directory-error-light");
    }
    // The server is back: "Try again" loads the list.
    server.control("DELETE", "faults");
    click(item("tryAgainButton"));
    ASSERT_TRUE(
        spinUntil([&] { return shows("directoryList"); }, std::chrono::milliseconds(10000)));
    EXPECT_FALSE(shows("directoryLoadError"));
}

TEST_F(DirectoryScreen, TheListShowsPeopleGroupsAndFlowsWithPresenceAndPictures) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return app().session().hasDirectory(); },
                          std::chrono::milliseconds(10000)));
    server.control("PATCH", "users/u-002", {{"presence", "busy"}});
    server.control("PATCH", "users/u-003", {{"presence", "dnd"}});
    ASSERT_TRUE(spinUntil(
        [&] {
            const auto& presence = app().session().live().presence();
            return presence.value("u-002") == live::Presence::busy &&
                   presence.value("u-003") == live::Presence::dnd;
        },
        std::chrono::milliseconds(10000)));
    for (const bool dark : {false, true}) {
        host(directoryView, dark);
        ASSERT_TRUE(
            spinUntil([&] { return shows("directoryList"); }, std::chrono::milliseconds(10000)));
        EXPECT_FALSE(shows("directoryStale"));
        // The signed-in user is not among the people; Ben is, on a call.
        ASSERT_TRUE(spinUntil([&] { return row("Ben Okafor") != nullptr; },
                              std::chrono::milliseconds(5000)));
        EXPECT_FALSE(rowNames().contains("Anna Berger"));
        EXPECT_EQ(row("Ben Okafor")->property("subtitle").toString(), "On a call");
        EXPECT_EQ(row("Ben Okafor")->property("presence").toString(), "busy");
        EXPECT_EQ(row("Chloé Martin")->property("subtitle").toString(), "Do not disturb");
        // Pictures come in as their rows show.
        ASSERT_TRUE(spinUntil(
            [&] {
                return row("Ben Okafor")
                    ->property("avatar")
                    .toString()
                    .startsWith("image://avatars/");
            },
            std::chrono::milliseconds(10000)));
        QTest::qWait(0);
        screenshot(dark ? "directory-list-dark" : "directory-list-light");
    }
}

TEST_F(DirectoryScreen, MullerFindsFrankMuellerAndAnUnknownQuerySaysSo) {
    signIn();
    host(directoryView);
    ASSERT_TRUE(
        spinUntil([&] { return shows("directoryList"); }, std::chrono::milliseconds(10000)));
    search("muller");
    ASSERT_TRUE(spinUntil([&] { return rowNames() == QStringList({"Frank Müller"}); },
                          std::chrono::milliseconds(5000)))
        << rowNames().join(", ").toStdString() << " / query "
        << app().session().directoryList()->query().toStdString() << " / count "
        << app().session().directoryList()->count();
    screenshot("directory-search-light");
    search("  zzz  ");
    ASSERT_TRUE(
        spinUntil([&] { return shows("directoryNoResults"); }, std::chrono::milliseconds(5000)));
    EXPECT_TRUE(itemWithText("No results for “zzz”"));
    screenshot("directory-no-results-light");
}

TEST_F(DirectoryScreen, AFailedRefreshKeepsTheListUnderTheStaleBanner) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return app().session().hasDirectory(); },
                          std::chrono::milliseconds(10000)));
    server.control("POST", "faults", {{"path", "api/directory"}, {"status", 500}, {"count", 2}});
    for (const bool dark : {false, true}) {
        host(directoryView, dark);
        ASSERT_TRUE(
            spinUntil([&] { return shows("directoryStale"); }, std::chrono::milliseconds(10000)));
        EXPECT_TRUE(shows("directoryList"));
        EXPECT_FALSE(shows("directoryLoadError"));
        screenshot(dark ? "directory-stale-dark" : "directory-stale-light");
    }
    click(item("directoryStale"));
    ASSERT_TRUE(
        spinUntil([&] { return !shows("directoryStale"); }, std::chrono::milliseconds(10000)));
}

TEST_F(DirectoryScreen, TheCallButtonDialsTheExtension) {
    signIn();
    host(directoryView);
    ASSERT_TRUE(
        spinUntil([&] { return row("Ben Okafor") != nullptr; }, std::chrono::milliseconds(10000)));
    EXPECT_TRUE(row("Ben Okafor")->property("callEnabled").toBool());
    click(itemsNamed(row("Ben Okafor"), "rowCallButton").value(0));
    EXPECT_EQ(app().phone().pendingDial(), QString("202"));
}

TEST_F(DirectoryScreen,
       ARestartWithTheServerDownShowsTheErrorWhilePicturesAndLaunchersStillAnswer) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return app().session().hasDirectory(); },
                          std::chrono::milliseconds(10000)));
    AvatarRef ben;
    for (const auto& entry : app().session().directory()->users) {
        if (entry.name == "Ben Okafor") {
            ben = *entry.avatar;
        }
    }
    const auto picture = runTask(app().session().avatarData(ben));
    ASSERT_TRUE(picture.has_value());

    // The next start finds no server: the directory was never kept on disk.
    server.process().stop();
    engine.removeImageProvider(AvatarImageProvider::name);
    restart();
    engine.addImageProvider(AvatarImageProvider::name, new AvatarImageProvider(app().session()));
    runTask(app().session().restore());
    for (const bool dark : {false, true}) {
        host(directoryView, dark);
        ASSERT_TRUE(spinUntil([&] { return shows("directoryLoadError"); },
                              std::chrono::milliseconds(10000)));
        EXPECT_FALSE(shows("directoryList"));
        EXPECT_FALSE(shows("directorySkeleton"));
        EXPECT_FALSE(shows("directoryStale"));
        screenshot(dark ? "directory-restart-offline-dark" : "directory-restart-offline-light");
    }
    EXPECT_FALSE(app().session().directory().has_value());
    // Pictures come from the disk cache, and the launchers from their file.
    EXPECT_EQ(runTask(app().session().avatarData(ben)), picture);
    const auto found = DirectoryCache::entitiesMatching("ben");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.first().name, "Ben Okafor");
}

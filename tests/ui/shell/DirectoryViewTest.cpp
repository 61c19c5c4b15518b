#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "shell/AvatarImageProvider.h"

#include <QTemporaryDir>

// The directory screen against rz-devserver, in each state of its loading
// ladder, light and dark, grabbed to build/screenshots.
namespace {

const QByteArray directoryView = R"(
    DirectoryView {
        objectName: "directoryView"
        anchors.fill: parent
        session: w.session
        phone: w.phone
        shell: w.shell
    }
)";

class DirectoryScreen : public ScreenHost {
protected:
    void SetUp() override {
        qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
        ScreenHost::SetUp();
        settings.setUrl("rz.server", server.url());
        restart();
        engine.addImageProvider(AvatarImageProvider::name,
                                new AvatarImageProvider(app().session()));
        useSigningInBrowser(app().session());
    }

    void TearDown() override {
        ScreenHost::TearDown();
        engine.removeImageProvider(AvatarImageProvider::name);
    }

    // Signed in, with enter() done as far as the directory read it starts.
    void signIn() {
        app().session().signIn();
        ASSERT_TRUE(spinUntil(
            [&] { return app().session().me().has_value() || app().session().hasError(); },
            std::chrono::milliseconds(10000)));
        ASSERT_FALSE(app().session().hasError()) << app().session().errorText().toStdString();
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    // The delegates the list shows now, in order (pooled ones left out).
    QList<QQuickItem*> rows() {
        QList<QQuickItem*> shown;
        QQuickItem* list = item("directoryList");
        const int count = list ? list->property("count").toInt() : 0;
        for (int i = 0; i < count; ++i) {
            QQuickItem* delegate = nullptr;
            QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem*, delegate),
                                      Q_ARG(int, i));
            if (delegate) {
                shown.append(delegate);
            }
        }
        return shown;
    }

    QStringList rowNames() {
        QStringList names;
        for (QQuickItem* delegate : rows()) {
            names.append(delegate->property("name").toString());
        }
        return names;
    }

    QQuickItem* row(const QString& name) {
        for (QQuickItem* delegate : rows()) {
            if (delegate->property("name").toString() == name) {
                return delegate;
            }
        }
        return nullptr;
    }

    void search(const QString& text) { item("directorySearch")->setProperty("text", text); }

    QTemporaryDir caches;
    DevServer server{{"--auto-approve", "u-001"}};
};

} // namespace

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
        {{"path", "api/directory"}, {"status", 503}, {"body", "maintenance"}, {"count", 2}});
    signIn();
    for (const bool dark : {false, true}) {
        host(directoryView, dark);
        ASSERT_TRUE(spinUntil([&] { return shows("directoryLoadError"); },
                              std::chrono::milliseconds(10000)));
        EXPECT_FALSE(shows("directoryList"));
        EXPECT_FALSE(shows("directoryStale"));
        EXPECT_TRUE(itemWithText("HTTP 503: maintenance"));
        screenshot(dark ? "directory-error-dark" : "directory-error-light");
    }
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

#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"
#include "StderrCapture.h"
#include "shell/TrayIcon.h"
#include "shell/VoicemailPlayer.h"

using nlohmann::json;
using namespace std::chrono_literals;

// The voicemail screen over the app's real session, signed in on rz-devserver,
// in each of its states, light and dark.
namespace {

class VoicemailView : public ScreenHost {
protected:
    explicit VoicemailView(const char* user = "u-001") : server{{"--auto-approve", user}} {
        settings.setUrl("rz.server", server.url());
    }

    void signIn() {
        Session& session = app().session();
        useSigningInBrowser(session);
        session.signIn();
        // A user without a mailbox has nothing to load.
        ASSERT_TRUE(spinUntil(
            [&] {
                return (session.me() &&
                        (!session.hasVoicemailBox() || session.voicemailLoaded())) ||
                       session.hasError();
            },
            10s));
    }

    void showScreen(bool dark = false) {
        host("VoicemailView { anchors.fill: parent; session: w.session; phone: w.phone; "
             "shell: w.shell }",
             dark, QSize(560, 640));
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    DevServer server;
};

class VoicemailViewWithoutMailbox : public VoicemailView {
protected:
    VoicemailViewWithoutMailbox() : VoicemailView("u-003") {}
};

} // namespace

TEST_F(VoicemailView, BeforeTheUserHasArrivedTheSkeletonShowsNotNoMailbox) {
    showScreen();
    EXPECT_TRUE(shows("voicemailSkeleton"));
    EXPECT_FALSE(shows("voicemailNoMailbox"));
    screenshot("voicemail-skeleton-light");
}

TEST_F(VoicemailView, OpeningTheScreenSetsUpTheSoundBeforeAnyPress) {
    auto& player = app().shellState().player();
    ASSERT_FALSE(player.prepared());
    showScreen();
    EXPECT_TRUE(spinUntil([&] { return player.prepared(); }, 5s));
    EXPECT_FALSE(player.playing());
}

TEST_F(VoicemailView, ListsTheMessagesWithUnreadDotsAndNames) {
    signIn();
    showScreen();
    ASSERT_TRUE(shows("voicemailList"));
    EXPECT_FALSE(shows("voicemailStale"));
    const int unread = app().session().unreadVoicemailCount();
    int dots = 0;
    for (QQuickItem* dot : itemsNamed(item("voicemailList"), "unreadDot")) {
        dots += dot->property("color").value<QColor>().alpha() > 0 ? 1 : 0;
    }
    EXPECT_EQ(dots, unread);
    screenshot("voicemail-list-light");
    showScreen(true);
    screenshot("voicemail-list-dark");
}

TEST_F(VoicemailView, AClickOpensOneMessageAtATimeWithItsPlayerAndCallBack) {
    signIn();
    showScreen();
    const auto& messages = app().session().voicemail();
    QQuickItem* first = item(("voicemailRow_" + messages[0].id).toUtf8().constData());
    QQuickItem* second = item(("voicemailRow_" + messages[1].id).toUtf8().constData());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    click(itemsNamed(first, "voicemailLine").value(0));
    EXPECT_TRUE(itemsNamed(first, "voicemailPanel").value(0)->isVisible());
    QQuickItem* play = itemsNamed(first, "playButton").value(0);
    EXPECT_EQ(accessibleName(play), "Play");
    EXPECT_TRUE(itemsNamed(first, "callBackButton").value(0)->isVisible());
    EXPECT_EQ(itemsNamed(first, "total").value(0)->property("text").toString(),
              VoicemailPlayer::durationText(messages[0].durationS.value_or(0)));
    screenshot("voicemail-open-light");
    click(itemsNamed(second, "voicemailLine").value(0));
    EXPECT_FALSE(itemsNamed(first, "voicemailPanel").value(0)->isVisible());
    EXPECT_TRUE(itemsNamed(second, "voicemailPanel").value(0)->isVisible());
    // Opening does not start playback.
    EXPECT_FALSE(app().shellState().player().current().has_value());
    showScreen(true);
    click(itemsNamed(item(("voicemailRow_" + messages[0].id).toUtf8().constData()), "voicemailLine")
              .value(0));
    screenshot("voicemail-open-dark");
}

TEST_F(VoicemailView, AMessageWithoutACallerIsUnknownAndCannotBeCalledBack) {
    server.control("POST", "voicemail", {{"durationS", 4}});
    signIn();
    showScreen();
    const auto message = app().session().voicemail().first();
    ASSERT_FALSE(message.caller);
    QQuickItem* row = item(("voicemailRow_" + message.id).toUtf8().constData());
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->property("message").toMap().value("title").toString(), "Unknown caller");
    click(itemsNamed(row, "voicemailLine").value(0));
    EXPECT_FALSE(itemsNamed(row, "callBackButton").value(0)->isVisible());
}

TEST_F(VoicemailView, ReadAndDeleteFromTheOpenMessage) {
    signIn();
    showScreen();
    const auto message = app().session().voicemail().first();
    ASSERT_FALSE(message.readAt);
    QQuickItem* row = item(("voicemailRow_" + message.id).toUtf8().constData());
    click(itemsNamed(row, "voicemailLine").value(0));
    QQuickItem* read = itemsNamed(row, "readButton").value(0);
    EXPECT_EQ(read->property("text").toString(), "Read");
    click(read);
    EXPECT_TRUE(app().session().voicemail().first().readAt);
    row = item(("voicemailRow_" + message.id).toUtf8().constData());
    EXPECT_EQ(itemsNamed(row, "readButton").value(0)->property("text").toString(), "Unread");
    const auto count = app().session().voicemail().size();
    click(itemsNamed(row, "deleteButton").value(0));
    EXPECT_EQ(app().session().voicemail().size(), count - 1);
    EXPECT_EQ(item(("voicemailRow_" + message.id).toUtf8().constData()), nullptr);
}

TEST_F(VoicemailView, AFailedFirstLoadShowsWhyAndRetries) {
    // The sign-in's read and the screen's own read at its start both fail.
    server.control("POST", "faults",
                   {{"path", "api/voicemail-boxes/box-201/messages"},
                    {"count", 2},
                    {"status", 500},
                    {"body", "mailbox down"}});
    StderrCapture quiet;
    signIn();
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return shows("voicemailLoadError"); }));
    EXPECT_FALSE(shows("voicemailList"));
    EXPECT_NE(itemWithText("HTTP 500: mailbox down"), nullptr);
    screenshot("voicemail-error-dark");
    click(item("tryAgainButton"));
    ASSERT_TRUE(spinUntil([&] { return shows("voicemailList"); }));
    EXPECT_FALSE(shows("voicemailLoadError"));
}

TEST_F(VoicemailView, AFailedReloadKeepsTheListUnderTheBanner) {
    signIn();
    server.control("POST", "faults",
                   {{"path", "api/voicemail-boxes/box-201/messages"}, {"status", 503}});
    StderrCapture quiet;
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return shows("voicemailStale"); }));
    EXPECT_TRUE(shows("voicemailList"));
    screenshot("voicemail-stale-light");
    click(item("voicemailStale"));
    ASSERT_TRUE(spinUntil([&] { return !shows("voicemailStale"); }));
}

TEST_F(VoicemailView, AnEmptyMailboxSaysNoMessages) {
    server.control("POST", "faults",
                   {{"path", "api/voicemail-boxes/box-201/messages"},
                    {"count", 3},
                    {"status", 200},
                    {"body", "[]"}});
    signIn();
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return shows("voicemailEmpty"); }));
    EXPECT_NE(itemWithText("No messages"), nullptr);
    screenshot("voicemail-empty-dark");
}

TEST_F(VoicemailViewWithoutMailbox, AUserWithoutAMailboxIsToldSo) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return app().session().me().has_value(); }));
    showScreen();
    EXPECT_TRUE(shows("voicemailNoMailbox"));
    EXPECT_NE(itemWithText("Your account has no mailbox in velnor RZ."), nullptr);
    screenshot("voicemail-no-mailbox-light");
}

TEST_F(VoicemailView, TheSidebarBadgeCountsUnreadMessages) {
    EXPECT_EQ(app().shellState().voicemailBadge(), 0);
    signIn();
    const int unread = app().session().unreadVoicemailCount();
    ASSERT_GT(unread, 0);
    EXPECT_EQ(app().shellState().voicemailBadge(), unread);
    runTask(app().session().setRead(app().session().voicemail().first().id,
                                    !app().session().voicemail().first().readAt.has_value()));
    EXPECT_NE(app().shellState().voicemailBadge(), unread);
}

TEST(TrayVoicemailBadge, UnreadMessagesPutAnAccentDiscOnTheIconsTopCorner) {
    const auto kind = Phone::Registration::Kind::registered;
    const QImage plain = TrayIcon::iconOf(kind, 0).pixmap(48, 48).toImage();
    const QImage badged = TrayIcon::iconOf(kind, 3).pixmap(48, 48).toImage();
    // Inside the disc, clear of its number.
    const QPoint corner(48 - 6, 6);
    const QColor seen = badged.pixelColor(corner);
    EXPECT_GT(seen.blue(), 200) << seen.name().toStdString();
    EXPECT_LT(seen.red(), 120) << seen.name().toStdString();
    EXPECT_NE(plain.pixelColor(corner), seen);
    QDir().mkpath(VELNOR_SCREENSHOTS);
    badged.save(QString(VELNOR_SCREENSHOTS) + "/tray-icon-voicemail-badge.png");
}

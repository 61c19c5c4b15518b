#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "Ports.h"
#include "Services.h"
#include "shell/TrayIcon.h"

#include <QFile>

// The recents screen in each of its states, drawn offscreen, light and dark,
// over the app's real session against rz-devserver.
namespace {

using nlohmann::json;

// A cache file as an earlier launch left it: Anna's calls of that day.
QByteArray cachedCalls() {
    const QString today = QDateTime::currentDateTimeUtc().toString("yyyy-MM-dd");
    auto at = [&](const char* time) { return today + "T" + time + "Z"; };
    QList<CallHistory::Row> rows;
    CallHistory::Row missed;
    missed.callUuid = "c1";
    missed.from = "+4930123456";
    missed.to = "201";
    missed.direction = "inbound";
    missed.startAt = at("00:03:00.000");
    missed.endAt = at("00:03:20.000");
    missed.mine = CallHistory::Row::Mine{"callee", false};
    rows.append(missed);
    CallHistory::Row out;
    out.callUuid = "c2";
    out.from = "201";
    out.to = "203";
    out.toName = "Chloé Martin";
    out.direction = "internal";
    out.startAt = at("00:02:00.000");
    out.answerAt = at("00:02:04.000");
    out.endAt = at("00:04:09.000");
    out.mine = CallHistory::Row::Mine{"caller", false};
    rows.append(out);
    return CallHistory::encodeRows(rows);
}

class RecentsView : public ScreenHost {
protected:
    RecentsView() {
        // The phone's edge refuses, so that no test reaches another's phone system.
        server = std::make_unique<DevServer>(
            QStringList{"--auto-approve", user, "--sip-edge",
                        QStringLiteral("tcp:127.0.0.1:%1").arg(refusing.port())});
        settings.setUrl("rz.server", server->url());
    }

    void showRecents(bool dark = false) {
        host("RecentsView { anchors.fill: parent; model: w.shell.recents; shell: w.shell }", dark,
             QSize(640, 520));
    }

    int callLogRequests() {
        int count = 0;
        for (const json& request : server->control("GET", "requests")) {
            count += request["path"] == "api/calls" ? 1 : 0;
        }
        return count;
    }

    // Signs in and waits until entering has loaded the first page of the log.
    void signIn() {
        const int before = callLogRequests();
        useSigningInBrowser(app().session());
        app().session().signIn();
        ASSERT_TRUE(spinUntil(
            [&] { return app().session().me().has_value() || app().session().hasError(); },
            std::chrono::seconds(10)));
        ASSERT_FALSE(app().session().hasError()) << app().session().errorText().toStdString();
        ASSERT_TRUE(spinUntil([&] { return callLogRequests() > before && !history().loading(); },
                              std::chrono::seconds(10)));
    }

    RecentsModel& model() { return *app().shellState().recentsModel(); }
    CallHistory& history() { return app().session().history(); }

    bool settled() {
        return spinUntil([&] { return !history().loading(); });
    }

    QString user = "u-001";
    TempHome home; // the cache file is this test's own
    RefusingPort refusing;
    std::unique_ptr<DevServer> server;
};

// With a cache file there before the launch.
class CachedRecentsView : public RecentsView {
protected:
    CachedRecentsView() {
        QDir().mkpath(home.cacheHome() + "/velnor-rz");
        QFile file(home.cacheHome() + "/velnor-rz/calls.v1.json");
        if (file.open(QIODevice::WriteOnly)) {
            file.write(cachedCalls());
        }
    }
};

// Rows of a person with no calls at all.
class EmptyRecentsView : public RecentsView {
protected:
    EmptyRecentsView() {
        user = "u-002";
        server = std::make_unique<DevServer>(
            QStringList{"--auto-approve", user, "--sip-edge",
                        QStringLiteral("tcp:127.0.0.1:%1").arg(refusing.port())});
        settings.setUrl("rz.server", server->url());
    }
};

} // namespace

TEST_F(RecentsView, AnnasCallsShowWithNamesMissedInTheDangerColourAndTheMailboxMark) {
    for (const bool dark : {false, true}) {
        if (dark) {
            restart();
        }
        signIn();
        ASSERT_TRUE(spinUntil([&] { return history().hasLoaded() && !history().loading(); }));
        showRecents(dark);
        ASSERT_TRUE(settled());
        EXPECT_EQ(model().view(), "list");
        ASSERT_EQ(model().rowCount(), 50);
        EXPECT_TRUE(item("recentsList")->isVisible());
        EXPECT_FALSE(item("recentsStale")->isVisible());
        // Every row's words are the model's; a missed one is drawn in danger.
        int missed = 0;
        for (int row = 0; row < model().rowCount(); ++row) {
            const auto& line = model().lines()[row];
            missed += line.missed ? 1 : 0;
            if (line.missed) {
                EXPECT_TRUE(line.subtitle.endsWith("Missed") ||
                            line.subtitle.endsWith("Missed · Mailbox"))
                    << line.subtitle.toStdString();
            }
        }
        EXPECT_GT(missed, 0);
        const auto rows = itemsNamed(item("recentsList"), "recentRow");
        ASSERT_FALSE(rows.isEmpty());
        for (QQuickItem* row : rows) {
            const int index = row->property("index").toInt();
            QQuickItem* title = nullptr;
            for (QQuickItem* candidate : itemsNamed(row, "")) {
                if (candidate->property("text").toString() == model().lines()[index].title) {
                    title = candidate;
                    break;
                }
            }
            ASSERT_NE(title, nullptr) << index;
            const QColor colour = title->property("color").value<QColor>();
            const QColor danger = dark ? QColor("#FF6467") : QColor("#E7000B");
            EXPECT_EQ(colour == danger, model().lines()[index].missed) << index;
        }
        screenshot(dark ? "recents-list-dark" : "recents-list-light");
    }
}

TEST_F(RecentsView, ScrollingToTheEndLoadsTheNextPage) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return history().hasLoaded() && !history().loading(); }));
    showRecents();
    ASSERT_TRUE(settled());
    ASSERT_EQ(model().rowCount(), 50);
    QQuickItem* list = item("recentsList");
    QMetaObject::invokeMethod(list, "positionViewAtEnd");
    EXPECT_TRUE(spinUntil([&] { return model().rowCount() == 100; }, std::chrono::seconds(10)));
    EXPECT_TRUE(settled());
}

TEST_F(CachedRecentsView, ALaunchShowsTheCachedCallsAndAFailedRefreshTheOfflineBanner) {
    for (const bool dark : {false, true}) {
        if (dark) {
            restart();
        }
        // Cached rows, and no sign-in: the refresh on showing fails.
        EXPECT_EQ(model().rowCount(), 2);
        showRecents(dark);
        ASSERT_TRUE(settled());
        EXPECT_TRUE(history().hasLastError());
        EXPECT_EQ(model().view(), "list");
        EXPECT_TRUE(item("recentsStale")->isVisible());
        EXPECT_NE(itemWithText("Offline. Showing saved data, tap to retry"), nullptr);
        EXPECT_NE(itemWithText("+4930123456"), nullptr);
        EXPECT_NE(itemWithText("Missed"), nullptr);
        EXPECT_NE(itemWithText("Chloé Martin"), nullptr);
        EXPECT_NE(itemWithText("203 · 2:05"), nullptr);
        screenshot(dark ? "recents-stale-dark" : "recents-stale-light");
    }
}

TEST_F(CachedRecentsView, TheOfflineBannersTapLoadsAgainAndTheBannerGoesWhenTheServerAnswers) {
    showRecents();
    ASSERT_TRUE(settled());
    ASSERT_TRUE(item("recentsStale")->isVisible());
    // Signing in loads afresh: Anna's calls replace the cached ones, and the banner goes.
    signIn();
    ASSERT_TRUE(settled());
    EXPECT_FALSE(item("recentsStale")->isVisible());
    EXPECT_EQ(model().rowCount(), 50);
    // The server fails once: the rows stay under the banner; a tap on it loads again.
    server->control("POST", "faults", {{"path", "api/calls"}, {"status", 503}});
    model().reload();
    ASSERT_TRUE(settled());
    ASSERT_TRUE(item("recentsStale")->isVisible());
    EXPECT_EQ(model().rowCount(), 50);
    click(item("recentsStale"));
    ASSERT_TRUE(settled());
    EXPECT_FALSE(history().hasLastError());
    EXPECT_FALSE(item("recentsStale")->isVisible());
}

TEST_F(RecentsView, NothingSavedAndAFailedLoadShowsTheErrorAndTryAgainLoads) {
    for (const bool dark : {false, true}) {
        if (dark) {
            restart();
        }
        showRecents(dark);
        ASSERT_TRUE(settled());
        ASSERT_EQ(model().view(), "error");
        EXPECT_TRUE(item("recentsError")->isVisible());
        EXPECT_NE(itemWithText("Could not load"), nullptr);
        EXPECT_NE(itemWithText(history().lastErrorText()), nullptr);
        screenshot(dark ? "recents-error-dark" : "recents-error-light");
    }
    // Signed in now; the server is slow: "Try again" shows the skeleton, not the old error.
    signIn();
    ASSERT_TRUE(settled());
    history().clear();
    server->control("POST", "faults", {{"path", "api/calls"}, {"status", 500}});
    model().reload();
    ASSERT_TRUE(settled());
    ASSERT_EQ(model().view(), "error");
    server->control("POST", "faults", {{"path", "api/calls"}, {"delayMs", 3000}});
    click(item("tryAgainButton"));
    EXPECT_TRUE(history().loading());
    EXPECT_EQ(model().view(), "skeleton");
    EXPECT_TRUE(item("recentsSkeleton")->isVisible());
    EXPECT_FALSE(item("recentsError")->isVisible());
    screenshot("recents-skeleton-dark");
    ASSERT_TRUE(spinUntil([&] { return !history().loading(); }, std::chrono::seconds(10)));
    EXPECT_EQ(model().view(), "list");
}

TEST_F(RecentsView, BeforeAnythingArrivesTheSkeletonShows) {
    signIn();
    ASSERT_TRUE(settled());
    history().clear();
    server->control("POST", "faults", {{"path", "api/calls"}, {"delayMs", 3000}});
    showRecents();
    EXPECT_TRUE(history().loading());
    EXPECT_EQ(model().view(), "skeleton");
    EXPECT_TRUE(item("recentsSkeleton")->isVisible());
    screenshot("recents-skeleton-light");
    EXPECT_TRUE(spinUntil([&] { return !history().loading(); }, std::chrono::seconds(10)));
}

TEST_F(EmptyRecentsView, APersonWithoutCallsSeesTheEmptyState) {
    for (const bool dark : {false, true}) {
        if (dark) {
            restart();
        }
        signIn();
        showRecents(dark);
        ASSERT_TRUE(settled());
        EXPECT_EQ(model().view(), "empty");
        EXPECT_TRUE(item("recentsEmpty")->isVisible());
        EXPECT_NE(itemWithText("No calls yet"), nullptr);
        EXPECT_NE(itemWithText("Calls you make or receive appear here."), nullptr);
        screenshot(dark ? "recents-empty-dark" : "recents-empty-light");
    }
}

TEST_F(CachedRecentsView, TheCallButtonOfARowCallsItsNumber) {
    showRecents();
    ASSERT_TRUE(settled());
    const auto buttons = itemsNamed(item("recentsList"), "rowCallButton");
    ASSERT_GE(buttons.size(), 2);
    // The second line is Chloé's, 203. No phone system is behind this phone:
    // the dial leaves a failed line of its own for that number.
    QQuickItem* second = nullptr;
    for (QQuickItem* button : buttons) {
        if (!second || button->mapToScene({}).y() > second->mapToScene({}).y()) {
            second = button;
        }
    }
    click(second);
    ASSERT_FALSE(app().phone().recents().entries().isEmpty());
    EXPECT_EQ(app().phone().recents().entries().front().remote, "203");
    EXPECT_FALSE(app().phone().recents().entries().front().incoming);
}

TEST_F(CachedRecentsView, LookingAtTheListClearsTheMissedCount) {
    // Seen long ago: today's missed call counts until the list is shown.
    settings.setText(RecentsModel::lastSeenKey, "2020-01-01T00:00:00Z");
    restart();
    EXPECT_EQ(model().missedCount(), 1);
    showRecents();
    EXPECT_TRUE(spinUntil([&] { return model().missedCount() == 0; }));
}

TEST(TrayTooltip, SaysHowManyCallsWereMissedOnALineOfItsOwn) {
    EXPECT_EQ(TrayIcon::missedLine(0), "");
    EXPECT_EQ(TrayIcon::missedLine(1), "1 missed call");
    EXPECT_EQ(TrayIcon::missedLine(3), "3 missed calls");
}

TEST_F(CachedRecentsView, TheTrayIconIsToldTheMissedCountAndItsClearing) {
    settings.setText(RecentsModel::lastSeenKey, "2020-01-01T00:00:00Z");
    restart();
    TrayIcon tray(app().phone(), engine, {});
    tray.followMissedCalls(model());
    EXPECT_EQ(tray.missedCalls(), 1);
    showRecents();
    EXPECT_TRUE(spinUntil([&] { return tray.missedCalls() == 0; }));
}

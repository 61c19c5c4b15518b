#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "StderrCapture.h"

using nlohmann::json;
using namespace std::chrono_literals;

// The queues screen over the app's real session, signed in on rz-devserver
// as Anna, an agent of the support and the sales queue, its boards driven by
// the server's control interface; in each of its states, light and dark.
namespace {

class QueuesView : public ScreenHost {
protected:
    QueuesView() : server{{"--auto-approve", "u-001"}} {
        settings.setUrl("rz.server", server.url());
    }

    void signIn(bool boards = true) {
        Session& session = app().session();
        useSigningInBrowser(session);
        session.signIn();
        ASSERT_TRUE(spinUntil(
            [&] {
                return (session.queues().size() == 2 &&
                        (!boards || session.live().boards().size() == 2)) ||
                       session.hasError();
            },
            10s));
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
    }

    void showScreen(bool dark = false) {
        host("QueuesView { anchors.fill: parent; session: w.session; shell: w.shell }", dark,
             QSize(560, 720));
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    QQuickItem* card(const char* queueId) {
        return item((QByteArray("queueCard_") + queueId).constData());
    }

    QQuickItem* in(QQuickItem* under, const char* name) {
        return under ? itemsNamed(under, name).value(0) : nullptr;
    }

    QString textIn(QQuickItem* under, const char* name) {
        QQuickItem* found = in(under, name);
        return found ? found->property("text").toString() : QString();
    }

    // The requests the server saw for a method and path, in order.
    json requestsTo(const std::string& method, const std::string& path) {
        json found = json::array();
        for (const auto& request : server.control("GET", "requests")) {
            if (request["method"] == method && request["path"] == path) {
                found.push_back(request);
            }
        }
        return found;
    }

    DevServer server;
};

} // namespace

TEST_F(QueuesView, BeforeTheQueuesAnswerTheSkeletonShows) {
    // The queue list answers slowly, both at the sign-in and for the screen.
    server.control("POST", "faults",
                   {{"method", "GET"}, {"path", "api/me/queues"}, {"count", 2}, {"delayMs", 1500}});
    Session& session = app().session();
    useSigningInBrowser(session);
    session.signIn();
    ASSERT_TRUE(spinUntil([&] { return session.me().has_value(); }, 10s));
    showScreen();
    EXPECT_TRUE(shows("queuesSkeleton"));
    EXPECT_FALSE(shows("queuesEmpty"));
    EXPECT_FALSE(shows("queuesList"));
    screenshot("queues-skeleton-light");
    ASSERT_TRUE(spinUntil([&] { return shows("queuesList"); }, 5s));
    EXPECT_FALSE(shows("queuesSkeleton"));
}

TEST_F(QueuesView, EachQueueIsACardWithItsWaitingCallsAndAgents) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return shows("queuesList"); }));
    QQuickItem* support = card("q-support");
    QQuickItem* sales = card("q-sales");
    ASSERT_NE(support, nullptr);
    ASSERT_NE(sales, nullptr);
    // The REST name, not the board's.
    EXPECT_EQ(textIn(support, "queueName"), "Support queue");
    // The first caller has waited 95 seconds since the server started.
    const QString summary = textIn(support, "queueSummary");
    ASSERT_TRUE(summary.startsWith("2 waiting · longest ")) << summary.toStdString();
    const QStringList longest = summary.mid(20).split(':');
    ASSERT_EQ(longest.size(), 2);
    EXPECT_GE(longest[0].toInt() * 60 + longest[1].toInt(), 95) << summary.toStdString();
    const auto rows = itemsNamed(support, "waitingRow");
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(textIn(rows[0], "waitingCaller"), "Müller GmbH");
    // The second call is still offered to Emma: no agent shows.
    EXPECT_EQ(textIn(rows[1], "waitingCaller"), "+4930123456");
    EXPECT_FALSE(in(rows[1], "waitingAgent")->isVisible());
    const auto chips = itemsNamed(support, "agentChip");
    ASSERT_EQ(chips.size(), 5);
    EXPECT_EQ(textIn(chips[0], "agentName"), "You");
    EXPECT_EQ(chips[0]->property("label").toString(), "Available");
    EXPECT_EQ(chips[1]->property("label").toString(), "On a call");
    QObject* theme = window->property("theme").value<QObject*>();
    EXPECT_EQ(in(chips[0], "agentDot")->property("color").value<QColor>(),
              theme->property("positive").value<QColor>());
    EXPECT_EQ(in(chips[1], "agentDot")->property("color").value<QColor>(),
              theme->property("danger").value<QColor>());
    // Anna is available in support and paused in sales.
    EXPECT_TRUE(in(support, "loggedInSwitch")->property("checked").toBool());
    EXPECT_EQ(textIn(support, "pauseText"), "Available for queue calls");
    EXPECT_EQ(textIn(sales, "pauseText"), "Paused: no queue calls");
    EXPECT_EQ(textIn(sales, "pauseButton"), "Resume");
    EXPECT_EQ(accessibleName(in(support, "loggedInSwitch")), "Logged in to Support queue");
    screenshot("queues-filled-light");
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return shows("queuesList"); }));
    screenshot("queues-filled-dark");
}

TEST_F(QueuesView, ACallerWaitingInSupportAppearsWithinASecondAndItsTimeTicks) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    server.control("POST", "queues/q-support/waiting",
                   {{"callId", "qc-new"}, {"from", "Hofer Hans"}, {"sinceMs", nowMs - 5000}});
    QElapsedTimer shown;
    shown.start();
    ASSERT_TRUE(
        spinUntil([&] { return itemsNamed(card("q-support"), "waitingRow").size() == 3; }, 1s));
    EXPECT_LT(shown.elapsed(), 1000);
    QQuickItem* row = itemsNamed(card("q-support"), "waitingRow").value(2);
    EXPECT_EQ(textIn(row, "waitingCaller"), "Hofer Hans");
    const QString first = textIn(row, "waitingTimer");
    EXPECT_TRUE(first == "0:05" || first == "0:06") << first.toStdString();
    // The badge of the sidebar counts it too.
    EXPECT_EQ(app().shellState().queuesBadge(), 4);
    ASSERT_TRUE(spinUntil([&] { return textIn(row, "waitingTimer") != first; }, 3s));
    EXPECT_NE(textIn(row, "waitingTimer"), first);
    screenshot("queues-new-caller-light");
}

TEST_F(QueuesView, TheSwitchGoesBackWhenTheServerRefuses) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    server.control("POST", "faults",
                   {{"method", "POST"},
                    {"path", "api/queues/q-support/agent"},
                    {"status", 500},
                    {"body", "queue service down"}});
    StderrCapture quiet;
    QQuickItem* toggle = in(card("q-support"), "loggedInSwitch");
    click(toggle);
    ASSERT_TRUE(spinUntil([&] { return app().session().hasError(); }, 5s));
    EXPECT_EQ(app().session().errorText(), "HTTP 500: queue service down");
    ASSERT_TRUE(spinUntil(
        [&] { return in(card("q-support"), "loggedInSwitch")->property("checked").toBool(); }, 5s));
    EXPECT_TRUE(shows("queuesList"));
    EXPECT_TRUE(in(card("q-support"), "pauseRow")->isVisible());
    EXPECT_EQ(requestsTo("POST", "api/queues/q-support/agent").size(), 1u);
}

TEST_F(QueuesView, TheSwitchAndPauseButtonReachTheServer) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-sales") != nullptr; }));
    click(in(card("q-sales"), "pauseButton"));
    ASSERT_TRUE(spinUntil([&] { return textIn(card("q-sales"), "pauseButton") == "Pause"; }, 5s));
    auto sent = requestsTo("POST", "api/queues/q-sales/agent");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()), json({{"paused", false}}));
    click(in(card("q-sales"), "loggedInSwitch"));
    ASSERT_TRUE(spinUntil([&] { return !in(card("q-sales"), "pauseRow")->isVisible(); }, 5s));
    EXPECT_FALSE(in(card("q-sales"), "loggedInSwitch")->property("checked").toBool());
    sent = requestsTo("POST", "api/queues/q-sales/agent");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(json::parse(sent[1]["body"].get<std::string>()), json({{"loggedIn", false}}));
    EXPECT_FALSE(app().session().hasError());
}

TEST_F(QueuesView, ABoardThatListsTheUserLoggedOutWinsOverTheQueueList) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    server.control("PATCH", "queues/q-support/agents/u-001", {{"state", "logged_out"}});
    ASSERT_TRUE(spinUntil(
        [&] { return !in(card("q-support"), "loggedInSwitch")->property("checked").toBool(); },
        5s));
    EXPECT_FALSE(in(card("q-support"), "pauseRow")->isVisible());
    // The queue list still says logged in.
    for (const auto& queue : app().session().queues()) {
        if (queue.id == "q-support") {
            EXPECT_TRUE(queue.loggedIn);
        }
    }
}

TEST_F(QueuesView, WithoutLiveUpdatesTheCardsShowTheQueueListsFigures) {
    // The websocket is refused, so no board ever comes.
    server.control("POST", "faults", {{"path", "api/live"}, {"count", 1000}, {"status", 503}});
    StderrCapture quiet;
    signIn(false);
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    EXPECT_FALSE(in(card("q-support"), "waitingPanel")->isVisible());
    EXPECT_FALSE(in(card("q-support"), "flowAgents")->isVisible());
    const auto rest = app().session().queues();
    for (const auto& queue : rest) {
        QQuickItem* c = card(queue.id.toUtf8().constData());
        const qint64 count = queue.waiting.value_or(0);
        EXPECT_EQ(textIn(c, "queueSummary"),
                  count < 1 ? QString("Nobody waiting") : QString("%1 waiting").arg(count));
    }
    screenshot("queues-no-boards-dark");
}

TEST_F(QueuesView, WhenTheSocketIsLostTheLastBoardsStay) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    server.control("POST", "faults", {{"path", "api/live"}, {"count", 1000}, {"status", 503}});
    StderrCapture quiet;
    server.control("POST", "live/drop", {{"closeFrame", false}});
    ASSERT_TRUE(spinUntil([&] { return !app().session().live().connected(); }, 5s));
    EXPECT_EQ(itemsNamed(card("q-support"), "waitingRow").size(), 2);
    EXPECT_EQ(itemsNamed(card("q-support"), "agentChip").size(), 5);
}

TEST_F(QueuesView, AUserWithoutQueuesIsToldSo) {
    server.control("POST", "faults",
                   {{"path", "api/me/queues"}, {"count", 5}, {"status", 200}, {"body", "[]"}});
    Session& session = app().session();
    useSigningInBrowser(session);
    session.signIn();
    ASSERT_TRUE(spinUntil([&] { return session.me().has_value(); }, 10s));
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return shows("queuesEmpty"); }));
    EXPECT_NE(itemWithText("No queues"), nullptr);
    EXPECT_NE(itemWithText("Queues you are an agent of appear here."), nullptr);
    screenshot("queues-empty-dark");
}

TEST_F(QueuesView, TheWaitingTimesStopCountingWhenTheScreenGoes) {
    signIn();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    QueuesModel* queues = app().shellState().queuesModel();
    EXPECT_TRUE(queues->timerActive());
    window.reset();
    EXPECT_FALSE(queues->ticking());
    EXPECT_FALSE(queues->timerActive());
}

TEST_F(QueuesView, WithoutBoardsTheSwitchMovesAtOnceAndComesBackOnARefusal) {
    server.control("POST", "faults", {{"path", "api/live"}, {"count", 1000}, {"status", 503}});
    StderrCapture quiet;
    signIn(false);
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return card("q-support") != nullptr; }));
    ASSERT_TRUE(in(card("q-support"), "loggedInSwitch")->property("checked").toBool());
    server.control("POST", "faults",
                   {{"method", "POST"},
                    {"path", "api/queues/q-support/agent"},
                    {"status", 500},
                    {"delayMs", 400},
                    {"body", "queue service down"}});
    click(in(card("q-support"), "loggedInSwitch"));
    // The queue list changes before the server answers: off, and no pause row.
    EXPECT_FALSE(in(card("q-support"), "loggedInSwitch")->property("checked").toBool());
    EXPECT_FALSE(in(card("q-support"), "pauseRow")->isVisible());
    ASSERT_TRUE(spinUntil([&] { return app().session().hasError(); }, 5s));
    ASSERT_TRUE(spinUntil(
        [&] { return in(card("q-support"), "loggedInSwitch")->property("checked").toBool(); }, 5s));
    EXPECT_TRUE(in(card("q-support"), "pauseRow")->isVisible());
    EXPECT_EQ(app().session().errorText(), "HTTP 500: queue service down");
}

#include "shell/CallWindows.h"

#include "../telephony/FakeCore.h"
#include "ManualClock.h"
#include "audio/NullBackend.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTimeZone>

#include <gtest/gtest.h>

// What a call turns into on the desktop, over a fake engine: the call window
// opened and closed, the ring and the notification while a call is incoming,
// and the notification's actions on the call.
namespace {

using core::CallState;
using core::RegistrationState;

struct Posted {
    QString key;
    QString title;
    QString body;
};

class RecordingNotifier : public CallNotifier {
public:
    void post(const QString& key, const QString& title, const QString& body) override {
        posted.append({key, title, body});
        ++onScreen;
    }
    void withdrawAll() override {
        ++withdrawals;
        onScreen = 0;
    }

    QList<Posted> posted;
    int onScreen = 0;
    int withdrawals = 0;
};

class CountingRinger : public CallRinger {
public:
    void ring() override {
        ++rings;
        times.append(clock.elapsed());
    }
    void silence() override { ++silences; }

    int rings = 0;
    int silences = 0;
    QList<qint64> times;
    QElapsedTimer clock;
};

class CallWindowsTest : public testing::Test {
protected:
    CallWindowsTest() {
        phone.setClientFactory(
            [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
                client = std::make_shared<FakeClient>(account, std::move(d));
                return client;
            });
        phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
        phone.start();
        phone.registrationChanged(RegistrationState::registered());
        ringer.clock.start();
        windows.open = [this](const QString& id) { opened.append(id); };
        windows.dismiss = [this](const QString& id) { dismissed.append(id); };
        windows.requestAttention = [this] { ++attention; };
        windows.activate = [this](const QByteArray& token) { activations.append(token); };
    }

    std::shared_ptr<FakeCoreCall> incoming(const std::string& id, const std::string& number,
                                           std::optional<std::string> name = {}) {
        auto call = std::make_shared<FakeCoreCall>(id, number, std::move(name));
        phone.incomingCall(call);
        return call;
    }

    bool waitFor(const std::function<bool()>& until, int boundMs) {
        QDeadlineTimer deadline(boundMs);
        while (!until()) {
            if (deadline.hasExpired()) {
                return false;
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        return true;
    }

    MemorySettingsStore settings;
    ManualClock clock;
    Phone phone{settings, std::make_shared<NullBackend>(), clock};
    std::shared_ptr<FakeClient> client;
    RecordingNotifier notifier;
    CountingRinger ringer;
    CallWindows windows{phone, settings, notifier, ringer, clock};
    QStringList opened;
    QStringList dismissed;
    int attention = 0;
    QList<QByteArray> activations;
};

} // namespace

TEST_F(CallWindowsTest, NothingHappensBeforeStart) {
    incoming("in-1", "204");
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_EQ(ringer.rings, 0);
    EXPECT_TRUE(notifier.posted.isEmpty());
}

TEST_F(CallWindowsTest, StartRunsOnceAndPicksUpACallAlreadyThere) {
    incoming("in-1", "204");
    windows.start();
    windows.start();
    EXPECT_EQ(opened, QStringList{"call"});
    EXPECT_EQ(ringer.rings, 1);
    EXPECT_EQ(notifier.posted.size(), 1);
}

TEST_F(CallWindowsTest, AnIncomingCallOpensTheWindowRingsAndPostsANamedNotification) {
    windows.start();
    incoming("in-1", "+4930123", std::string("Anna Berger"));
    EXPECT_EQ(opened, QStringList{"call"});
    EXPECT_EQ(attention, 1);
    EXPECT_TRUE(windows.ringing());
    EXPECT_EQ(ringer.rings, 1);
    ASSERT_EQ(notifier.posted.size(), 1);
    EXPECT_EQ(notifier.posted[0].title, "Anna Berger");
    EXPECT_EQ(notifier.posted[0].body, "Incoming call from +4930123");
    EXPECT_EQ(notifier.posted[0].key,
              phone.activeCall()->uuid.toString(QUuid::WithoutBraces).toUpper());
}

TEST_F(CallWindowsTest, AnUnnamedCallerIsTitledByTheNumber) {
    windows.start();
    incoming("in-1", "204");
    ASSERT_EQ(notifier.posted.size(), 1);
    EXPECT_EQ(notifier.posted[0].title, "204");
    EXPECT_EQ(notifier.posted[0].body, "Incoming call");
}

TEST_F(CallWindowsTest, TheRingRepeatsEveryTwoAndAHalfSeconds) {
    EXPECT_EQ(CallWindows::ringInterval, std::chrono::milliseconds(2500));
    windows.start();
    incoming("in-1", "204");
    ASSERT_TRUE(waitFor([this] { return ringer.rings >= 3; }, 8000));
    const qint64 first = ringer.times[1] - ringer.times[0];
    const qint64 second = ringer.times[2] - ringer.times[1];
    // Never early (beyond the rounding of milliseconds); late only by what a busy
    // machine adds.
    EXPECT_GE(first, 2490);
    EXPECT_LE(first, 2900);
    EXPECT_GE(second, 2490);
    EXPECT_LE(second, 2900);
    // One notification for the whole ring, not one per ring.
    EXPECT_EQ(notifier.posted.size(), 1);
}

TEST_F(CallWindowsTest, AnsweringStopsTheRingAndWithdrawsTheNotification) {
    windows.start();
    auto call = incoming("in-1", "204");
    phone.answer();
    phone.callStateChanged("in-1", CallState::connected());
    EXPECT_EQ(call->answers, 1);
    EXPECT_FALSE(windows.ringing());
    EXPECT_EQ(ringer.silences, 1);
    EXPECT_EQ(notifier.onScreen, 0);
    EXPECT_EQ(notifier.withdrawals, 1);
    // The window stays for the call.
    EXPECT_TRUE(dismissed.isEmpty());
}

TEST_F(CallWindowsTest, ACallerWhoGivesUpTakesTheRingTheNotificationAndTheWindowAway) {
    windows.start();
    incoming("in-1", "204");
    phone.callStateChanged("in-1", CallState::ended("cancelled"));
    EXPECT_FALSE(windows.ringing());
    EXPECT_EQ(notifier.onScreen, 0);
    EXPECT_EQ(dismissed, QStringList{"call"});
    EXPECT_FALSE(windows.shownCall().has_value());
}

TEST_F(CallWindowsTest, ANewIncomingCallAfterAnEndedOneOpensAndRingsAgain) {
    windows.start();
    incoming("in-1", "204");
    phone.callStateChanged("in-1", CallState::ended("cancelled"));
    incoming("in-2", "205");
    EXPECT_EQ(opened, (QStringList{"call", "call"}));
    EXPECT_EQ(ringer.rings, 2);
    EXPECT_EQ(notifier.posted.size(), 2);
    EXPECT_TRUE(windows.ringing());
}

TEST_F(CallWindowsTest, TheAnswerActionAnswersAndBringsTheWindowForwardWithItsToken) {
    windows.start();
    auto call = incoming("in-1", "204");
    emit notifier.actionInvoked("answer", "token-1");
    EXPECT_EQ(call->answers, 1);
    EXPECT_EQ(activations, QList<QByteArray>{"token-1"});
}

TEST_F(CallWindowsTest, TheDeclineActionHangsUpTheCall) {
    windows.start();
    auto call = incoming("in-1", "204");
    emit notifier.actionInvoked("decline", {});
    EXPECT_EQ(call->hangups, 1);
    EXPECT_FALSE(phone.activeCall().has_value());
    EXPECT_FALSE(windows.ringing());
    EXPECT_EQ(dismissed, QStringList{"call"});
}

TEST_F(CallWindowsTest, DeclineWithNoCallDoesNothing) {
    windows.start();
    emit notifier.actionInvoked("decline", {});
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_TRUE(activations.isEmpty());
    EXPECT_FALSE(phone.lastError().has_value());
}

TEST_F(CallWindowsTest, TheDefaultClickOnlyBringsTheWindowForward) {
    windows.start();
    auto call = incoming("in-1", "204");
    emit notifier.actionInvoked("default", {});
    EXPECT_EQ(call->answers, 0);
    EXPECT_EQ(call->hangups, 0);
    EXPECT_EQ(activations.size(), 1);
    EXPECT_TRUE(windows.ringing());
}

TEST_F(CallWindowsTest, AnOutgoingCallOpensTheWindowWithNoRingAndNoAttention) {
    windows.start();
    phone.dial("204");
    EXPECT_EQ(opened, QStringList{"call"});
    EXPECT_EQ(attention, 0);
    EXPECT_EQ(ringer.rings, 0);
    EXPECT_TRUE(notifier.posted.isEmpty());
    phone.hangUpActive();
    EXPECT_EQ(dismissed, QStringList{"call"});
}

TEST_F(CallWindowsTest, WithoutWindowOperationsTheRingStillWorks) {
    windows.open = nullptr;
    windows.dismiss = nullptr;
    windows.requestAttention = nullptr;
    windows.start();
    incoming("in-1", "204");
    EXPECT_TRUE(windows.ringing());
    phone.callStateChanged("in-1", CallState::ended("cancelled"));
    EXPECT_FALSE(windows.ringing());
}

TEST_F(CallWindowsTest, TheMiniBarChoiceIsKeptAndMirroredInThePhone) {
    EXPECT_FALSE(windows.miniBar());
    windows.setMiniBar(true);
    EXPECT_EQ(settings.boolean("call.miniBar"), true);
    EXPECT_TRUE(phone.callMinimized());
    CallWindows again(phone, settings, notifier, ringer);
    EXPECT_TRUE(again.miniBar());
}

TEST_F(CallWindowsTest, TheStatisticsChoiceIsKept) {
    windows.setShowStats(true);
    EXPECT_EQ(settings.boolean("call.showStats"), true);
    CallWindows again(phone, settings, notifier, ringer);
    EXPECT_TRUE(again.showStats());
}

TEST_F(CallWindowsTest, NobodyMayStartARecordingUntilTheServerSaysSo) {
    EXPECT_FALSE(windows.canRecord());
    EXPECT_FALSE(windows.callRecorded());
}

TEST_F(CallWindowsTest, TheStatusLineNamesEachStateOfTheCall) {
    using Status = Phone::ActiveCall::Status;
    const QDateTime now = QDateTime::fromSecsSinceEpoch(1800000000, Qt::UTC);
    Phone::ActiveCall call;
    call.status = Status::calling;
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "Calling…");
    call.status = Status::ringing;
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "Ringing…");
    call.status = Status::incoming;
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "Incoming call");
    call.status = Status::connected;
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "");
    call.connectedAt = now.addSecs(-7);
    call.held = true;
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "On hold");
    call.transferring = true;
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "Transferring…");
}

TEST_F(CallWindowsTest, TheTimerCountsMinutesAndTwoDigitSecondsFromTheConnection) {
    const QDateTime now = QDateTime::fromSecsSinceEpoch(1800000000, Qt::UTC);
    Phone::ActiveCall call;
    call.status = Phone::ActiveCall::Status::connected;
    call.connectedAt = now.addSecs(-7);
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "0:07");
    call.connectedAt = now.addSecs(-(12 * 60 + 30));
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "12:30");
    call.connectedAt = now.addSecs(-75 * 60);
    EXPECT_EQ(CallWindows::statusLineOf(call, now), "75:00");
}

TEST_F(CallWindowsTest, TheStatusLineFollowsTheCallInFront) {
    windows.start();
    EXPECT_EQ(windows.statusLine(), "");
    incoming("in-1", "204");
    EXPECT_EQ(windows.statusLine(), "Incoming call");
    phone.answer();
    phone.callStateChanged("in-1", CallState::connected());
    EXPECT_EQ(windows.statusLine(), "0:00");
    clock.advance(std::chrono::seconds(65));
    EXPECT_EQ(windows.statusLine(), "1:05");
}

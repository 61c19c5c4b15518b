#include "telephony/Phone.h"

#include "ManualClock.h"
#include "PhoneFixture.h"
#include "audio/NullBackend.h"
#include "telephony/CallAudio.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSignalSpy>

#include <gtest/gtest.h>

// One call's life in the phone over a fake engine, and what it writes to the
// recents at each moment.
namespace {

using Status = Phone::ActiveCall::Status;
using core::CallState;
using core::CoreError;
using core::RegistrationState;

class PhoneCallTest : public PhoneFixture {
protected:
    int stores() { return settings.data("recents.v1") ? 1 : 0; }
};

} // namespace

// Dialling.

TEST_F(PhoneCallTest, ABlankDialDoesNothingAndLeavesNoEntry) {
    registered();
    phone.dial("  ");
    phone.dial("");
    phone.dial("\t\n");
    EXPECT_TRUE(client().dialled.empty());
    EXPECT_TRUE(phone.recents().entries().isEmpty());
    EXPECT_FALSE(phone.lastError());
}

TEST_F(PhoneCallTest, WhitespaceIsTakenOutOfTheNumberAndNothingElse) {
    registered();
    phone.dial(" +49 30\t1234-567 *#ab ");
    EXPECT_EQ(client().dialled, std::vector<std::string>{"+49301234-567*#ab"});
}

TEST_F(PhoneCallTest, ADialBecomesACallingCallWithItsEntry) {
    registered();
    phone.colleagueName = [](const QString& n) -> std::optional<QString> {
        return n == "204" ? std::optional<QString>("Bo Berg") : std::nullopt;
    };
    QSignalSpy minimized(&phone, &Phone::callMinimizedChanged);
    phone.setCallMinimized(true);
    const QUuid uuid = dialled("204");
    const auto& call = *phone.activeCall();
    EXPECT_EQ(call.remote, "204");
    EXPECT_EQ(call.remoteName, "Bo Berg");
    EXPECT_FALSE(call.incoming);
    EXPECT_EQ(call.status, Status::calling);
    EXPECT_FALSE(call.connectedAt);
    EXPECT_FALSE(phone.callMinimized());
    EXPECT_EQ(phone.activeSipCallId(), "out-1");
    EXPECT_EQ(phone.sipCallId(uuid), "out-1");
    EXPECT_EQ(newest().id, uuid);
    EXPECT_EQ(newest().name, "Bo Berg");
    EXPECT_EQ(newest().inProgress, true);
    EXPECT_FALSE(newest().incoming);
    // Audio comes up for the new call.
    EXPECT_TRUE(phone.startingCall());
    settle([&] { return !phone.startingCall(); });
    EXPECT_FALSE(phone.startingCall());
    EXPECT_FALSE(phone.lastError());
}

TEST_F(PhoneCallTest, ColleaguesNameANumberBeforeTheAddressBook) {
    registered();
    phone.colleagueName = [](const QString&) -> std::optional<QString> { return "Colleague"; };
    phone.contactName = [](const QString&) -> std::optional<QString> { return "Contact"; };
    dialled("204");
    EXPECT_EQ(phone.activeCall()->remoteName, "Colleague");
    phone.hangUpActive();
    phone.colleagueName = [](const QString&) -> std::optional<QString> { return std::nullopt; };
    dialled("204");
    EXPECT_EQ(phone.activeCall()->remoteName, "Contact");
}

TEST_F(PhoneCallTest, ADialWithNoClientFailsWithItsSentenceAndAFreshEntry) {
    phone.dial("204");
    EXPECT_EQ(phone.lastError(), "Not connected to the phone system.");
    EXPECT_FALSE(phone.activeCall());
    ASSERT_EQ(phone.recents().entries().size(), 1u);
    EXPECT_EQ(newest().remote, "204");
    EXPECT_FALSE(newest().inProgress);
    EXPECT_FALSE(newest().answered);
    EXPECT_EQ(newest().failure, "Not connected to the phone system.");
    EXPECT_FALSE(newest().name);
}

TEST_F(PhoneCallTest, ADialTheEngineRefusesLeavesTheSentenceAndAFailedEntry) {
    registered();
    client().refuseDial = CoreError(CoreError::Kind::unreachable, "127.0.0.1:5060");
    phone.dial("204");
    const QString sentence = "Cannot reach 127.0.0.1:5060. Check your connection or VPN.";
    EXPECT_EQ(phone.lastError(), sentence);
    EXPECT_FALSE(phone.activeCall());
    EXPECT_TRUE(phone.calls().isEmpty());
    EXPECT_EQ(newest().failure, sentence);
    EXPECT_FALSE(newest().inProgress);
}

TEST_F(PhoneCallTest, ADialDuringAnUnconnectedCallDoesNothing) {
    registered();
    dialled("204");
    phone.dial("205");
    EXPECT_EQ(client().dialled.size(), 1u);
    EXPECT_EQ(phone.recents().entries().size(), 1u);
    EXPECT_FALSE(phone.lastError());
}

// The engine's call states.

TEST_F(PhoneCallTest, AnOutgoingCallRingsThenConnects) {
    registered();
    const QUuid uuid = dialled();
    phone.callStateChanged("out-1", CallState::ringing());
    EXPECT_EQ(phone.activeCall()->status, Status::ringing);
    clock.advance(std::chrono::seconds(3));
    phone.callStateChanged("out-1", CallState::connected());
    EXPECT_EQ(phone.activeCall()->status, Status::connected);
    EXPECT_EQ(phone.activeCall()->connectedAt, clock.now());
    EXPECT_TRUE(newest().answered);
    EXPECT_EQ(newest().connectedAt, clock.now());
    EXPECT_EQ(newest().id, uuid);
}

TEST_F(PhoneCallTest, ConnectedAfterAHoldKeepsTheFirstConnectedAt) {
    registered();
    dialled();
    phone.callStateChanged("out-1", CallState::connected());
    const QDateTime first = clock.now();
    clock.advance(std::chrono::seconds(10));
    phone.callStateChanged("out-1", CallState::held());
    EXPECT_TRUE(phone.activeCall()->held);
    clock.advance(std::chrono::seconds(5));
    phone.callStateChanged("out-1", CallState::connected());
    EXPECT_FALSE(phone.activeCall()->held);
    EXPECT_EQ(phone.activeCall()->connectedAt, first);
    EXPECT_EQ(newest().connectedAt, first);
    clock.advance(std::chrono::seconds(5));
    phone.hangUpActive();
    EXPECT_EQ(newest().duration, 20.0);
}

TEST_F(PhoneCallTest, AStateForAnUnknownCallIsDropped) {
    registered();
    dialled();
    QSignalSpy spy(&phone, &Phone::activeCallChanged);
    phone.callStateChanged("nobody", CallState::connected());
    phone.callStateChanged("nobody", CallState::ended("remote"));
    EXPECT_EQ(spy.count(), 0);
    EXPECT_EQ(ended, 0);
}

TEST_F(PhoneCallTest, ATransferThatFailsSaysSo) {
    registered();
    dialled();
    phone.callStateChanged("out-1", CallState::connected());
    phone.callStateChanged("out-1", CallState::transferring());
    EXPECT_TRUE(phone.activeCall()->transferring);
    phone.callStateChanged("out-1", CallState::transferFailed("603 Declined"));
    EXPECT_FALSE(phone.activeCall()->transferring);
    EXPECT_EQ(phone.lastError(), "Transfer failed: 603 Declined");
}

// Ends.

TEST_F(PhoneCallTest, AnOutgoingCallThatEndsUnconnectedKeepsTheReasonAsItsFailure) {
    registered();
    dialled();
    phone.callStateChanged("out-1", CallState::ended("Busy Here"));
    EXPECT_FALSE(phone.activeCall());
    EXPECT_TRUE(phone.calls().isEmpty());
    EXPECT_FALSE(phone.activeSipCallId());
    EXPECT_EQ(newest().failure, "Busy Here");
    EXPECT_FALSE(newest().inProgress);
    EXPECT_FALSE(newest().duration);
    EXPECT_FALSE(phone.lastError());
    EXPECT_EQ(ended, 1);
}

TEST_F(PhoneCallTest, TheReasonLocalOnAnOutgoingCallIsNoFailure) {
    registered();
    dialled();
    phone.callStateChanged("out-1", CallState::ended("local"));
    EXPECT_FALSE(newest().failure);
    EXPECT_FALSE(newest().inProgress);
}

TEST_F(PhoneCallTest, AConnectedCallThatEndsHasItsDurationAndNoFailure) {
    registered();
    dialled();
    clock.advance(std::chrono::seconds(2));
    phone.callStateChanged("out-1", CallState::connected());
    clock.advance(std::chrono::milliseconds(7500));
    phone.callStateChanged("out-1", CallState::ended("remote hung up"));
    EXPECT_EQ(newest().duration, 7.5);
    EXPECT_TRUE(newest().answered);
    EXPECT_FALSE(newest().failure);
}

TEST_F(PhoneCallTest, HangUpEndsTheCallAtOnceAndTheEnginesLaterEndIsDropped) {
    registered();
    const QUuid uuid = dialled();
    auto call = client().placed.back();
    phone.hangUp(uuid);
    EXPECT_EQ(call->hangups, 1);
    EXPECT_FALSE(phone.activeCall());
    EXPECT_EQ(ended, 1);
    const QByteArray stored = *settings.data("recents.v1");
    QSignalSpy spy(&phone.recents(), &Recents::entriesChanged);
    phone.callStateChanged("out-1", CallState::ended("local"));
    EXPECT_EQ(spy.count(), 0);
    EXPECT_EQ(*settings.data("recents.v1"), stored);
    EXPECT_EQ(ended, 1);
}

TEST_F(PhoneCallTest, HangUpOfAnUnknownCallDoesNothing) {
    registered();
    dialled();
    phone.hangUp(QUuid::createUuid());
    EXPECT_TRUE(phone.activeCall());
    EXPECT_EQ(client().placed.back()->hangups, 0);
    EXPECT_EQ(ended, 0);
}

// Incoming calls.

TEST_F(PhoneCallTest, AnIncomingCallShowsAsIncomingWithTheFarEndsName) {
    registered();
    phone.colleagueName = [](const QString&) -> std::optional<QString> { return "Colleague"; };
    incoming("in-1", "301", "Cleo Park");
    const auto& call = *phone.activeCall();
    EXPECT_EQ(call.status, Status::incoming);
    EXPECT_TRUE(call.incoming);
    EXPECT_EQ(call.remote, "301");
    EXPECT_EQ(call.remoteName, "Cleo Park");
    EXPECT_EQ(phone.activeSipCallId(), "in-1");
    EXPECT_EQ(newest().remote, "301");
    EXPECT_TRUE(newest().incoming);
    EXPECT_EQ(newest().inProgress, true);
    // No audio for a ringing call.
    EXPECT_FALSE(phone.startingCall());
}

TEST_F(PhoneCallTest, AnIncomingCallWithoutANameIsLookedUp) {
    registered();
    phone.colleagueName = [](const QString&) -> std::optional<QString> { return std::nullopt; };
    phone.contactName = [](const QString& n) -> std::optional<QString> {
        return n == "+4930123456" ? std::optional<QString>("Dana") : std::nullopt;
    };
    incoming("in-1", "+4930123456");
    EXPECT_EQ(phone.activeCall()->remoteName, "Dana");
    EXPECT_EQ(newest().name, "Dana");
}

TEST_F(PhoneCallTest, AnsweringStartsAudioAndConnects) {
    registered();
    auto call = incoming("in-1", "301");
    phone.answer();
    EXPECT_EQ(call->answers, 1);
    EXPECT_TRUE(phone.startingCall());
    settle([&] { return !phone.startingCall(); });
    phone.callStateChanged("in-1", CallState::connected());
    EXPECT_EQ(phone.activeCall()->status, Status::connected);
    EXPECT_TRUE(newest().answered);
}

TEST_F(PhoneCallTest, AnAnswerTheEngineRefusesKeepsTheCallRinging) {
    registered();
    auto call = incoming("in-1", "301");
    call->refuseAnswer = true;
    phone.answer();
    EXPECT_EQ(phone.lastError(), "The call is gone.");
    EXPECT_EQ(phone.activeCall()->status, Status::incoming);
    EXPECT_FALSE(phone.startingCall());
}

TEST_F(PhoneCallTest, AnswerOfAnOutgoingCallDoesNothing) {
    registered();
    dialled();
    phone.answer();
    EXPECT_EQ(client().placed.back()->answers, 0);
}

TEST_F(PhoneCallTest, ACallerWhoHangsUpBeforeTheAnswerIsMissedNotFailed) {
    registered();
    incoming("in-1", "301");
    phone.callStateChanged("in-1", CallState::ended("remote cancelled"));
    EXPECT_FALSE(phone.activeCall());
    EXPECT_FALSE(newest().failure);
    EXPECT_FALSE(newest().answered);
    EXPECT_FALSE(newest().inProgress);
    EXPECT_EQ(ended, 1);
}

TEST_F(PhoneCallTest, AnIncomingCallDuringAnOutgoingCallIsRejectedBusy) {
    registered();
    const QUuid uuid = dialled("204");
    auto second = incoming("in-2", "302", "Eve");
    EXPECT_EQ(second->hangups, 1);
    EXPECT_EQ(phone.activeCall()->uuid, uuid);
    EXPECT_EQ(phone.calls().size(), 1);
    ASSERT_EQ(phone.recents().entries().size(), 2u);
    EXPECT_EQ(newest().remote, "302");
    EXPECT_EQ(newest().name, "Eve");
    EXPECT_TRUE(newest().incoming);
    EXPECT_FALSE(newest().inProgress);
    EXPECT_FALSE(newest().failure);
    EXPECT_NE(newest().id, uuid);
}

TEST_F(PhoneCallTest, AnIncomingCallDuringAConnectedCallIsRejectedBusy) {
    registered();
    auto first = incoming("in-1", "301");
    phone.answer();
    phone.callStateChanged("in-1", CallState::connected());
    auto second = incoming("in-2", "302");
    EXPECT_EQ(second->hangups, 1);
    EXPECT_EQ(first->hangups, 0);
    EXPECT_EQ(phone.activeCall()->remote, "301");
}

// Mute and digits.

TEST_F(PhoneCallTest, MuteIsKeptOnTheCallAndSilencesTheMicrophone) {
    registered();
    const QUuid uuid = dialled();
    settle([&] { return !phone.startingCall(); });
    phone.setMuted(uuid, true);
    EXPECT_TRUE(phone.activeCall()->muted);
    EXPECT_TRUE(phone.audio().muted());
    phone.setMuted(uuid, false);
    EXPECT_FALSE(phone.audio().muted());
}

TEST_F(PhoneCallTest, AHeldCallStaysSilentWhateverTheMute) {
    registered();
    const QUuid uuid = dialled();
    phone.callStateChanged("out-1", CallState::connected());
    phone.callStateChanged("out-1", CallState::held());
    phone.setMuted(uuid, false);
    EXPECT_TRUE(phone.audio().muted());
}

TEST_F(PhoneCallTest, MuteOfAnUnknownCallDoesNothing) {
    registered();
    dialled();
    phone.setMuted(QUuid::createUuid(), true);
    EXPECT_FALSE(phone.activeCall()->muted);
}

TEST_F(PhoneCallTest, DigitsGoOutOneByOneAndAFailedOneDoesNotStopTheRest) {
    registered();
    const QUuid uuid = dialled();
    auto call = client().placed.back();
    call->failingDigit = '5';
    EXPECT_TRUE(phone.sendDigits(uuid, "1*5#9"));
    EXPECT_EQ(call->digits, "1*#9");
    EXPECT_FALSE(phone.sendDigits(QUuid::createUuid(), "1"));
}

TEST_F(PhoneCallTest, AudioThatWillNotStartSaysSoAndTheCallGoesOn) {
    Phone silent(settings, nullptr, clock);
    silent.setClientFactory(
        [this](const core::SipAccount& a, std::shared_ptr<core::ClientDelegate> d) {
            auto client = std::make_shared<FakeClient>(a, std::move(d));
            clients.push_back(client);
            return client;
        });
    silent.setAccount({"127.0.0.1:5060", "", "ada", "pw", ""});
    silent.start();
    silent.registrationChanged(RegistrationState::registered());
    silent.dial("204");
    settle([&] { return !silent.startingCall(); });
    ASSERT_TRUE(silent.lastError());
    EXPECT_TRUE(silent.lastError()->startsWith("Audio: "));
    EXPECT_TRUE(silent.activeCall());
}

#include "telephony/Phone.h"

#include "PhoneFixture.h"
#include "StderrCapture.h"
#include "telephony/CallAudio.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// Hold, a second call, swapping the two and a blind transfer, over a fake
// engine: what the phone asks of the engine, where each record stands and
// whether the microphone is open.
namespace {

using Status = Phone::ActiveCall::Status;
using core::CallState;

class PhoneTwoCallsTest : public PhoneFixture {
protected:
    // A connected outgoing call with its audio up; gives its engine call.
    std::shared_ptr<FakeCoreCall> connected(const QString& number = "204") {
        dialled(number);
        settle([&] { return !phone.startingCall(); });
        auto call = client().placed.back();
        phone.callStateChanged(call->sipCallId(), CallState::connected());
        return call;
    }

    // A first call on hold behind a connected second one.
    std::pair<std::shared_ptr<FakeCoreCall>, std::shared_ptr<FakeCoreCall>> pair() {
        auto first = connected("204");
        phone.dial("205");
        phone.callStateChanged(first->sipCallId(), CallState::held());
        auto second = client().placed.back();
        phone.callStateChanged(second->sipCallId(), CallState::connected());
        return {first, second};
    }
};

} // namespace

// Hold.

TEST_F(PhoneTwoCallsTest, HoldAsksTheEngineAndClosesTheMicrophoneAtOnce) {
    registered();
    auto call = connected();
    ASSERT_FALSE(phone.audio().muted());
    EXPECT_TRUE(phone.setHold(*phone.activeCall(), true));
    EXPECT_EQ(call->holds, std::vector<bool>{true});
    EXPECT_TRUE(phone.audio().muted());
    // The record shows held only once the engine says so.
    EXPECT_FALSE(phone.activeCall()->held);
    phone.callStateChanged(call->sipCallId(), CallState::held());
    EXPECT_TRUE(phone.activeCall()->held);
    EXPECT_TRUE(phone.activeCallMap().value("held").toBool());
}

TEST_F(PhoneTwoCallsTest, ResumeOpensTheMicrophoneToThePersonsOwnMute) {
    registered();
    auto call = connected();
    phone.setHold(*phone.activeCall(), true);
    phone.callStateChanged(call->sipCallId(), CallState::held());
    EXPECT_TRUE(phone.setHold(*phone.activeCall(), false));
    EXPECT_FALSE(phone.audio().muted());

    phone.setMuted(phone.activeCall()->uuid, true);
    phone.setHold(*phone.activeCall(), true);
    phone.setHold(*phone.activeCall(), false);
    EXPECT_TRUE(phone.audio().muted());
    EXPECT_EQ(call->holds, (std::vector<bool>{true, false, true, false}));
}

TEST_F(PhoneTwoCallsTest, AHoldTheEngineRefusesSaysWhyAndKeepsTheMicrophone) {
    registered();
    auto call = connected();
    call->refuseHold = true;
    EXPECT_FALSE(phone.setHold(*phone.activeCall(), true));
    EXPECT_EQ(phone.lastError(), "The call could not be held.");
    EXPECT_FALSE(phone.audio().muted());
    EXPECT_FALSE(phone.activeCall()->held);
}

TEST_F(PhoneTwoCallsTest, HoldOfACallWithoutAnEngineCallGivesFalse) {
    registered();
    connected();
    Phone::ActiveCall stranger;
    stranger.uuid = QUuid::createUuid();
    EXPECT_FALSE(phone.setHold(stranger, true));
    EXPECT_FALSE(phone.lastError());
}

TEST_F(PhoneTwoCallsTest, ToggleHoldHoldsAConnectedCallThenResumesIt) {
    registered();
    auto call = connected();
    phone.toggleHold();
    phone.callStateChanged(call->sipCallId(), CallState::held());
    phone.toggleHold();
    EXPECT_EQ(call->holds, (std::vector<bool>{true, false}));
}

TEST_F(PhoneTwoCallsTest, ToggleHoldOnACallNotYetConnectedDoesNothing) {
    registered();
    dialled();
    auto call = client().placed.back();
    phone.toggleHold();
    phone.callStateChanged(call->sipCallId(), CallState::ringing());
    phone.toggleHold();
    EXPECT_TRUE(call->holds.empty());
    phone.hangUpActive();
    phone.toggleHold();
    EXPECT_FALSE(phone.activeCall());
}

// The second call.

TEST_F(PhoneTwoCallsTest, ASecondCallHoldsTheFirstAndTakesTheForeground) {
    registered();
    auto first = connected("204");
    const QUuid firstId = phone.activeCall()->uuid;
    phone.setMuted(firstId, true);
    phone.dial("205");
    EXPECT_EQ(first->holds, std::vector<bool>{true});
    ASSERT_TRUE(phone.heldCall());
    EXPECT_EQ(phone.heldCall()->uuid, firstId);
    EXPECT_EQ(phone.heldCall()->remote, "204");
    EXPECT_EQ(phone.activeCall()->remote, "205");
    EXPECT_EQ(phone.activeCall()->status, Status::calling);
    EXPECT_EQ(phone.activeSipCallId(), "out-2");
    // The new call is heard and hears this side; the audio is not restarted.
    EXPECT_FALSE(phone.audio().muted());
    EXPECT_FALSE(phone.startingCall());
    EXPECT_EQ(phone.recents().entries().size(), 2u);
    EXPECT_EQ(newest().name, std::nullopt);
    EXPECT_EQ(newest().remote, "205");
}

TEST_F(PhoneTwoCallsTest, AFirstCallTheEngineAlreadyHoldsIsNotHeldAgain) {
    registered();
    auto first = connected("204");
    phone.toggleHold();
    phone.callStateChanged(first->sipCallId(), CallState::held());
    phone.dial("205");
    EXPECT_EQ(first->holds, std::vector<bool>{true});
    EXPECT_EQ(phone.activeCall()->remote, "205");
}

TEST_F(PhoneTwoCallsTest, ADialWhileTheFirstCallIsUnconnectedDoesNothing) {
    registered();
    dialled("204");
    phone.dial("205");
    phone.callStateChanged("out-1", CallState::ringing());
    phone.dial("205");
    EXPECT_EQ(client().dialled.size(), 1u);
    EXPECT_FALSE(phone.heldCall());
    EXPECT_FALSE(phone.lastError());
}

TEST_F(PhoneTwoCallsTest, ADialDuringATransferIsIgnoredWithoutAMessage) {
    registered();
    auto call = connected();
    phone.callStateChanged(call->sipCallId(), CallState::transferring());
    phone.dial("205");
    EXPECT_EQ(client().dialled.size(), 1u);
    EXPECT_TRUE(call->holds.empty());
    EXPECT_FALSE(phone.lastError());
}

TEST_F(PhoneTwoCallsTest, AThirdCallIsIgnoredWithoutAMessage) {
    registered();
    pair();
    phone.dial("206");
    EXPECT_EQ(client().dialled.size(), 2u);
    EXPECT_EQ(phone.recents().entries().size(), 2u);
    EXPECT_FALSE(phone.lastError());
}

TEST_F(PhoneTwoCallsTest, AHoldRefusedForASecondCallStopsTheDial) {
    registered();
    auto first = connected("204");
    first->refuseHold = true;
    phone.dial("205");
    EXPECT_EQ(client().dialled.size(), 1u);
    EXPECT_EQ(phone.lastError(), "The call could not be held.");
    EXPECT_EQ(phone.activeCall()->remote, "204");
    EXPECT_FALSE(phone.heldCall());
}

TEST_F(PhoneTwoCallsTest, ASecondCallTheEngineRefusesLeavesTheFirstInFrontOnHold) {
    registered();
    auto first = connected("204");
    client().refuseDial = core::CoreError(core::CoreError::Kind::unreachable, "pbx.example");
    phone.dial("205");
    EXPECT_EQ(phone.lastError(), "Cannot reach pbx.example. Check your connection or VPN.");
    EXPECT_EQ(phone.activeCall()->remote, "204");
    EXPECT_FALSE(phone.heldCall());
    EXPECT_EQ(first->holds, std::vector<bool>{true});
    phone.callStateChanged(first->sipCallId(), CallState::held());
    // The person resumes it.
    phone.toggleHold();
    EXPECT_EQ(first->holds, (std::vector<bool>{true, false}));
}

TEST_F(PhoneTwoCallsTest, AnIncomingCallBesideTwoCallsIsRefusedBusy) {
    registered();
    auto [first, second] = pair();
    auto third = incoming("in-9", "301");
    EXPECT_EQ(third->hangups, 1);
    EXPECT_EQ(phone.activeCall()->remote, "205");
    EXPECT_EQ(phone.heldCall()->remote, "204");
    EXPECT_EQ(phone.calls().size(), 2);
    EXPECT_TRUE(newest().incoming);
    EXPECT_FALSE(newest().answered);
}

// Swap.

TEST_F(PhoneTwoCallsTest, SwapBringsTheHeldCallForwardAndHoldsTheOther) {
    registered();
    auto [first, second] = pair();
    const QUuid firstId = phone.heldCall()->uuid;
    QSignalSpy sipIds(&phone, &Phone::activeSipCallIdChanged);
    phone.swap();
    EXPECT_EQ(phone.activeCall()->uuid, firstId);
    EXPECT_EQ(phone.heldCall()->remote, "205");
    EXPECT_EQ(second->holds, std::vector<bool>{true});
    EXPECT_EQ(first->holds, (std::vector<bool>{true, false}));
    EXPECT_FALSE(phone.audio().muted());
    EXPECT_EQ(phone.activeSipCallId(), "out-1");
    EXPECT_EQ(sipIds.count(), 1);
    // The engine's word then moves the flags.
    phone.callStateChanged(second->sipCallId(), CallState::held());
    phone.callStateChanged(first->sipCallId(), CallState::connected());
    EXPECT_TRUE(phone.heldCall()->held);
    EXPECT_FALSE(phone.activeCall()->held);
}

TEST_F(PhoneTwoCallsTest, SwapLeavesTheNewForegroundCallsOwnMute) {
    registered();
    auto [first, second] = pair();
    phone.setMuted(phone.heldCall()->uuid, true);
    phone.swap();
    EXPECT_TRUE(phone.activeCall()->muted);
    EXPECT_TRUE(phone.audio().muted());
    phone.swap();
    EXPECT_FALSE(phone.activeCall()->muted);
    EXPECT_FALSE(phone.audio().muted());
}

TEST_F(PhoneTwoCallsTest, SwapDoesNotHoldACallTheEngineAlreadyHolds) {
    registered();
    auto [first, second] = pair();
    phone.toggleHold();
    phone.callStateChanged(second->sipCallId(), CallState::held());
    phone.swap();
    EXPECT_EQ(second->holds, std::vector<bool>{true});
}

TEST_F(PhoneTwoCallsTest, SwapWithOneCallDoesNothingAndLogsNothing) {
    registered();
    auto call = connected();
    QSignalSpy spy(&phone, &Phone::activeCallChanged);
    StderrCapture capture;
    phone.swap();
    const QByteArray printed = capture.take();
    EXPECT_EQ(spy.count(), 0);
    EXPECT_TRUE(call->holds.empty());
    EXPECT_FALSE(printed.contains("swap")) << printed.constData();
}

TEST_F(PhoneTwoCallsTest, SwapIsLogged) {
    registered();
    pair();
    StderrCapture capture;
    phone.swap();
    const QByteArray printed = capture.take();
    EXPECT_TRUE(printed.contains("[call] swap: 204 to the foreground, 205 on hold"))
        << printed.constData();
}

TEST_F(PhoneTwoCallsTest, AResumeRefusedOnSwapLeavesTheNewCallInFrontOnHold) {
    registered();
    auto [first, second] = pair();
    first->refuseHold = true;
    phone.swap();
    EXPECT_EQ(phone.lastError(), "The call could not be held.");
    EXPECT_EQ(phone.activeCall()->remote, "204");
    EXPECT_TRUE(phone.activeCall()->held);
    EXPECT_EQ(phone.heldCall()->remote, "205");
    EXPECT_EQ(second->holds, std::vector<bool>{true});
}

// Ends with two calls.

TEST_F(PhoneTwoCallsTest, WhenTheForegroundCallEndsTheHeldOneComesForwardStillHeldAndSilent) {
    registered();
    auto [first, second] = pair();
    const QUuid firstId = phone.heldCall()->uuid;
    phone.callStateChanged(second->sipCallId(), CallState::ended("remote"));
    ASSERT_TRUE(phone.activeCall());
    EXPECT_EQ(phone.activeCall()->uuid, firstId);
    EXPECT_TRUE(phone.activeCall()->held);
    EXPECT_FALSE(phone.activeCall()->muted);
    EXPECT_TRUE(phone.audio().muted());
    EXPECT_FALSE(phone.heldCall());
    EXPECT_EQ(phone.activeSipCallId(), "out-1");
    // Resuming it opens the microphone again.
    phone.toggleHold();
    EXPECT_EQ(first->holds, (std::vector<bool>{true, false}));
    EXPECT_FALSE(phone.audio().muted());
}

TEST_F(PhoneTwoCallsTest, WhenTheHeldCallEndsOnlyItsSlotEmpties) {
    registered();
    auto [first, second] = pair();
    phone.setMuted(phone.activeCall()->uuid, false);
    const auto front = phone.activeCall();
    QSignalSpy activeChanges(&phone, &Phone::activeCallChanged);
    phone.hangUp(phone.heldCall()->uuid);
    EXPECT_EQ(first->hangups, 1);
    EXPECT_FALSE(phone.heldCall());
    EXPECT_EQ(phone.activeCall(), front);
    EXPECT_EQ(activeChanges.count(), 0);
    EXPECT_FALSE(phone.audio().muted());
    EXPECT_EQ(ended, 1);
}

// Transfer.

TEST_F(PhoneTwoCallsTest, ATransferGoesToTheEngineAndTheCallEndsWhenItIsDone) {
    registered();
    auto call = connected();
    phone.transfer(" 206 ");
    EXPECT_EQ(call->transfers, std::vector<std::string>{"206"});
    phone.callStateChanged(call->sipCallId(), CallState::transferring());
    EXPECT_TRUE(phone.activeCall()->transferring);
    EXPECT_TRUE(phone.activeCallMap().value("transferring").toBool());
    phone.callStateChanged(call->sipCallId(), CallState::ended("Transferred"));
    EXPECT_FALSE(phone.activeCall());
    EXPECT_EQ(ended, 1);
    EXPECT_FALSE(newest().failure);
}

TEST_F(PhoneTwoCallsTest, AFailedTransferBringsTheCallBack) {
    registered();
    auto call = connected();
    phone.transfer("206");
    phone.callStateChanged(call->sipCallId(), CallState::transferring());
    phone.callStateChanged(call->sipCallId(), CallState::transferFailed("486 Busy Here"));
    ASSERT_TRUE(phone.activeCall());
    EXPECT_FALSE(phone.activeCall()->transferring);
    EXPECT_EQ(phone.lastError(), "Transfer failed: 486 Busy Here");
    // It may be dialled beside again.
    phone.dial("207");
    EXPECT_EQ(client().dialled.size(), 2u);
}

TEST_F(PhoneTwoCallsTest, ATransferTheEngineRefusesSaysWhy) {
    registered();
    auto call = connected();
    call->refuseTransfer = true;
    phone.transfer("206");
    EXPECT_EQ(phone.lastError(), "A transfer of this call is under way.");
    EXPECT_TRUE(phone.activeCall());
}

TEST_F(PhoneTwoCallsTest, ATransferWithoutACallDoesNothing) {
    registered();
    phone.transfer("206");
    EXPECT_FALSE(phone.lastError());
    auto call = connected();
    phone.hangUpActive();
    phone.transfer("206");
    EXPECT_TRUE(call->transfers.empty());
}

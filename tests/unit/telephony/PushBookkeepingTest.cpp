#include "PhoneFixture.h"

#include "telephony/PushBookkeeping.h"

// The push bookkeeping stays empty on the desktop: a phone's calls go as if it
// were not there. Its own rules are checked with state put in by hand, as a
// push would.
namespace {

class PushOnThePhone : public PhoneFixture {};

} // namespace

TEST_F(PushOnThePhone, WithEverythingEmptyAnIncomingCallIsOrdinary) {
    registered();
    auto call = incoming("sip-1", "204");
    ASSERT_TRUE(phone.activeCall());
    EXPECT_EQ(phone.activeCall()->status, Phone::ActiveCall::Status::incoming);
    EXPECT_EQ(call->hangups, 0);
    EXPECT_EQ(phone.recents().entries().size(), 1);
    EXPECT_TRUE(phone.push().pendingPush.isEmpty());
    EXPECT_FALSE(phone.push().lastPushMismatch);
}

TEST_F(PushOnThePhone, WithEverythingEmptyAHangUpEndsTheCallAsAlways) {
    registered();
    incoming("sip-1", "204");
    phone.hangUp(phone.activeCall()->uuid);
    EXPECT_FALSE(phone.activeCall());
    EXPECT_TRUE(phone.push().declinedPush.isEmpty());
}

TEST(PushBookkeeping, AStoredTokenIsLoadedAndHasNoEffect) {
    MemorySettingsStore settings;
    settings.setText("push.voip.token", "abc123");
    settings.setText("push.last", "{\"callId\":\"x\"}");
    const PushBookkeeping push(settings);
    EXPECT_EQ(push.pushToken, "abc123");
    EXPECT_EQ(push.lastPushPayload, "{\"callId\":\"x\"}");
    EXPECT_TRUE(push.pendingPush.isEmpty());
    EXPECT_EQ(push.answeredElsewhereReason, "answered elsewhere");
}

TEST_F(PushOnThePhone, AStoredTokenLeavesTheCallsAlone) {
    MemorySettingsStore stored;
    stored.setText("push.voip.token", "abc123");
    Phone other{stored, std::make_shared<NullBackend>(), clock};
    EXPECT_EQ(other.push().pushToken, "abc123");
    registered();
    auto call = incoming("sip-2", "205");
    EXPECT_TRUE(phone.activeCall());
    EXPECT_EQ(call->hangups, 0);
}

TEST(PushBookkeeping, AnUnknownInviteIsOrdinary) {
    MemorySettingsStore settings;
    PushBookkeeping push(settings);
    EXPECT_EQ(push.claim("sip-1", false).kind, PushBookkeeping::Claim::Kind::ordinary);
    EXPECT_EQ(push.claim("sip-1", true).kind, PushBookkeeping::Claim::Kind::ordinary);
}

TEST(PushBookkeeping, AnAnnouncedCallIsKnownByItsCallId) {
    MemorySettingsStore settings;
    PushBookkeeping push(settings);
    const QUuid uuid = QUuid::createUuid();
    push.pendingPush.insert("sip-1", uuid);
    const auto claim = push.claim("sip-1", false);
    EXPECT_EQ(claim.kind, PushBookkeeping::Claim::Kind::known);
    EXPECT_EQ(claim.uuid, uuid);
    EXPECT_TRUE(push.pendingPush.isEmpty());
    EXPECT_FALSE(push.lastPushMismatch);
}

TEST(PushBookkeeping, TheOnlyAnnouncedCallIsTakenUnderAnotherNameAndTheMismatchNoted) {
    MemorySettingsStore settings;
    PushBookkeeping push(settings);
    const QUuid uuid = QUuid::createUuid();
    push.pendingPush.insert("push-id", uuid);
    // Not without an active call that lacks its engine call.
    EXPECT_EQ(push.claim("sip-9", false).kind, PushBookkeeping::Claim::Kind::ordinary);
    const auto claim = push.claim("sip-9", true);
    EXPECT_EQ(claim.kind, PushBookkeeping::Claim::Kind::known);
    EXPECT_EQ(claim.uuid, uuid);
    EXPECT_EQ(push.lastPushMismatch, QString("push callId push-id ≠ INVITE sip-9"));
}

TEST(PushBookkeeping, HangingUpAnAnnouncedCallDeclinesItsInviteAndFailsItsAnswer) {
    MemorySettingsStore settings;
    PushBookkeeping push(settings);
    const QUuid uuid = QUuid::createUuid();
    push.pendingPush.insert("sip-1", uuid);
    std::optional<bool> answered;
    EXPECT_TRUE(push.deferAnswer(uuid, [&](bool ok) { answered = ok; }));
    EXPECT_FALSE(answered);
    push.hangUp(uuid);
    EXPECT_EQ(answered, false);
    EXPECT_TRUE(push.declinedPush.contains("sip-1"));
    EXPECT_EQ(push.claim("sip-1", false).kind, PushBookkeeping::Claim::Kind::decline);
    // Once only.
    EXPECT_EQ(push.claim("sip-1", false).kind, PushBookkeeping::Claim::Kind::ordinary);
}

TEST(PushBookkeeping, AnAnswerForACallNobodyAnnouncedFailsAtOnce) {
    MemorySettingsStore settings;
    PushBookkeeping push(settings);
    std::optional<bool> answered;
    EXPECT_FALSE(push.deferAnswer(QUuid::createUuid(), [&](bool ok) { answered = ok; }));
    EXPECT_EQ(answered, false);
    EXPECT_TRUE(push.pendingAnswer.isEmpty());
}

TEST_F(PushOnThePhone, ADeclinedAnnouncedCallIsRefusedWhenItsInviteArrives) {
    registered();
    phone.push().declinedPush.insert("sip-7");
    auto call = incoming("sip-7", "204");
    EXPECT_EQ(call->hangups, 1);
    EXPECT_FALSE(phone.activeCall());
    EXPECT_TRUE(phone.recents().entries().empty());
}

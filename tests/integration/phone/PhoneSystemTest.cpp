#include "PhoneLab.h"

#include "RunTask.h"
#include "telephony/CallAudio.h"

#include <QTest>

#include <gtest/gtest.h>

// Signed in, provisioned and registered against a real phone system: calls
// out and in, what the recents keep, and signing out.
TEST(PhoneSystem, ASignedInAppRegistersDialsAnEchoAndHearsItsOwnToneBack) {
    PhoneLab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    lab.signIn();
    lab.waitRegistered();
    // The registrar knows us: a party's call reaches this phone.
    lab.phone->dial("bob");
    ASSERT_TRUE(lab.phone->activeCall());
    EXPECT_EQ(lab.phone->activeCall()->status, Status::calling);
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    ASSERT_TRUE(waitFor([&] { return !lab.phone->startingCall(); }));
    EXPECT_FALSE(lab.phone->lastError()) << lab.phone->lastErrorText().toStdString();
    const QUuid uuid = lab.phone->activeCall()->uuid;

    // The microphone's tone goes to the party and comes back out of the speaker.
    QTest::qWait(1000);
    const auto heard = lab.recordSpeaker(2.0);
    ASSERT_GE(heard.size(), 8000u);
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0);

    lab.phone->hangUp(uuid);
    EXPECT_FALSE(lab.phone->activeCall());
    EXPECT_TRUE(partySaw(*bob, {"CALL_CLOSED"}));
    const auto& entry = lab.phone->recents().entries().front();
    EXPECT_EQ(entry.id, uuid);
    EXPECT_EQ(entry.remote, "bob");
    EXPECT_TRUE(entry.answered);
    ASSERT_TRUE(entry.duration);
    EXPECT_GT(*entry.duration, 2.0);
    EXPECT_FALSE(entry.inProgress);
    EXPECT_FALSE(entry.failure);
    // And the stored bytes hold it too.
    const auto stored = Recents::decode(*lab.settings.data("recents.v1"));
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->front(), entry);
}

TEST(PhoneSystem, OverTlsWithTheTestAuthorityFromTheSettings) {
    PhoneLab lab({.tls = true});
    auto erin = lab.party("erin", Baresip::Role::srtpEcho);
    lab.signIn();
    lab.waitRegistered();
    EXPECT_EQ(lab.phone->account().server,
              QStringLiteral("127.0.0.1:%1").arg(lab.kamailio.tlsPort()));
    lab.phone->dial("erin");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    lab.phone->hangUpActive();
    EXPECT_TRUE(partySaw(*erin, {"CALL_CLOSED"}));
}

TEST(PhoneSystem, AnIncomingCallIsNamedFromTheDirectoryAnsweredAndEndedByTheCaller) {
    PhoneLab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    // A colleague whose extension is the caller's SIP user.
    lab.server.control("PATCH", "users/u-002", {{"extension", "carol"}});
    lab.signIn();
    lab.waitRegistered();
    const auto reply = runTask(lab.session->api().request("api/directory"));
    lab.session->setDirectory(decode<Directory>(reply.body));
    const auto colleague = lab.session->colleagueName("carol");
    ASSERT_TRUE(colleague);

    int ended = 0;
    lab.phone->onCallEnded = [&] { ++ended; };
    carol->command("dial", "sip:alice@127.0.0.1");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::incoming; }));
    EXPECT_EQ(lab.phone->activeCall()->remote, "carol");
    EXPECT_EQ(lab.phone->activeCall()->remoteName, colleague);
    EXPECT_EQ(lab.phone->recents().entries().front().name, colleague);

    lab.phone->answer();
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    carol->command("hangup");
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    EXPECT_EQ(ended, 1);
    const auto& entry = lab.phone->recents().entries().front();
    EXPECT_TRUE(entry.incoming);
    EXPECT_TRUE(entry.answered);
    EXPECT_TRUE(entry.duration);
    EXPECT_FALSE(entry.failure);
}

TEST(PhoneSystem, ASecondCallerWhileInACallIsTurnedAwayBusyAndListedAsMissed) {
    PhoneLab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.signIn();
    lab.waitRegistered();
    lab.phone->dial("bob");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    const QUuid first = lab.phone->activeCall()->uuid;
    carol->command("dial", "sip:alice@127.0.0.1");
    EXPECT_TRUE(partySaw(*carol, {"CALL_CLOSED", "486"}));
    ASSERT_TRUE(waitFor([&] { return lab.phone->recents().entries().size() == 2; }));
    const auto& missed = lab.phone->recents().entries().front();
    EXPECT_EQ(missed.remote, "carol");
    EXPECT_TRUE(missed.incoming);
    EXPECT_FALSE(missed.answered);
    EXPECT_FALSE(missed.inProgress);
    EXPECT_EQ(lab.phone->activeCall()->uuid, first);
    EXPECT_EQ(status(*lab.phone), Status::connected);
    lab.phone->hangUpActive();
}

TEST(PhoneSystem, ABusyPartyLeavesTheReasonInTheRecents) {
    PhoneLab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.signIn();
    lab.waitRegistered();
    lab.phone->dial("carol");
    EXPECT_TRUE(partySaw(*carol, {"CALL_INCOMING"}));
    carol->command("hangup");
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    const auto& entry = lab.phone->recents().entries().front();
    EXPECT_EQ(entry.remote, "carol");
    ASSERT_TRUE(entry.failure);
    EXPECT_FALSE(entry.failure->isEmpty());
    EXPECT_FALSE(entry.answered);
    // An outgoing call that the far end refused is no error of this app.
    EXPECT_FALSE(lab.phone->lastError());
}

TEST(PhoneSystem, ANumberNobodyHasLeavesTheReasonInTheRecents) {
    PhoneLab lab;
    lab.signIn();
    lab.waitRegistered();
    lab.phone->dial("nobody");
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    const auto& entry = lab.phone->recents().entries().front();
    EXPECT_EQ(entry.remote, "nobody");
    ASSERT_TRUE(entry.failure);
    EXPECT_EQ(*entry.failure, "Not found") << entry.failure->toStdString();
}

TEST(PhoneSystem, ADialWhenThePhoneSystemIsGoneSaysSoAndIsRecorded) {
    PhoneLab lab;
    lab.signIn();
    lab.waitRegistered();
    lab.phone->stop();
    lab.phone->dial("bob");
    EXPECT_EQ(lab.phone->lastError(), "Not connected to the phone system.");
    EXPECT_EQ(lab.phone->recents().entries().front().failure, "Not connected to the phone system.");
}

TEST(PhoneSystem, ADialBeforeTheRegistrationIsPlacedOnceRegistered) {
    PhoneLab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    // Before the sign-in the phone has no account yet: the number waits.
    lab.phone->dialOrQueue("bob");
    EXPECT_EQ(lab.phone->pendingDial(), "bob");
    EXPECT_FALSE(lab.phone->activeCall());
    EXPECT_TRUE(lab.phone->recents().entries().isEmpty());
    lab.signIn();
    lab.waitRegistered();
    EXPECT_FALSE(lab.phone->pendingDial());
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    EXPECT_EQ(lab.phone->activeCall()->remote, "bob");
    lab.phone->hangUpActive();
}

TEST(PhoneSystem, SignOutUnregistersAndDeletesTheDevice) {
    PhoneLab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.signIn();
    lab.waitRegistered();
    runTask(lab.session->signOut(true));
    EXPECT_EQ(lab.phone->registration(), Phone::Registration::off());
    EXPECT_EQ(lab.phone->account(), Account::builtIn());
    bool deleted = false;
    for (const auto& request : lab.server.control("GET", "requests")) {
        deleted =
            deleted || (request["method"] == "DELETE" && request["path"] == "api/devices/dev-lab");
    }
    EXPECT_TRUE(deleted);
    // The registrar no longer knows us: a call to our user finds no one.
    carol->command("dial", "sip:alice@127.0.0.1");
    EXPECT_TRUE(partySaw(*carol, {"CALL_CLOSED", "404"}));
}

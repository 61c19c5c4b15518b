#include "telephony/Phone.h"

#include "ManualClock.h"
#include "PhoneFixture.h"
#include "StderrCapture.h"
#include "audio/NullBackend.h"
#include "telephony/CallAudio.h"
#include "telephony/CoreEvents.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSignalSpy>

#include <gtest/gtest.h>

// The phone's rules over a fake engine: registration, queued dials, the life
// of one call and what it leaves in the recents. The real engine against
// kamailio and baresip is in the integration suite.
namespace {

using Status = Phone::ActiveCall::Status;
using core::CallState;
using core::CoreError;
using core::RegistrationState;

using PhoneTest = PhoneFixture;

} // namespace

// Registration.

TEST_F(PhoneTest, StartsOffWithTheBuiltInAccount) {
    Phone fresh(settings, std::make_shared<NullBackend>(), clock);
    EXPECT_EQ(fresh.registration(), Phone::Registration::off());
    EXPECT_EQ(fresh.account(), Account::builtIn());
    EXPECT_FALSE(fresh.client());
}

TEST_F(PhoneTest, StartWithAnIncompleteAccountDoesNothing) {
    phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "", ""});
    phone.registrationChanged(RegistrationState::failed("wrong password"));
    phone.start();
    EXPECT_TRUE(clients.empty());
    EXPECT_EQ(phone.registration(), Phone::Registration::failed("wrong password"));
}

TEST_F(PhoneTest, StartHandsTheAccountToTheEngineAndStartsIt) {
    phone.setCaFile(QStringLiteral("/tmp/ca.pem"));
    phone.start();
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(client().account.server, "127.0.0.1:5060");
    EXPECT_EQ(client().account.realm, "rz.local");
    EXPECT_EQ(client().account.username, "ada");
    EXPECT_EQ(client().account.password, "secret");
    EXPECT_FALSE(client().account.optionFlag);
    ASSERT_TRUE(client().account.optionPair);
    EXPECT_EQ(*client().account.optionPair,
              (std::pair<std::string, std::string>("tls-ca-file", "/tmp/ca.pem")));
    EXPECT_EQ(client().starts, 1);
    EXPECT_TRUE(phone.client());
    EXPECT_TRUE(phone.events());
    // The registering state comes from the engine, not from start().
    EXPECT_EQ(phone.registration(), Phone::Registration::off());
}

TEST_F(PhoneTest, WithoutACaFileNoOptionIsPassed) {
    phone.start();
    EXPECT_FALSE(client().account.optionPair);
}

TEST_F(PhoneTest, AnAccountOfATlsEdgeAsksForTlsWhateverThePort) {
    phone.setAccount({"127.0.0.1:5062", "rz.local", "ada", "secret", "tls"});
    phone.start();
    EXPECT_TRUE(client().account.optionFlag);
    phone.setAccount({"127.0.0.1:5062", "rz.local", "ada", "secret", "tcp"});
    phone.start();
    EXPECT_FALSE(client().account.optionFlag);
}

TEST_F(PhoneTest, AnEngineThatRefusesTheAccountFailsWithItsSentence) {
    refuseInit = CoreError(CoreError::Kind::invalidSettings, "no server");
    phone.start();
    EXPECT_EQ(phone.registration(), Phone::Registration::failed("Invalid settings: no server"));
    EXPECT_FALSE(phone.client());
    EXPECT_FALSE(phone.events());
}

TEST_F(PhoneTest, AFailedStartKeepsTheClientThatWasThere) {
    phone.start();
    const auto first = phone.client();
    refuseStart = CoreError(CoreError::Kind::unreachable, "127.0.0.1:5060");
    phone.start();
    EXPECT_EQ(phone.client(), first);
    EXPECT_EQ(
        phone.registration(),
        Phone::Registration::failed("Cannot reach 127.0.0.1:5060. Check your connection or VPN."));
}

TEST_F(PhoneTest, DescribeGivesTheSentenceOfEachEngineError) {
    auto of = [](CoreError e) { return Phone::describe(std::make_exception_ptr(e)); };
    EXPECT_EQ(of({CoreError::Kind::invalidSettings, "bad port"}), "Invalid settings: bad port");
    EXPECT_EQ(of({CoreError::Kind::message, "The line is busy.", "486"}), "The line is busy.");
    EXPECT_EQ(of({CoreError::Kind::unreachable, "sip.velnor.net:5060"}),
              "Cannot reach sip.velnor.net:5060. Check your connection or VPN.");
    EXPECT_EQ(of({CoreError::Kind::noAnswer, "204"}), "204 did not answer.");
    EXPECT_EQ(Phone::describe(std::make_exception_ptr(std::runtime_error("disk full"))),
              "disk full");
}

TEST_F(PhoneTest, TheEnginesRegistrationStatesShowAsTheirOwn) {
    phone.start();
    phone.registrationChanged(RegistrationState::registering());
    EXPECT_EQ(phone.registrationText(), "registering");
    phone.registrationChanged(RegistrationState::registered());
    EXPECT_EQ(phone.registrationText(), "registered");
    phone.registrationChanged(RegistrationState::failed("403 Forbidden"));
    EXPECT_EQ(phone.registrationText(), "failed: 403 Forbidden");
    phone.registrationChanged(RegistrationState::unregistered());
    EXPECT_EQ(phone.registrationText(), "off");
}

TEST_F(PhoneTest, RegisteringWhileRegisteredChangesNothing) {
    registered();
    QSignalSpy spy(&phone, &Phone::registrationUpdated);
    phone.registrationChanged(RegistrationState::registering());
    EXPECT_EQ(phone.registration(), Phone::Registration::registered());
    EXPECT_EQ(spy.count(), 0);
}

TEST_F(PhoneTest, ARegisteringEventLeavesAQueuedNumberQueued) {
    phone.start();
    phone.dialOrQueue("204");
    phone.registrationChanged(RegistrationState::registering());
    EXPECT_EQ(phone.pendingDial(), "204");
    EXPECT_TRUE(client().dialled.empty());
}

TEST_F(PhoneTest, ADialQueuedWhileFailedReRegistersAndIsPlacedOnTheNextRegistered) {
    phone.start();
    phone.registrationChanged(RegistrationState::failed("timeout"));
    phone.dialOrQueue("204");
    EXPECT_EQ(phone.pendingDial(), "204");
    EXPECT_EQ(client().reRegisters, 1);
    EXPECT_TRUE(client().dialled.empty());
    phone.registrationChanged(RegistrationState::registering());
    phone.registrationChanged(RegistrationState::failed("timeout"));
    EXPECT_EQ(phone.pendingDial(), "204");
    phone.registrationChanged(RegistrationState::registered());
    EXPECT_FALSE(phone.pendingDial());
    EXPECT_EQ(client().dialled, std::vector<std::string>{"204"});
    EXPECT_EQ(phone.activeCall()->status, Status::calling);
}

TEST_F(PhoneTest, TwoDialsQueuedBeforeRegistrationKeepTheSecond) {
    phone.dialOrQueue("204");
    phone.dialOrQueue("205");
    EXPECT_EQ(phone.pendingDial(), "205");
    phone.registrationChanged(RegistrationState::registered());
    EXPECT_EQ(client().dialled, std::vector<std::string>{"205"});
}

TEST_F(PhoneTest, AQueuedDialWithNoClientStartsThePhone) {
    EXPECT_TRUE(clients.empty());
    phone.dialOrQueue("204");
    EXPECT_EQ(clients.size(), 1u);
    EXPECT_EQ(client().starts, 1);
    EXPECT_EQ(client().reRegisters, 0);
}

TEST_F(PhoneTest, StartTwiceMakesTwoClientsAndReleasesTheFirstWithoutStop) {
    phone.start();
    std::weak_ptr<FakeClient> first = clients.front();
    phone.start();
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_EQ(phone.client(), clients.back());
    EXPECT_EQ(clients.front()->stops, 0);
    clients.erase(clients.begin());
    EXPECT_TRUE(first.expired());
}

TEST_F(PhoneTest, StopWithNoClientTurnsRegistrationOff) {
    phone.registrationChanged(RegistrationState::failed("timeout"));
    phone.stop();
    EXPECT_EQ(phone.registration(), Phone::Registration::off());
    EXPECT_TRUE(clients.empty());
}

TEST_F(PhoneTest, StopStopsTheClientAndDropsIt) {
    registered();
    phone.stop();
    EXPECT_EQ(client().stops, 1);
    EXPECT_FALSE(phone.client());
    EXPECT_FALSE(phone.events());
    EXPECT_EQ(phone.registration(), Phone::Registration::off());
}

TEST_F(PhoneTest, WakeReRegistersAClientOrStartsOne) {
    phone.wake();
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(client().starts, 1);
    phone.wake();
    EXPECT_EQ(clients.size(), 1u);
    EXPECT_EQ(client().reRegisters, 1);
}

TEST_F(PhoneTest, ANetworkChangeIsPassedToTheRunningClientAndStartsNone) {
    phone.networkChanged();
    EXPECT_TRUE(clients.empty());
    registered();
    phone.networkChanged();
    EXPECT_EQ(client().networkChanges, 1);
    EXPECT_EQ(client().reRegisters, 0);
}

TEST_F(PhoneTest, AFailedRegistrationLeavesTheCallsUp) {
    registered();
    phone.dial("200");
    ASSERT_EQ(phone.calls().size(), 1);
    phone.registrationChanged(RegistrationState::failed("The server x cannot be reached."));
    EXPECT_EQ(phone.calls().size(), 1);
    for (const auto& call : client().placed) {
        EXPECT_EQ(call->hangups, 0);
    }
}

TEST_F(PhoneTest, EqualWritesDoNotNotify) {
    QSignalSpy registration(&phone, &Phone::registrationUpdated);
    phone.registrationChanged(RegistrationState::unregistered());
    EXPECT_EQ(registration.count(), 0);
    QSignalSpy minimized(&phone, &Phone::callMinimizedChanged);
    phone.setCallMinimized(false);
    EXPECT_EQ(minimized.count(), 0);
    phone.setCallMinimized(true);
    EXPECT_EQ(minimized.count(), 1);
}

TEST_F(PhoneTest, ARepeatedErrorIsLoggedAgainButNotifiesOnce) {
    QSignalSpy spy(&phone, &Phone::lastErrorChanged);
    StderrCapture capture;
    phone.setLastError(QStringLiteral("Audio: no device"));
    phone.setLastError(QStringLiteral("Audio: no device"));
    const QByteArray log = capture.take();
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(log.count("[phone] Audio: no device"), 2);
}

// The engine's events through CoreEvents.

TEST_F(PhoneTest, EngineEventsReachThePhoneOnTheMainThreadInOrder) {
    phone.start();
    auto delegate = client().delegate;
    std::thread engine([delegate] {
        delegate->registrationChanged(RegistrationState::registering());
        delegate->registrationChanged(RegistrationState::registered());
        delegate->incomingCall(std::make_shared<FakeCoreCall>("in-1", "301"));
        delegate->callStateChanged("in-1", CallState::ended("remote"));
    });
    engine.join();
    // Nothing is handled on the engine's thread.
    EXPECT_EQ(phone.registration(), Phone::Registration::off());
    settle([&] { return phone.recents().entries().size() == 1 && !phone.activeCall(); });
    EXPECT_EQ(phone.registration(), Phone::Registration::registered());
    ASSERT_EQ(phone.recents().entries().size(), 1u);
    EXPECT_EQ(newest().remote, "301");
    EXPECT_FALSE(newest().inProgress);
}

TEST_F(PhoneTest, AnEventThatArrivesAfterThePhoneIsGoneIsDropped) {
    auto other = std::make_unique<Phone>(settings, std::make_shared<NullBackend>(), clock);
    std::shared_ptr<core::ClientDelegate> delegate;
    other->setClientFactory(
        [&](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
            delegate = d;
            return std::make_shared<FakeClient>(account, d);
        });
    other->setAccount({"127.0.0.1:5060", "", "bo", "pw", ""});
    other->start();
    ASSERT_TRUE(delegate);
    delegate->registrationChanged(RegistrationState::registered());
    other.reset();
    bool ran = false;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [&] { ran = true; }, Qt::QueuedConnection);
    settle([&] { return ran; });
    EXPECT_TRUE(ran); // the posted event ran before this and found no phone
}

TEST_F(PhoneTest, AnEventOfAStoppedClientIsDropped) {
    phone.start();
    auto delegate = client().delegate;
    phone.stop();
    clients.clear(); // the engine lets go of its delegate once stopped
    delegate->registrationChanged(RegistrationState::registered());
    delegate.reset();
    bool ran = false;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [&] { ran = true; }, Qt::QueuedConnection);
    settle([&] { return ran; });
    EXPECT_EQ(phone.registration(), Phone::Registration::off());
}

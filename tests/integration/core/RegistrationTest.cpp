#include "SipLab.h"

#include "Ports.h"
#include "core/Loop.h"

#include <gtest/gtest.h>

#include <thread>

using core::RegistrationState;
using Kind = core::RegistrationState::Kind;

namespace {

struct Lab {
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio{dir.path(), certs, {}};
};

} // namespace

TEST(Registration, RegistersOverTcpWithDigestAuth) {
    Lab lab;
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(lab.kamailio.tcpServer(), "alice", "alice-secret"), events);
    client->start();
    EXPECT_EQ(events->waitRegistered().kind, Kind::registered);
    const auto states = events->registrations();
    ASSERT_GE(states.size(), 2u);
    EXPECT_EQ(states.front().kind, Kind::registering);
    client->stop();
}

TEST(Registration, AWrongPasswordFailsWithAReasonForAPerson) {
    Lab lab;
    auto events = std::make_shared<Events>();
    auto client =
        core::SipClient::init(accountFor(lab.kamailio.tcpServer(), "alice", "not-it"), events);
    client->start();
    const auto state = events->waitRegistered();
    EXPECT_EQ(state, RegistrationState::failed("Wrong user name or password."));
    client->stop();
}

TEST(Registration, ARegistrarThatIsDownIsReportedAsUnreachable) {
    RefusingPort down;
    const std::string server = "127.0.0.1:" + std::to_string(down.port());
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(accountFor(server, "alice", "alice-secret"), events);
    client->start();
    const auto state = events->waitRegistered();
    EXPECT_EQ(state, RegistrationState::failed("The server " + server + " cannot be reached."));
    // A call cannot be placed through a server that is not there.
    try {
        client->placeCall("bob");
        FAIL() << "placeCall did not throw";
    } catch (const core::CoreError& error) {
        EXPECT_EQ(error.kind(), core::CoreError::Kind::unreachable);
        EXPECT_EQ(error.text(), server);
    }
    client->stop();
}

TEST(Registration, ReRegisterRegistersAgain) {
    Lab lab;
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(lab.kamailio.tcpServer(), "alice", "alice-secret"), events);
    client->start();
    ASSERT_EQ(events->waitRegistered().kind, Kind::registered);
    const size_t before = events->registrations().size();
    client->reRegister();
    events->waitRegistration(
        [&, n = size_t(0)](const RegistrationState&) mutable { return ++n > before; });
    // registering, then registered once more.
    events->waitRegistration([&, n = size_t(0)](const RegistrationState& state) mutable {
        return ++n > before + 1 && state.kind == Kind::registered;
    });
    const auto states = events->registrations();
    EXPECT_EQ(states[before].kind, Kind::registering);
    EXPECT_EQ(states.back().kind, Kind::registered);
    client->stop();
}

TEST(Registration, StopUnregistersAndNoCallbackArrivesAfterIt) {
    Lab lab;
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(lab.kamailio.tcpServer(), "alice", "alice-secret"), events);
    client->start();
    ASSERT_EQ(events->waitRegistered().kind, Kind::registered);
    client->stop();
    const int after = events->total();
    // The binding is gone: a call to alice finds nobody.
    auto otherEvents = std::make_shared<Events>();
    auto other = core::SipClient::init(accountFor(lab.kamailio.tcpServer(), "erin", "erin-secret"),
                                       otherEvents);
    other->start();
    ASSERT_EQ(otherEvents->waitRegistered().kind, Kind::registered);
    auto call = other->placeCall("alice");
    EXPECT_EQ(otherEvents->waitCall(call->sipCallId(), core::CallState::Kind::ended),
              core::CallState::ended("Not found"));
    other->stop();
    client.reset();
    EXPECT_EQ(events->total(), after);
}

TEST(Registration, ANewClientCanStartRightAfterTheOldOneStopped) {
    Lab lab;
    for (int round = 0; round < 3; ++round) {
        auto events = std::make_shared<Events>();
        auto client = core::SipClient::init(
            accountFor(lab.kamailio.tcpServer(), "alice", "alice-secret"), events);
        client->start();
        EXPECT_EQ(events->waitRegistered().kind, Kind::registered) << "round " << round;
        client->stop();
    }
}

TEST(Registration, AnUnresolvableServerNameBlocksNeitherInitNorStartAndFailsTheRegistration) {
    const auto account = accountFor("no-such-host.invalid:5060", "alice", "alice-secret");
    core::Loop::instance(); // the engine's thread is up before the clock starts
    // Asking the name servers takes tens of milliseconds here, every time; a
    // caller that waited for them could never come in under the bound. The
    // fastest of five tries is taken, so that a busy machine's scheduling
    // alone does not decide.
    std::chrono::steady_clock::duration fastestInit = 1h, fastestStart = 1h;
    for (int attempt = 0; attempt < 5; ++attempt) {
        auto events = std::make_shared<Events>();
        auto before = std::chrono::steady_clock::now();
        auto client = core::SipClient::init(account, events);
        fastestInit = std::min(fastestInit, std::chrono::steady_clock::now() - before);
        before = std::chrono::steady_clock::now();
        client->start();
        fastestStart = std::min(fastestStart, std::chrono::steady_clock::now() - before);

        EXPECT_EQ(
            events->waitFailed(),
            RegistrationState::failed("The server no-such-host.invalid:5060 cannot be reached."));
        try {
            client->placeCall("100");
            ADD_FAILURE() << "a call was placed to a server without an address";
        } catch (const core::CoreError& error) {
            EXPECT_EQ(error.kind(), core::CoreError::Kind::unreachable);
            EXPECT_EQ(error.text(), "no-such-host.invalid:5060");
        }
        client->stop();
    }
    EXPECT_LE(fastestInit, 2ms);
    EXPECT_LE(fastestStart, 2ms);
}

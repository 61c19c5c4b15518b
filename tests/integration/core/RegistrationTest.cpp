#include "SipLab.h"

#include "Ports.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include <dlfcn.h>
#include <netdb.h>

using core::RegistrationState;
using Kind = core::RegistrationState::Kind;

namespace {

// Name servers as slow as a test wants: a lookup of HeldResolver::name waits
// until the test releases it, and then finds nothing. Other names go to the
// system's resolver.
std::mutex resolverLock;
std::condition_variable resolverChanged;
bool resolverHeld = false;
int heldLookups = 0;

struct HeldResolver {
    static inline const std::string name = "held-by-the-test.invalid";
    HeldResolver() {
        std::lock_guard guard(resolverLock);
        resolverHeld = true;
        heldLookups = 0;
    }
    ~HeldResolver() { release(); }
    bool waitForLookup(std::chrono::milliseconds bound) {
        std::unique_lock guard(resolverLock);
        return resolverChanged.wait_for(guard, bound, [] { return heldLookups > 0; });
    }
    void release() {
        std::lock_guard guard(resolverLock);
        resolverHeld = false;
        resolverChanged.notify_all();
    }
};

} // namespace

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    if (node != nullptr && HeldResolver::name == node) {
        std::unique_lock guard(resolverLock);
        ++heldLookups;
        resolverChanged.notify_all();
        resolverChanged.wait(guard, [] { return !resolverHeld; });
        return EAI_NONAME;
    }
    using Lookup = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto systems = reinterpret_cast<Lookup>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return systems(node, service, hints, result);
}

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

TEST(Registration, AnUnresolvableServerNameFailsTheRegistrationWithItsReason) {
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor("no-such-host.invalid:5060", "alice", "alice-secret"), events);
    client->start();
    EXPECT_EQ(events->waitFailed(),
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

TEST(Registration, InitAndStartReturnWhileTheServerNameIsStillBeingResolved) {
    HeldResolver resolver;
    auto events = std::make_shared<Events>();
    auto returned = std::async(std::launch::async, [&events] {
        auto client = core::SipClient::init(
            accountFor(HeldResolver::name + ":5060", "alice", "alice-secret"), events);
        client->start();
        return client;
    });
    // Whatever happens below, the lookup ends before the caller's thread is joined.
    struct Release {
        HeldResolver& resolver;
        ~Release() { resolver.release(); }
    } release{resolver};
    ASSERT_TRUE(resolver.waitForLookup(10s)) << "the server's name was never looked up";
    ASSERT_EQ(returned.wait_for(10s), std::future_status::ready)
        << "init or start waited for the name servers";
    auto client = returned.get();
    // Nothing is known yet: the engine says it is registering and nothing more.
    EXPECT_EQ(events->waitRegistration([](const RegistrationState&) { return true; }),
              RegistrationState::registering());
    for (const auto& state : events->registrations()) {
        EXPECT_NE(state.kind, Kind::failed) << "failed before the name servers answered";
    }
    resolver.release();
    EXPECT_EQ(events->waitFailed(), RegistrationState::failed("The server " + HeldResolver::name +
                                                              ":5060 cannot be reached."));
    client->stop();
}

// Calls and registration across a change of network. This program is the
// client's machine: at start it moves into a network namespace of its own.
// The registrar and the far end run in a second namespace that the test makes,
// reached over a veth pair; a second pair carries only the test's commands to
// the far end. The addresses come from the documentation ranges (192.0.2.0/24,
// 198.51.100.0/24, 203.0.113.0/24), and nothing leaves the two namespaces.

#include "SipLab.h"

#include "Ports.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>

#include <gtest/gtest.h>

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "Services.h"
#include "shell/SystemWakeups.h"

using core::CallState;
using Kind = core::CallState::Kind;
using RegistrationKind = core::RegistrationState::Kind;

namespace {

constexpr const char* serverAddress = "192.0.2.1";
constexpr const char* firstClientAddress = "192.0.2.2";
constexpr const char* secondServerAddress = "198.51.100.1";
constexpr const char* secondClientAddress = "198.51.100.2";
// The test's own line to the parties' control ports, which must not move.
constexpr const char* controlServerAddress = "203.0.113.1";
constexpr const char* controlClientAddress = "203.0.113.2";
constexpr const char* namespacePrefix = "velnor-lab-";

void ip(const QStringList& arguments) {
    QProcess process;
    process.start("ip", arguments);
    if (!process.waitForFinished(10000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        throw std::runtime_error("ip " + arguments.join(' ').toStdString() + ": " +
                                 process.readAllStandardError().toStdString());
    }
}

// Namespaces of earlier runs that died before tidying up.
void removeAbandonedNamespaces() {
    for (const QString& name : QDir("/run/netns").entryList({QString(namespacePrefix) + "*"})) {
        const pid_t owner = name.mid(int(std::strlen(namespacePrefix))).toInt();
        if (owner > 0 && kill(owner, 0) != 0 && errno == ESRCH) {
            QProcess::execute("ip", {"netns", "del", name});
        }
    }
}

// The server side's namespace and the cable to it. The client side's address
// is the one that moves.
class TwoNetworks {
public:
    TwoNetworks() : m_name(namespacePrefix + QString::number(getpid())) {
        removeAbandonedNamespaces();
        ip({"link", "set", "lo", "up"});
        ip({"netns", "add", m_name});
        ip({"link", "add", "client0", "type", "veth", "peer", "name", "server0", "netns", m_name});
        server({"link", "set", "lo", "up"});
        server({"addr", "add", QString(serverAddress) + "/24", "dev", "server0"});
        server({"addr", "add", QString(secondServerAddress) + "/24", "dev", "server0"});
        server({"link", "set", "server0", "up"});
        ip({"addr", "add", QString(firstClientAddress) + "/24", "dev", "client0"});
        ip({"link", "set", "client0", "up"});
        ip({"link", "add", "control0", "type", "veth", "peer", "name", "control1", "netns",
            m_name});
        server({"addr", "add", QString(controlServerAddress) + "/24", "dev", "control1"});
        server({"link", "set", "control1", "up"});
        ip({"addr", "add", QString(controlClientAddress) + "/24", "dev", "control0"});
        ip({"link", "set", "control0", "up"});
        labNetwork().host = serverAddress;
        labNetwork().control = controlServerAddress;
        labNetwork().launcher = {"ip", "netns", "exec", m_name};
    }
    ~TwoNetworks() {
        labNetwork() = LabNetwork{};
        // Taking one end of the cable away takes both, with the addresses and routes on them.
        QProcess::execute("ip", {"link", "del", "client0"});
        QProcess::execute("ip", {"link", "del", "control0"});
        QProcess::execute("ip", {"netns", "del", m_name});
    }

    // The client leaves its first network for the second, as on a move from
    // one Wi-Fi to another: the old address goes, a new one comes, and the
    // server is reached through a router on the new network.
    void moveClient() {
        ip({"addr", "add", QString(secondClientAddress) + "/24", "dev", "client0"});
        ip({"addr", "del", QString(firstClientAddress) + "/24", "dev", "client0"});
        ip({"route", "add", "default", "via", secondServerAddress});
    }
    void unplug() { ip({"link", "set", "client0", "down"}); }
    void plugIn() { ip({"link", "set", "client0", "up"}); }

private:
    void server(const QStringList& arguments) { ip(QStringList{"-n", m_name} + arguments); }

    QString m_name;
};

struct Lab {
    TwoNetworks networks; // first: the servers start inside it
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio{dir.path(), certs, {}};
    QString tone = writeToneFile(dir.path(), 1000);
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    void startClient() {
        client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        ASSERT_EQ(events->waitRegistered().kind, RegistrationKind::registered);
    }
    std::unique_ptr<Baresip> echoParty() {
        return std::make_unique<Baresip>(dir.path(), "bob", Baresip::Role::echo, kamailio, tone,
                                         certs.trustedCa);
    }
};

// Waits for a registration state of the given kind reported after the first
// `after` states.
core::RegistrationState waitNewRegistration(Events& events, size_t after, RegistrationKind kind,
                                            std::chrono::milliseconds bound) {
    size_t index = 0;
    return events.waitRegistration(
        [&](const core::RegistrationState& state) {
            return index++ >= after && state.kind == kind;
        },
        bound);
}

constexpr size_t chunkSamples = 320; // 40 ms at 8000 Hz

bool toneIn(const std::vector<std::int16_t>& samples, size_t chunk) {
    const std::vector<std::int16_t> part(samples.begin() + long(chunk * chunkSamples),
                                         samples.begin() + long((chunk + 1) * chunkSamples));
    return toneMarginDb(part, 1000) >= 20.0;
}

// The longest stretch without the tone, in milliseconds, from the sample `from` to the end.
long longestSilenceMs(const std::vector<std::int16_t>& samples, size_t from) {
    long longest = 0;
    long current = 0;
    for (size_t chunk = from / chunkSamples; (chunk + 1) * chunkSamples <= samples.size();
         ++chunk) {
        current = toneIn(samples, chunk) ? 0 : current + 40;
        longest = std::max(longest, current);
    }
    return longest;
}

// The last second recorded.
std::vector<std::int16_t> lastSecond(AudioLoop& audio) {
    const auto recorded = audio.recorded();
    const size_t start = recorded.size() > 8000 ? recorded.size() - 8000 : 0;
    return {recorded.begin() + long(start), recorded.end()};
}

} // namespace

TEST(NetworkChange, ACallMovesWithTheClientToItsNewAddressAndKeepsItsSound) {
    LogLines log;
    Lab lab;
    auto bob = lab.echoParty();
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);
    std::this_thread::sleep_for(2s); // audio runs in real time; this is its length, not a wait
    ASSERT_GE(toneMarginDb(lastSecond(audio), 1000), 20.0) << "no echo before the move";

    const size_t statesBefore = lab.events->registrations().size();
    const size_t movedAt = audio.recorded().size();
    lab.networks.moveClient();
    EXPECT_EQ(waitNewRegistration(*lab.events, statesBefore, RegistrationKind::registered, 2s).kind,
              RegistrationKind::registered);
    EXPECT_TRUE(log.waitFor(std::string("re-INVITE from ") + secondClientAddress, 2s)) << log.all();

    std::this_thread::sleep_for(4s); // the stretch of audio the gap is measured in
    const auto recorded = audio.recorded();
    EXPECT_LE(longestSilenceMs(recorded, movedAt), 3000);
    EXPECT_GE(toneMarginDb(lastSecond(audio), 1000), 20.0) << "no echo after the move";
    audio.stop();
    for (const auto& state : lab.events->callStates(call->sipCallId())) {
        EXPECT_NE(state.kind, Kind::ended) << core::toString(state);
    }

    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    lab.client->stop();
}

TEST(NetworkChange, AfterAMoveTheFarEndReachesTheCallAtItsNewContact) {
    LogLines log;
    Lab lab;
    Baresip carol(lab.dir.path(), "carol", Baresip::Role::answeringPlayer, lab.kamailio, lab.tone,
                  lab.certs.trustedCa);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call);

    lab.networks.moveClient();
    EXPECT_TRUE(log.waitFor(std::string("re-INVITE from ") + secondClientAddress, 2s)) << log.all();
    std::this_thread::sleep_for(3s); // audio runs in real time; this is its length, not a wait
    EXPECT_GE(toneMarginDb(lastSecond(audio), 1000), 20.0) << "the far end's tone did not follow";
    audio.stop();

    // Its BYE goes to the Contact of the re-INVITE, the only one still there.
    carol.command("hangup");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("remote"));
    lab.client->stop();
}

TEST(NetworkChange, AnOutageIsReportedRetriedWithBackOffAndTheCallOutlivesIt) {
    LogLines log;
    Lab lab;
    auto bob = lab.echoParty();
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);

    const size_t statesBefore = lab.events->registrations().size();
    lab.networks.unplug();
    const auto failed =
        waitNewRegistration(*lab.events, statesBefore, RegistrationKind::failed, 2s);
    EXPECT_EQ(failed.reason, "The server " + lab.kamailio.tcpServer() + " cannot be reached.");
    // Tried again soon, then less often.
    EXPECT_TRUE(log.waitFor("registering again in 1000 ms", 3s)) << log.all();
    EXPECT_TRUE(log.waitFor("registering again in 2000 ms", 3s)) << log.all();

    const size_t statesInOutage = lab.events->registrations().size();
    lab.networks.plugIn();
    EXPECT_EQ(
        waitNewRegistration(*lab.events, statesInOutage, RegistrationKind::registered, 2s).kind,
        RegistrationKind::registered);
    std::this_thread::sleep_for(3s); // audio runs in real time; this is its length, not a wait
    EXPECT_GE(toneMarginDb(lastSecond(audio), 1000), 20.0) << "no echo after the outage";
    audio.stop();
    for (const auto& state : lab.events->callStates(call->sipCallId())) {
        EXPECT_NE(state.kind, Kind::ended) << core::toString(state);
    }
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    bob->waitEvent({"CALL_CLOSED"});
    lab.client->stop();
}

// logind on a private bus: the engine hears of the resume the way the app
// passes it on, and registers again on a new connection at once.
TEST(NetworkChange, AResumeRegistersAgainOnANewConnectionAndTheCallGoesOn) {
    LogLines log;
    PrivateBus bus;
    Lab lab;
    auto bob = lab.echoParty();
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);

    QDBusConnection logind =
        QDBusConnection::connectToBus(bus.address(), QStringLiteral("fake-logind"));
    ASSERT_TRUE(logind.registerService(QStringLiteral("org.freedesktop.login1")));
    SystemWakeups wakeups;
    ASSERT_TRUE(wakeups.watchSleep(QDBusConnection::connectToBus(bus.address(), "app-bus")));
    QObject::connect(&wakeups, &SystemWakeups::resumed, [&] { lab.client->networkChanged(); });

    const size_t statesBefore = lab.events->registrations().size();
    QDBusMessage signal = QDBusMessage::createSignal(
        QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
        QStringLiteral("PrepareForSleep"));
    signal << false;
    ASSERT_TRUE(logind.send(signal));
    QDeadlineTimer deadline(2s);
    while (!log.waitFor("on a new connection", 10ms) && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    EXPECT_FALSE(deadline.hasExpired()) << log.all();
    EXPECT_EQ(waitNewRegistration(*lab.events, statesBefore, RegistrationKind::registered, 2s).kind,
              RegistrationKind::registered);
    EXPECT_TRUE(log.waitFor(std::string("re-INVITE from ") + firstClientAddress, 2s)) << log.all();
    std::this_thread::sleep_for(2s); // audio runs in real time; this is its length, not a wait
    EXPECT_GE(toneMarginDb(lastSecond(audio), 1000), 20.0) << "no echo after the resume";
    audio.stop();
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    lab.client->stop();
    QDBusConnection::disconnectFromBus(QStringLiteral("fake-logind"));
    QDBusConnection::disconnectFromBus(QStringLiteral("app-bus"));
}

int main(int argc, char** argv) {
    // A network namespace belongs to a thread and passes to the threads it
    // starts: entered before any thread exists, it holds for the whole test.
    if (unshare(CLONE_NEWNET) != 0) {
        std::perror("cannot make a network namespace for the client (this test runs as root)");
        return 1;
    }
    QCoreApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

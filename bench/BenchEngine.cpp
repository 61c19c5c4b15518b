// Figures of the SIP engine against kamailio, baresip and sipp on loopback.
// Prints "name: value" lines; nothing here fails on time.

#include "../tests/integration/core/SipLab.h"
#include "core/Core.h"
#include "core/Loop.h"

#include "Ports.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <thread>

using namespace std::chrono;
using Kind = core::CallState::Kind;

namespace {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

double rssMb() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stod(line.substr(6)) / 1024.0;
        }
    }
    return 0;
}

double msSince(steady_clock::time_point start) {
    return duration<double, std::milli>(steady_clock::now() - start).count();
}

double registerMs(const core::SipAccount& account) {
    auto events = std::make_shared<Events>();
    const auto start = steady_clock::now();
    auto client = core::SipClient::init(account, events);
    client->start();
    const auto state = events->waitRegistered();
    const double ms = msSince(start);
    client->stop();
    if (state.kind != core::RegistrationState::Kind::registered) {
        throw std::runtime_error("registration failed: " + state.reason);
    }
    return ms;
}

// How long init and start keep the caller when the server's name cannot be
// resolved: the name servers are asked on a thread of the engine's, so the
// caller waits on neither. The median of nine clients, each run until it failed.
void unresolvableNameFigures() {
    const auto account = accountFor("no-such-host.invalid:5060", "alice", "alice-secret");
    core::Loop::instance(); // the engine's thread is up before the clock starts
    std::vector<double> inits, starts;
    for (int i = 0; i < 9; ++i) {
        auto events = std::make_shared<Events>();
        auto start = steady_clock::now();
        auto client = core::SipClient::init(account, events);
        inits.push_back(msSince(start));
        start = steady_clock::now();
        client->start();
        starts.push_back(msSince(start));
        events->waitFailed();
        client->stop();
    }
    std::printf("init_with_unresolvable_name_ms: %.3f\n", median(inits));
    std::printf("start_with_unresolvable_name_ms: %.3f\n", median(starts));
    std::fflush(stdout);
}

// CPU seconds this process spends per minute of a call with audio both ways.
double cpuPerCallMinute(const QString& dir, Kamailio& kamailio, const TestCertificates& certs,
                        const QByteArray& codec, int rate, int channels) {
    Baresip carol(dir, "carol", Baresip::Role::answeringPlayer, kamailio,
                  writeToneFile(dir, 1000, rate, channels), certs.trustedCa, codec);
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    events->waitRegistered();
    auto call = client->placeCall("carol");
    events->waitCall(call->sipCallId(), Kind::connected);
    AudioLoop audio(call, 440);
    std::this_thread::sleep_for(2s); // settle
    const double cpuStart = cpuSeconds();
    const auto start = steady_clock::now();
    std::this_thread::sleep_for(10s); // the measured stretch of call
    const double cpu = cpuSeconds() - cpuStart;
    const double minutes = duration<double>(steady_clock::now() - start).count() / 60.0;
    audio.stop();
    call->hangup();
    client->stop();
    return cpu / minutes;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    core::initLogging("error");
    unresolvableNameFigures();
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    const std::uint16_t sippPort = freeLoopbackPort();
    Kamailio kamailio(dir.path(), certs, {false, sippPort});

    // For a capture alongside: where kamailio listens.
    std::fprintf(stderr, "kamailio tcp %u tls %u\n", kamailio.tcpPort(), kamailio.tlsPort());
    std::vector<double> tcp, tls;
    auto tlsAccount = accountFor("127.0.0.1:" + std::to_string(kamailio.tlsPort()), "alice",
                                 Kamailio::users().at("alice"));
    tlsAccount.optionFlag = true;
    tlsAccount.optionPair =
        std::make_pair(std::string("tls-ca-file"), certs.trustedCa.toStdString());
    for (int i = 0; i < 20; ++i) {
        tcp.push_back(
            registerMs(accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice"))));
        tls.push_back(registerMs(tlsAccount));
    }
    std::printf("register_tcp_ms_p50: %.2f\n", median(tcp));
    std::printf("register_tls_ms_p50: %.2f\n", median(tls));

    {
        Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio,
                    writeToneFile(dir.path(), 1000), certs.trustedCa);
        auto events = std::make_shared<Events>();
        auto client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        events->waitRegistered();
        std::vector<double> setup;
        for (int i = 0; i < 30; ++i) {
            const auto start = steady_clock::now();
            auto call = client->placeCall("bob");
            events->waitCall(call->sipCallId(), Kind::connected);
            setup.push_back(msSince(start));
            call->hangup();
            events->waitCall(call->sipCallId(), Kind::ended);
        }
        client->stop();
        std::printf("invite_connected_ms_p50: %.2f\n", median(setup));
    }
    std::fflush(stdout);
    if (argc > 1 && std::string(argv[1]) == "setup") {
        // Only the signalling figures: registration and call setup.
        return 0;
    }

    std::printf("cpu_s_per_call_min_g711: %.3f\n",
                cpuPerCallMinute(dir.path(), kamailio, certs, "pcmu", 8000, 1));
    std::fflush(stdout);
    std::printf("cpu_s_per_call_min_opus: %.3f\n",
                cpuPerCallMinute(dir.path(), kamailio, certs, "opus", 48000, 2));
    std::fflush(stdout);

    {
        Sipp sipp(dir.path(), answeringScenario(), sippPort, 220);
        sipp.start();
        auto events = std::make_shared<Events>();
        auto client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        events->waitRegistered();
        auto oneCall = [&] {
            auto call = client->placeCall("sipp");
            events->waitCall(call->sipCallId(), Kind::connected);
            for (int i = 0; i < 5; ++i) {
                call->writeAudio(std::vector<std::int16_t>(160, 500));
                call->readAudio();
            }
            call->hangup();
            events->waitCall(call->sipCallId(), Kind::ended);
        };
        // Baseline: the same call set-up against a far end that answers at once.
        std::vector<double> setup;
        for (int i = 0; i < 20; ++i) {
            const auto start = steady_clock::now();
            auto call = client->placeCall("sipp");
            events->waitCall(call->sipCallId(), Kind::connected);
            setup.push_back(msSince(start));
            call->hangup();
            events->waitCall(call->sipCallId(), Kind::ended);
        }
        std::printf("invite_connected_ms_p50_immediate_answer: %.2f\n", median(setup));
        const double before = rssMb();
        for (int i = 0; i < 200; ++i)
            oneCall();
        std::printf("rss_growth_mb_200_calls: %.2f\n", rssMb() - before);
        client->stop();
    }
    return 0;
}

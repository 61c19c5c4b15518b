// Figures of the phone as the app runs it, against rz-devserver, kamailio,
// baresip and sipp on loopback. Prints "name: value" lines, each beside a
// baseline measured in the same run; nothing here fails on time.

#include "../tests/integration/contacts/EdsLab.h"
#include "../tests/integration/core/SipLab.h"
#include "../tests/integration/session/BrowserKit.h"
#include "DevServer.h"
#include "Ports.h"
#include "Services.h"
#include "audio/NullBackend.h"
#include "contacts/PhoneContacts.h"
#include "session/Session.h"
#include "telephony/Phone.h"

#include <QCoreApplication>
#include <QDBusInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QProcess>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <thread>

#include <cstdio>
#include <fstream>
#include <time.h>

using namespace std::chrono;

namespace {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double msSince(steady_clock::time_point start) {
    return duration<double, std::milli>(steady_clock::now() - start).count();
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

bool waitFor(const std::function<bool()>& condition, int boundMs = 10000) {
    QDeadlineTimer deadline(boundMs);
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    return condition();
}

// The app started with a kept sign-in and a device already provisioned:
// process start to "registered" on its bus, then dials over the bus to a
// party that rings.
void appFigures() {
    TempHome home;
    PrivateBus bus;
    SecretService secretService(bus);
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    const QString tone = writeToneFile(dir.path(), 1000);
    DevServer server({"--auto-approve", "u-001"});
    server.control("POST", "faults",
                   {{"method", "POST"},
                    {"path", "api/me/app-device"},
                    {"status", 200},
                    {"count", 100},
                    {"body", labDevice(kamailio)}});
    QDir().mkpath(home.configHome() + "/velnor");
    IniSettingsStore settings(home.configHome() + "/velnor/rz.conf");
    settings.setUrl("rz.server", server.url());
    KeychainStore keychain;
    {
        // Sign in and provision once, so that each launch only wakes the phone.
        Phone phone(settings, std::make_shared<NullBackend>());
        Session session(settings, keychain);
        session.setPhone(&phone);
        useSigningInBrowser(session);
        session.signIn();
        waitFor([&] { return phone.isRegistered() || session.hasError(); }, 15000);
        phone.stop();
    }
    settings.flush(); // the app reads the file next

    // Baseline: the engine alone registering the same account.
    std::vector<double> engine;
    for (int i = 0; i < 5; ++i) {
        auto events = std::make_shared<Events>();
        const auto start = steady_clock::now();
        auto client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        events->waitRegistered();
        engine.push_back(msSince(start));
        client->stop();
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    auto registration = [] {
        QDBusInterface app("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
        return app.isValid() ? app.property("Registration").toString() : QString();
    };
    std::vector<double> launch;
    for (int i = 0; i < 5; ++i) {
        ChildProcess app;
        const auto start = steady_clock::now();
        app.start(VELNOR_APP_PATH, {}, environment);
        if (!waitFor([&] { return registration() == "registered"; }, 20000)) {
            throw std::runtime_error("the app did not register");
        }
        launch.push_back(msSince(start));
        app.stop();
        if (i == 4) {
            // Where the time of a launch goes, for whoever reads the bench's error output.
            std::fprintf(stderr, "last launch, as the app logged it:\n%s\n",
                         app.process().readAllStandardError().constData());
        }
    }
    std::printf("launch_to_registered_ms: %.1f\n", median(launch));
    std::printf("engine_register_tcp_ms: %.1f\n", median(engine));

    // Dial over the bus until the far end rings; baseline: the same from a
    // client of the engine in this process.
    Baresip carol(dir.path(), "carol", Baresip::Role::tonePlayer, kamailio, tone, certs.trustedCa);
    ChildProcess app;
    app.start(VELNOR_APP_PATH, {}, environment);
    app.process().setReadChannel(QProcess::StandardError);
    waitFor([&] { return registration() == "registered"; }, 20000);
    QDBusInterface phoneBus("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
    std::vector<double> ringing;
    for (int i = 0; i < 10; ++i) {
        const auto start = steady_clock::now();
        phoneBus.call(QDBus::Block, "Dial", "carol");
        // The party's events pile up; this call's are known by its Call-ID.
        QByteArray line;
        while (!line.contains("dialed carol: ")) {
            line = app.readLine(10s);
        }
        const std::string callId =
            line.mid(line.indexOf("dialed carol: ") + 14).trimmed().toStdString();
        carol.waitEvent({"CALL_INCOMING", callId}, 10s);
        ringing.push_back(msSince(start));
        phoneBus.call(QDBus::Block, "HangUp");
        carol.waitEvent({"CALL_CLOSED", callId}, 10s);
    }
    app.stop();
    std::printf("dial_to_ringing_ms: %.2f\n", median(ringing));
}

// A hundred calls through the phone (engine, phone, recents, call audio on
// the null device) to a far end that answers at once.
void memoryFigures() {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    const std::uint16_t sippPort = freeLoopbackPort();
    Kamailio kamailio(dir.path(), certs, {.sippPort = sippPort});
    Sipp sipp(dir.path(), answeringScenario(), sippPort, 130);
    sipp.start();
    MemorySettingsStore settings;
    Phone phone(settings, std::make_shared<NullBackend>());
    phone.setAccount(
        {kamailio.tcpServer().c_str(), "", "alice", Kamailio::users().at("alice").c_str(), "tcp"});
    phone.start();
    waitFor([&] { return phone.isRegistered(); });
    auto oneCall = [&] {
        phone.dial("sipp");
        waitFor([&] {
            return phone.activeCall() &&
                   phone.activeCall()->status == Phone::ActiveCall::Status::connected;
        });
        waitFor([&] { return !phone.startingCall(); });
        phone.hangUpActive();
    };
    for (int i = 0; i < 20; ++i) {
        oneCall();
    }
    const double before = rssMb();
    for (int i = 0; i < 100; ++i) {
        oneCall();
    }
    std::printf("rss_growth_mb_100_calls_through_phone: %.2f\n", rssMb() - before);
    phone.stop();
}

// 5,000 people in the desktop's address book read into the map, while the
// main thread keeps ticking; baseline: the same read on the calling thread.
void contactsFigures() {
    TempHome home;
    PrivateBus bus;
    EdsLab eds(bus);
    QList<EdsLab::Card> cards;
    for (int i = 0; i < 5000; ++i) {
        cards.append({QStringLiteral("Person %1").arg(i),
                      QStringLiteral("Person%1").arg(i),
                      {QStringLiteral("+49 30 %1").arg(1000000 + i),
                       QStringLiteral("0171 %1").arg(2000000 + i)}});
    }
    eds.add(cards);

    auto book = std::make_shared<EdsAddressBook>();
    const auto direct = steady_clock::now();
    const auto read = book->read();
    const double directMs = msSince(direct);
    if (read.contacts.size() != 5000) {
        throw std::runtime_error("the book holds " + std::to_string(read.contacts.size()));
    }

    // The main thread ticks every millisecond while a read runs elsewhere. The
    // longest gap between ticks is what a user could feel; the most CPU the
    // main thread itself spent between two ticks is what our own code costs it.
    struct Ticker {
        double maxGapMs = 0;
        double maxCpuMs = 0;
        steady_clock::time_point last = steady_clock::now();
        double lastCpu = threadCpuMs();
        QTimer timer;
        Ticker() {
            QObject::connect(&timer, &QTimer::timeout, [this] {
                maxGapMs = std::max(maxGapMs, msSince(last));
                const double cpu = threadCpuMs();
                maxCpuMs = std::max(maxCpuMs, cpu - lastCpu);
                last = steady_clock::now();
                lastCpu = cpu;
            });
            timer.start(1);
        }
        static double threadCpuMs() {
            timespec t{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
            return double(t.tv_sec) * 1000.0 + double(t.tv_nsec) / 1e6;
        }
    };

    // Baseline: the same read on a plain thread, the main thread only ticking.
    double baselineGapMs = 0;
    {
        Ticker ticker;
        QEventLoop loop;
        std::thread reader([&] {
            book->read();
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
        // The main thread sleeps in its event loop, as the app's does.
        loop.exec();
        reader.join();
        baselineGapMs = ticker.maxGapMs;
    }

    PhoneContacts contacts(book);
    auto ticker = std::make_unique<Ticker>();
    bool done = false;
    const auto start = steady_clock::now();
    double loadMs = 0;
    // The coroutine's captures live in this named lambda for as long as it runs.
    auto load = [&]() -> QCoro::Task<> {
        co_await contacts.refresh();
        loadMs = msSince(start);
        done = true;
    };
    auto running = load();
    {
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (done) {
                loop.quit();
            }
        });
        poll.start(5);
        QTimer::singleShot(30000, &loop, &QEventLoop::quit);
        loop.exec();
    }
    ticker->timer.stop();
    if (!contacts.person("+49301004999")) {
        throw std::runtime_error("the map is not ready");
    }
    std::printf("contacts_load_ms_5000: %.1f\n", loadMs);
    // The timer's own 1 ms period is part of each gap.
    std::printf("main_thread_max_block_ms: %.1f\n", ticker->maxGapMs);
    std::printf("main_thread_max_block_ms_baseline_plain_thread: %.1f\n", baselineGapMs);
    std::printf("main_thread_max_cpu_between_ticks_ms: %.2f\n", ticker->maxCpuMs);
    std::printf("eds_read_ms_5000_direct: %.1f\n", directMs);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    // Each figure is out as soon as it is measured.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        // The address book's figures run in a process of their own, as each
        // test does: GLib keeps one session-bus connection per process.
        if (app.arguments().contains("--contacts")) {
            contactsFigures();
            return 0;
        }
        memoryFigures();
        appFigures();
        std::fflush(stdout);
        if (QProcess::execute(app.applicationFilePath(), {"--contacts"}) != 0) {
            throw std::runtime_error("the address book's figures failed");
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_phone: %s\n", e.what());
        return 1;
    }
    return 0;
}

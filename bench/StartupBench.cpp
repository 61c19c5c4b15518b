// Start-up time to the first frame of the main window, and resident memory
// then, for the app and for a bare Qt Quick window measured in the same run.
// Then the app signed in and registered on an X display, left idle for a
// minute: its memory as it really costs (PSS, private dirty), its wake-ups
// and its CPU, beside the bare window idle on the same display. Last, an
// incoming call to its notification on a real notification server, in a
// process of its own (its private bus must not meet the idle run's).

#include "../tests/integration/session/BrowserKit.h"
#include "DevServer.h"
#include "IncomingNotificationFigures.h"
#include "PulseAudioServer.h"
#include "Services.h"
#include "audio/NullBackend.h"
#include "session/Session.h"
#include "telephony/Phone.h"

#include <QDBusInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QHash>
#include <QThread>

#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

namespace {

struct Sample {
    double startMs = 0;
    double rssMb = 0;
};

double residentMb(qint64 pid) {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
        }
    }
    return 0;
}

std::optional<Sample> measure(const QString& program) {
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("HOME", home.path());
    environment.insert("XDG_CONFIG_HOME", home.path() + "/config");
    environment.insert("XDG_CACHE_HOME", home.path() + "/cache");
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setReadChannel(QProcess::StandardError);
    QElapsedTimer timer;
    timer.start();
    process.start(program, {});
    std::optional<Sample> sample;
    while (timer.elapsed() < 20000 && process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(200);
        while (process.canReadLine()) {
            if (process.readLine().contains("Main window shown")) {
                sample =
                    Sample{double(timer.nsecsElapsed()) / 1e6, residentMb(process.processId())};
            }
        }
        if (sample) {
            break;
        }
    }
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
    return sample;
}

// What a process costs at idle over a stretch of time.
struct Idle {
    double pssMb = 0;
    double privateDirtyMb = 0;
    double wakeupsPerSecond = 0;
    double cpuPercent = 0;
};

// A field of /proc/PID/smaps_rollup in MB.
double rollupMb(qint64 pid, const QByteArray& field) {
    QFile rollup(QStringLiteral("/proc/%1/smaps_rollup").arg(pid));
    if (!rollup.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray& line : rollup.readAll().split('\n')) {
        if (line.startsWith(field + ':')) {
            return line.mid(field.size() + 1).trimmed().split(' ').value(0).toDouble() / 1024.0;
        }
    }
    return 0;
}

// Context switches of every thread: each one is the process waking up or
// being woken.
// Per thread, since a thread that ends takes its counts with it: the
// wake-ups of a stretch are the growth of each thread alive at its end.
QHash<QString, double> switches(qint64 pid) {
    QHash<QString, double> counts;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        double total = 0;
        QFile status(tasks.filePath(task) + "/status");
        if (!status.open(QIODevice::ReadOnly)) {
            continue;
        }
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches:") ||
                line.startsWith("nonvoluntary_ctxt_switches:")) {
                total += line.mid(line.indexOf(':') + 1).trimmed().toDouble();
            }
        }
        counts.insert(task, total);
    }
    return counts;
}

double wakeupsBetween(const QHash<QString, double>& before, const QHash<QString, double>& after) {
    double total = 0;
    for (auto it = after.constBegin(); it != after.constEnd(); ++it) {
        total += it.value() - before.value(it.key(), 0);
    }
    return total;
}

// User and system CPU time in seconds.
double cpuSeconds(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QByteArray text = stat.readAll();
    // Fields after the command's closing bracket; utime and stime are the 14th and 15th.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) /
           double(sysconf(_SC_CLK_TCK));
}

Idle idleFigures(qint64 pid, int seconds) {
    const QHash<QString, double> switchesBefore = switches(pid);
    const double cpuBefore = cpuSeconds(pid);
    QElapsedTimer timer;
    timer.start();
    QThread::sleep(unsigned(seconds));
    const double elapsed = double(timer.nsecsElapsed()) / 1e9;
    Idle idle;
    idle.wakeupsPerSecond = wakeupsBetween(switchesBefore, switches(pid)) / elapsed;
    idle.cpuPercent = 100.0 * (cpuSeconds(pid) - cpuBefore) / elapsed;
    idle.pssMb = rollupMb(pid, "Pss");
    idle.privateDirtyMb = rollupMb(pid, "Private_Dirty");
    return idle;
}

bool waitFor(const std::function<bool()>& condition, int boundMs) {
    QDeadlineTimer deadline(boundMs);
    while (!condition() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    return condition();
}

void printIdle(const char* suffix, const Idle& idle) {
    std::printf("pss_mb_signed_in_idle_60s%s: %.1f\n", suffix, idle.pssMb);
    std::printf("private_dirty_mb_signed_in_idle_60s%s: %.1f\n", suffix, idle.privateDirtyMb);
    std::printf("idle_wakeups_per_s%s: %.2f\n", suffix, idle.wakeupsPerSecond);
    std::printf("idle_cpu_percent%s: %.3f\n", suffix, idle.cpuPercent);
    std::fflush(stdout);
}

// The app signed in to rz-devserver's phone system and registered, shown on
// an X display of its own, then a minute of idle; and the bare window there.
int idleRun() {
    constexpr int idleSeconds = 60;
    TempHome home;
    PrivateBus bus;
    SecretService secretService(bus);
    PulseAudioServer pulse(
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-null-source source_name=mic rate=48000 channels=1",
         "set-default-sink speaker", "set-default-source mic"});
    DevServer server({"--phone", "--auto-approve", "u-001"});
    if (!waitFor(
            [&] {
                try {
                    server.phoneReady();
                    return true;
                } catch (const std::exception&) {
                    return false;
                }
            },
            30000)) {
        std::fprintf(stderr, "the phone system did not become ready\n");
        return 1;
    }
    QDir().mkpath(home.configHome() + "/velnor");
    IniSettingsStore settings(home.configHome() + "/velnor/rz.conf");
    settings.setUrl("rz.server", server.url());
    KeychainStore keychain;
    {
        // Signed in and provisioned once, as a person who used the app before.
        Phone phone(settings, std::make_shared<NullBackend>());
        Session session(settings, keychain);
        session.setPhone(&phone);
        useSigningInBrowser(session);
        session.signIn();
        if (!waitFor([&] { return phone.isRegistered() || session.hasError(); }, 20000) ||
            !phone.isRegistered()) {
            std::fprintf(stderr, "the sign-in did not register: %s\n",
                         qPrintable(session.errorText()));
            return 1;
        }
        phone.stop();
    }
    settings.flush(); // the app reads the file next
    VirtualDisplay display;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", display.display());
    environment.insert("QT_QPA_PLATFORM", "xcb");
    environment.remove("WAYLAND_DISPLAY");
    auto registration = [] {
        QDBusInterface app("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
        return app.isValid() ? app.property("Registration").toString() : QString();
    };
    // The app draws in software unless told otherwise; GL is measured beside it.
    const auto runApp = [&](const char* suffix, const QString& rhiBackend) {
        QProcessEnvironment env = environment;
        if (!rhiBackend.isEmpty()) {
            env.insert("QSG_RHI_BACKEND", rhiBackend);
        }
        ChildProcess app;
        app.start(VELNOR_APP_PATH, {}, env);
        if (!waitFor([&] { return registration() == "registered"; }, 30000)) {
            std::fprintf(stderr, "the app did not register\n");
            return false;
        }
        printIdle(suffix, idleFigures(app.pid(), idleSeconds));
        app.stop();
        return true;
    };
    if (!runApp("", {}) || !runApp("_opengl", QStringLiteral("opengl"))) {
        return 1;
    }
    ChildProcess bare;
    bare.start(VELNOR_BARE_PATH, {}, environment);
    bare.process().setReadChannel(QProcess::StandardError);
    bare.readLine(std::chrono::seconds(20));
    printIdle("_bare_qt_quick", idleFigures(bare.pid(), idleSeconds));
    bare.stop();
    // The bare window drawing in software too, as the app does.
    QProcessEnvironment software = environment;
    software.insert("QT_QUICK_BACKEND", "software");
    ChildProcess bareSoftware;
    bareSoftware.start(VELNOR_BARE_PATH, {}, software);
    bareSoftware.process().setReadChannel(QProcess::StandardError);
    bareSoftware.readLine(std::chrono::seconds(20));
    printIdle("_bare_qt_quick_software", idleFigures(bareSoftware.pid(), idleSeconds));
    return 0;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Runs this program again for the incoming-call figures alone and passes
// its lines on.
int incomingNotificationRun() {
    QProcess run;
    run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    run.start(QCoreApplication::applicationFilePath(), {QStringLiteral("incoming-notification")});
    while (run.state() != QProcess::NotRunning || run.canReadLine()) {
        run.waitForReadyRead(1000);
        while (run.canReadLine()) {
            std::fputs(run.readLine().constData(), stdout);
            std::fflush(stdout);
        }
    }
    return run.exitStatus() == QProcess::NormalExit ? run.exitCode() : 1;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "incoming-notification") == 0) {
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        try {
            incomingNotificationFigures();
        } catch (const std::exception& e) {
            std::fprintf(stderr, "bench_startup: %s\n", e.what());
            return 1;
        }
        return 0;
    }
    constexpr int runs = 7;
    std::vector<double> appStart, appRss, bareStart, bareRss;
    // Alternate the two so that a busy moment of the machine hits both alike.
    for (int i = 0; i < runs; ++i) {
        const auto bare = measure(VELNOR_BARE_PATH);
        const auto ours = measure(VELNOR_APP_PATH);
        if (!bare || !ours) {
            std::fprintf(stderr, "a program did not show its window\n");
            return 1;
        }
        bareStart.push_back(bare->startMs);
        bareRss.push_back(bare->rssMb);
        appStart.push_back(ours->startMs);
        appRss.push_back(ours->rssMb);
    }
    const double start = median(appStart), baseStart = median(bareStart);
    const double rss = median(appRss), baseRss = median(bareRss);
    std::printf("launch_to_first_frame_ms: %.1f\n", start);
    std::printf("launch_to_first_frame_ms_bare_qt_quick: %.1f\n", baseStart);
    std::printf("startup_first_frame_ms: %.1f\n", start);
    std::printf("startup_first_frame_ms_bare_qt_quick: %.1f\n", baseStart);
    std::printf("startup_ratio_to_bare_qt_quick: %.2f\n", start / baseStart);
    std::printf("rss_mb_at_first_frame: %.1f\n", rss);
    std::printf("rss_mb_at_first_frame_bare_qt_quick: %.1f\n", baseRss);
    std::printf("rss_ratio_to_bare_qt_quick: %.2f\n", rss / baseRss);
    std::fflush(stdout);
    if (const int failed = idleRun()) {
        return failed;
    }
    return incomingNotificationRun();
}

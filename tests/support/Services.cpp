#include "Services.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <stdexcept>

#include <csignal>
#include <unistd.h>

namespace {

const char* const homeVariables[] = {"HOME",           "XDG_CONFIG_HOME", "XDG_CACHE_HOME",
                                     "XDG_DATA_HOME",  "XDG_RUNTIME_DIR", "XDG_CURRENT_DESKTOP",
                                     "DESKTOP_SESSION"};

[[noreturn]] void fail(const QString& what) {
    throw std::runtime_error(what.toStdString());
}

} // namespace

TempHome::TempHome() : m_saved(QProcessEnvironment::systemEnvironment()) {
    if (!m_dir.isValid()) {
        fail("cannot make a temporary home");
    }
    for (const QString& dir : {configHome(), cacheHome(), dataHome(), runtimeDir()}) {
        QDir().mkpath(dir);
    }
    QFile::setPermissions(runtimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("HOME", path().toUtf8());
    qputenv("XDG_CONFIG_HOME", configHome().toUtf8());
    qputenv("XDG_CACHE_HOME", cacheHome().toUtf8());
    qputenv("XDG_DATA_HOME", dataHome().toUtf8());
    qputenv("XDG_RUNTIME_DIR", runtimeDir().toUtf8());
    // No desktop: the keychain library then asks the Secret Service, not KWallet.
    qunsetenv("XDG_CURRENT_DESKTOP");
    qunsetenv("DESKTOP_SESSION");
}

TempHome::~TempHome() {
    for (const char* name : homeVariables) {
        if (m_saved.contains(name)) {
            qputenv(name, m_saved.value(name).toUtf8());
        } else {
            qunsetenv(name);
        }
    }
}

ChildProcess::~ChildProcess() {
    stop();
}

void ChildProcess::start(const QString& program, const QStringList& arguments,
                         const QProcessEnvironment& environment, std::chrono::milliseconds bound) {
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    // A process group of its own, so that stopping it also stops the helpers
    // it forks (kamailio's workers, for one), which would outlive a lone kill.
    m_process.setChildProcessModifier([] { ::setpgid(0, 0); });
    m_process.setReadChannel(QProcess::StandardOutput);
    m_process.start(program, arguments);
    if (!m_process.waitForStarted(int(bound.count()))) {
        fail(program + ": " + m_process.errorString());
    }
}

QByteArray ChildProcess::readLine(std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    while (!m_process.canReadLine()) {
        if (deadline.hasExpired() || m_process.state() != QProcess::Running) {
            fail(m_process.program() + ": no line on standard output; stderr: " +
                 QString::fromUtf8(m_process.readAllStandardError()));
        }
        m_process.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime())));
    }
    return m_process.readLine().trimmed();
}

void ChildProcess::stop(std::chrono::milliseconds grace) {
    if (m_process.state() == QProcess::NotRunning) {
        return;
    }
    const pid_t group = pid_t(m_process.processId());
    ::kill(-group, SIGTERM);
    if (!m_process.waitForFinished(int(grace.count()))) {
        ::kill(-group, SIGKILL);
        m_process.waitForFinished(int(grace.count()));
    }
    // Whatever of the group is still there goes too.
    ::kill(-group, SIGKILL);
}

PrivateBus::PrivateBus() {
    if (!m_dir.isValid()) {
        fail("cannot make a folder for the bus");
    }
    // A session bus without <standard_session_servicedirs/>: nothing is started
    // by activation, so a service is there only when a test runs it.
    const QString config = m_dir.filePath("bus.conf");
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) {
        fail("cannot write " + config);
    }
    file.write("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\""
               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
               "<busconfig>\n"
               "  <type>session</type>\n"
               "  <listen>unix:dir=" +
               m_dir.path().toUtf8() +
               "</listen>\n"
               "  <auth>EXTERNAL</auth>\n"
               "  <policy context=\"default\">\n"
               "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
               "    <allow eavesdrop=\"true\"/>\n"
               "    <allow own=\"*\"/>\n"
               "  </policy>\n"
               "</busconfig>\n");
    file.close();
    m_daemon.start("dbus-daemon", {"--config-file=" + config, "--nofork", "--print-address=1"});
    m_address = QString::fromUtf8(m_daemon.readLine());
    if (m_address.isEmpty()) {
        fail("dbus-daemon gave no address");
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
}

PrivateBus::~PrivateBus() {
    m_daemon.stop();
}

void PrivateBus::waitForName(const QString& name, std::chrono::milliseconds bound) {
    const QString connectionName = "velnor-test-" + name;
    {
        QDBusConnection bus = QDBusConnection::connectToBus(m_address, connectionName);
        if (!bus.isConnected()) {
            fail("cannot connect to the private bus: " + bus.lastError().message());
        }
        QDBusServiceWatcher watcher(name, bus, QDBusServiceWatcher::WatchForRegistration);
        QEventLoop loop;
        QObject::connect(&watcher, &QDBusServiceWatcher::serviceRegistered, &loop,
                         &QEventLoop::quit);
        QTimer::singleShot(bound, &loop, &QEventLoop::quit);
        // Asked after the watcher exists, so that a registration in between is not missed.
        if (!bus.interface()->isServiceRegistered(name).value()) {
            loop.exec();
        }
        const bool owned = bus.interface()->isServiceRegistered(name).value();
        if (!owned) {
            QDBusConnection::disconnectFromBus(connectionName);
            fail(name + " did not appear on the bus within " + QString::number(bound.count()) +
                 " ms");
        }
    }
    QDBusConnection::disconnectFromBus(connectionName);
}

SecretService::SecretService(PrivateBus& bus) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SESSION_BUS_ADDRESS", bus.address());
    m_daemon.start("gnome-keyring-daemon", {"--foreground", "--unlock", "--components=secrets"},
                   environment);
    // The login keyring's password comes on standard input; it must not be empty.
    m_daemon.process().write("test");
    m_daemon.process().closeWriteChannel();
    bus.waitForName("org.freedesktop.secrets");
}

VirtualDisplay::VirtualDisplay() {
    // -displayfd makes the server pick a free display and print its number.
    m_server.start("Xvfb", {"-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "1280x800x24"});
    const QByteArray number = m_server.readLine(std::chrono::seconds(10));
    if (number.isEmpty()) {
        fail("Xvfb gave no display number");
    }
    m_display = ":" + QString::fromLatin1(number);
}

namespace {

QString runOnDisplay(const QString& display, const QString& program, const QStringList& arguments) {
    QProcess tool;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", display);
    tool.setProcessEnvironment(environment);
    tool.start(program, arguments);
    if (!tool.waitForFinished(5000)) {
        tool.kill();
        tool.waitForFinished();
        return {};
    }
    return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
}

} // namespace

WindowManager::WindowManager(const QString& display) : m_display(display) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", display);
    // No session manager; the user's own configuration is not read (a home of the test's).
    m_manager.start("openbox", {"--sm-disable"}, environment);
    // A manager that has taken the display names its check window on the root.
    QDeadlineTimer deadline(std::chrono::seconds(10));
    while (!runOnDisplay(display, "xprop", {"-root", "_NET_SUPPORTING_WM_CHECK"})
                .contains("window id")) {
        if (deadline.hasExpired() || !m_manager.running()) {
            fail("openbox did not take the display " + display);
        }
        QThread::msleep(20);
    }
}

QString WindowManager::activeWindow() const {
    return runOnDisplay(m_display, "xdotool", {"getactivewindow"});
}

#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <chrono>
#include <memory>

// Real services for tests, each private to one test process: its own home
// folders, its own D-Bus session bus, its own Secret Service. Every process is
// started with a time bound and stopped by its PID when its owner goes.

// A fresh HOME with the XDG folders inside it, set in this process's
// environment for as long as the object lives.
class TempHome {
public:
    TempHome();
    ~TempHome();

    QString path() const { return m_dir.path(); }
    QString configHome() const { return path() + "/config"; }
    QString cacheHome() const { return path() + "/cache"; }
    QString dataHome() const { return path() + "/data"; }
    QString runtimeDir() const { return path() + "/runtime"; }

private:
    QTemporaryDir m_dir;
    QProcessEnvironment m_saved;
};

// A child process that is stopped (SIGTERM, then SIGKILL after a grace time)
// when the object goes.
class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Throws std::runtime_error when the program does not start in time.
    void start(const QString& program, const QStringList& arguments,
               const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
               std::chrono::milliseconds bound = std::chrono::seconds(5));
    // Reads one line of standard output, waiting at most the bound; throws when none came.
    QByteArray readLine(std::chrono::milliseconds bound = std::chrono::seconds(5));
    void stop(std::chrono::milliseconds grace = std::chrono::seconds(2));

    QProcess& process() { return m_process; }
    qint64 pid() const { return m_process.processId(); }
    bool running() const { return m_process.state() == QProcess::Running; }

private:
    QProcess m_process;
};

// A D-Bus session bus of its own, with no service activation: only what a test
// starts on it is there. Sets DBUS_SESSION_BUS_ADDRESS for this process.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();

    QString address() const { return m_address; }
    // Waits until a name is owned on this bus; throws when it is not within the bound.
    void waitForName(const QString& name,
                     std::chrono::milliseconds bound = std::chrono::seconds(10));

private:
    QTemporaryDir m_dir;
    ChildProcess m_daemon;
    QString m_address;
};

// gnome-keyring's Secret Service on a private bus, its login keyring unlocked.
class SecretService {
public:
    explicit SecretService(PrivateBus& bus);

    qint64 pid() const { return m_daemon.pid(); }

private:
    ChildProcess m_daemon;
};

// An X server of its own (Xvfb) for a test that needs a real display: input
// through XTEST, windows a desktop would see. DISPLAY is not changed here;
// give display() to the programs that should use it.
class VirtualDisplay {
public:
    VirtualDisplay();

    QString display() const { return m_display; }

private:
    ChildProcess m_server;
    QString m_display;
};

// A window manager (openbox) on a display, as a desktop has one: windows are
// stacked, focused and activated by it, so a test can see which one the user
// would have in front.
class WindowManager {
public:
    // Returns once the manager has taken the display; throws when it did not in time.
    explicit WindowManager(const QString& display);

    // The window the manager has made active (decimal id as xdotool prints it), or empty.
    QString activeWindow() const;

private:
    QString m_display;
    ChildProcess m_manager;
};

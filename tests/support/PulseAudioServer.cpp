#include "PulseAudioServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <stdexcept>

PulseAudioServer::PulseAudioServer(const QStringList& script) {
    if (!m_dir.isValid()) {
        throw std::runtime_error("cannot make a folder for PulseAudio");
    }
    const QString runtime = m_dir.filePath("runtime");
    const QString home = m_dir.filePath("home");
    QDir().mkpath(runtime);
    QDir().mkpath(home);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    m_address = "unix:" + runtime + "/pulse/native";

    QFile file(m_dir.filePath("server.pa"));
    if (!file.open(QIODevice::WriteOnly)) {
        throw std::runtime_error("cannot write the PulseAudio script");
    }
    file.write("load-module module-native-protocol-unix\n");
    for (const QString& line : script) {
        file.write(line.toUtf8() + "\n");
    }
    file.close();

    m_environment = QProcessEnvironment::systemEnvironment();
    m_environment.insert("XDG_RUNTIME_DIR", runtime);
    m_environment.insert("HOME", home);
    m_environment.insert("XDG_CONFIG_HOME", home + "/.config");
    m_environment.insert("PULSE_SERVER", m_address);
    m_environment.remove("DBUS_SESSION_BUS_ADDRESS");
    m_script = file.fileName();
    startDaemon();
    m_hadServer = qEnvironmentVariableIsSet("PULSE_SERVER");
    m_savedServer = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", m_address.toUtf8());
}

void PulseAudioServer::restart() {
    m_daemon.stop();
    startDaemon();
}

void PulseAudioServer::startDaemon() {
    m_daemon.start("pulseaudio",
                   {"-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit",
                    "--realtime=no", "--high-priority=no", "--log-target=stderr",
                    "--use-pid-file=no", "-F", m_script},
                   m_environment);

    QDeadlineTimer deadline(std::chrono::seconds(10));
    for (;;) {
        QProcess probe;
        probe.setProcessEnvironment(m_environment);
        probe.start("pactl", {"info"});
        if (probe.waitForFinished(2000) && probe.exitCode() == 0) {
            break;
        }
        if (deadline.hasExpired() || !m_daemon.running()) {
            throw std::runtime_error("PulseAudio did not come up: " +
                                     m_daemon.process().readAllStandardError().toStdString());
        }
        QThread::msleep(20);
    }
}

PulseAudioServer::~PulseAudioServer() {
    if (m_hadServer) {
        qputenv("PULSE_SERVER", m_savedServer);
    } else {
        qunsetenv("PULSE_SERVER");
    }
    m_daemon.stop();
}

QString PulseAudioServer::pactl(const QStringList& arguments) {
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.start("pactl", arguments);
    if (!process.waitForFinished(5000) || process.exitCode() != 0) {
        throw std::runtime_error("pactl " + arguments.join(' ').toStdString() + ": " +
                                 process.readAllStandardError().toStdString());
    }
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

int PulseAudioServer::loadModule(const QString& name, const QStringList& arguments) {
    QStringList args{"load-module", name};
    args += arguments;
    return pactl(args).toInt();
}

void PulseAudioServer::unloadModule(int index) {
    pactl({"unload-module", QString::number(index)});
}

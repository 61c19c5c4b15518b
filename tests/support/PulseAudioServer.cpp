#include "PulseAudioServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <cmath>
#include <cstring>
#include <stdexcept>

namespace {

PulseAudioServer::Kind chosen = PulseAudioServer::Kind::pulseaudio;

// Waits until `path` exists, for at most the bound.
bool waitForPath(const QString& path, std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    while (!QFile::exists(path)) {
        if (deadline.hasExpired()) {
            return false;
        }
        QThread::msleep(10);
    }
    return true;
}

} // namespace

void PulseAudioServer::use(Kind kind) {
    chosen = kind;
}

PulseAudioServer::Kind PulseAudioServer::kind() {
    return chosen;
}

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
    m_lines = script;

    m_environment = QProcessEnvironment::systemEnvironment();
    m_environment.insert("XDG_RUNTIME_DIR", runtime);
    m_environment.insert("HOME", home);
    m_environment.insert("XDG_CONFIG_HOME", home + "/.config");
    m_environment.insert("PULSE_SERVER", m_address);
    m_environment.remove("DBUS_SESSION_BUS_ADDRESS");
    m_environment.remove("PIPEWIRE_REMOTE");
    // Errors only: nothing reads the daemons' output while they run.
    m_environment.insert("PIPEWIRE_DEBUG", "1");
    m_environment.insert("WIREPLUMBER_DEBUG", "1");
    m_script = file.fileName();
    startDaemon();
    m_hadServer = qEnvironmentVariableIsSet("PULSE_SERVER");
    m_savedServer = qgetenv("PULSE_SERVER");
    qputenv("PULSE_SERVER", m_address.toUtf8());
}

void PulseAudioServer::restart() {
    if (chosen == Kind::pipewire) {
        stopPipeWire();
        startPipeWire();
        return;
    }
    m_daemon.stop();
    startDaemon();
}

void PulseAudioServer::startDaemon() {
    if (chosen == Kind::pipewire) {
        startPipeWire();
        return;
    }
    m_daemon.start("pulseaudio",
                   {"-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit",
                    "--realtime=no", "--high-priority=no", "--log-target=stderr",
                    "--use-pid-file=no", "-F", m_script},
                   m_environment);
    waitForServer(m_daemon);
}

void PulseAudioServer::waitForServer(ChildProcess& daemon) {
    QDeadlineTimer deadline(std::chrono::seconds(10));
    for (;;) {
        QProcess probe;
        probe.setProcessEnvironment(m_environment);
        probe.start("pactl", {"info"});
        if (probe.waitForFinished(2000) && probe.exitCode() == 0) {
            break;
        }
        if (deadline.hasExpired() || !daemon.running()) {
            throw std::runtime_error("the sound server did not come up: " +
                                     daemon.process().readAllStandardError().toStdString());
        }
        QThread::msleep(20);
    }
}

void PulseAudioServer::startPipeWire() {
    const QString runtime = m_environment.value("XDG_RUNTIME_DIR");
    if (!m_bus) {
        // Wireplumber keeps its state on the session bus; this one is the test's alone.
        m_bus = std::make_unique<PrivateBus>();
    }
    m_environment.insert("DBUS_SESSION_BUS_ADDRESS", m_bus->address());
    m_environment.insert("PIPEWIRE_RUNTIME_DIR", runtime);
    m_pipewire.start("pipewire", {}, m_environment);
    if (!waitForPath(runtime + "/pipewire-0", std::chrono::seconds(10))) {
        throw std::runtime_error("pipewire did not come up: " +
                                 m_pipewire.process().readAllStandardError().toStdString());
    }
    m_wireplumber.start("wireplumber", {}, m_environment);
    m_daemon.start("pipewire-pulse", {}, m_environment);
    waitForServer(m_daemon);
    runScript();
}

void PulseAudioServer::stopPipeWire() {
    for (auto& [index, feeder] : m_toneFeeders) {
        feeder->stop(std::chrono::milliseconds(100));
    }
    m_toneFeeders.clear();
    m_daemon.stop();
    m_wireplumber.stop();
    m_pipewire.stop();
}

void PulseAudioServer::runScript() {
    for (const QString& line : m_lines) {
        QStringList words = line.split(' ', Qt::SkipEmptyParts);
        if (words.isEmpty()) {
            continue;
        }
        const QString command = words.takeFirst();
        if (command == "load-module" && !words.isEmpty()) {
            const QString name = words.takeFirst();
            loadModule(name, words);
        } else if (command == "set-default-sink" && words.size() == 1) {
            setDefaultSink(words.first());
        } else if (command == "set-default-source" && words.size() == 1) {
            setDefaultSource(words.first());
        } else {
            throw std::runtime_error("cannot run on PipeWire: " + line.toStdString());
        }
    }
}

int PulseAudioServer::loadSineSource(const QStringList& arguments) {
    QString name = "sine", rate = "48000", frequency = "440";
    for (const QString& argument : arguments) {
        const QString key = argument.section('=', 0, 0);
        const QString value = argument.section('=', 1);
        if (key == "source_name") {
            name = value;
        } else if (key == "rate") {
            rate = value;
        } else if (key == "frequency") {
            frequency = value;
        }
    }
    const QString fifo = m_environment.value("XDG_RUNTIME_DIR") + "/" + name + ".fifo";
    const int index = pactl({"load-module", "module-pipe-source", "source_name=" + name,
                             "file=" + fifo, "format=float32le", "rate=" + rate, "channels=1"})
                          .toInt();
    if (!waitForPath(fifo, std::chrono::seconds(5))) {
        throw std::runtime_error("no pipe for the source " + name.toStdString());
    }
    // sox writes as fast as the pipe takes it, which is the source's own pace.
    auto feeder = std::make_unique<ChildProcess>();
    feeder->start("sox",
                  {"-q", "-n", "-r", rate, "-c", "1", "-b", "32", "-e", "floating-point", "-t",
                   "raw", fifo, "synth", "36000", "sine", frequency, "vol", "0.5"},
                  m_environment);
    m_toneFeeders[index] = std::move(feeder);
    return index;
}

PulseAudioServer::~PulseAudioServer() {
    if (m_hadServer) {
        qputenv("PULSE_SERVER", m_savedServer);
    } else {
        qunsetenv("PULSE_SERVER");
    }
    if (chosen == Kind::pipewire) {
        stopPipeWire();
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
    if (chosen == Kind::pipewire && name == "module-sine-source") {
        return loadSineSource(arguments);
    }
    QStringList args{"load-module", name};
    args += arguments;
    return pactl(args).toInt();
}

void PulseAudioServer::unloadModule(int index) {
    // A tone's feeder goes first: sox waits on a full pipe and would not hear SIGTERM.
    if (auto feeder = m_toneFeeders.find(index); feeder != m_toneFeeders.end()) {
        feeder->second->stop(std::chrono::milliseconds(100));
        m_toneFeeders.erase(feeder);
    }
    pactl({"unload-module", QString::number(index)});
}

void PulseAudioServer::setDefaultSink(const QString& name) {
    pactl({"set-default-sink", name});
    waitForDefault("get-default-sink", name);
}

void PulseAudioServer::setDefaultSource(const QString& name) {
    pactl({"set-default-source", name});
    waitForDefault("get-default-source", name);
}

void PulseAudioServer::waitForDefault(const QString& query, const QString& name) {
    // PipeWire's session manager applies a new default a moment after pactl returns.
    QDeadlineTimer deadline(std::chrono::seconds(5));
    while (pactl({query}) != name) {
        if (deadline.hasExpired()) {
            throw std::runtime_error(query.toStdString() + " did not become " + name.toStdString());
        }
        QThread::msleep(10);
    }
}

std::vector<std::int16_t> PulseAudioServer::record(const QString& source, double seconds,
                                                   const std::function<void()>& meanwhile) {
    ChildProcess recorder;
    recorder.start("parec", {"--device=" + source, "--rate=8000", "--channels=1", "--format=s16le",
                             "--raw", "--latency-msec=20"});
    QByteArray bytes;
    const qsizetype wanted = qsizetype(seconds * 8000) * 2;
    QDeadlineTimer deadline(qint64(seconds * 1000) + 5000);
    while (bytes.size() < wanted && !deadline.hasExpired()) {
        recorder.process().waitForReadyRead(100);
        bytes += recorder.process().readAllStandardOutput();
        if (meanwhile) {
            meanwhile();
        }
    }
    recorder.stop();
    std::vector<std::int16_t> samples(std::size_t(bytes.size() / 2));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * 2);
    return samples;
}

double PulseAudioServer::rms(const std::vector<std::int16_t>& samples) {
    double sum = 0;
    for (std::int16_t s : samples) {
        sum += double(s) * s;
    }
    return samples.empty() ? 0 : std::sqrt(sum / double(samples.size()));
}

#include "PhoneKit.h"

#include <QProcess>

#include <algorithm>

namespace kit {

namespace {

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        throw std::runtime_error("cannot write " + path.toStdString());
}

} // namespace

Agent::Agent(PhoneServer& server, const json& device, const std::string& transport,
             const QString& sourceWav, const std::string& password) {
    const QString home = m_home.path();
    QDir().mkpath(home + "/heard");
    const auto sipPort = freeLoopbackPort();
    const auto controlPort = freeLoopbackPort();
    const auto rtp = freeLoopbackPort();
    writeFile(home + "/config",
              ("poll_method epoll\nsip_listen 127.0.0.1:" + QString::number(sipPort) +
               "\nsip_cafile " + server.caFile() +
               "\ncall_local_timeout 120\ncall_max_calls 4\n"
               "audio_player aubridge,discard\naudio_alert aubridge,discard\n"
               "audio_source aufile," +
               sourceWav + "\nrtp_ports " + QString::number(rtp) + "-" + QString::number(rtp + 1) +
               "\nmodule_path /usr/lib/baresip/modules\n"
               "module g711.so\nmodule aufile.so\nmodule aubridge.so\nmodule sndfile.so\n"
               "snd_path " +
               home +
               "/heard\nmodule_app account.so\nmodule_app menu.so\n"
               "module_app ctrl_tcp.so\nctrl_tcp_listen 127.0.0.1:" +
               QString::number(controlPort) + "\n")
                  .toUtf8());
    const std::string user = device.at("sipUsername").get<std::string>();
    const std::string realm = device.at("realm").get<std::string>();
    std::uint16_t edge = 0;
    for (const auto& e : device.at("edge")) {
        if (e.at("transport") == transport)
            edge = e.at("port").get<std::uint16_t>();
    }
    if (!edge)
        throw std::runtime_error("the device has no " + transport + " edge");
    const std::string secret =
        password.empty() ? device.at("password").get<std::string>() : password;
    const std::string account =
        "<sip:" + user + "@" + realm + ";transport=" + transport + ">;auth_pass=" + secret +
        ";outbound=\"sip:127.0.0.1:" + std::to_string(edge) + ";transport=" + transport +
        "\";regint=600;answermode=manual;audio_codecs=pcmu,pcma\n";
    writeFile(home + "/accounts", QByteArray::fromStdString(account));
    writeFile(home + "/contacts", "");
    m_process.start("stdbuf", {"-oL", "baresip", "-f", home, "-n", "127.0.0.1", "-t", "300"});
    QDeadlineTimer deadline(10s);
    for (;;) {
        m_control.connectToHost("127.0.0.1", controlPort);
        if (m_control.waitForConnected(200))
            break;
        m_control.abort();
        if (deadline.hasExpired() || !m_process.running())
            throw std::runtime_error("baresip's control port does not answer: " + output());
        m_process.process().waitForFinished(20);
    }
}

Agent::~Agent() {
    m_control.abort();
    m_process.stop(500ms);
}

std::string Agent::output() {
    m_output += m_process.process().readAllStandardOutput();
    m_output += m_process.process().readAllStandardError();
    return m_output.right(4000).toStdString();
}

bool Agent::waitRegistered(std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    for (;;) {
        output();
        if (m_output.contains("200 OK"))
            return true;
        if (m_output.contains("403 Forbidden") || m_output.contains("401 Unauthorized") ||
            deadline.hasExpired() || !m_process.running())
            return false;
        m_process.process().waitForReadyRead(50);
    }
}

void Agent::command(const std::string& name, const std::string& params) {
    static int token = 0;
    const std::string text =
        json{{"command", name}, {"params", params}, {"token", std::to_string(++token)}}.dump();
    m_control.write(QByteArray::number(qsizetype(text.size())) + ":" +
                    QByteArray::fromStdString(text) + ",");
    m_control.waitForBytesWritten(2000);
}

void Agent::read(std::chrono::milliseconds bound) {
    if (m_control.bytesAvailable() == 0)
        m_control.waitForReadyRead(int(std::max<qint64>(1, bound.count())));
    m_buffer += m_control.readAll();
    for (;;) {
        const auto colon = m_buffer.indexOf(':');
        if (colon <= 0)
            return;
        const auto length = m_buffer.left(colon).toLongLong();
        if (m_buffer.size() < colon + 1 + length + 1)
            return;
        m_events.push_back(m_buffer.mid(colon + 1, length).toStdString());
        m_buffer.remove(0, colon + 1 + length + 1);
    }
}

json Agent::waitEvent(const std::vector<std::string>& pieces, std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    for (;;) {
        for (; m_seen < m_events.size(); ++m_seen) {
            const auto& event = m_events[m_seen];
            if (std::all_of(pieces.begin(), pieces.end(), [&](const std::string& piece) {
                    return event.find(piece) != std::string::npos;
                })) {
                ++m_seen;
                return json::parse(event, nullptr, false);
            }
        }
        if (deadline.hasExpired()) {
            std::string all;
            for (const auto& e : m_events)
                all += e + "\n";
            throw std::runtime_error("no event with " + pieces.front() + "; saw:\n" + all +
                                     output());
        }
        read(std::chrono::milliseconds(deadline.remainingTime()));
    }
}

std::vector<std::int16_t> Agent::heard() {
    std::vector<std::int16_t> all;
    QDir dir(m_home.path() + "/heard");
    for (const auto& info : dir.entryInfoList({"*-dec.wav"}, QDir::Files, QDir::Time)) {
        QFile file(info.filePath());
        if (file.open(QIODevice::ReadOnly)) {
            const auto samples = wavSamples(file.readAll());
            all.insert(all.end(), samples.begin(), samples.end());
        }
    }
    return all;
}

QString toneWav(const QString& dir, int hz, double seconds) {
    const QString path = dir + "/tone-" + QString::number(hz) + ".wav";
    QProcess sox;
    sox.start("sox", {"-n", "-r", "8000", "-c", "1", "-b", "16", path, "synth",
                      QString::number(seconds), "sine", QString::number(hz), "vol", "0.4"});
    if (!sox.waitForFinished(20000) || sox.exitCode() != 0)
        throw std::runtime_error("sox failed: " + sox.readAllStandardError().toStdString());
    return path;
}

double tonePower(const std::vector<std::int16_t>& samples, double hz) {
    const double coefficient = 2 * std::cos(2 * M_PI * hz / 8000.0);
    double s1 = 0, s2 = 0;
    for (std::int16_t sample : samples) {
        const double s0 = double(sample) + coefficient * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return (s1 * s1 + s2 * s2 - coefficient * s1 * s2) / std::max<size_t>(1, samples.size());
}

double rms(const std::vector<std::int16_t>& samples) {
    double sum = 0;
    for (auto s : samples)
        sum += double(s) * s;
    return std::sqrt(sum / std::max<size_t>(1, samples.size()));
}

std::vector<std::int16_t> wavSamples(const QByteArray& wav) {
    std::vector<std::int16_t> out;
    const auto data = wav.indexOf("data", 12);
    if (!wav.startsWith("RIFF") || data < 0)
        return out;
    for (qsizetype at = data + 8; at + 1 < wav.size(); at += 2)
        out.push_back(std::int16_t(quint8(wav[at]) | (quint8(wav[at + 1]) << 8)));
    return out;
}

} // namespace kit

#include "BaresipFarEnd.h"

#include "Ports.h"
#include "ToneCheck.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>

#include <stdexcept>

namespace interop {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        fail("cannot write " + path.toStdString());
    }
}

// baresip's names of the codecs, and the rate and channels its tone file must
// have: it plays the file without converting it.
struct CodecSetup {
    QByteArray name;
    int rate;
    int channels;
};

CodecSetup setupOf(Codec codec) {
    switch (codec) {
    case Codec::pcmu:
        return {"pcmu", 8000, 1};
    case Codec::pcma:
        return {"pcma", 8000, 1};
    case Codec::g722:
        return {"g722/16000/1", 16000, 1};
    case Codec::opus:
        return {"opus/48000/2", 48000, 2};
    }
    return {"pcmu", 8000, 1};
}

} // namespace

BaresipFarEnd::BaresipFarEnd(const QString& dir, const std::string& user, const Kamailio& kamailio,
                             const TestCertificates& certs, Transport transport, Codec codec)
    : m_user(user) {
    const QString home = dir + "/baresip-" + QString::fromStdString(user);
    m_dumps = home + "/heard";
    QDir().mkpath(m_dumps);
    const CodecSetup setup = setupOf(codec);
    const QString tone = writeToneFile(dir, farEndToneHz, setup.rate, setup.channels);
    const std::uint16_t sipPort = freeLoopbackPort();
    const std::uint16_t controlPort = freeLoopbackPort();
    const std::uint16_t rtpBase = freeLoopbackPort();
    const QByteArray config =
        "poll_method epoll\n"
        "sip_listen 127.0.0.1:" +
        QByteArray::number(sipPort) + "\nsip_cafile " + certs.trustedCa.toUtf8() +
        "\ncall_local_timeout 120\ncall_max_calls 4\n"
        "audio_player aubridge,discard\naudio_alert aubridge,discard\n"
        "audio_source aufile," +
        tone.toUtf8() + "\nrtp_ports " + QByteArray::number(rtpBase) + "-" +
        QByteArray::number(rtpBase + 1000) + "\nsnd_path " + m_dumps.toUtf8() +
        "\nmodule_path /usr/lib/baresip/modules\n"
        "module g711.so\nmodule g722.so\nmodule opus.so\nmodule aufile.so\n"
        "module aubridge.so\nmodule srtp.so\nmodule sndfile.so\n"
        "module_app account.so\nmodule_app menu.so\nmodule_app ctrl_tcp.so\n"
        "ctrl_tcp_listen 127.0.0.1:" +
        QByteArray::number(controlPort) + "\n";
    writeFile(home + "/config", config);
    const bool tls = transport == Transport::tls;
    const QByteArray name = tls ? "tls" : "tcp";
    const QByteArray port = QByteArray::number(tls ? kamailio.tlsPort() : kamailio.tcpPort());
    QByteArray account = "<sip:" + QByteArray::fromStdString(user) +
                         "@127.0.0.1;transport=" + name +
                         ">;auth_pass=" + QByteArray::fromStdString(Kamailio::users().at(user)) +
                         ";outbound=\"sip:127.0.0.1:" + port + ";transport=" + name +
                         "\";regint=600;answermode=auto;audio_codecs=" + setup.name;
    if (tls) {
        account += ";mediaenc=srtp-mand";
    }
    writeFile(home + "/accounts", account + "\n");
    writeFile(home + "/contacts", "");
    m_process.start("stdbuf", {"-oL", "baresip", "-f", home, "-n", "127.0.0.1", "-t", "300"});
    QDeadlineTimer deadline(10s);
    while (!m_control.waitForConnected(100)) {
        if (deadline.hasExpired() || !m_process.running()) {
            fail("baresip " + user + " did not open its control port: " +
                 m_process.process().readAllStandardError().right(2000).toStdString());
        }
        m_control.abort();
        m_control.connectToHost("127.0.0.1", controlPort);
    }
    // It says on its standard output when the registrar took it.
    QByteArray output;
    for (;;) {
        output += m_process.process().readAllStandardOutput();
        if (output.contains("200 OK")) {
            break;
        }
        if (deadline.hasExpired() || !m_process.running()) {
            fail("baresip " + user + " did not register: " + output.toStdString());
        }
        m_process.process().waitForReadyRead(50);
    }
}

BaresipFarEnd::~BaresipFarEnd() {
    m_control.abort();
    // Its orderly exit takes seconds and gives the test nothing.
    m_process.process().kill();
    m_process.process().waitForFinished(2000);
}

void BaresipFarEnd::command(const std::string& name, const std::string& params) {
    static int token = 0;
    const std::string json = "{\"command\":\"" + name + "\",\"params\":\"" + params +
                             "\",\"token\":\"" + std::to_string(++token) + "\"}";
    m_control.write(QByteArray::number(qsizetype(json.size())) + ":" +
                    QByteArray::fromStdString(json) + ",");
    m_control.waitForBytesWritten(2000);
}

void BaresipFarEnd::readEvents(std::chrono::milliseconds bound) {
    if (m_control.bytesAvailable() == 0) {
        m_control.waitForReadyRead(int(bound.count()));
    }
    m_buffer += m_control.readAll();
    // Its console output is not read, but must not fill the pipe and stop it.
    m_process.process().readAllStandardOutput();
    m_process.process().readAllStandardError();
    for (;;) {
        const auto colon = m_buffer.indexOf(':');
        if (colon <= 0) {
            return;
        }
        const auto length = m_buffer.left(colon).toInt();
        if (m_buffer.size() < colon + 1 + length + 1) {
            return;
        }
        m_events.push_back(m_buffer.mid(colon + 1, length).toStdString());
        m_buffer.remove(0, colon + 1 + length + 1);
    }
}

std::string BaresipFarEnd::waitEvent(const std::vector<std::string>& pieces,
                                     std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    for (;;) {
        for (; m_mark < m_events.size(); ++m_mark) {
            bool all = true;
            for (const auto& piece : pieces) {
                all = all && m_events[m_mark].find(piece) != std::string::npos;
            }
            if (all) {
                return m_events[m_mark++];
            }
        }
        if (deadline.hasExpired()) {
            std::string seen;
            for (const auto& event : m_events) {
                seen += event + "\n";
            }
            fail("baresip " + m_user + ": no event with " + pieces.front() + "; saw:\n" + seen);
        }
        readEvents(std::chrono::milliseconds(std::max<qint64>(1, deadline.remainingTime())));
    }
}

void BaresipFarEnd::expectCall(bool) {
    // Each call's dump is the only one in the folder.
    QDir dumps(m_dumps);
    for (const QString& name : dumps.entryList(QDir::Files)) {
        dumps.remove(name);
    }
}

void BaresipFarEnd::dial(const std::string& user) {
    expectCall(false);
    command("dial", "sip:" + user + "@127.0.0.1");
}

void BaresipFarEnd::waitAnswered(std::chrono::milliseconds bound) {
    waitEvent({"CALL_ESTABLISHED"}, bound);
}

void BaresipFarEnd::waitDtmf(char digit, std::chrono::milliseconds bound) {
    waitEvent({"CALL_DTMF_START", std::string("\"param\":\"") + digit + "\""}, bound);
}

void BaresipFarEnd::waitHeld(std::chrono::milliseconds bound) {
    // A new offer from the engine in the running call; the engine's own
    // states say which direction it asked for.
    waitEvent({"CALL_REMOTE_SDP", "offer"}, bound);
}

void BaresipFarEnd::waitResumed(std::chrono::milliseconds bound) {
    waitEvent({"CALL_REMOTE_SDP", "offer"}, bound);
}

void BaresipFarEnd::waitEnded(std::chrono::milliseconds bound) {
    waitEvent({"CALL_CLOSED"}, bound);
}

void BaresipFarEnd::waitEstablishedFrom(const std::string& user, std::chrono::milliseconds bound) {
    waitEvent({"CALL_ESTABLISHED", "sip:" + user + "@"}, bound);
}

double BaresipFarEnd::heardToneMarginDb(int hz, std::chrono::milliseconds bound) {
    // The decoder's dump ("...-dec.wav") is complete once baresip closed it.
    QDeadlineTimer deadline(bound);
    for (;;) {
        const QStringList found = QDir(m_dumps).entryList({"*dec.wav"}, QDir::Files);
        if (!found.isEmpty()) {
            if (auto recording = readRecording(m_dumps + "/" + found.front())) {
                return toneMarginDb(middle(*recording, 1.0), hz);
            }
        }
        if (deadline.hasExpired()) {
            fail("baresip " + m_user + " left no readable recording of the call in " +
                 m_dumps.toStdString());
        }
        readEvents(100ms); // the pace of a bounded poll: events rarely come now
    }
}

} // namespace interop

#include "LinphoneFarEnd.h"

#include "Ports.h"
#include "ToneCheck.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstdio>
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

// The name linphonec lists the codec under.
QByteArray mimeOf(Codec codec) {
    switch (codec) {
    case Codec::pcmu:
        return "PCMU";
    case Codec::pcma:
        return "PCMA";
    case Codec::g722:
        return "G722";
    case Codec::opus:
        return "opus";
    }
    return "PCMU";
}

} // namespace

LinphoneFarEnd::LinphoneFarEnd(const QString& dir, const std::string& user,
                               const Kamailio& kamailio, const TestCertificates& certs,
                               Transport transport, Codec codec)
    : m_user(user), m_home(dir + "/linphone-" + QString::fromStdString(user)) {
    // Its call log goes to a database under the home folder.
    QDir().mkpath(m_home + "/.local/share/linphone");
    const bool tls = transport == Transport::tls;
    const QByteArray listenPort = QByteArray::number(freeLoopbackPort());
    const QByteArray name = tls ? "tls" : "tcp";
    const QByteArray proxyPort = QByteArray::number(tls ? kamailio.tlsPort() : kamailio.tcpPort());
    QByteArray config = "[sip]\n"
                        "sip_port=-1\n"
                        "sip_tcp_port=" +
                        (tls ? QByteArray("-1") : listenPort) +
                        "\nsip_tls_port=" + (tls ? listenPort : QByteArray("-1")) +
                        "\nbind_address=127.0.0.1\n"
                        "use_ipv6=0\n"
                        "default_proxy=0\n"
                        "root_ca=" +
                        certs.trustedCa.toUtf8() +
                        "\nverify_server_certs=1\n"
                        // Its TLS library matches the name only against DNS names, and
                        // the test certificate names the address 127.0.0.1: the chain is
                        // still checked against the test authority.
                        "verify_server_cn=0\n";
    if (tls) {
        config += "media_encryption=srtp\nmedia_encryption_mandatory=1\n";
    }
    config += "[rtp]\naudio_rtp_port=" + QByteArray::number(freeLoopbackPort()) +
              "\n[sound]\necho_cancellation=0\n"
              "[video]\nenabled=0\ncapture=0\ndisplay=0\nautomatically_initiate=0\n"
              "automatically_accept=0\n"
              "[proxy_0]\nreg_proxy=<sip:127.0.0.1:" +
              proxyPort + ";transport=" + name +
              ">\nreg_identity=sip:" + QByteArray::fromStdString(user) +
              "@127.0.0.1\nreg_expires=600\nreg_sendregister=1\npublish=0\n"
              "[auth_info_0]\nusername=" +
              QByteArray::fromStdString(user) +
              "\npasswd=" + QByteArray::fromStdString(Kamailio::users().at(user)) +
              "\nrealm=127.0.0.1\n";
    writeFile(m_home + "/linphonerc", config);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", m_home);
    // VELNOR_TEST_LINPHONE_LOG: its library's own log, printed when it is stopped.
    QStringList arguments = {"-c", m_home + "/linphonerc", "-d", "0"};
    if (!qgetenv("VELNOR_TEST_LINPHONE_LOG").isEmpty()) {
        arguments =
            QStringList{"-c", m_home + "/linphonerc", "-d", "6", "-l", m_home + "/linphone.log"};
    }
    m_process.start("linphonec", arguments, environment);

    command("soundcard use files");
    waitText("Using wav files", 10s);
    command("autoanswer enable");
    waitText("Auto answer enabled", 5s);
    command("play " + writeToneFile(dir, farEndToneHz).toUtf8());
    chooseCodec(codec);

    // Registered when the status names the identity.
    QDeadlineTimer deadline(15s);
    for (;;) {
        command("status register");
        waitText("registered", 5s);
        if (m_output.mid(m_mark, 1) == ",") {
            break;
        }
        if (deadline.hasExpired()) {
            QFile log(m_home + "/linphone.log");
            log.open(QIODevice::ReadOnly);
            fail("linphonec " + user + " did not register: " + m_output.right(2000).toStdString() +
                 "\n" + log.readAll().right(30000).replace(char(0), "").toStdString());
        }
        readOutput(200ms); // the pace of a bounded poll: it says nothing by itself
    }
}

LinphoneFarEnd::~LinphoneFarEnd() {
    if (!qgetenv("VELNOR_TEST_LINPHONE_LOG").isEmpty()) {
        readOutput(0ms);
        QFile log(m_home + "/linphone.log");
        log.open(QIODevice::ReadOnly);
        std::fprintf(stderr, "linphonec %s said:\n%s\nIts log:\n%s\n", m_user.c_str(),
                     QByteArray(m_output).replace(char(0), "").constData(),
                     log.readAll().right(200000).replace(char(0), "").constData());
    }
    // Its orderly exit writes its settings back; the test needs none of that.
    m_process.process().kill();
    m_process.process().waitForFinished(2000);
}

void LinphoneFarEnd::command(const QByteArray& line) {
    m_process.process().write(line + "\n");
    m_process.process().waitForBytesWritten(2000);
}

void LinphoneFarEnd::readOutput(std::chrono::milliseconds bound) {
    auto& process = m_process.process();
    if (process.bytesAvailable() == 0) {
        process.waitForReadyRead(int(bound.count()));
    }
    m_output += process.readAllStandardOutput();
    // Its library's messages go to standard error; only keep the pipe drained.
    process.readAllStandardError();
}

QByteArray LinphoneFarEnd::waitText(const QByteArray& text, std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    for (;;) {
        const auto at = m_output.indexOf(text, m_mark);
        if (at >= 0) {
            const QByteArray between = m_output.mid(m_mark, at + text.size() - m_mark);
            m_mark = at + text.size();
            return between;
        }
        if (deadline.hasExpired() || !m_process.running()) {
            fail("linphonec " + m_user + ": no \"" + text.toStdString() + "\"; it said:\n" +
                 m_output.mid(m_mark).right(3000).toStdString());
        }
        readOutput(std::chrono::milliseconds(std::max<qint64>(1, deadline.remainingTime())));
    }
}

void LinphoneFarEnd::chooseCodec(Codec codec) {
    static const QRegularExpression line(R"(^\s*(\d+): (\S+) \((\d+)\) (enabled|disabled)\s*$)",
                                         QRegularExpression::MultilineOption);
    auto list = [&] {
        command("codec list");
        // A second command marks where the list ends.
        command("ports");
        return QString::fromUtf8(waitText("sip port", 5s));
    };
    const QByteArray wanted = mimeOf(codec);
    auto matches = line.globalMatch(list());
    bool found = false;
    while (matches.hasNext()) {
        const auto match = matches.next();
        const bool want = match.captured(2).toUtf8() == wanted && !found;
        found = found || want;
        command((want ? "codec enable " : "codec disable ") + match.captured(1).toUtf8());
    }
    if (!found) {
        fail("linphonec offers no " + wanted.toStdString());
    }
    // What it says now is what it will offer.
    const QString now = list();
    auto check = line.globalMatch(now);
    while (check.hasNext()) {
        const auto match = check.next();
        if ((match.captured(4) == "enabled") != (match.captured(2).toUtf8() == wanted)) {
            fail("linphonec did not take the codec choice:\n" + now.toStdString());
        }
    }
}

void LinphoneFarEnd::expectCall(bool) {
    m_recording = m_home + "/heard-" + QString::number(++m_calls) + ".wav";
    command("record " + m_recording.toUtf8());
}

void LinphoneFarEnd::dial(const std::string& user) {
    expectCall(false);
    command("call sip:" + QByteArray::fromStdString(user) + "@127.0.0.1");
}

void LinphoneFarEnd::waitAnswered(std::chrono::milliseconds bound) {
    waitText(" connected.", bound);
}

void LinphoneFarEnd::waitDtmf(char digit, std::chrono::milliseconds bound) {
    waitText(QByteArray("Receiving tone ") + digit, bound);
}

void LinphoneFarEnd::waitHeld(std::chrono::milliseconds bound) {
    waitText("has been paused by", bound);
}

void LinphoneFarEnd::waitResumed(std::chrono::milliseconds bound) {
    waitText("Media streams established", bound);
}

void LinphoneFarEnd::waitEnded(std::chrono::milliseconds bound) {
    waitText(" ended (", bound);
}

double LinphoneFarEnd::heardToneMarginDb(int hz, std::chrono::milliseconds bound) {
    // The recording gets its header when the call ends.
    QDeadlineTimer deadline(bound);
    for (;;) {
        if (auto recording = readRecording(m_recording)) {
            return toneMarginDb(middle(*recording, 1.0), hz);
        }
        if (deadline.hasExpired()) {
            fail("linphonec " + m_user + " left no readable recording in " +
                 m_recording.toStdString() + " (" + std::to_string(QFileInfo(m_recording).size()) +
                 " bytes) it said:\n" + m_output.right(1500).toStdString());
        }
        readOutput(100ms); // the pace of a bounded poll: it says nothing about the file
    }
}

} // namespace interop

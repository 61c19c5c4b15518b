#include "PhoneSystem.h"

#include "Bencode.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkDatagram>
#include <QProcess>
#include <QRandomGenerator>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <set>

namespace rzdev {

namespace {

constexpr int startBoundMs = 15000;

bool bindable(int type, quint16 port) {
    const int fd = ::socket(AF_INET, type, 0);
    if (fd < 0)
        return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool ok = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return ok;
}

// A loopback port free for TCP and UDP, with the three after it free for UDP
// (RTCP, and sipp's second media port two above) and the one after it for TCP
// (baresip's TLS), from 10000-19999: below media ports and the kernel's
// ephemeral range.
quint16 freePort() {
    static std::set<quint16> given;
    static int next = 4 * int(QRandomGenerator::global()->bounded(2500));
    for (int attempt = 0; attempt < 2500; ++attempt) {
        const auto port = quint16(10000 + next);
        next = (next + 4) % 10000;
        bool free = !given.contains(port) && bindable(SOCK_STREAM, port) &&
                    bindable(SOCK_STREAM, quint16(port + 1));
        for (int i = 0; free && i < 4; ++i)
            free = bindable(SOCK_DGRAM, quint16(port + i));
        if (!free)
            continue;
        given.insert(port);
        return port;
    }
    return 0;
}

bool writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

bool run(const QString& program, const QStringList& arguments, const QString& dir, QString* error) {
    QProcess process;
    process.setWorkingDirectory(dir);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(20000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        *error = program + QStringLiteral(" failed: ") + process.errorString() + ' ' +
                 QString::fromUtf8(process.readAll().right(800));
        return false;
    }
    return true;
}

// The answering far end of the echo test: rings, answers with one audio line
// whose packets sipp sends back (-rtp_echo), takes re-INVITEs (a hold or a
// resume: it sends back only what reaches it, so a held call is silent both
// ways) and the BYE.
const char* echoScenario = R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="echo test">
  <recv request="INVITE" rrs="true"/>
  <send><![CDATA[
SIP/2.0 180 Ringing
[last_Via:]
[last_From:]
[last_To:];tag=[pid]echo[call_number]
[last_Call-ID:]
[last_CSeq:]
[last_Record-Route:]
Contact: <sip:echo@[local_ip]:[local_port];transport=[transport]>
Content-Length: 0

]]></send>
  <send><![CDATA[
SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:];tag=[pid]echo[call_number]
[last_Call-ID:]
[last_CSeq:]
[last_Record-Route:]
Contact: <sip:echo@[local_ip]:[local_port];transport=[transport]>
Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 1 IN IP4 [local_ip]
s=-
c=IN IP4 [local_ip]
t=0 0
m=audio [media_port] RTP/AVP 0 8 101
a=rtpmap:0 PCMU/8000
a=rtpmap:8 PCMA/8000
a=rtpmap:101 telephone-event/8000
]]></send>
  <recv request="ACK"/>
  <label id="1"/>
  <recv request="INVITE" optional="true" next="2"/>
  <recv request="BYE"/>
  <send next="3"><![CDATA[
SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:]
[last_Call-ID:]
[last_CSeq:]
Content-Length: 0

]]></send>
  <label id="2"/>
  <send><![CDATA[
SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:]
[last_Call-ID:]
[last_CSeq:]
[last_Record-Route:]
Contact: <sip:echo@[local_ip]:[local_port];transport=[transport]>
Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 [cseq] IN IP4 [local_ip]
s=-
c=IN IP4 [local_ip]
t=0 0
m=audio [media_port] RTP/AVP 0 8 101
a=rtpmap:0 PCMU/8000
a=rtpmap:8 PCMA/8000
a=rtpmap:101 telephone-event/8000
]]></send>
  <recv request="ACK" next="1"/>
  <label id="3"/>
</scenario>
)";

// A colleague who is on another call: every INVITE gets 486.
const char* busyScenario = R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="busy">
  <recv request="INVITE"/>
  <send><![CDATA[
SIP/2.0 486 Busy Here
[last_Via:]
[last_From:]
[last_To:];tag=[pid]busy[call_number]
[last_Call-ID:]
[last_CSeq:]
Content-Length: 0

]]></send>
  <recv request="ACK"/>
</scenario>
)";

} // namespace

PhoneSystem::PhoneSystem(PhoneOptions options, QObject* parent)
    : QObject(parent), m_options(std::move(options)) {
    for (Daemon* d :
         {&m_kamailio, &m_rtpengine, &m_colleaguesProcess, &m_recorderProcess, &m_echo, &m_busy}) {
        d->setParent(this);
        connect(d, &Daemon::exited, this, [this, d](int) {
            if (!m_ready && !(d == &m_kamailio && m_registrarDown))
                emit failed(d->name() + QStringLiteral(" exited: ") +
                            QString::fromUtf8(d->output().right(1500)));
        });
    }
    // baresip says "200 OK" on its output when an account has registered;
    // kamailio's report is what counts, this only shows a stuck start.
}

PhoneSystem::~PhoneSystem() {
    stop();
}

bool PhoneSystem::prepare(QString* error) {
    QDir().mkpath(m_options.stateDir);
    for (const char* sub : {"run", "recordings", "colleagues", "voicemail"})
        QDir().mkpath(m_options.stateDir + '/' + QLatin1String(sub));
    if (!makeCertificates(error) || !makeSounds(error))
        return false;
    for (quint16* port : {&m_tcpPort, &m_tlsPort, &m_ngPort, &m_echoPort, &m_echoMediaPort,
                          &m_busyPort, &m_busyMediaPort, &m_colleaguesSip, &m_colleaguesControlPort,
                          &m_recorderSip, &m_recorderControlPort}) {
        *port = freePort();
        if (!*port) {
            *error = QStringLiteral("no free loopback port");
            return false;
        }
    }
    // rtpengine takes its media ports from a block of its own.
    m_rtpMin = quint16(22000 + 400 * QRandomGenerator::global()->bounded(20));
    return writeKamailioConfig(error);
}

bool PhoneSystem::makeCertificates(QString* error) {
    const QString dir = m_options.stateDir;
    if (QFile::exists(dir + "/server.pem") && QFile::exists(dir + "/ca.pem"))
        return true;
    writeFile(dir + "/server.ext",
              "subjectAltName=IP:127.0.0.1,DNS:localhost\nbasicConstraints=CA:FALSE\n");
    const QStringList ec = {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"};
    return run("openssl",
               QStringList{"req", "-x509"} + ec +
                   QStringList{"-keyout", "ca.key", "-out", "ca.pem", "-days", "3650", "-subj",
                               "/CN=rz-devserver test CA"},
               dir, error) &&
           run("openssl",
               QStringList{"req"} + ec +
                   QStringList{"-keyout", "server.key", "-out", "server.csr", "-subj",
                               "/CN=127.0.0.1"},
               dir, error) &&
           run("openssl",
               {"x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
                "-CAcreateserial", "-out", "server.pem", "-days", "825", "-extfile", "server.ext"},
               dir, error);
}

bool PhoneSystem::makeSounds(QString* error) {
    const QString dir = m_options.stateDir;
    // The parties play files without converting them: 8 kHz mono, as G.711 is.
    const QStringList pcm = {"-r", "8000", "-c", "1", "-b", "16"};
    if (!QFile::exists(dir + "/colleague.wav")) {
        if (!run("espeak-ng",
                 {"-w", "greeting.wav", "-s", "150",
                  "Hello, this is the velnor demo company. Thanks for calling. "
                  "You are talking to a colleague who is a computer. Here is some music."},
                 dir, error) ||
            !run("sox", QStringList{"greeting.wav"} + pcm + QStringList{"greeting8k.wav"}, dir,
                 error) ||
            !run("sox",
                 QStringList{"-n"} + pcm +
                     QStringList{"tune.wav", "synth", "0.4", "pluck", "C4", "pluck", "E4", "pluck",
                                 "G4", "vol", "0.5", "pad", "0", "0.2", "repeat", "90"},
                 dir, error) ||
            !run("sox", QStringList{"greeting8k.wav", "tune.wav", "colleague.wav"}, dir, error))
            return false;
    }
    if (!QFile::exists(dir + "/voicemail.wav")) {
        if (!run("espeak-ng",
                 {"-w", "vm-greeting.wav", "-s", "150",
                  "Nobody can take your call. Please leave a message after the tone."},
                 dir, error) ||
            !run("sox", QStringList{"vm-greeting.wav"} + pcm + QStringList{"vm8k.wav"}, dir,
                 error) ||
            !run("sox",
                 QStringList{"-n"} + pcm +
                     QStringList{"beep.wav", "synth", "0.5", "sine", "1000", "vol", "0.4", "pad",
                                 "0", "120"},
                 dir, error) ||
            !run("sox", QStringList{"vm8k.wav", "beep.wav", "voicemail.wav"}, dir, error))
            return false;
    }
    return true;
}

bool PhoneSystem::writeKamailioConfig(QString* error) {
    QFile templ(QStringLiteral(":/rzdev/kamailio.cfg.in"));
    if (!templ.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("the kamailio template is missing from the build");
        return false;
    }
    const QString dir = m_options.stateDir;
    if (!writeFile(dir + "/tls.cfg",
                   ("[server:default]\nmethod = TLSv1.2+\nverify_certificate = no\n"
                    "require_certificate = no\nprivate_key = " +
                    dir + "/server.key\ncertificate = " + dir +
                    "/server.pem\n\n[client:default]\nmethod = TLSv1.2+\n"
                    "verify_certificate = no\nrequire_certificate = no\n")
                       .toUtf8())) {
        *error = QStringLiteral("cannot write ") + dir + "/tls.cfg";
        return false;
    }
    QByteArray config = templ.readAll();
    const QByteArray debug = qgetenv("RZ_PHONE_LOG") == "1" ? "2" : "-1";
    const std::pair<const char*, QByteArray> values[] = {
        {"@DEBUG@", debug},
        {"@TCP_PORT@", QByteArray::number(m_tcpPort)},
        {"@TLS_PORT@", QByteArray::number(m_tlsPort)},
        {"@REALM@", QByteArray::fromStdString(m_options.realm)},
        {"@TLS_CONFIG@", (dir + "/tls.cfg").toUtf8()},
        {"@BASE_URL@",
         "http://127.0.0.1:" + QByteArray::number(m_options.httpPort) + "/_control/phone"},
        {"@NG_PORT@", QByteArray::number(m_ngPort)},
        {"@RTPENGINE_FLAGS@", "replace-origin replace-session-connection"},
    };
    for (const auto& [name, value] : values)
        config.replace(name, value);
    if (!writeFile(dir + "/kamailio.cfg", config)) {
        *error = QStringLiteral("cannot write ") + dir + "/kamailio.cfg";
        return false;
    }
    return true;
}

void PhoneSystem::start(const std::vector<PartyAccount>& parties) {
    m_parties = parties;
    m_startedMs = QDateTime::currentMSecsSinceEpoch();
    const QString dir = m_options.stateDir;
    m_rtpengine.start("rtpengine",
                      {"--config-file=none", "--foreground", "--table=-1", "--interface=127.0.0.1",
                       "--listen-ng=127.0.0.1:" + QString::number(m_ngPort),
                       "--port-min=" + QString::number(m_rtpMin),
                       "--port-max=" + QString::number(m_rtpMin + 399), "--log-stderr",
                       "--log-level=" + QString(qgetenv("RZ_PHONE_LOG") == "1" ? "6" : "3"),
                       "--no-fallback", "--delete-delay=0"},
                      dir);
    startKamailio();
    // The echo offers a port of the lossy path, which passes its media on.
    m_echoPath = std::make_unique<LossyPath>(m_echoMediaPort);
    if (!m_echoPath->listening()) {
        emit failed(QStringLiteral("cannot listen for the echo's media"));
        return;
    }
    startSipp(m_echo,
              QString::fromUtf8(echoScenario)
                  .replace(QStringLiteral("m=audio [media_port]"),
                           QStringLiteral("m=audio %1").arg(m_echoPath->port())),
              m_echoPort, m_echoMediaPort);
    startSipp(m_busy, busyScenario, m_busyPort, m_busyMediaPort);
    startRecorder();
    // The colleagues register as soon as the registrar listens.
    probe(m_tcpPort, "kamailio");
    probe(m_echoPort, "echo");
    probe(m_busyPort, "busy");
    // rtpengine is ready when it answers a ping on its control port.
    auto* ng = new QUdpSocket(this);
    auto* pinger = new QTimer(this);
    pinger->setInterval(20);
    connect(pinger, &QTimer::timeout, this, [this, ng, pinger] {
        if (QDateTime::currentMSecsSinceEpoch() - m_startedMs > startBoundMs) {
            pinger->stop();
            emit failed(QStringLiteral("rtpengine does not answer: ") +
                        QString::fromUtf8(m_rtpengine.output().right(1500)));
            return;
        }
        ng->writeDatagram("rz1 d7:command4:pinge", QHostAddress::LocalHost, m_ngPort);
    });
    connect(ng, &QUdpSocket::readyRead, this, [this, ng, pinger] {
        while (ng->hasPendingDatagrams()) {
            const QByteArray reply = ng->receiveDatagram().data();
            if (reply.contains("pong") && !m_listening.contains("rtpengine")) {
                pinger->stop();
                m_listening.insert("rtpengine");
                checkReady();
            }
        }
    });
    pinger->start();
}

void PhoneSystem::startKamailio() {
    const QString dir = m_options.stateDir;
    m_kamailioUp = false;
    m_kamailio.start(
        "kamailio",
        {"-f", dir + "/kamailio.cfg", "-DD", "-E", "-m", "48", "-M", "8", "-Y", dir + "/run"}, dir);
}

void PhoneSystem::startSipp(Daemon& daemon, const QString& scenario, quint16 port,
                            quint16 mediaPort) {
    const QString dir = m_options.stateDir + "/run";
    const QString file = dir + '/' + daemon.name().section(' ', 1) + ".xml";
    writeFile(file, scenario.toUtf8());
    daemon.start("sipp",
                 {"-t", "t1", "-sf", file, "-i", "127.0.0.1", "-p", QString::number(port), "-mp",
                  QString::number(mediaPort), "-rtp_echo", "-nostdin", "-max_socket", "4000",
                  "-deadcall_wait", "1000"},
                 dir);
}

QString PhoneSystem::baresipConfig(const QString& home, quint16 sipPort, quint16 controlPort,
                                   const QString& source, bool record) {
    const quint16 rtp = quint16(30000 + 200 * QRandomGenerator::global()->bounded(12));
    QString config = "poll_method epoll\n"
                     "sip_listen 127.0.0.1:" +
                     QString::number(sipPort) + "\nsip_cafile " + caFile() +
                     "\ncall_local_timeout 120\ncall_max_calls 16\n"
                     "audio_player aubridge,discard\naudio_alert aubridge,discard\n"
                     "audio_source aufile," +
                     source + "\nrtp_ports " + QString::number(rtp) + "-" +
                     QString::number(rtp + 199) +
                     "\nmodule_path /usr/lib/baresip/modules\n"
                     "module g711.so\nmodule aufile.so\nmodule aubridge.so\n";
    if (record) {
        config += "module sndfile.so\nsnd_path " + recordingsDir() + "\n";
    }
    config += "module_app account.so\nmodule_app menu.so\nmodule_app ctrl_tcp.so\n"
              "ctrl_tcp_listen 127.0.0.1:" +
              QString::number(controlPort) + "\n";
    writeFile(home + "/config", config.toUtf8());
    writeFile(home + "/contacts", "");
    return home;
}

void PhoneSystem::startColleagues() {
    const QString home = m_options.stateDir + "/colleagues";
    baresipConfig(home, m_colleaguesSip, m_colleaguesControlPort,
                  m_options.stateDir + "/colleague.wav", false);
    QByteArray accounts;
    const QByteArray outbound = "sip:127.0.0.1:" + QByteArray::number(m_tcpPort) + ";transport=tcp";
    for (const auto& p : m_parties) {
        const QByteArray user = QByteArray::fromStdString(p.sipUser);
        accounts += "<sip:" + user + "@" + QByteArray::fromStdString(m_options.realm) +
                    ";transport=tcp>;auth_user=" + user +
                    ";auth_pass=" + QByteArray::fromStdString(p.password) + ";outbound=\"" +
                    outbound + "\";regint=600;answermode=manual;audio_codecs=pcmu,pcma\n";
    }
    writeFile(home + "/accounts", accounts);
    m_colleaguesControl = startBaresip(m_colleaguesProcess, home, QStringLiteral("colleagues"),
                                       m_colleaguesControlPort, &PhoneSystem::colleagueEvent);
}

void PhoneSystem::startRecorder() {
    const QString home = m_options.stateDir + "/voicemail";
    baresipConfig(home, m_recorderSip, m_recorderControlPort, m_options.stateDir + "/voicemail.wav",
                  true);
    writeFile(home + "/accounts",
              "<sip:voicemail@127.0.0.1:" + QByteArray::number(m_recorderSip) +
                  ";transport=tcp>;regint=0;answermode=auto;audio_codecs=pcmu,pcma\n");
    m_recorderControl = startBaresip(m_recorderProcess, home, QStringLiteral("voicemail"),
                                     m_recorderControlPort, &PhoneSystem::recorderEvent);
}

std::unique_ptr<BaresipControl>
PhoneSystem::startBaresip(Daemon& daemon, const QString& home, const QString& name,
                          quint16 controlPort, void (PhoneSystem::*events)(const Json&)) {
    // Without Nagle's algorithm on its SIP connection, as a desk phone behaves.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (QFileInfo::exists(QStringLiteral(RZDEV_NODELAY_PRELOAD))) {
        const QString preload = environment.value(QStringLiteral("LD_PRELOAD"));
        environment.insert(QStringLiteral("LD_PRELOAD"),
                           preload.isEmpty() ? QStringLiteral(RZDEV_NODELAY_PRELOAD)
                                             : QStringLiteral(RZDEV_NODELAY_PRELOAD " ") + preload);
    } else {
        std::fprintf(stderr, "rz-devserver: %s is missing; %s keeps Nagle's algorithm\n",
                     RZDEV_NODELAY_PRELOAD, qPrintable(name));
    }
    daemon.setEnvironment(environment);
    daemon.start("baresip", {"-f", home, "-n", "127.0.0.1", "-t", "86400"}, home);
    auto control = std::make_unique<BaresipControl>(name, controlPort);
    connect(control.get(), &BaresipControl::event, this, events);
    connect(control.get(), &BaresipControl::failed, this, &PhoneSystem::failed);
    connect(control.get(), &BaresipControl::ready, this, [this, name] {
        m_listening.insert(name.toStdString());
        checkReady();
    });
    control->connectWithin(startBoundMs);
    return control;
}

void PhoneSystem::probe(quint16 port, const char* what) {
    auto* socket = new QTcpSocket(this);
    const std::string name = what;
    auto attempt = [socket, port] { socket->connectToHost(QStringLiteral("127.0.0.1"), port); };
    connect(socket, &QTcpSocket::connected, this, [this, socket, name] {
        socket->abort();
        socket->deleteLater();
        m_listening.insert(name);
        if (name == "kamailio") {
            m_kamailioUp = true;
            if (!m_colleaguesProcess.running())
                startColleagues();
        }
        checkReady();
    });
    connect(socket, &QTcpSocket::errorOccurred, this, [this, socket, attempt, name] {
        if (socket->state() == QAbstractSocket::ConnectedState)
            return;
        socket->abort();
        if (QDateTime::currentMSecsSinceEpoch() - m_startedMs > startBoundMs) {
            socket->deleteLater();
            emit failed(QString::fromStdString(name) + QStringLiteral(" does not listen"));
            return;
        }
        QTimer::singleShot(15, socket, attempt);
    });
    attempt();
}

void PhoneSystem::partyRegistered(const std::string& sipUser) {
    m_registered.insert(sipUser);
    checkReady();
}

void PhoneSystem::checkReady() {
    if (m_ready)
        return;
    for (const char* part : {"kamailio", "rtpengine", "echo", "busy", "colleagues", "voicemail"}) {
        if (!m_listening.contains(part))
            return;
    }
    for (const auto& p : m_parties) {
        if (!m_registered.contains(p.sipUser))
            return;
    }
    m_ready = true;
    m_readyAfterMs = QDateTime::currentMSecsSinceEpoch() - m_startedMs;
    emit ready();
}

void PhoneSystem::setRegistrarDown(bool down) {
    if (down == m_registrarDown)
        return;
    m_registrarDown = down;
    if (down) {
        m_kamailio.stop();
        m_kamailioUp = false;
        m_listening.erase("kamailio");
        return;
    }
    // A fresh registrar knows no one: the colleagues start again and register anew.
    m_startedMs = QDateTime::currentMSecsSinceEpoch();
    m_colleaguesControl.reset();
    m_colleaguesProcess.stop(300);
    m_listening.erase("colleagues");
    m_registered.clear();
    m_ready = false;
    startKamailio();
    probe(m_tcpPort, "kamailio");
}

void PhoneSystem::stop() {
    m_colleaguesControl.reset();
    m_recorderControl.reset();
    for (Daemon* d :
         {&m_colleaguesProcess, &m_recorderProcess, &m_echo, &m_busy, &m_kamailio, &m_rtpengine}) {
        d->stop(300);
    }
    m_echoPath.reset();
}

void PhoneSystem::queryRelay(const std::string& sipCallId, std::function<void(const Json&)> done) {
    if (!m_ng) {
        m_ng = new QUdpSocket(this);
        connect(m_ng, &QUdpSocket::readyRead, this, [this] {
            while (m_ng->hasPendingDatagrams()) {
                const QByteArray reply = m_ng->receiveDatagram().data();
                const auto space = reply.indexOf(' ');
                if (space <= 0)
                    continue;
                const auto it = m_queries.find(reply.left(space));
                if (it == m_queries.end())
                    continue;
                auto callback = std::move(it->second);
                m_queries.erase(it);
                if (const auto answer = bdecode(reply.mid(space + 1));
                    answer && answer->is_object())
                    callback(*answer);
            }
        });
    }
    // An answer that never comes leaves no callback behind for long.
    if (m_queries.size() > 64)
        m_queries.clear();
    const QByteArray cookie = "q" + QByteArray::number(++m_cookie);
    m_queries[cookie] = std::move(done);
    m_ng->writeDatagram(cookie + ' ' + bencode(Json{{"command", "query"}, {"call-id", sipCallId}}),
                        QHostAddress::LocalHost, m_ngPort);
}

std::string PhoneSystem::echoContact() const {
    return "sip:999@127.0.0.1:" + std::to_string(m_echoPort) + ";transport=tcp";
}

std::string PhoneSystem::busyContact() const {
    return "sip:busy@127.0.0.1:" + std::to_string(m_busyPort) + ";transport=tcp";
}

std::string PhoneSystem::recorderUri() const {
    return "sip:voicemail@127.0.0.1:" + std::to_string(m_recorderSip) + ";transport=tcp";
}

std::vector<qint64> PhoneSystem::pids() const {
    std::vector<qint64> out;
    for (const Daemon* d :
         {&m_kamailio, &m_rtpengine, &m_colleaguesProcess, &m_recorderProcess, &m_echo, &m_busy}) {
        if (d->running())
            out.push_back(d->pid());
    }
    return out;
}

bool PhoneSystem::setEchoImpairment(double lossPercent, int jitterMs) {
    if (!m_echoPath)
        return false;
    m_echoPath->setImpairment(lossPercent, jitterMs);
    return true;
}

Json PhoneSystem::echoImpairment() const {
    if (!m_echoPath)
        return Json{{"lossPercent", 0}, {"jitterMs", 0}, {"dropped", 0}, {"passed", 0}};
    return Json{{"lossPercent", m_echoPath->lossPercent()},
                {"jitterMs", m_echoPath->jitterMs()},
                {"dropped", m_echoPath->dropped()},
                {"passed", m_echoPath->passed()}};
}

Json PhoneSystem::status() const {
    Json processes = Json::array();
    for (const Daemon* d :
         {&m_kamailio, &m_rtpengine, &m_colleaguesProcess, &m_recorderProcess, &m_echo, &m_busy}) {
        processes.push_back(
            Json{{"name", d->name().toStdString()}, {"pid", d->pid()}, {"running", d->running()}});
    }
    return Json{{"ready", m_ready},
                {"readyAfterMs", m_readyAfterMs},
                {"registrarDown", m_registrarDown},
                {"realm", m_options.realm},
                {"tcp", Json{{"host", "127.0.0.1"}, {"port", m_tcpPort}}},
                {"tls", Json{{"host", "127.0.0.1"}, {"port", m_tlsPort}}},
                {"caFile", caFile().toStdString()},
                {"rtpengine", Json{{"ngPort", m_ngPort}}},
                {"echoImpairment", echoImpairment()},
                {"processes", processes}};
}

} // namespace rzdev

#include "SipLab.h"

#include "Ports.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QNetworkProxy>
#include <QProcess>
#include <QThread>

#include <cmath>
#include <stdexcept>

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

void run(const QString& program, const QStringList& arguments, const QString& dir) {
    QProcess process;
    process.setWorkingDirectory(dir);
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0) {
        fail((program + " " + arguments.join(' ')).toStdString() + ": " +
             process.readAllStandardError().toStdString());
    }
}

QByteArray labHost() {
    return QByteArray::fromStdString(labNetwork().host);
}

// Starts a lab server where the lab's network is.
void startInLab(ChildProcess& process, const QString& program, const QStringList& arguments) {
    const QStringList& launcher = labNetwork().launcher;
    if (launcher.isEmpty()) {
        process.start(program, arguments);
    } else {
        process.start(launcher.front(), launcher.mid(1) + QStringList{program} + arguments);
    }
}

// Waits until something accepts connections on the port, within the bound.
void waitListening(std::uint16_t port, std::chrono::milliseconds bound, ChildProcess& owner,
                   const char* what, const std::string& host = labNetwork().host) {
    QDeadlineTimer deadline(bound);
    while (!deadline.hasExpired()) {
        if (!owner.running()) {
            fail(std::string(what) +
                 " exited: " + owner.process().readAllStandardError().right(3000).toStdString());
        }
        QTcpSocket probe;
        // The lab's own addresses: no proxy to look up (the lookup runs on
        // a thread of the proxy library's).
        probe.setProxy(QNetworkProxy::NoProxy);
        probe.connectToHost(QString::fromStdString(host), port);
        if (probe.waitForConnected(100)) {
            probe.disconnectFromHost();
            return;
        }
        owner.process().waitForFinished(20);
    }
    fail(std::string(what) + " did not listen on port " + std::to_string(port));
}

} // namespace

LabNetwork& labNetwork() {
    static LabNetwork network;
    return network;
}

TestCertificates::TestCertificates(const QString& dir) {
    const QString ext = dir + "/server.ext";
    writeFile(ext, "subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\n");
    auto makeCa = [&](const QString& name) {
        run("openssl",
            {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-keyout", name + ".key", "-out", name + ".pem", "-days", "2", "-subj", "/CN=" + name},
            dir);
    };
    writeFile(dir + "/other.ext",
              "subjectAltName=DNS:sip.example.net\nbasicConstraints=CA:FALSE\n");
    auto makeServer = [&](const QString& ca, const QString& name,
                          const QString& extensions = QString()) {
        run("openssl",
            {"req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-keyout", name + ".key", "-out", name + ".csr", "-subj", "/CN=127.0.0.1"},
            dir);
        run("openssl",
            {"x509", "-req", "-in", name + ".csr", "-CA", ca + ".pem", "-CAkey", ca + ".key",
             "-CAcreateserial", "-out", name + ".pem", "-days", "2", "-extfile",
             extensions.isEmpty() ? ext : extensions},
            dir);
    };
    makeCa("trusted-ca");
    makeCa("stranger-ca");
    makeServer("trusted-ca", "server");
    makeServer("stranger-ca", "stranger");
    makeServer("trusted-ca", "otherhost", dir + "/other.ext");
    trustedCa = dir + "/trusted-ca.pem";
    serverCert = dir + "/server.pem";
    serverKey = dir + "/server.key";
    strangerCert = dir + "/stranger.pem";
    strangerKey = dir + "/stranger.key";
    otherHostCert = dir + "/otherhost.pem";
    otherHostKey = dir + "/otherhost.key";
}

const std::map<std::string, std::string>& Kamailio::users() {
    static const std::map<std::string, std::string> known = {
        {"alice", "alice-secret"}, {"bob", "bob-secret"},   {"carol", "carol-secret"},
        {"dave", "dave-secret"},   {"erin", "erin-secret"}, {"frank", "frank-secret"}};
    return known;
}

Kamailio::Kamailio(const QString& dir, const TestCertificates& certs, Options options)
    : m_tcpPort(freeLoopbackPort()), m_tlsPort(freeLoopbackPort()) {
    QDir().mkpath(dir + "/run");
    const QString cert = options.strangerCertificate    ? certs.strangerCert
                         : options.otherHostCertificate ? certs.otherHostCert
                                                        : certs.serverCert;
    const QString key = options.strangerCertificate    ? certs.strangerKey
                        : options.otherHostCertificate ? certs.otherHostKey
                                                       : certs.serverKey;
    writeFile(dir + "/tls.cfg", ("[server:default]\nmethod = TLSv1.2+\nverify_certificate = no\n"
                                 "require_certificate = no\nprivate_key = " +
                                 key + "\ncertificate = " + cert +
                                 "\n\n[client:default]\nmethod = TLSv1.2+\n"
                                 "verify_certificate = no\nrequire_certificate = no\n")
                                    .toUtf8());
    QByteArray passwords;
    for (const auto& [user, password] : users()) {
        passwords += "    if ($var(user) == \"" + QByteArray::fromStdString(user) +
                     "\") { $var(pw) = \"" + QByteArray::fromStdString(password) + "\"; }\n";
    }
    QByteArray sippRoute;
    if (options.sippPort) {
        sippRoute = "    if ($rU == \"sipp\") {\n"
                    "        record_route();\n"
                    "        $du = \"sip:" +
                    labHost() + ":" + QByteArray::number(options.sippPort) +
                    ";transport=tcp\";\n"
                    "        t_relay();\n"
                    "        exit;\n"
                    "    }\n";
    }
    const QByteArray config =
        "#!KAMAILIO\n"
        "debug=" +
        qgetenv("VELNOR_TEST_KAMAILIO_DEBUG").append("1").left(1) +
        "\n"
        "log_stderror=yes\n"
        "tcp_children=3\n"
        "enable_tls=yes\n"
        "auto_aliases=no\n"
        "listen=tcp:" +
        labHost() + ":" + QByteArray::number(m_tcpPort) +
        "\n"
        "listen=tls:" +
        labHost() + ":" + QByteArray::number(m_tlsPort) +
        "\n"
        "mpath=\"/usr/lib/x86_64-linux-gnu/kamailio/modules/\"\n"
        "loadmodule \"tls.so\"\n"
        "loadmodule \"tm.so\"\n"
        "loadmodule \"sl.so\"\n"
        "loadmodule \"rr.so\"\n"
        "loadmodule \"pv.so\"\n"
        "loadmodule \"maxfwd.so\"\n"
        "loadmodule \"textops.so\"\n"
        "loadmodule \"siputils.so\"\n"
        "loadmodule \"xlog.so\"\n"
        "loadmodule \"sanity.so\"\n"
        "loadmodule \"usrloc.so\"\n"
        "loadmodule \"registrar.so\"\n"
        "loadmodule \"auth.so\"\n"
        "loadmodule \"nathelper.so\"\n"
        "modparam(\"tls\", \"config\", \"" +
        (dir + "/tls.cfg").toUtf8() +
        "\")\n"
        "modparam(\"usrloc\", \"db_mode\", 0)\n"
        "modparam(\"registrar\", \"received_avp\", \"$avp(RECEIVED)\")\n"
        "modparam(\"nathelper\", \"received_avp\", \"$avp(RECEIVED)\")\n"
        "modparam(\"registrar\", \"max_expires\", 3600)\n"
        "modparam(\"tm\", \"fr_inv_timer\", 60000)\n"
        "\n"
        "request_route {\n"
        "    if (!mf_process_maxfwd_header(\"10\")) { sl_send_reply(\"483\", \"Too Many Hops\"); "
        "exit; }\n"
        "    xlog(\"L_INFO\", \"REQ $rm $ru from $si:$sp\\n\");\n"
        "    if (has_totag()) {\n"
        "        if (loose_route()) {\n"
        "            handle_ruri_alias();\n"
        "            t_relay();\n"
        "            exit;\n"
        "        }\n"
        "        if (is_method(\"ACK\")) { if (t_check_trans()) { t_relay(); } exit; }\n"
        "        sl_send_reply(\"404\", \"Not here\");\n"
        "        exit;\n"
        "    }\n"
        "    if (is_method(\"CANCEL\")) { if (t_check_trans()) { t_relay(); } exit; }\n"
        "    t_check_trans();\n"
        "    if (is_method(\"REGISTER\")) {\n"
        "        $var(user) = $tU;\n"
        "        route(PASSWORD);\n"
        "        if (!pv_www_authenticate(\"$td\", \"$var(pw)\", \"0\")) {\n"
        "            if ($rc == -2) {\n"
        "                sl_send_reply(\"403\", \"Forbidden\"); exit;\n"
        "            }\n"
        "            www_challenge(\"$td\", \"0\"); exit;\n"
        "        }\n"
        "        fix_nated_register();\n"
        "        if (!save(\"location\")) { sl_reply_error(); }\n"
        "        exit;\n"
        "    }\n"
        "    $var(user) = $fU;\n"
        "    route(PASSWORD);\n"
        "    if (!pv_proxy_authenticate(\"$fd\", \"$var(pw)\", \"0\")) {\n"
        "        proxy_challenge(\"$fd\", \"0\"); exit;\n"
        "    }\n"
        "    consume_credentials();\n"
        "    if (is_method(\"INVITE|SUBSCRIBE|REFER\")) { record_route(); set_contact_alias(); "
        "}\n" +
        sippRoute +
        "    if (!lookup(\"location\")) { sl_send_reply(\"404\", \"Not Found\"); exit; }\n"
        "    t_relay();\n"
        "}\n"
        "\n"
        "onreply_route {\n"
        "    xlog(\"L_INFO\", \"REPLY $rs $rm from $si:$sp\\n\");\n"
        "    if (is_method(\"INVITE\") && status =~ \"(18[03])|(2[0-9][0-9])\") {\n"
        "        set_contact_alias();\n"
        "    }\n"
        "}\n"
        "\n"
        "route[PASSWORD] {\n"
        "    $var(pw) = \"\";\n" +
        passwords + "}\n";
    writeFile(dir + "/kamailio.cfg", config);
    m_process.process().setWorkingDirectory(dir);
    startInLab(
        m_process, "kamailio",
        {"-f", dir + "/kamailio.cfg", "-DD", "-E", "-m", "64", "-M", "8", "-Y", dir + "/run"});
    waitListening(m_tcpPort, 10s, m_process, "kamailio");
    waitListening(m_tlsPort, 5s, m_process, "kamailio");
}

Kamailio::~Kamailio() {
    m_process.stop();
    if (!qgetenv("VELNOR_TEST_KAMAILIO_DEBUG").isEmpty()) {
        std::fprintf(stderr, "%s\n", m_process.process().readAllStandardError().constData());
    }
}

QString writeToneFile(const QString& dir, int hz, int rate, int channels) {
    const QString path = dir + "/tone-" + QString::number(hz) + "-" + QString::number(rate) + "-" +
                         QString::number(channels) + ".wav";
    if (!QFile::exists(path)) {
        run("sox",
            {"-n", "-r", QString::number(rate), "-c", QString::number(channels), "-b", "16", path,
             "synth", "120", "sine", QString::number(hz), "vol", "0.3"},
            dir);
    }
    return path;
}

Baresip::Baresip(const QString& dir, const std::string& user, Role role, const Kamailio& kamailio,
                 const QString& toneFile, const QString& caFile, const QByteArray& codecs)
    : m_user(user) {
    const QString home = dir + "/baresip-" + QString::fromStdString(user);
    QDir().mkpath(home);
    const std::uint16_t sipPort = freeLoopbackPort();
    const std::uint16_t controlPort = freeLoopbackPort();
    const std::uint16_t rtpBase = freeLoopbackPort();
    QByteArray config = "poll_method epoll\n"
                        "sip_listen " +
                        labHost() + ":" + QByteArray::number(sipPort) +
                        "\n"
                        "sip_cafile " +
                        caFile.toUtf8() +
                        "\n"
                        "call_local_timeout 120\n"
                        "call_max_calls 4\n"
                        "audio_player aubridge,discard\n"
                        "audio_alert aubridge,discard\n"
                        "audio_source aufile," +
                        toneFile.toUtf8() +
                        "\n"
                        "rtp_ports " +
                        QByteArray::number(rtpBase) + "-" + QByteArray::number(rtpBase + 1000) +
                        "\n"
                        "module_path /usr/lib/baresip/modules\n"
                        "module g711.so\n"
                        "module g722.so\n"
                        "module opus.so\n"
                        "module aufile.so\n"
                        "module aubridge.so\n"
                        "module srtp.so\n"
                        "module_app account.so\n"
                        "module_app menu.so\n"
                        "module_app ctrl_tcp.so\n";
    if (role == Role::echo || role == Role::srtpEcho) {
        config += "module_app echo.so\n";
    }
    config += "ctrl_tcp_listen " + QByteArray::fromStdString(labNetwork().controlHost()) + ":" +
              QByteArray::number(controlPort) + "\n";
    writeFile(home + "/config", config);
    const QByteArray password = QByteArray::fromStdString(Kamailio::users().at(user));
    const bool tls = role == Role::srtpEcho;
    const QByteArray transport = tls ? "tls" : "tcp";
    const QByteArray port = QByteArray::number(tls ? kamailio.tlsPort() : kamailio.tcpPort());
    QByteArray account =
        "<sip:" + QByteArray::fromStdString(user) + "@" + labHost() + ";transport=" + transport +
        ">;auth_pass=" + password + ";outbound=\"sip:" + labHost() + ":" + port +
        ";transport=" + transport +
        "\";regint=600;answermode=" + (role == Role::tonePlayer ? "manual" : "auto") +
        ";audio_codecs=" + codecs;
    if (tls) {
        account += ";mediaenc=srtp-mand";
    }
    writeFile(home + "/accounts", account + "\n");
    writeFile(home + "/contacts", "");
    // Line-buffered, so that its messages arrive as they are printed.
    startInLab(m_process, "stdbuf", {"-oL", "baresip", "-f", home, "-n", labHost(), "-t", "170"});
    const auto begun = std::chrono::steady_clock::now();
    auto mark = [&](const char* what) {
        if (!qgetenv("VELNOR_TEST_TIMING").isEmpty()) {
            std::fprintf(stderr, "baresip %s: %s after %lld ms\n", user.c_str(), what,
                         (long long)std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now() - begun)
                             .count());
        }
    };
    waitListening(controlPort, 10s, m_process, "baresip", labNetwork().controlHost());
    mark("control port open");
    m_control.setProxy(QNetworkProxy::NoProxy);
    m_control.connectToHost(QString::fromStdString(labNetwork().controlHost()), controlPort);
    if (!m_control.waitForConnected(5000)) {
        fail("cannot reach baresip's control port");
    }
    // Registered: it says so on its standard output (often before the control
    // connection is up, so the event may never reach us).
    QDeadlineTimer deadline(10s);
    QByteArray output;
    for (;;) {
        // What is already buffered first: an earlier wait may have read it in.
        output += m_process.process().readAllStandardOutput();
        if (output.contains("200 OK")) {
            break;
        }
        if (deadline.hasExpired() || !m_process.running()) {
            fail("baresip " + user + " did not register: " + output.toStdString());
        }
        m_process.process().waitForReadyRead(50);
    }
    mark("registered");
}

Baresip::~Baresip() {
    m_control.abort();
    // Its orderly exit takes seconds; the test has what it needs.
    m_process.process().kill();
    m_process.process().waitForFinished(2000);
}

void Baresip::command(const std::string& name, const std::string& params) {
    static int token = 0;
    const std::string json = "{\"command\":\"" + name + "\",\"params\":\"" + params +
                             "\",\"token\":\"" + std::to_string(++token) + "\"}";
    const QByteArray netstring =
        QByteArray::number(qsizetype(json.size())) + ":" + QByteArray::fromStdString(json) + ",";
    m_control.write(netstring);
    m_control.waitForBytesWritten(2000);
}

void Baresip::readEvents(std::chrono::milliseconds bound) {
    if (m_control.bytesAvailable() == 0) {
        m_control.waitForReadyRead(int(bound.count()));
    }
    m_buffer += m_control.readAll();
    for (;;) {
        const int colon = m_buffer.indexOf(':');
        if (colon <= 0) {
            return;
        }
        const int length = m_buffer.left(colon).toInt();
        if (m_buffer.size() < colon + 1 + length + 1) {
            return;
        }
        m_events.push_back(m_buffer.mid(colon + 1, length).toStdString());
        m_buffer.remove(0, colon + 1 + length + 1);
    }
}

bool Baresip::sawEvent(const std::vector<std::string>& pieces) {
    readEvents(0ms);
    for (const auto& event : m_events) {
        bool all = true;
        for (const auto& piece : pieces) {
            all = all && event.find(piece) != std::string::npos;
        }
        if (all) {
            return true;
        }
    }
    return false;
}

std::string Baresip::waitEvent(const std::vector<std::string>& pieces,
                               std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    size_t seen = 0;
    for (;;) {
        for (; seen < m_events.size(); ++seen) {
            bool all = true;
            for (const auto& piece : pieces) {
                all = all && m_events[seen].find(piece) != std::string::npos;
            }
            if (all) {
                return m_events[seen];
            }
        }
        if (deadline.hasExpired()) {
            std::string all;
            for (const auto& event : m_events)
                all += event + "\n";
            fail("baresip " + m_user + ": no event with " + pieces.front() + "; saw:\n" + all +
                 "output:\n" +
                 m_process.process().readAllStandardOutput().right(3000).toStdString() +
                 m_process.process().readAllStandardError().right(2000).toStdString());
        }
        readEvents(std::chrono::milliseconds(std::max<qint64>(1, deadline.remainingTime())));
    }
}

Sipp::Sipp(const QString& dir, const QString& scenarioXml, std::uint16_t port, int calls)
    : m_scenario(dir + "/scenario-" + QString::number(port) + ".xml"), m_dir(dir), m_port(port),
      m_calls(calls) {
    writeFile(m_scenario, scenarioXml.toUtf8());
}

void Sipp::start(const std::string& remote, const QStringList& extra) {
    m_process.process().setWorkingDirectory(m_dir);
    QStringList arguments = {"-t",
                             "t1",
                             "-sf",
                             m_scenario,
                             "-i",
                             "127.0.0.1",
                             "-p",
                             QString::number(m_port),
                             "-m",
                             QString::number(m_calls),
                             "-timeout",
                             "120s",
                             "-nostdin",
                             "-trace_err",
                             "-error_file",
                             m_dir + "/sipp-errors.log",
                             "-trace_msg",
                             "-message_file",
                             m_dir + "/sipp-messages.log"};
    arguments += extra;
    if (!remote.empty()) {
        arguments.push_back(QString::fromStdString(remote));
    }
    m_process.start("sipp", arguments);
    if (remote.empty()) {
        // A server is ready when it listens.
        waitListening(m_port, 5s, m_process, "sipp");
    }
}

int Sipp::waitExit(std::chrono::milliseconds bound) {
    if (!m_process.process().waitForFinished(int(bound.count()))) {
        fail("sipp did not finish: " + output());
    }
    return m_process.process().exitCode();
}

std::string Sipp::output() {
    QFile errors(m_dir + "/sipp-errors.log");
    QFile messages(m_dir + "/sipp-messages.log");
    QByteArray text = m_process.process().readAllStandardError();
    if (errors.open(QIODevice::ReadOnly))
        text += errors.readAll();
    if (messages.open(QIODevice::ReadOnly))
        text += "\nmessages:\n" + messages.readAll().right(2500);
    return text.right(6000).toStdString();
}

void Events::registrationChanged(core::RegistrationState state) {
    std::lock_guard lock(m_lock);
    m_registrations.push_back(state);
    ++m_total;
    m_changed.notify_all();
}

void Events::incomingCall(std::shared_ptr<core::Call> call) {
    std::lock_guard lock(m_lock);
    m_incoming.push_back(std::move(call));
    ++m_total;
    m_changed.notify_all();
}

void Events::callStateChanged(std::string sipCallId, core::CallState state) {
    std::lock_guard lock(m_lock);
    m_calls.emplace_back(std::move(sipCallId), std::move(state));
    ++m_total;
    m_changed.notify_all();
}

core::RegistrationState
Events::waitRegistration(std::function<bool(const core::RegistrationState&)> wanted,
                         std::chrono::milliseconds bound) {
    std::unique_lock lock(m_lock);
    size_t seen = 0;
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (;;) {
        for (; seen < m_registrations.size(); ++seen) {
            if (wanted(m_registrations[seen])) {
                return m_registrations[seen];
            }
        }
        if (m_changed.wait_until(lock, deadline) == std::cv_status::timeout &&
            seen == m_registrations.size()) {
            std::string all;
            for (const auto& state : m_registrations)
                all += core::toString(state) + " ";
            fail("no such registration state; saw: " + all);
        }
    }
}

core::RegistrationState Events::waitRegistered(std::chrono::milliseconds bound) {
    return waitRegistration(
        [](const auto& state) {
            return state.kind == core::RegistrationState::Kind::registered ||
                   state.kind == core::RegistrationState::Kind::failed;
        },
        bound);
}

core::RegistrationState Events::waitFailed(std::chrono::milliseconds bound) {
    return waitRegistration(
        [](const auto& state) { return state.kind == core::RegistrationState::Kind::failed; },
        bound);
}

core::CallState Events::waitCall(const std::string& callId, core::CallState::Kind kind,
                                 std::chrono::milliseconds bound) {
    std::unique_lock lock(m_lock);
    size_t seen = 0;
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (;;) {
        for (; seen < m_calls.size(); ++seen) {
            if (m_calls[seen].first == callId &&
                (m_calls[seen].second.kind == kind ||
                 m_calls[seen].second.kind == core::CallState::Kind::ended)) {
                return m_calls[seen].second;
            }
        }
        if (m_changed.wait_until(lock, deadline) == std::cv_status::timeout &&
            seen == m_calls.size()) {
            std::string all;
            for (const auto& [id, state] : m_calls) {
                if (id == callId)
                    all += core::toString(state) + " ";
            }
            fail("call " + callId + ": no such state; saw: " + all);
        }
    }
}

std::shared_ptr<core::Call> Events::waitIncoming(std::chrono::milliseconds bound) {
    std::unique_lock lock(m_lock);
    if (!m_changed.wait_for(lock, bound, [&] { return !m_incoming.empty(); })) {
        fail("no incoming call");
    }
    auto call = m_incoming.front();
    m_incoming.pop_front();
    return call;
}

std::vector<core::CallState> Events::callStates(const std::string& callId) {
    std::lock_guard lock(m_lock);
    std::vector<core::CallState> states;
    for (const auto& [id, state] : m_calls) {
        if (id == callId)
            states.push_back(state);
    }
    return states;
}

bool Events::waitCallCount(const std::string& callId, size_t count,
                           std::chrono::milliseconds bound) {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, bound, [&] {
        size_t seen = 0;
        for (const auto& [id, state] : m_calls) {
            seen += id == callId;
        }
        return seen >= count;
    });
}

std::vector<core::RegistrationState> Events::registrations() {
    std::lock_guard lock(m_lock);
    return m_registrations;
}

int Events::total() {
    std::lock_guard lock(m_lock);
    return m_total;
}

LogLines::LogLines() {
    core::setLogSink([this](core::LogLevel, const std::string& message) {
        std::lock_guard guard(lock);
        text += message + "\n";
        changed.notify_all();
    });
}

LogLines::~LogLines() {
    core::setLogSink({});
}

std::string LogLines::all() {
    std::lock_guard guard(lock);
    return text;
}

bool LogLines::waitFor(const std::string& piece, std::chrono::milliseconds bound) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, bound, [&] { return text.find(piece) != std::string::npos; });
}

core::SipAccount accountFor(const std::string& server, const std::string& user,
                            const std::string& password) {
    return core::SipAccount{server, "", user, password, false, std::nullopt, false};
}

nlohmann::json labDevice(const Kamailio& kamailio, const std::string& user, bool tls) {
    return {
        {"deviceId", "dev-lab"},
        {"name", "Linux of Anna Berger"},
        {"sipUsername", user},
        {"password", Kamailio::users().at(user)},
        {"realm", "127.0.0.1"},
        {"srtp", tls},
        {"edge", nlohmann::json::array({{{"host", "127.0.0.1"},
                                         {"port", tls ? kamailio.tlsPort() : kamailio.tcpPort()},
                                         {"transport", tls ? "tls" : "tcp"}}})}};
}

AudioLoop::AudioLoop(std::shared_ptr<core::Call> call, int toneHz) : m_call(std::move(call)) {
    // Two threads paced by the clock, as a capture tap and a render callback are.
    m_writer = std::thread([this, toneHz] {
        auto next = std::chrono::steady_clock::now();
        long sample = 0;
        while (m_running) {
            std::vector<std::int16_t> frame(160);
            for (auto& value : frame) {
                value =
                    toneHz
                        ? std::int16_t(8000 * std::sin(2 * M_PI * toneHz * double(sample) / 8000.0))
                        : 0;
                ++sample;
            }
            m_call->writeAudio(frame);
            next += 20ms;
            std::this_thread::sleep_until(next);
        }
    });
    m_reader = std::thread([this] {
        auto next = std::chrono::steady_clock::now();
        while (m_running) {
            const auto frame = m_call->readAudio();
            {
                std::lock_guard lock(m_lock);
                m_recorded.insert(m_recorded.end(), frame.begin(), frame.end());
            }
            next += 20ms;
            std::this_thread::sleep_until(next);
        }
    });
}

AudioLoop::~AudioLoop() {
    stop();
}

void AudioLoop::stop() {
    m_running = false;
    if (m_writer.joinable())
        m_writer.join();
    if (m_reader.joinable())
        m_reader.join();
}

std::vector<std::int16_t> AudioLoop::recorded() {
    std::lock_guard lock(m_lock);
    return m_recorded;
}

double tonePower(const std::vector<std::int16_t>& samples, double hz) {
    const double coefficient = 2 * std::cos(2 * M_PI * hz / 8000.0);
    double s1 = 0, s2 = 0;
    for (std::int16_t sample : samples) {
        const double s0 = double(sample) + coefficient * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return s1 * s1 + s2 * s2 - coefficient * s1 * s2;
}

double toneMarginDb(const std::vector<std::int16_t>& samples, double hz) {
    const double wanted = tonePower(samples, hz);
    double strongestOther = 1e-9;
    for (double other : {400.0, 600.0, 1400.0, 1800.0, 2200.0, 2600.0, 3000.0}) {
        strongestOther = std::max(strongestOther, tonePower(samples, other));
    }
    return 10 * std::log10(std::max(wanted, 1e-9) / strongestOther);
}

namespace {

// As the app does: RUST_LOG when set (even empty), else the usual default.
const bool loggingSet = [] {
    const char* filter = std::getenv("RUST_LOG");
    core::initLogging(filter ? filter : "warn,velnor_core=info");
    return true;
}();

} // namespace

const char* answeringScenario() {
    return R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="answer every call">
  <recv request="INVITE" rrs="true"/>
  <send><![CDATA[
SIP/2.0 180 Ringing
[last_Via:]
[last_From:]
[last_To:];tag=[pid]SIPpTag01[call_number]
[last_Call-ID:]
[last_CSeq:]
[last_Record-Route:]
Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>
Content-Length: 0

]]></send>
  <send><![CDATA[
SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:];tag=[pid]SIPpTag01[call_number]
[last_Call-ID:]
[last_CSeq:]
[last_Record-Route:]
Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>
Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 1 IN IP4 [local_ip]
s=-
c=IN IP4 [local_ip]
t=0 0
m=audio [media_port] RTP/AVP 0 101
a=rtpmap:0 PCMU/8000
a=rtpmap:101 telephone-event/8000
]]></send>
  <recv request="ACK"/>
  <recv request="BYE"/>
  <send><![CDATA[
SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:]
[last_Call-ID:]
[last_CSeq:]
Content-Length: 0

]]></send>
</scenario>
)";
}

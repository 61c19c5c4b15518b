#include "SippFarEnd.h"

#include "Ports.h"

#include <QFile>

#include <stdexcept>

namespace interop {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

QString mediaOf(Codec codec) {
    switch (codec) {
    case Codec::pcmu:
        return "m=audio [media_port] RTP/AVP 0 101\na=rtpmap:0 PCMU/8000\n";
    case Codec::pcma:
        return "m=audio [media_port] RTP/AVP 8 101\na=rtpmap:8 PCMA/8000\n";
    case Codec::g722:
        return "m=audio [media_port] RTP/AVP 9 101\na=rtpmap:9 G722/8000\n";
    case Codec::opus:
        return "m=audio [media_port] RTP/AVP 96 101\na=rtpmap:96 opus/48000/2\n";
    }
    return {};
}

QString sdp(const QString& media, const QString& direction) {
    return "Content-Type: application/sdp\nContent-Length: [len]\n\n"
           "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\n" +
           media + "a=rtpmap:101 telephone-event/8000\na=" + direction + "\n";
}

// A reply to the last request; with a body when a direction is given.
QString reply(const QString& status, const QString& media = {}, const QString& direction = {},
              bool newTag = false) {
    const QString head = "SIP/2.0 " + status + "\n[last_Via:]\n[last_From:]\n[last_To:]" +
                         (newTag ? ";tag=[pid]SIPpTag01[call_number]" : "") +
                         "\n[last_Call-ID:]\n[last_CSeq:]\n[last_Record-Route:]\n"
                         "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n";
    return "  <send><![CDATA[\n" + head +
           (direction.isEmpty() ? QString("Content-Length: 0\n\n") : sdp(media, direction)) +
           "]]></send>\n";
}

// Waits for a re-INVITE whose offer has that direction, and fails the run otherwise.
QString offer(const QString& direction, const QString& variable) {
    return "  <recv request=\"INVITE\"><action><ereg regexp=\"a=" + direction +
           "\" search_in=\"body\" check_it=\"true\" assign_to=\"" + variable +
           "\"/></action></recv>\n";
}

const char* header =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"far end\">\n";

// Answers, is held and resumed by re-INVITEs, and takes the BYE.
QString holdScenario(const QString& media) {
    return header + QString("  <recv request=\"INVITE\" rrs=\"true\"/>\n") +
           reply("180 Ringing", {}, {}, true) + reply("200 OK", media, "sendrecv", true) +
           "  <recv request=\"ACK\"/>\n" + offer("sendonly", "held") +
           reply("200 OK", media, "recvonly") + "  <recv request=\"ACK\"/>\n" +
           offer("sendrecv", "resumed") + reply("200 OK", media, "sendrecv") +
           "  <recv request=\"ACK\"/>\n  <recv request=\"BYE\"/>\n" + reply("200 OK") +
           "  <Reference variables=\"held,resumed\"/>\n</scenario>\n";
}

QString notify(const QString& state, const QString& fragment) {
    return "  <send><![CDATA[\n"
           "NOTIFY [next_url] SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "From:[$referTo]\nTo:[$referFrom]\nCall-ID: [call_id]\nCSeq: [cseq] NOTIFY\n"
           "[routes]\n"
           "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n"
           "Max-Forwards: 70\nEvent: refer;id=[$referCseq]\nSubscription-State: " +
           state + "\nContent-Type: message/sipfrag\nContent-Length: [len]\n\n" + fragment +
           "\n]]></send>\n";
}

// Answers, takes a REFER to carol and reports that the referred call was
// answered; the engine then ends the call.
QString transferScenario(const QString& media) {
    return header + QString("  <recv request=\"INVITE\" rrs=\"true\"/>\n") +
           reply("180 Ringing", {}, {}, true) + reply("200 OK", media, "sendrecv", true) +
           "  <recv request=\"ACK\"/>\n"
           "  <recv request=\"REFER\"><action>"
           "<ereg regexp=\".*\" search_in=\"hdr\" header=\"From:\" assign_to=\"referFrom\"/>"
           "<ereg regexp=\".*\" search_in=\"hdr\" header=\"To:\" assign_to=\"referTo\"/>"
           "<ereg regexp=\"[0-9]+\" search_in=\"hdr\" header=\"CSeq:\" assign_to=\"referCseq\"/>"
           "<ereg regexp=\"sip:carol@\" search_in=\"hdr\" header=\"Refer-To:\" "
           "check_it=\"true\" assign_to=\"target\"/>"
           "</action></recv>\n" +
           reply("202 Accepted") + notify("active;expires=60", "SIP/2.0 100 Trying") +
           "  <recv response=\"200\"/>\n" +
           notify("terminated;reason=noresource", "SIP/2.0 200 OK") +
           "  <recv response=\"200\"/>\n  <recv request=\"BYE\"/>\n" + reply("200 OK") +
           "  <Reference variables=\"target\"/>\n</scenario>\n";
}

QString request(const QString& method, const QString& cseq, const QString& extra,
                const QString& body) {
    return "  <send><![CDATA[\n" + method +
           " sip:[service]@127.0.0.1 SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "From: <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]\n"
           "To: <sip:[service]@127.0.0.1>" +
           (method == "ACK" ? "[peer_tag_param]" : "") + "\nCall-ID: [call_id]\nCSeq: " + cseq +
           " " + method + "\nContact: <sip:frank@[local_ip]:[local_port];transport=[transport]>\n" +
           extra + "Max-Forwards: 70\n" +
           (body.isEmpty() ? QString("Content-Length: 0\n\n") : body) + "]]></send>\n";
}

// Calls the engine's user through the registrar (which challenges it), and
// takes the BYE when the engine hangs up.
QString callScenario(const QString& media) {
    const QString body = sdp(media, "sendrecv");
    return header + request("INVITE", "1", {}, body) +
           "  <recv response=\"100\" optional=\"true\"/>\n"
           "  <recv response=\"407\" auth=\"true\"/>\n" +
           request("ACK", "1", {}, {}) +
           request("INVITE", "2", "[authentication username=frank password=frank-secret]\n", body) +
           "  <recv response=\"100\" optional=\"true\"/>\n"
           "  <recv response=\"180\" optional=\"true\"/>\n"
           "  <recv response=\"200\" rrs=\"true\"/>\n" +
           "  <send><![CDATA[\n"
           "ACK [next_url] SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "From: <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]\n"
           "To: <sip:[service]@127.0.0.1>[peer_tag_param]\n"
           "Call-ID: [call_id]\nCSeq: 2 ACK\n[routes]\nMax-Forwards: 70\nContent-Length: 0\n\n"
           "]]></send>\n"
           "  <recv request=\"BYE\"/>\n" +
           reply("200 OK") + "</scenario>\n";
}

} // namespace

SippFarEnd::SippFarEnd(const QString& dir, std::uint16_t port, const Kamailio& kamailio,
                       Codec codec)
    : m_dir(dir), m_port(port), m_mediaPort(freeLoopbackPort()), m_registrar(kamailio.tcpServer()),
      m_media(mediaOf(codec)) {}

SippFarEnd::~SippFarEnd() {
    m_process.stop();
}

void SippFarEnd::run(const QString& scenario, std::uint16_t port, const QString& remote) {
    m_process.stop();
    const QString base = m_dir + "/sipp-" + QString::number(++m_runs);
    QFile file(base + ".xml");
    if (!file.open(QIODevice::WriteOnly) || file.write(scenario.toUtf8()) < 0) {
        fail("cannot write " + base.toStdString() + ".xml");
    }
    file.close();
    QStringList arguments = {"-t",
                             "t1",
                             "-sf",
                             base + ".xml",
                             "-i",
                             "127.0.0.1",
                             "-p",
                             QString::number(port),
                             "-mi",
                             "127.0.0.1",
                             "-mp",
                             QString::number(m_mediaPort),
                             "-rtp_echo",
                             "-m",
                             "1",
                             "-timeout",
                             "90s",
                             "-nostdin",
                             "-trace_err",
                             "-error_file",
                             base + "-errors.log",
                             "-trace_msg",
                             "-message_file",
                             base + "-messages.log"};
    if (!remote.isEmpty()) {
        arguments += {"-s", "alice", remote};
    }
    m_process.process().setWorkingDirectory(m_dir);
    m_process.start("sipp", arguments);
}

void SippFarEnd::expectCall(bool transfer) {
    run(transfer ? transferScenario(m_media) : holdScenario(m_media), m_port, {});
    // A server scenario is ready when it listens.
    for (int tries = 0; tries < 100; ++tries) {
        QTcpSocket probe;
        probe.connectToHost("127.0.0.1", m_port);
        if (probe.waitForConnected(100)) {
            probe.disconnectFromHost();
            return;
        }
        if (!m_process.running()) {
            break;
        }
        m_process.process().waitForFinished(20);
    }
    fail("sipp did not listen on port " + std::to_string(m_port) + ": " +
         m_process.process().readAllStandardError().right(1500).toStdString());
}

void SippFarEnd::dial(const std::string& user) {
    if (user != "alice") {
        fail("the sipp caller's scenario calls alice");
    }
    // A port of its own: the far end's port may still hold the last call's connection.
    run(callScenario(m_media), freeLoopbackPort(), QString::fromStdString(m_registrar));
}

void SippFarEnd::waitDtmf(char, std::chrono::milliseconds) {
    fail(cannotReportDtmf());
}

void SippFarEnd::waitEnded(std::chrono::milliseconds bound) {
    auto& process = m_process.process();
    if (!process.waitForFinished(int(bound.count())) || process.exitCode() != 0) {
        const QString base = m_dir + "/sipp-" + QString::number(m_runs);
        QByteArray said = process.readAllStandardError();
        for (const QString& log : {base + "-errors.log", base + "-messages.log"}) {
            QFile file(log);
            if (file.open(QIODevice::ReadOnly)) {
                said += "\n" + file.readAll().right(2500);
            }
        }
        fail("sipp's scenario did not run to its end (exit " + std::to_string(process.exitCode()) +
             "): " + said.toStdString());
    }
}

double SippFarEnd::heardToneMarginDb(int, std::chrono::milliseconds) {
    fail(cannotRecord());
}

} // namespace interop

// What a far end may do that the engine did not ask for: hold it, answer
// with a description that cannot be read, turn a registration away for now.

#include "Ports.h"
#include "SipLab.h"

#include <gtest/gtest.h>

#include <QProcess>

#include <condition_variable>
#include <mutex>
#include <thread>

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

const char* const sdpHead = "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\n"
                            "m=audio [media_port] RTP/AVP 0\na=rtpmap:0 PCMU/8000\n";

QString reply(const QString& status, const QString& body, bool newTag) {
    QString text = "SIP/2.0 " + status + "\n[last_Via:]\n[last_From:]\n[last_To:]" +
                   (newTag ? ";tag=[pid]SIPpTag01[call_number]" : "") +
                   "\n[last_Call-ID:]\n[last_CSeq:]\n[last_Record-Route:]\n"
                   "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n";
    if (body.isEmpty()) {
        return "  <send><![CDATA[\n" + text + "Content-Length: 0\n\n]]></send>\n";
    }
    return "  <send><![CDATA[\n" + text +
           "Content-Type: application/sdp\nContent-Length: [len]\n\n" + body + "]]></send>\n";
}

// Answers, then holds the call from its side with a re-INVITE offering
// sendonly; the answer to that must be recvonly. Then it takes the BYE.
QString farEndHoldScenario() {
    const QString inDialog = "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
                             "From:[$theirTo];tag=[pid]SIPpTag01[call_number]\n"
                             "To:[$theirFrom]\nCall-ID: [call_id]\n";
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"held\">\n"
           "  <recv request=\"INVITE\" rrs=\"true\"><action>"
           "<ereg regexp=\".*\" search_in=\"hdr\" header=\"From:\" assign_to=\"theirFrom\"/>"
           "<ereg regexp=\".*\" search_in=\"hdr\" header=\"To:\" assign_to=\"theirTo\"/>"
           "</action></recv>\n" +
           reply("180 Ringing", {}, true) +
           reply("200 OK", QString(sdpHead) + "a=sendrecv\n", true) +
           "  <recv request=\"ACK\"/>\n"
           "  <send><![CDATA[\nINVITE [next_url] SIP/2.0\n" +
           inDialog +
           "CSeq: 2 INVITE\n[routes]\n"
           "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n"
           "Max-Forwards: 70\nContent-Type: application/sdp\nContent-Length: [len]\n\n" +
           sdpHead +
           "a=sendonly\n]]></send>\n"
           "  <recv response=\"100\" optional=\"true\"/>\n"
           "  <recv response=\"200\"><action><ereg regexp=\"a=recvonly\" search_in=\"body\" "
           "check_it=\"true\" assign_to=\"answered\"/></action></recv>\n"
           "  <send><![CDATA[\nACK [next_url] SIP/2.0\n" +
           inDialog +
           "CSeq: 2 ACK\n[routes]\nMax-Forwards: 70\nContent-Length: 0\n\n]]></send>\n"
           "  <recv request=\"BYE\"/>\n" +
           reply("200 OK", {}, false) +
           "  <Reference variables=\"answered,theirFrom,theirTo\"/>\n</scenario>\n";
}

// Answers with a description cut off in the middle of its connection line.
QString truncatedAnswerScenario() {
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"cut\">\n"
           "  <recv request=\"INVITE\"/>\n" +
           reply("180 Ringing", {}, true) +
           reply("200 OK", "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4", true) +
           "  <recv request=\"ACK\"/>\n"
           "  <recv request=\"BYE\"/>\n" +
           reply("200 OK", {}, false) + "</scenario>\n";
}

// A registrar that is busy at first: 503 with Retry-After, then 200, then the
// un-REGISTER at the end.
QString busyRegistrarScenario() {
    const QString head = "\n[last_Via:]\n[last_From:]\n[last_To:];tag=[pid]r\n[last_Call-ID:]\n"
                         "[last_CSeq:]\n";
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"busy\">\n"
           "  <recv request=\"REGISTER\"/>\n"
           "  <send><![CDATA[\nSIP/2.0 503 Service Unavailable" +
           head +
           "Retry-After: 1\nContent-Length: 0\n\n]]></send>\n"
           "  <recv request=\"REGISTER\"/>\n"
           "  <send><![CDATA[\nSIP/2.0 200 OK" +
           head +
           "[last_Contact:]\nExpires: 300\nContent-Length: 0\n\n]]></send>\n"
           "  <recv request=\"REGISTER\"/>\n"
           "  <send><![CDATA[\nSIP/2.0 200 OK" +
           head + "Content-Length: 0\n\n]]></send>\n</scenario>\n";
}

// Rings with 183 and a description, plays a tone as early media for a while
// (the announcement or ringback a network plays), then answers.
QString earlyMediaScenario(const QString& toneFile) {
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"early\">\n"
           "  <recv request=\"INVITE\"/>\n" +
           reply("183 Session Progress", QString(sdpHead) + "a=sendrecv\n", true) +
           "  <nop><action><exec rtp_stream=\"" + toneFile +
           ",-1,0\"/></action></nop>\n"
           "  <pause milliseconds=\"4000\"/>\n" +
           reply("200 OK", QString(sdpHead) + "a=sendrecv\n", true) +
           "  <recv request=\"ACK\"/>\n"
           "  <recv request=\"BYE\"/>\n" +
           reply("200 OK", {}, false) + "</scenario>\n";
}

struct Lab {
    explicit Lab(std::uint16_t sippPort) : kamailio(dir.path(), certs, {false, sippPort}) {}
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio;
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    void startClient() {
        client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    }
};

} // namespace

TEST(FarEnd, AHoldFromTheFarEndIsAnsweredRecvonlyAndLoggedAsSuch) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), farEndHoldScenario(), sippPort);
    sipp.start();
    LogLines log;
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    const std::string id = call->sipCallId();
    ASSERT_EQ(lab.events->waitCall(id, Kind::connected), CallState::connected());
    EXPECT_TRUE(log.waitFor("call " + id + ": held by the far end")) << log.all();
    call->hangup();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    // Our own hold is another matter: the call was never reported held.
    const std::vector<CallState> expected = {CallState::ringing(), CallState::connected(),
                                             CallState::ended("local")};
    EXPECT_EQ(lab.events->callStates(id), expected);
    lab.client->stop();
}

TEST(FarEnd, ATruncatedAnswerEndsTheCallWithASentenceAndTheEngineGoesOn) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), truncatedAnswerScenario(), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended),
              CallState::ended("The far end's answer could not be read."));
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    // Still registered and still answering: a fresh registration goes through.
    size_t earlier = lab.events->registrations().size();
    lab.client->reRegister();
    const auto state = lab.events->waitRegistration([&earlier](const auto& s) {
        if (earlier > 0) {
            --earlier;
            return false;
        }
        return s.kind == core::RegistrationState::Kind::registered;
    });
    EXPECT_EQ(state, core::RegistrationState::registered());
    lab.client->stop();
}

TEST(FarEnd, A503ToRegisterIsTriedAgainAfterRetryAfterAndThenRegisters) {
    const std::uint16_t sippPort = freeLoopbackPort();
    QTemporaryDir dir;
    Sipp sipp(dir.path(), busyRegistrarScenario(), sippPort);
    sipp.start();
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor("127.0.0.1:" + std::to_string(sippPort), "alice", "alice-secret"), events);
    client->start();
    EXPECT_EQ(events->waitFailed(),
              core::RegistrationState::failed("The server is busy; trying again in 1 second."));
    EXPECT_EQ(
        events->waitRegistration(
            [](const auto& s) { return s.kind == core::RegistrationState::Kind::registered; }, 3s),
        core::RegistrationState::registered());
    client->stop();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
}

TEST(FarEnd, EarlyMediaOfA183IsHeardBeforeTheAnswer) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    // The far end streams G.711 as it stands in the file: mu-law, 8000 Hz.
    const QString tone = lab.dir.path() + "/ringback.wav";
    ASSERT_EQ(QProcess::execute("sox", {"-n", "-r", "8000", "-c", "1", "-e", "u-law", tone, "synth",
                                        "10", "sine", "1000", "vol", "0.3"}),
              0);
    Sipp sipp(lab.dir.path(), earlyMediaScenario(tone), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    const std::string id = call->sipCallId();
    ASSERT_EQ(lab.events->waitCall(id, Kind::ringing), CallState::ringing());
    // Two seconds of listening, as the render thread does, while it rings.
    std::vector<std::int16_t> heard;
    auto next = std::chrono::steady_clock::now();
    for (int frame = 0; frame < 100; ++frame) {
        const auto samples = call->readAudio();
        heard.insert(heard.end(), samples.begin(), samples.end());
        next += 20ms; // the pace of a sound card
        std::this_thread::sleep_until(next);
    }
    const auto statesWhileListening = lab.events->callStates(id);
    EXPECT_EQ(statesWhileListening, std::vector<CallState>{CallState::ringing()})
        << "the call was answered before the listening was over";
    const std::vector<std::int16_t> settled(heard.begin() + 4000, heard.end());
    EXPECT_GE(toneMarginDb(settled, 1000), 20.0);
    EXPECT_EQ(lab.events->waitCall(id, Kind::connected), CallState::connected());
    call->hangup();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    lab.client->stop();
}

#include "SipLab.h"

#include "Ports.h"

#include <gtest/gtest.h>

#include <thread>

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

struct Lab {
    explicit Lab(Kamailio::Options options = {}) : kamailio(dir.path(), certs, options) {}
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio;
    QString tone = writeToneFile(dir.path(), 1000);
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    void startClient(const std::string& user = "alice") {
        client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), user, Kamailio::users().at(user)), events);
        client->start();
        ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    }
    std::unique_ptr<Baresip> party(const std::string& user, Baresip::Role role,
                                   const QByteArray& codecs = "pcmu,pcma") {
        return std::make_unique<Baresip>(dir.path(), user, role, kamailio, tone, certs.trustedCa,
                                         codecs);
    }
};

// Records two seconds of what the call plays after a second of settling.
std::vector<std::int16_t> listen(AudioLoop& audio) {
    std::this_thread::sleep_for(3s); // audio runs in real time; this is its length, not a wait
    auto recorded = audio.recorded();
    const size_t settle = std::min<size_t>(recorded.size(), 8000);
    return {recorded.begin() + long(settle), recorded.end()};
}

} // namespace

TEST(OutgoingCall, CarriesAToneToTheEchoPartyAndBack) {
    Lab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    EXPECT_FALSE(call->sipCallId().empty());
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);
    const auto heard = listen(audio);
    audio.stop();
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0);
    const auto counters = call->mediaCounters();
    ASSERT_GE(counters.size(), 2u);
    EXPECT_GT(counters[0], 50u);
    EXPECT_GT(counters[1], 50u);
    const auto stats = call->stats();
    EXPECT_GT(stats.packetsReceived, 50u);
    EXPECT_GE(stats.jitterMs, 0.0);
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    // An ended call stays harmless to use.
    EXPECT_EQ(call->readAudio().size(), 160u);
    call->writeAudio(std::vector<std::int16_t>(160));
    call->hangup();
    lab.client->stop();
}

// The playing party speaks only the one codec, so that the call has to use it.
void toneCallWith(const QByteArray& codec, int rate, int channels) {
    Lab lab;
    auto carol = std::make_unique<Baresip>(
        lab.dir.path(), "carol", Baresip::Role::tonePlayer, lab.kamailio,
        writeToneFile(lab.dir.path(), 1000, rate, channels), lab.certs.trustedCa, codec);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    carol->waitEvent({"CALL_INCOMING"});
    carol->command("accept");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);
    const auto heard = listen(audio);
    audio.stop();
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0) << codec.toStdString();
    // Our side's audio reached it too.
    EXPECT_GT(call->mediaCounters()[1], 50u);
    call->hangup();
    lab.client->stop();
}

TEST(OutgoingCall, CarriesAToneOverOpus) {
    toneCallWith("opus", 48000, 2);
}

TEST(OutgoingCall, CarriesAToneOverG722) {
    toneCallWith("g722/16000/1", 16000, 1);
}

TEST(OutgoingCall, CarriesAToneOverPcma) {
    toneCallWith("pcma", 8000, 1);
}

TEST(OutgoingCall, SilenceIsWhatIsReadBeforeAnythingArrives) {
    Lab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ringing), CallState::ringing());
    const auto frame = call->readAudio();
    ASSERT_EQ(frame.size(), 160u);
    EXPECT_EQ(std::count(frame.begin(), frame.end(), 0), 160);
    call->hangup();
    lab.client->stop();
}

TEST(OutgoingCall, HangingUpBeforeTheAnswerCancels) {
    Lab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ringing), CallState::ringing());
    carol->waitEvent({"CALL_INCOMING"});
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    // The far end saw the call go away before it answered.
    carol->waitEvent({"CALL_CLOSED"});
    lab.client->stop();
}

TEST(OutgoingCall, AnUnknownNumberEndsAsNotFound) {
    Lab lab;
    lab.startClient();
    auto call = lab.client->placeCall("nobody");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("Not found"));
    lab.client->stop();
}

TEST(OutgoingCall, ABusyPartyEndsAsBusy) {
    Lab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    carol->waitEvent({"CALL_INCOMING"});
    carol->command("hangup");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("Busy"));
    lab.client->stop();
}

TEST(OutgoingCall, AnInvalidNumberIsRefusedAtOnce) {
    Lab lab;
    lab.startClient();
    try {
        lab.client->placeCall("not a number");
        FAIL() << "no error";
    } catch (const core::CoreError& error) {
        EXPECT_EQ(error.kind(), core::CoreError::Kind::message);
        EXPECT_EQ(error.text(), "\"not a number\" is not a number that can be called.");
    }
    lab.client->stop();
}

TEST(IncomingCall, AnsweredItCarriesTheCallersTone) {
    Lab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    carol->command("dial", "sip:alice@127.0.0.1");
    auto call = lab.events->waitIncoming();
    EXPECT_EQ(call->remoteNumber(), "carol");
    EXPECT_FALSE(call->sipCallId().empty());
    AudioLoop audio(call);
    call->answer();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    const auto heard = listen(audio);
    audio.stop();
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0);
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    carol->waitEvent({"CALL_CLOSED"});
    lab.client->stop();
}

TEST(IncomingCall, RejectedTheCallerHearsBusy) {
    Lab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    carol->command("dial", "sip:alice@127.0.0.1");
    auto call = lab.events->waitIncoming();
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    const auto closed = carol->waitEvent({"CALL_CLOSED"});
    EXPECT_NE(closed.find("486"), std::string::npos) << closed;
    lab.client->stop();
}

TEST(IncomingCall, CancelledByTheCallerBeforeTheAnswer) {
    Lab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    carol->command("dial", "sip:alice@127.0.0.1");
    auto call = lab.events->waitIncoming();
    carol->command("hangup");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("Cancelled"));
    lab.client->stop();
}

TEST(IncomingCall, TheCallerNameComesFromTheFromHeader) {
    QTemporaryDir dir;
    Kamailio::Options options;
    options.sippPort = 0;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, options);
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    // A caller with a display name, straight at the registrar (which challenges it).
    const std::uint16_t port = freeLoopbackPort();
    Sipp sipp(dir.path(), R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="named caller">
  <send><![CDATA[
INVITE sip:alice@127.0.0.1 SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: "Frank Example" <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]
To: <sip:alice@127.0.0.1>
Call-ID: [call_id]
CSeq: 1 INVITE
Contact: <sip:frank@[local_ip]:[local_port];transport=[transport]>
Max-Forwards: 70
Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 1 IN IP4 [local_ip]
s=-
c=IN IP4 [local_ip]
t=0 0
m=audio [media_port] RTP/AVP 0
a=rtpmap:0 PCMU/8000
]]></send>
  <recv response="407" auth="true"/>
  <send><![CDATA[
ACK sip:alice@127.0.0.1 SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: "Frank Example" <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]
To: <sip:alice@127.0.0.1>[peer_tag_param]
Call-ID: [call_id]
CSeq: 1 ACK
Max-Forwards: 70
Content-Length: 0

]]></send>
  <send><![CDATA[
INVITE sip:alice@127.0.0.1 SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: "Frank Example" <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]
To: <sip:alice@127.0.0.1>
Call-ID: [call_id]
CSeq: 2 INVITE
Contact: <sip:frank@[local_ip]:[local_port];transport=[transport]>
[authentication username=frank password=frank-secret]
Max-Forwards: 70
Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 1 IN IP4 [local_ip]
s=-
c=IN IP4 [local_ip]
t=0 0
m=audio [media_port] RTP/AVP 0
a=rtpmap:0 PCMU/8000
]]></send>
  <recv response="100" optional="true"/>
  <recv response="180"/>
  <recv response="486"/>
  <send><![CDATA[
ACK sip:alice@127.0.0.1 SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: "Frank Example" <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]
To: <sip:alice@127.0.0.1>[peer_tag_param]
Call-ID: [call_id]
CSeq: 2 ACK
Max-Forwards: 70
Content-Length: 0

]]></send>
</scenario>
)",
              port);
    sipp.start(kamailio.tcpServer());
    auto call = events->waitIncoming(15s);
    EXPECT_EQ(call->remoteNumber(), "frank");
    EXPECT_EQ(call->remoteName(), std::optional<std::string>("Frank Example"));
    call->hangup();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    client->stop();
}

TEST(CallStatistics, RoundTripAndTheFarEndsReportComeFromRtcp) {
    Lab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);
    // Reports come every few seconds, later on a busy machine; poll the
    // statistics as the panel does.
    const auto deadline = std::chrono::steady_clock::now() + 50s;
    core::CallStats stats = call->stats();
    while (!(stats.roundTripMs && stats.remoteLoss) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(500ms); // the pace of a bounded poll
        stats = call->stats();
    }
    audio.stop();
    ASSERT_TRUE(stats.roundTripMs.has_value());
    ASSERT_TRUE(stats.remoteLoss.has_value());
    ASSERT_TRUE(stats.remoteJitterMs.has_value());
    EXPECT_GE(*stats.roundTripMs, 0.0);
    EXPECT_LT(*stats.roundTripMs, 100.0); // loopback
    EXPECT_EQ(*stats.remoteLoss, 0.0);    // nothing is lost on loopback
    EXPECT_GT(stats.packetsReceived, 100u);
    call->hangup();
    lab.client->stop();
}

TEST(IncomingCall, AnOfferWithNoCommonCodecIsRefusedAndNeverRings) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    const char* invite = R"(
INVITE sip:alice@127.0.0.1 SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]
To: <sip:alice@127.0.0.1>
Call-ID: [call_id]
CSeq: CSEQ INVITE
Contact: <sip:frank@[local_ip]:[local_port];transport=[transport]>
AUTH
Max-Forwards: 70
Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 1 IN IP4 [local_ip]
s=-
c=IN IP4 [local_ip]
t=0 0
m=audio [media_port] RTP/AVP 3
a=rtpmap:3 GSM/8000
)";
    const char* ack = R"(
ACK sip:alice@127.0.0.1 SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:frank@127.0.0.1>;tag=[pid]SIPpTag00[call_number]
To: <sip:alice@127.0.0.1>[peer_tag_param]
Call-ID: [call_id]
CSeq: CSEQ ACK
Max-Forwards: 70
Content-Length: 0

)";
    auto with = [](QString text, const char* cseq, const char* auth) {
        return text.replace("CSEQ", cseq).replace("AUTH\n", auth);
    };
    const QString scenario =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"gsm only\">\n"
        "  <send><![CDATA[" +
        with(invite, "1", "") +
        "]]></send>\n"
        "  <recv response=\"407\" auth=\"true\"/>\n"
        "  <send><![CDATA[" +
        with(ack, "1", "") +
        "]]></send>\n"
        "  <send><![CDATA[" +
        with(invite, "2", "[authentication username=frank password=frank-secret]\n") +
        "]]></send>\n"
        "  <recv response=\"100\" optional=\"true\"/>\n"
        "  <recv response=\"488\"/>\n"
        "  <send><![CDATA[" +
        with(ack, "2", "") + "]]></send>\n</scenario>\n";
    Sipp sipp(dir.path(), scenario, freeLoopbackPort());
    sipp.start(kamailio.tcpServer());
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    client->stop();
    // Registration states only: no incoming call was ever reported.
    EXPECT_EQ(events->total(), int(events->registrations().size()));
}

#include "LinphoneFarEnd.h"
#include "Ports.h"

#include <gtest/gtest.h>

// Keypad events travel at the clock of the voice codec. A phone that speaks
// only Opus takes them at 48 kHz and answers an offer of 8 kHz events alone
// with none at all, which left the engine unable to send a digit.

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

// Takes the engine's INVITE, checks that it offers events at 48 kHz, and
// answers with Opus and those events only.
const char* opusOnlyScenario = R"(<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="opus only">
  <recv request="INVITE" rrs="true">
    <action>
      <ereg regexp="a=rtpmap:([0-9]+) telephone-event/48000" search_in="body" check_it="true" assign_to="offered,eventPt"/>
    </action>
  </recv>
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
m=audio [media_port] RTP/AVP 96 [$eventPt]
a=rtpmap:96 opus/48000/2
a=rtpmap:[$eventPt] telephone-event/48000
a=fmtp:[$eventPt] 0-15
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
  <Reference variables="offered"/>
</scenario>
)";

} // namespace

TEST(KeypadEvents, AnOpusOnlyAnswerWithEventsAt48kHzStillTakesDigits) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    const std::uint16_t sippPort = freeLoopbackPort();
    Kamailio kamailio(dir.path(), certs, {false, sippPort, false});
    Sipp sipp(dir.path(), opusOnlyScenario, sippPort);
    sipp.start();
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), core::RegistrationState::registered());
    auto call = client->placeCall("sipp");
    ASSERT_EQ(events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    EXPECT_NO_THROW(call->sendDtmf('7'));
    call->hangup();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    client->stop();
}

TEST(KeypadEvents, AnOpusOnlyLinphoneHearsEveryDigit) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    interop::LinphoneFarEnd linphone(dir.path(), "bob", kamailio, certs, interop::Transport::tcp,
                                     interop::Codec::opus);
    interop::FarEnd& bob = linphone;
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), core::RegistrationState::registered());
    bob.expectCall(false);
    auto call = client->placeCall("bob");
    ASSERT_EQ(events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    bob.waitAnswered();
    AudioLoop audio(call);
    for (const char digit : {'1', '*', '0', '#'}) {
        call->sendDtmf(digit);
        bob.waitDtmf(digit);
    }
    audio.stop();
    call->hangup();
    bob.waitEnded();
    client->stop();
}

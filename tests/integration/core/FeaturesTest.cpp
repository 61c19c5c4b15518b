#include "Ports.h"
#include "SipLab.h"

#include <gtest/gtest.h>

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

QString reply(const QString& status, const QString& direction, bool newTag) {
    QString text = "SIP/2.0 " + status + "\n[last_Via:]\n[last_From:]\n[last_To:]" +
                   (newTag ? ";tag=[pid]SIPpTag01[call_number]" : "") +
                   "\n[last_Call-ID:]\n[last_CSeq:]\n[last_Record-Route:]\n"
                   "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n";
    if (direction.isEmpty()) {
        return text + "Content-Length: 0\n\n";
    }
    return text +
           "Content-Type: application/sdp\nContent-Length: [len]\n\n"
           "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\n"
           "m=audio [media_port] RTP/AVP 0 101\na=rtpmap:0 PCMU/8000\n"
           "a=rtpmap:101 telephone-event/8000\na=" +
           direction + "\n";
}

QString send(const QString& message) {
    return "  <send><![CDATA[\n" + message + "]]></send>\n";
}

// A far end that answers, then takes a re-INVITE that must offer sendonly.
// rejectHold: it refuses that re-INVITE and the call goes on as before.
enum class HoldAnswer { accept, refuse, never };

QString holdScenario(HoldAnswer answer) {
    const bool rejectHold = answer != HoldAnswer::accept;
    QString xml = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"hold\">\n"
                  "  <recv request=\"INVITE\"/>\n" +
                  send(reply("180 Ringing", {}, true)) + send(reply("200 OK", "sendrecv", true)) +
                  "  <recv request=\"ACK\"/>\n"
                  "  <recv request=\"INVITE\"><action><ereg regexp=\"a=sendonly\" "
                  "search_in=\"body\" check_it=\"true\" assign_to=\"1\"/></action></recv>\n";
    if (answer == HoldAnswer::refuse) {
        xml += send(reply("488 Not Acceptable Here", {}, false)) + "  <recv request=\"ACK\"/>\n";
    } else if (answer == HoldAnswer::never) {
        // Says nothing at all to the re-INVITE.
    } else {
        xml += send(reply("200 OK", "recvonly", false)) +
               "  <recv request=\"ACK\"/>\n"
               "  <recv request=\"INVITE\"><action><ereg regexp=\"a=sendrecv\" "
               "search_in=\"body\" check_it=\"true\" assign_to=\"2\"/></action></recv>\n" +
               send(reply("200 OK", "sendrecv", false)) + "  <recv request=\"ACK\"/>\n";
    }
    if (answer != HoldAnswer::never) {
        // (With a re-INVITE left open, the BYE waits for that transaction to time out.)
        xml += "  <recv request=\"BYE\"/>\n" + send(reply("200 OK", {}, false));
    }
    xml += "  <Reference variables=\"1" + QString(rejectHold ? "" : ",2") + "\"/>\n</scenario>\n";
    return xml;
}

QString notify(const QString& state, const QString& sipfrag) {
    return "NOTIFY [next_url] SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "From:[$referTo]\nTo:[$referFrom]\nCall-ID: [call_id]\nCSeq: [cseq] NOTIFY\n"
           "[routes]\n"
           "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n"
           "Max-Forwards: 70\nEvent: refer;id=[$referCseq]\nSubscription-State: " +
           state + "\nContent-Type: message/sipfrag\nContent-Length: [len]\n\n" + sipfrag + "\n";
}

// A far end that answers, takes a REFER and reports the outcome of the
// transfer by NOTIFY with a sipfrag, then takes the BYE.
QString transferScenario(const QString& outcome) {
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"transfer\">\n"
           "  <recv request=\"INVITE\" rrs=\"true\"/>\n" +
           send(reply("180 Ringing", {}, true)) + send(reply("200 OK", "sendrecv", true)) +
           "  <recv request=\"ACK\"/>\n"
           "  <recv request=\"REFER\"><action>"
           "<ereg regexp=\".*\" search_in=\"hdr\" header=\"From:\" assign_to=\"referFrom\"/>"
           "<ereg regexp=\".*\" search_in=\"hdr\" header=\"To:\" assign_to=\"referTo\"/>"
           "<ereg regexp=\"[0-9]+\" search_in=\"hdr\" header=\"CSeq:\" assign_to=\"referCseq\"/>"
           "<ereg regexp=\"sip:bob@|sip:nobody@\" search_in=\"hdr\" header=\"Refer-To:\" "
           "check_it=\"true\" assign_to=\"target\"/>"
           "</action></recv>\n" +
           send(reply("202 Accepted", {}, false)) +
           send(notify("active;expires=60", "SIP/2.0 100 Trying")) +
           "  <recv response=\"200\"/>\n" + send(notify("terminated;reason=noresource", outcome)) +
           "  <recv response=\"200\"/>\n"
           "  <recv request=\"BYE\"/>\n" +
           send(reply("200 OK", {}, false)) + "  <Reference variables=\"target\"/>\n</scenario>\n";
}

struct Lab {
    explicit Lab(std::uint16_t sippPort = 0) : kamailio(dir.path(), certs, {false, sippPort}) {}
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio;
    QString tone = writeToneFile(dir.path(), 1000);
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    void startClient() {
        client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    }
    std::unique_ptr<Baresip> party(const std::string& user, Baresip::Role role) {
        return std::make_unique<Baresip>(dir.path(), user, role, kamailio, tone, certs.trustedCa);
    }
};

} // namespace

TEST(Hold, HoldAndResumeByReInviteTheFarEndSeesSendonly) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), holdScenario(HoldAnswer::accept), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    call->setHold(true);
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::held), CallState::held());
    call->setHold(false);
    EXPECT_TRUE(lab.events->waitCallCount(call->sipCallId(), 4));
    std::vector<CallState> expected = {CallState::ringing(), CallState::connected(),
                                       CallState::held(), CallState::connected()};
    EXPECT_EQ(lab.events->callStates(call->sipCallId()), expected);
    call->hangup();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    lab.client->stop();
}

TEST(Hold, ARefusedHoldLeavesTheCallConnectedAndSaysSo) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), holdScenario(HoldAnswer::refuse), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    const size_t before = lab.events->callStates(call->sipCallId()).size();
    call->setHold(true);
    // The guard reports the state the call is really in.
    EXPECT_TRUE(lab.events->waitCallCount(call->sipCallId(), before + 1));
    const auto states = lab.events->callStates(call->sipCallId());
    ASSERT_GT(states.size(), before);
    EXPECT_EQ(states[before], CallState::connected());
    call->hangup();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    lab.client->stop();
}

TEST(Hold, AnUnansweredHoldLeavesTheCallConnectedWhenTheGuardRunsOut) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), holdScenario(HoldAnswer::never), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    const size_t before = lab.events->callStates(call->sipCallId()).size();
    call->setHold(true);
    EXPECT_TRUE(lab.events->waitCallCount(call->sipCallId(), before + 1));
    const auto states = lab.events->callStates(call->sipCallId());
    ASSERT_GT(states.size(), before);
    EXPECT_EQ(states[before], CallState::connected());
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    call->hangup();
    lab.client->stop();
}

TEST(Dtmf, DigitsReachTheFarEndAsTelephoneEvents) {
    Lab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call);
    call->sendDtmf('5');
    call->sendDtmf('#');
    call->sendDtmf('1');
    bob->waitEvent({"CALL_DTMF_START", "\"param\":\"5\""});
    bob->waitEvent({"CALL_DTMF_START", "\"param\":\"#\""});
    bob->waitEvent({"CALL_DTMF_START", "\"param\":\"1\""});
    EXPECT_THROW(call->sendDtmf('x'), core::CoreError);
    audio.stop();
    call->hangup();
    lab.client->stop();
}

TEST(Transfer, ABlindTransferThatSucceedsEndsTheCall) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), transferScenario("SIP/2.0 200 OK"), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    call->transfer("bob");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::transferring),
              CallState::transferring());
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended),
              CallState::ended("Transferred"));
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    lab.client->stop();
}

TEST(Transfer, ABlindTransferThatFailsLeavesTheCallUp) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    Sipp sipp(lab.dir.path(), transferScenario("SIP/2.0 404 Not Found"), sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    call->transfer("nobody");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::transferring),
              CallState::transferring());
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::transferFailed),
              CallState::transferFailed("Not found"));
    call->hangup();
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    lab.client->stop();
}

TEST(EarlyMedia, ASessionProgressWithMediaRingsAndABusyEndsAsBusy) {
    const std::uint16_t sippPort = freeLoopbackPort();
    Lab lab(sippPort);
    const QString scenario =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"early\">\n"
        "  <recv request=\"INVITE\"/>\n" +
        send(reply("183 Session Progress", "sendrecv", true)) +
        send(reply("486 Busy Here", {}, true)) + "  <recv request=\"ACK\"/>\n</scenario>\n";
    Sipp sipp(lab.dir.path(), scenario, sippPort);
    sipp.start();
    lab.startClient();
    auto call = lab.client->placeCall("sipp");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("Busy"));
    const std::vector<CallState> expected = {CallState::ringing(), CallState::ended("Busy")};
    EXPECT_EQ(lab.events->callStates(call->sipCallId()), expected);
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    lab.client->stop();
}

TEST(Transfer, ARealPhoneCarriesOutABlindTransfer) {
    Lab lab;
    auto bob = lab.party("bob", Baresip::Role::echo);
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.startClient();
    auto call = lab.client->placeCall("carol");
    carol->waitEvent({"CALL_INCOMING"});
    carol->command("accept");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    call->transfer("bob");
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::transferring),
              CallState::transferring());
    EXPECT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended),
              CallState::ended("Transferred"));
    // Carol now talks to bob.
    bob->waitEvent({"CALL_ESTABLISHED", "carol"});
    lab.client->stop();
}

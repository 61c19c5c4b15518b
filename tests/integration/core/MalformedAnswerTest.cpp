// Answers to our INVITE that cannot be read: a broken header, a description
// cut short, a 183 whose description is garbage. The call ends with a
// sentence, and the same client places the next call as if nothing happened.
//
// sipp is registrar and callee here, with nothing between it and the engine:
// a proxy would drop such a reply before it reached us. Each Call-ID runs its
// own instance of the one scenario, so a REGISTER takes the registrar's branch
// and every INVITE the call's; calls to "good" are answered properly.

#include "Ports.h"
#include "SipLab.h"

#include <gtest/gtest.h>

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

const char* const unreadable = "The far end's answer could not be read.";

const char* const sdpBody = "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\n"
                            "m=audio [media_port] RTP/AVP 0\na=rtpmap:0 PCMU/8000\na=sendrecv\n";

// The head of a reply to the last request, up to (not with) its Contact.
QString replyHead(const QString& status) {
    return "SIP/2.0 " + status +
           "\n[last_Via:]\n[last_From:]\n[last_To:];tag=[pid]SIPpTag01[call_number]\n"
           "[last_Call-ID:]\n[last_CSeq:]\n";
}

const char* const contactLine =
    "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>\n";

QString send(const QString& text, const QString& attributes = {}) {
    return "  <send" + attributes + "><![CDATA[\n" + text + "]]></send>\n";
}

// How the call to anyone but "good" is answered, from its INVITE on, up to
// the end of that call's branch.
struct BadAnswer {
    QString steps;
};

// The registrar and callee in one scenario around a bad answer.
QString scenario(const BadAnswer& bad) {
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"bad answer\">\n"
           "  <recv request=\"REGISTER\" optional=\"true\" next=\"register\"/>\n"
           "  <recv request=\"INVITE\"><action>"
           "<ereg regexp=\"^INVITE sip:good@\" search_in=\"msg\" check_it=\"false\" "
           "assign_to=\"good\"/></action></recv>\n"
           "  <nop next=\"answer\" test=\"good\"/>\n" +
           send(replyHead("180 Ringing") + contactLine + "Content-Length: 0\n\n") + bad.steps +
           "  <nop next=\"end\"/>\n"
           "  <label id=\"answer\"/>\n" +
           send(replyHead("180 Ringing") + contactLine + "Content-Length: 0\n\n") +
           send(replyHead("200 OK") + contactLine +
                "Content-Type: application/sdp\nContent-Length: [len]\n\n" + sdpBody) +
           "  <recv request=\"ACK\"/>\n"
           "  <recv request=\"BYE\"/>\n" +
           send("SIP/2.0 200 OK\n[last_Via:]\n[last_From:]\n[last_To:]\n[last_Call-ID:]\n"
                "[last_CSeq:]\nContent-Length: 0\n\n") +
           "  <nop next=\"end\"/>\n"
           "  <label id=\"register\"/>\n" +
           send("SIP/2.0 200 OK\n[last_Via:]\n[last_From:]\n[last_To:];tag=[pid]r\n"
                "[last_Call-ID:]\n[last_CSeq:]\n[last_Contact:]\nExpires: 300\n"
                "Content-Length: 0\n\n") +
           "  <label id=\"end\"/>\n"
           "</scenario>\n";
}

// After a bad answer the engine gives the call up in its own way (an ACK and
// a BYE, a CANCEL, or the connection closed): the instance takes whichever
// comes and ends after a while either way.
QString whateverFollows() {
    return "  <recv request=\"ACK\" optional=\"true\"/>\n"
           "  <recv request=\"CANCEL\" optional=\"true\"/>\n"
           "  <recv request=\"BYE\" timeout=\"2000\" ontimeout=\"end\"/>\n" +
           send("SIP/2.0 200 OK\n[last_Via:]\n[last_From:]\n[last_To:]\n[last_Call-ID:]\n"
                "[last_CSeq:]\nContent-Length: 0\n\n");
}

struct Party {
    QTemporaryDir dir;
    std::uint16_t port = freeLoopbackPort();
    std::unique_ptr<Sipp> sipp;
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    explicit Party(const BadAnswer& bad) {
        sipp = std::make_unique<Sipp>(dir.path(), scenario(bad), port, 100);
        // Every REGISTER starts an instance of its own, also one whose
        // Call-ID an ended instance had: the registration outlives connections.
        sipp->start({}, {"-deadcall_wait", "0"});
        client = core::SipClient::init(
            accountFor("127.0.0.1:" + std::to_string(port), "alice", "alice-secret"), events);
        client->start();
    }
    ~Party() {
        if (client) {
            client->stop();
        }
    }

    // The call to a bad answer ends with the sentence; the next one connects.
    // When the connection could not be trusted after the answer, the client
    // replaces it and registers again before that.
    void expectFailureThenAGoodCall(bool connectionReplaced) {
        try {
            ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
            size_t earlier = events->registrations().size();
            auto bad = client->placeCall("bad");
            EXPECT_EQ(events->waitCall(bad->sipCallId(), Kind::ended),
                      CallState::ended(unreadable));
            if (connectionReplaced) {
                bool registering = false;
                events->waitRegistration([&](const core::RegistrationState& state) {
                    if (earlier > 0) {
                        --earlier;
                        return false;
                    }
                    registering =
                        registering || state.kind == core::RegistrationState::Kind::registering;
                    return registering && state.kind == core::RegistrationState::Kind::registered;
                });
            }
            auto good = client->placeCall("good");
            EXPECT_EQ(events->waitCall(good->sipCallId(), Kind::connected), CallState::connected());
            good->hangup();
            EXPECT_EQ(events->waitCall(good->sipCallId(), Kind::ended), CallState::ended("local"));
        } catch (const std::exception& e) {
            // What the far end saw tells where it went wrong.
            FAIL() << e.what() << "\n" << sipp->output();
        }
    }
};

} // namespace

TEST(MalformedAnswer, AnAnswerWhoseCSeqHasNoNumberFailsTheCallAndTheNextCallConnects) {
    Party party({send(replyHead("200 OK").replace("[last_CSeq:]", "CSeq: INVITE") + contactLine +
                      "Content-Type: application/sdp\nContent-Length: [len]\n\n" + sdpBody) +
                 whateverFollows()});
    party.expectFailureThenAGoodCall(true);
}

TEST(MalformedAnswer, AnAnswerWhoseContactCannotBeReadFailsTheCallAndTheNextCallConnects) {
    Party party({send(replyHead("200 OK") +
                      "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]\n" +
                      "Content-Type: application/sdp\nContent-Length: [len]\n\n" + sdpBody) +
                 whateverFollows()});
    party.expectFailureThenAGoodCall(false);
}

TEST(MalformedAnswer, AnAnswerShorterThanItsContentLengthFailsTheCallAndTheNextCallConnects) {
    // The description announces more than comes; the connection's next
    // message (a late 180) runs into it.
    Party party({send(replyHead("200 OK") + contactLine +
                      "Content-Type: application/sdp\nContent-Length: 400\n\n" + sdpBody) +
                 "  <pause milliseconds=\"200\"/>\n" +
                 send(replyHead("180 Ringing") + contactLine + "Content-Length: 0\n\n") +
                 whateverFollows()});
    party.expectFailureThenAGoodCall(true);
}

TEST(MalformedAnswer, AnAnswerWhoseDescriptionIsCutMidLineFailsTheCallAndTheNextCallConnects) {
    Party party({send(replyHead("200 OK") + contactLine +
                      "Content-Type: application/sdp\nContent-Length: [len]\n\n"
                      "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4") +
                 whateverFollows()});
    party.expectFailureThenAGoodCall(false);
}

TEST(MalformedAnswer, A183WithABrokenDescriptionFailsTheCallAndTheNextCallConnects) {
    Party party({send(replyHead("183 Session Progress") + contactLine +
                      "Content-Type: application/sdp\nContent-Length: [len]\n\n"
                      "v=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\n"
                      "m=audio notaport RTP/AVP\n") +
                 whateverFollows()});
    party.expectFailureThenAGoodCall(false);
}

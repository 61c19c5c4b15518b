#include "CallRouter.h"
#include "Bencode.h"
#include "RelayStats.h"

#include <gtest/gtest.h>

using namespace rzdev;

namespace {

// The demo company with phones: Anna has two devices, Frank one, David a
// party at a fixed address; the recorder is at a known URI.
struct Phones {
    Phones() {
        model.loadDemo(12);
        addDevice("dev-a1", "u-001", "acme.201.a1");
        addDevice("dev-a2", "u-001", "acme.201.a2");
        addDevice("dev-f", "u-006", "acme.206.f");
        addDevice("dev-e", "u-005", "acme.205.e");
        Device busy;
        busy.id = "dev-d";
        busy.userId = "u-004";
        busy.sipUsername = "acme.204.d";
        busy.contact = "sip:busy@127.0.0.1:5999;transport=tcp";
        model.devices.push_back(busy);
    }
    void addDevice(const char* id, const char* user, const char* sip) {
        Device d;
        d.id = id;
        d.userId = user;
        d.sipUsername = sip;
        model.devices.push_back(d);
    }
    Clock clock;
    Model model{clock};
    CallRouter router{model, {"sip:voicemail@127.0.0.1:5998;transport=tcp", 20000}};
};

} // namespace

TEST(DevServerCallRouter, ADialledTextBecomesItsDigits) {
    EXPECT_EQ(CallRouter::normalise("sip:201@rz.local;transport=tcp"), "201");
    EXPECT_EQ(CallRouter::normalise("+49 30 555201"), "+4930555201");
    EXPECT_EQ(CallRouter::normalise("tel:600"), "600");
    EXPECT_EQ(CallRouter::normalise("sip:abc@rz.local"), "");
}

TEST(DevServerCallRouter, AnExtensionReachesEveryDeviceOfTheUserWithTheMailboxTime) {
    Phones p;
    CallChanges changes;
    const auto answer = p.router.route("c1", "acme.205.e", "", "201", changes);
    EXPECT_EQ(answer.text, "users|20000|acme.201.a1|acme.201.a2|end");
    // Emma's and Anna's calls are both on their "calls:mine", ringing.
    ASSERT_EQ(changes.upserted.size(), 2u);
    const auto* anna = p.model.call(p.router.dialog("c1")->liveIds.at("u-001"));
    ASSERT_NE(anna, nullptr);
    EXPECT_EQ(anna->call.at("state"), "ringing");
    EXPECT_EQ(anna->call.at("direction"), "inbound");
    EXPECT_EQ(anna->call.at("myLegs").size(), 2u);
    EXPECT_EQ(anna->call.at("myLegs")[0].at("sipCallId"), "c1");
    EXPECT_EQ(p.model.user("u-001")->presence, "ringing");
}

TEST(DevServerCallRouter, AUsersDirectNumberReachesThemToo) {
    Phones p;
    CallChanges changes;
    EXPECT_EQ(p.router.route("c1", "acme.205.e", "", "+4930555201", changes).text,
              "users|20000|acme.201.a1|acme.201.a2|end");
}

TEST(DevServerCallRouter, AGroupForksToItsMembersDevicesButNotTheCallers) {
    Phones p;
    CallChanges changes;
    // Sales: Anna, Frank, Grace. Anna calls it: only Frank has a phone among the others.
    EXPECT_EQ(p.router.route("c1", "acme.201.a1", "", "600", changes).text,
              "users|0|acme.206.f|end");
}

TEST(DevServerCallRouter, AnUnknownNumberIsRefused) {
    Phones p;
    CallChanges changes;
    EXPECT_EQ(p.router.route("c1", "acme.205.e", "", "777", changes).text, "reject|404|Not Found");
    EXPECT_TRUE(p.router.dialogs().empty());
}

TEST(DevServerCallRouter, APartyAtAFixedAddressIsCalledThere) {
    Phones p;
    CallChanges changes;
    EXPECT_EQ(p.router.route("c1", "acme.201.a1", "", "204", changes).text,
              "uri|sip:busy@127.0.0.1:5999;transport=tcp");
}

TEST(DevServerCallRouter, AUserWithoutAPhoneGoesStraightToTheMailbox) {
    Phones p;
    CallChanges changes;
    // Ben has box-202 only after the phone system gives him one.
    p.model.user("u-002")->voicemailBoxId = "box-202";
    EXPECT_EQ(p.router.route("c1", "acme.201.a1", "", "202", changes).text,
              "uri|sip:voicemail@127.0.0.1:5998;transport=tcp");
    EXPECT_EQ(p.router.dialog("c1")->mailbox, "box-202");
}

TEST(DevServerCallRouter, AnsweringOnOneDeviceEndsTheOtherMembersRinging) {
    Phones p;
    CallChanges routed;
    p.router.route("c1", "acme.205.e", "", "600", routed);
    const auto annaLive = p.router.dialog("c1")->liveIds.at("u-001");
    CallChanges answered;
    p.router.answered("c1", "acme.206.f-0x1234", answered);
    ASSERT_EQ(answered.ended.size(), 1u);
    EXPECT_EQ(answered.ended[0], std::make_pair(std::string("u-001"), annaLive));
    EXPECT_EQ(p.model.user("u-006")->presence, "busy");
    // Anna's row says someone else took it.
    const auto& row = p.model.callLog.front();
    EXPECT_EQ(row.userId, "u-001");
    EXPECT_EQ(row.row.at("result"), "answered_elsewhere");
    EXPECT_EQ(row.row.at("answeredBy"), "u-006");
}

TEST(DevServerCallRouter, AFinishedCallLeavesALogRowForEachSide) {
    Phones p;
    CallChanges changes;
    p.router.route("c1", "acme.205.e", "", "201", changes);
    p.router.answered("c1", "acme.201.a2", changes);
    CallChanges ended;
    p.router.ended("c1", ended);
    EXPECT_EQ(ended.ended.size(), 2u);
    EXPECT_TRUE(p.model.calls.empty());
    EXPECT_TRUE(p.router.dialogs().empty());
    const auto page = p.model.callLogPage("u-001", 1, std::nullopt);
    const auto row = page.at("calls").at(0);
    EXPECT_EQ(row.at("from"), "205");
    EXPECT_EQ(row.at("to"), "201");
    EXPECT_EQ(row.at("direction"), "internal");
    EXPECT_EQ(row.at("result"), "answered");
    EXPECT_EQ(row.at("mine").at("answeredByMe"), true);
    EXPECT_EQ(p.model.user("u-001")->presence, "idle");
}

TEST(DevServerCallRouter, ABusyCalleeShowsAsBusyInTheCallersLog) {
    Phones p;
    CallChanges changes;
    p.router.route("c1", "acme.201.a1", "", "204", changes);
    p.router.failed("c1", 486, changes);
    const auto row = p.model.callLogPage("u-001", 1, std::nullopt).at("calls").at(0);
    EXPECT_EQ(row.at("result"), "busy");
    EXPECT_FALSE(row.contains("answerAt"));
}

TEST(DevServerCallRouter, AnUnansweredCallGoesToTheMailboxAndLeavesAMessageBehind) {
    Phones p;
    CallChanges changes;
    p.router.route("c1", "acme.205.e", "", "201", changes);
    CallChanges timedOut;
    EXPECT_EQ(p.router.unanswered("c1", timedOut).text,
              "uri|sip:voicemail@127.0.0.1:5998;transport=tcp");
    // Anna's phones stopped ringing: her call ended as a voicemail.
    ASSERT_EQ(timedOut.ended.size(), 1u);
    EXPECT_EQ(timedOut.ended[0].first, "u-001");
    CallChanges recorded;
    p.router.answered("c1", "voicemail", recorded);
    p.router.ended("c1", recorded);
    ASSERT_TRUE(recorded.recorded);
    const auto left = p.router.takeVoicemail(*recorded.recorded);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->mailbox, "box-201");
    EXPECT_EQ(p.model.callLogPage("u-005", 1, std::nullopt).at("calls")[0].at("result"),
              "voicemail");
}

TEST(DevServerCallRouter, AnUnansweredCallToSomeoneWithoutAMailboxJustFails) {
    Phones p;
    CallChanges changes;
    p.router.route("c1", "acme.205.e", "", "206", changes);
    CallChanges timedOut;
    EXPECT_EQ(p.router.unanswered("c1", timedOut).text, "none");
    p.router.failed("c1", 408, timedOut);
    const auto row = p.model.callLogPage("u-006", 1, std::nullopt).at("calls").at(0);
    EXPECT_EQ(row.at("result"), "missed");
}

TEST(DevServerRelayStats, BencodeReadsWhatItWrites) {
    const Json value = {{"command", "query"}, {"call-id", "abc"}, {"n", 42}, {"l", {1, "x"}}};
    const auto bytes = bencode(value);
    EXPECT_EQ(bytes, "d7:call-id3:abc7:command5:query1:lli1e1:xe1:ni42ee");
    // The same members; bencode orders the keys.
    const auto decoded = bdecode(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(nlohmann::json::parse(decoded->dump()), nlohmann::json::parse(value.dump()));
    EXPECT_FALSE(bdecode("d3:key"));
    EXPECT_FALSE(bdecode("i12"));
    EXPECT_FALSE(bdecode("5:ab"));
}

TEST(DevServerRelayStats, EachSidesStreamIsScoredFromItsSsrc) {
    const Json query = {
        {"SSRC",
         {{"111",
           {{"average MOS",
             {{"MOS", 44}, {"round-trip time", 826}, {"jitter", 1}, {"packet loss", 0}}}}},
          {"222",
           {{"average MOS",
             {{"MOS", 31}, {"round-trip time", 20000}, {"jitter", 30}, {"packet loss", 7}}}}}}},
        {"tags",
         {{"caller-tag", {{"medias", {{{"streams", {{{"SSRC", 111}}}}}}}}},
          {"callee-tag", {{"medias", {{{"streams", {{{"SSRC", 222}}}}}}}}}}}};
    const auto legs = legQualities(query, "caller-tag");
    ASSERT_TRUE(legs.caller);
    ASSERT_TRUE(legs.callee);
    EXPECT_EQ((*legs.caller)["level"], "good");
    EXPECT_DOUBLE_EQ((*legs.caller)["mos"].get<double>(), 4.4);
    EXPECT_DOUBLE_EQ((*legs.caller)["rttMs"].get<double>(), 0.826);
    EXPECT_EQ((*legs.callee)["level"], "poor");
    EXPECT_DOUBLE_EQ((*legs.callee)["lossPct"].get<double>(), 7.0);
}

TEST(DevServerRelayStats, AStreamNotYetScoredHasNoQuality) {
    const Json query = {{"tags", {{"t", {{"medias", {{{"streams", {{{"SSRC", 5}}}}}}}}}}}};
    const auto legs = legQualities(query, "t");
    EXPECT_FALSE(legs.caller);
    EXPECT_FALSE(legs.callee);
    EXPECT_EQ(qualityLevel(3.7), "fair");
}

TEST(DevServerCallRouter, TheMainLineQueuesTheCallerAndRingsTheAvailableAgents) {
    Phones p;
    CallChanges changes;
    // q-support: Anna is available, Ben on a call, Chloé paused, Emma ringing elsewhere.
    EXPECT_EQ(p.router.route("c1", "acme.206.f", "", "+493055500000", changes).text,
              "users|0|acme.201.a1|acme.201.a2|end");
    const Queue* queue = p.model.queue("q-support");
    const auto waiting = std::find_if(queue->waiting.begin(), queue->waiting.end(),
                                      [](const QueueWaiting& w) { return w.callId == "c1"; });
    ASSERT_NE(waiting, queue->waiting.end());
    EXPECT_EQ(waiting->state, "waiting");
    EXPECT_EQ(waiting->from.at("userId"), "u-006");
    EXPECT_EQ(queue->agents[0].state, "ringing");
    EXPECT_EQ(changes.boards, std::vector<std::string>{"q-support"});

    CallChanges answered;
    const int before = queue->agents[0].answeredToday;
    p.router.answered("c1", "acme.201.a1", answered);
    EXPECT_EQ(queue->agents[0].state, "on_call");
    EXPECT_EQ(queue->agents[0].answeredToday, before + 1);
    EXPECT_TRUE(std::none_of(queue->waiting.begin(), queue->waiting.end(),
                             [](const QueueWaiting& w) { return w.callId == "c1"; }));

    CallChanges ended;
    p.router.ended("c1", ended);
    EXPECT_EQ(queue->agents[0].state, "available");
    EXPECT_EQ(ended.boards, std::vector<std::string>{"q-support"});
}

TEST(DevServerCallRouter, TheMainLinesExtensionQueuesTheCallerLikeItsNumber) {
    Phones p;
    CallChanges changes;
    EXPECT_EQ(p.router.route("c1", "acme.206.f", "", "sip:700@rz.local", changes).text,
              "users|0|acme.201.a1|acme.201.a2|end");
    EXPECT_EQ(p.router.dialog("c1")->queueId, "q-support");
    EXPECT_EQ(p.router.dialog("c1")->to.at("name"), "Main line");
}

TEST(DevServerCallRouter, AnotherFlowsExtensionRingsItsMembersWithoutAMailbox) {
    Phones p;
    p.addDevice("dev-c", "u-003", "acme.203.c");
    CallChanges changes;
    // After hours rings Chloé; no mailbox takes the call while it rings.
    EXPECT_EQ(p.router.route("c1", "acme.201.a1", "", "701", changes).text,
              "users|0|acme.203.c|end");
    EXPECT_EQ(p.router.dialog("c1")->flowId, "f-after");
    EXPECT_EQ(p.router.dialog("c1")->to.at("name"), "After hours");
    CallChanges late;
    EXPECT_EQ(p.router.unanswered("c1", late).text, "none");
}

TEST(DevServerCallRouter, AFlowWhoseMembersHaveNoPhoneIsUnavailable) {
    Phones p;
    CallChanges changes;
    EXPECT_EQ(p.router.route("c1", "acme.201.a1", "", "701", changes).text,
              "reject|480|Temporarily Unavailable");
}

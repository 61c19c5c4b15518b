#include "DevServerKit.h"

using namespace kit;

namespace {

json call(const std::string& id, const std::string& sipCallId) {
    return {{"id", id},
            {"direction", "outbound"},
            {"from", {{"number", "201"}, {"name", "Anna Berger"}, {"userId", "u-001"}}},
            {"to", {{"number", "+4930123456"}}},
            {"state", "connected"},
            {"startedAt", 1731000000000},
            {"myLegs", json::array({{{"sipCallId", sipCallId}, {"deviceId", "dev-1"}}})}};
}

json leg(const std::string& id, const std::string& number) {
    return {{"id", id}, {"party", {{"number", number}}}};
}

} // namespace

TEST(DevServerLive, AHandshakeWithoutAValidTokenIsRefused) {
    DevServer server;
    LiveClient none(server, {});
    EXPECT_FALSE(none.waitConnected());
    LiveClient wrong(server, "nonsense");
    EXPECT_FALSE(wrong.waitConnected());
}

TEST(DevServerLive, ASubscriptionIsAnsweredWithASnapshot) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    ASSERT_TRUE(live.waitConnected());
    live.sub("presence");
    const auto presence = live.nextData();
    EXPECT_EQ(presence.at("type"), "snapshot");
    EXPECT_EQ(presence.at("topic"), "presence");
    const auto& users = presence.at("data").at("users");
    EXPECT_EQ(users.size(), 12u);
    EXPECT_EQ(users.at("u-001"), (json{{"state", "idle"}}));
    EXPECT_TRUE(presence.at("data").at("groups").at("g-support").at("ringing").is_number_integer());

    live.sub("calls:mine");
    const auto mine = live.nextData();
    EXPECT_EQ(mine.at("topic"), "calls:mine");
    EXPECT_EQ(mine.at("data"), (json{{"calls", json::array()}}));

    live.sub("queue:q-support");
    const auto board = live.nextData();
    EXPECT_EQ(board.at("type"), "snapshot");
    const auto& data = board.at("data");
    EXPECT_EQ(data.at("id"), "q-support");
    EXPECT_EQ(data.at("waiting").size(), 2u);
    EXPECT_TRUE(data.at("waiting")[0].at("since").is_number_integer());
    EXPECT_TRUE(data.at("waiting")[0].at("from").is_object());
    EXPECT_TRUE(data.at("waiting")[1].at("from").is_string());
    EXPECT_EQ(data.at("agents").size(), 5u);
    EXPECT_EQ(data.at("agents")[0].at("userId"), "u-001");
}

TEST(DevServerLive, AnUnknownTopicGetsAnErrorFrame) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("weather");
    EXPECT_EQ(live.nextData(),
              (json{{"type", "error"}, {"topic", "weather"}, {"code", "unknown_topic"}}));
    live.sub("call:none");
    EXPECT_EQ(live.nextData().at("type"), "error");
    live.send(json{{"type", "sub"}});
    EXPECT_EQ(live.nextData().at("type"), "error");
    live.socket().sendTextMessage("not json"); // open by now
    EXPECT_EQ(live.nextData().at("code"), "bad_frame");
    live.socket().sendBinaryMessage(R"({"type":"sub","topic":"presence"})");
    EXPECT_EQ(live.nextData().at("code"), "text_frames_only");
    // The socket is still serving.
    live.sub("presence");
    EXPECT_EQ(live.nextData().at("type"), "snapshot");
}

TEST(DevServerLive, PresenceChangesArriveAsDeltas) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("presence");
    live.nextData();
    s.server.control("PATCH", "users/u-002", {{"presence", "ringing"}});
    EXPECT_EQ(live.nextData(), (json{{"type", "delta"},
                                     {"topic", "presence"},
                                     {"data", {{"userId", "u-002"}, {"state", "ringing"}}}}));
    s.server.control("PATCH", "groups/g-sales", {{"ringing", 2}});
    EXPECT_EQ(live.nextData().at("data"), (json{{"groupId", "g-sales"}, {"ringing", 2}}));
    ASSERT_EQ(s.send("PATCH", "api/users/u-001", {{"dnd", true}}).status, 204);
    EXPECT_EQ(live.nextData().at("data"), (json{{"userId", "u-001"}, {"state", "dnd"}}));
}

TEST(DevServerLive, UnsubStopsTheDeltasOfATopic) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("presence");
    live.nextData();
    live.sub("queue:q-sales");
    live.nextData();
    live.send(json{{"type", "unsub"}, {"topic", "presence"}});
    // A board change after a presence change: the first frame to arrive is the board.
    live.sub("calls:mine");
    live.nextData(); // the unsub was handled before this snapshot was sent
    s.server.control("PATCH", "users/u-003", {{"presence", "busy"}});
    s.server.control("PATCH", "queues/q-sales/agents/u-006", {{"state", "on_call"}});
    const auto frame = live.nextData();
    EXPECT_EQ(frame.at("topic"), "queue:q-sales");
    EXPECT_EQ(frame.at("data").at("op"), "board");
}

TEST(DevServerLive, CallsOfMineAreUpsertedAndEnded) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("calls:mine");
    live.nextData();
    s.server.control("POST", "calls", {{"call", call("c-1", "sip-abc")}});
    const auto upsert = live.nextData();
    EXPECT_EQ(upsert.at("topic"), "calls:mine");
    EXPECT_EQ(upsert.at("data"), (json{{"op", "upsert"}, {"call", call("c-1", "sip-abc")}}));
    s.server.control("DELETE", "calls/c-1");
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "end"}, {"id", "c-1"}}));

    // Calls of someone else stay theirs.
    s.server.control("POST", "calls", {{"call", call("c-2", "sip-x")}, {"owner", "u-002"}});
    s.server.control("POST", "calls", {{"call", call("c-3", "sip-y")}});
    EXPECT_EQ(live.nextData().at("data").at("call").at("id"), "c-3");
}

TEST(DevServerLive, CallLegsAndQualityArriveOnTheCallTopic) {
    SignedIn s;
    s.server.control("POST", "calls",
                     {{"call", call("c-7", "sip-7")}, {"legs", {leg("l-1", "201")}}});
    LiveClient live(s.server, s.tokens.access);
    live.sub("call:c-7");
    const auto snapshot = live.nextData();
    EXPECT_EQ(snapshot.at("data").at("call").at("id"), "c-7");
    EXPECT_EQ(snapshot.at("data").at("legs"), json::array({leg("l-1", "201")}));
    s.server.control("POST", "calls/c-7/legs", {{"leg", leg("l-2", "+4930123456")}});
    EXPECT_EQ(live.nextData().at("data"),
              (json{{"op", "leg"}, {"leg", leg("l-2", "+4930123456")}}));
    const json quality{
        {"level", "fair"}, {"mos", 3.4}, {"jitterMs", 12.5}, {"lossPct", 1.2}, {"rttMs", 80.0}};
    s.server.control("POST", "calls/c-7/quality", {{"legId", "l-2"}, {"quality", quality}});
    EXPECT_EQ(live.nextData().at("data"), (json{{"legId", "l-2"}, {"quality", quality}}));
    s.server.control("DELETE", "calls/c-7");
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "end"}}));
}

TEST(DevServerLive, QueueBoardsChangeWithAgentsAndEnd) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("queue:q-support");
    live.nextData();
    ASSERT_EQ(s.send("POST", "api/queues/q-support/agent", {{"paused", true}}).status, 204);
    const auto delta = live.nextData();
    EXPECT_EQ(delta.at("data").at("op"), "board");
    EXPECT_EQ(delta.at("data").at("board").at("agents")[0].at("state"), "paused");
    s.server.control("POST", "queues/q-support/waiting", {{"callId", "qc-9"}, {"from", "+491234"}});
    EXPECT_EQ(live.nextData().at("data").at("board").at("waiting").size(), 3u);
    s.server.control("POST", "queues/q-support/end");
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "end"}}));
}

TEST(DevServerLive, EveryPingExpectsAPong) {
    SignedIn s({"--ping-interval", "0.5"});
    LiveClient live(s.server, s.tokens.access);
    ASSERT_TRUE(live.waitConnected());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(live.next(), (json{{"type", "ping"}}));
        live.send(json{{"type", "pong"}});
    }
    live.sub("presence");
    EXPECT_EQ(live.nextData().at("type"), "snapshot"); // still open
    const auto sockets = s.server.control("GET", "live").at("sockets");
    ASSERT_EQ(sockets.size(), 1u);
    EXPECT_GE(sockets[0].at("pongs").get<int>(), 3);
}

TEST(DevServerLive, AMissingPongClosesTheSocket) {
    SignedIn s({"--ping-interval", "0.2"});
    LiveClient live(s.server, s.tokens.access);
    EXPECT_EQ(live.next().at("type"), "ping");
    ASSERT_TRUE(live.waitClosed());
    EXPECT_EQ(live.socket().closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
}

TEST(DevServerLive, ATokenThatExpiresClosesTheSocket) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("presence");
    live.nextData();
    s.server.control("POST", "clock", {{"advanceS", 3601}});
    ASSERT_TRUE(live.waitClosed());
    EXPECT_EQ(live.socket().closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
}

TEST(DevServerLive, AnAuthFrameRenewsTheSocketsToken) {
    SignedIn s;
    LiveClient live(s.server, s.tokens.access);
    live.sub("presence");
    live.nextData();
    const auto renewed = tokensOf(refresh(s.server, s.network, s.tokens.refresh));
    live.send(json{{"type", "auth"}, {"token", renewed.access.toStdString()}});
    live.sub("calls:mine"); // handled after the auth frame
    live.nextData();
    s.server.control("POST", "tokens/expire", {{"token", s.tokens.access.toStdString()}});
    s.server.control("PATCH", "users/u-004", {{"presence", "idle"}});
    EXPECT_EQ(live.nextData().at("data").at("userId"), "u-004");
    live.send(json{{"type", "auth"}, {"token", "forged"}});
    EXPECT_EQ(live.nextData().at("code"), "invalid_token");
    s.server.control("POST", "tokens/expire", {{"token", renewed.access.toStdString()}});
    EXPECT_TRUE(live.waitClosed());
}

TEST(DevServerLive, MergeMakesAConferenceAndItsOperationsAreDeltas) {
    SignedIn s;
    s.server.control("POST", "calls", {{"call", call("c-a", "sip-a")}});
    s.server.control("POST", "calls", {{"call", call("c-b", "sip-b")}});
    LiveClient live(s.server, s.tokens.access);
    live.sub("calls:mine");
    EXPECT_EQ(live.nextData().at("data").at("calls").size(), 2u);
    const auto merged = s.send("POST", "api/calls/c-a/merge", {{"with", "c-b"}});
    ASSERT_EQ(merged.status, 200) << merged.body.toStdString();
    const auto conferenceId = merged.json().at("conferenceId").get<std::string>();
    for (int i = 0; i < 2; ++i) {
        const auto upsert = live.nextData().at("data");
        EXPECT_EQ(upsert.at("op"), "upsert");
        EXPECT_EQ(upsert.at("call").at("conferenceId"), conferenceId);
    }
    live.sub("conference:" + conferenceId);
    const auto snapshot = live.nextData().at("data");
    EXPECT_EQ(snapshot.at("id"), conferenceId);
    EXPECT_EQ(snapshot.at("locked"), false);
    EXPECT_TRUE(snapshot.at("startedAt").is_number_integer());
    ASSERT_EQ(snapshot.at("participants").size(), 3u);
    for (const auto& p : snapshot.at("participants")) {
        EXPECT_TRUE(p.at("muted").is_boolean());
        EXPECT_TRUE(p.at("talking").is_boolean());
        EXPECT_TRUE(p.at("party").at("number").is_string());
    }
    const auto base = "api/conferences/" + QString::fromStdString(conferenceId);
    ASSERT_EQ(s.send("POST", base + "/participants",
                     {{"target", {{"type", "external"}, {"number", "+4940555"}}}})
                  .status,
              204);
    const auto join = live.nextData().at("data");
    EXPECT_EQ(join.at("op"), "join");
    const auto pid = join.at("participant").at("id").get<std::string>();
    EXPECT_EQ(join.at("participant").at("party"), (json{{"number", "+4940555"}}));
    ASSERT_EQ(s.send("POST", base + "/participants/" + QString::fromStdString(pid) + "/mute",
                     {{"muted", true}})
                  .status,
              204);
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "mute"}, {"id", pid}, {"muted", true}}));
    s.server.control("PATCH",
                     "conferences/" + QString::fromStdString(conferenceId) + "/participants/" +
                         QString::fromStdString(pid),
                     {{"talking", true}});
    EXPECT_EQ(live.nextData().at("data"),
              (json{{"op", "talking"}, {"id", pid}, {"talking", true}}));
    ASSERT_EQ(s.send("PATCH", base, {{"locked", true}}).status, 204);
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "lock"}, {"locked", true}}));
    EXPECT_EQ(
        s.send("POST", base + "/participants", {{"target", {{"type", "user"}, {"id", "u-005"}}}})
            .status,
        409);
    ASSERT_EQ(s.raw("DELETE", base + "/participants/" + QString::fromStdString(pid)).status, 204);
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "leave"}, {"id", pid}}));
    ASSERT_EQ(s.raw("DELETE", base).status, 204);
    EXPECT_EQ(live.nextData().at("data"), (json{{"op", "end"}}));
    EXPECT_FALSE(live.nextData().at("data").at("call").contains("conferenceId"));
    EXPECT_EQ(s.raw("DELETE", base).status, 404);
}

TEST(DevServerLive, RecordingFollowsThePolicy) {
    SignedIn s;
    s.server.control("POST", "calls", {{"call", call("c-r", "sip-r")}});
    LiveClient live(s.server, s.tokens.access);
    live.sub("calls:mine");
    live.nextData();
    ASSERT_EQ(s.send("POST", "api/calls/c-r/recording", {{"recording", true}}).status, 204);
    EXPECT_EQ(live.nextData().at("data").at("call").at("recording"), true);
    EXPECT_EQ(s.send("POST", "api/calls/c-unknown/recording", {{"recording", true}}).status, 404);
    EXPECT_EQ(s.send("POST", "api/calls/c-r/recording", {{"on", true}}).status, 400);

    SignedIn never({}, "u-002");
    never.server.control("POST", "calls", {{"call", call("c-n", "sip-n")}, {"owner", "u-002"}});
    const auto refused = never.send("POST", "api/calls/c-n/recording", {{"recording", true}});
    EXPECT_EQ(refused.status, 403);
    EXPECT_TRUE(refused.json().at("statusMessage").is_string());
}

TEST(DevServerLive, MergeAndConferenceRequestsAreChecked) {
    SignedIn s;
    s.server.control("POST", "calls", {{"call", call("c-a", "sip-a")}});
    s.server.control("POST", "calls", {{"call", call("c-z", "sip-z")}, {"owner", "u-002"}});
    EXPECT_EQ(s.send("POST", "api/calls/c-a/merge", json::object()).status, 400);
    EXPECT_EQ(s.send("POST", "api/calls/c-a/merge", {{"with", "c-a"}}).status, 400);
    EXPECT_EQ(s.send("POST", "api/calls/c-a/merge", {{"with", "c-none"}}).status, 404);
    EXPECT_EQ(s.send("POST", "api/calls/c-a/merge", {{"with", "c-z"}}).status, 404); // not hers
    EXPECT_EQ(s.send("POST", "api/calls/c-none/merge", {{"with", "c-a"}}).status, 404);

    s.server.control(
        "POST", "conferences",
        {{"conference", {{"id", "conf-x"}, {"locked", false}, {"participants", json::array()}}}});
    EXPECT_EQ(
        s.send("POST", "api/conferences/conf-x/participants/p-none/mute", {{"muted", true}}).status,
        404);
    EXPECT_EQ(s.raw("DELETE", "api/conferences/conf-x/participants/p-none").status, 404);
    EXPECT_EQ(s.send("PATCH", "api/conferences/conf-x", {{"locked", "yes"}}).status, 400);
    EXPECT_EQ(
        s.send("POST", "api/conferences/conf-x/participants", {{"target", {{"type", "group"}}}})
            .status,
        400);
    EXPECT_EQ(s.send("POST", "api/conferences/conf-x/participants",
                     {{"target", {{"type", "user"}, {"id", "nobody"}}}})
                  .status,
              400);
    EXPECT_EQ(s.send("PATCH", "api/conferences/conf-none", {{"locked", true}}).status, 404);
    EXPECT_EQ(s.send("POST", "api/conferences/conf-x/participants",
                     {{"target", {{"type", "user"}, {"id", "u-005"}}}})
                  .status,
              204);
}

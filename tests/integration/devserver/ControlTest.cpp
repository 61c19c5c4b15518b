#include "DevServerKit.h"

#include <QElapsedTimer>

using namespace kit;

TEST(DevServerControl, AFaultFailsTheNextRequestsThatMatch) {
    SignedIn s;
    s.server.control("POST", "faults",
                     {{"method", "GET"},
                      {"path", "api/me"},
                      {"count", 2},
                      {"status", 503},
                      {"body", "down for a moment"}});
    for (int i = 0; i < 2; ++i) {
        const auto failed = s.get("api/me");
        EXPECT_EQ(failed.status, 503);
        EXPECT_EQ(failed.body, "down for a moment");
    }
    EXPECT_EQ(s.get("api/me").status, 200);
    // Other methods and paths were never touched.
    EXPECT_EQ(s.get("api/me/queues").status, 200);
}

TEST(DevServerControl, AFaultCanMatchAPrefixAndCarryJson) {
    SignedIn s;
    s.server.control(
        "POST", "faults",
        {{"path", "api/voicemail-*"}, {"status", 500}, {"body", {{"message", "mailbox offline"}}}});
    const auto failed = s.get("api/voicemail-boxes/box-201/messages");
    EXPECT_EQ(failed.status, 500);
    EXPECT_EQ(failed.json(), (json{{"message", "mailbox offline"}}));
    EXPECT_EQ(s.get("api/voicemail-boxes/box-201/messages").status, 200);
}

TEST(DevServerControl, ADelayedAnswerComesLate) {
    SignedIn s;
    s.server.control("POST", "faults", {{"path", "api/directory"}, {"delayMs", 400}});
    QElapsedTimer timer;
    timer.start();
    const auto answer = s.get("api/directory");
    EXPECT_EQ(answer.status, 200);
    EXPECT_GE(timer.elapsed(), 350); // timers are precise to the millisecond, not better
    EXPECT_EQ(answer.json().at("groups").size(), 3u);
}

TEST(DevServerControl, AGarbageAnswerDoesNotDecode) {
    SignedIn s;
    s.server.control("POST", "faults", {{"path", "api/me"}, {"garbage", true}});
    const auto answer = s.get("api/me");
    EXPECT_EQ(answer.status, 200);
    EXPECT_FALSE(answer.body.isEmpty());
    EXPECT_THROW(answer.json(), nlohmann::json::exception);
    EXPECT_NO_THROW(s.get("api/me").json());
}

TEST(DevServerControl, AFaultCanRefuseTheTokenEndpoint) {
    DevServer server;
    QNetworkAccessManager network;
    server.control(
        "POST", "faults",
        {{"path", "oauth/token"}, {"status", 502}, {"body", "<html>bad gateway</html>"}});
    const auto verifier = newVerifier();
    const auto code = authorizeCode(server, network, verifier);
    const auto failed = exchange(server, network, code, verifier);
    EXPECT_EQ(failed.status, 502);
    EXPECT_EQ(failed.body, "<html>bad gateway</html>");
}

TEST(DevServerControl, EveryRequestIsRecordedAndTheRecordClears) {
    SignedIn s;
    s.server.control("DELETE", "requests");
    s.get("api/calls?mine=1&limit=50", {{"If-None-Match", "\"x\""}});
    s.send("PUT", "api/me/forwarding",
           {{"always", nullptr}, {"busy", nullptr}, {"noAnswer", nullptr}, {"offline", nullptr}});
    const auto record = s.server.control("GET", "requests");
    ASSERT_EQ(record.size(), 2u);
    EXPECT_EQ(record[0].at("method"), "GET");
    EXPECT_EQ(record[0].at("path"), "api/calls");
    EXPECT_EQ(record[0].at("query"), "mine=1&limit=50");
    bool sawBearer = false, sawTag = false;
    for (const auto& header : record[0].at("headers")) {
        sawBearer |=
            header[0] == "Authorization" && header[1] == "Bearer " + s.tokens.access.toStdString();
        sawTag |= header[0] == "If-None-Match" && header[1] == "\"x\"";
    }
    EXPECT_TRUE(sawBearer);
    EXPECT_TRUE(sawTag);
    EXPECT_EQ(record[1].at("method"), "PUT");
    EXPECT_EQ(json::parse(record[1].at("body").get<std::string>()).at("busy"), nullptr);
    s.server.control("DELETE", "requests");
    EXPECT_TRUE(s.server.control("GET", "requests").empty());
}

TEST(DevServerControl, ARawFrameIsPushedToATopicOrToAll) {
    SignedIn s;
    LiveClient a(s.server, s.tokens.access), b(s.server, s.tokens.access);
    a.sub("presence");
    a.nextData();
    b.sub("calls:mine");
    b.nextData();
    const auto sent =
        s.server.control("POST", "live/push",
                         {{"topic", "presence"},
                          {"frame", "{\"type\":\"delta\",\"topic\":\"presence\",\"data\":{}}"}});
    EXPECT_EQ(sent.at("sent"), 1);
    EXPECT_EQ(a.nextData(),
              (json{{"type", "delta"}, {"topic", "presence"}, {"data", json::object()}}));
    s.server.control("POST", "live/push", {{"frame", {{"type", "surprise"}}}});
    EXPECT_EQ(a.nextData(), (json{{"type", "surprise"}}));
    EXPECT_EQ(b.nextData(), (json{{"type", "surprise"}}));
}

TEST(DevServerControl, SocketsAreDroppedWithOrWithoutACloseFrame) {
    SignedIn s;
    {
        LiveClient live(s.server, s.tokens.access);
        ASSERT_TRUE(live.waitConnected());
        s.server.control("POST", "live/drop", {{"closeFrame", true}});
        ASSERT_TRUE(live.waitClosed());
        EXPECT_EQ(live.socket().closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
        EXPECT_EQ(live.socket().closeReason(), "dropped by control");
    }
    {
        LiveClient live(s.server, s.tokens.access);
        ASSERT_TRUE(live.waitConnected());
        s.server.control("POST", "live/drop", {{"closeFrame", false}});
        ASSERT_TRUE(live.waitClosed());
        // No close frame came: neither the code nor the reason of one.
        EXPECT_NE(live.socket().closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
        EXPECT_TRUE(live.socket().closeReason().isEmpty());
    }
}

TEST(DevServerControl, SilentSocketsOpenAndHearNothing) {
    SignedIn s({"--ping-interval", "0.3"});
    s.server.control("POST", "live/silent", {{"silent", true}});
    LiveClient quiet(s.server, s.tokens.access);
    quiet.sub("presence");
    s.server.control("POST", "live/silent", {{"silent", false}});
    LiveClient loud(s.server, s.tokens.access);
    loud.sub("presence");
    EXPECT_EQ(loud.nextData().at("type"), "snapshot");
    // Pings went to the loud one only, several times over, while the quiet one
    // heard nothing at all: not its snapshot, not a ping.
    EXPECT_EQ(loud.next().at("type"), "ping");
    loud.send(json{{"type", "pong"}});
    EXPECT_EQ(loud.next().at("type"), "ping");
    EXPECT_FALSE(quiet.hasFrames());
    const auto sockets = s.server.control("GET", "live").at("sockets");
    ASSERT_EQ(sockets.size(), 2u);
    EXPECT_EQ(sockets[0].at("silent"), true);
    EXPECT_EQ(sockets[0].at("pings"), 0);
}

TEST(DevServerControl, RevokedTokensStopTheApiAndTheRefresh) {
    SignedIn s;
    s.server.control("POST", "tokens/revoke");
    EXPECT_EQ(s.get("api/me").status, 401);
    EXPECT_EQ(refresh(s.server, s.network, s.tokens.refresh).json().at("error"), "invalid_grant");
}

TEST(DevServerControl, TheModelCanBeReadAndUnknownControlPathsAre404) {
    SignedIn s;
    const auto model = s.server.control("GET", "model");
    EXPECT_GE(model.at("users").size(), 12u);
    EXPECT_EQ(model.at("queues").size(), 2u);
    EXPECT_GE(model.at("callLogRows").get<int>(), 300);
    const auto added =
        s.server.control("POST", "voicemail", {{"caller", "+4930111"}, {"durationS", 3}});
    EXPECT_EQ(s.get("api/voicemail-boxes/box-201/messages").json()[0].at("id"), added.at("id"));
    EXPECT_EQ(httpRequest(s.network, "GET", s.server.url("_control/nothing")).status, 404);
    EXPECT_EQ(httpRequest(s.network, "POST", s.server.url("_control/faults"), "{broken").status,
              400);
}

TEST(DevServerControl, ResetBringsBackTheDemoCompany) {
    SignedIn s;
    ASSERT_EQ(s.raw("DELETE", "api/voicemail-messages/vm-1").status, 204);
    s.server.control("POST", "faults", {{"path", "api/me"}, {"status", 500}});
    s.server.control("POST", "reset");
    EXPECT_EQ(s.get("api/me").status, 200);
    EXPECT_EQ(s.get("api/voicemail-messages/vm-1/audio").status, 200);
}

TEST(DevServerControl, TheDemoActivityMovesPresenceAndTheSupportQueue) {
    SignedIn s({"--demo"});
    LiveClient live(s.server, s.tokens.access);
    live.sub("queue:q-support");
    live.nextData();
    live.sub("presence");
    live.nextData();
    s.server.control("POST", "demo/tick");
    // A presence delta unless the colleague picked was on do-not-disturb, then the board.
    auto frame = live.nextData();
    if (frame.at("topic") == "presence") {
        EXPECT_TRUE(frame.at("data").at("state").is_string());
        frame = live.nextData();
    }
    EXPECT_EQ(frame.at("topic"), "queue:q-support");
    EXPECT_EQ(frame.at("data").at("op"), "board");
    const auto waiting = frame.at("data").at("board").at("waiting");
    for (size_t i = 0; i < waiting.size(); ++i) {
        EXPECT_EQ(waiting[i].at("position"), int(i) + 1);
    }
}

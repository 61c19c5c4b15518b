#include "LiveServerKit.h"

namespace {

json call(const std::string& id, const std::string& sipCallId,
          std::optional<std::string> conferenceId = std::nullopt) {
    json c{{"id", id},
           {"direction", "outbound"},
           {"from", {{"number", "201"}, {"name", "Anna Berger"}, {"userId", "u-001"}}},
           {"to", {{"number", "+4930123456"}}},
           {"state", "connected"},
           {"startedAt", 1731000000000},
           {"myLegs", json::array({{{"sipCallId", sipCallId}, {"deviceId", "dev-1"}}})}};
    if (conferenceId) {
        c["conferenceId"] = *conferenceId;
    }
    return c;
}

json leg(const std::string& id, const std::string& number) {
    return {{"id", id}, {"party", {{"number", number}}}};
}

} // namespace

TEST_F(LiveServer, OpensSubscribesAndIsConnectedByTheSnapshots) {
    live.watchQueues({"q-support"});
    live.start();
    ASSERT_TRUE(subscribed({"presence", "calls:mine", "queue:q-support"}));
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    ASSERT_TRUE(spinUntil([&] { return live.boards().contains("q-support"); }));
    EXPECT_EQ(live.presence().size(), 12);
    EXPECT_EQ(live.presenceModel()->rowCount(), 12);
    EXPECT_EQ(live.boards()["q-support"].waiting.size(), 2);
    EXPECT_FALSE(live.lastDecodeError()) << live.lastDecodeErrorText().toStdString();
}

TEST_F(LiveServer, ASilentServerNeverResetsTheBackOff) {
    server.control("POST", "live/silent", {{"silent", true}});
    live.start();
    for (const auto wait : {1s, 2s, 4s}) {
        ASSERT_TRUE(subscribed(always));
        EXPECT_FALSE(live.connected());
        drop(false);
        ASSERT_TRUE(nextAttemptAfter(wait)) << "after " << wait.count() << " s";
    }
}

TEST_F(LiveServer, ADropWithACloseFrameIsRetriedOneSecondLaterAndSubscribedAgain) {
    StderrCapture err;
    live.start();
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    drop(true);
    ASSERT_TRUE(spinUntil([&] { return !live.connected(); }));
    // Nothing known is cleared while disconnected.
    EXPECT_EQ(live.presence().size(), 12);
    ASSERT_TRUE(nextAttemptAfter(1s));
    ASSERT_TRUE(subscribed(always));
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    EXPECT_TRUE(err.take().contains("(close code 1001), retry in 1.0 seconds"));
}

TEST_F(LiveServer, ADropWithoutACloseFrameIsRetriedOneSecondLaterAndSubscribedAgain) {
    StderrCapture err;
    live.start();
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    drop(false);
    ASSERT_TRUE(spinUntil([&] { return !live.connected(); }));
    ASSERT_TRUE(nextAttemptAfter(1s));
    ASSERT_TRUE(subscribed(always));
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    const auto log = err.take();
    EXPECT_TRUE(log.contains("[live] disconnected: ")) << log.toStdString();
    EXPECT_TRUE(log.contains("retry in 1.0 seconds")) << log.toStdString();
}

TEST_F(LiveServer, ATokenNearItsExpiryIsRenewedOnTheOpenSocket) {
    live.start();
    ASSERT_TRUE(subscribed(always));
    const auto first = sockets()[0]["token"].get<std::string>();
    // Server time and client time move together, to 15 s before the token
    // runs out: the renewal, due a minute before, refreshes the token and
    // hands the new one to the open socket.
    server.control("POST", "clock", {{"advanceS", 3585}});
    clock.advance(3585s);
    ASSERT_TRUE(spinUntil([&] { return sockets()[0]["token"] != first; }));
    const auto now = sockets();
    ASSERT_EQ(now.size(), 1u);
    EXPECT_EQ(api->refreshCount(), 1);
    EXPECT_EQ(attempts, 2); // the socket, then the renewal: no new socket
    EXPECT_TRUE(live.connected());
}

TEST_F(LiveServer, ATopicRefusedWithAnErrorIsNotSubscribedOnTheNextSocket) {
    live.watchQueues({"q-nonexistent"});
    live.start();
    ASSERT_TRUE(spinUntil([&] { return !live.topics().contains("queue:q-nonexistent"); }));
    drop(true);
    ASSERT_TRUE(nextAttemptAfter(1s));
    ASSERT_TRUE(subscribed(always));
}

TEST_F(LiveServer, APingIsKnownByItsDecodedTypeWhateverTheLayout) {
    live.start();
    ASSERT_TRUE(subscribed(always));
    server.control("POST", "live/push",
                   {{"frame", "{ \"extra\" : [ {} ],\n  \"type\":\"p\\u0069ng\" }"}});
    ASSERT_TRUE(spinUntil([&] { return sockets()[0]["pongs"] == 1; }));
    EXPECT_EQ(sockets().size(), 1u);
}

TEST_F(LiveServer, AFirstFrameThatIsNoEnvelopeIsRetriedEverySecond) {
    live.start();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(subscribed(always));
        server.control("POST", "live/push", {{"frame", "this is not json"}});
        ASSERT_TRUE(nextAttemptAfter(1s)) << "round " << round;
    }
}

TEST_F(LiveServer, StopDuringTheBackOffEndsEveryAttempt) {
    live.start();
    ASSERT_TRUE(subscribed(always));
    drop(true);
    ASSERT_TRUE(spinUntil([&] { return live.waiting(); }));
    live.stop();
    const int before = attempts;
    clock.advance(120s);
    EXPECT_FALSE(spinUntil([&] { return attempts > before; }, 300ms));
    EXPECT_TRUE(sockets().empty());
}

TEST_F(LiveServer, ARevokedTokenNeverStopsTheLoopAndLeavesTheStateStanding) {
    live.start();
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    server.control("POST", "tokens/revoke", json::object());
    ASSERT_TRUE(spinUntil([&] { return !live.connected(); }));
    // Each new handshake is refused, and the loop goes on at its own pace.
    for (const auto wait : {1s, 2s, 4s}) {
        ASSERT_TRUE(nextAttemptAfter(wait));
    }
    EXPECT_TRUE(live.running());
    EXPECT_EQ(live.presence().size(), 12);
}

TEST_F(LiveServer, DeltasArriveInOrderAndShowOnTheModels) {
    live.watchQueues({"q-support"});
    live.start();
    ASSERT_TRUE(spinUntil([&] { return live.boards().contains("q-support"); }));
    ASSERT_TRUE(spinUntil([&] { return live.presence().size() == 12; }));

    server.control("PATCH", "users/u-002", {{"presence", "ringing"}});
    server.control("PATCH", "users/u-002", {{"presence", "busy"}});
    ASSERT_TRUE(spinUntil([&] { return live.presenceModel()->presenceOf("u-002") == "busy"; }));

    server.control("PATCH", "groups/g-sales", {{"ringing", 2}});
    ASSERT_TRUE(spinUntil([&] { return live.groupsRinging().value("g-sales") == 2; }));

    server.control("PATCH", "queues/q-support/agents/u-001", {{"state", "on_call"}});
    ASSERT_TRUE(spinUntil([&] {
        for (const auto& agent : live.boards()["q-support"].agents) {
            if (agent.userId == "u-001") {
                return agent.state == "on_call";
            }
        }
        return false;
    }));

    live.follow(QStringLiteral("sip-7"));
    server.control("POST", "calls",
                   {{"call", call("c-7", "sip-7")}, {"legs", {leg("l-1", "201")}}});
    ASSERT_TRUE(spinUntil([&] { return live.currentLegs().size() == 1; }));
    EXPECT_EQ(live.myCallsModel()->rowCount(), 1);
    EXPECT_EQ(live.currentCall()->id, "c-7");

    server.control("POST", "calls/c-7/legs", {{"leg", leg("l-2", "+4930123456")}});
    server.control("POST", "calls/c-7/quality",
                   {{"legId", "l-2"}, {"quality", {{"level", "poor"}, {"mos", 2.1}}}});
    ASSERT_TRUE(spinUntil([&] {
        return live.legsModel()->rowCount() == 2 && live.currentLegs()[1].quality &&
               live.currentLegs()[1].quality->level == live::Quality::Level::poor;
    }));

    server.control(
        "POST", "conferences",
        {{"conference", {{"id", "cf-1"}, {"locked", false}, {"participants", json::array()}}}});
    server.control("POST", "calls", {{"call", call("c-7", "sip-7", "cf-1")}});
    ASSERT_TRUE(spinUntil([&] { return live.conference().has_value(); }));
    server.control(
        "POST", "conferences/cf-1/participants",
        {{"participant",
          {{"id", "p-1"}, {"party", {{"number", "202"}}}, {"muted", false}, {"talking", false}}}});
    server.control("PATCH", "conferences/cf-1/participants/p-1", {{"muted", true}});
    ASSERT_TRUE(spinUntil([&] {
        return live.participantsModel()->rowCount() == 1 &&
               live.conference()->participants[0].muted;
    }));

    server.control("DELETE", "calls/c-7");
    ASSERT_TRUE(spinUntil([&] { return !live.currentCall(); }));
    EXPECT_EQ(live.myCallsModel()->rowCount(), 0);
    EXPECT_FALSE(live.lastDecodeError()) << live.lastDecodeErrorText().toStdString();
}

TEST_F(LiveServer, TheDemoActivityReachesThePresenceModelWithinASecond) {
    live.start();
    ASSERT_TRUE(spinUntil([&] { return live.presence().size() == 12; }));
    int changes = 0;
    QObject::connect(live.presenceModel(), &QAbstractItemModel::dataChanged, [&] { ++changes; });
    // A step may give a colleague the word they had; over ten, some change.
    for (int tick = 0; tick < 10; ++tick) {
        server.control("POST", "demo/tick");
        // The server's own view after the step, which the model must show.
        const json model = server.control("GET", "model");
        std::map<std::string, std::string> expected;
        for (const auto& user : model.at("users")) {
            expected[user.at("id")] = user.at("presence");
        }
        ASSERT_EQ(expected.size(), 12u);
        EXPECT_TRUE(spinUntil(
            [&] {
                for (const auto& [id, presence] : expected) {
                    if (live.presenceModel()->presenceOf(QString::fromStdString(id)) !=
                        QString::fromStdString(presence)) {
                        return false;
                    }
                }
                return true;
            },
            1s))
            << "tick " << tick;
    }
    EXPECT_GT(changes, 0);
}

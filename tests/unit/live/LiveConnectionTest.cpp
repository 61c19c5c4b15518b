#include "live/Live.h"

#include "LoopbackPeer.h"
#include "ManualClock.h"
#include "StderrCapture.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// The loop on the manual clock: a failed attempt waits on the clock, and only
// advancing the clock lets the next one begin.
class LiveConnection : public ::testing::Test {
protected:
    // A connection closure that always fails, counting its calls.
    Live::Connection failing() {
        return [this]() -> QCoro::Task<API::LiveConnection> {
            ++failures;
            throw API::TransportError("Connection refused");
            co_return API::LiveConnection{};
        };
    }

    // True when exactly one more attempt follows this advance, and none before it.
    bool nextAttemptAfter(const std::function<int()>& attempts, std::chrono::milliseconds wait) {
        const int before = attempts();
        clock.advance(wait - 1ms);
        if (spinUntil([&] { return attempts() > before; }, 50ms)) {
            return false;
        }
        clock.advance(1ms);
        return spinUntil([&] { return attempts() == before + 1; });
    }

    static bool waiting(const Live& live) {
        return spinUntil([&] { return live.waiting(); });
    }

    ManualClock clock;
    LoopbackPeer peer;
    int failures = 0;
    QDateTime farExpiry() const { return clock.now().addSecs(3600); }
};

} // namespace

TEST_F(LiveConnection, StartingTwiceStartsOneLoop) {
    Live live(failing(), clock);
    live.start();
    live.start();
    ASSERT_TRUE(spinUntil([&] { return failures >= 1; }));
    ASSERT_TRUE(waiting(live));
    EXPECT_EQ(failures, 1);
    // One loop: one alarm on the clock.
    EXPECT_EQ(clock.sleepers(), 1);
}

TEST_F(LiveConnection, WithNoFrameEverTheWaitsAre1_2_4_8_16_30_30Seconds) {
    Live live(failing(), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return failures == 1; }));
    const auto attempts = [&] { return failures; };
    for (const auto wait : {1s, 2s, 4s, 8s, 16s, 30s, 30s, 30s}) {
        ASSERT_TRUE(waiting(live));
        EXPECT_TRUE(nextAttemptAfter(attempts, wait)) << "after " << wait.count() << " s";
    }
}

TEST_F(LiveConnection, AFailedConnectionIsLoggedWithItsRetry) {
    StderrCapture err;
    Live live(failing(), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return failures == 1; }));
    ASSERT_TRUE(waiting(live));
    EXPECT_TRUE(err.take().contains(
        "[live] disconnected: Connection refused (close code 0), retry in 1.0 seconds\n"));
}

TEST_F(LiveConnection, OpeningSubscribesEveryTopicWithTextFramesAndTheBearerToken) {
    StderrCapture err;
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.watchQueues({"q-1"});
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.framesOf("sub").size() == 3; }));
    std::set<std::string> topics;
    for (const auto& r : peer.received()) {
        EXPECT_TRUE(r.text);
        topics.insert(r.frame.at("topic").get<std::string>());
        EXPECT_EQ(r.frame.size(), 2u);
    }
    EXPECT_EQ(topics, (std::set<std::string>{"presence", "calls:mine", "queue:q-1"}));
    EXPECT_EQ(peer.authorizations().at(0), "Bearer token-1");
    EXPECT_FALSE(live.connected());
    const auto log = err.take();
    EXPECT_TRUE(log.contains("[live] connecting " + peer.url().toString().toUtf8() +
                             ", topics [\"calls:mine\", \"presence\", \"queue:q-1\"]\n"))
        << log.toStdString();
    // No "sub" lines for the opening subscriptions.
    EXPECT_FALSE(log.contains("[live] sub "));
}

TEST_F(LiveConnection, TheFirstFrameMarksTheConnectionConnected) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.socketCount() == 1 && peer.received().size() == 2; }));
    EXPECT_FALSE(live.connected());
    peer.sendText(
        1, R"({"type":"snapshot","topic":"presence","data":{"users":{"u-1":{"state":"busy"}}}})");
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    EXPECT_EQ(live.presence().value("u-1"), live::Presence::busy);
}

TEST_F(LiveConnection, ASilentServerLeavesTheConnectionDownAndTheBackOffGrowing) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    const auto sockets = [&] { return peer.socketCount(); };
    for (const auto wait : {1s, 2s, 4s}) {
        ASSERT_TRUE(spinUntil([&] {
            return sockets() == peer.connectionCalls() &&
                   peer.received().size() == size_t(2 * sockets());
        }));
        EXPECT_FALSE(live.connected());
        peer.last().close();
        ASSERT_TRUE(waiting(live));
        EXPECT_TRUE(nextAttemptAfter([&] { return peer.connectionCalls(); }, wait));
        ASSERT_TRUE(spinUntil([&] { return sockets() == peer.connectionCalls(); }));
    }
}

TEST_F(LiveConnection, AfterAnyFrameTheFirstRetryComesOneSecondAfterTheFailure) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    // Two silent sockets first, so that the delay has grown to 4 seconds.
    for (const auto wait : {1s, 2s}) {
        ASSERT_TRUE(spinUntil([&] {
            return peer.socketCount() == peer.connectionCalls() &&
                   peer.received().size() == size_t(2 * peer.socketCount());
        }));
        peer.last().close();
        ASSERT_TRUE(waiting(live));
        ASSERT_TRUE(nextAttemptAfter([&] { return peer.connectionCalls(); }, wait));
    }
    ASSERT_TRUE(spinUntil([&] { return peer.socketCount() == 3 && peer.received().size() == 6; }));
    peer.sendText(3, R"({"type":"ping"})");
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    peer.last().close();
    ASSERT_TRUE(spinUntil([&] { return !live.connected(); }));
    ASSERT_TRUE(waiting(live));
    EXPECT_TRUE(nextAttemptAfter([&] { return peer.connectionCalls(); }, 1s));
}

TEST_F(LiveConnection, APingIsAnsweredWithAPongWhateverTheLayoutOfItsText) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    peer.sendText(1, "{ \"topic\" : \"x\",\n\t\"type\"  :  \"ping\" , \"extra\": [1, {}] }");
    peer.sendText(1, R"({"type":"\u0070ing"})");
    ASSERT_TRUE(spinUntil([&] { return peer.framesOf("pong").size() == 2; }));
    EXPECT_EQ(peer.framesOf("pong")[0], (json{{"type", "pong"}}));
    EXPECT_TRUE(peer.received().back().text);
}

TEST_F(LiveConnection, AFrameThatIsNoEnvelopeCostsTheSocketAndTheRetryComesInOneSecond) {
    StderrCapture err;
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    for (int round = 1; round <= 3; ++round) {
        ASSERT_TRUE(spinUntil([&] {
            return peer.socketCount() == round && peer.received().size() == size_t(2 * round);
        }));
        peer.sendText(round, "not json at all");
        // The socket is closed by the client with 1001.
        ASSERT_TRUE(spinUntil([&] { return peer.closeCodes().size() == size_t(round); }));
        EXPECT_EQ(peer.closeCodes().back(), (std::pair<int, int>{round, 1001}));
        ASSERT_TRUE(waiting(live));
        EXPECT_TRUE(nextAttemptAfter([&] { return peer.connectionCalls(); }, 1s));
    }
    EXPECT_TRUE(err.take().contains("(close code 1001), retry in 1.0 seconds"));
}

TEST_F(LiveConnection, AnErrorFrameDropsItsTopicFromTheNextSocket) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.watchQueues({"q-9"});
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 3; }));
    peer.sendText(1, R"({"type":"error","topic":"queue:q-9","code":"forbidden"})");
    ASSERT_TRUE(spinUntil([&] { return !live.topics().contains("queue:q-9"); }));
    peer.last().close();
    ASSERT_TRUE(waiting(live));
    ASSERT_TRUE(nextAttemptAfter([&] { return peer.connectionCalls(); }, 1s));
    ASSERT_TRUE(spinUntil([&] { return peer.framesOf("sub", 2).size() == 2; }));
    for (const auto& frame : peer.framesOf("sub", 2)) {
        EXPECT_NE(frame.at("topic"), "queue:q-9");
    }
}

TEST_F(LiveConnection, ATokenExpiringWithinSixtyFiveSecondsIsRenewedFiveSecondsAfterOpening) {
    Live live(peer.connection([this] { return clock.now().addSecs(64); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    peer.setNextToken("token-2");
    clock.advance(4999ms);
    EXPECT_FALSE(spinUntil([&] { return !peer.framesOf("auth").empty(); }, 50ms));
    clock.advance(1ms);
    ASSERT_TRUE(spinUntil([&] { return !peer.framesOf("auth").empty(); }));
    EXPECT_EQ(peer.framesOf("auth")[0], (json{{"type", "auth"}, {"token", "token-2"}}));
    EXPECT_EQ(peer.socketCount(), 1);
    EXPECT_EQ(peer.closeCodes().size(), 0u);
}

TEST_F(LiveConnection, ALongLivedTokenIsRenewedAMinuteBeforeItExpires) {
    Live live(peer.connection([this] { return clock.now().addSecs(600); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    clock.advance(539s);
    EXPECT_FALSE(spinUntil([&] { return !peer.framesOf("auth").empty(); }, 50ms));
    clock.advance(1s);
    EXPECT_TRUE(spinUntil([&] { return !peer.framesOf("auth").empty(); }));
}

TEST_F(LiveConnection, StopDuringTheBackOffEndsTheLoopAndNoMoreAttemptsFollow) {
    Live live(failing(), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return failures == 1; }));
    ASSERT_TRUE(waiting(live));
    live.stop();
    EXPECT_FALSE(live.running());
    clock.advance(120s);
    EXPECT_FALSE(spinUntil([&] { return failures > 1; }, 100ms));
}

TEST_F(LiveConnection, StopDuringTheBackOffKeepsTopicsForTheNextStart) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    live.watchQueues({"q-1"});
    peer.last().close();
    ASSERT_TRUE(waiting(live));
    live.stop();
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.framesOf("sub", 2).size() == 3; }));
}

TEST_F(LiveConnection, StopOnAnOpenSocketClosesItWith1001AndLogsCloseCodeZero) {
    StderrCapture err;
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    peer.sendText(1, R"({"type":"ping"})");
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    live.stop();
    EXPECT_FALSE(live.connected());
    EXPECT_FALSE(live.task());
    ASSERT_TRUE(spinUntil([&] { return peer.closeCodes().size() == 1; }));
    EXPECT_EQ(peer.closeCodes()[0].second, 1001);
    // The loop ended inside stop(), before the peer saw the close.
    const auto log = err.take();
    EXPECT_EQ(log.count("[live] disconnected: "), 1) << log.toStdString();
    EXPECT_TRUE(log.contains("(close code 0), retry in 1.0 seconds\n")) << log.toStdString();
}

TEST_F(LiveConnection, StopOnAnOpenSocketEndsTheLoopAndTheRenewalInsideTheCall) {
    StderrCapture err;
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    // The token's renewal sleeps on the clock.
    ASSERT_EQ(clock.sleepers(), 1);
    live.stop();
    // No turn of the event loop between: both ended inside stop().
    EXPECT_EQ(clock.sleepers(), 0);
    EXPECT_EQ(err.take().count("[live] disconnected: "), 1);
}

TEST_F(LiveConnection, ALiveEndedDuringTheBackOffLeavesNothingAsleep) {
    {
        Live live(failing(), clock);
        live.start();
        ASSERT_TRUE(spinUntil([&] { return failures == 1; }));
        ASSERT_TRUE(waiting(live));
        ASSERT_EQ(clock.sleepers(), 1);
    }
    EXPECT_EQ(clock.sleepers(), 0);
    clock.advance(120s);
    EXPECT_FALSE(spinUntil([&] { return failures > 1; }, 100ms));
}

TEST_F(LiveConnection, ATopicAddedDuringTheWaitIsSubscribedOnTheNextSocket) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    peer.last().close();
    ASSERT_TRUE(waiting(live));
    StderrCapture err;
    live.watchQueues({"q-7"});
    // The old socket is still held, so the line is logged; its frame goes nowhere.
    EXPECT_TRUE(err.take().contains("[live] sub queue:q-7\n"));
    ASSERT_TRUE(nextAttemptAfter([&] { return peer.connectionCalls(); }, 1s));
    ASSERT_TRUE(spinUntil([&] { return peer.framesOf("sub", 2).size() == 3; }));
}

TEST_F(LiveConnection, WithNoSocketYetATopicIsAddedWithoutALine) {
    Live live(failing(), clock);
    StderrCapture err;
    live.watchQueues({"q-7"});
    EXPECT_FALSE(err.take().contains("sub queue:q-7"));
    EXPECT_TRUE(live.topics().contains("queue:q-7"));
}

TEST_F(LiveConnection, ReconnectNowCutsTheWaitShort) {
    Live live(failing(), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return failures == 1; }));
    ASSERT_TRUE(waiting(live));
    live.reconnectNow();
    EXPECT_TRUE(spinUntil([&] { return failures == 2; }));
}

TEST_F(LiveConnection, ReconnectNowReplacesAnOpenSocketAndSubscribesAgain) {
    Live live(peer.connection([this] { return farExpiry(); }), clock);
    live.start();
    ASSERT_TRUE(spinUntil([&] { return peer.received().size() == 2; }));
    peer.sendText(
        1, R"({"type":"snapshot","topic":"presence","data":{"users":{"u-1":{"state":"busy"}}}})");
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
    live.reconnectNow();
    ASSERT_TRUE(spinUntil([&] { return peer.framesOf("sub", 2).size() == 2; }));
    // What was known stays until the new snapshot replaces it.
    EXPECT_EQ(live.presence().value("u-1"), live::Presence::busy);
}

#include "live/Live.h"

#include "ManualClock.h"
#include "RunTask.h"
#include "StderrCapture.h"

#include <QSignalSpy>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

// Frames go straight into handle(), as the loop would pass them; the socket
// is only needed for pongs, so an unopened one does.
class LiveState : public ::testing::Test {
protected:
    LiveState()
        : live(
              []() -> QCoro::Task<API::LiveConnection> {
                  throw std::runtime_error("no network in this test");
                  co_return API::LiveConnection{};
              },
              clock) {}

    void feed(const json& frame) { feedText(QByteArray::fromStdString(frame.dump())); }
    void feedText(const QByteArray& bytes) { runTask(live.handle(bytes, socket)); }

    static json call(const std::string& id, const std::string& sipCallId,
                     std::optional<std::string> conferenceId = std::nullopt,
                     const std::string& state = "connected") {
        json c{{"id", id},
               {"direction", "outbound"},
               {"from", {{"number", "201"}}},
               {"to", {{"number", "+4930123456"}}},
               {"state", state},
               {"myLegs", json::array({{{"sipCallId", sipCallId}}})}};
        if (conferenceId) {
            c["conferenceId"] = *conferenceId;
        }
        return c;
    }
    static json leg(const std::string& id, std::optional<std::string> level = std::nullopt) {
        json l{{"id", id}, {"party", {{"number", "201"}}}};
        if (level) {
            l["quality"] = {{"level", *level}};
        }
        return l;
    }
    static json participant(const std::string& id, bool muted = false) {
        return {
            {"id", id}, {"party", {{"number", "20" + id}}}, {"muted", muted}, {"talking", false}};
    }
    static json snapshot(const std::string& topic, const json& data) {
        return {{"type", "snapshot"}, {"topic", topic}, {"data", data}};
    }
    static json delta(const std::string& topic, const json& data) {
        return {{"type", "delta"}, {"topic", topic}, {"data", data}};
    }
    static json board(const std::string& id, int waiting = 0) {
        json w = json::array();
        for (int i = 0; i < waiting; ++i) {
            w.push_back({{"callId", "w-" + std::to_string(i)}, {"state", "waiting"}});
        }
        return {{"id", id}, {"name", "Queue " + id}, {"waiting", w}, {"agents", json::array()}};
    }

    // Follows sip-1 in call c-1, with its legs and, when given, its conference.
    void followWithLegs(std::optional<std::string> conferenceId = std::nullopt) {
        live.follow(QStringLiteral("sip-1"));
        feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1", conferenceId)}}}));
        feed(snapshot("call:c-1", {{"call", call("c-1", "sip-1")}, {"legs", {leg("l-1")}}}));
    }

    ManualClock clock;
    Live live;
    std::shared_ptr<LiveSocket> socket = LiveSocket::make();
};

} // namespace

// Presence

TEST_F(LiveState, APresenceSnapshotReplacesPresenceAndGroupsWhole) {
    feed(snapshot("presence", {{"users", {{"u-1", {{"state", "busy"}}}}},
                               {"groups", {{"g-1", {{"ringing", 1}}}}}}));
    feed(snapshot("presence", {{"users", {{"u-2", {{"state", "idle"}}}}}}));
    EXPECT_EQ(live.presence(), (live::PresenceMap{{"u-2", live::Presence::idle}}));
    EXPECT_TRUE(live.groupsRinging().isEmpty());
    EXPECT_EQ(live.presenceModel()->rowCount(), 1);
}

TEST_F(LiveState, APresenceDeltaSetsOneUserAndKeepsAGroupAtZero) {
    feed(snapshot("presence", {{"users", {{"u-1", {{"state", "idle"}}}}}}));
    feed(delta("presence", {{"userId", "u-1"}, {"state", "ringing"}}));
    feed(delta("presence", {{"groupId", "g-1"}, {"ringing", 0}}));
    EXPECT_EQ(live.presence().value("u-1"), live::Presence::ringing);
    EXPECT_EQ(live.groupsRinging(), (live::GroupsRinging{{"g-1", 0}}));
}

TEST_F(LiveState, APresenceDeltaWithoutItsPairChangesNothing) {
    feed(snapshot("presence", {{"users", {{"u-1", {{"state", "idle"}}}}}}));
    QSignalSpy changed(&live, &Live::presenceChanged);
    feed(delta("presence", json::object()));
    feed(delta("presence", {{"userId", "u-1"}}));
    feed(delta("presence", {{"groupId", "g-1"}}));
    EXPECT_EQ(changed.count(), 0);
    EXPECT_TRUE(live.groupsRinging().isEmpty());
}

TEST_F(LiveState, AnEqualPresenceDoesNotNotify) {
    feed(snapshot("presence", {{"users", {{"u-1", {{"state", "idle"}}}}}}));
    QSignalSpy changed(&live, &Live::presenceChanged);
    feed(delta("presence", {{"userId", "u-1"}, {"state", "idle"}}));
    EXPECT_EQ(changed.count(), 0);
}

TEST_F(LiveState, APresenceDeltaChangesOneRowOfTheModelWithoutAReset) {
    feed(snapshot("presence",
                  {{"users", {{"u-1", {{"state", "idle"}}}, {"u-2", {{"state", "idle"}}}}}}));
    auto* model = live.presenceModel();
    QSignalSpy reset(model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
    feed(delta("presence", {{"userId", "u-2"}, {"state", "dnd"}}));
    feed(delta("presence", {{"userId", "u-3"}, {"state", "busy"}}));
    EXPECT_EQ(reset.count(), 0);
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed[0][0].value<QModelIndex>().row(), 1);
    EXPECT_EQ(inserted.count(), 1);
    EXPECT_EQ(model->presenceOf("u-2"), "dnd");
    EXPECT_EQ(model->presenceOf("u-3"), "busy");
    EXPECT_EQ(model->data(model->index(1), PresenceModel::PresenceRole), "dnd");
}

// Frames that are ignored or fail

TEST_F(LiveState, AFrameThatIsNoEnvelopeThrows) {
    EXPECT_THROW(feedText("not json"), wire::DecodeError);
    EXPECT_THROW(feedText(R"({"topic":"presence"})"), wire::DecodeError);
}

TEST_F(LiveState, AnUnknownTypeIsIgnoredQuietly) {
    StderrCapture err;
    feed({{"type", "pong"}});
    feed({{"type", "weather"}, {"topic", "presence"}, {"data", 1}});
    EXPECT_FALSE(live.lastDecodeError());
    EXPECT_EQ(err.take(), "");
}

TEST_F(LiveState, AKnownTypeOnAnUnknownTopicOrWithoutATopicIsIgnored) {
    feed({{"type", "snapshot"}, {"topic", "weather"}, {"data", 1}});
    feed({{"type", "snapshot"}, {"data", {{"users", json::object()}}}});
    EXPECT_FALSE(live.lastDecodeError());
}

TEST_F(LiveState, APayloadThatFailsSetsTheDecodeErrorAndLogsIt) {
    feed(snapshot("presence", {{"users", {{"u-1", {{"state", "idle"}}}}}}));
    StderrCapture err;
    const QByteArray text =
        R"({"type":"snapshot","topic":"presence","data":{"users":{"u-1":{"state":"away"}}}})";
    feedText(text);
    EXPECT_EQ(live.lastDecodeErrorText(),
              QStringLiteral("snapshot presence: users: key \"state\": unknown value \"away\" · ") +
                  QString::fromUtf8(text));
    EXPECT_TRUE(err.take().contains(
        "[live] decode snapshot presence: users: key \"state\": unknown value \"away\""));
    EXPECT_EQ(live.presence().value("u-1"), live::Presence::idle);
}

TEST_F(LiveState, TheDecodeErrorQuotesAtMostThreeHundredBytesOfTheFrame) {
    const std::string filler(400, 'x');
    feed(snapshot("presence", {{"filler", filler}}));
    const QString error = live.lastDecodeErrorText();
    const auto quoted = error.mid(error.indexOf(QStringLiteral(" · ")) + 3);
    EXPECT_EQ(quoted.toUtf8().size(), 300);
}

TEST_F(LiveState, ACutInsideACharacterIsRepaired) {
    // 299 ASCII bytes, then a two-byte character cut in half by the limit.
    std::string text = R"({"type":"snapshot","topic":"presence","data":{"x":")";
    text += std::string(299 - text.size(), 'a') + "é\"}}";
    feedText(QByteArray::fromStdString(text));
    EXPECT_TRUE(live.lastDecodeErrorText().endsWith(QChar(QChar::ReplacementCharacter)));
}

TEST_F(LiveState, ALaterGoodFrameKeepsTheDecodeError) {
    feed(snapshot("presence", {{"users", 1}}));
    const auto error = live.lastDecodeError();
    ASSERT_TRUE(error);
    feed(snapshot("presence", {{"users", json::object()}}));
    EXPECT_EQ(live.lastDecodeError(), error);
}

TEST_F(LiveState, AnErrorFrameDropsTheTopicAndKeepsItsData) {
    live.watchQueues({"q-1"});
    feed(snapshot("queue:q-1", board("q-1")));
    feed({{"type", "error"}, {"topic", "queue:q-1"}, {"code", "forbidden"}});
    EXPECT_FALSE(live.topics().contains("queue:q-1"));
    EXPECT_TRUE(live.boards().contains("q-1"));
}

// The user's calls and the followed call

TEST_F(LiveState, AnUpsertKeepsTheCallsPlaceAndANewCallIsAppended) {
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "a"), call("c-2", "b")}}}));
    QSignalSpy reset(live.myCallsModel(), &QAbstractItemModel::modelReset);
    feed(delta("calls:mine", {{"op", "upsert"}, {"call", call("c-1", "a", {}, "held")}}));
    feed(delta("calls:mine", {{"op", "upsert"}, {"call", call("c-3", "c")}}));
    ASSERT_EQ(live.myCalls().size(), 3);
    EXPECT_EQ(live.myCalls()[0].state, "held");
    EXPECT_EQ(live.myCalls()[2].id, "c-3");
    EXPECT_EQ(reset.count(), 0);
    EXPECT_EQ(live.myCallsModel()->rowCount(), 3);
}

TEST_F(LiveState, AnEndRemovesEveryCallWithThatId) {
    feed(snapshot("calls:mine",
                  {{"calls", {call("c-1", "a"), call("c-2", "b"), call("c-1", "c")}}}));
    feed(delta("calls:mine", {{"op", "end"}, {"id", "c-1"}}));
    ASSERT_EQ(live.myCalls().size(), 1);
    EXPECT_EQ(live.myCalls()[0].id, "c-2");
    EXPECT_EQ(live.myCallsModel()->rowCount(), 1);
}

TEST_F(LiveState, FollowingACallSubscribesItsTopic) {
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1")}}}));
    live.follow(QStringLiteral("sip-1"));
    ASSERT_TRUE(live.currentCall());
    EXPECT_EQ(live.currentCall()->id, "c-1");
    EXPECT_TRUE(live.topics().contains("call:c-1"));
}

TEST_F(LiveState, ACallsSnapshotWithoutTheFollowedCallClearsItAndDropsBothTopics) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1",
                  {{"id", "cf-1"}, {"locked", false}, {"participants", json::array()}}));
    ASSERT_TRUE(live.conference());
    feed(snapshot("calls:mine", {{"calls", {call("c-2", "sip-2")}}}));
    EXPECT_FALSE(live.currentCall());
    EXPECT_TRUE(live.currentLegs().isEmpty());
    EXPECT_FALSE(live.conference());
    EXPECT_FALSE(live.topics().contains("call:c-1"));
    EXPECT_FALSE(live.topics().contains("conference:cf-1"));
}

TEST_F(LiveState, ACallSnapshotForACallNoLongerCurrentIsIgnored) {
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1"), call("c-2", "sip-2")}}}));
    live.follow(QStringLiteral("sip-1"));
    live.follow(QStringLiteral("sip-2"));
    feed(snapshot("call:c-1", {{"call", call("c-1", "sip-1")}, {"legs", {leg("l-1")}}}));
    EXPECT_TRUE(live.currentLegs().isEmpty());
    EXPECT_FALSE(live.topics().contains("call:c-1"));
    EXPECT_TRUE(live.topics().contains("call:c-2"));
}

TEST_F(LiveState, ALateConferenceSnapshotSetsTheConferenceAfterTheCallLeftIt) {
    followWithLegs("cf-1");
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1")}}}));
    ASSERT_FALSE(live.topics().contains("conference:cf-1"));
    feed(snapshot("conference:cf-1",
                  {{"id", "cf-1"}, {"locked", false}, {"participants", json::array()}}));
    ASSERT_TRUE(live.conference());
    EXPECT_EQ(live.conference()->id, "cf-1");
}

TEST_F(LiveState, AConferenceSnapshotWhoseIdDiffersFromItsTopicIsIgnored) {
    feed(snapshot("conference:cf-1",
                  {{"id", "cf-2"}, {"locked", false}, {"participants", json::array()}}));
    EXPECT_FALSE(live.conference());
}

TEST_F(LiveState, AQualityDeltaForALegNotYetKnownIsLostAndTheNextApplies) {
    live.follow(QStringLiteral("sip-1"));
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1")}}}));
    feed(delta("call:c-1", {{"legId", "l-1"}, {"quality", {{"level", "poor"}}}}));
    feed(snapshot("call:c-1", {{"call", call("c-1", "sip-1")}, {"legs", {leg("l-1")}}}));
    EXPECT_FALSE(live.currentLegs()[0].quality);
    feed(delta("call:c-1", {{"legId", "l-1"}, {"quality", {{"level", "fair"}}}}));
    EXPECT_EQ(live.currentLegs()[0].quality->level, live::Quality::Level::fair);
}

TEST_F(LiveState, AQualityDeltaReplacesTheWholeQualityAndWithoutOneClearsIt) {
    followWithLegs();
    feed(delta("call:c-1", {{"legId", "l-1"}, {"quality", {{"level", "good"}, {"mos", 4.2}}}}));
    feed(delta("call:c-1", {{"legId", "l-1"}, {"quality", {{"level", "fair"}}}}));
    live::Quality fair;
    fair.level = live::Quality::Level::fair;
    EXPECT_EQ(live.currentLegs()[0].quality, fair);
    QSignalSpy reset(live.legsModel(), &QAbstractItemModel::modelReset);
    feed(delta("call:c-1", {{"legId", "l-1"}}));
    EXPECT_FALSE(live.currentLegs()[0].quality);
    EXPECT_EQ(reset.count(), 0);
}

TEST_F(LiveState, ALegDeltaForANewIdAppendsAndTheSameFrameTwiceLeavesOneLeg) {
    followWithLegs();
    const auto frame = delta("call:c-1", {{"op", "leg"}, {"leg", leg("l-2", "good")}});
    feed(frame);
    feed(frame);
    ASSERT_EQ(live.currentLegs().size(), 2);
    EXPECT_EQ(live.currentLegs()[1].id, "l-2");
    EXPECT_EQ(live.legsModel()->rowCount(), 2);
}

TEST_F(LiveState, ACallEndEmptiesTheLegsAndKeepsTheCall) {
    followWithLegs();
    feed(delta("call:c-1", {{"op", "end"}}));
    EXPECT_TRUE(live.currentLegs().isEmpty());
    EXPECT_TRUE(live.currentCall());
    EXPECT_TRUE(live.topics().contains("call:c-1"));
}

TEST_F(LiveState, ACallDeltaOnAnotherTopicIsIgnored) {
    followWithLegs();
    feed(delta("call:c-9", {{"op", "end"}}));
    EXPECT_EQ(live.currentLegs().size(), 1);
}

TEST_F(LiveState, WhenTwoCallsHoldTheSameSipCallIdTheEarlierWins) {
    live.follow(QStringLiteral("sip-1"));
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1"), call("c-2", "sip-1")}}}));
    EXPECT_EQ(live.currentCall()->id, "c-1");
}

TEST_F(LiveState, FollowingTheSameIdAgainStillLogsAndReselects) {
    live.follow(QStringLiteral("sip-1"));
    // The call arrives without a reselection of its own: only follow can find it.
    feed(snapshot("calls:mine", {{"calls", json::array()}}));
    feed(delta("calls:mine", {{"op", "weird"}}));
    StderrCapture err;
    live.follow(QStringLiteral("sip-1"));
    EXPECT_TRUE(err.take().contains("[live] follow SIP call sip-1"));
    live.follow(std::nullopt);
    EXPECT_FALSE(live.currentCall());
}

TEST_F(LiveState, FollowingNoneLogsNone) {
    StderrCapture err;
    live.follow(std::nullopt);
    EXPECT_TRUE(err.take().contains("[live] follow SIP call none"));
}

TEST_F(LiveState, AConferenceIdThatChangesMovesTheSubscription) {
    followWithLegs("cf-1");
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1", "cf-2")}}}));
    EXPECT_FALSE(live.topics().contains("conference:cf-1"));
    EXPECT_TRUE(live.topics().contains("conference:cf-2"));
    EXPECT_EQ(live.currentCall()->conferenceId, "cf-2");
    // The legs stay: the call is the same.
    EXPECT_EQ(live.currentLegs().size(), 1);
}

TEST_F(LiveState, ABadCallsPayloadDoesNotReselect) {
    live.follow(QStringLiteral("sip-1"));
    feed(snapshot("calls:mine", {{"calls", {call("c-1", "sip-1")}}}));
    feed(delta("calls:mine", {{"call", call("c-2", "sip-2")}}));
    EXPECT_TRUE(live.lastDecodeError());
    EXPECT_EQ(live.currentCall()->id, "c-1");
}

// Conference

namespace {
json conferenceWith(std::initializer_list<json> participants) {
    return {{"id", "cf-1"}, {"locked", false}, {"participants", participants}};
}
} // namespace

TEST_F(LiveState, TwoJoinsForTheSameIdLeaveOneParticipantAtTheEnd) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1", conferenceWith({participant("1"), participant("2")})));
    feed(delta("conference:cf-1", {{"op", "join"}, {"participant", participant("1")}}));
    feed(delta("conference:cf-1", {{"op", "join"}, {"participant", participant("1")}}));
    const auto& ps = live.conference()->participants;
    ASSERT_EQ(ps.size(), 2);
    EXPECT_EQ(ps[0].id, "2");
    EXPECT_EQ(ps[1].id, "1");
    EXPECT_EQ(live.participantsModel()->rowCount(), 2);
}

TEST_F(LiveState, AMuteForAnUnknownParticipantChangesNothing) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1", conferenceWith({participant("1")})));
    const auto before = live.conference();
    feed(delta("conference:cf-1", {{"op", "mute"}, {"id", "9"}, {"muted", true}}));
    EXPECT_EQ(live.conference(), before);
}

TEST_F(LiveState, MuteTalkingLockAndLeaveChangeTheConference) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1", conferenceWith({participant("1"), participant("2")})));
    QSignalSpy reset(live.participantsModel(), &QAbstractItemModel::modelReset);
    feed(delta("conference:cf-1", {{"op", "mute"}, {"id", "1"}, {"muted", true}}));
    feed(delta("conference:cf-1", {{"op", "talking"}, {"id", "2"}, {"talking", true}}));
    feed(delta("conference:cf-1", {{"op", "lock"}, {"locked", true}}));
    feed(delta("conference:cf-1", {{"op", "leave"}, {"id", "1"}}));
    feed(delta("conference:cf-1", {{"op", "leave"}}));
    const auto& c = *live.conference();
    EXPECT_TRUE(c.locked);
    ASSERT_EQ(c.participants.size(), 1);
    EXPECT_TRUE(c.participants[0].talking);
    EXPECT_EQ(reset.count(), 0);
}

TEST_F(LiveState, AConferenceDeltaThatFailsIsDroppedSilently) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1", conferenceWith({participant("1")})));
    StderrCapture err;
    feed(delta("conference:cf-1", {{"op", 5}}));
    EXPECT_FALSE(live.lastDecodeError());
    EXPECT_FALSE(err.take().contains("decode"));
}

TEST_F(LiveState, AConferenceDeltaWithoutAConferenceIsIgnored) {
    feed(delta("conference:cf-1", {{"op", "join"}, {"participant", participant("1")}}));
    EXPECT_FALSE(live.conference());
}

TEST_F(LiveState, AConferenceEndClearsItAndKeepsTheTopic) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1", conferenceWith({participant("1")})));
    feed(delta("conference:cf-1", {{"op", "end"}}));
    EXPECT_FALSE(live.conference());
    EXPECT_TRUE(live.topics().contains("conference:cf-1"));
    EXPECT_EQ(live.participantsModel()->rowCount(), 0);
}

TEST_F(LiveState, EveryConferenceDeltaNotifiesEvenWithoutAChange) {
    followWithLegs("cf-1");
    feed(snapshot("conference:cf-1", conferenceWith({participant("1")})));
    QSignalSpy changed(&live, &Live::conferenceChanged);
    feed(delta("conference:cf-1", {{"op", "dance"}}));
    EXPECT_EQ(changed.count(), 1);
}

// Queue boards

TEST_F(LiveState, ABoardEndRemovesTheBoardAndAnotherSnapshotBringsItBack) {
    live.watchQueues({"q-1"});
    feed(snapshot("queue:q-1", board("q-1")));
    feed(delta("queue:q-1", {{"op", "end"}}));
    EXPECT_FALSE(live.boards().contains("q-1"));
    EXPECT_TRUE(live.topics().contains("queue:q-1"));
    feed(delta("queue:q-1", {{"op", "board"}, {"board", board("q-1", 2)}}));
    ASSERT_TRUE(live.boards().contains("q-1"));
    EXPECT_EQ(live.boards()["q-1"].waiting.size(), 2);
}

TEST_F(LiveState, BoardsAreKeyedByTheTopicNotTheBoardsOwnId) {
    feed(snapshot("queue:q-1", board("other")));
    EXPECT_TRUE(live.boards().contains("q-1"));
}

TEST_F(LiveState, ABoardDeltaWithoutABoardChangesNothing) {
    feed(snapshot("queue:q-1", board("q-1", 1)));
    feed(delta("queue:q-1", {{"op", "board"}}));
    EXPECT_EQ(live.boards()["q-1"].waiting.size(), 1);
}

TEST_F(LiveState, ABoardDeltaChangesItsRowWithoutAReset) {
    feed(snapshot("queue:q-1", board("q-1")));
    feed(snapshot("queue:q-2", board("q-2")));
    QSignalSpy reset(live.boardsModel(), &QAbstractItemModel::modelReset);
    QSignalSpy changed(live.boardsModel(), &QAbstractItemModel::dataChanged);
    feed(delta("queue:q-2", {{"op", "board"}, {"board", board("q-2", 3)}}));
    EXPECT_EQ(reset.count(), 0);
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed[0][0].value<QModelIndex>().row(), 1);
}

TEST_F(LiveState, WatchQueuesRemovesBoardsNoLongerWantedButALateSnapshotAddsItAgain) {
    live.watchQueues({"q-1", "q-2"});
    feed(snapshot("queue:q-1", board("q-1")));
    feed(snapshot("queue:q-2", board("q-2")));
    live.watchQueues({"q-2", "q-2"});
    EXPECT_FALSE(live.boards().contains("q-1"));
    EXPECT_FALSE(live.topics().contains("queue:q-1"));
    EXPECT_TRUE(live.topics().contains("queue:q-2"));
    feed(snapshot("queue:q-1", board("q-1")));
    EXPECT_TRUE(live.boards().contains("q-1"));
}

// Sign-out

TEST_F(LiveState, ClearingTheStateKeepsTopicsAndTheFollowedCall) {
    followWithLegs("cf-1");
    live.watchQueues({"q-1"});
    feed(snapshot("queue:q-1", board("q-1")));
    feed(snapshot("presence", {{"users", {{"u-1", {{"state", "idle"}}}}}}));
    live.clearState();
    EXPECT_TRUE(live.presence().isEmpty());
    EXPECT_TRUE(live.boards().isEmpty());
    EXPECT_TRUE(live.myCalls().isEmpty());
    EXPECT_FALSE(live.currentCall());
    EXPECT_TRUE(live.currentLegs().isEmpty());
    EXPECT_EQ(live.presenceModel()->rowCount(), 0);
    EXPECT_TRUE(live.topics().contains("call:c-1"));
    EXPECT_TRUE(live.topics().contains("conference:cf-1"));
    EXPECT_TRUE(live.topics().contains("queue:q-1"));
    EXPECT_EQ(live.followedSipCallId(), "sip-1");
}

TEST_F(LiveState, ANewLiveWantsPresenceAndItsCallsAndOpensNothing) {
    EXPECT_EQ(live.topics(), (QSet<QString>{"presence", "calls:mine"}));
    EXPECT_FALSE(live.running());
    EXPECT_FALSE(live.task());
    EXPECT_FALSE(live.connected());
}

#include "session/ActionRules.h"

#include "api/API.h"

#include <QTimeZone>

#include <gtest/gtest.h>

// The decisions of the server actions that need no server. The requests,
// their rollbacks and the failures are tried against rz-devserver in the
// integration suite.
namespace {

QueueMembership membership(const QString& id, bool loggedIn, bool paused,
                           std::optional<qint64> waiting = std::nullopt) {
    QueueMembership queue;
    queue.id = id;
    queue.name = id;
    queue.loggedIn = loggedIn;
    queue.paused = paused;
    queue.waiting = waiting;
    return queue;
}

Me anna() {
    Me me;
    me.id = "u-001";
    me.name = "Anna";
    return me;
}

live::QueueBoard board(const QString& id, const QString& annaState, int waiting) {
    live::QueueBoard board;
    board.id = id;
    board.name = id;
    live::QueueBoard::Agent other;
    other.userId = "u-002";
    other.name = "Ben";
    other.state = "paused";
    board.agents.append(other);
    if (!annaState.isEmpty()) {
        live::QueueBoard::Agent agent;
        agent.userId = "u-001";
        agent.name = "Anna";
        agent.state = annaState;
        board.agents.append(agent);
    }
    for (int i = 0; i < waiting; ++i) {
        live::QueueBoard::Waiting caller;
        caller.callId = QString("c%1").arg(i);
        caller.state = "waiting";
        board.waiting.append(caller);
    }
    return board;
}

} // namespace

TEST(AgentFlags, WithoutMeTheMembershipSpeaks) {
    live::Boards boards{{"q1", board("q1", "paused", 0)}};
    EXPECT_EQ(actions::agentFlags(membership("q1", true, false), std::nullopt, boards),
              (AgentFlags{true, false}));
}

TEST(AgentFlags, WithoutABoardTheMembershipSpeaks) {
    EXPECT_EQ(actions::agentFlags(membership("q1", false, true), anna(), {}),
              (AgentFlags{false, true}));
}

TEST(AgentFlags, ABoardWithoutMeLeavesTheMembership) {
    live::Boards boards{{"q1", board("q1", "", 0)}};
    EXPECT_EQ(actions::agentFlags(membership("q1", true, false), anna(), boards),
              (AgentFlags{true, false}));
}

TEST(AgentFlags, TheBoardsStateWins) {
    live::Boards boards{{"q1", board("q1", "paused", 0)}};
    EXPECT_EQ(actions::agentFlags(membership("q1", false, false), anna(), boards),
              (AgentFlags{true, true}));
    boards["q1"] = board("q1", "logged_out", 0);
    EXPECT_EQ(actions::agentFlags(membership("q1", true, true), anna(), boards),
              (AgentFlags{false, false}));
    boards["q1"] = board("q1", "on_call", 0);
    EXPECT_EQ(actions::agentFlags(membership("q1", false, true), anna(), boards),
              (AgentFlags{true, false}));
}

TEST(QueueWaitingTotal, AddsBoardsAndFallsBackToTheMembershipOrNothing) {
    const QList<QueueMembership> queues{membership("q1", true, false, 7),
                                        membership("q2", true, false, 4),
                                        membership("q3", true, false)};
    live::Boards boards{{"q1", board("q1", "available", 2)}};
    EXPECT_EQ(actions::queueWaitingTotal(queues, boards), 2 + 4 + 0);
    EXPECT_EQ(actions::queueWaitingTotal({}, boards), 0);
}

TEST(ApplyAgent, LoggingOutAPausedMembershipShowsBothFalse) {
    QList<QueueMembership> queues{membership("q1", true, true)};
    actions::applyAgent(queues, "q1", false, std::nullopt);
    EXPECT_FALSE(queues[0].loggedIn);
    EXPECT_FALSE(queues[0].paused);
}

TEST(ApplyAgent, APauseGivenWithALogOutIsAppliedLast) {
    QList<QueueMembership> queues{membership("q1", true, false)};
    actions::applyAgent(queues, "q1", false, true);
    EXPECT_FALSE(queues[0].loggedIn);
    EXPECT_TRUE(queues[0].paused);
}

TEST(ApplyAgent, LoggingInKeepsThePause) {
    QList<QueueMembership> queues{membership("q1", false, true)};
    actions::applyAgent(queues, "q1", true, std::nullopt);
    EXPECT_TRUE(queues[0].loggedIn);
    EXPECT_TRUE(queues[0].paused);
}

TEST(ApplyAgent, AnUnknownQueueChangesNothing) {
    QList<QueueMembership> queues{membership("q1", true, true)};
    const auto before = queues;
    actions::applyAgent(queues, "q9", false, false);
    EXPECT_EQ(queues, before);
}

TEST(AgentBodyOnTheWire, SendsOnlyTheGivenArguments) {
    const AgentBody loggingOut{false, std::nullopt};
    const AgentBody pausing{std::nullopt, true};
    EXPECT_EQ(loggingOut.toJson().dump(), R"({"loggedIn":false})");
    EXPECT_EQ(pausing.toJson().dump(), R"({"paused":true})");
}

TEST(CanRecord, NeedsACall) {
    EXPECT_FALSE(actions::canRecord(false, std::nullopt));
    EXPECT_FALSE(actions::canRecord(false, anna()));
}

TEST(CanRecord, WithoutMeOrAPolicyACallMayBeRecorded) {
    EXPECT_TRUE(actions::canRecord(true, std::nullopt));
    EXPECT_TRUE(actions::canRecord(true, anna()));
}

TEST(CanRecord, OnlyNeverForbids) {
    Me me = anna();
    me.recording = "never";
    EXPECT_FALSE(actions::canRecord(true, me));
    me.recording = "on_demand";
    EXPECT_TRUE(actions::canRecord(true, me));
    me.recording = "always";
    EXPECT_TRUE(actions::canRecord(true, me));
}

namespace {

Directory companyWithSharedExtension() {
    Directory directory;
    Directory::Entry ada;
    ada.id = "u1";
    ada.name = "Ada";
    ada.extension_ = "101";
    directory.users = {ada};
    Directory::Entry sales;
    sales.id = "g1";
    sales.name = "Sales";
    sales.extension_ = "600";
    directory.groups = {sales};
    return directory;
}

} // namespace

TEST(ParticipantTarget, AColleaguesExtensionAddsTheColleague) {
    const auto target = actions::participantTarget("101", companyWithSharedExtension());
    EXPECT_EQ(target.toJson().dump(), R"({"type":"user","id":"u1"})");
}

TEST(ParticipantTarget, AGroupsExtensionIsCalledAsANumberForOnlyPeopleAreSearched) {
    const auto target = actions::participantTarget("600", companyWithSharedExtension());
    EXPECT_EQ(target.toJson().dump(), R"({"type":"external","number":"600"})");
}

TEST(ParticipantTarget, WithoutADirectoryEveryNumberIsExternal) {
    const auto target = actions::participantTarget("101", std::nullopt);
    EXPECT_EQ(target.toJson().dump(), R"({"type":"external","number":"101"})");
}

namespace {

std::exception_ptr failed(API::Failure failure) {
    return std::make_exception_ptr(failure);
}

} // namespace

TEST(RecordingFailure, TheServersStatusMessageIsShownWithoutHttp) {
    EXPECT_EQ(actions::recordingFailureText(
                  failed(API::Failure::http(403, R"({"statusMessage":"Not allowed"})"))),
              "Not allowed");
}

TEST(RecordingFailure, MessageWinsOverStatusMessage) {
    EXPECT_EQ(actions::recordingFailureText(failed(API::Failure::http(
                  409, R"({"statusMessage":"Conflict","message":"Already recording"})"))),
              "Already recording");
}

TEST(RecordingFailure, APlainTextBodyShowsTheHttpText) {
    EXPECT_EQ(actions::recordingFailureText(failed(API::Failure::http(403, "Forbidden here"))),
              "HTTP 403: Forbidden here");
}

TEST(RecordingFailure, JsonWithoutEitherFieldShowsTheHttpText) {
    EXPECT_EQ(actions::recordingFailureText(failed(API::Failure::http(500, R"({"error":"x"})"))),
              R"(HTTP 500: {"error":"x"})");
}

TEST(RecordingFailure, OtherFailuresShowTheirOwnText) {
    EXPECT_EQ(actions::recordingFailureText(failed(API::Failure::signedOut())),
              "Signed out. Please sign in again.");
    EXPECT_EQ(actions::recordingFailureText(
                  std::make_exception_ptr(API::TransportError("Connection refused"))),
              "Connection refused");
}

TEST(UnreadCount, CountsMessagesWithoutReadAt) {
    VoicemailMessage a;
    a.id = "a";
    VoicemailMessage b;
    b.id = "b";
    b.readAt = "2026-11-22T04:15:32Z";
    VoicemailMessage c;
    c.id = "c";
    EXPECT_EQ(actions::unreadCount({a, b, c}), 2);
    EXPECT_EQ(actions::unreadCount({}), 0);
}

TEST(IsoNow, IsUtcWithZAndNoFraction) {
    const QDateTime berlin(QDate(2026, 11, 22), QTime(5, 15, 32, 789),
                           QTimeZone(QByteArrayLiteral("Europe/Berlin")));
    EXPECT_EQ(actions::isoNow(berlin), "2026-11-22T04:15:32Z");
}

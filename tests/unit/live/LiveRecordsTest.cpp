#include "live/LiveRecords.h"

#include <gtest/gtest.h>

using namespace live;
using wire::DecodeError;

namespace {

Json frame(const char* text) {
    return wire::parse(QByteArray(text));
}

template <typename T> T data(const char* text) {
    return unwrap<T>(frame(text));
}

const char* const party = R"({"number":"201","name":"Anna Berger","userId":"u-001"})";

std::string callJson(const std::string& extra = {}) {
    return R"({"id":"c-1","direction":"outbound","from":)" + std::string(party) +
           R"(,"to":{"number":"+4930123456"},"state":"connected")" + extra + "}";
}

Call readCall(const std::string& json) {
    return Call::fromJson(wire::parse(QByteArray::fromStdString(json)));
}

} // namespace

// The envelope

TEST(LiveEnvelope, ReadsTypeTopicAndCode) {
    const auto e = Envelope::fromJson(frame(R"({"type":"error","topic":"weather","code":"x"})"));
    EXPECT_EQ(e.type, "error");
    EXPECT_EQ(e.topic, "weather");
    EXPECT_EQ(e.code, "x");
}

TEST(LiveEnvelope, APongFrameIsAGoodEnvelopeOfAnUnknownType) {
    EXPECT_EQ(Envelope::fromJson(frame(R"({"type":"pong"})")).type, "pong");
}

TEST(LiveEnvelope, AFrameWithoutATextTypeIsNoEnvelope) {
    EXPECT_THROW(Envelope::fromJson(frame(R"({"topic":"presence"})")), DecodeError);
    EXPECT_THROW(Envelope::fromJson(frame(R"({"type":5})")), DecodeError);
    EXPECT_THROW(Envelope::fromJson(frame(R"([{"type":"ping"}])")), DecodeError);
    EXPECT_THROW(wire::parse("not json"), DecodeError);
}

TEST(LiveEnvelope, KeysAreCaseSensitive) {
    EXPECT_THROW(Envelope::fromJson(frame(R"({"Type":"ping"})")), DecodeError);
}

TEST(LiveEnvelope, AValidTypeWithoutDataIsAGoodEnvelopeAndABadPayload) {
    const Json f = frame(R"({"type":"snapshot","topic":"presence"})");
    EXPECT_NO_THROW(Envelope::fromJson(f));
    EXPECT_THROW(unwrap<PresenceSnapshot>(f), DecodeError);
}

// Presence

TEST(LivePresence, ASnapshotReadsUsersAndGroups) {
    const auto s = data<PresenceSnapshot>(
        R"({"data":{"users":{"u-1":{"state":"idle"},"u-2":{"state":"dnd"}},"groups":{"g-1":{"ringing":2}}}})");
    ASSERT_EQ(s.users.size(), 2);
    EXPECT_EQ(s.users[0], (std::pair<QString, Presence>{"u-1", Presence::idle}));
    EXPECT_EQ(s.users[1], (std::pair<QString, Presence>{"u-2", Presence::dnd}));
    ASSERT_TRUE(s.groups);
    EXPECT_EQ(s.groups->at(0), (std::pair<QString, qint64>{"g-1", 2}));
}

TEST(LivePresence, GroupsMayBeMissing) {
    EXPECT_FALSE(data<PresenceSnapshot>(R"({"data":{"users":{}}})").groups);
}

TEST(LivePresence, OneUnknownPresenceLosesTheWholeSnapshot) {
    EXPECT_THROW(data<PresenceSnapshot>(
                     R"({"data":{"users":{"u-1":{"state":"idle"},"u-2":{"state":"away"}}}})"),
                 DecodeError);
}

TEST(LivePresence, AFractionalRingCountFailsTheSnapshot) {
    EXPECT_THROW(data<PresenceSnapshot>(R"({"data":{"users":{},"groups":{"g":{"ringing":1.5}}}})"),
                 DecodeError);
}

TEST(LivePresence, ADeltaWithEveryKeyMissingDecodesEmpty) {
    EXPECT_EQ(data<PresenceDelta>(R"({"data":{}})"), PresenceDelta{});
}

TEST(LivePresence, ADeltaReadsAUserAndAGroupChange) {
    const auto d = data<PresenceDelta>(
        R"({"data":{"userId":"u-2","state":"ringing","groupId":"g-1","ringing":0}})");
    EXPECT_EQ(d.userId, "u-2");
    EXPECT_EQ(d.state, Presence::ringing);
    EXPECT_EQ(d.groupId, "g-1");
    EXPECT_EQ(d.ringing, 0);
}

TEST(LivePresence, ADeltaWithAnUnknownStateFails) {
    EXPECT_THROW(data<PresenceDelta>(R"({"data":{"userId":"u-2","state":"Idle"}})"), DecodeError);
}

// Calls

TEST(LiveCall, ReadsEveryField) {
    const Call c = readCall(callJson(
        R"(,"startedAt":1731000000000,"answeredAt":"1731000001000","quality":"fair","conferenceId":"cf-1","myLegs":[{"sipCallId":"abc","deviceId":"d-1"},{"sipCallId":"def"}],"recording":true)"));
    EXPECT_EQ(c.id, "c-1");
    EXPECT_EQ(c.from.name, "Anna Berger");
    EXPECT_EQ(c.to.name, std::nullopt);
    EXPECT_EQ(c.startedAt->raw, "1731000000000.0");
    EXPECT_EQ(c.answeredAt->raw, "1731000001000");
    EXPECT_EQ(c.quality, Quality::Level::fair);
    EXPECT_EQ(c.conferenceId, "cf-1");
    ASSERT_TRUE(c.myLegs);
    EXPECT_EQ(c.myLegs->size(), 2);
    EXPECT_EQ(c.myLegs->at(1).deviceId, std::nullopt);
    EXPECT_EQ(c.recording, true);
}

TEST(LiveCall, OptionalFieldsMayBeNull) {
    const Call c = readCall(callJson(R"(,"quality":null,"myLegs":null,"recording":null)"));
    EXPECT_FALSE(c.quality);
    EXPECT_FALSE(c.myLegs);
    EXPECT_FALSE(c.recording);
}

TEST(LiveCall, AQualityGivenAsAnObjectFails) {
    EXPECT_THROW(readCall(callJson(R"(,"quality":{"level":"good"})")), DecodeError);
}

TEST(LiveCall, AnUnknownQualityLevelFails) {
    EXPECT_THROW(readCall(callJson(R"(,"quality":"great")")), DecodeError);
}

TEST(LiveCall, AMissingRequiredFieldFails) {
    EXPECT_THROW(readCall(R"({"id":"c","direction":"in","from":{"number":"1"},"state":"x"})"),
                 DecodeError);
}

TEST(LiveCall, AMyLegWithoutASipCallIdFails) {
    EXPECT_THROW(readCall(callJson(R"(,"myLegs":[{"deviceId":"d"}])")), DecodeError);
}

TEST(LiveCall, UnknownKeysAreIgnored) {
    EXPECT_EQ(readCall(callJson(R"(,"colour":"blue")")).id, "c-1");
}

TEST(LiveCalls, OneBadCallFailsTheSnapshot) {
    const std::string text = R"({"data":{"calls":[)" + callJson() + R"(,{"id":"c-2"}]}})";
    EXPECT_THROW(unwrap<CallsSnapshot>(wire::parse(QByteArray::fromStdString(text))), DecodeError);
}

TEST(LiveCalls, ADeltaNeedsItsOp) {
    EXPECT_THROW(data<CallsDelta>(R"({"data":{"id":"c-1"}})"), DecodeError);
    const auto d = data<CallsDelta>(R"({"data":{"op":"end","id":"c-1"}})");
    EXPECT_EQ(d.op, "end");
    EXPECT_EQ(d.id, "c-1");
    EXPECT_FALSE(d.call);
}

// Legs and quality

TEST(LiveLeg, ALegWithQualityAsAStringFails) {
    EXPECT_THROW(Leg::fromJson(frame(R"({"id":"l","party":{"number":"1"},"quality":"good"})")),
                 DecodeError);
}

TEST(LiveLeg, ReadsAWholeQuality) {
    const Leg leg = Leg::fromJson(frame(
        R"({"id":"l","party":{"number":"1"},"quality":{"level":"poor","mos":2,"jitterMs":30.5,"lossPct":4,"rttMs":null}})"));
    ASSERT_TRUE(leg.quality);
    EXPECT_EQ(leg.quality->level, Quality::Level::poor);
    EXPECT_EQ(leg.quality->mos, 2.0);
    EXPECT_EQ(leg.quality->jitterMs, 30.5);
    EXPECT_EQ(leg.quality->rttMs, std::nullopt);
}

TEST(LiveLeg, AQualityWithoutALevelFails) {
    EXPECT_THROW(Quality::fromJson(frame(R"({"mos":4.1})")), DecodeError);
}

TEST(LiveCallSnapshot, TheCallMustDecodeThoughItIsNotUsed) {
    EXPECT_THROW(data<CallSnapshot>(R"({"data":{"call":{"id":"c"},"legs":[]}})"), DecodeError);
}

TEST(LiveCallDelta, EveryKeyIsOptional) {
    const auto d = data<CallDelta>(R"({"data":{}})");
    EXPECT_FALSE(d.op);
    EXPECT_FALSE(d.legId);
    EXPECT_FALSE(d.quality);
    EXPECT_FALSE(d.leg);
}

// Stamp

TEST(LiveStamp, TextIsKeptUntouched) {
    EXPECT_EQ(Stamp::fromJson(Json("2026-11-22T09:00:00Z"), "at").raw, "2026-11-22T09:00:00Z");
}

TEST(LiveStamp, ANumberBecomesItsShortestTextWithAFraction) {
    EXPECT_EQ(Stamp::fromJson(Json(1731000000000), "at").raw, "1731000000000.0");
    EXPECT_EQ(Stamp::fromJson(Json(1731000000000.5), "at").raw, "1731000000000.5");
    EXPECT_EQ(Stamp::fromJson(Json(0.25), "at").raw, "0.25");
    EXPECT_EQ(Stamp::fromJson(Json(-3), "at").raw, "-3.0");
}

TEST(LiveStamp, ABooleanFailsTheFrame) {
    EXPECT_THROW(Stamp::fromJson(Json(true), "at"), DecodeError);
    EXPECT_THROW(Stamp::fromJson(Json::object(), "at"), DecodeError);
}

TEST(LiveStamp, EmptyTextDecodesAndHasNoDate) {
    const Stamp s = Stamp::fromJson(Json(""), "at");
    EXPECT_EQ(s.raw, "");
    EXPECT_EQ(s.date(), std::nullopt);
}

TEST(LiveStamp, TheDateIsMillisecondsSince1970) {
    EXPECT_EQ(Stamp{"1731000000000.0"}.date(),
              QDateTime::fromMSecsSinceEpoch(1731000000000, Qt::UTC));
    EXPECT_EQ(Stamp{"1731000000000"}.date(),
              QDateTime::fromMSecsSinceEpoch(1731000000000, Qt::UTC));
}

TEST(LiveStamp, TextThatIsNotWhollyANumberHasNoDate) {
    EXPECT_EQ(Stamp{" 1731000000000"}.date(), std::nullopt);
    EXPECT_EQ(Stamp{"1731000000000 "}.date(), std::nullopt);
    EXPECT_EQ(Stamp{"2026-11-22T09:00:00Z"}.date(), std::nullopt);
    EXPECT_EQ(Stamp{"0x10"}.date(), std::nullopt);
}

TEST(LiveStamp, StampsOrderAsText) {
    EXPECT_LT(Stamp{"100"}, Stamp{"99"});
    EXPECT_LT(Stamp{"1731000000000.0"}, Stamp{"1731000000001.0"});
}

// Named

TEST(LiveNamed, TextIsTheName) {
    EXPECT_EQ(Named::fromJson(Json("Front desk"), "from").text, "Front desk");
}

TEST(LiveNamed, APartyGivesItsNameElseItsNumber) {
    EXPECT_EQ(Named::fromJson(frame(party), "from").text, "Anna Berger");
    EXPECT_EQ(Named::fromJson(frame(R"({"number":"+4930"})"), "from").text, "+4930");
}

TEST(LiveNamed, ANumberFails) {
    EXPECT_THROW(Named::fromJson(Json(42), "from"), DecodeError);
}

TEST(LiveNamed, AnObjectWithoutANumberFailsEvenWithAName) {
    EXPECT_THROW(Named::fromJson(frame(R"({"name":"Anna"})"), "from"), DecodeError);
}

// Queue boards

namespace {
std::string board(const std::string& waiting) {
    return R"({"data":{"id":"q-1","name":"Support","waiting":[)" + waiting +
           R"(],"agents":[{"userId":"u-1","name":"Anna","extension":"201","state":"available","answeredToday":3}]}})";
}
QueueBoard readBoard(const std::string& waiting) {
    return unwrap<QueueBoard>(wire::parse(QByteArray::fromStdString(board(waiting))));
}
} // namespace

TEST(LiveQueueBoard, ReadsWaitingCallsAndAgents) {
    const auto b = readBoard(
        R"({"callId":"w-1","from":{"number":"+49301","name":"Carl"},"position":1,"since":1731000000000,"state":"waiting","agent":"Anna"})");
    EXPECT_EQ(b.name, "Support");
    ASSERT_EQ(b.waiting.size(), 1);
    EXPECT_EQ(b.waiting[0].from->text, "Carl");
    EXPECT_EQ(b.waiting[0].agent->text, "Anna");
    EXPECT_EQ(b.waiting[0].since->raw, "1731000000000.0");
    EXPECT_EQ(b.agents[0].extension_, "201");
    EXPECT_EQ(b.agents[0].answeredToday, 3);
}

TEST(LiveQueueBoard, APositionOfTwoPointZeroIsTwo) {
    EXPECT_EQ(readBoard(R"({"callId":"w","position":2,"state":"waiting"})").waiting[0].position, 2);
    EXPECT_EQ(readBoard(R"({"callId":"w","position":2.0,"state":"waiting"})").waiting[0].position,
              2);
}

TEST(LiveQueueBoard, APositionOfTwoAndAHalfFails) {
    EXPECT_THROW(readBoard(R"({"callId":"w","position":2.5,"state":"waiting"})"), DecodeError);
}

TEST(LiveQueueBoard, AWaitingCallWithoutAStateFails) {
    EXPECT_THROW(readBoard(R"({"callId":"w"})"), DecodeError);
}

TEST(LiveQueueDelta, ABoardDeltaCarriesTheWholeBoard) {
    const auto d = data<QueueDelta>(
        R"({"data":{"op":"board","board":{"id":"q","name":"n","waiting":[],"agents":[]}}})");
    EXPECT_EQ(d.op, "board");
    ASSERT_TRUE(d.board);
    EXPECT_EQ(d.board->id, "q");
}

// Conferences

TEST(LiveConference, ReadsParticipants) {
    const auto c = data<Conference>(
        R"({"data":{"id":"cf","roomId":"r","hostUserId":"u-1","locked":false,"startedAt":"1","participants":[{"id":"p-1","party":{"number":"201"},"muted":false,"talking":true,"quality":{"level":"good"}}]}})");
    EXPECT_EQ(c.roomId, "r");
    ASSERT_EQ(c.participants.size(), 1);
    EXPECT_TRUE(c.participants[0].talking);
    EXPECT_EQ(c.participants[0].quality->level, Quality::Level::good);
}

TEST(LiveConference, AMissingMutedIsNotFalseButAFailure) {
    EXPECT_THROW(
        data<Conference>(
            R"({"data":{"id":"cf","locked":false,"participants":[{"id":"p","party":{"number":"1"},"talking":false}]}})"),
        DecodeError);
}

TEST(LiveConference, LockedIsRequired) {
    EXPECT_THROW(data<Conference>(R"({"data":{"id":"cf","participants":[]}})"), DecodeError);
}

TEST(LiveConferenceDelta, ReadsEachOptionalField) {
    const auto d =
        data<ConferenceDelta>(R"({"data":{"op":"mute","id":"p-1","muted":true,"talking":null}})");
    EXPECT_EQ(d.op, "mute");
    EXPECT_EQ(d.id, "p-1");
    EXPECT_EQ(d.muted, true);
    EXPECT_EQ(d.talking, std::nullopt);
}

TEST(LiveDecodeText, AFailureNamesTheKeyItSitsUnder) {
    try {
        data<CallsSnapshot>(R"({"data":{"calls":[{"id":1}]}})");
        FAIL() << "decoded";
    } catch (const DecodeError& e) {
        EXPECT_STREQ(e.what(), "calls: key \"id\": expected text");
    }
}

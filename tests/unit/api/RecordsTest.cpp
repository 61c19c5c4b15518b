#include "api/Records.h"
#include "api/DirectoryReader.h"

#include <gtest/gtest.h>

#include <functional>

using wire::DecodeError;

namespace {

template <typename T> T read(const char* json) {
    return decode<T>(QByteArray(json));
}

std::string written(const wire::OrderedJson& json) {
    return wire::bytes(json).toStdString();
}

} // namespace

// Target

TEST(TargetReader, ReadsEachKindWithItsKey) {
    EXPECT_EQ(read<Target>(R"({"type":"user","id":"u1"})"), Target::user("u1"));
    EXPECT_EQ(read<Target>(R"({"type":"group","id":"g1"})"), Target::group("g1"));
    EXPECT_EQ(read<Target>(R"({"type":"flow","id":"f1"})"), Target::flow("f1"));
    EXPECT_EQ(read<Target>(R"({"type":"voicemail","id":"b1"})"), Target::voicemail("b1"));
    EXPECT_EQ(read<Target>(R"({"type":"external","number":"+4930123"})"),
              Target::external("+4930123"));
    EXPECT_EQ(read<Target>(R"({"type":"hangup"})"), Target::hangup());
}

TEST(TargetReader, AUserWithoutAnIdFails) {
    EXPECT_THROW(read<Target>(R"({"type":"user"})"), DecodeError);
}

TEST(TargetReader, AnExternalTargetNeedsANumberNotAnId) {
    EXPECT_THROW(read<Target>(R"({"type":"external","id":"x"})"), DecodeError);
}

TEST(TargetReader, AnUnknownTypeReadsAsHangup) {
    EXPECT_EQ(read<Target>(R"({"type":"teleport","id":5})"), Target::hangup());
}

TEST(TargetReader, HangupIgnoresItsOtherKeys) {
    EXPECT_EQ(read<Target>(R"({"type":"hangup","id":"x"})"), Target::hangup());
}

TEST(TargetReader, TypeIsRequiredText) {
    EXPECT_THROW(read<Target>(R"({"id":"u1"})"), DecodeError);
    EXPECT_THROW(read<Target>(R"({"type":3})"), DecodeError);
    EXPECT_THROW(read<Target>(R"({"type":null})"), DecodeError);
}

TEST(TargetReader, AnIdOfTheWrongTypeFails) {
    EXPECT_THROW(read<Target>(R"({"type":"group","id":12})"), DecodeError);
}

TEST(TargetWriter, WritesTypeFirstThenThePayloadKey) {
    EXPECT_EQ(written(Target::user("u1").toJson()), R"({"type":"user","id":"u1"})");
    EXPECT_EQ(written(Target::external("+1").toJson()), R"({"type":"external","number":"+1"})");
    EXPECT_EQ(written(Target::hangup().toJson()), R"({"type":"hangup"})");
}

// Forwarding

TEST(ForwardingWriter, WritesAllFourKeysWithNullForAbsentRules) {
    Forwarding forwarding;
    forwarding.busy = Target::voicemail("box1");
    EXPECT_EQ(
        written(forwarding.toJson()),
        R"({"always":null,"busy":{"type":"voicemail","id":"box1"},"noAnswer":null,"offline":null})");
}

TEST(ForwardingWriter, WritesNoAnswerWithItsDelayThenTarget) {
    Forwarding forwarding;
    forwarding.noAnswer = Forwarding::NoAnswer{20, Target::user("u2")};
    EXPECT_EQ(
        written(forwarding.toJson()),
        R"({"always":null,"busy":null,"noAnswer":{"afterS":20,"target":{"type":"user","id":"u2"}},"offline":null})");
}

TEST(ForwardingReader, AnEmptyObjectHasNoRules) {
    const Forwarding forwarding = read<Forwarding>("{}");
    EXPECT_EQ(forwarding, Forwarding{});
    EXPECT_FALSE(forwarding.always || forwarding.busy || forwarding.noAnswer || forwarding.offline);
}

TEST(ForwardingReader, NullAndMissingAreAlike) {
    EXPECT_EQ(read<Forwarding>(R"({"always":null,"busy":null,"noAnswer":null,"offline":null})"),
              Forwarding{});
}

TEST(ForwardingReader, ReadsBackWhatItWrites) {
    Forwarding forwarding;
    forwarding.always = Target::external("+4930");
    forwarding.noAnswer = Forwarding::NoAnswer{15, Target::group("g")};
    forwarding.offline = Target::hangup();
    EXPECT_EQ(decode<Forwarding>(wire::bytes(forwarding.toJson())), forwarding);
}

TEST(ForwardingReader, NoAnswerNeedsAWholeNumberOfSeconds) {
    EXPECT_THROW(read<Forwarding>(R"({"noAnswer":{"afterS":"20","target":{"type":"hangup"}}})"),
                 DecodeError);
    EXPECT_THROW(read<Forwarding>(R"({"noAnswer":{"afterS":2.5,"target":{"type":"hangup"}}})"),
                 DecodeError);
    EXPECT_EQ(read<Forwarding>(R"({"noAnswer":{"afterS":20.0,"target":{"type":"hangup"}}})")
                  .noAnswer->afterS,
              20);
    EXPECT_THROW(read<Forwarding>(R"({"noAnswer":{"afterS":20}})"), DecodeError);
}

// Me

TEST(MeReader, ExtensionComesFromTheKeyWithoutUnderscore) {
    const Me me = read<Me>(R"({"id":"u1","name":"Ada","extension":"123"})");
    EXPECT_EQ(me.extension_, "123");
}

TEST(MeReader, AKeySpelledWithTheUnderscoreIsIgnored) {
    const Me me = read<Me>(R"({"id":"u1","name":"Ada","extension_":"123"})");
    EXPECT_EQ(me.extension_, std::nullopt);
}

TEST(MeReader, ReadsEveryField) {
    const Me me = read<Me>(R"({"id":"u1","name":"Ada","email":"ada@example.com",
        "extension":"101","voicemailBoxId":"vb1","avatar":{"url":"/a/u1.jpg","version":"3"},
        "dnd":true,"forwarding":{"busy":{"type":"voicemail","id":"vb1"}},"recording":"never",
        "somethingNew":{"deep":[1,2]}})");
    EXPECT_EQ(me.id, "u1");
    EXPECT_EQ(me.name, "Ada");
    EXPECT_EQ(me.email, "ada@example.com");
    EXPECT_EQ(me.voicemailBoxId, "vb1");
    EXPECT_EQ(me.avatar, (AvatarRef{"/a/u1.jpg", "3"}));
    EXPECT_EQ(me.dnd, true);
    EXPECT_EQ(me.forwarding->busy, Target::voicemail("vb1"));
    EXPECT_EQ(me.recording, "never");
}

TEST(MeReader, RequiredKeysMustBeThereAndBeText) {
    EXPECT_THROW(read<Me>(R"({"name":"Ada"})"), DecodeError);
    EXPECT_THROW(read<Me>(R"({"id":"u1"})"), DecodeError);
    EXPECT_THROW(read<Me>(R"({"id":1,"name":"Ada"})"), DecodeError);
    EXPECT_THROW(read<Me>(R"({"id":null,"name":"Ada"})"), DecodeError);
}

TEST(MeReader, OptionalKeysMayBeNullButNotOfAnotherType) {
    const Me me = read<Me>(R"({"id":"u1","name":"Ada","email":null,"dnd":null,"avatar":null})");
    EXPECT_EQ(me.email, std::nullopt);
    EXPECT_EQ(me.dnd, std::nullopt);
    EXPECT_THROW(read<Me>(R"({"id":"u1","name":"Ada","dnd":"yes"})"), DecodeError);
    EXPECT_THROW(read<Me>(R"({"id":"u1","name":"Ada","dnd":1})"), DecodeError);
    EXPECT_THROW(read<Me>(R"({"id":"u1","name":"Ada","avatar":{"url":"/x"}})"), DecodeError);
}

TEST(MeReader, NotAnObjectOrNotJsonFails) {
    EXPECT_THROW(read<Me>("[]"), DecodeError);
    EXPECT_THROW(read<Me>("\"me\""), DecodeError);
    EXPECT_THROW(read<Me>("{\"id\":"), DecodeError);
    EXPECT_THROW(read<Me>(""), DecodeError);
}

// Directory

TEST(DirectoryReader, ReadsTheThreeListsInOrder) {
    const Directory directory = read<Directory>(R"({
        "users":[{"id":"u1","name":"Ada","numbers":["+1","+2"],"extension":"101"},
                 {"id":"u2","name":"Bo"}],
        "groups":[{"id":"g1","name":"Sales"}],
        "flows":[]})");
    ASSERT_EQ(directory.users.size(), 2);
    EXPECT_EQ(directory.users[0].numbers, (QStringList{"+1", "+2"}));
    EXPECT_EQ(directory.users[0].extension_, "101");
    EXPECT_EQ(directory.users[1].name, "Bo");
    EXPECT_EQ(directory.groups[0].id, "g1");
    EXPECT_TRUE(directory.flows.isEmpty());
}

TEST(DirectoryReader, EachListIsRequired) {
    EXPECT_THROW(read<Directory>(R"({"users":[],"groups":[]})"), DecodeError);
    EXPECT_THROW(read<Directory>(R"({"users":[],"groups":[],"flows":null})"), DecodeError);
}

TEST(DirectoryReader, OneBadEntryFailsTheWhole) {
    EXPECT_THROW(read<Directory>(R"({"users":[{"id":"u1"}],"groups":[],"flows":[]})"), DecodeError);
    EXPECT_THROW(read<Directory>(
                     R"({"users":[{"id":"u1","name":"A","numbers":[1]}],"groups":[],"flows":[]})"),
                 DecodeError);
}

// The quick directory reader takes what the thorough one takes and fails as it fails.

Directory thoroughly(const char* json) {
    return Directory::fromJson(wire::parse(QByteArray(json)));
}

std::string failureOf(const std::function<void()>& reading) {
    try {
        reading();
    } catch (const DecodeError& error) {
        return error.what();
    }
    return "no failure";
}

TEST(DirectoryReader, ReadsWhatTheDocumentReaderReads) {
    for (const char* json : {
             R"({"users":[],"groups":[],"flows":[]})",
             // Unknown keys at every level, nulls for what is optional, escapes and non-ASCII.
             R"({"etag":1,"users":[{"id":"u1","name":"J\u00fcrgen \"J\" M\u00fcller","x":{"y":[1]},
                 "email":null,"extension":"1\/2","numbers":null,"avatar":null}],
                 "groups":[{"name":"Vertrieb","id":"g1","numbers":[]}],"flows":[{"id":"f","name":"日本"}]})",
             R"({"users":[{"id":"u1","name":"A","avatar":{"url":"/a/u1","version":"v2","w":3}}],
                 "groups":[],"flows":[]})",
             // A repeated key: the last one counts.
             R"({"users":[{"id":"u1","name":"First","name":"Last"}],"groups":[],"flows":[],
                 "flows":[{"id":"f2","name":"F"}]})",
         }) {
        const auto quick = wire::readDirectoryQuickly(QByteArray(json));
        ASSERT_TRUE(quick.has_value()) << json;
        EXPECT_EQ(*quick, thoroughly(json)) << json;
        EXPECT_EQ(read<Directory>(json), thoroughly(json)) << json;
    }
}

TEST(DirectoryReader, FailsWithTheDocumentReadersWords) {
    for (const char* json : {
             R"([])",
             R"({"users":[],"groups":[]})",
             R"({"users":{},"groups":[],"flows":[]})",
             R"({"users":[{"id":"u1","name":null}],"groups":[],"flows":[]})",
             R"({"users":[{"id":7,"name":"A"}],"groups":[],"flows":[]})",
             R"({"users":[{"id":"u1","name":"A","avatar":{"url":"/a"}}],"groups":[],"flows":[]})",
             R"({"users":[{"id":"u1","name":"A","numbers":"+1"}],"groups":[],"flows":[]})",
             R"({"users":[],"groups":[],"flows":[]} trailing)",
             R"({"users":[],"groups":[],"flows":[)",
             "{\"users\":[{\"id\":\"u1\",\"name\":\"\xff\"}],\"groups\":[],\"flows\":[]}",
         }) {
        const std::string quick = failureOf([&] { (void)read<Directory>(json); });
        EXPECT_FALSE(wire::readDirectoryQuickly(QByteArray(json)).has_value()) << json;
        EXPECT_NE(quick, "no failure") << json;
        EXPECT_EQ(quick, failureOf([&] { (void)thoroughly(json); })) << json;
    }
}

// Lists that come as bare arrays

TEST(QueueList, AnEmptyArrayIsAnEmptyList) {
    EXPECT_TRUE(QueueMembership::listFromJson(wire::parse("[]")).isEmpty());
}

TEST(QueueList, AnObjectIsNotAList) {
    EXPECT_THROW(QueueMembership::listFromJson(wire::parse("{}")), DecodeError);
}

TEST(QueueList, ReadsMembershipsWithOptionalWaiting) {
    const auto queues = QueueMembership::listFromJson(wire::parse(
        R"([{"id":"q1","name":"Support","loggedIn":true,"paused":false,"waiting":3},
            {"id":"q2","name":"Sales","loggedIn":false,"paused":true}])"));
    ASSERT_EQ(queues.size(), 2);
    EXPECT_EQ(queues[0].waiting, 3);
    EXPECT_EQ(queues[1].waiting, std::nullopt);
    EXPECT_TRUE(queues[1].paused);
}

TEST(VoicemailList, ReadsMessagesWithFractionalDurations) {
    const auto messages = VoicemailMessage::listFromJson(wire::parse(
        R"([{"id":"m1","caller":"+4930","durationS":12.5,"createdAt":"2026-11-20T10:00:00Z"},
            {"id":"m2","durationS":7,"createdAt":"2026-11-21T10:00:00Z","readAt":"2026-11-21T11:00:00Z"}])"));
    ASSERT_EQ(messages.size(), 2);
    EXPECT_EQ(messages[0].durationS, 12.5);
    EXPECT_EQ(messages[0].readAt, std::nullopt);
    EXPECT_EQ(messages[1].durationS, 7.0);
    EXPECT_EQ(messages[1].caller, std::nullopt);
    EXPECT_EQ(messages[1].readAt, "2026-11-21T11:00:00Z");
}

// Call log

TEST(CallLogRow, WriterOmitsAbsentFieldsAndKeepsTheOrder) {
    CallLogPage::Row row;
    row.callUuid = "c1";
    row.from = "+4930";
    row.to = "101";
    row.direction = "inbound";
    row.startAt = "2026-11-20T10:00:00Z";
    row.voicemail = false;
    row.mine = CallLogPage::Row::Mine{"callee", true};
    EXPECT_EQ(
        written(row.toJson()),
        R"({"callUuid":"c1","from":"+4930","to":"101","direction":"inbound","startAt":"2026-11-20T10:00:00Z","voicemail":false,"mine":{"role":"callee","answeredByMe":true}})");
}

TEST(CallLogRow, ReadsBackWhatItWrites) {
    const auto page = read<CallLogPage>(R"({"calls":[{"callUuid":"c1","from":"a","to":"b",
        "direction":"outbound","startAt":"s","answerAt":"a1","endAt":"e","result":"answered",
        "voicemail":false,"fromName":"A","toName":"B","mine":{"role":"caller","answeredByMe":false},
        "answeredBy":"u9"}]})");
    ASSERT_EQ(page.calls.size(), 1);
    const auto& row = page.calls[0];
    EXPECT_EQ(decode<CallLogPage::Row>(wire::bytes(row.toJson())), row);
    EXPECT_EQ(row.answeredBy, "u9");
}

TEST(CallLogRow, MineNeedsBothKeys) {
    EXPECT_THROW(read<CallLogPage>(R"({"calls":[{"callUuid":"c1","from":"a","to":"b",
        "direction":"d","startAt":"s","mine":{"role":"caller"}}]})"),
                 DecodeError);
}

// Device

TEST(AppDeviceRequestWriter, WithoutAModelWritesThreeKeys) {
    const AppDeviceRequest request{"inst-1", "Ada's laptop", "linux", std::nullopt};
    EXPECT_EQ(written(request.toJson()),
              R"({"installId":"inst-1","name":"Ada's laptop","platform":"linux"})");
}

TEST(AppDeviceRequestWriter, WritesTheModelLast) {
    const AppDeviceRequest request{"i", "n", "linux", QString("ThinkPad X1")};
    EXPECT_EQ(written(request.toJson()),
              R"({"installId":"i","name":"n","platform":"linux","model":"ThinkPad X1"})");
}

TEST(AppDeviceReader, ReadsCredentialsAndEdgesInOrder) {
    const auto device = read<AppDevice>(R"({"deviceId":"d1","name":"n","sipUsername":"u",
        "password":"p+/=","realm":"rz.local","srtp":true,"edge":[
        {"host":"sip1.example","port":5061,"transport":"tls"},
        {"host":"127.0.0.1","port":5070,"transport":"tcp"}]})");
    ASSERT_EQ(device.edge.size(), 2);
    EXPECT_EQ(device.edge[0], (AppDevice::Edge{"sip1.example", 5061, "tls"}));
    EXPECT_EQ(device.edge[1].port, 5070);
    EXPECT_EQ(device.password, "p+/=");
}

TEST(AppDeviceReader, APortMustBeAWholeNumber) {
    EXPECT_THROW(read<AppDevice>(R"({"deviceId":"d1","name":"n","sipUsername":"u","password":"p",
        "realm":"r","srtp":false,"edge":[{"host":"h","port":"5060","transport":"tcp"}]})"),
                 DecodeError);
    EXPECT_THROW(read<AppDevice>(R"({"deviceId":"d1","name":"n","sipUsername":"u","password":"p",
        "realm":"r","srtp":false,"edge":[{"host":"h","port":5060.5,"transport":"tcp"}]})"),
                 DecodeError);
}

// OAuth

TEST(TokensReader, ARefreshTokenIsRequired) {
    EXPECT_THROW(read<Tokens>(R"({"access_token":"a","expires_in":3600})"), DecodeError);
    const Tokens tokens = read<Tokens>(
        R"({"access_token":"a","refresh_token":"r","expires_in":3600,"token_type":"Bearer"})");
    EXPECT_EQ(tokens, (Tokens{"a", "r", 3600}));
}

TEST(TokensReader, ExpiryIsAWholeNumber) {
    EXPECT_THROW(read<Tokens>(R"({"access_token":"a","refresh_token":"r","expires_in":"3600"})"),
                 DecodeError);
    EXPECT_THROW(read<Tokens>(R"({"access_token":"a","refresh_token":"r","expires_in":true})"),
                 DecodeError);
    EXPECT_THROW(read<Tokens>(R"({"access_token":"a","refresh_token":"r","expires_in":1e300})"),
                 DecodeError);
}

TEST(OAuthErrorReader, ReadsTheErrorWord) {
    EXPECT_EQ(read<OAuthError>(R"({"error":"invalid_grant","error_description":"x"})").error,
              "invalid_grant");
    EXPECT_THROW(read<OAuthError>(R"({"message":"nope"})"), DecodeError);
}

// Small bodies

TEST(SmallBodies, WriteTheirOneKey) {
    EXPECT_EQ(written(DndPatch{true}.toJson()), R"({"dnd":true})");
    EXPECT_EQ(written(ReadPatch{false}.toJson()), R"({"read":false})");
    EXPECT_EQ(written(MergeBody{"call-2"}.toJson()), R"({"with":"call-2"})");
    EXPECT_EQ(written(MuteBody{true}.toJson()), R"({"muted":true})");
    EXPECT_EQ(written(LockBody{false}.toJson()), R"({"locked":false})");
    EXPECT_EQ(written(RecordingBody{true}.toJson()), R"({"recording":true})");
}

TEST(SmallBodies, AgentBodyLeavesOutWhatIsUnchanged) {
    EXPECT_EQ(written(AgentBody{true, std::nullopt}.toJson()), R"({"loggedIn":true})");
    EXPECT_EQ(written(AgentBody{std::nullopt, false}.toJson()), R"({"paused":false})");
    EXPECT_EQ(written(AgentBody{true, true}.toJson()), R"({"loggedIn":true,"paused":true})");
    EXPECT_EQ(written(AgentBody{}.toJson()), "{}");
}

TEST(SmallBodies, ParticipantTargetOmitsAbsentFields) {
    EXPECT_EQ(written(ParticipantBody{{"user", QString("u1"), std::nullopt}}.toJson()),
              R"({"target":{"type":"user","id":"u1"}})");
    EXPECT_EQ(written(ParticipantBody{{"external", std::nullopt, QString("+49")}}.toJson()),
              R"({"target":{"type":"external","number":"+49"}})");
}

TEST(SmallBodies, MergeAnswerAndFailedRecordingMessage) {
    EXPECT_EQ(read<Answer>(R"({"conferenceId":"conf-9"})").conferenceId, "conf-9");
    EXPECT_THROW(read<Answer>(R"({"conference":"conf-9"})"), DecodeError);
    const Message message = read<Message>(R"({"statusMessage":"Recording is off"})");
    EXPECT_EQ(message.message, std::nullopt);
    EXPECT_EQ(message.statusMessage, "Recording is off");
}

TEST(AvatarRefs, AreEqualAndHashAlikeOnlyWhenBothFieldsMatch) {
    const AvatarRef a{"/a.jpg", "1"}, b{"/a.jpg", "1"}, c{"/a.jpg", "2"};
    EXPECT_EQ(a, b);
    EXPECT_EQ(qHash(a), qHash(b));
    EXPECT_NE(a, c);
    EXPECT_EQ(read<AvatarResponse>("{}").avatar, std::nullopt);
    EXPECT_EQ(read<AvatarResponse>(R"({"avatar":{"url":"/x","version":"9"}})").avatar,
              (AvatarRef{"/x", "9"}));
}

TEST(TextFields, KeepUnicodeExactly) {
    const Me me = read<Me>(R"({"id":"u1","name":"Jürgen Müller \ud83d\ude42"})");
    EXPECT_EQ(me.name, QString::fromUtf8("Jürgen Müller 🙂"));
}

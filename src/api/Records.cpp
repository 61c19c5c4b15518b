#include "api/Records.h"

using namespace wire;

namespace {

// Adds the field under its key only when it is present.
template <typename T>
void putOptional(OrderedJson& json, const char* key, const std::optional<T>& value) {
    if (!value) {
        return;
    }
    if constexpr (std::is_same_v<T, QString>) {
        json[key] = utf8(*value);
    } else if constexpr (requires { value->toJson(); }) {
        json[key] = value->toJson();
    } else {
        json[key] = *value;
    }
}

template <typename T> std::optional<T> optionalRecord(const Json& json, const char* key) {
    const Json* value = present(json, key);
    if (!value) {
        return std::nullopt;
    }
    return T::fromJson(*value);
}

OrderedJson optionalTarget(const std::optional<Target>& target) {
    return target ? target->toJson() : OrderedJson(nullptr);
}

} // namespace

AvatarRef AvatarRef::fromJson(const Json& json) {
    object(json, "AvatarRef");
    return {requiredText(json, "url"), requiredText(json, "version")};
}

size_t qHash(const AvatarRef& avatar, size_t seed) noexcept {
    return qHashMulti(seed, avatar.url, avatar.version);
}

AvatarResponse AvatarResponse::fromJson(const Json& json) {
    object(json, "AvatarResponse");
    return {optionalRecord<AvatarRef>(json, "avatar")};
}

Target Target::fromJson(const Json& json) {
    object(json, "Target");
    const QString type = requiredText(json, "type");
    if (type == u"user") {
        return user(requiredText(json, "id"));
    }
    if (type == u"group") {
        return group(requiredText(json, "id"));
    }
    if (type == u"flow") {
        return flow(requiredText(json, "id"));
    }
    if (type == u"voicemail") {
        return voicemail(requiredText(json, "id"));
    }
    if (type == u"external") {
        return external(requiredText(json, "number"));
    }
    // "hangup", and any kind a newer server may send.
    return hangup();
}

OrderedJson Target::toJson() const {
    OrderedJson json = OrderedJson::object();
    switch (m_kind) {
    case Kind::user:
        json["type"] = "user";
        json["id"] = utf8(m_value);
        break;
    case Kind::group:
        json["type"] = "group";
        json["id"] = utf8(m_value);
        break;
    case Kind::flow:
        json["type"] = "flow";
        json["id"] = utf8(m_value);
        break;
    case Kind::voicemail:
        json["type"] = "voicemail";
        json["id"] = utf8(m_value);
        break;
    case Kind::external:
        json["type"] = "external";
        json["number"] = utf8(m_value);
        break;
    case Kind::hangup:
        json["type"] = "hangup";
        break;
    }
    return json;
}

Forwarding::NoAnswer Forwarding::NoAnswer::fromJson(const Json& json) {
    object(json, "Forwarding.NoAnswer");
    return {requiredInteger(json, "afterS"), Target::fromJson(requiredValue(json, "target"))};
}

OrderedJson Forwarding::NoAnswer::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["afterS"] = afterS;
    json["target"] = target.toJson();
    return json;
}

Forwarding Forwarding::fromJson(const Json& json) {
    object(json, "Forwarding");
    return {optionalRecord<Target>(json, "always"), optionalRecord<Target>(json, "busy"),
            optionalRecord<NoAnswer>(json, "noAnswer"), optionalRecord<Target>(json, "offline")};
}

OrderedJson Forwarding::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["always"] = optionalTarget(always);
    json["busy"] = optionalTarget(busy);
    json["noAnswer"] = noAnswer ? noAnswer->toJson() : OrderedJson(nullptr);
    json["offline"] = optionalTarget(offline);
    return json;
}

Me Me::fromJson(const Json& json) {
    object(json, "Me");
    Me me;
    me.id = requiredText(json, "id");
    me.name = requiredText(json, "name");
    me.email = optionalText(json, "email");
    me.extension_ = optionalText(json, "extension");
    me.voicemailBoxId = optionalText(json, "voicemailBoxId");
    me.avatar = optionalRecord<AvatarRef>(json, "avatar");
    me.dnd = optionalBool(json, "dnd");
    me.forwarding = optionalRecord<Forwarding>(json, "forwarding");
    me.recording = optionalText(json, "recording");
    return me;
}

Directory::Entry Directory::Entry::fromJson(const Json& json) {
    object(json, "Directory.Entry");
    Entry entry;
    entry.id = requiredText(json, "id");
    entry.name = requiredText(json, "name");
    entry.email = optionalText(json, "email");
    entry.extension_ = optionalText(json, "extension");
    entry.numbers = optionalTextList(json, "numbers");
    entry.avatar = optionalRecord<AvatarRef>(json, "avatar");
    return entry;
}

Directory Directory::fromJson(const Json& json) {
    object(json, "Directory");
    auto entries = [&json](const char* key) {
        return list<Entry>(requiredValue(json, key), key, Entry::fromJson);
    };
    return {entries("users"), entries("groups"), entries("flows")};
}

CallLogPage::Row::Mine CallLogPage::Row::Mine::fromJson(const Json& json) {
    object(json, "CallLogPage.Row.Mine");
    return {requiredText(json, "role"), requiredBool(json, "answeredByMe")};
}

OrderedJson CallLogPage::Row::Mine::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["role"] = utf8(role);
    json["answeredByMe"] = answeredByMe;
    return json;
}

CallLogPage::Row CallLogPage::Row::fromJson(const Json& json) {
    object(json, "CallLogPage.Row");
    Row row;
    row.callUuid = requiredText(json, "callUuid");
    row.from = requiredText(json, "from");
    row.to = requiredText(json, "to");
    row.direction = requiredText(json, "direction");
    row.startAt = requiredText(json, "startAt");
    row.answerAt = optionalText(json, "answerAt");
    row.endAt = optionalText(json, "endAt");
    row.result = optionalText(json, "result");
    row.voicemail = optionalBool(json, "voicemail");
    row.fromName = optionalText(json, "fromName");
    row.toName = optionalText(json, "toName");
    row.mine = optionalRecord<Mine>(json, "mine");
    row.answeredBy = optionalText(json, "answeredBy");
    return row;
}

OrderedJson CallLogPage::Row::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["callUuid"] = utf8(callUuid);
    json["from"] = utf8(from);
    json["to"] = utf8(to);
    json["direction"] = utf8(direction);
    json["startAt"] = utf8(startAt);
    putOptional(json, "answerAt", answerAt);
    putOptional(json, "endAt", endAt);
    putOptional(json, "result", result);
    putOptional(json, "voicemail", voicemail);
    putOptional(json, "fromName", fromName);
    putOptional(json, "toName", toName);
    putOptional(json, "mine", mine);
    putOptional(json, "answeredBy", answeredBy);
    return json;
}

CallLogPage CallLogPage::fromJson(const Json& json) {
    object(json, "CallLogPage");
    return {list<Row>(requiredValue(json, "calls"), "calls", Row::fromJson)};
}

VoicemailMessage VoicemailMessage::fromJson(const Json& json) {
    object(json, "VoicemailMessage");
    VoicemailMessage message;
    message.id = requiredText(json, "id");
    message.caller = optionalText(json, "caller");
    message.durationS = optionalNumber(json, "durationS");
    message.createdAt = requiredText(json, "createdAt");
    message.readAt = optionalText(json, "readAt");
    return message;
}

QList<VoicemailMessage> VoicemailMessage::listFromJson(const Json& json) {
    return list<VoicemailMessage>(json, "voicemail messages", fromJson);
}

QueueMembership QueueMembership::fromJson(const Json& json) {
    object(json, "QueueMembership");
    return {requiredText(json, "id"), requiredText(json, "name"), requiredBool(json, "loggedIn"),
            requiredBool(json, "paused"), optionalInteger(json, "waiting")};
}

QList<QueueMembership> QueueMembership::listFromJson(const Json& json) {
    return list<QueueMembership>(json, "queues", fromJson);
}

OrderedJson AppDeviceRequest::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["installId"] = utf8(installId);
    json["name"] = utf8(name);
    json["platform"] = utf8(platform);
    putOptional(json, "model", model);
    return json;
}

AppDevice::Edge AppDevice::Edge::fromJson(const Json& json) {
    object(json, "AppDevice.Edge");
    return {requiredText(json, "host"), requiredInteger(json, "port"),
            requiredText(json, "transport")};
}

AppDevice AppDevice::fromJson(const Json& json) {
    object(json, "AppDevice");
    AppDevice device;
    device.deviceId = requiredText(json, "deviceId");
    device.name = requiredText(json, "name");
    device.sipUsername = requiredText(json, "sipUsername");
    device.password = requiredText(json, "password");
    device.realm = requiredText(json, "realm");
    device.srtp = requiredBool(json, "srtp");
    device.edge = list<Edge>(requiredValue(json, "edge"), "edge", Edge::fromJson);
    return device;
}

OrderedJson DndPatch::toJson() const {
    return OrderedJson{{"dnd", dnd}};
}

OrderedJson ReadPatch::toJson() const {
    return OrderedJson{{"read", read}};
}

Tokens Tokens::fromJson(const Json& json) {
    object(json, "Tokens");
    return {requiredText(json, "access_token"), requiredText(json, "refresh_token"),
            requiredInteger(json, "expires_in")};
}

OAuthError OAuthError::fromJson(const Json& json) {
    object(json, "OAuthError");
    return {requiredText(json, "error")};
}

OrderedJson MergeBody::toJson() const {
    return OrderedJson{{"with", utf8(with)}};
}

Answer Answer::fromJson(const Json& json) {
    object(json, "Answer");
    return {requiredText(json, "conferenceId")};
}

OrderedJson ParticipantTarget::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["type"] = utf8(type);
    putOptional(json, "id", id);
    putOptional(json, "number", number);
    return json;
}

OrderedJson ParticipantBody::toJson() const {
    OrderedJson json = OrderedJson::object();
    json["target"] = target.toJson();
    return json;
}

OrderedJson MuteBody::toJson() const {
    return OrderedJson{{"muted", muted}};
}

OrderedJson LockBody::toJson() const {
    return OrderedJson{{"locked", locked}};
}

OrderedJson AgentBody::toJson() const {
    OrderedJson json = OrderedJson::object();
    putOptional(json, "loggedIn", loggedIn);
    putOptional(json, "paused", paused);
    return json;
}

OrderedJson RecordingBody::toJson() const {
    return OrderedJson{{"recording", recording}};
}

Message Message::fromJson(const Json& json) {
    object(json, "Message");
    return {optionalText(json, "message"), optionalText(json, "statusMessage")};
}

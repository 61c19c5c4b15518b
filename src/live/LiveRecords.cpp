#include "live/LiveRecords.h"

#include <charconv>
#include <cmath>
#include <string>

namespace live {
namespace {

using namespace wire;

[[noreturn]] void unknownWord(const char* key, const QString& word) {
    throw DecodeError(std::string("key \"") + key + "\": unknown value \"" + word.toStdString() +
                      "\"");
}

// A nested record's failure names the key it sits under, so that the text
// leads from the frame down to the bad value.
template <typename Read> auto within(const char* key, Read read) -> decltype(read()) {
    try {
        return read();
    } catch (const DecodeError& e) {
        throw DecodeError(std::string(key) + ": " + e.what());
    }
}

template <typename T> T requiredRecord(const Json& object, const char* key) {
    const Json& value = requiredValue(object, key);
    return within(key, [&] { return T::fromJson(value); });
}

template <typename T> std::optional<T> optionalRecord(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    return within(key, [&] { return T::fromJson(*value); });
}

template <typename T> QList<T> requiredList(const Json& object, const char* key) {
    const Json& value = requiredValue(object, key);
    return within(
        key, [&] { return list<T>(value, key, [](const Json& e) { return T::fromJson(e); }); });
}

template <typename T> std::optional<QList<T>> optionalList(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    return within(
        key, [&] { return list<T>(*value, key, [](const Json& e) { return T::fromJson(e); }); });
}

std::optional<Stamp> optionalStamp(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    return Stamp::fromJson(*value, key);
}

std::optional<Named> optionalNamed(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    return Named::fromJson(*value, key);
}

std::optional<Presence> optionalPresence(const Json& object, const char* key) {
    const auto word = optionalText(object, key);
    if (!word) {
        return std::nullopt;
    }
    try {
        return presenceFromText(*word);
    } catch (const DecodeError&) {
        unknownWord(key, *word);
    }
}

QString textOf(const std::string& s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

} // namespace

Presence presenceFromText(const QString& text) {
    if (text == u"idle") {
        return Presence::idle;
    }
    if (text == u"ringing") {
        return Presence::ringing;
    }
    if (text == u"busy") {
        return Presence::busy;
    }
    if (text == u"dnd") {
        return Presence::dnd;
    }
    if (text == u"offline") {
        return Presence::offline;
    }
    unknownWord("state", text);
}

QString presenceText(Presence presence) {
    switch (presence) {
    case Presence::idle:
        return QStringLiteral("idle");
    case Presence::ringing:
        return QStringLiteral("ringing");
    case Presence::busy:
        return QStringLiteral("busy");
    case Presence::dnd:
        return QStringLiteral("dnd");
    case Presence::offline:
        return QStringLiteral("offline");
    }
    return {};
}

QString shortestDecimal(double value) {
    if (!std::isfinite(value)) {
        return value != value ? QStringLiteral("nan")
                              : (value < 0 ? QStringLiteral("-inf") : QStringLiteral("inf"));
    }
    char buffer[64];
    const double magnitude = std::fabs(value);
    // Plain digits in the everyday range, an exponent beyond it.
    const bool plain = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e16);
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value,
                      plain ? std::chars_format::fixed : std::chars_format::scientific);
    std::string text(buffer, result.ptr);
    if (plain && text.find('.') == std::string::npos) {
        text += ".0";
    }
    return QString::fromLatin1(text.data(), qsizetype(text.size()));
}

Stamp Stamp::fromJson(const Json& value, const char* key) {
    if (value.is_string()) {
        return {textOf(value.get_ref<const std::string&>())};
    }
    if (value.is_number()) {
        return {shortestDecimal(value.get<double>())};
    }
    throw DecodeError(std::string("key \"") + key + "\": expected a time stamp");
}

std::optional<QDateTime> Stamp::date() const {
    if (raw.isEmpty() || raw.front().isSpace()) {
        return std::nullopt;
    }
    const std::string text = raw.toStdString();
    double milliseconds = 0;
    // from_chars reads in the C locale whatever the process's locale is.
    const auto result = std::from_chars(text.data(), text.data() + text.size(), milliseconds);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() ||
        !std::isfinite(milliseconds)) {
        return std::nullopt;
    }
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(milliseconds)), Qt::UTC);
}

std::strong_ordering Stamp::operator<=>(const Stamp& other) const {
    const int c = QString::compare(raw, other.raw);
    return c < 0 ? std::strong_ordering::less
                 : (c > 0 ? std::strong_ordering::greater : std::strong_ordering::equal);
}

Party Party::fromJson(const Json& value) {
    const Json& o = object(value, "party");
    return {requiredText(o, "number"), optionalText(o, "name"), optionalText(o, "userId")};
}

Named Named::fromJson(const Json& value, const char* key) {
    if (value.is_string()) {
        return {textOf(value.get_ref<const std::string&>())};
    }
    if (!value.is_object()) {
        throw DecodeError(std::string("key \"") + key + "\": expected text or a party");
    }
    const Party party = within(key, [&] { return Party::fromJson(value); });
    return {party.name.value_or(party.number)};
}

Quality::Level Quality::levelFromText(const QString& text) {
    if (text == u"good") {
        return Level::good;
    }
    if (text == u"fair") {
        return Level::fair;
    }
    if (text == u"poor") {
        return Level::poor;
    }
    unknownWord("level", text);
}

QString Quality::levelText(Level level) {
    switch (level) {
    case Level::good:
        return QStringLiteral("good");
    case Level::fair:
        return QStringLiteral("fair");
    case Level::poor:
        return QStringLiteral("poor");
    }
    return {};
}

Quality Quality::fromJson(const Json& value) {
    const Json& o = object(value, "quality");
    Quality q;
    q.level = levelFromText(requiredText(o, "level"));
    q.mos = optionalNumber(o, "mos");
    q.jitterMs = optionalNumber(o, "jitterMs");
    q.lossPct = optionalNumber(o, "lossPct");
    q.rttMs = optionalNumber(o, "rttMs");
    return q;
}

Call::MyLeg Call::MyLeg::fromJson(const Json& value) {
    const Json& o = object(value, "leg");
    return {requiredText(o, "sipCallId"), optionalText(o, "deviceId")};
}

Call Call::fromJson(const Json& value) {
    const Json& o = object(value, "call");
    Call c;
    c.id = requiredText(o, "id");
    c.direction = requiredText(o, "direction");
    c.from = requiredRecord<Party>(o, "from");
    c.to = requiredRecord<Party>(o, "to");
    c.state = requiredText(o, "state");
    c.startedAt = optionalStamp(o, "startedAt");
    c.answeredAt = optionalStamp(o, "answeredAt");
    // The call's level travels as a bare word, unlike a leg's whole quality.
    if (const auto level = optionalText(o, "quality")) {
        c.quality = within("quality", [&] { return Quality::levelFromText(*level); });
    }
    c.conferenceId = optionalText(o, "conferenceId");
    c.myLegs = optionalList<MyLeg>(o, "myLegs");
    c.recording = optionalBool(o, "recording");
    return c;
}

Leg Leg::fromJson(const Json& value) {
    const Json& o = object(value, "leg");
    return {requiredText(o, "id"), requiredRecord<Party>(o, "party"),
            optionalRecord<Quality>(o, "quality")};
}

QueueBoard::Waiting QueueBoard::Waiting::fromJson(const Json& value) {
    const Json& o = object(value, "waiting call");
    Waiting w;
    w.callId = requiredText(o, "callId");
    w.from = optionalNamed(o, "from");
    w.position = optionalInteger(o, "position");
    w.since = optionalStamp(o, "since");
    w.state = requiredText(o, "state");
    w.agent = optionalNamed(o, "agent");
    return w;
}

QueueBoard::Agent QueueBoard::Agent::fromJson(const Json& value) {
    const Json& o = object(value, "agent");
    Agent a;
    a.userId = requiredText(o, "userId");
    a.name = requiredText(o, "name");
    a.extension_ = optionalText(o, "extension");
    a.state = requiredText(o, "state");
    a.answeredToday = optionalInteger(o, "answeredToday");
    return a;
}

QueueBoard QueueBoard::fromJson(const Json& value) {
    const Json& o = object(value, "board");
    QueueBoard b;
    b.id = requiredText(o, "id");
    b.name = requiredText(o, "name");
    b.waiting = requiredList<Waiting>(o, "waiting");
    b.agents = requiredList<Agent>(o, "agents");
    return b;
}

Participant Participant::fromJson(const Json& value) {
    const Json& o = object(value, "participant");
    Participant p;
    p.id = requiredText(o, "id");
    p.party = requiredRecord<Party>(o, "party");
    p.joinedAt = optionalStamp(o, "joinedAt");
    p.muted = requiredBool(o, "muted");
    p.talking = requiredBool(o, "talking");
    p.quality = optionalRecord<Quality>(o, "quality");
    return p;
}

Conference Conference::fromJson(const Json& value) {
    const Json& o = object(value, "conference");
    Conference c;
    c.id = requiredText(o, "id");
    c.roomId = optionalText(o, "roomId");
    c.hostUserId = optionalText(o, "hostUserId");
    c.locked = requiredBool(o, "locked");
    c.startedAt = optionalStamp(o, "startedAt");
    c.participants = requiredList<Participant>(o, "participants");
    return c;
}

PresenceSnapshot PresenceSnapshot::fromJson(const Json& value) {
    const Json& o = object(value, "presence");
    PresenceSnapshot s;
    const Json& users = requiredValue(o, "users");
    if (!users.is_object()) {
        throw DecodeError("key \"users\": expected an object");
    }
    s.users.reserve(qsizetype(users.size()));
    for (auto it = users.begin(); it != users.end(); ++it) {
        const std::string& id = it.key();
        const Json& entry = it.value();
        const Json& e = within("users", [&]() -> const Json& { return object(entry, id.c_str()); });
        const QString word = within("users", [&] { return requiredText(e, "state"); });
        s.users.append({textOf(id), within("users", [&] { return presenceFromText(word); })});
    }
    if (const Json* groups = present(o, "groups")) {
        if (!groups->is_object()) {
            throw DecodeError("key \"groups\": expected an object");
        }
        QList<std::pair<QString, qint64>> counts;
        for (auto it = groups->begin(); it != groups->end(); ++it) {
            const std::string& id = it.key();
            const Json& entry = it.value();
            const Json& g =
                within("groups", [&]() -> const Json& { return object(entry, id.c_str()); });
            counts.append(
                {textOf(id), within("groups", [&] { return requiredInteger(g, "ringing"); })});
        }
        s.groups = std::move(counts);
    }
    return s;
}

PresenceDelta PresenceDelta::fromJson(const Json& value) {
    const Json& o = object(value, "presence change");
    return {optionalText(o, "userId"), optionalPresence(o, "state"), optionalText(o, "groupId"),
            optionalInteger(o, "ringing")};
}

CallsSnapshot CallsSnapshot::fromJson(const Json& value) {
    return {requiredList<Call>(object(value, "calls"), "calls")};
}

CallsDelta CallsDelta::fromJson(const Json& value) {
    const Json& o = object(value, "calls change");
    return {requiredText(o, "op"), optionalRecord<Call>(o, "call"), optionalText(o, "id")};
}

CallSnapshot CallSnapshot::fromJson(const Json& value) {
    const Json& o = object(value, "call snapshot");
    return {requiredRecord<Call>(o, "call"), requiredList<Leg>(o, "legs")};
}

CallDelta CallDelta::fromJson(const Json& value) {
    const Json& o = object(value, "call change");
    return {optionalText(o, "op"), optionalText(o, "legId"), optionalRecord<Quality>(o, "quality"),
            optionalRecord<Leg>(o, "leg")};
}

QueueDelta QueueDelta::fromJson(const Json& value) {
    const Json& o = object(value, "board change");
    return {requiredText(o, "op"), optionalRecord<QueueBoard>(o, "board")};
}

ConferenceDelta ConferenceDelta::fromJson(const Json& value) {
    const Json& o = object(value, "conference change");
    ConferenceDelta d;
    d.op = requiredText(o, "op");
    d.participant = optionalRecord<Participant>(o, "participant");
    d.id = optionalText(o, "id");
    d.talking = optionalBool(o, "talking");
    d.muted = optionalBool(o, "muted");
    d.locked = optionalBool(o, "locked");
    return d;
}

Envelope Envelope::fromJson(const Json& frame) {
    const Json& o = object(frame, "frame");
    return {requiredText(o, "type"), optionalText(o, "topic"), optionalText(o, "code")};
}

} // namespace live

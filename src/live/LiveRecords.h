#pragma once

#include "api/Json.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

#include <compare>
#include <optional>
#include <utility>

// What the live websocket pushes, read strictly: a required key that is
// missing or of another type, a fraction where a whole number belongs, or an
// enumeration word we do not know fails the whole frame. Optional keys may be
// missing or null; unknown keys are ignored. Every reader throws
// wire::DecodeError with a text that names the key.
namespace live {

using wire::Json;

enum class Presence { idle, ringing, busy, dnd, offline };

Presence presenceFromText(const QString& text);
QString presenceText(Presence presence);

// A time the server sends as milliseconds since 1970, as a number or as text.
// It is kept as text; only date() looks into it.
struct Stamp {
    QString raw;

    static Stamp fromJson(const Json& value, const char* key);
    // raw as milliseconds since 1970; none when it is not a number from its first character.
    std::optional<QDateTime> date() const;

    bool operator==(const Stamp&) const = default;
    // Plain text order, as the server's stamps of one length sort.
    std::strong_ordering operator<=>(const Stamp& other) const;
};

// The shortest decimal text of a double that reads back the same, always with
// a fraction or an exponent: 1731000000000 gives "1731000000000.0".
QString shortestDecimal(double value);

struct Party {
    QString number;
    std::optional<QString> name;
    std::optional<QString> userId;

    static Party fromJson(const Json& value);
    bool operator==(const Party&) const = default;
};

// A person in a queue, sent either as plain text or as a party.
struct Named {
    QString text;

    static Named fromJson(const Json& value, const char* key);
    bool operator==(const Named&) const = default;
};

struct Quality {
    enum class Level { good, fair, poor };

    Level level = Level::good;
    std::optional<double> mos;
    std::optional<double> jitterMs;
    std::optional<double> lossPct;
    std::optional<double> rttMs;

    static Quality fromJson(const Json& value);
    static Level levelFromText(const QString& text);
    static QString levelText(Level level);
    bool operator==(const Quality&) const = default;
};

// One call of the user as the server sees it.
struct Call {
    // The user's own device on the call; sipCallId joins it to the local call.
    struct MyLeg {
        QString sipCallId;
        std::optional<QString> deviceId;

        static MyLeg fromJson(const Json& value);
        bool operator==(const MyLeg&) const = default;
    };

    QString id;
    QString direction;
    Party from;
    Party to;
    QString state;
    std::optional<Stamp> startedAt;
    std::optional<Stamp> answeredAt;
    std::optional<Quality::Level> quality;
    std::optional<QString> conferenceId;
    std::optional<QList<MyLeg>> myLegs;
    std::optional<bool> recording;

    static Call fromJson(const Json& value);
    bool operator==(const Call&) const = default;
};

struct Leg {
    QString id;
    Party party;
    std::optional<Quality> quality;

    static Leg fromJson(const Json& value);
    bool operator==(const Leg&) const = default;
};

struct QueueBoard {
    struct Waiting {
        QString callId;
        std::optional<Named> from;
        std::optional<qint64> position;
        std::optional<Stamp> since;
        QString state;
        std::optional<Named> agent;

        static Waiting fromJson(const Json& value);
        bool operator==(const Waiting&) const = default;
    };
    struct Agent {
        QString userId;
        QString name;
        std::optional<QString> extension_;
        QString state;
        std::optional<qint64> answeredToday;

        static Agent fromJson(const Json& value);
        bool operator==(const Agent&) const = default;
    };

    QString id;
    QString name;
    QList<Waiting> waiting;
    QList<Agent> agents;

    static QueueBoard fromJson(const Json& value);
    bool operator==(const QueueBoard&) const = default;
};

struct Participant {
    QString id;
    Party party;
    std::optional<Stamp> joinedAt;
    bool muted = false;
    bool talking = false;
    std::optional<Quality> quality;

    static Participant fromJson(const Json& value);
    bool operator==(const Participant&) const = default;
};

struct Conference {
    QString id;
    std::optional<QString> roomId;
    std::optional<QString> hostUserId;
    bool locked = false;
    std::optional<Stamp> startedAt;
    QList<Participant> participants;

    static Conference fromJson(const Json& value);
    bool operator==(const Conference&) const = default;
};

// The payloads, one per kind of frame and topic.

struct PresenceSnapshot {
    // In the order the frame gives them.
    QList<std::pair<QString, Presence>> users;
    std::optional<QList<std::pair<QString, qint64>>> groups;

    static PresenceSnapshot fromJson(const Json& value);
    bool operator==(const PresenceSnapshot&) const = default;
};

struct PresenceDelta {
    std::optional<QString> userId;
    std::optional<Presence> state;
    std::optional<QString> groupId;
    std::optional<qint64> ringing;

    static PresenceDelta fromJson(const Json& value);
    bool operator==(const PresenceDelta&) const = default;
};

struct CallsSnapshot {
    QList<Call> calls;

    static CallsSnapshot fromJson(const Json& value);
};

struct CallsDelta {
    QString op;
    std::optional<Call> call;
    std::optional<QString> id;

    static CallsDelta fromJson(const Json& value);
};

struct CallSnapshot {
    Call call;
    QList<Leg> legs;

    static CallSnapshot fromJson(const Json& value);
};

struct CallDelta {
    std::optional<QString> op;
    std::optional<QString> legId;
    std::optional<Quality> quality;
    std::optional<Leg> leg;

    static CallDelta fromJson(const Json& value);
};

struct QueueDelta {
    QString op;
    std::optional<QueueBoard> board;

    static QueueDelta fromJson(const Json& value);
};

struct ConferenceDelta {
    QString op;
    std::optional<Participant> participant;
    std::optional<QString> id;
    std::optional<bool> talking;
    std::optional<bool> muted;
    std::optional<bool> locked;

    static ConferenceDelta fromJson(const Json& value);
};

// The outside of every frame. A frame that does not read as one costs the socket.
struct Envelope {
    QString type;
    std::optional<QString> topic;
    std::optional<QString> code;

    static Envelope fromJson(const Json& frame);
};

// The payload under "data" of an already parsed frame.
template <typename T> T unwrap(const Json& frame) {
    return T::fromJson(wire::requiredValue(wire::object(frame, "frame"), "data"));
}

} // namespace live

#pragma once

#include "api/Json.h"

#include <QByteArray>
#include <QHashFunctions>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The records of the dashboard's REST interface. Each is a plain value with a
// strict reader (`fromJson`, throwing wire::DecodeError) and, where the app
// sends or caches it, a writer (`toJson`) that keeps the keys in the server's
// order and leaves absent optional fields out. Time stamps stay the text the
// server sent.

struct AvatarRef {
    QString url;
    QString version;

    static AvatarRef fromJson(const wire::Json& json);
    bool operator==(const AvatarRef&) const = default;
};
size_t qHash(const AvatarRef& avatar, size_t seed = 0) noexcept;

struct AvatarResponse {
    std::optional<AvatarRef> avatar;

    static AvatarResponse fromJson(const wire::Json& json);
    bool operator==(const AvatarResponse&) const = default;
};

// Where a forwarded call goes. A type the app does not know reads as a
// hang-up, so that a newer server's target kind shows as something.
class Target {
public:
    enum class Kind { user, group, flow, voicemail, external, hangup };

    static Target user(QString id) { return {Kind::user, std::move(id)}; }
    static Target group(QString id) { return {Kind::group, std::move(id)}; }
    static Target flow(QString id) { return {Kind::flow, std::move(id)}; }
    static Target voicemail(QString id) { return {Kind::voicemail, std::move(id)}; }
    static Target external(QString number) { return {Kind::external, std::move(number)}; }
    static Target hangup() { return {Kind::hangup, {}}; }

    Kind kind() const { return m_kind; }
    // The id, or for external the number; empty for hangup.
    const QString& value() const { return m_value; }

    static Target fromJson(const wire::Json& json);
    wire::OrderedJson toJson() const;
    bool operator==(const Target&) const = default;

private:
    Target(Kind kind, QString value) : m_kind(kind), m_value(std::move(value)) {}

    Kind m_kind;
    QString m_value;
};

struct Forwarding {
    struct NoAnswer {
        qint64 afterS = 0;
        Target target = Target::hangup();

        static NoAnswer fromJson(const wire::Json& json);
        wire::OrderedJson toJson() const;
        bool operator==(const NoAnswer&) const = default;
    };

    std::optional<Target> always;
    std::optional<Target> busy;
    std::optional<NoAnswer> noAnswer;
    std::optional<Target> offline;

    static Forwarding fromJson(const wire::Json& json);
    // All four keys, always; a cleared rule is null, which the server reads as "clear it".
    wire::OrderedJson toJson() const;
    bool operator==(const Forwarding&) const = default;
};

struct Me {
    QString id;
    QString name;
    std::optional<QString> email;
    std::optional<QString> extension_;
    std::optional<QString> voicemailBoxId;
    std::optional<AvatarRef> avatar;
    std::optional<bool> dnd;
    std::optional<Forwarding> forwarding;
    std::optional<QString> recording;

    static Me fromJson(const wire::Json& json);
    bool operator==(const Me&) const = default;
};

struct Directory {
    struct Entry {
        QString id;
        QString name;
        std::optional<QString> email;
        std::optional<QString> extension_;
        std::optional<QStringList> numbers;
        std::optional<AvatarRef> avatar;

        static Entry fromJson(const wire::Json& json);
        bool operator==(const Entry&) const = default;
    };

    QList<Entry> users;
    QList<Entry> groups;
    QList<Entry> flows;

    static Directory fromJson(const wire::Json& json);
    bool operator==(const Directory&) const = default;
};

struct CallLogPage {
    struct Row {
        struct Mine {
            QString role;
            bool answeredByMe = false;

            static Mine fromJson(const wire::Json& json);
            wire::OrderedJson toJson() const;
            bool operator==(const Mine&) const = default;
        };

        QString callUuid;
        QString from;
        QString to;
        QString direction;
        QString startAt;
        std::optional<QString> answerAt;
        std::optional<QString> endAt;
        std::optional<QString> result;
        std::optional<bool> voicemail;
        std::optional<QString> fromName;
        std::optional<QString> toName;
        std::optional<Mine> mine;
        std::optional<QString> answeredBy;

        static Row fromJson(const wire::Json& json);
        // For the call-history cache on disk.
        wire::OrderedJson toJson() const;
        bool operator==(const Row&) const = default;
    };

    QList<Row> calls;

    static CallLogPage fromJson(const wire::Json& json);
    bool operator==(const CallLogPage&) const = default;
};

struct VoicemailMessage {
    QString id;
    std::optional<QString> caller;
    std::optional<double> durationS;
    QString createdAt;
    std::optional<QString> readAt;

    static VoicemailMessage fromJson(const wire::Json& json);
    // The reply of the list: a bare array.
    static QList<VoicemailMessage> listFromJson(const wire::Json& json);
    bool operator==(const VoicemailMessage&) const = default;
};

struct QueueMembership {
    QString id;
    QString name;
    bool loggedIn = false;
    bool paused = false;
    std::optional<qint64> waiting;

    static QueueMembership fromJson(const wire::Json& json);
    static QList<QueueMembership> listFromJson(const wire::Json& json);
    bool operator==(const QueueMembership&) const = default;
};

struct AppDeviceRequest {
    QString installId;
    QString name;
    QString platform;
    std::optional<QString> model;

    wire::OrderedJson toJson() const;
    bool operator==(const AppDeviceRequest&) const = default;
};

struct AppDevice {
    struct Edge {
        QString host;
        qint64 port = 0;
        QString transport;

        static Edge fromJson(const wire::Json& json);
        bool operator==(const Edge&) const = default;
    };

    QString deviceId;
    QString name;
    QString sipUsername;
    QString password;
    QString realm;
    bool srtp = false;
    QList<Edge> edge;

    static AppDevice fromJson(const wire::Json& json);
    bool operator==(const AppDevice&) const = default;
};

struct DndPatch {
    bool dnd = false;
    wire::OrderedJson toJson() const;
};

struct ReadPatch {
    bool read = false;
    wire::OrderedJson toJson() const;
};

// The token endpoint's reply. A refresh always brings a new refresh token.
struct Tokens {
    QString access_token;
    QString refresh_token;
    qint64 expires_in = 0;

    static Tokens fromJson(const wire::Json& json);
    bool operator==(const Tokens&) const = default;
};

// The token endpoint's error reply.
struct OAuthError {
    QString error;

    static OAuthError fromJson(const wire::Json& json);
};

struct MergeBody {
    QString with;
    wire::OrderedJson toJson() const;
};

// The reply of a merge.
struct Answer {
    QString conferenceId;
    static Answer fromJson(const wire::Json& json);
};

// A participant to add to a conference: a colleague ("user", with an id) or
// a number ("external").
struct ParticipantTarget {
    QString type;
    std::optional<QString> id;
    std::optional<QString> number;

    wire::OrderedJson toJson() const;
};

struct ParticipantBody {
    ParticipantTarget target;
    wire::OrderedJson toJson() const;
};

struct MuteBody {
    bool muted = false;
    wire::OrderedJson toJson() const;
};

struct LockBody {
    bool locked = false;
    wire::OrderedJson toJson() const;
};

// A change of a queue agent; an unchanged field is left out.
struct AgentBody {
    std::optional<bool> loggedIn;
    std::optional<bool> paused;
    wire::OrderedJson toJson() const;
};

struct RecordingBody {
    bool recording = false;
    wire::OrderedJson toJson() const;
};

// The body of a failed recording request.
struct Message {
    std::optional<QString> message;
    std::optional<QString> statusMessage;

    static Message fromJson(const wire::Json& json);
};

// Decodes a whole reply body into a record: `decode<Me>(bytes)`.
template <typename T> T decode(const QByteArray& body) {
    return T::fromJson(wire::parse(body));
}

// The directory, the one large answer, is read without a document in between.
template <> Directory decode<Directory>(const QByteArray& body);

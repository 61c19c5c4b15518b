#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace rzdev {

using Json = nlohmann::ordered_json;

// Milliseconds since 1970 on the server's clock, which tests may move forward.
class Clock {
public:
    qint64 nowMs() const;
    void advance(qint64 ms) { m_offset += ms; }

private:
    qint64 m_offset = 0;
};

std::string isoMs(qint64 ms);      // 2026-11-20T09:15:32.123Z
std::string isoSeconds(qint64 ms); // 2026-11-20T09:15:32Z
std::optional<qint64> parseIso(const std::string& text);

struct User {
    std::string id;
    std::string name;
    std::string email;
    std::string extension;
    std::vector<std::string> numbers;
    int avatarVersion = 1; // 0: no picture
    QByteArray avatarJpeg; // empty: the generated one
    std::string presence = "idle";
    std::optional<bool> dnd;
    Json forwarding;       // null, or an object with the four rules
    std::string recording; // empty: no policy given
    std::string voicemailBoxId;
};

struct Group {
    std::string id;
    std::string name;
    std::string extension;
    std::vector<std::string> numbers;
    int ringing = 0;
    std::vector<std::string> members; // user ids whose devices ring for the group
};

struct Flow {
    std::string id;
    std::string name;
    std::string extension;
    std::vector<std::string> numbers;
    std::vector<std::string> members; // user ids rung, unless the flow feeds a queue
};

struct VoicemailMessage {
    std::string id;
    std::string boxId;
    std::optional<std::string> caller;
    double durationS = 0;
    qint64 createdMs = 0;
    std::optional<qint64> readMs;
    QByteArray audio; // a real recording (WAV); empty: the generated one
};

struct QueueAgent {
    std::string userId;
    std::string state; // available, ringing, on_call, wrap_up, paused, unreachable, logged_out
    int answeredToday = 0;
};

struct QueueWaiting {
    std::string callId;
    Json from; // text or a party
    int position = 1;
    qint64 sinceMs = 0;
    std::string state = "waiting";
    Json agent; // null, text or a party
};

struct Queue {
    std::string id;
    std::string name;
    std::vector<QueueAgent> agents;
    std::vector<QueueWaiting> waiting;
};

struct Device {
    std::string id;
    std::string userId;
    std::string installId;
    std::string name;
    std::string platform;
    std::string model;
    std::string sipUsername;
    std::string password;
    std::string contact; // a party that does not register: where the proxy sends its calls
};

struct LogRow {
    std::string userId;
    qint64 startMs = 0;
    Json row;
};

// A call as the live topics tell it: the wire object, whose calls:mine it is
// in, and its legs.
struct LiveCall {
    Json call;
    std::string owner;
    std::vector<Json> legs;
};

// The company and everything the dashboard knows about it.
class Model {
public:
    explicit Model(Clock& clock) : m_clock(clock) {}

    // The demo company; with a size above twelve, generated colleagues fill it up.
    void loadDemo(int directorySize);

    Clock& clock() { return m_clock; }

    User* user(const std::string& id);
    Queue* queue(const std::string& id);
    VoicemailMessage* voicemail(const std::string& id);
    LiveCall* call(const std::string& id);
    Json* conference(const std::string& id);

    Json meJson(const User& user) const;
    Json avatarRef(const User& user) const;
    Json directoryJson() const;
    // The serialised directory and its entity tag, recomputed after a change.
    const QByteArray& directoryBytes();
    const QByteArray& directoryETag();
    void directoryChanged() { m_directoryCache.clear(); }

    Json membershipsJson(const std::string& userId) const;
    Json boardJson(const Queue& queue) const;
    Json presenceSnapshot() const;
    Json callsSnapshot(const std::string& userId) const;
    Json voicemailJson(const VoicemailMessage& message) const;
    Json callLogPage(const std::string& userId, int limit, std::optional<qint64> before) const;

    QByteArray avatarJpeg(User& user);
    QByteArray voicemailWav(const VoicemailMessage& message) const;

    std::string nextId(const std::string& prefix) { return prefix + std::to_string(++m_serial); }

    std::vector<User> users;
    std::vector<Group> groups;
    std::vector<Flow> flows;
    std::vector<VoicemailMessage> messages;
    std::vector<Queue> queues;
    std::vector<Device> devices;
    std::vector<LogRow> callLog;
    std::vector<LiveCall> calls;
    std::vector<Json> conferences;
    std::string realm = "rz.local";
    int avatarSerial = 1;

private:
    void makeCallLog(const User& owner);

    Clock& m_clock;
    QByteArray m_directoryCache;
    QByteArray m_directoryTag;
    long m_serial = 1000;
};

// A JPEG of a simple symmetric pattern in a colour of the seed.
QByteArray generatedAvatar(const std::string& seed);

// 16-bit mono PCM WAV at 8 kHz: syllable-like tones of changing pitch.
QByteArray speechLikeWav(double seconds, unsigned seed);

} // namespace rzdev

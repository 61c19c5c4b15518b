#include "Model.h"

#include <QBuffer>
#include <QColor>
#include <QCryptographicHash>
#include <QDateTime>
#include <QImage>
#include <QImageWriter>
#include <QRandomGenerator>
#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace rzdev {

qint64 Clock::nowMs() const {
    return QDateTime::currentMSecsSinceEpoch() + m_offset;
}

std::string isoMs(qint64 ms) {
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC)
        .toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ"))
        .toStdString();
}

std::string isoSeconds(qint64 ms) {
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC)
        .toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ"))
        .toStdString();
}

std::optional<qint64> parseIso(const std::string& text) {
    auto date = QDateTime::fromString(QString::fromStdString(text), Qt::ISODateWithMs);
    if (!date.isValid()) {
        return std::nullopt;
    }
    return date.toMSecsSinceEpoch();
}

namespace {

struct Person {
    const char* first;
    const char* last;
};

// The fixture's colleagues; the first one is the demo user.
constexpr Person fixturePeople[] = {
    {"Anna", "Berger"},    {"Ben", "Okafor"},   {"Chloé", "Martin"}, {"David", "Novák"},
    {"Emma", "Lindqvist"}, {"Frank", "Müller"}, {"Grace", "Liu"},    {"Hamid", "Rahimi"},
    {"Ines", "Duarte"},    {"Jonas", "Weber"},  {"Kira", "Sato"},    {"Luca", "Romano"},
};

constexpr const char* firstNames[] = {
    "Alex", "Bea",  "Carl", "Dana", "Eli",  "Fay",  "Gus",  "Hana", "Ivo",  "Jule", "Kai",  "Lea",
    "Milo", "Nora", "Otto", "Pia",  "Rosa", "Sven", "Tara", "Uwe",  "Vera", "Wim",  "Yara", "Zoe"};
constexpr const char* lastNames[] = {"Adler", "Brandt", "Costa",   "Dietz",  "Ebert",  "Fuchs",
                                     "Graf",  "Hahn",   "Iqbal",   "Jung",   "Keller", "Lang",
                                     "Marx",  "Nagel",  "Ortiz",   "Peters", "Quast",  "Roth",
                                     "Stein", "Thiel",  "Ullrich", "Vogel",  "Wolf",   "Zander"};

std::string lowerAscii(const QString& text) {
    QString folded = text.normalized(QString::NormalizationForm_D);
    QString out;
    for (const QChar c : folded) {
        if (c.isLetterOrNumber() && c.unicode() < 128) {
            out += c.toLower();
        }
    }
    return out.toStdString();
}

Json party(const std::string& number, const std::string& name = {},
           const std::string& userId = {}) {
    Json p = Json::object();
    p["number"] = number;
    if (!name.empty()) {
        p["name"] = name;
    }
    if (!userId.empty()) {
        p["userId"] = userId;
    }
    return p;
}

} // namespace

void Model::loadDemo(int directorySize) {
    const qint64 now = m_clock.nowMs();
    const int size = std::max(directorySize, int(std::size(fixturePeople)));
    users.clear();
    users.reserve(size);
    for (int i = 0; i < size; ++i) {
        User u;
        QString first, last;
        if (i < int(std::size(fixturePeople))) {
            first = QString::fromUtf8(fixturePeople[i].first);
            last = QString::fromUtf8(fixturePeople[i].last);
        } else {
            first = QString::fromUtf8(firstNames[i % std::size(firstNames)]);
            last = QString::fromUtf8(lastNames[(i / std::size(firstNames)) % std::size(lastNames)]);
        }
        char id[16];
        std::snprintf(id, sizeof id, "u-%03d", i + 1);
        u.id = id;
        u.name = (first + ' ' + last).toStdString();
        u.extension = std::to_string(i < 100 ? 201 + i : 1000 + i);
        u.email = lowerAscii(first) + "." + lowerAscii(last) +
                  (i < int(std::size(fixturePeople)) ? "" : std::to_string(i)) + "@acme.example";
        u.numbers = {"+4930555" + u.extension};
        if (i % 4 == 3) {
            u.numbers.push_back("+49170555" + u.extension);
        }
        if (i == 11) {
            u.avatarVersion = 0; // one colleague without a picture
        }
        static const char* states[] = {"idle", "busy", "idle", "offline", "ringing", "idle", "dnd"};
        u.presence = i == 0 ? "idle" : states[i % std::size(states)];
        if (u.presence == "dnd") {
            u.dnd = true;
        }
        users.push_back(std::move(u));
    }

    User& anna = users[0];
    anna.voicemailBoxId = "box-201";
    anna.dnd = false;
    anna.recording = "on_demand";
    anna.forwarding = Json::object();
    anna.forwarding["always"] = nullptr;
    anna.forwarding["busy"] = Json{{"type", "voicemail"}, {"id", "box-201"}};
    anna.forwarding["noAnswer"] =
        Json{{"afterS", 20}, {"target", Json{{"type", "group"}, {"id", "g-sales"}}}};
    anna.forwarding["offline"] = Json{{"type", "external"}, {"number", "+491701234567"}};
    users[1].recording = "never";
    users[1].voicemailBoxId = "box-202";
    users[2].recording = "always";

    groups = {
        {"g-sales", "Sales", "600", {"+493055506000"}, 0, {"u-001", "u-006", "u-007"}},
        {"g-support", "Support", "601", {"+493055506010"}, 1, {"u-001", "u-002", "u-003", "u-005"}},
        {"g-reception", "Reception", "602", {}, 0, {"u-008", "u-009"}},
    };
    flows = {
        // The main line feeds the support queue; after hours, the colleague on call is rung.
        {"f-main", "Main line", "700", {"+493055500000"}, {}},
        {"f-after", "After hours", "701", {"+493055500099"}, {"u-003"}},
    };

    messages.clear();
    const qint64 hour = 3600 * 1000;
    messages.push_back(
        {"vm-1", "box-201", "+4915112345678", 34.0, now - 2 * hour, std::nullopt, {}});
    messages.push_back({"vm-2", "box-201", "204", 12.5, now - 5 * hour, std::nullopt, {}});
    messages.push_back({"vm-3", "box-201", std::nullopt, 8.0, now - 26 * hour, std::nullopt, {}});
    messages.push_back(
        {"vm-4", "box-201", "+442071234567", 61.0, now - 50 * hour, now - 49 * hour, {}});
    messages.push_back({"vm-5", "box-201", "203", 21.0, now - 120 * hour, now - 119 * hour, {}});
    messages.push_back({"vm-6", "box-202", "201", 5.0, now - 3 * hour, std::nullopt, {}});

    queues = {
        {"q-support",
         "Support queue",
         {{"u-001", "available", 7},
          {"u-002", "on_call", 11},
          {"u-003", "paused", 4},
          {"u-004", "logged_out", 0},
          {"u-005", "ringing", 2}},
         {{"qc-1", party("+4915790001111", "Müller GmbH"), 1, now - 95 * 1000, "waiting", nullptr},
          {"qc-2", "+4930123456", 2, now - 40 * 1000, "offering",
           party("205", users[4].name, "u-005")}}},
        {"q-sales",
         "Sales queue",
         {{"u-001", "paused", 3}, {"u-006", "available", 9}, {"u-007", "wrap_up", 5}},
         {{"qc-3", party("+4989555123", "Hofer AG"), 1, now - 15 * 1000, "waiting", nullptr}}},
    };

    devices.clear();
    calls.clear();
    conferences.clear();
    callLog.clear();
    makeCallLog(anna);
    directoryChanged();
}

void Model::makeCallLog(const User& owner) {
    QRandomGenerator random(42);
    const qint64 now = m_clock.nowMs();
    const qint64 day = 24 * 3600 * 1000LL;
    const int count = 320;
    std::vector<qint64> starts;
    for (int i = 0; i < count; ++i) {
        const qint64 dayBack = random.bounded(42);
        const qint64 minute = 8 * 60 + random.bounded(10 * 60);
        const qint64 startOfDay = now - (now % day) - dayBack * day;
        qint64 start = startOfDay + minute * 60000 + random.bounded(60000);
        if (start > now - 60000) {
            start -= day;
        }
        starts.push_back(start);
    }
    std::sort(starts.begin(), starts.end(), std::greater<>());
    static const char* externals[] = {"+4915112345678", "+4930123456",  "+442071234567",
                                      "+4989555123",    "+33142685300", "+4917099887766"};
    for (int i = 0; i < count; ++i) {
        const qint64 start = starts[i];
        const int kind = random.bounded(100);
        const User& colleague =
            users[1 + random.bounded(int(std::min<size_t>(users.size(), 12)) - 1)];
        const bool internal = random.bounded(3) == 0;
        const std::string other =
            internal ? colleague.extension : externals[random.bounded(int(std::size(externals)))];
        const std::string otherName = internal ? colleague.name : std::string();
        const qint64 ring = 3000 + random.bounded(20000);
        const qint64 talk = 10000 + random.bounded(600000);
        Json row = Json::object();
        char uuid[40];
        std::snprintf(uuid, sizeof uuid, "c0ffee00-0000-4000-8000-%012d", 900000 - i);
        row["callUuid"] = uuid;
        auto stamp = [&](qint64 ms) {
            return (i % 17 == 5) ? isoSeconds(ms) : isoMs(ms); // some servers drop the fraction
        };
        if (kind < 30) { // outbound
            row["from"] = owner.extension;
            row["to"] = other;
            row["direction"] = internal ? "internal" : "outbound";
            row["startAt"] = stamp(start);
            const bool answered = kind < 24;
            if (answered) {
                row["answerAt"] = stamp(start + ring);
                row["endAt"] = stamp(start + ring + talk);
                row["result"] = "answered";
            } else {
                row["endAt"] = stamp(start + ring);
                row["result"] = kind < 27 ? "no_answer" : "busy";
            }
            row["fromName"] = owner.name;
            if (!otherName.empty())
                row["toName"] = otherName;
            row["mine"] = Json{{"role", "caller"}, {"answeredByMe", false}};
        } else { // inbound
            const bool toGroup = kind >= 75;
            row["from"] = other;
            row["to"] = toGroup ? groups[0].extension : owner.extension;
            row["direction"] = internal ? "internal" : "inbound";
            row["startAt"] = stamp(start);
            if (!otherName.empty())
                row["fromName"] = otherName;
            row["toName"] = toGroup ? groups[0].name : owner.name;
            if (kind < 55) { // answered by me
                row["answerAt"] = stamp(start + ring);
                row["endAt"] = stamp(start + ring + talk);
                row["result"] = "answered";
                row["mine"] = Json{{"role", "callee"}, {"answeredByMe", true}};
                row["answeredBy"] = owner.id;
            } else if (kind < 65) { // missed
                row["endAt"] = stamp(start + ring);
                row["result"] = "missed";
                row["mine"] = Json{{"role", "callee"}, {"answeredByMe", false}};
            } else if (kind < 75) { // voicemail
                row["answerAt"] = stamp(start + 25000);
                row["endAt"] = stamp(start + 25000 + 5000 + random.bounded(40000));
                row["result"] = "voicemail";
                row["voicemail"] = true;
                row["mine"] = Json{{"role", "callee"}, {"answeredByMe", false}};
            } else { // a group call someone else took
                row["answerAt"] = stamp(start + ring);
                row["endAt"] = stamp(start + ring + talk);
                row["result"] = "answered_elsewhere";
                row["answeredBy"] = colleague.id;
                if (kind < 90) {
                    row["mine"] = Json{{"role", "callee"}, {"answeredByMe", false}};
                }
            }
        }
        callLog.push_back({owner.id, start, std::move(row)});
    }
}

User* Model::user(const std::string& id) {
    for (auto& u : users) {
        if (u.id == id)
            return &u;
    }
    return nullptr;
}

Queue* Model::queue(const std::string& id) {
    for (auto& q : queues) {
        if (q.id == id)
            return &q;
    }
    return nullptr;
}

VoicemailMessage* Model::voicemail(const std::string& id) {
    for (auto& m : messages) {
        if (m.id == id)
            return &m;
    }
    return nullptr;
}

LiveCall* Model::call(const std::string& id) {
    for (auto& c : calls) {
        if (c.call.value("id", std::string()) == id)
            return &c;
    }
    return nullptr;
}

Json* Model::conference(const std::string& id) {
    for (auto& c : conferences) {
        if (c.value("id", std::string()) == id)
            return &c;
    }
    return nullptr;
}

Json Model::avatarRef(const User& user) const {
    if (user.avatarVersion == 0) {
        return nullptr;
    }
    return Json{{"url", "/media/avatars/" + user.id + ".jpg"},
                {"version", std::to_string(user.avatarVersion)}};
}

Json Model::meJson(const User& user) const {
    Json me = Json::object();
    me["id"] = user.id;
    me["name"] = user.name;
    me["email"] = user.email;
    me["extension"] = user.extension;
    if (!user.voicemailBoxId.empty())
        me["voicemailBoxId"] = user.voicemailBoxId;
    if (user.avatarVersion != 0)
        me["avatar"] = avatarRef(user);
    if (user.dnd)
        me["dnd"] = *user.dnd;
    if (!user.forwarding.is_null())
        me["forwarding"] = user.forwarding;
    if (!user.recording.empty())
        me["recording"] = user.recording;
    return me;
}

Json Model::directoryJson() const {
    Json directory = Json::object();
    Json list = Json::array();
    for (const auto& u : users) {
        Json e = Json::object();
        e["id"] = u.id;
        e["name"] = u.name;
        e["email"] = u.email;
        e["extension"] = u.extension;
        e["numbers"] = u.numbers;
        if (u.avatarVersion != 0)
            e["avatar"] = avatarRef(u);
        list.push_back(std::move(e));
    }
    directory["users"] = std::move(list);
    Json groupList = Json::array();
    for (const auto& g : groups) {
        Json e = Json{{"id", g.id}, {"name", g.name}, {"extension", g.extension}};
        if (!g.numbers.empty())
            e["numbers"] = g.numbers;
        groupList.push_back(std::move(e));
    }
    directory["groups"] = std::move(groupList);
    Json flowList = Json::array();
    for (const auto& f : flows) {
        Json e = Json{{"id", f.id}, {"name", f.name}, {"numbers", f.numbers}};
        if (!f.extension.empty())
            e["extension"] = f.extension;
        flowList.push_back(std::move(e));
    }
    directory["flows"] = std::move(flowList);
    return directory;
}

const QByteArray& Model::directoryBytes() {
    if (m_directoryCache.isEmpty()) {
        m_directoryCache = QByteArray::fromStdString(directoryJson().dump());
        const auto digest = QCryptographicHash::hash(m_directoryCache, QCryptographicHash::Sha256);
        m_directoryTag = '"' + digest.toHex().left(32) + '"';
    }
    return m_directoryCache;
}

const QByteArray& Model::directoryETag() {
    directoryBytes();
    return m_directoryTag;
}

Json Model::membershipsJson(const std::string& userId) const {
    Json list = Json::array();
    for (const auto& q : queues) {
        for (const auto& a : q.agents) {
            if (a.userId == userId) {
                list.push_back(Json{{"id", q.id},
                                    {"name", q.name},
                                    {"loggedIn", a.state != "logged_out"},
                                    {"paused", a.state == "paused"},
                                    {"waiting", q.waiting.size()}});
            }
        }
    }
    return list;
}

Json Model::boardJson(const Queue& q) const {
    Json board = Json::object();
    board["id"] = q.id;
    board["name"] = q.name;
    Json waiting = Json::array();
    for (const auto& w : q.waiting) {
        Json e = Json::object();
        e["callId"] = w.callId;
        if (!w.from.is_null())
            e["from"] = w.from;
        e["position"] = w.position;
        e["since"] = w.sinceMs;
        e["state"] = w.state;
        if (!w.agent.is_null())
            e["agent"] = w.agent;
        waiting.push_back(std::move(e));
    }
    board["waiting"] = std::move(waiting);
    Json agents = Json::array();
    for (const auto& a : q.agents) {
        Json e = Json::object();
        e["userId"] = a.userId;
        const User* u = const_cast<Model*>(this)->user(a.userId);
        e["name"] = u ? u->name : a.userId;
        if (u)
            e["extension"] = u->extension;
        e["state"] = a.state;
        e["answeredToday"] = a.answeredToday;
        agents.push_back(std::move(e));
    }
    board["agents"] = std::move(agents);
    return board;
}

Json Model::presenceSnapshot() const {
    Json usersJson = Json::object();
    for (const auto& u : users) {
        usersJson[u.id] = Json{{"state", u.presence}};
    }
    Json groupsJson = Json::object();
    for (const auto& g : groups) {
        groupsJson[g.id] = Json{{"ringing", g.ringing}};
    }
    return Json{{"users", std::move(usersJson)}, {"groups", std::move(groupsJson)}};
}

Json Model::callsSnapshot(const std::string& userId) const {
    Json list = Json::array();
    for (const auto& c : calls) {
        if (c.owner == userId)
            list.push_back(c.call);
    }
    return Json{{"calls", std::move(list)}};
}

Json Model::voicemailJson(const VoicemailMessage& m) const {
    Json e = Json::object();
    e["id"] = m.id;
    if (m.caller)
        e["caller"] = *m.caller;
    e["durationS"] = m.durationS;
    e["createdAt"] = isoSeconds(m.createdMs);
    if (m.readMs)
        e["readAt"] = isoSeconds(*m.readMs);
    return e;
}

Json Model::callLogPage(const std::string& userId, int limit, std::optional<qint64> before) const {
    Json list = Json::array();
    for (const auto& r : callLog) {
        if (int(list.size()) >= limit)
            break;
        if (r.userId != userId)
            continue;
        if (before && r.startMs >= *before)
            continue;
        list.push_back(r.row);
    }
    return Json{{"calls", std::move(list)}};
}

QByteArray Model::avatarJpeg(User& user) {
    if (user.avatarJpeg.isEmpty()) {
        user.avatarJpeg = generatedAvatar(user.id);
    }
    return user.avatarJpeg;
}

QByteArray Model::voicemailWav(const VoicemailMessage& message) const {
    if (!message.audio.isEmpty())
        return message.audio;
    return speechLikeWav(message.durationS, unsigned(qHash(QString::fromStdString(message.id))));
}

QByteArray generatedAvatar(const std::string& seed) {
    const auto digest =
        QCryptographicHash::hash(QByteArray::fromStdString(seed), QCryptographicHash::Sha256);
    const auto byte = [&](int i) { return quint8(digest[i % digest.size()]); };
    const QColor colour =
        QColor::fromHsv(byte(0) * 360 / 256, 140 + byte(1) % 80, 170 + byte(2) % 60);
    const int size = 120, cell = size / 6;
    QImage image(size, size, QImage::Format_RGB32);
    image.fill(QColor(240, 240, 236));
    for (int row = 0; row < 5; ++row) {
        for (int col = 0; col < 3; ++col) {
            if ((byte(3 + row * 3 + col) & 1) == 0)
                continue;
            for (int mirror : {col, 4 - col}) {
                for (int y = 0; y < cell; ++y) {
                    auto* line = reinterpret_cast<QRgb*>(image.scanLine(cell / 2 + row * cell + y));
                    for (int x = 0; x < cell; ++x)
                        line[cell / 2 + mirror * cell + x] = colour.rgb();
                }
            }
        }
    }
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(85);
    writer.write(image);
    return jpeg;
}

QByteArray speechLikeWav(double seconds, unsigned seed) {
    const int rate = 8000;
    const int samples = std::max(1, int(std::lround(std::max(seconds, 0.1) * rate)));
    QByteArray wav(44 + samples * 2, Qt::Uninitialized);
    auto* out = reinterpret_cast<uchar*>(wav.data());
    auto put32 = [&](int at, quint32 v) { qToLittleEndian<quint32>(v, out + at); };
    auto put16 = [&](int at, quint16 v) { qToLittleEndian<quint16>(v, out + at); };
    std::memcpy(out, "RIFF", 4);
    put32(4, 36 + samples * 2);
    std::memcpy(out + 8, "WAVEfmt ", 8);
    put32(16, 16);
    put16(20, 1);
    put16(22, 1);
    put32(24, rate);
    put32(28, rate * 2);
    put16(32, 2);
    put16(34, 16);
    std::memcpy(out + 36, "data", 4);
    put32(40, samples * 2);
    QRandomGenerator random(seed);
    double phase = 0;
    int i = 0;
    while (i < samples) {
        // A syllable of 120 to 300 ms with a gliding pitch, then a short pause.
        const int length = rate * (120 + random.bounded(180)) / 1000;
        const int pause = rate * (30 + random.bounded(120)) / 1000;
        const double f0 = 110 + random.bounded(120), f1 = f0 * (0.8 + random.bounded(40) / 100.0);
        for (int k = 0; k < length && i < samples; ++k, ++i) {
            const double t = double(k) / length;
            const double f = f0 + (f1 - f0) * t;
            phase += 2 * M_PI * f / rate;
            const double envelope = std::sin(M_PI * t);
            const double v = envelope * (0.6 * std::sin(phase) + 0.25 * std::sin(2 * phase) +
                                         0.1 * std::sin(3 * phase));
            put16(44 + i * 2, quint16(qint16(v * 9000)));
        }
        for (int k = 0; k < pause && i < samples; ++k, ++i)
            put16(44 + i * 2, 0);
    }
    return wav;
}

} // namespace rzdev

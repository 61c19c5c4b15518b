#include "history/Recents.h"

#include "api/Json.h"

#include <cmath>

namespace {

using wire::Json;
using wire::OrderedJson;

// 2001-01-01 00:00:00 UTC in milliseconds since 1970.
constexpr qint64 referenceEpochMs = 978'307'200'000;

// A whole number of seconds is written as an integer, as the format's first
// writer did; anything else as the shortest double that reads back the same.
Json number(double value) {
    if (std::isfinite(value) && std::trunc(value) == value && std::fabs(value) < 9.0e15) {
        return Json(static_cast<std::int64_t>(value));
    }
    return Json(value);
}

// Times and durations beyond a few thousand years are no call's.
std::optional<double> plausibleNumber(const Json& object, const char* key) {
    const auto value = wire::optionalNumber(object, key);
    if (value && (!std::isfinite(*value) || std::fabs(*value) > 1.0e11)) {
        throw wire::DecodeError(std::string("\"") + key + "\" is out of range");
    }
    return value;
}

double requiredNumber(const Json& object, const char* key) {
    const auto value = plausibleNumber(object, key);
    if (!value) {
        throw wire::DecodeError(std::string("\"") + key + "\" is missing");
    }
    return *value;
}

Recents::Entry readEntry(const Json& json) {
    wire::object(json, "Recents.Entry");
    Recents::Entry entry;
    const QString id = wire::requiredText(json, "id");
    entry.id = QUuid::fromString(id);
    if (entry.id.isNull() || id.size() != 36) {
        throw wire::DecodeError("\"id\" is not a UUID");
    }
    entry.remote = wire::requiredText(json, "remote");
    entry.name = wire::optionalText(json, "name");
    entry.incoming = wire::requiredBool(json, "incoming");
    entry.date = Recents::fromReferenceSeconds(requiredNumber(json, "date"));
    entry.duration = plausibleNumber(json, "duration");
    entry.answered = wire::requiredBool(json, "answered");
    entry.inProgress = wire::optionalBool(json, "inProgress");
    if (const auto at = plausibleNumber(json, "connectedAt")) {
        entry.connectedAt = Recents::fromReferenceSeconds(*at);
    }
    entry.interrupted = wire::optionalBool(json, "interrupted");
    entry.failure = wire::optionalText(json, "failure");
    return entry;
}

std::string utf8(const QString& text) {
    return text.toStdString();
}

} // namespace

Recents::Recents(SettingsStore& settings, Clock& clock, QObject* parent)
    : QObject(parent), m_settings(settings), m_clock(clock) {
    const auto blob = m_settings.data(key());
    if (!blob) {
        return;
    }
    // A blob of another shape is left where it is until the next save replaces it.
    auto decoded = decode(*blob);
    if (!decoded) {
        return;
    }
    bool repaired = false;
    for (Entry& entry : *decoded) {
        if (entry.inProgress == true) {
            entry.inProgress.reset();
            entry.interrupted = true;
            repaired = true;
        }
    }
    m_entries = std::move(*decoded);
    if (repaired) {
        save();
    }
}

double Recents::referenceSeconds(const QDateTime& time) {
    return double(time.toMSecsSinceEpoch() - referenceEpochMs) / 1000.0;
}

QDateTime Recents::fromReferenceSeconds(double seconds) {
    return QDateTime::fromMSecsSinceEpoch(referenceEpochMs + qint64(std::llround(seconds * 1000.0)),
                                          Qt::UTC);
}

QByteArray Recents::encode(const QList<Entry>& entries) {
    OrderedJson list = OrderedJson::array();
    for (const Entry& entry : entries) {
        OrderedJson json = OrderedJson::object();
        json["id"] = utf8(entry.id.toString(QUuid::WithoutBraces).toUpper());
        json["remote"] = utf8(entry.remote);
        if (entry.name) {
            json["name"] = utf8(*entry.name);
        }
        json["incoming"] = entry.incoming;
        json["date"] = number(referenceSeconds(entry.date));
        if (entry.duration) {
            json["duration"] = number(*entry.duration);
        }
        json["answered"] = entry.answered;
        if (entry.inProgress) {
            json["inProgress"] = *entry.inProgress;
        }
        if (entry.connectedAt) {
            json["connectedAt"] = number(referenceSeconds(*entry.connectedAt));
        }
        if (entry.interrupted) {
            json["interrupted"] = *entry.interrupted;
        }
        if (entry.failure) {
            json["failure"] = utf8(*entry.failure);
        }
        list.push_back(std::move(json));
    }
    // The format's first writer escapes every slash; outside strings JSON has none.
    QByteArray bytes = QByteArray::fromStdString(
        list.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    bytes.replace("/", "\\/");
    return bytes;
}

std::optional<QList<Recents::Entry>> Recents::decode(const QByteArray& bytes) {
    try {
        const Json json = wire::parse(bytes);
        wire::array(json, "recents");
        QList<Entry> entries;
        entries.reserve(qsizetype(json.size()));
        for (const Json& item : json) {
            entries.append(readEntry(item));
        }
        return entries;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void Recents::setEntries(QList<Entry> entries) {
    if (entries == m_entries) {
        return;
    }
    m_entries = std::move(entries);
    emit entriesChanged();
}

Recents::Entry* Recents::find(const QUuid& id) {
    for (Entry& entry : m_entries) {
        if (entry.id == id) {
            return &entry;
        }
    }
    return nullptr;
}

void Recents::start(const QUuid& id, const QString& remote, const std::optional<QString>& name,
                    bool incoming) {
    QList<Entry> entries = m_entries;
    entries.removeIf([&](const Entry& entry) { return entry.id == id; });
    Entry entry;
    entry.id = id;
    entry.remote = remote;
    entry.name = name;
    entry.incoming = incoming;
    entry.date = m_clock.now();
    entry.inProgress = true;
    entries.prepend(std::move(entry));
    if (entries.size() > capacity) {
        entries.resize(capacity);
    }
    setEntries(std::move(entries));
    save();
}

void Recents::connected(const QUuid& id, const QDateTime& at) {
    if (!find(id)) {
        return;
    }
    QList<Entry> entries = m_entries;
    for (Entry& entry : entries) {
        if (entry.id == id) {
            entry.answered = true;
            entry.connectedAt = at;
            break;
        }
    }
    setEntries(std::move(entries));
    save();
}

void Recents::finish(const QUuid& id, const std::optional<QString>& failure) {
    if (!find(id)) {
        return;
    }
    QList<Entry> entries = m_entries;
    for (Entry& entry : entries) {
        if (entry.id == id) {
            if (entry.connectedAt) {
                entry.duration = double(entry.connectedAt->msecsTo(m_clock.now())) / 1000.0;
            }
            entry.inProgress.reset();
            entry.failure = failure;
            break;
        }
    }
    setEntries(std::move(entries));
    save();
}

void Recents::save() {
    // The settings file is replaced whole on each write (written aside, then renamed).
    m_settings.setData(key(), encode(m_entries));
}

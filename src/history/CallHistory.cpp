#include "history/CallHistory.h"

#include "api/Json.h"
#include "platform/Files.h"

#include <QDir>
#include <QFile>
#include <QPointer>

#include <algorithm>

namespace {

using wire::Json;

// Reads `count` ASCII digits at `at`; -1 when any is not a digit.
int digits(const QString& text, qsizetype at, int count) {
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const char16_t c = text[at + i].unicode();
        if (c < u'0' || c > u'9') {
            return -1;
        }
        value = value * 10 + (c - u'0');
    }
    return value;
}

std::optional<QDateTime> stamp(const QString& text, bool withFraction) {
    // YYYY-MM-DDTHH:MM:SS, then the fraction, then Z or an offset.
    if (text.size() < 20 || text[4] != u'-' || text[7] != u'-' || text[10] != u'T' ||
        text[13] != u':' || text[16] != u':') {
        return std::nullopt;
    }
    const int year = digits(text, 0, 4);
    const int month = digits(text, 5, 2);
    const int day = digits(text, 8, 2);
    const int hour = digits(text, 11, 2);
    const int minute = digits(text, 14, 2);
    const int second = digits(text, 17, 2);
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0) {
        return std::nullopt;
    }
    const QDate date(year, month, day);
    if (!date.isValid() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    qsizetype at = 19;
    int millis = 0;
    if (withFraction) {
        if (at >= text.size() || text[at] != u'.') {
            return std::nullopt;
        }
        ++at;
        int count = 0;
        while (at < text.size() && text[at] >= u'0' && text[at] <= u'9') {
            if (count < 3) {
                millis = millis * 10 + (text[at].unicode() - u'0');
            }
            ++count;
            ++at;
        }
        if (count == 0) {
            return std::nullopt;
        }
        for (int i = count; i < 3; ++i) {
            millis *= 10;
        }
    }
    if (at >= text.size()) {
        return std::nullopt;
    }
    int offsetMinutes = 0;
    if (text[at] == u'Z' && at + 1 == text.size()) {
        // UTC
    } else if ((text[at] == u'+' || text[at] == u'-') &&
               (text.size() - at == 6 || text.size() - at == 5)) {
        const bool colon = text.size() - at == 6;
        if (colon && text[at + 3] != u':') {
            return std::nullopt;
        }
        const int hours = digits(text, at + 1, 2);
        const int minutes = digits(text, at + (colon ? 4 : 3), 2);
        if (hours < 0 || minutes < 0 || hours > 23 || minutes > 59) {
            return std::nullopt;
        }
        offsetMinutes = (hours * 60 + minutes) * (text[at] == u'-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    constexpr qint64 unixJulianDay = 2440588;
    const qint64 ms = (date.toJulianDay() - unixJulianDay) * 86'400'000LL +
                      qint64(hour) * 3'600'000 + qint64(minute) * 60'000 + qint64(second) * 1000 +
                      millis - qint64(offsetMinutes) * 60'000;
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

// Whether two optional times differ, absence counting as a value of its own.
bool differ(const std::optional<QDateTime>& a, const std::optional<QDateTime>& b) {
    return a != b;
}

QCoro::Task<QByteArray> fetchFrom(std::shared_ptr<API> api, QString path) {
    const auto reply = co_await api->request(path);
    co_return reply.body;
}

CallHistory::Fetch fetchOf(std::shared_ptr<API> api) {
    return [api](QString path) { return fetchFrom(api, std::move(path)); };
}

} // namespace

CallHistory::CallHistory(QString cachePath, QObject* parent)
    : QObject(parent), m_cachePath(std::move(cachePath)) {
    // A cache that is missing or not a list of rows is a first run, nothing more.
    const auto bytes = Files::read(m_cachePath);
    if (!bytes) {
        return;
    }
    auto rows = decodeRows(*bytes);
    if (!rows) {
        return;
    }
    m_rows = std::move(*rows);
    m_hasLoaded = true;
}

QString CallHistory::defaultCachePath() {
    return Files::cachesDirectory() + u'/' + QString::fromLatin1(cacheFileName);
}

bool CallHistory::Owner::isOwner(const QString& number,
                                 const std::optional<QString>& partyName) const {
    return isOwner(number, partyName, prefixes());
}

QStringList CallHistory::Owner::prefixes() const {
    QStringList list;
    for (const QString& username : usernames) {
        // Another device of the same person shares the first two pieces of its SIP user.
        const QStringList pieces = username.split(u'.', Qt::SkipEmptyParts);
        list.append(pieces.size() == 3 ? pieces[0] + u'.' + pieces[1] + u'.' : username);
    }
    return list;
}

bool CallHistory::Owner::isOwner(const QString& number, const std::optional<QString>& partyName,
                                 const QStringList& prefixes) const {
    if (extension_ && *extension_ == number) {
        return true;
    }
    if (usernames.contains(number)) {
        return true;
    }
    for (const QString& prefix : prefixes) {
        if (number.startsWith(prefix)) {
            return true;
        }
    }
    return name && partyName && *name == *partyName;
}

QString CallHistory::encodeBefore(const QString& before) {
    static const char hex[] = "0123456789ABCDEF";
    QString encoded;
    const QByteArray bytes = before.toUtf8();
    encoded.reserve(bytes.size() * 3);
    for (const char byte : bytes) {
        const auto c = static_cast<unsigned char>(byte);
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
            encoded.append(QChar(c));
        } else {
            encoded.append(u'%');
            encoded.append(QChar(hex[c >> 4]));
            encoded.append(QChar(hex[c & 15]));
        }
    }
    return encoded;
}

QString CallHistory::pagePath(const std::optional<QString>& before) {
    QString path = QStringLiteral("api/calls?mine=1&limit=%1").arg(pageSize);
    if (before) {
        const QString encoded = encodeBefore(*before);
        if (!encoded.isEmpty()) {
            path += QStringLiteral("&before=") + encoded;
        }
    }
    return path;
}

std::optional<QDateTime> CallHistory::readStamp(const QString& text) {
    if (auto withFraction = stamp(text, true)) {
        return withFraction;
    }
    return stamp(text, false);
}

QDateTime CallHistory::distantPast() {
    static const QDateTime past(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
    return past;
}

CallHistory::Item CallHistory::item(const Row& row, const Owner& owner) {
    return item(row, owner, owner.prefixes());
}

CallHistory::Item CallHistory::item(const Row& row, const Owner& owner,
                                    const QStringList& prefixes) {
    Item item;
    const bool fromIsOwner = owner.isOwner(row.from, row.fromName, prefixes);
    if (fromIsOwner) {
        item.incoming = false;
    } else if (row.mine) {
        item.incoming = row.mine->role == u"callee";
    } else if (row.direction == u"inbound") {
        item.incoming = true;
    } else if (row.direction == u"outbound") {
        item.incoming = false;
    } else {
        item.incoming = !fromIsOwner;
    }
    item.remote = item.incoming ? row.from : row.to;
    item.name = item.incoming ? row.fromName : row.toName;
    item.id = row.callUuid;
    if (auto start = readStamp(row.startAt)) {
        item.date = *start;
    } else {
        item.date = distantPast();
    }
    const auto answerAt = row.answerAt ? readStamp(*row.answerAt) : std::nullopt;
    const auto endAt = row.endAt ? readStamp(*row.endAt) : std::nullopt;
    if (answerAt && endAt) {
        item.duration = double(answerAt->msecsTo(*endAt)) / 1000.0;
    }
    item.voicemail = row.voicemail.value_or(false);
    if (!item.incoming) {
        item.answered = differ(answerAt, endAt);
    } else if (row.mine) {
        item.answered = row.mine->answeredByMe;
    } else {
        item.answered = differ(answerAt, endAt) && !item.voicemail;
    }
    // Only that someone took it counts, not who.
    item.answeredElsewhere =
        item.incoming && row.answeredBy.has_value() && row.mine && !row.mine->answeredByMe;
    return item;
}

CallHistory::Item CallHistory::item(const Recents::Entry& entry) {
    Item item;
    item.id = entry.id.toString(QUuid::WithoutBraces).toUpper();
    item.remote = entry.remote;
    item.name = entry.name;
    item.incoming = entry.incoming;
    item.date = entry.date;
    item.duration = entry.duration;
    item.answered = entry.answered;
    item.failure = entry.failure;
    item.inProgress = entry.inProgress == true;
    return item;
}

QList<CallHistory::Item> CallHistory::items(const Owner& owner,
                                            const QList<Recents::Entry>& recents) const {
    QList<Item> list;
    list.reserve(m_rows.size() + recents.size());
    const QStringList prefixes = owner.prefixes();
    for (const Row& row : m_rows) {
        list.append(item(row, owner, prefixes));
    }
    // No matching between the sources: a finished call has its server row, so
    // only what the server cannot know of yet comes from here.
    const bool noRows = m_rows.isEmpty();
    for (const Recents::Entry& entry : recents) {
        if (entry.failure || entry.inProgress == true || noRows) {
            list.append(item(entry));
        }
    }
    // Stable: at equal times the server's lines stay ahead and each source keeps its order.
    // The server's order is usually the list's already.
    const auto newer = [](const Item& a, const Item& b) { return a.date > b.date; };
    if (!std::is_sorted(list.begin(), list.end(), newer)) {
        std::stable_sort(list.begin(), list.end(), newer);
    }
    return list;
}

QByteArray CallHistory::encodeRows(const QList<Row>& rows) {
    wire::OrderedJson list = wire::OrderedJson::array();
    for (const Row& row : rows) {
        list.push_back(row.toJson());
    }
    return wire::bytes(list);
}

std::optional<QList<CallHistory::Row>> CallHistory::decodeRows(const QByteArray& bytes) {
    try {
        return wire::list<Row>(wire::parse(bytes), "calls", Row::fromJson);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

QCoro::Task<> CallHistory::load(std::shared_ptr<API> api, std::optional<QString> before) {
    return load(fetchOf(std::move(api)), std::move(before));
}

QCoro::Task<> CallHistory::loadMore(std::shared_ptr<API> api) {
    return loadMore(fetchOf(std::move(api)));
}

QCoro::Task<> CallHistory::load(Fetch fetch, std::optional<QString> before) {
    if (m_loading) {
        co_return;
    }
    setLoading(true);
    QPointer<CallHistory> self(this);
    std::optional<CallLogPage> page;
    std::exception_ptr failure;
    try {
        const QByteArray body = co_await fetch(pagePath(before));
        page = decode<CallLogPage>(body);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        setLastError(API::describe(failure));
        setLoading(false);
        co_return;
    }
    const QList<Row>& calls = page->calls;
    if (!before) {
        setRows(calls);
        // Being a cache, a write that fails only costs the next launch its head start.
        Files::writeAtomically(m_cachePath, encodeRows(calls));
    } else {
        QList<Row> rows = m_rows;
        QSet<QString> known;
        known.reserve(rows.size());
        for (const Row& row : rows) {
            known.insert(row.callUuid);
        }
        for (const Row& row : calls) {
            // A row seen on an earlier page keeps its first place.
            if (!known.contains(row.callUuid)) {
                known.insert(row.callUuid);
                rows.append(row);
            }
        }
        setRows(std::move(rows));
    }
    setReachedEnd(calls.size() < pageSize);
    setLastError(std::nullopt);
    setHasLoaded(true);
    setLoading(false);
}

QCoro::Task<> CallHistory::loadMore(Fetch fetch) {
    if (m_reachedEnd || m_rows.isEmpty()) {
        co_return;
    }
    // The cursor is the last row's start, exactly as the server wrote it.
    const QString before = m_rows.last().startAt;
    co_await load(std::move(fetch), before);
}

void CallHistory::clear() {
    setRows({});
    setHasLoaded(false);
    QFile::remove(m_cachePath);
}

void CallHistory::setRows(QList<Row> rows) {
    if (rows == m_rows) {
        return;
    }
    m_rows = std::move(rows);
    emit rowsChanged();
}

void CallHistory::setLoading(bool loading) {
    if (loading != m_loading) {
        m_loading = loading;
        emit loadingChanged();
    }
}

void CallHistory::setReachedEnd(bool reachedEnd) {
    if (reachedEnd != m_reachedEnd) {
        m_reachedEnd = reachedEnd;
        emit reachedEndChanged();
    }
}

void CallHistory::setLastError(std::optional<QString> error) {
    if (error != m_lastError) {
        m_lastError = std::move(error);
        emit lastErrorChanged();
    }
}

void CallHistory::setHasLoaded(bool hasLoaded) {
    if (hasLoaded != m_hasLoaded) {
        m_hasLoaded = hasLoaded;
        emit hasLoadedChanged();
    }
}

#pragma once

#include "api/API.h"
#include "api/Records.h"
#include "history/Recents.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <QCoro/QCoroTask>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

// The server's call log as this client knows it: pages of "api/calls", the
// newest of them kept in "calls.v1.json" so the list shows before the network
// answers, and the one list the screens show, merged with the local recents
// the server cannot know of yet. It lives on the main thread, owned by Session.
class CallHistory : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    Q_PROPERTY(bool reachedEnd READ reachedEnd NOTIFY reachedEndChanged)
    Q_PROPERTY(QString lastError READ lastErrorText NOTIFY lastErrorChanged)
    Q_PROPERTY(bool hasLastError READ hasLastError NOTIFY lastErrorChanged)
    Q_PROPERTY(bool hasLoaded READ hasLoaded NOTIFY hasLoadedChanged)
public:
    using Row = CallLogPage::Row;

    // One line of the list, whichever source it came from.
    struct Item {
        QString id; // the row's callUuid, or the local entry's upper-case UUID
        QString remote;
        std::optional<QString> name;
        bool incoming = false;
        QDateTime date;
        std::optional<double> duration; // talk time in seconds
        bool answered = false;
        bool voicemail = false;
        std::optional<QString> failure; // local entries only
        bool inProgress = false;        // local entries only
        bool answeredElsewhere = false;

        bool operator==(const Item&) const = default;
    };

    // The signed-in user as the call log sees them; built afresh at each use.
    struct Owner {
        std::optional<QString> extension_;
        QSet<QString> usernames;
        std::optional<QString> name;

        // Whether a party of a call is this user, or another device of theirs.
        bool isOwner(const QString& number, const std::optional<QString>& partyName) const;
        // The beginning each username shares with the person's other devices.
        QStringList prefixes() const;
        // The same test with the prefixes worked out once for a whole list.
        bool isOwner(const QString& number, const std::optional<QString>& partyName,
                     const QStringList& prefixes) const;
    };

    // Fetches one path of the dashboard and gives the answer's body; fails as API does.
    using Fetch = std::function<QCoro::Task<QByteArray>(QString path)>;

    static constexpr char cacheFileName[] = "calls.v1.json";
    static constexpr int pageSize = 50;

    // Reads the cache at cachePath; by default "calls.v1.json" in the caches folder.
    explicit CallHistory(QString cachePath = defaultCachePath(), QObject* parent = nullptr);

    static QString defaultCachePath();

    const QList<Row>& rows() const { return m_rows; }
    bool loading() const { return m_loading; }
    bool reachedEnd() const { return m_reachedEnd; }
    const std::optional<QString>& lastError() const { return m_lastError; }
    QString lastErrorText() const { return m_lastError.value_or(QString()); }
    bool hasLastError() const { return m_lastError.has_value(); }
    bool hasLoaded() const { return m_hasLoaded; }
    const QString& cachePath() const { return m_cachePath; }

    // One page: without before the newest calls, replacing what was there;
    // with before the calls older than that, appended. A load during another
    // is dropped. Failures land in lastError, never with the caller.
    QCoro::Task<> load(std::shared_ptr<API> api, std::optional<QString> before = std::nullopt);
    QCoro::Task<> load(Fetch fetch, std::optional<QString> before = std::nullopt);
    // The next older page, unless the end was reached or nothing is there yet.
    QCoro::Task<> loadMore(std::shared_ptr<API> api);
    QCoro::Task<> loadMore(Fetch fetch);
    // Forgets the rows and the cache file, at sign-out.
    void clear();

    // The merged list, newest first.
    QList<Item> items(const Owner& owner, const QList<Recents::Entry>& recents) const;

    // One server row as a line of the list.
    static Item item(const Row& row, const Owner& owner);
    static Item item(const Row& row, const Owner& owner, const QStringList& prefixes);
    // One local entry as a line of the list.
    static Item item(const Recents::Entry& entry);
    // The path of one page request.
    static QString pagePath(const std::optional<QString>& before);
    // Percent-encodes all but ASCII letters and digits.
    static QString encodeBefore(const QString& before);
    // A server time stamp, with or without fractional seconds; none when unreadable.
    static std::optional<QDateTime> readStamp(const QString& text);
    // Where an unreadable start puts a call: at the very end of the list.
    static QDateTime distantPast();
    // The cache file's bytes for some rows, and the rows of such bytes (none
    // when the bytes are not such a list, in every detail).
    static QByteArray encodeRows(const QList<Row>& rows);
    static std::optional<QList<Row>> decodeRows(const QByteArray& bytes);

signals:
    void rowsChanged();
    void loadingChanged();
    void reachedEndChanged();
    void lastErrorChanged();
    void hasLoadedChanged();

private:
    void setRows(QList<Row> rows);
    void setLoading(bool loading);
    void setReachedEnd(bool reachedEnd);
    void setLastError(std::optional<QString> error);
    void setHasLoaded(bool hasLoaded);

    const QString m_cachePath;
    QList<Row> m_rows;
    bool m_loading = false;
    bool m_reachedEnd = false;
    std::optional<QString> m_lastError;
    bool m_hasLoaded = false;
};

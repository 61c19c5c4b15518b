#pragma once

#include "history/CallHistory.h"
#include "history/Recents.h"
#include "platform/Clock.h"
#include "platform/SettingsStore.h"

#include <QAbstractListModel>
#include <QDateTime>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

// The recents list as the screen draws it: the merged call list, one row per
// call, with the row's words decided here. A change of the log, of the local
// recents or of who is who inserts, moves, removes and updates rows in
// place, so the view keeps its scroll position and its current row. It also
// counts the missed calls the user has not looked at yet.
class RecentsModel : public QAbstractListModel {
    Q_OBJECT
    // "skeleton", "error", "empty" or "list": what the screen shows instead of, or as, the list.
    Q_PROPERTY(QString view READ view NOTIFY viewChanged)
    // The list stands under the "offline" banner.
    Q_PROPERTY(bool stale READ stale NOTIFY viewChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY viewChanged)
    Q_PROPERTY(QString errorText READ errorText NOTIFY viewChanged)
    Q_PROPERTY(int missedCount READ missedCount NOTIFY missedCountChanged)
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        TitleRole,
        SubtitleRole,
        MissedRole,
        IncomingRole,
        VoicemailRole,
        DateRole,
        RemoteRole,
        InProgressRole,
    };

    struct Line {
        // The row's identity: the call's id, made unique should a page repeat one.
        QString key;
        CallHistory::Item item;
        QString title;
        QString subtitle;
        bool missed = false;

        bool operator==(const Line&) const = default;
    };

    using Lookup = std::function<std::optional<QString>(const QString& number)>;

    // When the user last looked at the list; missed calls after it are counted.
    static constexpr char lastSeenKey[] = "recents.lastSeen";

    RecentsModel(CallHistory& history, Recents& recents, SettingsStore& settings,
                 Clock& clock = Clock::system(), QObject* parent = nullptr);

    // Set by the shell: who the user is, names, and what the rows ask for.
    std::function<CallHistory::Owner()> owner;
    Lookup colleagueName;
    Lookup contactName;
    std::function<void()> refresh;
    std::function<void()> loadMore;
    std::function<void(const QString& number)> call;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Line>& lines() const { return m_lines; }

    QString view() const;
    bool stale() const { return m_history.lastError() && !m_history.loading(); }
    bool loading() const { return m_history.loading(); }
    QString errorText() const { return m_history.lastErrorText(); }
    int missedCount() const { return m_missedCount; }
    QDateTime lastSeen() const { return m_lastSeen; }

    // Which of the four the screen shows, from the list and the log's state.
    static QString viewOf(bool listEmpty, bool hasLoaded, bool hasError, bool loading);

    // Builds the list again and brings the rows in line with it.
    void rebuild();
    // The newest page again: on showing, on a pull, on "Try again".
    Q_INVOKABLE void reload();
    // A row came into view; the last one asks for the next page.
    Q_INVOKABLE void rowShown(int row);
    // Calls the row's number.
    Q_INVOKABLE void callBack(int row);
    // The user has looked at the list: the missed count starts again from here.
    Q_INVOKABLE void markSeen();

signals:
    void viewChanged();
    void missedCountChanged();

private:
    struct Names {
        std::optional<QString> colleague;
        std::optional<QString> contact;
    };
    // Names are looked up once per number in a rebuild: a log repeats its numbers.
    Line lineOf(const CallHistory::Item& item, QHash<QString, Names>& names) const;
    void apply(QList<Line> lines);
    // Brings the rows in line when the new list only adds to the end; false otherwise.
    bool appendOnly(QList<Line>& lines);
    void countMissed();

    CallHistory& m_history;
    Recents& m_recents;
    SettingsStore& m_settings;
    Clock& m_clock;
    QList<Line> m_lines;
    QDateTime m_lastSeen;
    int m_missedCount = 0;
};

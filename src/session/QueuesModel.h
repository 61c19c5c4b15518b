#pragma once

#include "platform/Clock.h"
#include "session/QueueCard.h"

#include <QAbstractListModel>
#include <QDateTime>
#include <QList>
#include <QTimer>

class Session;

// The queues screen's cards, one per queue the user is an agent of, in the
// order of the user's queue list, each with its live board when one has come.
// A board change touches only its own card. The waiting calls' timers share
// one clock here, which ticks once a second only while a screen watches and
// some call has a time to count from.
class QueuesModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    // False until the queue list has answered once: the screen shows its skeleton.
    Q_PROPERTY(bool loaded READ loaded NOTIFY loadedChanged)
    // The time the running timers are drawn at, in milliseconds since 1970.
    Q_PROPERTY(qint64 now READ nowMs NOTIFY nowChanged)
    Q_PROPERTY(bool ticking READ ticking WRITE setTicking NOTIFY tickingChanged)
public:
    enum Role {
        QueueIdRole = Qt::UserRole + 1,
        NameRole,
        SummaryRole,
        LoggedInRole,
        PausedRole,
        HasBoardRole,
        WaitingRole,
        AgentsRole,
    };

    static constexpr std::chrono::milliseconds tickInterval{1000};

    explicit QueuesModel(Session& session, Clock& clock = Clock::system(),
                         QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<QueueCard>& cards() const { return m_cards; }
    bool loaded() const { return m_loaded; }
    qint64 nowMs() const { return m_now.toMSecsSinceEpoch(); }
    bool ticking() const { return m_ticking; }
    // The screen says while it is shown; nothing ticks in the tray.
    void setTicking(bool ticking);
    // Whether the clock is running now.
    bool timerActive() const { return m_timer.isActive(); }

    // The screen's reload: the queue list again, and the boards with it.
    Q_INVOKABLE void refresh();
    // The card's switch and its pause button; the card follows what the
    // session and the boards say, so a refusal puts it back by itself.
    Q_INVOKABLE void setLoggedIn(const QString& queueId, bool loggedIn);
    Q_INVOKABLE void setPaused(const QString& queueId, bool paused);
    // A waiting call's timer at `nowMs`.
    Q_INVOKABLE QString waitingText(qint64 sinceMs, qint64 nowMs) const;

    // Takes the session's queues, the user and the boards afresh.
    void rebuild();
    // Shows these cards; a card whose queue keeps its place changes in place.
    void setCards(QList<QueueCard> cards, const QString& meId);
    // One step of the clock, as the timer makes it.
    void tick();

signals:
    void countChanged();
    void loadedChanged();
    void nowChanged();
    void tickingChanged();

private:
    void setLoaded(bool loaded);
    void updateTimer();
    QVariantList waitingOf(const QueueCard& card) const;
    QVariantList agentsOf(const QueueCard& card) const;

    Session& m_session;
    Clock& m_clock;
    QList<QueueCard> m_cards;
    QString m_meId;
    bool m_loaded = false;
    bool m_ticking = false;
    QDateTime m_now;
    QTimer m_timer;
};

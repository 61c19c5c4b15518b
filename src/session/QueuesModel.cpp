#include "session/QueuesModel.h"

#include "session/Session.h"

#include <QPointer>
#include <QVariantMap>

QueuesModel::QueuesModel(Session& session, Clock& clock, QObject* parent)
    : QAbstractListModel(parent), m_session(session), m_clock(clock), m_now(clock.now()) {
    m_timer.setInterval(tickInterval);
    connect(&m_timer, &QTimer::timeout, this, &QueuesModel::tick);
    connect(&session, &Session::queuesChanged, this, &QueuesModel::rebuild);
    connect(&session, &Session::meChanged, this, &QueuesModel::rebuild);
    connect(&session.live(), &Live::boardsChanged, this, &QueuesModel::rebuild);
    rebuild();
}

int QueuesModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_cards.size());
}

QHash<int, QByteArray> QueuesModel::roleNames() const {
    return {{QueueIdRole, "queueId"},   {NameRole, "name"},     {SummaryRole, "summary"},
            {LoggedInRole, "loggedIn"}, {PausedRole, "paused"}, {HasBoardRole, "hasBoard"},
            {WaitingRole, "waiting"},   {AgentsRole, "agents"}};
}

QVariant QueuesModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_cards.size()) {
        return {};
    }
    const QueueCard& card = m_cards.at(index.row());
    switch (role) {
    case QueueIdRole:
        return card.queue.id;
    case NameRole:
        return card.queue.name;
    case SummaryRole:
        // Worked out as the card is drawn: it moves on with the board, not with the clock.
        return card.summary(m_clock.now());
    case LoggedInRole:
        return card.flags.loggedIn;
    case PausedRole:
        return card.flags.paused;
    case HasBoardRole:
        return card.board.has_value();
    case WaitingRole:
        return waitingOf(card);
    case AgentsRole:
        return agentsOf(card);
    default:
        return {};
    }
}

QVariantList QueuesModel::waitingOf(const QueueCard& card) const {
    QVariantList rows;
    for (const auto& row : card.waitingRows()) {
        rows.append(QVariantMap{{"place", row.place},
                                {"caller", row.caller},
                                {"agent", row.agent},
                                {"timed", row.since.has_value()},
                                {"sinceMs", row.since ? row.since->toMSecsSinceEpoch() : 0}});
    }
    return rows;
}

QVariantList QueuesModel::agentsOf(const QueueCard& card) const {
    QVariantList chips;
    for (const auto& chip : card.agentChips(m_meId)) {
        chips.append(QVariantMap{{"userId", chip.userId},
                                 {"name", chip.name},
                                 {"label", chip.label},
                                 {"tone", QueueCard::toneName(QueueCard::stateTone(chip.state))}});
    }
    return chips;
}

void QueuesModel::rebuild() {
    QList<QueueCard> cards;
    const auto& boards = m_session.live().boards();
    for (const auto& queue : m_session.queues()) {
        QueueCard card;
        card.queue = queue;
        const auto board = boards.constFind(queue.id);
        if (board != boards.constEnd()) {
            card.board = *board;
        }
        card.flags = m_session.agentFlags(queue);
        cards.append(std::move(card));
    }
    setCards(std::move(cards), m_session.meId());
}

void QueuesModel::setCards(QList<QueueCard> cards, const QString& meId) {
    bool sameQueues = meId == m_meId && cards.size() == m_cards.size();
    for (qsizetype i = 0; sameQueues && i < cards.size(); ++i) {
        sameQueues = cards[i].queue.id == m_cards[i].queue.id;
    }
    m_now = m_clock.now();
    if (sameQueues) {
        for (qsizetype i = 0; i < cards.size(); ++i) {
            if (cards[i] != m_cards[i]) {
                m_cards[i] = std::move(cards[i]);
                emit dataChanged(index(int(i)), index(int(i)));
            }
        }
    } else {
        const bool countChanges = cards.size() != m_cards.size();
        beginResetModel();
        m_cards = std::move(cards);
        m_meId = meId;
        endResetModel();
        if (countChanges) {
            emit countChanged();
        }
    }
    emit nowChanged();
    if (!m_cards.isEmpty()) {
        setLoaded(true);
    }
    updateTimer();
}

void QueuesModel::tick() {
    m_now = m_clock.now();
    emit nowChanged();
}

void QueuesModel::setTicking(bool ticking) {
    if (ticking == m_ticking) {
        return;
    }
    m_ticking = ticking;
    if (ticking) {
        tick();
    }
    updateTimer();
    emit tickingChanged();
}

void QueuesModel::updateTimer() {
    bool timed = false;
    for (const auto& card : m_cards) {
        for (const auto& row : card.waitingRows()) {
            timed = timed || row.since.has_value();
        }
    }
    if (m_ticking && timed) {
        if (!m_timer.isActive()) {
            m_timer.start();
        }
    } else {
        m_timer.stop();
    }
}

void QueuesModel::setLoaded(bool loaded) {
    if (loaded != m_loaded) {
        m_loaded = loaded;
        emit loadedChanged();
    }
}

void QueuesModel::refresh() {
    [](QPointer<QueuesModel> self, Session* session) -> QCoro::Task<> {
        co_await session->refreshQueues();
        if (self) {
            self->setLoaded(true);
        }
    }(this, &m_session);
}

void QueuesModel::setLoggedIn(const QString& queueId, bool loggedIn) {
    m_session.setAgent(queueId, loggedIn, std::nullopt);
}

void QueuesModel::setPaused(const QString& queueId, bool paused) {
    m_session.setAgent(queueId, std::nullopt, paused);
}

QString QueuesModel::waitingText(qint64 sinceMs, qint64 nowMs) const {
    return QueueCard::runningText((nowMs - sinceMs) / 1000);
}

#include "live/LiveModels.h"

namespace {

enum Role : int {
    IdRole = Qt::UserRole + 1,
    DirectionRole,
    FromNumberRole,
    FromNameRole,
    ToNumberRole,
    ToNameRole,
    StateRole,
    QualityRole,
    ConferenceIdRole,
    RecordingRole,
    NumberRole,
    NameRole,
    LevelRole,
    MosRole,
    JitterRole,
    LossRole,
    RttRole,
    MutedRole,
    TalkingRole,
    QueueIdRole,
    WaitingRole,
    AgentsRole,
};

template <typename T> QVariant maybe(const std::optional<T>& value) {
    return value ? QVariant::fromValue(*value) : QVariant();
}

QVariant levelOf(const std::optional<live::Quality>& quality) {
    return quality ? QVariant(live::Quality::levelText(quality->level)) : QVariant();
}

QVariant qualityRole(const std::optional<live::Quality>& quality, int role) {
    if (!quality) {
        return {};
    }
    switch (role) {
    case LevelRole:
        return live::Quality::levelText(quality->level);
    case MosRole:
        return maybe(quality->mos);
    case JitterRole:
        return maybe(quality->jitterMs);
    case LossRole:
        return maybe(quality->lossPct);
    case RttRole:
        return maybe(quality->rttMs);
    default:
        return {};
    }
}

const QHash<int, QByteArray> qualityNames{{LevelRole, "level"},
                                          {MosRole, "mos"},
                                          {JitterRole, "jitterMs"},
                                          {LossRole, "lossPct"},
                                          {RttRole, "rttMs"}};

} // namespace

QHash<int, QByteArray> LiveRoles<live::Call>::names() {
    return {{IdRole, "callId"},
            {DirectionRole, "direction"},
            {FromNumberRole, "fromNumber"},
            {FromNameRole, "fromName"},
            {ToNumberRole, "toNumber"},
            {ToNameRole, "toName"},
            {StateRole, "state"},
            {QualityRole, "quality"},
            {ConferenceIdRole, "conferenceId"},
            {RecordingRole, "recording"}};
}

QVariant LiveRoles<live::Call>::value(const live::Call& call, int role) {
    switch (role) {
    case IdRole:
        return call.id;
    case DirectionRole:
        return call.direction;
    case FromNumberRole:
        return call.from.number;
    case FromNameRole:
        return maybe(call.from.name);
    case ToNumberRole:
        return call.to.number;
    case ToNameRole:
        return maybe(call.to.name);
    case StateRole:
        return call.state;
    case QualityRole:
        return call.quality ? QVariant(live::Quality::levelText(*call.quality)) : QVariant();
    case ConferenceIdRole:
        return maybe(call.conferenceId);
    case RecordingRole:
        return call.recording.value_or(false);
    default:
        return {};
    }
}

QHash<int, QByteArray> LiveRoles<live::Leg>::names() {
    auto names = qualityNames;
    names.insert({{IdRole, "legId"}, {NumberRole, "number"}, {NameRole, "name"}});
    return names;
}

QVariant LiveRoles<live::Leg>::value(const live::Leg& leg, int role) {
    switch (role) {
    case IdRole:
        return leg.id;
    case NumberRole:
        return leg.party.number;
    case NameRole:
        return maybe(leg.party.name);
    default:
        return qualityRole(leg.quality, role);
    }
}

QHash<int, QByteArray> LiveRoles<live::Participant>::names() {
    return {{IdRole, "participantId"}, {NumberRole, "number"},   {NameRole, "name"},
            {MutedRole, "muted"},      {TalkingRole, "talking"}, {LevelRole, "level"}};
}

QVariant LiveRoles<live::Participant>::value(const live::Participant& participant, int role) {
    switch (role) {
    case IdRole:
        return participant.id;
    case NumberRole:
        return participant.party.number;
    case NameRole:
        return maybe(participant.party.name);
    case MutedRole:
        return participant.muted;
    case TalkingRole:
        return participant.talking;
    case LevelRole:
        return levelOf(participant.quality);
    default:
        return {};
    }
}

QHash<int, QByteArray> LiveRoles<BoardRow>::names() {
    return {{QueueIdRole, "queueId"},
            {NameRole, "name"},
            {WaitingRole, "waitingCount"},
            {AgentsRole, "agentCount"}};
}

QVariant LiveRoles<BoardRow>::value(const BoardRow& row, int role) {
    switch (role) {
    case QueueIdRole:
        return row.queueId;
    case NameRole:
        return row.board.name;
    case WaitingRole:
        return int(row.board.waiting.size());
    case AgentsRole:
        return int(row.board.agents.size());
    default:
        return {};
    }
}

PresenceModel::PresenceModel(QObject* parent) : QAbstractListModel(parent) {}

int PresenceModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant PresenceModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= int(m_rows.size())) {
        return {};
    }
    const auto& [userId, presence] = m_rows[size_t(index.row())];
    switch (role) {
    case UserIdRole:
        return userId;
    case PresenceRole:
        return live::presenceText(presence);
    default:
        return {};
    }
}

QHash<int, QByteArray> PresenceModel::roleNames() const {
    return {{UserIdRole, "userId"}, {PresenceRole, "presence"}};
}

QString PresenceModel::presenceOf(const QString& userId) const {
    const auto found = m_rowOf.constFind(userId);
    return found == m_rowOf.constEnd() ? QString()
                                       : live::presenceText(m_rows[size_t(*found)].second);
}

void PresenceModel::reset(const QList<std::pair<QString, live::Presence>>& users) {
    beginResetModel();
    m_rows.clear();
    m_rowOf.clear();
    m_rows.reserve(size_t(users.size()));
    m_rowOf.reserve(users.size());
    for (const auto& [userId, presence] : users) {
        const auto found = m_rowOf.constFind(userId);
        if (found != m_rowOf.constEnd()) {
            m_rows[size_t(*found)].second = presence;
            continue;
        }
        m_rowOf.insert(userId, int(m_rows.size()));
        m_rows.emplace_back(userId, presence);
    }
    endResetModel();
}

void PresenceModel::set(const QString& userId, live::Presence presence) {
    const auto found = m_rowOf.constFind(userId);
    if (found == m_rowOf.constEnd()) {
        const int row = int(m_rows.size());
        beginInsertRows({}, row, row);
        m_rowOf.insert(userId, row);
        m_rows.emplace_back(userId, presence);
        endInsertRows();
        return;
    }
    const int row = *found;
    if (m_rows[size_t(row)].second == presence) {
        return;
    }
    m_rows[size_t(row)].second = presence;
    static const QList<int> roles{PresenceRole};
    emit dataChanged(index(row), index(row), roles);
}

void PresenceModel::clear() {
    if (m_rows.empty()) {
        return;
    }
    beginResetModel();
    m_rows.clear();
    m_rowOf.clear();
    endResetModel();
}

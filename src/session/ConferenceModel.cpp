#include "session/ConferenceModel.h"

#include "session/DirectoryModel.h"
#include "session/Session.h"

#include <QPointer>

#include <algorithm>

ConferenceModel::ConferenceModel(Session& session, QObject* parent)
    : QAbstractListModel(parent), m_session(session) {
    connect(&session.live(), &Live::conferenceChanged, this, &ConferenceModel::rebuild);
    connect(&session, &Session::meChanged, this, &ConferenceModel::rebuild);
    connect(&session, &Session::directoryChanged, this, &ConferenceModel::avatarArrived);
    connect(&session, &Session::avatarImageAdded, this, &ConferenceModel::avatarArrived);
    QPointer<Session> weak(&session);
    m_avatarLookup = [weak](const QString& userId) -> QString {
        if (!weak || !weak->directory()) {
            return {};
        }
        for (const auto& user : weak->directory()->users) {
            if (user.id != userId || !user.avatar) {
                continue;
            }
            if (weak->avatarImages().contains(*user.avatar)) {
                return QStringLiteral("image://avatars/") + DirectoryModel::avatarKey(*user.avatar);
            }
            // Asked for as the tile shows; the tile is told when it comes.
            weak->avatarData(*user.avatar);
            return {};
        }
        return {};
    };
    rebuild();
}

int ConferenceModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_rows.size());
}

QHash<int, QByteArray> ConferenceModel::roleNames() const {
    return {{ParticipantIdRole, "participantId"},
            {NameRole, "name"},
            {IsMeRole, "isMe"},
            {MutedRole, "muted"},
            {TalkingRole, "talking"},
            {AvatarRole, "avatar"},
            {ManageableRole, "manageable"},
            {AvatarNameRole, "avatarName"}};
}

QVariant ConferenceModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_rows.size()) {
        return {};
    }
    const live::Participant& participant = m_rows.at(index.row());
    const bool mine = isMe(participant, m_me);
    switch (role) {
    case ParticipantIdRole:
        return participant.id;
    case NameRole:
        return tileName(participant, mine);
    case IsMeRole:
        return mine;
    case MutedRole:
        return participant.muted;
    case TalkingRole:
        return participant.talking;
    case AvatarRole:
        return avatarOf(participant);
    case ManageableRole:
        return isHost() && !mine;
    case AvatarNameRole:
        return tileName(participant, false);
    default:
        return {};
    }
}

QString ConferenceModel::title() const {
    return tr("Conference · %1").arg(m_rows.size());
}

bool ConferenceModel::isHost(const std::optional<Me>& me,
                             const std::optional<live::Conference>& conference) {
    return me && conference && conference->hostUserId && *conference->hostUserId == me->id;
}

bool ConferenceModel::isMe(const live::Participant& participant, const std::optional<Me>& me) {
    return me && participant.party.userId && *participant.party.userId == me->id;
}

QList<live::Participant> ConferenceModel::ordered(const QList<live::Participant>& participants,
                                                  const std::optional<Me>& me) {
    QList<live::Participant> rows = participants;
    std::stable_sort(rows.begin(), rows.end(), [&me](const auto& a, const auto& b) {
        const bool aMine = isMe(a, me);
        const bool bMine = isMe(b, me);
        if (aMine != bMine) {
            return aMine;
        }
        const QString aJoined = a.joinedAt ? a.joinedAt->raw : QString();
        const QString bJoined = b.joinedAt ? b.joinedAt->raw : QString();
        return QString::compare(aJoined, bJoined) < 0;
    });
    return rows;
}

QString ConferenceModel::tileName(const live::Participant& participant, bool isMe) {
    if (isMe) {
        return tr("You");
    }
    return participant.party.name.value_or(participant.party.number);
}

void ConferenceModel::setAvatarLookup(std::function<QString(const QString&)> lookup) {
    m_avatarLookup = std::move(lookup);
    avatarArrived();
}

QString ConferenceModel::avatarOf(const live::Participant& participant) const {
    if (!participant.party.userId || !m_avatarLookup) {
        return {};
    }
    return m_avatarLookup(*participant.party.userId);
}

void ConferenceModel::avatarArrived() {
    if (!m_rows.isEmpty()) {
        emit dataChanged(index(0), index(int(m_rows.size()) - 1), {AvatarRole});
    }
}

void ConferenceModel::rebuild() {
    show(m_session.live().conference(), m_session.me());
}

void ConferenceModel::show(const std::optional<live::Conference>& conference,
                           const std::optional<Me>& me) {
    QList<live::Participant> rows =
        conference ? ordered(conference->participants, me) : QList<live::Participant>();
    const bool hostChanges = isHost(me, conference) != isHost();
    bool sameTiles = !hostChanges && rows.size() == m_rows.size() &&
                     (me ? me->id : QString()) == (m_me ? m_me->id : QString());
    for (qsizetype i = 0; sameTiles && i < rows.size(); ++i) {
        sameTiles = rows[i].id == m_rows[i].id && rows[i].party == m_rows[i].party;
    }
    const bool changed = conference != m_conference || me != m_me;
    if (sameTiles) {
        m_conference = conference;
        m_me = me;
        for (qsizetype i = 0; i < rows.size(); ++i) {
            if (rows[i] != m_rows[i]) {
                m_rows[i] = std::move(rows[i]);
                emit dataChanged(index(int(i)), index(int(i)));
            }
        }
    } else {
        beginResetModel();
        m_conference = conference;
        m_me = me;
        m_rows = std::move(rows);
        endResetModel();
    }
    if (changed) {
        emit conferenceChanged();
    }
}

void ConferenceModel::setMuted(const QString& participantId, bool muted) {
    m_session.setMuted(participantId, muted);
}

void ConferenceModel::remove(const QString& participantId) {
    m_session.removeParticipant(participantId);
}

void ConferenceModel::setLocked(bool locked) {
    m_session.setLocked(locked);
}

void ConferenceModel::end() {
    m_session.endConference();
}

void ConferenceModel::add(const QString& number) {
    m_session.addParticipant(number);
}

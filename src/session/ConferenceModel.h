#pragma once

#include "api/Records.h"
#include "live/LiveRecords.h"

#include <QAbstractListModel>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

class Session;

// The conference of the call in front, for the call window: its participants
// as tiles in the order the screen shows them (the user first, the others by
// when they joined), whether the user hosts it, and the host's actions. It
// changes nothing itself: every action asks the server, and what the server
// did comes back through the live updates. A talking or mute change touches
// only its own tile.
class ConferenceModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(bool active READ active NOTIFY conferenceChanged)
    Q_PROPERTY(int count READ rowCount NOTIFY conferenceChanged)
    Q_PROPERTY(bool locked READ locked NOTIFY conferenceChanged)
    Q_PROPERTY(bool isHost READ isHost NOTIFY conferenceChanged)
    // "Conference · 3".
    Q_PROPERTY(QString title READ title NOTIFY conferenceChanged)
public:
    enum Role {
        ParticipantIdRole = Qt::UserRole + 1,
        NameRole,
        IsMeRole,
        MutedRole,
        TalkingRole,
        AvatarRole,
        // The host may mute and remove this participant here.
        ManageableRole,
        // Whose monogram the picture shows: the party's name or number, also on the user's tile.
        AvatarNameRole,
    };

    explicit ConferenceModel(Session& session, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    bool active() const { return m_conference.has_value(); }
    bool locked() const { return m_conference && m_conference->locked; }
    bool isHost() const { return isHost(m_me, m_conference); }
    QString title() const;
    const QList<live::Participant>& participants() const { return m_rows; }

    // The conference's host is the signed-in user.
    static bool isHost(const std::optional<Me>& me,
                       const std::optional<live::Conference>& conference);
    // The participant is the signed-in user, by the user id of its party.
    static bool isMe(const live::Participant& participant, const std::optional<Me>& me);
    // The user's own tiles first; the others by the text of joinedAt, a
    // missing one counting as empty text, equals in the conference's order.
    static QList<live::Participant> ordered(const QList<live::Participant>& participants,
                                            const std::optional<Me>& me);
    // "You", else the party's name, else its number.
    static QString tileName(const live::Participant& participant, bool isMe);

    // How a colleague's picture is shown, by user id; empty for none. The
    // session's directory and picture cache by default.
    void setAvatarLookup(std::function<QString(const QString& userId)> lookup);

    // The host's actions; each returns at once.
    Q_INVOKABLE void setMuted(const QString& participantId, bool muted);
    Q_INVOKABLE void remove(const QString& participantId);
    Q_INVOKABLE void setLocked(bool locked);
    Q_INVOKABLE void end();
    Q_INVOKABLE void add(const QString& number);

    // Takes the live conference and the user afresh.
    void rebuild();
    // Shows this conference for this user; a tile that keeps its place changes in place.
    void show(const std::optional<live::Conference>& conference, const std::optional<Me>& me);

signals:
    void conferenceChanged();

private:
    QString avatarOf(const live::Participant& participant) const;
    void avatarArrived();

    Session& m_session;
    std::optional<live::Conference> m_conference;
    std::optional<Me> m_me;
    QList<live::Participant> m_rows;
    std::function<QString(const QString&)> m_avatarLookup;
};

#pragma once

#include "api/API.h"
#include "live/LiveModels.h"
#include "live/LiveRecords.h"
#include "live/LiveSocket.h"
#include "platform/Clock.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <QCoro/QCoroTask>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>

namespace live {
using Boards = QMap<QString, QueueBoard>;
using PresenceMap = QHash<QString, Presence>;
using GroupsRinging = QHash<QString, qint64>;
using Calls = QList<Call>;
using Legs = QList<Leg>;
using OptionalCall = std::optional<Call>;
using OptionalConference = std::optional<Conference>;
} // namespace live

// The client of the dashboard's live websocket. It keeps one socket open for
// as long as the user is signed in, subscribes to its topics on it, and keeps
// the state those topics describe: colleagues' presence, the user's calls,
// queue boards, and the legs and conference of the call this computer is on.
// A lost socket clears nothing; the snapshots on the next one put it right.
// Everything here lives on the main thread.
class Live : public QObject {
    Q_OBJECT
    Q_PROPERTY(live::Boards boards READ boards NOTIFY boardsChanged)
    Q_PROPERTY(bool connected READ connected NOTIFY connectedChanged)
    Q_PROPERTY(QString lastDecodeError READ lastDecodeErrorText NOTIFY lastDecodeErrorChanged)
    Q_PROPERTY(live::PresenceMap presence READ presence NOTIFY presenceChanged)
    Q_PROPERTY(live::GroupsRinging groupsRinging READ groupsRinging NOTIFY groupsRingingChanged)
    Q_PROPERTY(live::Calls myCalls READ myCalls NOTIFY myCallsChanged)
    Q_PROPERTY(live::OptionalCall currentCall READ currentCall NOTIFY currentCallChanged)
    Q_PROPERTY(live::Legs currentLegs READ currentLegs NOTIFY currentLegsChanged)
    Q_PROPERTY(live::OptionalConference conference READ conference NOTIFY conferenceChanged)
    Q_PROPERTY(PresenceModel* presenceModel READ presenceModel CONSTANT)
    Q_PROPERTY(QAbstractListModel* myCallsModel READ myCallsModel CONSTANT)
    Q_PROPERTY(QAbstractListModel* boardsModel READ boardsModel CONSTANT)
    Q_PROPERTY(QAbstractListModel* legsModel READ legsModel CONSTANT)
    Q_PROPERTY(QAbstractListModel* participantsModel READ participantsModel CONSTANT)
public:
    using Call = live::Call;
    using Leg = live::Leg;
    using Conference = live::Conference;
    using Participant = live::Participant;
    using QueueBoard = live::QueueBoard;
    using Presence = live::Presence;
    using Quality = live::Quality;
    // Where the socket goes and with which token; asked before each socket and each renewal.
    using Connection = std::function<QCoro::Task<API::LiveConnection>()>;

    static constexpr int goingAway = 1001;
    static constexpr std::chrono::milliseconds firstDelay{1000};
    static constexpr std::chrono::milliseconds longestDelay{30000};

    explicit Live(Connection connection, Clock& clock = Clock::system(), QObject* parent = nullptr);
    ~Live() override;

    const live::Boards& boards() const { return m_boards; }
    bool connected() const { return m_connected; }
    const std::optional<QString>& lastDecodeError() const { return m_lastDecodeError; }
    QString lastDecodeErrorText() const { return m_lastDecodeError.value_or(QString()); }
    const live::PresenceMap& presence() const { return m_presence; }
    const live::GroupsRinging& groupsRinging() const { return m_groupsRinging; }
    const live::Calls& myCalls() const { return m_myCalls; }
    const live::OptionalCall& currentCall() const { return m_currentCall; }
    const live::Legs& currentLegs() const { return m_currentLegs; }
    const live::OptionalConference& conference() const { return m_conference; }

    PresenceModel* presenceModel() { return &m_presenceModel; }
    QAbstractListModel* myCallsModel() { return &m_myCallsModel; }
    QAbstractListModel* boardsModel() { return &m_boardsModel; }
    QAbstractListModel* legsModel() { return &m_legsModel; }
    QAbstractListModel* participantsModel() { return &m_participantsModel; }

    const QSet<QString>& topics() const { return m_topics; }
    const std::optional<QString>& followedSipCallId() const { return m_followedSipCallId; }
    bool running() const { return m_run != nullptr; }
    // The loop is waiting out its back-off before the next attempt.
    bool waiting() const;
    // The latest socket; it stays after failing until the next one replaces it.
    const std::shared_ptr<LiveSocket>& task() const { return m_task; }

    // Starts the connection loop unless it runs.
    void start();
    // Ends the loop and closes the socket with 1001; the state and topics stay.
    void stop();
    // Cuts short the wait before the next attempt, or replaces the socket:
    // after a resume from suspend or when the network comes back, the old
    // socket is likely dead without knowing it.
    void reconnectNow();
    // The ids of the user's queues, each time that list has been loaded.
    void watchQueues(const QStringList& ids);
    // The local call to follow; none when no call is active.
    void follow(const std::optional<QString>& sipCallId);
    void subscribe(const QString& topic);
    void unsubscribe(const QString& topic);
    // Decides which of the user's calls the followed SIP call belongs to.
    void reselectCall();

    // One incoming frame. Throws when it is not an envelope, or when a pong could not be sent.
    QCoro::Task<> handle(QByteArray bytes, std::shared_ptr<LiveSocket> socket);
    // One text frame of a string-to-string object.
    static QCoro::Task<> send(QMap<QString, QString> object, std::shared_ptr<LiveSocket> socket);

    // Sign-out: everything the topics described is forgotten.
    void clearState();

    // "1.0 seconds": how the back-off is written in the log.
    static QString durationText(std::chrono::milliseconds duration);
    // "presence" and the like, sorted, as the log shows them: ["a", "b"].
    static QString topicsText(const QSet<QString>& topics);

signals:
    void boardsChanged();
    void connectedChanged();
    void lastDecodeErrorChanged();
    void presenceChanged();
    void groupsRingingChanged();
    void myCallsChanged();
    void currentCallChanged();
    void currentLegsChanged();
    void conferenceChanged();

public:
    // One run of the connection loop; internal.
    struct Run;

private:
    QCoro::Task<> run(std::shared_ptr<Run> run);
    QCoro::Task<> connectOnce(std::shared_ptr<Run> run, std::chrono::milliseconds& delay);
    QCoro::Task<> renew(std::shared_ptr<bool> stopped, std::stop_token runStopped,
                        std::shared_ptr<LiveSocket> socket, QDateTime expiry);
    void sendDetached(const QString& type, const QString& topic);

    void setConnected(bool connected);
    void setLastDecodeError(const QString& text);
    void setCurrentCall(live::OptionalCall call);
    void setCurrentLegs(live::Legs legs);
    void setConference(live::OptionalConference conference);
    void setMyCalls(live::Calls calls);

    void reduceFrame(const live::Envelope& envelope, const live::Json& frame,
                     const QByteArray& bytes);
    void reducePresenceDelta(const live::PresenceDelta& delta);
    void reduceCallsDelta(const live::CallsDelta& delta);
    void reduceCallDelta(const QString& topic, const live::CallDelta& delta);
    void reduceBoard(const QString& queueId, std::optional<live::QueueBoard> board);
    void reduceConferenceDelta(const live::Json& frame);

    Connection m_connection;
    Clock& m_clock;

    live::Boards m_boards;
    bool m_connected = false;
    std::optional<QString> m_lastDecodeError;
    live::PresenceMap m_presence;
    live::GroupsRinging m_groupsRinging;
    live::Calls m_myCalls;
    live::OptionalCall m_currentCall;
    live::Legs m_currentLegs;
    live::OptionalConference m_conference;

    std::shared_ptr<LiveSocket> m_task;
    std::shared_ptr<Run> m_run;
    QSet<QString> m_topics;
    std::optional<QString> m_followedSipCallId;

    PresenceModel m_presenceModel;
    CallsModel m_myCallsModel;
    BoardsModel m_boardsModel;
    LegsModel m_legsModel;
    ParticipantsModel m_participantsModel;
};

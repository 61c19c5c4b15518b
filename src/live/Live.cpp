#include "live/Live.h"

#include "platform/Log.h"
#include "platform/Resumption.h"

#include <QNetworkRequest>
#include <QPointer>

#include <algorithm>
#include <coroutine>
#include <utility>

using namespace std::chrono_literals;

namespace {

const QString presenceTopic = QStringLiteral("presence");
const QString callsTopic = QStringLiteral("calls:mine");
const QString callPrefix = QStringLiteral("call:");
const QString queuePrefix = QStringLiteral("queue:");
const QString conferencePrefix = QStringLiteral("conference:");

QString errorText(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const API::Failure& f) {
        return f.text();
    } catch (const API::TransportError& e) {
        return e.text();
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("unknown error");
    }
}

// A frame the client sends: its type and at most one other key.
QMap<QString, QString> frameOf(const QString& type, const QString& key = {},
                               const QString& value = {}) {
    QMap<QString, QString> frame{{QStringLiteral("type"), type}};
    if (!key.isEmpty()) {
        frame.insert(key, value);
    }
    return frame;
}

QNetworkRequest handshake(const API::LiveConnection& target) {
    QNetworkRequest request(target.url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::PreferNetwork);
    request.setTransferTimeout(60'000);
    request.setRawHeader(QByteArrayLiteral("Authorization"),
                         QByteArrayLiteral("Bearer ") + target.token.toUtf8());
    return request;
}

void giveUp(const std::shared_ptr<bool>& renewalStopped,
            const std::shared_ptr<LiveSocket>& socket) {
    *renewalStopped = true;
    socket->cancel();
}

std::optional<QString> idOf(const live::OptionalCall& call) {
    return call ? std::optional<QString>(call->id) : std::nullopt;
}

std::optional<QString> conferenceIdOf(const live::OptionalCall& call) {
    return call ? call->conferenceId : std::nullopt;
}

} // namespace

// One run of the connection loop. stop() requests its stop, and every wait
// of the run (back-off, alarm, socket, token renewal) ends inside that
// request; a later start() makes a new run.
struct Live::Run {
    QPointer<Live> self;
    std::stop_source stopping;
    // The next back-off wait is skipped.
    bool hurry = false;
    bool rung = false;
    quint64 sleeps = 0;
    Resumption backOff;

    bool cancelled() const { return stopping.stop_requested(); }
    void wake() {
        rung = true;
        backOff.resumeLater(self);
    }
};

namespace {

struct BackOff {
    Live::Run* run;
    bool await_ready() const noexcept { return run->cancelled() || run->hurry || run->rung; }
    bool await_suspend(std::coroutine_handle<> handle) {
        return run->backOff.arm(handle, run->stopping.get_token());
    }
    void await_resume() const noexcept {}
};

// Rings the run when its wait is over, unless a later wait has begun since.
QCoro::Task<> alarm(std::shared_ptr<Live::Run> run, Clock& clock, std::chrono::milliseconds delay,
                    quint64 number) {
    co_await clock.sleep(delay, run->stopping.get_token());
    if (!run->cancelled() && run->sleeps == number) {
        run->wake();
    }
}

QCoro::Task<> sendIgnoringFailure(QMap<QString, QString> object,
                                  std::shared_ptr<LiveSocket> socket) {
    try {
        co_await Live::send(std::move(object), std::move(socket));
    } catch (...) {
        // The next socket subscribes the whole set again.
    }
}

} // namespace

Live::Live(Connection connection, Clock& clock, QObject* parent)
    : QObject(parent), m_connection(std::move(connection)), m_clock(clock),
      m_topics({presenceTopic, callsTopic}) {}

Live::~Live() {
    stop();
}

bool Live::waiting() const {
    return m_run && m_run->backOff.armed();
}

void Live::start() {
    if (m_run) {
        return;
    }
    m_run = std::make_shared<Run>();
    m_run->self = this;
    run(m_run);
}

void Live::stop() {
    const auto run = std::exchange(m_run, nullptr);
    if (const auto socket = std::exchange(m_task, nullptr)) {
        socket->cancel();
    }
    if (run) {
        // The loop's frames end here, not at a turn of the event loop that
        // may never come (the app quitting).
        run->stopping.request_stop();
    }
    setConnected(false);
}

void Live::reconnectNow() {
    if (!m_run) {
        return;
    }
    Log::info(Log::live, QStringLiteral("reconnecting at once"));
    m_run->hurry = true;
    m_run->wake();
    if (m_task) {
        m_task->cancel();
    }
}

QCoro::Task<> Live::run(std::shared_ptr<Run> run) {
    auto delay = firstDelay;
    while (!run->cancelled() && run->self) {
        std::exception_ptr failure;
        try {
            co_await connectOnce(run, delay);
        } catch (...) {
            failure = std::current_exception();
        }
        if (!run->self) {
            co_return;
        }
        if (failure) {
            const int closeCode = m_task ? m_task->closeCode() : 0;
            Log::info(Log::live, QStringLiteral("disconnected: %1 (close code %2), retry in %3")
                                     .arg(errorText(failure))
                                     .arg(closeCode)
                                     .arg(durationText(delay)));
        }
        if (run->cancelled()) {
            co_return;
        }
        setConnected(false);
        run->rung = false;
        const quint64 number = ++run->sleeps;
        if (!run->hurry) {
            alarm(run, m_clock, delay, number);
        }
        co_await BackOff{run.get()};
        run->hurry = false;
        run->rung = false;
        delay = std::min(delay * 2, longestDelay);
    }
}

QCoro::Task<> Live::connectOnce(std::shared_ptr<Run> run, std::chrono::milliseconds& delay) {
    auto connection = m_connection;
    const API::LiveConnection target = co_await connection();
    if (run->cancelled() || !run->self) {
        co_return;
    }
    Log::info(Log::live, QStringLiteral("connecting %1, topics %2")
                             .arg(target.url.toString(), topicsText(m_topics)));

    const QNetworkRequest request = handshake(target);
    const auto socket = LiveSocket::make();
    m_task = socket;
    try {
        co_await socket->open(request, run->stopping.get_token());
        if (run->cancelled()) {
            socket->cancel();
            co_return;
        }
        const auto topics = m_topics;
        for (const QString& topic : topics) {
            co_await send(frameOf(QStringLiteral("sub"), QStringLiteral("topic"), topic), socket);
        }
    } catch (...) {
        socket->cancel();
        throw;
    }

    const auto renewalStopped = std::make_shared<bool>(false);
    renew(renewalStopped, run->stopping.get_token(), socket, target.expiry);
    while (!run->cancelled()) {
        QByteArray bytes;
        try {
            bytes = co_await socket->receive(run->stopping.get_token());
        } catch (...) {
            giveUp(renewalStopped, socket);
            throw;
        }
        if (run->cancelled() || !run->self) {
            break;
        }
        if (!m_connected) {
            // Only a frame proves the socket; a silent server keeps the back-off growing.
            setConnected(true);
            delay = firstDelay;
            run->hurry = false;
        }
        try {
            co_await handle(std::move(bytes), socket);
        } catch (...) {
            giveUp(renewalStopped, socket);
            throw;
        }
    }
    giveUp(renewalStopped, socket);
}

QCoro::Task<> Live::renew(std::shared_ptr<bool> stopped, std::stop_token runStopped,
                          std::shared_ptr<LiveSocket> socket, QDateTime expiry) {
    const QPointer<Live> self(this);
    Clock& clock = m_clock;
    const auto connection = m_connection;
    while (true) {
        const double seconds = double(clock.now().msecsTo(expiry)) / 1000.0 - 60.0;
        const double wait = seconds <= 5.0 ? 5.0 : seconds;
        co_await clock.sleep(std::chrono::milliseconds(qint64(wait * 1000.0)), runStopped);
        if (*stopped || runStopped.stop_requested() || !self) {
            co_return;
        }
        API::LiveConnection renewed;
        try {
            renewed = co_await connection();
        } catch (...) {
            // The server closes the socket when its token runs out; the loop then makes a new one.
            co_return;
        }
        try {
            co_await send(frameOf(QStringLiteral("auth"), QStringLiteral("token"), renewed.token),
                          socket);
        } catch (...) {
        }
        expiry = renewed.expiry;
        if (*stopped) {
            co_return;
        }
    }
}

QCoro::Task<> Live::send(QMap<QString, QString> object, std::shared_ptr<LiveSocket> socket) {
    live::Json frame = live::Json::object();
    for (auto it = object.cbegin(); it != object.cend(); ++it) {
        frame[it.key().toStdString()] = it.value().toStdString();
    }
    co_await socket->send(QString::fromStdString(frame.dump()));
}

void Live::sendDetached(const QString& type, const QString& topic) {
    sendIgnoringFailure(frameOf(type, QStringLiteral("topic"), topic), m_task);
}

void Live::watchQueues(const QStringList& ids) {
    QSet<QString> wanted;
    for (const QString& id : ids) {
        wanted.insert(queuePrefix + id);
    }
    const auto topics = m_topics;
    for (const QString& topic : topics) {
        if (topic.startsWith(queuePrefix) && !wanted.contains(topic)) {
            unsubscribe(topic);
            reduceBoard(topic.mid(queuePrefix.size()), std::nullopt);
        }
    }
    for (const QString& topic : std::as_const(wanted)) {
        subscribe(topic);
    }
}

void Live::subscribe(const QString& topic) {
    if (m_topics.contains(topic)) {
        return;
    }
    m_topics.insert(topic);
    if (m_task) {
        Log::info(Log::live, QStringLiteral("sub ") + topic);
        sendDetached(QStringLiteral("sub"), topic);
    }
}

void Live::unsubscribe(const QString& topic) {
    if (!m_topics.remove(topic)) {
        return;
    }
    if (m_task) {
        sendDetached(QStringLiteral("unsub"), topic);
    }
}

void Live::follow(const std::optional<QString>& sipCallId) {
    Log::info(Log::live,
              QStringLiteral("follow SIP call ") + sipCallId.value_or(QStringLiteral("none")));
    m_followedSipCallId = sipCallId;
    reselectCall();
}

void Live::reselectCall() {
    live::OptionalCall candidate;
    if (m_followedSipCallId) {
        for (const Call& call : std::as_const(m_myCalls)) {
            if (!call.myLegs) {
                continue;
            }
            const bool holds = std::any_of(
                call.myLegs->cbegin(), call.myLegs->cend(),
                [&](const Call::MyLeg& leg) { return leg.sipCallId == *m_followedSipCallId; });
            if (holds) {
                candidate = call;
                break;
            }
        }
    }
    if (idOf(m_currentCall) != idOf(candidate)) {
        if (m_currentCall) {
            unsubscribe(callPrefix + m_currentCall->id);
        }
        setCurrentLegs({});
        if (candidate) {
            subscribe(callPrefix + candidate->id);
        }
    }
    const auto oldConference = conferenceIdOf(m_currentCall);
    const auto newConference = conferenceIdOf(candidate);
    if (oldConference != newConference) {
        if (oldConference) {
            unsubscribe(conferencePrefix + *oldConference);
        }
        setConference(std::nullopt);
        if (newConference) {
            subscribe(conferencePrefix + *newConference);
        }
    }
    setCurrentCall(std::move(candidate));
}

QCoro::Task<> Live::handle(QByteArray bytes, std::shared_ptr<LiveSocket> socket) {
    const live::Json frame = wire::parse(bytes);
    const auto envelope = live::Envelope::fromJson(frame);
    if (envelope.type == u"ping") {
        co_await send(frameOf(QStringLiteral("pong")), std::move(socket));
        co_return;
    }
    if (envelope.type == u"error") {
        if (envelope.topic) {
            m_topics.remove(*envelope.topic);
        }
        co_return;
    }
    reduceFrame(envelope, frame, bytes);
}

void Live::reduceFrame(const live::Envelope& envelope, const live::Json& frame,
                       const QByteArray& bytes) {
    if (!envelope.topic) {
        return;
    }
    const QString& topic = *envelope.topic;
    const bool snapshot = envelope.type == u"snapshot";
    const bool delta = envelope.type == u"delta";
    if (!snapshot && !delta) {
        return;
    }
    try {
        if (topic == presenceTopic) {
            if (snapshot) {
                const auto s = live::unwrap<live::PresenceSnapshot>(frame);
                live::PresenceMap presence;
                presence.reserve(s.users.size());
                for (const auto& [id, state] : s.users) {
                    presence.insert(id, state);
                }
                live::GroupsRinging groups;
                for (const auto& [id, ringing] :
                     s.groups.value_or(decltype(s.groups)::value_type{})) {
                    groups.insert(id, ringing);
                }
                if (presence != m_presence) {
                    m_presence = std::move(presence);
                    m_presenceModel.reset(s.users);
                    emit presenceChanged();
                }
                if (groups != m_groupsRinging) {
                    m_groupsRinging = std::move(groups);
                    emit groupsRingingChanged();
                }
            } else {
                reducePresenceDelta(live::unwrap<live::PresenceDelta>(frame));
            }
        } else if (topic == callsTopic) {
            if (snapshot) {
                setMyCalls(live::unwrap<live::CallsSnapshot>(frame).calls);
            } else {
                reduceCallsDelta(live::unwrap<live::CallsDelta>(frame));
            }
            reselectCall();
        } else if (topic.startsWith(callPrefix)) {
            if (snapshot) {
                auto s = live::unwrap<live::CallSnapshot>(frame);
                // The call itself comes from the user's calls alone.
                if (m_currentCall && topic == callPrefix + m_currentCall->id) {
                    setCurrentLegs(std::move(s.legs));
                }
            } else {
                reduceCallDelta(topic, live::unwrap<live::CallDelta>(frame));
            }
        } else if (topic.startsWith(queuePrefix)) {
            const QString id = topic.mid(queuePrefix.size());
            if (snapshot) {
                reduceBoard(id, live::unwrap<live::QueueBoard>(frame));
            } else {
                auto d = live::unwrap<live::QueueDelta>(frame);
                if (d.op == u"board" && d.board) {
                    reduceBoard(id, std::move(d.board));
                } else if (d.op == u"end") {
                    reduceBoard(id, std::nullopt);
                }
            }
        } else if (topic.startsWith(conferencePrefix)) {
            if (snapshot) {
                auto c = live::unwrap<live::Conference>(frame);
                if (topic == conferencePrefix + c.id) {
                    setConference(std::move(c));
                }
            } else {
                reduceConferenceDelta(frame);
            }
        }
    } catch (const wire::DecodeError& e) {
        const QString what = QString::fromUtf8(e.what());
        setLastDecodeError(
            QStringLiteral("%1 %2: %3 · %4")
                .arg(envelope.type, topic, what, QString::fromUtf8(bytes.left(300))));
        Log::error(Log::live, QStringLiteral("decode %1 %2: %3").arg(envelope.type, topic, what));
    }
}

void Live::reducePresenceDelta(const live::PresenceDelta& delta) {
    if (delta.userId && delta.state) {
        const auto found = m_presence.constFind(*delta.userId);
        if (found == m_presence.constEnd() || *found != *delta.state) {
            m_presence.insert(*delta.userId, *delta.state);
            m_presenceModel.set(*delta.userId, *delta.state);
            emit presenceChanged();
        }
    }
    if (delta.groupId && delta.ringing) {
        const auto found = m_groupsRinging.constFind(*delta.groupId);
        if (found == m_groupsRinging.constEnd() || *found != *delta.ringing) {
            m_groupsRinging.insert(*delta.groupId, *delta.ringing);
            emit groupsRingingChanged();
        }
    }
}

void Live::reduceCallsDelta(const live::CallsDelta& delta) {
    if (delta.op == u"upsert" && delta.call) {
        const auto found = std::find_if(m_myCalls.cbegin(), m_myCalls.cend(),
                                        [&](const Call& c) { return c.id == delta.call->id; });
        if (found == m_myCalls.cend()) {
            m_myCalls.append(*delta.call);
            m_myCallsModel.append(*delta.call);
        } else if (*found == *delta.call) {
            return;
        } else {
            const int row = int(found - m_myCalls.cbegin());
            m_myCalls[row] = *delta.call;
            m_myCallsModel.setRow(row, *delta.call);
        }
        emit myCallsChanged();
    } else if (delta.op == u"end" && delta.id) {
        bool removed = false;
        for (int row = int(m_myCalls.size()) - 1; row >= 0; --row) {
            if (m_myCalls.at(row).id == *delta.id) {
                m_myCalls.removeAt(row);
                m_myCallsModel.removeAt(row);
                removed = true;
            }
        }
        if (removed) {
            emit myCallsChanged();
        }
    }
}

void Live::reduceCallDelta(const QString& topic, const live::CallDelta& delta) {
    if (!m_currentCall || topic != callPrefix + m_currentCall->id) {
        return;
    }
    if (delta.legId) {
        const auto found = std::find_if(m_currentLegs.cbegin(), m_currentLegs.cend(),
                                        [&](const Leg& l) { return l.id == *delta.legId; });
        if (found != m_currentLegs.cend()) {
            const int row = int(found - m_currentLegs.cbegin());
            if (m_currentLegs.at(row).quality != delta.quality) {
                m_currentLegs[row].quality = delta.quality;
                m_legsModel.setRow(row, m_currentLegs.at(row));
                emit currentLegsChanged();
            }
            return;
        }
    }
    if (!delta.op) {
        return;
    }
    if (*delta.op == u"leg" && delta.leg) {
        const auto found = std::find_if(m_currentLegs.cbegin(), m_currentLegs.cend(),
                                        [&](const Leg& l) { return l.id == delta.leg->id; });
        if (found == m_currentLegs.cend()) {
            m_currentLegs.append(*delta.leg);
            m_legsModel.append(*delta.leg);
        } else if (*found == *delta.leg) {
            return;
        } else {
            const int row = int(found - m_currentLegs.cbegin());
            m_currentLegs[row] = *delta.leg;
            m_legsModel.setRow(row, *delta.leg);
        }
        emit currentLegsChanged();
    } else if (*delta.op == u"end") {
        setCurrentLegs({});
    }
}

void Live::reduceBoard(const QString& queueId, std::optional<live::QueueBoard> board) {
    const auto rows = m_boardsModel.rows();
    const auto found = std::find_if(rows.cbegin(), rows.cend(),
                                    [&](const BoardRow& r) { return r.queueId == queueId; });
    const int row = found == rows.cend() ? -1 : int(found - rows.cbegin());
    if (!board) {
        if (m_boards.remove(queueId) == 0) {
            return;
        }
        if (row >= 0) {
            m_boardsModel.removeAt(row);
        }
        emit boardsChanged();
        return;
    }
    const auto existing = m_boards.constFind(queueId);
    if (existing != m_boards.constEnd() && *existing == *board) {
        return;
    }
    m_boards.insert(queueId, *board);
    if (row >= 0) {
        m_boardsModel.setRow(row, {queueId, std::move(*board)});
    } else {
        m_boardsModel.append({queueId, std::move(*board)});
    }
    emit boardsChanged();
}

void Live::reduceConferenceDelta(const live::Json& frame) {
    if (!m_conference) {
        return;
    }
    live::ConferenceDelta delta;
    try {
        delta = live::unwrap<live::ConferenceDelta>(frame);
    } catch (const wire::DecodeError&) {
        // Conference changes that do not read are dropped without a word.
        return;
    }
    Conference& conference = *m_conference;
    auto& participants = conference.participants;
    const auto rowOf = [&](const QString& id) {
        const auto found = std::find_if(participants.cbegin(), participants.cend(),
                                        [&](const Participant& p) { return p.id == id; });
        return found == participants.cend() ? -1 : int(found - participants.cbegin());
    };
    const auto removeAll = [&](const QString& id) {
        for (int row = int(participants.size()) - 1; row >= 0; --row) {
            if (participants.at(row).id == id) {
                participants.removeAt(row);
                m_participantsModel.removeAt(row);
            }
        }
    };
    if (delta.op == u"join" && delta.participant) {
        // A repeated join moves the participant to the end.
        removeAll(delta.participant->id);
        participants.append(*delta.participant);
        m_participantsModel.append(*delta.participant);
    } else if (delta.op == u"leave") {
        if (delta.id) {
            removeAll(*delta.id);
        }
    } else if (delta.op == u"talking" || delta.op == u"mute") {
        const int row = delta.id ? rowOf(*delta.id) : -1;
        const bool talking = delta.op == u"talking";
        const auto value = talking ? delta.talking : delta.muted;
        if (row >= 0 && value) {
            (talking ? participants[row].talking : participants[row].muted) = *value;
            m_participantsModel.setRow(row, participants.at(row));
        }
    } else if (delta.op == u"lock") {
        if (delta.locked) {
            conference.locked = *delta.locked;
        }
    } else if (delta.op == u"end") {
        setConference(std::nullopt);
        return;
    }
    // Written back even when nothing changed, as the conference screen expects a beat per change.
    emit conferenceChanged();
}

void Live::setConnected(bool connected) {
    if (m_connected == connected) {
        return;
    }
    m_connected = connected;
    emit connectedChanged();
}

void Live::setLastDecodeError(const QString& text) {
    if (m_lastDecodeError == text) {
        return;
    }
    m_lastDecodeError = text;
    emit lastDecodeErrorChanged();
}

void Live::setMyCalls(live::Calls calls) {
    if (calls == m_myCalls) {
        return;
    }
    m_myCalls = calls;
    m_myCallsModel.reset(std::move(calls));
    emit myCallsChanged();
}

void Live::setCurrentCall(live::OptionalCall call) {
    if (call == m_currentCall) {
        return;
    }
    m_currentCall = std::move(call);
    emit currentCallChanged();
}

void Live::setCurrentLegs(live::Legs legs) {
    if (legs == m_currentLegs) {
        return;
    }
    m_currentLegs = legs;
    m_legsModel.reset(std::move(legs));
    emit currentLegsChanged();
}

void Live::setConference(live::OptionalConference conference) {
    if (conference == m_conference) {
        return;
    }
    m_conference = std::move(conference);
    m_participantsModel.reset(m_conference ? m_conference->participants : QList<Participant>());
    emit conferenceChanged();
}

void Live::clearState() {
    if (!m_boards.isEmpty()) {
        m_boards.clear();
        m_boardsModel.clear();
        emit boardsChanged();
    }
    if (!m_presence.isEmpty()) {
        m_presence.clear();
        m_presenceModel.clear();
        emit presenceChanged();
    }
    if (!m_groupsRinging.isEmpty()) {
        m_groupsRinging.clear();
        emit groupsRingingChanged();
    }
    setMyCalls({});
    setCurrentCall(std::nullopt);
    setCurrentLegs({});
    setConference(std::nullopt);
}

QString Live::durationText(std::chrono::milliseconds duration) {
    return QString::number(double(duration.count()) / 1000.0, 'f', 1) + QStringLiteral(" seconds");
}

QString Live::topicsText(const QSet<QString>& topics) {
    QStringList sorted(topics.cbegin(), topics.cend());
    sorted.sort();
    QStringList quoted;
    for (const QString& topic : std::as_const(sorted)) {
        quoted.append(QLatin1Char('"') + topic + QLatin1Char('"'));
    }
    return QLatin1Char('[') + quoted.join(QStringLiteral(", ")) + QLatin1Char(']');
}

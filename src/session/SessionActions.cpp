// Session's server actions: forwarding, do-not-disturb, voicemail, queues,
// recording and the conference. Each changes what it can before it waits on
// the network, and puts back what its failure calls for.

#include "session/Session.h"

#include "platform/Log.h"
#include "telephony/Phone.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QVariantMap>

namespace {

QByteArray bodyOf(const wire::OrderedJson& json) {
    return QByteArray::fromStdString(json.dump());
}

bool isSignedOut(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const API::Failure& f) {
        return f.kind() == API::Failure::Kind::signedOut;
    } catch (...) {
        return false;
    }
}

std::optional<int> httpStatus(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const API::Failure& f) {
        if (f.kind() == API::Failure::Kind::http) {
            return f.status();
        }
    } catch (...) {
    }
    return std::nullopt;
}

} // namespace

void Session::connectActions() {
    connect(this, &Session::meChanged, this, &Session::canRecordChanged);
    connect(m_live.get(), &Live::currentCallChanged, this, &Session::canRecordChanged);
    // A colleague's name in a message's title comes with the directory.
    connect(this, &Session::directoryChanged, this, &Session::voicemailChanged);
}

QCoro::Task<API::Reply> Session::send(QString path, QByteArray method, QByteArray body) {
    auto api = m_api;
    co_return co_await api->request(path, method, body);
}

void Session::setVoicemail(QList<VoicemailMessage> messages) {
    if (messages != m_voicemail) {
        m_voicemail = std::move(messages);
        emit voicemailChanged();
    }
}

void Session::setVoicemailLoaded(bool loaded) {
    if (loaded != m_voicemailLoaded) {
        m_voicemailLoaded = loaded;
        emit voicemailChanged();
    }
}

void Session::setVoicemailError(std::optional<QString> error) {
    if (error != m_voicemailError) {
        m_voicemailError = std::move(error);
        emit voicemailChanged();
    }
}

void Session::setQueues(QList<QueueMembership> queues) {
    if (queues != m_queues) {
        m_queues = std::move(queues);
        emit queuesChanged();
    }
}

// --- forwarding and do-not-disturb ---

QCoro::Task<bool> Session::saveForwarding(Forwarding forwarding) {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    std::exception_ptr failure;
    std::optional<Forwarding> saved;
    try {
        const auto reply =
            co_await send(QStringLiteral("api/me/forwarding"), "PUT", bodyOf(forwarding.toJson()));
        saved = decode<Forwarding>(reply.body);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return false;
    }
    if (failure) {
        setError(failureText(failure));
        co_return false;
    }
    if (m_me) {
        // What the server keeps, which may be tidier than what was sent.
        Me me = *m_me;
        me.forwarding = *saved;
        setMe(me);
    }
    co_return true;
}

QCoro::Task<> Session::setDnd(bool on) {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    if (!m_me) {
        co_return;
    }
    Me me = *m_me;
    me.dnd = on;
    setMe(me);
    const QString path = QStringLiteral("api/users/") + me.id;
    std::exception_ptr failure;
    try {
        co_await send(path, "PATCH", bodyOf(DndPatch{on}.toJson()));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        // The opposite of the request, even where the flag was absent before.
        if (m_me) {
            Me back = *m_me;
            back.dnd = !on;
            setMe(back);
        }
        setError(failureText(failure));
    }
}

// --- voicemail ---

int Session::unreadVoicemailCount() const {
    return actions::unreadCount(m_voicemail);
}

QString Session::callerTitle(const QString& caller) const {
    if (caller.isEmpty()) {
        return tr("Unknown caller");
    }
    if (const auto user = colleague(caller)) {
        return user->name;
    }
    if (contactName) {
        if (const auto name = contactName(caller)) {
            return *name;
        }
    }
    return caller;
}

QVariantList Session::voicemailRows() const {
    QVariantList rows;
    rows.reserve(m_voicemail.size());
    for (const auto& message : m_voicemail) {
        QVariantMap row;
        row.insert(QStringLiteral("id"), message.id);
        row.insert(QStringLiteral("caller"), message.caller.value_or(QString()));
        row.insert(QStringLiteral("title"), callerTitle(message.caller.value_or(QString())));
        row.insert(QStringLiteral("durationS"), message.durationS.value_or(-1.0));
        row.insert(QStringLiteral("createdAt"), message.createdAt);
        row.insert(QStringLiteral("read"), message.readAt.has_value());
        rows.append(row);
    }
    return rows;
}

QCoro::Task<> Session::refreshVoicemail() {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    if (!m_me || !m_me->voicemailBoxId) {
        co_return;
    }
    const QString path = QStringLiteral("api/voicemail-boxes/") + *m_me->voicemailBoxId +
                         QStringLiteral("/messages");
    std::exception_ptr failure;
    QList<VoicemailMessage> messages;
    try {
        auto api = m_api;
        const auto reply = co_await api->request(path);
        messages = VoicemailMessage::listFromJson(wire::parse(reply.body));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (!failure) {
        setVoicemail(messages);
        setVoicemailError(std::nullopt);
    } else if (isSignedOut(failure)) {
        resetLocal();
    } else {
        // The old list stays, under a banner.
        setVoicemailError(failureText(failure));
    }
    setVoicemailLoaded(true);
}

QCoro::Task<> Session::setRead(QString id, bool read) {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    const auto found = std::find_if(m_voicemail.cbegin(), m_voicemail.cend(),
                                    [&](const VoicemailMessage& m) { return m.id == id; });
    if (found == m_voicemail.cend()) {
        co_return;
    }
    const qsizetype index = found - m_voicemail.cbegin();
    QList<VoicemailMessage> messages = m_voicemail;
    auto& message = messages[index];
    message.readAt = read ? std::optional(actions::isoNow(m_clock.now())) : std::nullopt;
    setVoicemail(messages);
    std::exception_ptr failure;
    try {
        co_await send(QStringLiteral("api/voicemail-messages/") + id, "PATCH",
                      bodyOf(ReadPatch{read}.toJson()));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        // The mark stays: there is nothing better to show than what the user asked for.
        setError(failureText(failure));
    }
}

QCoro::Task<> Session::deleteVoicemail(QString id) {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    QList<VoicemailMessage> messages = m_voicemail;
    messages.removeIf([&](const VoicemailMessage& m) { return m.id == id; });
    setVoicemail(messages);
    std::exception_ptr failure;
    try {
        auto api = m_api;
        co_await api->request(QStringLiteral("api/voicemail-messages/") + id, "DELETE");
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        setError(failureText(failure));
        // The server's list brings the message back.
        co_await refreshVoicemail();
    }
}

QString Session::voicemailAudioPath(const QString& id) {
    return QDir(QDir::tempPath()).filePath(QStringLiteral("vm-") + id + QStringLiteral(".audio"));
}

QCoro::Task<QString> Session::voicemailAudio(QString id) {
    const QString path = voicemailAudioPath(id);
    // A message never changes, so a file of that name is the message.
    if (QFile::exists(path)) {
        co_return path;
    }
    auto api = m_api;
    const auto reply = co_await api->request(QStringLiteral("api/voicemail-messages/") + id +
                                             QStringLiteral("/audio"));
    // Written whole or not at all, so that a cut-off file is never taken for the message.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(reply.body) != reply.body.size() ||
        !file.commit()) {
        throw std::runtime_error(
            tr("Could not save the voicemail: %1").arg(file.errorString()).toStdString());
    }
    co_return path;
}

// --- queues ---

QCoro::Task<> Session::refreshQueues() {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    std::exception_ptr failure;
    QList<QueueMembership> queues;
    try {
        auto api = m_api;
        const auto reply = co_await api->request(QStringLiteral("api/me/queues"));
        queues = QueueMembership::listFromJson(wire::parse(reply.body));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (!failure) {
        setQueues(queues);
        QStringList ids;
        for (const auto& queue : queues) {
            ids.append(queue.id);
        }
        m_live->watchQueues(ids);
        co_return;
    }
    if (httpStatus(failure) == 404) {
        // A server without queues.
        setQueues({});
        co_return;
    }
    Log::error(Log::api, QStringLiteral("queues: ") + failureText(failure));
}

QCoro::Task<> Session::setAgent(QString queue, std::optional<bool> loggedIn,
                                std::optional<bool> paused) {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    QList<QueueMembership> queues = m_queues;
    actions::applyAgent(queues, queue, loggedIn, paused);
    setQueues(queues);
    std::exception_ptr failure;
    try {
        co_await send(QStringLiteral("api/queues/") + queue + QStringLiteral("/agent"), "POST",
                      bodyOf(AgentBody{loggedIn, paused}.toJson()));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        setError(failureText(failure));
        co_await refreshQueues();
    }
}

Session::AgentFlags Session::agentFlags(const QueueMembership& membership) const {
    return actions::agentFlags(membership, m_me, m_live->boards());
}

int Session::queueWaitingTotal() const {
    return actions::queueWaitingTotal(m_queues, m_live->boards());
}

// --- recording ---

bool Session::canRecord() const {
    return actions::canRecord(m_live->currentCall().has_value(), m_me);
}

QCoro::Task<> Session::setRecording(bool on) {
    // The session may be gone when the answer comes.
    const QPointer<Session> self(this);
    const auto& call = m_live->currentCall();
    if (!call) {
        co_return;
    }
    const QString path = QStringLiteral("api/calls/") + call->id + QStringLiteral("/recording");
    std::exception_ptr failure;
    try {
        // The new state comes back on the call's live topic.
        co_await send(path, "POST", bodyOf(RecordingBody{on}.toJson()));
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    if (failure) {
        setError(actions::recordingFailureText(failure));
    }
}

// --- conference ---

namespace {

// Runs one conference request; the live updates bring its effect.
QCoro::Task<> conferenceRequest(QPointer<Session> session, QString path, QByteArray method,
                                std::optional<QByteArray> body) {
    std::exception_ptr failure;
    try {
        auto api = session->api().shared_from_this();
        co_await api->request(path, method, body);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure && session) {
        session->setError(Session::failureText(failure));
    }
}

} // namespace

QCoro::Task<> Session::addParticipant(QString number) {
    const auto& conference = m_live->conference();
    if (!conference) {
        co_return;
    }
    const ParticipantBody body{actions::participantTarget(number, m_directory)};
    co_await conferenceRequest(
        this, QStringLiteral("api/conferences/") + conference->id + QStringLiteral("/participants"),
        "POST", bodyOf(body.toJson()));
}

QCoro::Task<> Session::setMuted(QString participant, bool muted) {
    const auto& conference = m_live->conference();
    if (!conference) {
        co_return;
    }
    co_await conferenceRequest(this,
                               QStringLiteral("api/conferences/") + conference->id +
                                   QStringLiteral("/participants/") + participant +
                                   QStringLiteral("/mute"),
                               "POST", bodyOf(MuteBody{muted}.toJson()));
}

QCoro::Task<> Session::removeParticipant(QString participant) {
    const auto& conference = m_live->conference();
    if (!conference) {
        co_return;
    }
    co_await conferenceRequest(this,
                               QStringLiteral("api/conferences/") + conference->id +
                                   QStringLiteral("/participants/") + participant,
                               "DELETE", std::nullopt);
}

QCoro::Task<> Session::setLocked(bool locked) {
    const auto& conference = m_live->conference();
    if (!conference) {
        co_return;
    }
    co_await conferenceRequest(this, QStringLiteral("api/conferences/") + conference->id, "PATCH",
                               bodyOf(LockBody{locked}.toJson()));
}

QCoro::Task<> Session::endConference() {
    const auto& conference = m_live->conference();
    if (!conference) {
        co_return;
    }
    co_await conferenceRequest(this, QStringLiteral("api/conferences/") + conference->id, "DELETE",
                               std::nullopt);
}

// --- for the screens ---

void Session::setDndFromScreen(bool on) {
    setDnd(on);
}

void Session::refreshVoicemailFromScreen() {
    refreshVoicemail();
}

void Session::setReadFromScreen(const QString& id, bool read) {
    setRead(id, read);
}

void Session::deleteVoicemailFromScreen(const QString& id) {
    deleteVoicemail(id);
}

void Session::setRecordingFromScreen(bool on) {
    setRecording(on);
}

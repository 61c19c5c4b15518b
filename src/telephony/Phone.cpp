#include "telephony/Phone.h"

#include "platform/Log.h"
#include "telephony/CallAudio.h"
#include "telephony/CoreEvents.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>

namespace {

QString fromStd(const std::string& text) {
    return QString::fromStdString(text);
}

} // namespace

QString Phone::Registration::toString() const {
    switch (kind) {
    case Kind::failed:
        return QStringLiteral("failed: ") + text;
    case Kind::off:
        return QStringLiteral("off");
    case Kind::registering:
        return QStringLiteral("registering");
    case Kind::registered:
        return QStringLiteral("registered");
    }
    return {};
}

QString Phone::ActiveCall::statusName(Status status) {
    switch (status) {
    case Status::calling:
        return QStringLiteral("calling");
    case Status::ringing:
        return QStringLiteral("ringing");
    case Status::incoming:
        return QStringLiteral("incoming");
    case Status::connected:
        return QStringLiteral("connected");
    }
    return {};
}

QVariantMap Phone::ActiveCall::toMap() const {
    return {
        {QStringLiteral("uuid"), uuid.toString(QUuid::WithoutBraces).toUpper()},
        {QStringLiteral("number"), remote},
        {QStringLiteral("name"), remoteName.value_or(QString())},
        {QStringLiteral("status"), statusName(status)},
        {QStringLiteral("muted"), muted},
        {QStringLiteral("outgoing"), !incoming},
        {QStringLiteral("connectedAt"),
         connectedAt ? connectedAt->toUTC().toString(Qt::ISODateWithMs) : QString()},
        {QStringLiteral("held"), held},
        {QStringLiteral("transferring"), transferring},
    };
}

Phone::Phone(SettingsStore& settings, std::shared_ptr<AudioBackend> audioBackend, Clock& clock,
             QObject* parent)
    : QObject(parent), m_clock(clock), m_clientFactory(&core::SipClient::init),
      m_recents(std::make_unique<Recents>(settings, clock)), m_account(Account::builtIn()),
      m_audio(CallAudio::make(std::move(audioBackend))), m_push(settings) {}

// Quitting is not a sign-out: the client is let go without un-registering,
// and a late event from it finds no phone.
Phone::~Phone() {
    m_audio->stop();
}

void Phone::setRegistration(Registration registration) {
    if (registration != m_registration) {
        m_registration = std::move(registration);
        emit registrationUpdated();
    }
}

void Phone::setStartingCall(bool starting) {
    if (starting != m_startingCall) {
        m_startingCall = starting;
        emit startingCallChanged();
    }
}

void Phone::setActiveCall(std::optional<ActiveCall> call) {
    if (call != m_activeCall) {
        m_activeCall = std::move(call);
        emit activeCallChanged();
    }
    refreshActiveSipCallId();
}

void Phone::setHeldCall(std::optional<ActiveCall> call) {
    if (call != m_heldCall) {
        m_heldCall = std::move(call);
        emit heldCallChanged();
    }
}

void Phone::setCallMinimized(bool minimized) {
    if (minimized != m_callMinimized) {
        m_callMinimized = minimized;
        emit callMinimizedChanged();
    }
}

void Phone::setLastError(std::optional<QString> error) {
    if (error) {
        Log::error(Log::phone, *error);
    }
    if (error != m_lastError) {
        m_lastError = std::move(error);
        emit lastErrorChanged();
    }
}

void Phone::setAccount(Account account) {
    if (account != m_account) {
        m_account = std::move(account);
        emit accountChanged();
    }
}

void Phone::refreshActiveSipCallId() {
    std::optional<QString> id;
    if (m_activeCall) {
        if (const auto call = m_calls.value(m_activeCall->uuid)) {
            id = fromStd(call->sipCallId());
        }
    }
    if (id != m_activeSipCallId) {
        m_activeSipCallId = std::move(id);
        emit activeSipCallIdChanged();
    }
}

core::SipAccount Phone::sipAccount() const {
    core::SipAccount sip;
    sip.server = m_account.server.toStdString();
    sip.realm = m_account.realm.toStdString();
    sip.username = m_account.username.toStdString();
    sip.password = m_account.password.toStdString();
    sip.optionFlag = m_account.transport == u"tls";
    if (m_caFile && !m_caFile->isEmpty()) {
        sip.optionPair =
            std::pair<std::string, std::string>("tls-ca-file", m_caFile->toStdString());
    }
    return sip;
}

QString Phone::describe(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const core::CoreError& e) {
        const QString text = fromStd(e.text());
        switch (e.kind()) {
        case core::CoreError::Kind::invalidSettings:
            return tr("Invalid settings: ") + text;
        case core::CoreError::Kind::message:
            return text;
        case core::CoreError::Kind::unreachable:
            return tr("Cannot reach ") + text + tr(". Check your connection or VPN.");
        case core::CoreError::Kind::noAnswer:
            return text + tr(" did not answer.");
        }
        return text;
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return tr("Something went wrong.");
    }
}

void Phone::start() {
    if (!m_account.isComplete()) {
        return;
    }
    // The microphone needs no permission on a plain desktop; inside a sandbox
    // the portal asks when the stream opens. Nothing to request here.
    auto events = CoreEvents::make(this);
    std::shared_ptr<core::SipClient> client;
    try {
        client = m_clientFactory(sipAccount(), events);
        client->start();
    } catch (...) {
        setRegistration(Registration::failed(describe(std::current_exception())));
        return;
    }
    m_client = std::move(client);
    m_events = std::move(events);
}

void Phone::stop() {
    if (m_client) {
        m_client->stop();
    }
    m_client.reset();
    m_events.reset();
    setRegistration(Registration::off());
}

void Phone::wake() {
    if (m_client) {
        m_client->reRegister();
    } else {
        start();
    }
}

void Phone::networkChanged() {
    if (m_client) {
        m_client->networkChanged();
    }
}

void Phone::registrationChanged(const core::RegistrationState& state) {
    Log::info(Log::sip, QStringLiteral("registration ") + fromStd(core::toString(state)));
    switch (state.kind) {
    case core::RegistrationState::Kind::registered:
        setRegistration(Registration::registered());
        if (m_pendingDial) {
            const QString number = *m_pendingDial;
            m_pendingDial.reset();
            dial(number);
        }
        break;
    case core::RegistrationState::Kind::failed:
        setRegistration(Registration::failed(fromStd(state.reason)));
        break;
    case core::RegistrationState::Kind::registering:
        // A refresh under way must not show as a drop.
        if (m_registration.kind != Registration::Kind::registered) {
            setRegistration(Registration::registering());
        }
        break;
    case core::RegistrationState::Kind::unregistered:
        setRegistration(Registration::off());
        break;
    }
}

std::optional<QString> Phone::lookupName(const QString& number) const {
    if (colleagueName) {
        if (auto name = colleagueName(number)) {
            return name;
        }
    }
    if (contactName) {
        if (auto name = contactName(number)) {
            return name;
        }
    }
    return std::nullopt;
}

void Phone::dial(const QString& typed) {
    QString number;
    for (const QChar c : typed) {
        if (!c.isSpace()) {
            number.append(c);
        }
    }
    if (number.isEmpty()) {
        return;
    }
    // Two calls at most, and a second one only beside a settled first.
    if (m_heldCall) {
        return;
    }
    if (m_activeCall &&
        (m_activeCall->status != ActiveCall::Status::connected || m_activeCall->transferring)) {
        return;
    }
    if (m_activeCall && !m_activeCall->held && !setHold(*m_activeCall, true)) {
        return;
    }
    const bool first = !m_activeCall;
    if (placeCall(QUuid::createUuid(), number) && first) {
        startAudio();
    }
}

void Phone::dialOrQueue(const QString& number) {
    if (isRegistered()) {
        dial(number);
        return;
    }
    m_pendingDial = number;
    if (m_client) {
        m_client->reRegister();
    } else {
        start();
    }
}

void Phone::failDial(const QString& number, const QString& sentence) {
    setLastError(sentence);
    const QUuid failed = QUuid::createUuid();
    m_recents->start(failed, number, std::nullopt, false);
    m_recents->finish(failed, sentence);
}

bool Phone::placeCall(const QUuid& uuid, const QString& number) {
    if (!m_client) {
        failDial(number, tr(notConnectedText));
        return false;
    }
    std::shared_ptr<core::Call> call;
    try {
        call = m_client->placeCall(number.toStdString());
    } catch (...) {
        failDial(number, describe(std::current_exception()));
        return false;
    }
    const QString id = fromStd(call->sipCallId());
    Log::info(Log::call,
              QStringLiteral("dialed %1: %2%3")
                  .arg(number, id, m_activeCall ? QStringLiteral(" (second call)") : QString()));
    const auto name = lookupName(number);
    m_calls.insert(uuid, call);
    refreshActiveSipCallId();
    if (m_activeCall) {
        setHeldCall(m_activeCall);
    }
    ActiveCall record;
    record.uuid = uuid;
    record.remote = number;
    record.remoteName = name;
    record.incoming = false;
    record.status = ActiveCall::Status::calling;
    setActiveCall(record);
    setCallMinimized(false);
    m_recents->start(uuid, number, name, false);
    if (m_heldCall) {
        m_audio->switchTo(call);
        m_audio->setMuted(false);
    }
    return true;
}

void Phone::startAudio() {
    if (!m_activeCall) {
        return;
    }
    const auto call = m_calls.value(m_activeCall->uuid);
    if (!call) {
        return;
    }
    setStartingCall(true);
    const bool muted = m_activeCall->muted;
    QPointer<Phone> self(this);
    m_audio->start(call, [self, muted](std::optional<CallAudio::Error> error) {
        // On the audio queue: back to the main thread before touching the phone.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, muted, error] {
                if (!self) {
                    return;
                }
                self->setStartingCall(false);
                if (error) {
                    self->setLastError(tr("Audio: ") + error->description);
                } else {
                    self->m_audio->setMuted(muted);
                }
            },
            Qt::QueuedConnection);
    });
}

void Phone::incomingCall(std::shared_ptr<core::Call> call) {
    const QString remote = fromStd(call->remoteNumber());
    Log::info(Log::call,
              QStringLiteral("incoming %1 from %2").arg(fromStd(call->sipCallId()), remote));
    // --- push bookkeeping: inert here, where no push ever announces a call ---
    const auto claim = m_push.claim(fromStd(call->sipCallId()),
                                    m_activeCall && !m_calls.contains(m_activeCall->uuid));
    if (claim.kind == PushBookkeeping::Claim::Kind::decline) {
        call->hangup();
        return;
    }
    // --- end of push bookkeeping ---
    std::optional<QString> remoteName;
    if (const auto name = call->remoteName()) {
        remoteName = fromStd(*name);
    }
    if (m_activeCall) {
        // Busy: a second incoming call is never offered, and shows as missed.
        const QUuid missed = QUuid::createUuid();
        m_recents->start(missed, remote, remoteName, true);
        m_recents->finish(missed, std::nullopt);
        call->hangup();
        return;
    }
    const QUuid uuid = QUuid::createUuid();
    m_calls.insert(uuid, call);
    refreshActiveSipCallId();
    const auto name = remoteName ? remoteName : lookupName(remote);
    ActiveCall record;
    record.uuid = uuid;
    record.remote = remote;
    record.remoteName = name;
    record.incoming = true;
    record.status = ActiveCall::Status::incoming;
    setActiveCall(record);
    setCallMinimized(false);
    m_recents->start(uuid, remote, name, true);
}

void Phone::answer() {
    if (m_activeCall && m_activeCall->status == ActiveCall::Status::incoming &&
        answerCall(m_activeCall->uuid)) {
        startAudio();
    }
}

bool Phone::answerCall(const QUuid& uuid) {
    const auto call = m_calls.value(uuid);
    if (!call) {
        return false;
    }
    try {
        call->answer();
    } catch (...) {
        setLastError(describe(std::current_exception()));
        return false;
    }
    return true;
}

std::optional<Phone::ActiveCall> Phone::callInfo(const QUuid& uuid) const {
    if (m_activeCall && m_activeCall->uuid == uuid) {
        return m_activeCall;
    }
    if (m_heldCall && m_heldCall->uuid == uuid) {
        return m_heldCall;
    }
    return std::nullopt;
}

std::optional<QString> Phone::sipCallId(const QUuid& uuid) const {
    if (const auto call = m_calls.value(uuid)) {
        return fromStd(call->sipCallId());
    }
    return std::nullopt;
}

std::optional<core::CallStats> Phone::activeStats() const {
    if (!m_activeCall) {
        return std::nullopt;
    }
    if (const auto call = m_calls.value(m_activeCall->uuid)) {
        return call->stats();
    }
    return std::nullopt;
}

std::optional<std::vector<std::int64_t>> Phone::activeCounters() const {
    if (!m_activeCall) {
        return std::nullopt;
    }
    const auto call = m_calls.value(m_activeCall->uuid);
    if (!call) {
        return std::nullopt;
    }
    const auto media = call->mediaCounters();
    std::vector<std::int64_t> counters;
    for (std::size_t i = 0; i < 2 && i < media.size(); ++i) {
        counters.push_back(std::int64_t(media[i]));
    }
    counters.push_back(m_audio->micFrames());
    counters.push_back(m_audio->restarts());
    return counters;
}

void Phone::writeCall(const ActiveCall& call) {
    if (m_activeCall && m_activeCall->uuid == call.uuid) {
        setActiveCall(call);
    } else if (m_heldCall && m_heldCall->uuid == call.uuid) {
        setHeldCall(call);
    }
}

void Phone::setMuted(const QUuid& uuid, bool muted) {
    auto record = callInfo(uuid);
    if (!record) {
        return;
    }
    record->muted = muted;
    writeCall(*record);
    if (m_activeCall && m_activeCall->uuid == uuid) {
        // A held call stays silent whatever the person's own choice.
        m_audio->setMuted(muted || record->held);
    }
}

bool Phone::sendDigits(const QUuid& uuid, const QString& digits) {
    const auto call = m_calls.value(uuid);
    if (!call) {
        return false;
    }
    for (const QChar c : digits) {
        try {
            call->sendDtmf(c.toLatin1());
        } catch (...) {
            // One digit lost; the rest still go.
        }
    }
    return true;
}

void Phone::hangUpActive() {
    if (m_activeCall) {
        hangUp(m_activeCall->uuid);
    }
}

void Phone::setActiveMuted(bool muted) {
    if (m_activeCall) {
        setMuted(m_activeCall->uuid, muted);
    }
}

bool Phone::sendActiveDigits(const QString& digits) {
    return m_activeCall && sendDigits(m_activeCall->uuid, digits);
}

std::optional<QUuid> Phone::uuidOf(const std::string& sipCallId) const {
    for (auto it = m_calls.cbegin(); it != m_calls.cend(); ++it) {
        if (it.value()->sipCallId() == sipCallId) {
            return it.key();
        }
    }
    return std::nullopt;
}

void Phone::callStateChanged(const std::string& sipCallId, const core::CallState& state) {
    Log::info(Log::call,
              fromStd(sipCallId) + QStringLiteral(" → ") + fromStd(core::toString(state)));
    const auto uuid = uuidOf(sipCallId);
    if (!uuid) {
        return;
    }
    const auto current = callInfo(*uuid);
    if (!current) {
        return;
    }
    ActiveCall record = *current;
    switch (state.kind) {
    case core::CallState::Kind::ringing:
        record.status = ActiveCall::Status::ringing;
        break;
    case core::CallState::Kind::connected:
        record.status = ActiveCall::Status::connected;
        record.held = false;
        record.transferring = false;
        if (!record.connectedAt) {
            record.connectedAt = m_clock.now();
            m_recents->connected(*uuid, *record.connectedAt);
        }
        break;
    case core::CallState::Kind::held:
        record.held = true;
        break;
    case core::CallState::Kind::transferring:
        record.transferring = true;
        break;
    case core::CallState::Kind::transferFailed:
        record.transferring = false;
        setLastError(tr("Transfer failed: ") + fromStd(state.reason));
        break;
    case core::CallState::Kind::ended:
        callEnded(*uuid, fromStd(state.reason));
        return;
    }
    if (record != callInfo(*uuid)) {
        writeCall(record);
    }
}

void Phone::hangUp(const QUuid& uuid) {
    // --- push bookkeeping: a call only announced is refused when its INVITE comes ---
    m_push.hangUp(uuid);
    // --- end of push bookkeeping ---
    // --- call history ---
    m_lastHungUpHere = uuid;
    if (const auto call = m_calls.value(uuid)) {
        call->hangup();
    }
    // The engine's own "ended" comes later, finds no call and is dropped.
    callEnded(uuid, QStringLiteral("local"));
}

void Phone::callEnded(const QUuid& uuid, const QString& reason) {
    const auto record = callInfo(uuid);
    if (!record) {
        return;
    }
    // An incoming call that never connected is a missed call, not a failure;
    // nor is a cancel from this side.
    std::optional<QString> failure;
    if (!record->connectedAt && !record->incoming && reason != u"local") {
        failure = reason;
    }
    m_recents->finish(uuid, failure);
    m_calls.remove(uuid);
    refreshActiveSipCallId();
    if (m_heldCall && m_heldCall->uuid == uuid) {
        setHeldCall(std::nullopt);
    } else {
        const auto promoted = m_heldCall;
        setHeldCall(std::nullopt);
        setActiveCall(promoted);
        const auto call = promoted ? m_calls.value(promoted->uuid) : nullptr;
        if (call && m_audio->switchTo(call)) {
            // The promoted call stays on hold until resumed; no sound may reach it.
            m_audio->setMuted(true);
        } else {
            m_audio->stop();
        }
    }
    if (onCallEnded) {
        onCallEnded();
    }
    emit callWoundUp(uuid);
}

#include "shell/CallWindows.h"

#include "live/Live.h"
#include "platform/Log.h"

CallWindows::CallWindows(Phone& phone, SettingsStore& settings, CallNotifier& notifier,
                         CallRinger& ringer, Clock& clock, QObject* parent)
    : QObject(parent), m_phone(phone), m_settings(settings), m_notifier(notifier), m_sound(ringer),
      m_clock(clock) {
    // The timer of a connected call moves once a second.
    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, &CallWindows::statusLineChanged);
    m_ringer.setInterval(ringInterval);
    // A coarse timer may ring 5% early; a ring's rhythm is heard.
    m_ringer.setTimerType(Qt::PreciseTimer);
    connect(&m_ringer, &QTimer::timeout, this, [this] { m_sound.ring(); });
    m_miniBar = m_settings.boolean(QString::fromLatin1(miniBarKey)).value_or(false);
    m_showStats = m_settings.boolean(QString::fromLatin1(showStatsKey)).value_or(false);
    m_phone.setCallMinimized(m_miniBar);
    connect(&m_notifier, &CallNotifier::actionInvoked, this, &CallWindows::handleAction);
}

void CallWindows::start() {
    if (m_started) {
        return;
    }
    m_started = true;
    connect(&m_phone, &Phone::activeCallChanged, this, &CallWindows::sync);
    sync();
}

void CallWindows::sync() {
    const std::optional<Phone::ActiveCall>& call = m_phone.activeCall();
    const bool counting = call && call->connectedAt;
    if (counting != m_tick.isActive()) {
        counting ? m_tick.start() : m_tick.stop();
    }
    emit statusLineChanged();
    // The ring and the notification go out before the window is made: they are
    // what reaches a person who is away from the screen.
    const bool ringsIn = call && call->status == Phone::ActiveCall::Status::incoming;
    if (ringsIn) {
        ring(*call);
    }
    if (call && call->uuid != m_shownCall) {
        m_shownCall = call->uuid;
        if (open) {
            open(QString::fromLatin1(windowId));
        }
        if (ringsIn && requestAttention) {
            requestAttention();
        }
    }
    if (!call && m_shownCall) {
        m_shownCall.reset();
        if (dismiss) {
            dismiss(QString::fromLatin1(windowId));
        }
    }
    if (!ringsIn && m_ringer.isActive()) {
        stopRinging();
    }
}

void CallWindows::ring(const Phone::ActiveCall& call) {
    if (m_ringer.isActive()) {
        return;
    }
    const QString title = call.remoteName.value_or(call.remote);
    const QString body =
        call.remoteName ? tr("Incoming call from %1").arg(call.remote) : tr("Incoming call");
    m_notifier.post(call.uuid.toString(QUuid::WithoutBraces).toUpper(), title, body);
    m_sound.ring();
    m_ringer.start();
    Log::info(Log::call, QStringLiteral("Ringing for an incoming call"));
    emit ringingChanged();
}

void CallWindows::stopRinging() {
    m_ringer.stop();
    m_sound.silence();
    m_notifier.withdrawAll();
    emit ringingChanged();
}

void CallWindows::handleAction(const QString& action, const QByteArray& activationToken) {
    if (action == QLatin1String(CallNotifier::answerAction)) {
        Log::info(Log::call, QStringLiteral("Answered from the notification"));
        m_phone.answer();
        if (activate) {
            activate(activationToken);
        }
        return;
    }
    if (action == QLatin1String(CallNotifier::declineAction)) {
        if (const auto& call = m_phone.activeCall()) {
            Log::info(Log::call, QStringLiteral("Declined from the notification"));
            m_phone.hangUp(call->uuid);
        }
        return;
    }
    if (activate) {
        activate(activationToken);
    }
}

void CallWindows::setMiniBar(bool miniBar) {
    m_phone.setCallMinimized(miniBar);
    if (miniBar == m_miniBar) {
        return;
    }
    m_miniBar = miniBar;
    m_settings.setBoolean(QString::fromLatin1(miniBarKey), miniBar);
    emit miniBarChanged();
}

void CallWindows::setShowStats(bool showStats) {
    if (showStats == m_showStats) {
        return;
    }
    m_showStats = showStats;
    m_settings.setBoolean(QString::fromLatin1(showStatsKey), showStats);
    emit showStatsChanged();
}

void CallWindows::followLive(Live& live) {
    const auto update = [this, &live] {
        const auto& call = live.currentCall();
        setCallRecorded(call && call->recording.value_or(false));
    };
    connect(&live, &Live::currentCallChanged, this, update);
    update();
}

void CallWindows::setCallRecorded(bool recorded) {
    if (recorded != m_callRecorded) {
        m_callRecorded = recorded;
        emit callRecordedChanged();
    }
}

QString CallWindows::statusLine() const {
    const auto& call = m_phone.activeCall();
    return call ? statusLineOf(*call, m_clock.now()) : QString();
}

QString CallWindows::statusLineOf(const Phone::ActiveCall& call, const QDateTime& now) {
    using Status = Phone::ActiveCall::Status;
    switch (call.status) {
    case Status::calling:
        return tr("Calling…");
    case Status::ringing:
        return tr("Ringing…");
    case Status::incoming:
        return tr("Incoming call");
    case Status::connected:
        break;
    }
    if (call.transferring) {
        return tr("Transferring…");
    }
    if (call.held) {
        return tr("On hold");
    }
    if (!call.connectedAt) {
        return {};
    }
    const qint64 seconds = std::max<qint64>(0, call.connectedAt->secsTo(now));
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

// Two calls at once: hold and resume, swapping the two, and handing a call on
// by a blind transfer. The engine's events (held, connected, transferring,
// transferFailed, ended) then move the records, as for a single call.

#include "telephony/Phone.h"

#include "platform/Log.h"
#include "telephony/CallAudio.h"

bool Phone::setHold(const ActiveCall& record, bool on) {
    const auto call = m_calls.value(record.uuid);
    if (!call) {
        return false;
    }
    try {
        call->setHold(on);
    } catch (...) {
        setLastError(describe(std::current_exception()));
        return false;
    }
    if (m_activeCall && m_activeCall->uuid == record.uuid) {
        // The microphone closes at once on hold, without waiting for the far
        // end to agree; on resume the person's own mute stands again.
        m_audio->setMuted(on || m_activeCall->muted);
    }
    // The record's held flag follows the engine's word, not this request.
    return true;
}

void Phone::toggleHold() {
    if (!m_activeCall || m_activeCall->status != ActiveCall::Status::connected) {
        return;
    }
    const ActiveCall record = *m_activeCall;
    setHold(record, !record.held);
}

void Phone::swap() {
    if (!m_activeCall || !m_heldCall) {
        return;
    }
    const ActiveCall old = *m_activeCall;
    const ActiveCall next = *m_heldCall;
    Log::info(
        Log::call,
        QStringLiteral("swap: %1 to the foreground, %2 on hold").arg(next.remote, old.remote));
    // The slots move first, so that the mute below is the new foreground call's.
    m_activeCall = next;
    m_heldCall = old;
    emit activeCallChanged();
    emit heldCallChanged();
    refreshActiveSipCallId();
    if (const auto call = m_calls.value(next.uuid)) {
        m_audio->switchTo(call);
    }
    if (!old.held) {
        setHold(old, true);
    }
    setHold(next, false);
}

void Phone::transfer(const QString& target) {
    if (!m_activeCall) {
        return;
    }
    const auto call = m_calls.value(m_activeCall->uuid);
    if (!call) {
        return;
    }
    try {
        QString number;
        for (const QChar c : target) {
            if (!c.isSpace()) {
                number.append(c);
            }
        }
        call->transfer(number.toStdString());
    } catch (...) {
        setLastError(describe(std::current_exception()));
    }
}

void Phone::setActiveHold(bool on) {
    if (m_activeCall && m_activeCall->status == ActiveCall::Status::connected) {
        setHold(*m_activeCall, on);
    }
}

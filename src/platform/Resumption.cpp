#include "platform/Resumption.h"

#include <QMetaObject>

#include <utility>

bool Resumption::arm(std::coroutine_handle<> waiting, std::stop_token stop) {
    m_onStop.reset();
    if (stop.stop_requested()) {
        m_slot.reset();
        return false;
    }
    // A fresh slot each time: a turn queued for an earlier wait must not
    // resume this one.
    m_slot = std::make_shared<std::coroutine_handle<>>(waiting);
    if (stop.stop_possible()) {
        m_onStop.emplace(std::move(stop), OnStop{m_slot});
    }
    return true;
}

void Resumption::resume(const Slot& slot) {
    if (!slot) {
        return;
    }
    if (const auto waiting = std::exchange(*slot, nullptr)) {
        waiting.resume();
    }
}

void Resumption::resumeNow() {
    // The slot outlives this object if the resumed coroutine frees it.
    const Slot slot = m_slot;
    resume(slot);
}

void Resumption::resumeLater(QObject* context) {
    if (!armed()) {
        return;
    }
    QMetaObject::invokeMethod(
        context, [slot = m_slot] { resume(slot); }, Qt::QueuedConnection);
}

#include "telephony/PushBookkeeping.h"

PushBookkeeping::PushBookkeeping(const SettingsStore& settings)
    : pushToken(settings.text(QString::fromLatin1(tokenKey))),
      lastPushPayload(settings.text(QString::fromLatin1(lastPayloadKey))) {}

PushBookkeeping::Claim PushBookkeeping::claim(const QString& sipCallId, bool orphanActive) {
    if (declinedPush.remove(sipCallId)) {
        return {Claim::Kind::decline, {}};
    }
    std::optional<QString> key;
    if (pendingPush.contains(sipCallId)) {
        key = sipCallId;
    } else if (pendingPush.size() == 1 && orphanActive) {
        // The push and the INVITE name the call differently.
        key = pendingPush.constBegin().key();
    }
    if (!key) {
        return {};
    }
    const QUuid uuid = pendingPush.take(*key);
    if (uuid.isNull()) {
        return {};
    }
    if (*key != sipCallId) {
        lastPushMismatch = QStringLiteral("push callId %1 ≠ INVITE %2").arg(*key, sipCallId);
    }
    return {Claim::Kind::known, uuid};
}

bool PushBookkeeping::deferAnswer(const QUuid& uuid, std::function<void(bool)> then) {
    for (auto it = pendingPush.constBegin(); it != pendingPush.constEnd(); ++it) {
        if (it.value() == uuid) {
            pendingAnswer.insert(
                uuid, then ? std::move(then) : [](bool) {});
            return true;
        }
    }
    if (then) {
        then(false);
    }
    return false;
}

void PushBookkeeping::hangUp(const QUuid& uuid) {
    for (auto it = pendingPush.begin(); it != pendingPush.end(); ++it) {
        if (it.value() == uuid) {
            declinedPush.insert(it.key());
            pendingPush.erase(it);
            if (auto answer = takePendingAnswer(uuid)) {
                answer(false);
            }
            return;
        }
    }
}

std::function<void(bool)> PushBookkeeping::takePendingAnswer(const QUuid& uuid) {
    return pendingAnswer.take(uuid);
}

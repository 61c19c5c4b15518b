#pragma once

#include "platform/SettingsStore.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QUuid>

#include <functional>
#include <optional>

// Calls announced by a push notification before their INVITE arrives. On the
// desktop nothing delivers such a push: the token and the last payload are
// read once at start and never written, nothing enters `pendingPush`, and so
// every question the call paths ask here answers "an ordinary call". The
// state is kept, inert, so that those paths read the same as where pushes exist.
class PushBookkeeping {
public:
    static constexpr char tokenKey[] = "push.voip.token";
    static constexpr char lastPayloadKey[] = "push.last";

    explicit PushBookkeeping(const SettingsStore& settings);

    // What incomingCall does with a new INVITE.
    struct Claim {
        enum class Kind { ordinary, decline, known };
        Kind kind = Kind::ordinary;
        // For known: the call the push announced.
        QUuid uuid;
    };
    // `orphanActive` tells that the active call has no engine call yet.
    Claim claim(const QString& sipCallId, bool orphanActive);
    // answerCall for a call the engine does not have: keeps `then` for the
    // INVITE and gives true when a push announced it; otherwise false, and
    // `then` (when given) hears false at once.
    bool deferAnswer(const QUuid& uuid, std::function<void(bool)> then = {});
    // The first step of hangUp: a call only announced is declined for when its INVITE comes.
    void hangUp(const QUuid& uuid);
    // The answer waiting for an announced call, taken out.
    std::function<void(bool)> takePendingAnswer(const QUuid& uuid);

    std::optional<QString> pushToken;
    std::optional<QString> lastPushPayload;
    std::optional<QString> lastPushMismatch;
    QHash<QString, QUuid> pendingPush;
    const QString answeredElsewhereReason = QStringLiteral("answered elsewhere");
    QSet<QUuid> endingCalls;
    // Never set on the desktop.
    std::function<void(const QString&, std::function<void(bool)>)> answeredElsewhere;
    QHash<QUuid, std::function<void(bool)>> pendingAnswer;
    QSet<QString> declinedPush;
};

#pragma once

#include "api/Records.h"
#include "live/Live.h"

#include <QList>
#include <QString>

#include <exception>
#include <optional>

// The decisions of the server actions that need no server: what the screens
// show for a queue, whether a call may be recorded, whom a conference adds.
// Session applies them; they are kept here so that each can be checked alone.

// A queue membership's state as shown: the live board's word when it has one.
struct AgentFlags {
    bool loggedIn = false;
    bool paused = false;
    bool operator==(const AgentFlags&) const = default;
};

namespace actions {

AgentFlags agentFlags(const QueueMembership& membership, const std::optional<Me>& me,
                      const live::Boards& boards);
// Callers waiting in all the user's queues, the live boards preferred.
int queueWaitingTotal(const QList<QueueMembership>& queues, const live::Boards& boards);
bool canRecord(bool hasCall, const std::optional<Me>& me);
// The local side of an agent change: logging out also ends a pause, and a
// pause given with it is applied last. An unknown queue changes nothing.
void applyAgent(QList<QueueMembership>& queues, const QString& queueId,
                std::optional<bool> loggedIn, std::optional<bool> paused);
// A colleague by extension (people only), otherwise a number from outside.
ParticipantTarget participantTarget(const QString& number,
                                    const std::optional<Directory>& directory);
// The server's own sentence for a refused recording when its body has one.
QString recordingFailureText(std::exception_ptr failure);
int unreadCount(const QList<VoicemailMessage>& messages);
// Now as the server writes its time stamps: UTC, seconds, "Z".
QString isoNow(const QDateTime& now);

} // namespace actions

#include "session/ActionRules.h"

#include "session/Session.h"

namespace actions {

AgentFlags agentFlags(const QueueMembership& membership, const std::optional<Me>& me,
                      const live::Boards& boards) {
    const AgentFlags own{membership.loggedIn, membership.paused};
    if (!me) {
        return own;
    }
    const auto board = boards.constFind(membership.id);
    if (board == boards.constEnd()) {
        return own;
    }
    for (const auto& agent : board->agents) {
        if (agent.userId == me->id) {
            return {agent.state != u"logged_out", agent.state == u"paused"};
        }
    }
    return own;
}

int queueWaitingTotal(const QList<QueueMembership>& queues, const live::Boards& boards) {
    qint64 total = 0;
    for (const auto& queue : queues) {
        const auto board = boards.constFind(queue.id);
        total += board != boards.constEnd() ? board->waiting.size() : queue.waiting.value_or(0);
    }
    return int(total);
}

bool canRecord(bool hasCall, const std::optional<Me>& me) {
    if (!hasCall) {
        return false;
    }
    if (!me || !me->recording) {
        return true;
    }
    return *me->recording != u"never";
}

void applyAgent(QList<QueueMembership>& queues, const QString& queueId,
                std::optional<bool> loggedIn, std::optional<bool> paused) {
    for (auto& queue : queues) {
        if (queue.id != queueId) {
            continue;
        }
        if (loggedIn) {
            queue.loggedIn = *loggedIn;
            if (!*loggedIn) {
                queue.paused = false;
            }
        }
        if (paused) {
            queue.paused = *paused;
        }
        return;
    }
}

ParticipantTarget participantTarget(const QString& number,
                                    const std::optional<Directory>& directory) {
    if (directory) {
        for (const auto& user : directory->users) {
            if (user.extension_ == number) {
                return {QStringLiteral("user"), user.id, std::nullopt};
            }
        }
    }
    return {QStringLiteral("external"), std::nullopt, number};
}

QString recordingFailureText(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const API::Failure& f) {
        if (f.kind() == API::Failure::Kind::http) {
            try {
                const auto message = decode<Message>(f.payload().toUtf8());
                if (message.message) {
                    return *message.message;
                }
                if (message.statusMessage) {
                    return *message.statusMessage;
                }
            } catch (...) {
                // Not the server's JSON: the plain failure below.
            }
        }
    } catch (...) {
    }
    return Session::failureText(failure);
}

int unreadCount(const QList<VoicemailMessage>& messages) {
    int count = 0;
    for (const auto& message : messages) {
        if (!message.readAt) {
            ++count;
        }
    }
    return count;
}

QString isoNow(const QDateTime& now) {
    return now.toUTC().toString(Qt::ISODate);
}

} // namespace actions

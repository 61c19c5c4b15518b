#include "session/QueueCard.h"

#include <QCoreApplication>

#include <algorithm>

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("QueueCard", text);
}

} // namespace

QString QueueCard::summary(const QDateTime& now) const {
    qint64 count = 0;
    std::optional<QDateTime> earliest;
    if (board) {
        count = board->waiting.size();
        for (const auto& call : board->waiting) {
            const auto since = call.since ? call.since->date() : std::nullopt;
            if (since && (!earliest || *since < *earliest)) {
                earliest = since;
            }
        }
    } else {
        count = queue.waiting.value_or(0);
    }
    if (count < 1) {
        return tr("Nobody waiting");
    }
    const QString waiting = tr("%1 waiting").arg(count);
    if (!earliest) {
        return waiting;
    }
    return tr("%1 · longest %2").arg(waiting, minutesAndSeconds(secondsBetween(*earliest, now)));
}

QList<QueueCard::WaitingRow> QueueCard::waitingRows() const {
    QList<WaitingRow> rows;
    if (!board) {
        return rows;
    }
    QList<live::QueueBoard::Waiting> calls = board->waiting;
    std::stable_sort(calls.begin(), calls.end(), [](const auto& a, const auto& b) {
        return a.position.value_or(0) < b.position.value_or(0);
    });
    rows.reserve(calls.size());
    for (const auto& call : calls) {
        WaitingRow row;
        row.place = int(rows.size()) + 1;
        row.caller = call.from ? call.from->text : tr("Unknown caller");
        // A call still being offered has nobody yet, whatever the board names.
        if (call.state != u"offering" && call.agent) {
            row.agent = call.agent->text;
        }
        row.since = call.since ? call.since->date() : std::nullopt;
        rows.append(row);
    }
    return rows;
}

QList<QueueCard::AgentChip> QueueCard::agentChips(const QString& meId) const {
    QList<AgentChip> chips;
    if (!board) {
        return chips;
    }
    for (const auto& agent : board->agents) {
        const bool isMe = !meId.isEmpty() && agent.userId == meId;
        chips.append(
            {agent.userId, isMe ? tr("You") : agent.name, agent.state, stateLabel(agent.state)});
    }
    return chips;
}

QString QueueCard::stateLabel(const QString& state) {
    if (state == u"available") {
        return tr("Available");
    }
    if (state == u"ringing") {
        return tr("Ringing");
    }
    if (state == u"on_call") {
        return tr("On a call");
    }
    if (state == u"wrap_up") {
        return tr("Wrap-up");
    }
    if (state == u"paused") {
        return tr("Paused");
    }
    if (state == u"unreachable") {
        return tr("Unreachable");
    }
    return tr("Logged out");
}

QueueCard::Tone QueueCard::stateTone(const QString& state) {
    if (state == u"available") {
        return Tone::positive;
    }
    if (state == u"ringing") {
        return Tone::orange;
    }
    if (state == u"on_call" || state == u"wrap_up") {
        return Tone::danger;
    }
    if (state == u"paused") {
        return Tone::purple;
    }
    return Tone::quiet;
}

QString QueueCard::toneName(Tone tone) {
    switch (tone) {
    case Tone::positive:
        return QStringLiteral("positive");
    case Tone::orange:
        return QStringLiteral("orange");
    case Tone::danger:
        return QStringLiteral("danger");
    case Tone::purple:
        return QStringLiteral("purple");
    case Tone::quiet:
        break;
    }
    return QStringLiteral("quiet");
}

QString QueueCard::minutesAndSeconds(qint64 seconds) {
    seconds = std::max<qint64>(seconds, 0);
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString QueueCard::runningText(qint64 seconds) {
    seconds = std::max<qint64>(seconds, 0);
    if (seconds < 3600) {
        return minutesAndSeconds(seconds);
    }
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

qint64 QueueCard::secondsBetween(const QDateTime& since, const QDateTime& now) {
    return std::max<qint64>(since.msecsTo(now) / 1000, 0);
}

#pragma once

#include "api/Records.h"
#include "live/LiveRecords.h"
#include "session/ActionRules.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

// One queue of the user as its card shows it: the membership from the REST
// list, the live board when one has come, and the agent state the two give
// together. The words and orders of the card are decided here, so that the
// screen only lays them out.
struct QueueCard {
    // A waiting call as a row of the card's panel.
    struct WaitingRow {
        // The place in the card's own list, from 1; not the server's position.
        int place = 0;
        QString caller;
        // The agent who has the call; empty while it is still offered, or when nobody has it.
        QString agent;
        // When the call began to wait; none when its stamp is not a time.
        std::optional<QDateTime> since;
        bool operator==(const WaitingRow&) const = default;
    };
    // An agent of the queue as a chip.
    struct AgentChip {
        QString userId;
        QString name;
        QString state;
        QString label;
        bool operator==(const AgentChip&) const = default;
    };
    // Which colour a state's dot takes; the palette decides the shade.
    enum class Tone { positive, orange, danger, purple, quiet };

    QueueMembership queue;
    std::optional<live::QueueBoard> board;
    AgentFlags flags;

    bool operator==(const QueueCard&) const = default;

    // "Nobody waiting", "2 waiting", or "2 waiting · longest 1:35" at `now`.
    QString summary(const QDateTime& now) const;
    // The board's calls by position, a missing one counting as 0, ties in the board's order.
    QList<WaitingRow> waitingRows() const;
    // The board's agents in its order; the signed-in user is "You".
    QList<AgentChip> agentChips(const QString& meId) const;

    // "Available", "Ringing", ...; a state this app does not know reads "Logged out".
    static QString stateLabel(const QString& state);
    static Tone stateTone(const QString& state);
    static QString toneName(Tone tone);
    // Minutes and two-digit seconds, the minutes unlimited: 3:07, 75:00.
    static QString minutesAndSeconds(qint64 seconds);
    // A running timer's text: 0:42, or 1:02:05 once there are hours.
    static QString runningText(qint64 seconds);
    // Whole seconds from `since` to `now`, never below 0.
    static qint64 secondsBetween(const QDateTime& since, const QDateTime& now);
};

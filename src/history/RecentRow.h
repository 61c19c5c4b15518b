#pragma once

#include "history/CallHistory.h"

#include <QString>

#include <optional>

// What one line of the recents list says about a call, decided here so that
// the rules are tested without a display and the screen only shows them.
struct RecentRow {
    // An incoming call nobody here took and no colleague took either.
    static bool isMissed(const CallHistory::Item& item);
    // "In progress", the talk time, "Answered by a colleague", "Failed",
    // "Not answered", "Missed · Mailbox" or "Missed", by the first that fits.
    static QString statusWord(const CallHistory::Item& item);
    // The call's own name, else the colleague's, else the contact's, else the number.
    static QString displayName(const CallHistory::Item& item,
                               const std::optional<QString>& colleagueName,
                               const std::optional<QString>& contactName);
    // The status word alone when the name is the number; else the number, " · " and the word.
    static QString subtitle(const CallHistory::Item& item, const QString& displayName);
    // Minutes, a colon and two-digit seconds: "0:07", "12:30", "75:00".
    static QString duration(double seconds);
};

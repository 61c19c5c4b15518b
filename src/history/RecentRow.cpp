#include "history/RecentRow.h"

#include <QCoreApplication>

#include <cmath>

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("RecentRow", text);
}

} // namespace

bool RecentRow::isMissed(const CallHistory::Item& item) {
    return item.incoming && !item.answered && !item.inProgress && !item.answeredElsewhere;
}

QString RecentRow::statusWord(const CallHistory::Item& item) {
    if (item.inProgress) {
        return tr("In progress");
    }
    if (item.duration && item.answered) {
        return duration(*item.duration);
    }
    if (item.answeredElsewhere) {
        return tr("Answered by a colleague");
    }
    if (item.failure) {
        return tr("Failed");
    }
    if (!item.incoming) {
        return tr("Not answered");
    }
    if (item.voicemail) {
        return tr("Missed · Mailbox");
    }
    return tr("Missed");
}

QString RecentRow::displayName(const CallHistory::Item& item,
                               const std::optional<QString>& colleagueName,
                               const std::optional<QString>& contactName) {
    if (item.name) {
        return *item.name;
    }
    if (colleagueName) {
        return *colleagueName;
    }
    if (contactName) {
        return *contactName;
    }
    return item.remote;
}

QString RecentRow::subtitle(const CallHistory::Item& item, const QString& displayName) {
    const QString word = statusWord(item);
    if (displayName == item.remote) {
        return word;
    }
    return item.remote + QStringLiteral(" · ") + word;
}

QString RecentRow::duration(double seconds) {
    // A clock that ran backwards on the server still reads as a time.
    const bool negative = seconds < 0;
    const qint64 whole = std::llround(std::fabs(seconds));
    const QString text =
        QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QChar(u'0'));
    return negative ? u'-' + text : text;
}

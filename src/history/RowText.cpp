#include "history/RowText.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QStringList>

QString RowText::date(const QDateTime& date, const QDateTime& now, const QLocale& locale) {
    const QDate day = date.toLocalTime().date();
    const QDate today = now.toLocalTime().date();
    if (day == today) {
        return locale.toString(date.toLocalTime().time(), QLocale::ShortFormat);
    }
    if (day == today.addDays(-1)) {
        return QCoreApplication::translate("RowText", "Yesterday");
    }
    if (day.daysTo(today) <= 6) {
        return locale.dayName(day.dayOfWeek(), QLocale::LongFormat);
    }
    return locale.toString(day, QLocale::ShortFormat);
}

QString RowText::monogram(const QString& name) {
    const QStringList words =
        name.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
    QString letters;
    for (const QString& word : words) {
        letters += word.at(0);
        if (letters.size() == 2) {
            break;
        }
    }
    return letters.isEmpty() ? QStringLiteral("#") : letters.toUpper();
}

#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

// The words list rows show for a person and a time, decided here so that
// every list reads alike and the rules can be tested without a display.
struct RowText {
    // When a call was, as a row says it: the time alone today, "Yesterday",
    // the weekday within six days (a future day counts as within), else the
    // short numeric date. Both times are taken in the local time zone.
    static QString date(const QDateTime& date, const QDateTime& now,
                        const QLocale& locale = QLocale());
    // The letters an avatar without a picture shows: the first letter of
    // each of the first two words, upper case; "#" when there is none.
    static QString monogram(const QString& name);
};

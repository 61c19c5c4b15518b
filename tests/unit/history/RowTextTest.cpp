#include "history/RowText.h"

#include <gtest/gtest.h>

// The date and monogram words of list rows.
namespace {

const QLocale english(QLocale::English, QLocale::UnitedKingdom);

QDateTime at(int year, int month, int day, int hour, int minute) {
    return QDateTime(QDate(year, month, day), QTime(hour, minute), Qt::LocalTime);
}

} // namespace

TEST(RowDate, TodayShowsTheTimeAlone) {
    EXPECT_EQ(RowText::date(at(2026, 11, 22, 9, 5), at(2026, 11, 22, 18, 0), english),
              english.toString(QTime(9, 5), QLocale::ShortFormat));
}

TEST(RowDate, AnEventAt2359YesterdayViewedAt0001ReadsYesterday) {
    EXPECT_EQ(RowText::date(at(2026, 11, 21, 23, 59), at(2026, 11, 22, 0, 1), english),
              "Yesterday");
}

TEST(RowDate, ExactlySixDaysAgoShowsTheWeekday) {
    // 16 November 2026 is a Monday.
    EXPECT_EQ(RowText::date(at(2026, 11, 16, 12, 0), at(2026, 11, 22, 12, 0), english), "Monday");
}

TEST(RowDate, SevenDaysAgoShowsTheNumericDate) {
    EXPECT_EQ(RowText::date(at(2026, 11, 15, 12, 0), at(2026, 11, 22, 12, 0), english),
              english.toString(QDate(2026, 11, 15), QLocale::ShortFormat));
}

TEST(RowDate, AFutureDayThatIsNotTodayShowsAWeekday) {
    // 30 November 2026 is a Monday, eight days ahead.
    EXPECT_EQ(RowText::date(at(2026, 11, 30, 8, 0), at(2026, 11, 22, 12, 0), english), "Monday");
}

TEST(Monogram, TakesTheFirstLettersOfTheFirstTwoWordsInUpperCase) {
    EXPECT_EQ(RowText::monogram("anna maria berger"), "AM");
    EXPECT_EQ(RowText::monogram("  Ben \t "), "B");
}

TEST(Monogram, ANameOfOnlyBlanksGivesAHash) {
    EXPECT_EQ(RowText::monogram("   "), "#");
    EXPECT_EQ(RowText::monogram(""), "#");
}

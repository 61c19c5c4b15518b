#include "history/RecentRow.h"

#include <gtest/gtest.h>

// The words of one line of the recents list.
namespace {

CallHistory::Item call(bool incoming) {
    CallHistory::Item item;
    item.id = QStringLiteral("c1");
    item.remote = QStringLiteral("+4930123456");
    item.incoming = incoming;
    return item;
}

} // namespace

TEST(RecentRow, AMissedCallWhoseNameIsItsNumberSaysMissedAloneAndIsMarked) {
    CallHistory::Item item = call(true);
    const QString name = RecentRow::displayName(item, std::nullopt, std::nullopt);
    EXPECT_EQ(name, "+4930123456");
    EXPECT_EQ(RecentRow::subtitle(item, name), "Missed");
    EXPECT_TRUE(RecentRow::isMissed(item));
}

TEST(RecentRow, ANamedLineStillShowsItsNumberBeforeTheWord) {
    CallHistory::Item item = call(true);
    item.name = QStringLiteral("Paula Steiner");
    const QString name = RecentRow::displayName(item, std::nullopt, std::nullopt);
    EXPECT_EQ(RecentRow::subtitle(item, name), "+4930123456 · Missed");
}

TEST(RecentRow, AColleaguesAnsweredCallIsNotMissedAndSaysSo) {
    CallHistory::Item item = call(true);
    item.answeredElsewhere = true;
    EXPECT_FALSE(RecentRow::isMissed(item));
    EXPECT_EQ(RecentRow::statusWord(item), "Answered by a colleague");
}

TEST(RecentRow, AnOutgoingUnansweredCallSaysFailedOrNotAnsweredAndIsNeverMissed) {
    CallHistory::Item item = call(false);
    EXPECT_EQ(RecentRow::statusWord(item), "Not answered");
    EXPECT_FALSE(RecentRow::isMissed(item));
    item.failure = QStringLiteral("Busy Here");
    EXPECT_EQ(RecentRow::statusWord(item), "Failed");
    EXPECT_FALSE(RecentRow::isMissed(item));
}

TEST(RecentRow, AnAnsweredCallOfZeroSecondsShowsTheFormattedZero) {
    CallHistory::Item item = call(true);
    item.answered = true;
    item.duration = 0;
    EXPECT_EQ(RecentRow::statusWord(item), "0:00");
}

TEST(RecentRow, AnAnsweredIncomingCallWithoutADurationFallsToMissedWithAPlainTitle) {
    CallHistory::Item item = call(true);
    item.answered = true;
    EXPECT_EQ(RecentRow::statusWord(item), "Missed");
    EXPECT_FALSE(RecentRow::isMissed(item));
    item.voicemail = true;
    EXPECT_EQ(RecentRow::statusWord(item), "Missed · Mailbox");
}

TEST(RecentRow, ACallUnderWayIsInProgressBeforeAnythingElse) {
    CallHistory::Item item = call(true);
    item.inProgress = true;
    item.answered = true;
    item.duration = 12;
    EXPECT_EQ(RecentRow::statusWord(item), "In progress");
    EXPECT_FALSE(RecentRow::isMissed(item));
}

TEST(RecentRow, AMissedCallThatReachedTheMailboxSaysSo) {
    CallHistory::Item item = call(true);
    item.voicemail = true;
    EXPECT_EQ(RecentRow::statusWord(item), "Missed · Mailbox");
    EXPECT_TRUE(RecentRow::isMissed(item));
}

TEST(RecentRow, TheNameComesFromTheCallThenTheColleagueThenTheContactThenTheNumber) {
    CallHistory::Item item = call(true);
    EXPECT_EQ(RecentRow::displayName(item, QStringLiteral("Ben"), QStringLiteral("Paula")), "Ben");
    EXPECT_EQ(RecentRow::displayName(item, std::nullopt, QStringLiteral("Paula")), "Paula");
    item.name = QStringLiteral("Caller");
    EXPECT_EQ(RecentRow::displayName(item, QStringLiteral("Ben"), QStringLiteral("Paula")),
              "Caller");
}

TEST(RecentRow, DurationsAreMinutesAColonAndTwoDigitSeconds) {
    EXPECT_EQ(RecentRow::duration(7), "0:07");
    EXPECT_EQ(RecentRow::duration(750), "12:30");
    EXPECT_EQ(RecentRow::duration(4500), "75:00");
    EXPECT_EQ(RecentRow::duration(59.6), "1:00");
    EXPECT_EQ(RecentRow::duration(-5), "-0:05");
}

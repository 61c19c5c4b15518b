#include "history/MissedCallWatch.h"

#include "ManualClock.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// Which ends of calls count as a missed call on this computer.
namespace {

QUuid uuid(int n) {
    return QUuid(QStringLiteral("00000000-0000-4000-8000-%1").arg(n, 12, 10, QChar('0')));
}

class MissedCallWatchTest : public testing::Test {
protected:
    MemorySettingsStore settings;
    ManualClock clock;
    Recents recents{settings, clock};
};

} // namespace

TEST_F(MissedCallWatchTest, ACallThatRangAndEndedUnansweredIsToldOnce) {
    MissedCallWatch watch(recents);
    QSignalSpy missed(&watch, &MissedCallWatch::missed);
    recents.start(uuid(1), "+4930123456", QStringLiteral("Paula"), true);
    EXPECT_EQ(missed.size(), 0);
    recents.finish(uuid(1), std::nullopt);
    ASSERT_EQ(missed.size(), 1);
    EXPECT_EQ(missed[0][0].value<Recents::Entry>().remote, "+4930123456");
    recents.start(uuid(2), "204", std::nullopt, false);
    EXPECT_EQ(missed.size(), 1);
}

TEST_F(MissedCallWatchTest, AnAnsweredCallOrAnOutgoingOneIsNotMissed) {
    MissedCallWatch watch(recents);
    QSignalSpy missed(&watch, &MissedCallWatch::missed);
    recents.start(uuid(1), "204", std::nullopt, true);
    recents.connected(uuid(1), clock.now());
    recents.finish(uuid(1), std::nullopt);
    recents.start(uuid(2), "205", std::nullopt, false);
    recents.finish(uuid(2), QStringLiteral("Busy Here"));
    recents.start(uuid(3), "206", std::nullopt, false);
    recents.finish(uuid(3), std::nullopt);
    EXPECT_EQ(missed.size(), 0);
}

TEST_F(MissedCallWatchTest, ACallTurnedAwayDuringAnotherIsMissed) {
    MissedCallWatch watch(recents);
    QSignalSpy missed(&watch, &MissedCallWatch::missed);
    recents.start(uuid(1), "204", std::nullopt, false);
    // The phone writes a second caller as started and finished at once.
    recents.start(uuid(2), "+4930123456", std::nullopt, true);
    recents.finish(uuid(2), std::nullopt);
    ASSERT_EQ(missed.size(), 1);
    EXPECT_EQ(missed[0][0].value<Recents::Entry>().id, uuid(2));
}

TEST_F(MissedCallWatchTest, CallsMissedBeforeTheWatchBeganAreNotToldAgain) {
    recents.start(uuid(1), "204", std::nullopt, true);
    recents.finish(uuid(1), std::nullopt);
    MissedCallWatch watch(recents);
    QSignalSpy missed(&watch, &MissedCallWatch::missed);
    recents.start(uuid(2), "205", std::nullopt, false);
    EXPECT_EQ(missed.size(), 0);
}

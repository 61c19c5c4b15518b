#include "RunTask.h"

#include "ManualClock.h"

#include <QCoro/QCoroTimer>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

QCoro::Task<int> answerAfter(std::chrono::milliseconds wait, int value) {
    co_await QCoro::sleepFor(wait);
    co_return value;
}

QCoro::Task<> failAfterAWait() {
    co_await QCoro::sleepFor(1ms);
    throw std::logic_error("broken");
}

QCoro::Task<int> sleepOn(ManualClock& clock) {
    co_await clock.sleep(1h);
    co_return 7;
}

} // namespace

TEST(RunTask, GivesTheValueOfATaskThatWaitsOnTheEventLoop) {
    EXPECT_EQ(runTask(answerAfter(5ms, 42)), 42);
}

TEST(RunTask, RethrowsWhatTheTaskThrew) {
    EXPECT_THROW(runTask(failAfterAWait()), std::logic_error);
}

TEST(RunTask, ATaskThatNeverFinishesIsATimeoutNotAHang) {
    ManualClock clock;
    EXPECT_THROW(runTask(sleepOn(clock), 50ms), TaskTimeout);
    // The abandoned task can still finish later without harm.
    clock.advance(2h);
    EXPECT_EQ(clock.sleepers(), 0);
}

TEST(RunTask, ATaskThatIsAlreadyDoneNeedsNoLoop) {
    auto ready = []() -> QCoro::Task<QString> { co_return QStringLiteral("now"); };
    EXPECT_EQ(runTask(ready()), "now");
}

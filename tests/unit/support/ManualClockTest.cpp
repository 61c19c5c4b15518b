#include "ManualClock.h"

#include "RunTask.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

QCoro::Task<> sleepThenMark(Clock& clock, std::chrono::milliseconds wait, bool& woke) {
    co_await clock.sleep(wait);
    woke = true;
}

} // namespace

TEST(ManualClock, TimeMovesOnlyWhenAdvanced) {
    ManualClock clock;
    const QDateTime start = clock.now();
    clock.advance(1500ms);
    EXPECT_EQ(start.msecsTo(clock.now()), 1500);
}

TEST(ManualClock, ASleeperWakesOnlyWhenItsDeadlinePasses) {
    ManualClock clock;
    bool woke = false;
    auto task = sleepThenMark(clock, 30s, woke);
    EXPECT_EQ(clock.sleepers(), 1);
    clock.advance(29s);
    EXPECT_FALSE(woke);
    clock.advance(1s);
    EXPECT_TRUE(woke);
    EXPECT_EQ(clock.sleepers(), 0);
}

TEST(ManualClock, SleepersWithDifferentDeadlinesWakeEachAtItsOwn) {
    ManualClock clock;
    bool first = false, second = false;
    auto a = sleepThenMark(clock, 2s, first);
    auto b = sleepThenMark(clock, 5s, second);
    clock.advance(3s);
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
    clock.advance(3s);
    EXPECT_TRUE(second);
}

TEST(SystemClock, SleepsOnTheEventLoopAndTellsUtcTime) {
    Clock& clock = Clock::system();
    const QDateTime before = clock.now();
    EXPECT_EQ(before.timeSpec(), Qt::UTC);
    runTask(clock.sleep(20ms));
    EXPECT_GE(before.msecsTo(clock.now()), 20);
}

TEST(ManualClock, OneAdvancePastSeveralDeadlinesWakesThemInDeadlineOrder) {
    ManualClock clock;
    std::vector<int> order;
    auto sleepThenRecord = [](ManualClock& c, std::chrono::milliseconds wait, int id,
                              std::vector<int>& into) -> QCoro::Task<> {
        co_await c.sleep(wait);
        into.push_back(id);
    };
    auto late = sleepThenRecord(clock, 9s, 3, order);
    auto early = sleepThenRecord(clock, 1s, 1, order);
    auto middle = sleepThenRecord(clock, 4s, 2, order);
    clock.advance(10s);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

namespace {

QCoro::Task<> sleepThenMarkUnless(Clock& clock, std::chrono::milliseconds wait,
                                  std::stop_token stop, bool& woke) {
    co_await clock.sleep(wait, stop);
    woke = true;
}

} // namespace

TEST(ManualClock, AStopRequestEndsASleepAtOnceAndLeavesTheOthersAsleep) {
    ManualClock clock;
    std::stop_source stopped;
    bool cut = false, other = false;
    auto a = sleepThenMarkUnless(clock, 30s, stopped.get_token(), cut);
    auto b = sleepThenMark(clock, 30s, other);
    ASSERT_EQ(clock.sleepers(), 2);
    stopped.request_stop();
    EXPECT_TRUE(cut);
    EXPECT_TRUE(a.isReady());
    EXPECT_EQ(clock.sleepers(), 1);
    clock.advance(30s);
    EXPECT_TRUE(other);
    EXPECT_EQ(clock.sleepers(), 0);
}

TEST(ManualClock, ASleepUnderAStoppedTokenDoesNotSleep) {
    ManualClock clock;
    std::stop_source stopped;
    stopped.request_stop();
    bool woke = false;
    auto task = sleepThenMarkUnless(clock, 30s, stopped.get_token(), woke);
    EXPECT_TRUE(woke);
    EXPECT_EQ(clock.sleepers(), 0);
}

TEST(SystemClock, AStopRequestEndsASleepInsideTheRequestWithoutATurnOfTheEventLoop) {
    std::stop_source stopped;
    bool woke = false;
    auto task = sleepThenMarkUnless(Clock::system(), 1h, stopped.get_token(), woke);
    EXPECT_FALSE(woke);
    stopped.request_stop();
    EXPECT_TRUE(woke);
    EXPECT_TRUE(task.isReady());
}

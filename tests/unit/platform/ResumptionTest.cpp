#include "platform/Resumption.h"

#include "EventLoopWait.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>

#include <gtest/gtest.h>

#include <coroutine>

using namespace std::chrono_literals;

namespace {

struct Parked {
    Resumption* resumption;
    const std::stop_token* stop;
    // Always asks arm(), which alone decides whether to suspend.
    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> waiting) {
        return resumption->arm(waiting, *stop);
    }
    void await_resume() const noexcept {}
};

QCoro::Task<> parkThenCount(Resumption& resumption, std::stop_token stop, int& resumed) {
    co_await Parked{&resumption, &stop};
    ++resumed;
}

} // namespace

TEST(Resumption, AQueuedResumptionRunsAtTheNextTurnOfTheEventLoop) {
    Resumption resumption;
    std::stop_source stopping;
    int resumed = 0;
    auto task = parkThenCount(resumption, stopping.get_token(), resumed);
    ASSERT_TRUE(resumption.armed());
    QObject context;
    resumption.resumeLater(&context);
    EXPECT_EQ(resumed, 0);
    ASSERT_TRUE(spinUntil([&] { return resumed == 1; }));
    EXPECT_FALSE(resumption.armed());
}

TEST(Resumption, AStopRequestOvertakingAQueuedResumptionResumesOnceInsideTheRequest) {
    Resumption resumption;
    std::stop_source stopping;
    int resumed = 0;
    auto task = parkThenCount(resumption, stopping.get_token(), resumed);
    QObject context;
    resumption.resumeLater(&context);
    stopping.request_stop();
    EXPECT_EQ(resumed, 1);
    EXPECT_TRUE(task.isReady());
    // The queued turn finds nothing left to resume.
    QCoreApplication::sendPostedEvents(&context);
    QCoreApplication::processEvents();
    EXPECT_EQ(resumed, 1);
}

TEST(Resumption, AStopAfterTheResumptionTouchesNothing) {
    Resumption resumption;
    std::stop_source stopping;
    int resumed = 0;
    auto task = parkThenCount(resumption, stopping.get_token(), resumed);
    resumption.resumeNow();
    EXPECT_EQ(resumed, 1);
    stopping.request_stop();
    EXPECT_EQ(resumed, 1);
}

TEST(Resumption, ATokenAlreadyStoppedDoesNotSuspend) {
    Resumption resumption;
    std::stop_source stopping;
    stopping.request_stop();
    int resumed = 0;
    auto task = parkThenCount(resumption, stopping.get_token(), resumed);
    EXPECT_EQ(resumed, 1);
    EXPECT_FALSE(resumption.armed());
}

#include "telephony/SerialQueue.h"
#include "Waits.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <vector>

using namespace std::chrono_literals;

TEST(SerialQueue, RunsJobsOneAtATimeInOrderOnItsOwnThread) {
    SerialQueue queue("test.queue");
    std::mutex mutex;
    std::vector<int> order;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    for (int i = 0; i < 20; ++i) {
        queue.async([&, i] {
            if (++running > 1) {
                overlapped = true;
            }
            EXPECT_TRUE(queue.onQueue());
            {
                std::lock_guard guard(mutex);
                order.push_back(i);
            }
            --running;
        });
    }
    ASSERT_EQ(queue.sync([] {}), std::nullopt);
    EXPECT_FALSE(overlapped);
    std::vector<int> expected(20);
    for (int i = 0; i < 20; ++i) {
        expected[i] = i;
    }
    EXPECT_EQ(order, expected);
    EXPECT_FALSE(queue.onQueue());
}

TEST(SerialQueue, ADelayedJobWaitsWhileLaterJobsDueNowGoFirst) {
    SerialQueue queue("test.queue");
    std::mutex mutex;
    std::vector<std::string> order;
    const auto started = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration delayedAt{};
    queue.asyncAfter(100ms, [&] {
        delayedAt = std::chrono::steady_clock::now() - started;
        std::lock_guard guard(mutex);
        order.push_back("delayed");
    });
    queue.async([&] {
        std::lock_guard guard(mutex);
        order.push_back("now");
    });
    ASSERT_TRUE(waitUntil([&] { return queue.busy() == 0; }, 2s));
    EXPECT_EQ(order, (std::vector<std::string>{"now", "delayed"}));
    EXPECT_GE(delayedAt, 100ms);
}

TEST(SerialQueue, SyncFromTheQueueRunsInPlace) {
    SerialQueue queue("test.queue");
    bool inner = false;
    ASSERT_EQ(queue.sync([&] { (void)queue.sync([&] { inner = true; }); }), std::nullopt);
    EXPECT_TRUE(inner);
}

TEST(SerialQueue, PendingJobsAreDroppedWhenTheQueueGoes) {
    std::atomic<bool> ran{false};
    {
        SerialQueue queue("test.queue");
        queue.asyncAfter(10s, [&] { ran = true; });
        EXPECT_EQ(queue.busy(), 1u);
    }
    EXPECT_FALSE(ran);
}

TEST(SerialQueue, SyncAfterShutdownGivesAnErrorAtOnceAndDoesNotRunTheJob) {
    SerialQueue queue("test.queue");
    queue.shutdown();
    bool ran = false;
    const auto started = std::chrono::steady_clock::now();
    const auto error = queue.sync([&] { ran = true; });
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(*error, "the queue test.queue has shut down");
    EXPECT_FALSE(ran);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 100ms);
    EXPECT_TRUE(queue.stopped());
}

TEST(SerialQueue, ASyncWaitingWhenTheQueueShutsDownReturnsWithAnError) {
    SerialQueue queue("test.queue");
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::promise<void> blocking;
    queue.async([&, released] {
        blocking.set_value();
        released.wait();
    });
    blocking.get_future().wait();

    std::atomic<bool> ran{false};
    auto waiter = std::async(std::launch::async, [&] { return queue.sync([&] { ran = true; }); });
    ASSERT_TRUE(waitUntil([&] { return queue.busy() == 2; }, 2s));

    // The shutdown waits for the running job, but the waiting sync is let go at once.
    auto stopping = std::async(std::launch::async, [&] { queue.shutdown(); });
    ASSERT_EQ(waiter.wait_for(2s), std::future_status::ready);
    const auto error = waiter.get();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(*error, "the queue test.queue has shut down");
    release.set_value();
    ASSERT_EQ(stopping.wait_for(2s), std::future_status::ready);
    EXPECT_FALSE(ran);
}

TEST(SerialQueue, SyncGivesNoErrorWhenTheJobRan) {
    SerialQueue queue("test.queue");
    bool ran = false;
    EXPECT_EQ(queue.sync([&] { ran = true; }), std::nullopt);
    EXPECT_TRUE(ran);
}

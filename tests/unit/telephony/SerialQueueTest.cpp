#include "telephony/SerialQueue.h"
#include "Waits.h"

#include <gtest/gtest.h>

#include <atomic>
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
    queue.sync([] {});
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
    queue.sync([&] { queue.sync([&] { inner = true; }); });
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

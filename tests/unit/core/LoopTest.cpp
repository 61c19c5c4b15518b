#include "core/Loop.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

using core::Loop;

TEST(Loop, RunsPostedWorkInTheOrderItWasPosted) {
    std::vector<int> seen;
    for (int i = 0; i < 100; ++i) {
        Loop::instance().post([&seen, i] { seen.push_back(i); });
    }
    // call() queues behind everything posted before it.
    Loop::instance().call([] { return 0; });
    ASSERT_EQ(seen.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(seen[size_t(i)], i);
    }
}

TEST(Loop, CallRunsOnTheLoopThreadAndGivesBackTheResult) {
    EXPECT_FALSE(Loop::instance().onLoop());
    const auto id = Loop::instance().call([] { return std::this_thread::get_id(); });
    EXPECT_NE(id, std::this_thread::get_id());
    EXPECT_TRUE(Loop::instance().call([] { return Loop::instance().onLoop(); }));
}

TEST(Loop, AnExceptionOnTheLoopReachesTheCaller) {
    EXPECT_THROW(Loop::instance().call([]() -> int { throw std::runtime_error("no"); }),
                 std::runtime_error);
    // And the loop goes on.
    EXPECT_EQ(Loop::instance().call([] { return 7; }), 7);
}

TEST(Loop, ACallFromTheLoopItselfRunsAtOnce) {
    const int result =
        Loop::instance().call([] { return Loop::instance().call([] { return 3; }); });
    EXPECT_EQ(result, 3);
}

TEST(Loop, ManyThreadsCanPostAtOnce) {
    std::atomic<int> count{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&count] {
            for (int i = 0; i < 250; ++i) {
                Loop::instance().post([&count] { ++count; });
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    Loop::instance().call([] { return 0; });
    EXPECT_EQ(count.load(), 1000);
}

TEST(Loop, CallOnALoopWhoseLibraryDidNotStartFailsAtOnce) {
    Loop failed([] { return ENOMEM; });
    EXPECT_FALSE(failed.running());
    const auto start = std::chrono::steady_clock::now();
    try {
        failed.call([] { return 1; });
        FAIL() << "call returned on a loop that never ran";
    } catch (const core::CoreError& error) {
        EXPECT_EQ(error.kind(), core::CoreError::Kind::message);
        EXPECT_EQ(error.text(), "The SIP engine could not start.");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
}

#pragma once

// The one thread that owns the SIP and media library. Its objects are not
// thread-safe (reference counts are plain integers), so every use of them is
// a closure run here, in the order it was posted.

#include "Core.h"

#include <functional>
#include <future>
#include <memory>
#include <type_traits>

namespace core {

class Loop {
public:
    static Loop& instance();

    // A loop of its own whose library start is start() (0 for success): lets
    // tests see what follows a start that failed.
    explicit Loop(std::function<int()> start);
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    bool onLoop() const;
    // False when the library did not start: nothing posted will ever run.
    bool running() const;
    // Work posted to a loop that is not running is dropped.
    void post(std::function<void()> work);

    // Runs work on the loop and waits for its result (or its exception).
    // Throws CoreError at once when the loop is not running.
    template <typename F> auto call(F work) -> std::invoke_result_t<F> {
        using R = std::invoke_result_t<F>;
        if (onLoop()) {
            return work();
        }
        if (!running()) {
            throw notRunning();
        }
        auto task = std::make_shared<std::packaged_task<R()>>(std::move(work));
        auto result = task->get_future();
        post([task] { (*task)(); });
        return result.get();
    }

    struct State; // the queue and the thread, in Loop.cpp

private:
    static CoreError notRunning();

    std::unique_ptr<State> m_state;
};

} // namespace core

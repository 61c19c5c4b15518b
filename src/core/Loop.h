#pragma once

// The one thread that owns the SIP and media library. Its objects are not
// thread-safe (reference counts are plain integers), so every use of them is
// a closure run here, in the order it was posted.

#include <functional>
#include <future>
#include <type_traits>

namespace core {

class Loop {
public:
    static Loop& instance();

    bool onLoop() const;
    void post(std::function<void()> work);

    // Runs work on the loop and waits for its result (or its exception).
    template <typename F> auto call(F work) -> std::invoke_result_t<F> {
        using R = std::invoke_result_t<F>;
        if (onLoop()) {
            return work();
        }
        auto task = std::make_shared<std::packaged_task<R()>>(std::move(work));
        auto result = task->get_future();
        post([task] { (*task)(); });
        return result.get();
    }

private:
    Loop();
};

} // namespace core

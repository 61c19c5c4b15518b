#pragma once

#include <QObject>

#include <coroutine>
#include <memory>
#include <optional>
#include <stop_token>

// One suspended coroutine, resumed once: by whichever comes first of its
// waker (at once, or at the next turn of the event loop) and a stop request
// on its token (at once, inside request_stop()). A wait that only a turn of
// the event loop could end would outlive the loop at exit, frame and all;
// its owner stops it instead, and it ends then and there.
class Resumption {
public:
    Resumption() = default;
    Resumption(const Resumption&) = delete;
    Resumption& operator=(const Resumption&) = delete;

    // Holds `waiting` until one of the ways below resumes it. Returns false,
    // holding nothing, when `stop` was already requested: the awaiter then
    // does not suspend at all.
    bool arm(std::coroutine_handle<> waiting, std::stop_token stop = {});
    bool armed() const { return m_slot && *m_slot; }

    void resumeNow();
    // Queued to the event loop of `context`'s thread. A stop request that
    // comes before that turn resumes it at once; the queued turn then finds
    // nothing to do.
    void resumeLater(QObject* context);

private:
    using Slot = std::shared_ptr<std::coroutine_handle<>>;
    static void resume(const Slot& slot);

    struct OnStop {
        Slot slot;
        void operator()() const { resume(slot); }
    };

    Slot m_slot;
    std::optional<std::stop_callback<OnStop>> m_onStop;
};

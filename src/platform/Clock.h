#pragma once

#include <QDateTime>

#include <QCoro/QCoroTask>

#include <chrono>
#include <stop_token>

// Time, injected wherever behaviour depends on it (back-off, token renewal,
// ringing, "Yesterday"), so that tests can drive it without waiting.
class Clock {
public:
    virtual ~Clock() = default;

    virtual QDateTime now() const = 0;
    // Suspends the calling coroutine for the given time, or until `stop` is
    // requested: then the sleep ends at once, inside the request.
    virtual QCoro::Task<> sleep(std::chrono::milliseconds duration, std::stop_token stop = {}) = 0;

    // The wall clock and the Qt event loop's timers.
    static Clock& system();
};

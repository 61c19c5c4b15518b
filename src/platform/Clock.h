#pragma once

#include <QDateTime>

#include <QCoro/QCoroTask>

#include <chrono>

// Time, injected wherever behaviour depends on it (back-off, token renewal,
// ringing, "Yesterday"), so that tests can drive it without waiting.
class Clock {
public:
    virtual ~Clock() = default;

    virtual QDateTime now() const = 0;
    // Suspends the calling coroutine for the given time.
    virtual QCoro::Task<> sleep(std::chrono::milliseconds duration) = 0;

    // The wall clock and the Qt event loop's timers.
    static Clock& system();
};

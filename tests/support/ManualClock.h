#pragma once

#include "platform/Clock.h"
#include "platform/Resumption.h"

#include <coroutine>
#include <memory>
#include <vector>

// A clock that moves only when a test moves it. advance() wakes, at once and
// in order of their deadlines, the sleepers whose deadline it passes.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime start = QDateTime(QDate(2026, 11, 22), QTime(9, 0), Qt::UTC));

    QDateTime now() const override { return m_now; }
    QCoro::Task<> sleep(std::chrono::milliseconds duration, std::stop_token stop = {}) override;

    void advance(std::chrono::milliseconds by);
    // How many coroutines are asleep on this clock.
    int sleepers() const;

private:
    struct Sleeper {
        QDateTime deadline;
        // Shared with the sleep itself, which a stop request ends early.
        std::shared_ptr<Resumption> resumption;
    };
    struct Wait;

    QDateTime m_now;
    std::vector<Sleeper> m_sleepers;
};

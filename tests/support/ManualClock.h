#pragma once

#include "platform/Clock.h"

#include <coroutine>
#include <vector>

// A clock that moves only when a test moves it. advance() wakes, at once and
// in order of their deadlines, the sleepers whose deadline it passes.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime start = QDateTime(QDate(2026, 11, 22), QTime(9, 0), Qt::UTC));

    QDateTime now() const override { return m_now; }
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override;

    void advance(std::chrono::milliseconds by);
    // How many coroutines are asleep on this clock.
    int sleepers() const { return int(m_sleepers.size()); }

private:
    struct Sleeper {
        QDateTime deadline;
        std::coroutine_handle<> handle;
    };
    struct Wait;

    QDateTime m_now;
    std::vector<Sleeper> m_sleepers;
};

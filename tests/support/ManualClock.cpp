#include "ManualClock.h"

#include <algorithm>

struct ManualClock::Wait {
    ManualClock& clock;
    QDateTime deadline;

    bool await_ready() const noexcept { return clock.m_now >= deadline; }
    void await_suspend(std::coroutine_handle<> handle) {
        clock.m_sleepers.push_back({deadline, handle});
    }
    void await_resume() const noexcept {}
};

ManualClock::ManualClock(QDateTime start) : m_now(std::move(start)) {}

QCoro::Task<> ManualClock::sleep(std::chrono::milliseconds duration) {
    co_await Wait{*this, m_now.addMSecs(duration.count())};
}

void ManualClock::advance(std::chrono::milliseconds by) {
    m_now = m_now.addMSecs(by.count());
    // A woken sleeper may go back to sleep; take the due ones out first.
    std::vector<Sleeper> due;
    auto notDue = [this](const Sleeper& s) { return s.deadline > m_now; };
    auto firstDue = std::stable_partition(m_sleepers.begin(), m_sleepers.end(), notDue);
    due.assign(firstDue, m_sleepers.end());
    m_sleepers.erase(firstDue, m_sleepers.end());
    std::stable_sort(due.begin(), due.end(),
                     [](const Sleeper& a, const Sleeper& b) { return a.deadline < b.deadline; });
    for (const Sleeper& sleeper : due) {
        sleeper.handle.resume();
    }
}

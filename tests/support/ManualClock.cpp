#include "ManualClock.h"

#include <algorithm>

struct ManualClock::Wait {
    ManualClock& clock;
    // Into the sleeping frame, not copies (see the system clock's awaiter).
    const QDateTime* deadline;
    const std::stop_token* stop;

    bool await_ready() const noexcept { return clock.m_now >= *deadline || stop->stop_requested(); }
    bool await_suspend(std::coroutine_handle<> handle) {
        auto resumption = std::make_shared<Resumption>();
        if (!resumption->arm(handle, *stop)) {
            return false;
        }
        clock.m_sleepers.push_back({*deadline, std::move(resumption)});
        return true;
    }
    void await_resume() const noexcept {}
};

ManualClock::ManualClock(QDateTime start) : m_now(std::move(start)) {}

QCoro::Task<> ManualClock::sleep(std::chrono::milliseconds duration, std::stop_token stop) {
    const QDateTime deadline = m_now.addMSecs(duration.count());
    co_await Wait{*this, &deadline, &stop};
}

int ManualClock::sleepers() const {
    return int(std::count_if(m_sleepers.begin(), m_sleepers.end(),
                             [](const Sleeper& s) { return s.resumption->armed(); }));
}

void ManualClock::advance(std::chrono::milliseconds by) {
    m_now = m_now.addMSecs(by.count());
    // Sleeps ended by a stop request leave with the next move.
    std::erase_if(m_sleepers, [](const Sleeper& s) { return !s.resumption->armed(); });
    // A woken sleeper may go back to sleep; take the due ones out first.
    std::vector<Sleeper> due;
    auto notDue = [this](const Sleeper& s) { return s.deadline > m_now; };
    auto firstDue = std::stable_partition(m_sleepers.begin(), m_sleepers.end(), notDue);
    due.assign(firstDue, m_sleepers.end());
    m_sleepers.erase(firstDue, m_sleepers.end());
    std::stable_sort(due.begin(), due.end(),
                     [](const Sleeper& a, const Sleeper& b) { return a.deadline < b.deadline; });
    for (const Sleeper& sleeper : due) {
        sleeper.resumption->resumeNow();
    }
}

#include "telephony/SerialQueue.h"

#include <pthread.h>

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label)), m_inner(std::make_shared<Inner>()) {
    m_thread = std::thread([inner = m_inner] { run(inner); });
    // The kernel keeps at most 15 characters of a thread's name.
    pthread_setname_np(m_thread.native_handle(), m_label.substr(0, 15).c_str());
}

SerialQueue::~SerialQueue() {
    std::multimap<std::pair<std::chrono::steady_clock::time_point, std::uint64_t>, Job> dropped;
    {
        std::lock_guard guard(m_inner->mutex);
        m_inner->stopping = true;
        dropped.swap(m_inner->jobs);
    }
    m_inner->wake.notify_all();
    if (onQueue()) {
        m_thread.detach(); // released from one of its own jobs: the thread ends after it
    } else if (m_thread.joinable()) {
        m_thread.join();
    }
}

void SerialQueue::asyncAfter(std::chrono::milliseconds delay, Job job) {
    {
        std::lock_guard guard(m_inner->mutex);
        if (m_inner->stopping) {
            return;
        }
        m_inner->jobs.emplace(
            std::make_pair(std::chrono::steady_clock::now() + delay, m_inner->sequence++),
            std::move(job));
    }
    m_inner->wake.notify_all();
}

void SerialQueue::sync(const Job& job) {
    if (onQueue()) {
        job();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneWake;
    bool done = false;
    async([&] {
        job();
        std::lock_guard guard(doneMutex);
        done = true;
        doneWake.notify_all();
    });
    std::unique_lock lock(doneMutex);
    doneWake.wait(lock, [&] { return done; });
}

void SerialQueue::run(const std::shared_ptr<Inner>& inner) {
    std::unique_lock lock(inner->mutex);
    while (!inner->stopping) {
        if (inner->jobs.empty()) {
            inner->wake.wait(lock);
            continue;
        }
        auto first = inner->jobs.begin();
        const auto due = first->first.first;
        // A delayed job waits; anything due earlier that arrives meanwhile goes first.
        if (due > std::chrono::steady_clock::now()) {
            inner->wake.wait_until(lock, due);
            continue;
        }
        Job job = std::move(first->second);
        inner->jobs.erase(first);
        inner->running = true;
        lock.unlock();
        job();
        job = nullptr; // what the job held goes before the next one runs
        lock.lock();
        inner->running = false;
    }
}

std::size_t SerialQueue::busy() const {
    std::lock_guard guard(m_inner->mutex);
    return m_inner->jobs.size() + (m_inner->running ? 1 : 0);
}

#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include <pthread.h>

// A thread that runs a step at a steady period, as a sound card's clock would,
// until it is stopped.
class PacedThread {
public:
    PacedThread() = default;
    ~PacedThread() { stop(); }
    PacedThread(const PacedThread&) = delete;
    PacedThread& operator=(const PacedThread&) = delete;

    // `name` is the thread's name as tools show it (at most 15 characters).
    void start(std::chrono::microseconds period, std::function<void()> step,
               const char* name = "velnor-paced") {
        stop();
        m_stopping = false;
        m_thread = std::thread([this, period, name, step = std::move(step)] {
            pthread_setname_np(pthread_self(), name);
            auto next = std::chrono::steady_clock::now();
            std::unique_lock lock(m_mutex);
            while (!m_stopping) {
                lock.unlock();
                step();
                lock.lock();
                next += period;
                m_wake.wait_until(lock, next, [this] { return m_stopping; });
            }
        });
    }

    void stop() {
        {
            std::lock_guard guard(m_mutex);
            m_stopping = true;
        }
        m_wake.notify_all();
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    bool running() const { return m_thread.joinable(); }

private:
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = true;
};

#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// A worker thread that runs jobs one at a time, in order, some after a delay.
class SerialQueue {
public:
    using Job = std::function<void()>;

    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return m_label; }

    void async(Job job) { asyncAfter(std::chrono::milliseconds(0), std::move(job)); }
    void asyncAfter(std::chrono::milliseconds delay, Job job);
    // Runs the job on the queue and waits for it; run directly when already there.
    // Gives an error, at once, when the queue has shut down or shuts down
    // before the job's turn: the job then never runs.
    [[nodiscard]] std::optional<std::string> sync(const Job& job);
    // Stops taking jobs and drops the waiting ones; the job running now
    // finishes first unless this is called from it.
    void shutdown();
    bool stopped() const;
    bool onQueue() const { return std::this_thread::get_id() == m_thread.get_id(); }
    // Jobs waiting or running.
    std::size_t busy() const;

private:
    // Shared with the thread, which may outlive the queue when the queue's
    // owner is released from one of its own jobs.
    struct Inner {
        mutable std::mutex mutex;
        std::condition_variable wake;
        // Due time, then order of arrival: jobs due together run in the order given.
        std::multimap<std::pair<std::chrono::steady_clock::time_point, std::uint64_t>, Job> jobs;
        std::uint64_t sequence = 0;
        bool running = false;
        bool stopping = false;
    };
    static void run(const std::shared_ptr<Inner>& inner);
    std::optional<std::string> stoppedError() const;

    std::string m_label;
    std::shared_ptr<Inner> m_inner;
    std::thread m_thread;
};

#include "telephony/SerialQueue.h"

#include <pthread.h>

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label)), m_inner(std::make_shared<Inner>()) {
    m_thread = std::thread([inner = m_inner] { run(inner); });
    // The kernel keeps at most 15 characters of a thread's name.
    pthread_setname_np(m_thread.native_handle(), m_label.substr(0, 15).c_str());
}

SerialQueue::~SerialQueue() {
    shutdown();
    if (onQueue()) {
        m_thread.detach(); // released from one of its own jobs: the thread ends after it
    } else if (m_thread.joinable()) {
        m_thread.join();
    }
}

void SerialQueue::shutdown() {
    std::multimap<std::pair<std::chrono::steady_clock::time_point, std::uint64_t>, Job> dropped;
    {
        std::lock_guard guard(m_inner->mutex);
        m_inner->stopping = true;
        dropped.swap(m_inner->jobs);
    }
    m_inner->wake.notify_all();
    // Outside the lock: a dropped job's captures may wake a waiting sync.
    dropped.clear();
    if (!onQueue() && m_thread.joinable()) {
        m_thread.join();
    }
}

bool SerialQueue::stopped() const {
    std::lock_guard guard(m_inner->mutex);
    return m_inner->stopping;
}

std::optional<std::string> SerialQueue::stoppedError() const {
    return "the queue " + m_label + " has shut down";
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

namespace {

// What a waiting sync shares with its job. The job's captures hold it, so when
// the queue drops the job unrun, its last copy going tells the waiter.
struct SyncWait {
    std::mutex mutex;
    std::condition_variable wake;
    bool ran = false;
    bool finished = false;

    void finish(bool didRun) {
        std::lock_guard guard(mutex);
        if (!finished) {
            ran = didRun;
            finished = true;
            wake.notify_all();
        }
    }
};

struct SyncTicket {
    std::shared_ptr<SyncWait> wait;
    explicit SyncTicket(std::shared_ptr<SyncWait> w) : wait(std::move(w)) {}
    ~SyncTicket() { wait->finish(false); }
    SyncTicket(const SyncTicket&) = delete;
    SyncTicket& operator=(const SyncTicket&) = delete;
};

} // namespace

std::optional<std::string> SerialQueue::sync(const Job& job) {
    if (stopped()) {
        return stoppedError();
    }
    if (onQueue()) {
        job();
        return std::nullopt;
    }
    auto wait = std::make_shared<SyncWait>();
    auto ticket = std::make_shared<SyncTicket>(wait);
    async([&job, ticket] {
        job();
        ticket->wait->finish(true);
    });
    ticket.reset();
    std::unique_lock lock(wait->mutex);
    wait->wake.wait(lock, [&] { return wait->finished; });
    if (!wait->ran) {
        return stoppedError();
    }
    return std::nullopt;
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

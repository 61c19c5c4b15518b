#include "Loop.h"

#include "Log.h"
#include "Sockets.h"

#include <re.h>
#define DEBUG_MODULE "loop"
#define DEBUG_LEVEL 0
#include <re_dbg.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace core {

struct Loop::State {
    std::mutex lock;
    std::condition_variable ready;
    bool started = false;
    bool running = false;
    std::deque<std::function<void()>> queue;
    struct mqueue* wake = nullptr;
    std::thread::id id;
    std::thread thread;
};

namespace {

void runQueued(int, void*, void* arg) {
    auto& s = *static_cast<Loop::State*>(arg);
    for (;;) {
        std::function<void()> work;
        {
            std::lock_guard lock(s.lock);
            if (s.queue.empty()) {
                return;
            }
            work = std::move(s.queue.front());
            s.queue.pop_front();
        }
        work();
    }
}

void forwardLibraryLog(int level, const char* text, size_t length, void*) {
    std::string line(text, length);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.pop_back();
    }
    logLine(level <= DBG_ERR ? LogLevel::warn : LogLevel::debug, "libre: " + line);
}

int startLibrary() {
    const int error = libre_init();
    if (!error) {
        dbg_init(DBG_WARNING, DBG_NONE);
        dbg_handler_set(forwardLibraryLog, nullptr);
    }
    return error;
}

} // namespace

Loop& Loop::instance() {
    // Never destroyed: the loop thread runs for the life of the process.
    static Loop* loop = new Loop(startLibrary);
    return *loop;
}

Loop::Loop(std::function<int()> start) : m_state(std::make_unique<State>()) {
    State& s = *m_state;
    s.thread = std::thread([&s, start = std::move(start)] {
        markEngineThread();
        int error = start();
        if (!error) {
            error = mqueue_alloc(&s.wake, runQueued, &s);
        }
        {
            std::lock_guard lock(s.lock);
            s.id = std::this_thread::get_id();
            s.started = true;
            s.running = !error;
        }
        s.ready.notify_all();
        if (error) {
            logLine(LogLevel::error, "the SIP library did not start");
            return;
        }
        re_main(nullptr);
    });
    std::unique_lock lock(s.lock);
    s.ready.wait(lock, [&s] { return s.started; });
}

Loop::~Loop() {
    // Only a loop that never ran ends: its thread has already returned.
    if (!m_state->running && m_state->thread.joinable()) {
        m_state->thread.join();
    } else if (m_state->thread.joinable()) {
        m_state->thread.detach();
    }
}

bool Loop::onLoop() const {
    return std::this_thread::get_id() == m_state->id;
}

bool Loop::running() const {
    return m_state->running;
}

CoreError Loop::notRunning() {
    return CoreError(CoreError::Kind::message, "The SIP engine could not start.");
}

void Loop::post(std::function<void()> work) {
    State& s = *m_state;
    if (!s.running) {
        logLine(LogLevel::warn, "the SIP engine is not running; work dropped");
        return;
    }
    {
        std::lock_guard lock(s.lock);
        s.queue.push_back(std::move(work));
    }
    mqueue_push(s.wake, 0, nullptr);
}

} // namespace core

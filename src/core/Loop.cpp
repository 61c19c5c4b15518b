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

namespace {

struct LoopState {
    std::mutex lock;
    std::condition_variable ready;
    bool started = false;
    std::deque<std::function<void()>> queue;
    struct mqueue* wake = nullptr;
    std::thread::id id;
};

LoopState& state() {
    // Never destroyed: the loop thread runs for the life of the process.
    static LoopState* shared = new LoopState;
    return *shared;
}

void runQueued(int, void*, void*) {
    auto& s = state();
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

} // namespace

Loop& Loop::instance() {
    static Loop* loop = new Loop;
    return *loop;
}

Loop::Loop() {
    auto& s = state();
    std::thread([&s] {
        markEngineThread();
        int error = libre_init();
        if (!error) {
            dbg_init(DBG_WARNING, DBG_NONE);
            dbg_handler_set(forwardLibraryLog, nullptr);
            error = mqueue_alloc(&s.wake, runQueued, nullptr);
        }
        {
            std::lock_guard lock(s.lock);
            s.id = std::this_thread::get_id();
            s.started = true;
        }
        s.ready.notify_all();
        if (error) {
            logLine(LogLevel::error, "the SIP library did not start");
            return;
        }
        re_main(nullptr);
    }).detach();
    std::unique_lock lock(s.lock);
    s.ready.wait(lock, [&s] { return s.started; });
}

bool Loop::onLoop() const {
    return std::this_thread::get_id() == state().id;
}

void Loop::post(std::function<void()> work) {
    auto& s = state();
    {
        std::lock_guard lock(s.lock);
        s.queue.push_back(std::move(work));
    }
    if (s.wake) {
        mqueue_push(s.wake, 0, nullptr);
    }
}

} // namespace core

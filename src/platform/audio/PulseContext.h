#pragma once

#include "audio/AudioBackend.h"

#include <pulse/context.h>
#include <pulse/def.h>
#include <pulse/thread-mainloop.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

// One PulseAudio context on a threaded main loop of its own. It connects by
// itself and again a little after the server went away; whoever uses it hears
// of that and of the server's sink, source and server events. Every call into
// the context, and every method here but the constructor and destructor, is
// made with the loop's lock held (PulseContext::Lock); the listeners run on the
// loop's thread with it held.
class PulseContext {
public:
    struct Listener {
        std::function<void()> ready;  // the context is ready (also at once, if it was)
        std::function<void()> lost;   // a ready context went
        std::function<void()> failed; // a connection went or could not be made
        std::function<void(pa_subscription_event_type_t)> event;
    };

    // The loop's lock for the scope of a block.
    class Lock {
    public:
        explicit Lock(const PulseContext& context) : m_loop(context.m_loop) {
            pa_threaded_mainloop_lock(m_loop);
        }
        ~Lock() { pa_threaded_mainloop_unlock(m_loop); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* m_loop;
    };

    // server: empty for the default; threadName names the loop's thread.
    PulseContext(std::string server, std::string applicationName, const char* threadName);
    ~PulseContext();
    PulseContext(const PulseContext&) = delete;
    PulseContext& operator=(const PulseContext&) = delete;

    // False when not even the main loop could be made; nothing else works then.
    bool usable() const { return m_loop != nullptr; }
    pa_threaded_mainloop* loop() const { return m_loop; }
    pa_mainloop_api* api() const { return pa_threaded_mainloop_get_api(m_loop); }
    // The context of the current connection; null between connections.
    pa_context* context() const { return m_context; }
    bool ready() const;

    // Listeners must not listen or stop listening from inside a callback.
    int listen(Listener listener);
    void unlisten(int token);

    // Waits for a ready context: a connection that failed is tried again at
    // once rather than at its next turn. An error after the bound (2 s).
    std::optional<AudioError> connected();
    // Waits until `done` holds, woken by the loop's signals; an error after the bound.
    std::optional<AudioError> waitFor(const std::function<bool()>& done);
    // Waits until the operation is done; one that did not finish within the
    // bound is cancelled, so its callback never runs.
    std::optional<AudioError> wait(pa_operation* op);
    // The context's last error.
    AudioError error() const;
    // Wakes whoever waits in waitFor.
    void signal() { pa_threaded_mainloop_signal(m_loop, 0); }

private:
    void connect();
    void dropContext();
    void scheduleReconnect();
    static void onState(pa_context* context, void* data);
    static void onEvent(pa_context* context, pa_subscription_event_type_t type, std::uint32_t,
                        void* data);

    std::string m_server;
    std::string m_name;
    pa_threaded_mainloop* m_loop = nullptr;
    pa_context* m_context = nullptr;
    pa_time_event* m_retry = nullptr;
    bool m_wasReady = false;
    // A wait for the connection ran out, and its state has not moved since:
    // the next wait for it gives up at once rather than block for the bound again.
    bool m_unanswered = false;
    // Until then, after a wait on a ready connection ran out, the server is
    // taken as frozen: waits give up at once (a state change ends it sooner).
    std::chrono::steady_clock::time_point m_silentUntil;
    std::map<int, Listener> m_listeners;
    int m_nextToken = 1;
};

#pragma once

#include <atomic>
#include <mutex>
#include <string>

struct pa_context;
struct pa_threaded_mainloop;
struct pa_time_event;

// Keeps one PulseAudio context open on a main loop of its own and follows the
// default sink through the server's events, so that whether the output is the
// machine's own speaker can be read at any moment without a round trip to the
// server. When the server goes, it connects again a little later.
class PulseOutputWatch {
public:
    PulseOutputWatch(std::string server, std::string applicationName);
    ~PulseOutputWatch();
    PulseOutputWatch(const PulseOutputWatch&) = delete;
    PulseOutputWatch& operator=(const PulseOutputWatch&) = delete;

    // The last answer; false until one came, and while no server answers.
    bool builtIn() const { return m_builtIn.load(std::memory_order_acquire); }
    // How many answers have come so far; tests wait for a new one.
    int answers() const { return m_answers.load(std::memory_order_acquire); }

private:
    // All of these run on the loop's thread, with its lock held.
    void connect();
    void scheduleReconnect();
    void ask();
    void askAgainLater();
    static void onState(pa_context* context, void* data);

    std::string m_server;
    std::string m_name;
    pa_threaded_mainloop* m_loop = nullptr;
    pa_context* m_context = nullptr;
    pa_time_event* m_retry = nullptr;
    pa_time_event* m_followUp = nullptr;
    std::atomic<bool> m_builtIn{false};
    std::atomic<int> m_answers{0};
};

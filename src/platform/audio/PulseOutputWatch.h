#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class PulseContext;
struct pa_operation;
struct pa_sink_info;
struct pa_time_event;

// Follows the call's output through the server's events on a context it
// shares, so that whether the output is the machine's own speaker can be read
// at any moment without a round trip to the server. The output is the sink
// the person chose for calls, or the server's default when they chose none or
// their choice is not there.
class PulseOutputWatch {
public:
    explicit PulseOutputWatch(std::shared_ptr<PulseContext> context, std::string sink = {});
    ~PulseOutputWatch();
    PulseOutputWatch(const PulseOutputWatch&) = delete;
    PulseOutputWatch& operator=(const PulseOutputWatch&) = delete;

    // The last answer; false until one came, and while no server answers.
    bool builtIn() const { return m_builtIn.load(std::memory_order_acquire); }
    // How many answers have come so far; tests wait for a new one.
    int answers() const { return m_answers.load(std::memory_order_acquire); }
    // The sink to watch from now on; empty follows the server's default.
    void follow(std::string sink);

private:
    // These run on the loop's thread, with its lock held.
    void ask();
    void askDefault();
    void askAgainLater();
    void record(const pa_sink_info* sink);
    // Holds a question in flight, so that the watch's end can cancel it: its
    // answer would otherwise reach a watch that is gone.
    void keep(pa_operation* op);

    std::shared_ptr<PulseContext> m_context;
    std::string m_sink; // guarded by the loop's lock
    int m_listening = 0;
    pa_time_event* m_followUp = nullptr;
    std::vector<pa_operation*> m_asking; // guarded by the loop's lock
    std::atomic<bool> m_builtIn{false};
    std::atomic<int> m_answers{0};
};

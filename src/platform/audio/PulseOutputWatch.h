#pragma once

#include <atomic>
#include <memory>

class PulseContext;
struct pa_time_event;

// Follows the default sink through the server's events on a context it
// shares, so that whether the output is the machine's own speaker can be read
// at any moment without a round trip to the server.
class PulseOutputWatch {
public:
    explicit PulseOutputWatch(std::shared_ptr<PulseContext> context);
    ~PulseOutputWatch();
    PulseOutputWatch(const PulseOutputWatch&) = delete;
    PulseOutputWatch& operator=(const PulseOutputWatch&) = delete;

    // The last answer; false until one came, and while no server answers.
    bool builtIn() const { return m_builtIn.load(std::memory_order_acquire); }
    // How many answers have come so far; tests wait for a new one.
    int answers() const { return m_answers.load(std::memory_order_acquire); }

private:
    // Both run on the loop's thread, with its lock held.
    void ask();
    void askAgainLater();

    std::shared_ptr<PulseContext> m_context;
    int m_listening = 0;
    pa_time_event* m_followUp = nullptr;
    std::atomic<bool> m_builtIn{false};
    std::atomic<int> m_answers{0};
};

#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

class PulseContext;
struct pa_stream;

// Listens to a source in the smallest fragments the server sends and notes
// when a click arrives: the instant a sound reaches the source, on this
// process's clock, to within a fragment, with nothing taken from the server's
// latency reports.
class ClickListener {
public:
    using Clock = std::chrono::steady_clock;

    explicit ClickListener(const std::string& source);
    ~ClickListener();
    ClickListener(const ClickListener&) = delete;
    ClickListener& operator=(const ClickListener&) = delete;

    // Whether the stream records; false says why on stderr.
    bool recording() const { return m_stream != nullptr; }
    // Listens for the next click.
    void arm() { m_armed = true; }
    // Waits for the armed click; false when none came within the bound.
    bool waitHeard(std::chrono::milliseconds bound);
    // When the click's first sample arrived here.
    Clock::time_point heardAt() const { return m_heardAt; }
    // The source's own latency as the server reports it, in ms (0 when it
    // reports none, or a negative one).
    double sourceLatencyMs() const { return m_sourceLatencyMs; }

private:
    static void onRead(pa_stream* stream, std::size_t, void* data);

    std::unique_ptr<PulseContext> m_context;
    pa_stream* m_stream = nullptr;
    std::atomic<bool> m_armed{false};
    std::atomic<bool> m_heard{false};
    Clock::time_point m_heardAt;
    double m_sourceLatencyMs = 0;
};

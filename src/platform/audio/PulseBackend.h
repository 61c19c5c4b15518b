#pragma once

#include "audio/AudioBackend.h"
#include "audio/PulseOutputWatch.h"
#include "audio/VoiceProcessor.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class PulseContext;

// PulseAudio's asynchronous API on one context and its threaded main loop;
// PipeWire systems serve it through pipewire-pulse. Capture is a record stream from the default
// source at the device's own rate and channels, playback a stream to the
// default sink that pulls on the main loop's thread, and a subscription to
// server, sink and source events reports configuration changes.
class PulseBackend : public AudioBackend {
public:
    struct Options {
        std::string server;          // empty: the default (PULSE_SERVER or the user's socket)
        bool voiceProcessing = true; // false: the engine refuses it, as hardware without it would
        VoiceSettings voice = VoiceSettings::tuned();
        std::string applicationName = "velnor RZ";
        std::string sink;   // empty: the default sink
        std::string source; // empty: the default source
    };

    PulseBackend() : PulseBackend(Options{}) {}
    explicit PulseBackend(Options options);
    ~PulseBackend() override;

    std::unique_ptr<AudioEngine> makeEngine() override;
    // Read from a context kept open for the backend's life and updated by the
    // server's events: it never waits on the server.
    bool outputIsBuiltIn() override;
    // How many times the call's output has been looked at so far.
    int outputAnswers() const;
    // How many times the playback of this backend's engines ran dry.
    int playbackUnderflows() const { return m_underflows->load(std::memory_order_relaxed); }
    // The output and input the next engine opens; empty follows the server's
    // default. Any thread may call it; a running engine keeps its devices.
    void setDevices(std::string sink, std::string source);
    std::string sink() const;
    std::string source() const;

    // The rule behind outputIsBuiltIn: a sink's form factor decides when it has
    // one, else its active port's type; USB and Bluetooth are never built in.
    static bool builtIn(const std::string& formFactor, const std::string& bus,
                        std::optional<std::uint32_t> portType);

private:
    mutable std::mutex m_devicesLock;
    Options m_options;
    // The one connection to the sound server: the output watch and every
    // engine's streams share it, so a call costs the server one client.
    std::shared_ptr<PulseContext> m_context;
    std::unique_ptr<PulseOutputWatch> m_watch;
    std::shared_ptr<std::atomic<int>> m_underflows = std::make_shared<std::atomic<int>>(0);
};

// What the PulseAudio engine measures, for benchmarks.
struct PulseLatency {
    double playbackMs = 0;
    double recordMs = 0;
    int underflows = 0; // times the playback buffer ran dry
};
// The latencies of a running PulseAudio engine; zero for any other engine.
PulseLatency pulseLatency(AudioEngine& engine);

#pragma once

#include "audio/AudioBackend.h"
#include "audio/EchoDelayTracker.h"
#include "audio/SampleRing.h"

#include <atomic>
#include <memory>
#include <vector>

struct SpeexResamplerState_;
namespace webrtc {
class AudioProcessing;
}

// How the echo canceller and its companions are set up.
struct VoiceSettings {
    enum class Suppression { low, moderate, high };

    bool extendedFilter = false;
    bool delayAgnostic = false;
    Suppression suppression = Suppression::moderate;
    // While the filter is still learning the room, a firmer suppression hides
    // the echo it cannot yet cancel; after that `suppression` keeps double-talk open.
    std::optional<Suppression> learningSuppression;
    double learningSeconds = 0; // of far-end sound heard
    bool noiseSuppression = true;
    bool gainControl = true;
    // Added to the delay measured from the device latencies.
    int delayOffsetMs = 0;
    // Tell the canceller where the echo was found in the microphone, rather
    // than the devices' latencies, once it has been found.
    bool trackEchoDelay = false;

    // Every component with the library's own defaults: the baseline.
    static VoiceSettings libraryDefaults() { return {}; }
    // What calls use.
    static VoiceSettings tuned();
};

// Echo cancellation, noise suppression and gain control at 16 kHz in 10 ms
// chunks. What is played reaches it through a lock-free ring from the render
// thread; the capture thread feeds that reference in just before each
// microphone chunk, with the echo delay measured from the device latencies
// or, once found, where the echo lies in the microphone.
class VoiceProcessor {
public:
    static constexpr int rate = 16000;
    static constexpr int chunk = rate / 100;

    // Absent, with the reason in `why`, when the processing cannot be set up.
    static std::unique_ptr<VoiceProcessor> make(const VoiceSettings& settings, double renderRate,
                                                AudioError* why);
    ~VoiceProcessor();

    AudioFormat outputFormat() const { return {double(rate), 1}; }

    // Render thread: mono samples as played, at the render rate. Never blocks.
    void render(const float* samples, std::uint32_t frames);
    // Capture thread: a block from the microphone in any format; appends the
    // processed mono 16 kHz samples to `out`.
    std::optional<AudioError> capture(const float* samples, std::uint32_t frames,
                                      const AudioFormat& format, std::vector<float>& out);

    // Playback plus capture latency of the devices, in ms; any thread.
    void setDeviceDelayMs(int ms) { m_deviceDelayMs.store(ms, std::memory_order_relaxed); }
    // The delay last told to the canceller.
    int reportedDelayMs() const { return m_reportedDelayMs.load(std::memory_order_relaxed); }

private:
    VoiceProcessor(const VoiceSettings& settings, webrtc::AudioProcessing* apm,
                   SpeexResamplerState_* renderResampler);

    VoiceSettings m_settings;
    std::unique_ptr<webrtc::AudioProcessing> m_apm;
    SpeexResamplerState_* m_renderResampler;
    SpeexResamplerState_* m_captureResampler = nullptr;
    AudioFormat m_captureFormat;
    SampleRing m_far;
    std::vector<float> m_mono;
    std::vector<float> m_near; // resampled microphone not yet a whole chunk
    std::vector<float> m_farChunk;
    std::vector<float> m_outChunk;
    std::atomic<int> m_deviceDelayMs{0};
    std::atomic<int> m_reportedDelayMs{0};
    std::optional<EchoDelayTracker> m_tracker;
    std::size_t m_farChunks = 0; // chunks of far-end sound fed so far
    bool m_learning = false;
};

#pragma once

#include "audio/AudioBackend.h"
#include "core/Core.h"
#include "telephony/SerialQueue.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class Converter;

// Carries sound between the audio hardware and one core call. Towards the core
// it speaks 16-bit mono 8000 Hz in frames of 160 samples; it survives device
// changes by rebuilding its capture tap, and falls back to plain capture when
// voice processing cannot be had.
//
// Engine changes run on its own serial queue; the state shared with the
// capture and render threads sits under one short lock. The getters are safe
// from any thread.
class CallAudio : public std::enable_shared_from_this<CallAudio> {
public:
    static constexpr int frame = 160;
    static constexpr std::uint32_t tapFrames = 960;
    static inline const AudioFormat playFormat{8000.0, 1};

    struct Error {
        QString domain = QStringLiteral("CallAudio");
        int code = 0;
        QString description;
    };
    using Completion = std::function<void(std::optional<Error>)>;

    // Without a backend every start fails.
    static std::shared_ptr<CallAudio> make(std::shared_ptr<AudioBackend> backend);
    ~CallAudio();
    CallAudio(const CallAudio&) = delete;
    CallAudio& operator=(const CallAudio&) = delete;

    // Brings audio up for `call` on the queue; `completion` runs there.
    void start(std::shared_ptr<core::Call> call, Completion completion);
    // Moves the running hardware to another call with no gap; false when stopped.
    bool switchTo(std::shared_ptr<core::Call> call);
    void stop();

    void setMuted(bool muted);
    bool muted() const;
    std::int64_t micFrames() const;
    int restarts() const;
    std::optional<QString> lastError() const;
    // The warning line of the statistics panel.
    std::optional<QString> audioWarning() const;

    // Samples a capture block of `frames` at `sampleRate` can give, plus slack.
    static std::uint32_t captureCapacity(std::uint32_t frames, double sampleRate);
    static float toFloat(std::int16_t sample) { return float(sample) / 32768.0f; }

    // Whether engine work (a start, a restart, a pending retry) is queued or running.
    bool busy() const { return m_queue.busy() != 0; }

private:
    friend struct CallAudioProbe; // tests reach the state the threads share

    struct State {
        std::shared_ptr<core::Call> call;
        bool muted = false;
        std::vector<std::int16_t> mic;
        std::vector<std::int16_t> speaker;
        std::int64_t micFrames = 0;
        int restarts = 0;
        std::optional<QString> lastError;
    };

    explicit CallAudio(std::shared_ptr<AudioBackend> backend);

    void begin(std::shared_ptr<core::Call> call, const Completion& completion);
    std::optional<Error> buildEngine(bool voiceProcessing);
    std::optional<Error> installCapture(AudioEngine& engine);
    void capture(const float* samples, std::uint32_t frames, const AudioFormat& format,
                 Converter& converter);
    std::shared_ptr<core::Call> frameUp(std::vector<std::int16_t>& samples,
                                        std::vector<std::vector<std::int16_t>>& frames);
    void render(float* out, std::uint32_t frames);
    std::uint32_t pull(float* out, std::uint32_t count);
    void teardown();
    void configurationChanged();
    void scheduleRestart(int attempt);
    void restart(int attempt);
    void resetState(std::shared_ptr<core::Call> call);

    std::shared_ptr<AudioBackend> m_backend;
    // Touched only on the queue.
    std::unique_ptr<AudioEngine> m_engine;
    std::optional<int> m_configObserver;
    bool m_sourceAttached = false;
    SerialQueue m_queue{"net.velnor.rz.audio"};

    mutable std::mutex m_lock;
    State m_state;
};

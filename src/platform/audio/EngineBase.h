#pragma once

#include "audio/AudioBackend.h"
#include "audio/VoiceProcessor.h"

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

// What every backend's engine shares: the tap and the source, voice processing
// between the hardware and the tap, and the list of change observers. A backend
// supplies the hardware format, starting and stopping, and calls deliverCapture
// and renderInto from its threads.
class EngineBase : public AudioEngine {
public:
    explicit EngineBase(VoiceSettings settings) : m_settings(settings) {}

    std::optional<AudioError> setVoiceProcessingEnabled(bool enabled) override;
    AudioFormat inputFormat() override;
    void installTap(std::uint32_t bufferFrames, CaptureBlock block) override;
    void removeTap() override;
    void attachSource(const AudioFormat& format, RenderBlock block) override;
    void detachSource() override;
    int addChangeObserver(ChangeHandler handler) override;
    void removeChangeObserver(int token) override;

    bool voiceProcessingEnabled() const { return m_voice != nullptr; }
    VoiceProcessor* voiceProcessor() { return m_voice.get(); }

protected:
    // The format the device gives now.
    virtual AudioFormat hardwareFormat() = 0;
    // Why voice processing cannot run here, if it cannot.
    virtual std::optional<AudioError> voiceProcessingObstacle() { return std::nullopt; }
    // Called when a tap is installed on a running engine, so the capture
    // stream can be opened again for the hardware as it is now.
    virtual void tapReplaced() {}

    // Capture thread: one block straight from the hardware.
    void deliverCapture(const float* samples, std::uint32_t frames, const AudioFormat& format);
    // Render thread: fills `frames` samples of the source format; silence without a source.
    void renderInto(float* out, std::uint32_t frames);
    // Any thread of the backend: tells every observer.
    void notifyChange();

    AudioFormat sourceFormat() const { return m_sourceFormat; }
    bool hasSource() const { return bool(m_render); }
    std::uint32_t tapFrames() const { return m_tapFrames.load(); }

private:
    VoiceSettings m_settings;
    std::unique_ptr<VoiceProcessor> m_voice;
    std::mutex m_tapMutex; // capture thread against installTap; never taken when rendering
    CaptureBlock m_tap;
    std::atomic<std::uint32_t> m_tapFrames{0};
    std::vector<float> m_processed;
    AudioFormat m_sourceFormat;
    RenderBlock m_render; // set and cleared only while stopped
    std::mutex m_observersMutex;
    std::map<int, ChangeHandler> m_observers;
    int m_nextToken = 1;
};

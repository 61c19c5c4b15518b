#pragma once

#include "audio/AudioBackend.h"
#include "audio/VoiceProcessor.h"

#include <functional>

// No device: a capture thread that delivers silence or a tone, and a render
// thread that pulls and drops, both at the pace of real time.
class NullBackend : public AudioBackend {
public:
    struct Options {
        AudioFormat hardware{48000.0, 1};
        double toneHz = 0; // 0: silence
        float toneLevel = 0.25f;
        VoiceSettings voice = VoiceSettings::tuned();
        // For measurements: may change each capture block after it is made, on
        // the capture thread, and sees each rendered block, on the render thread.
        std::function<void(float* samples, std::uint32_t frames, const AudioFormat& format)>
            shapeCapture;
        std::function<void(const float* samples, std::uint32_t frames)> rendered;
    };

    NullBackend() = default;
    explicit NullBackend(Options options) : m_options(std::move(options)) {}

    std::unique_ptr<AudioEngine> makeEngine() override;
    bool outputIsBuiltIn() override { return false; }

private:
    Options m_options;
};

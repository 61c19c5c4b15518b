#pragma once

#include "audio/AudioBackend.h"
#include "audio/VoiceProcessor.h"

// No device: a capture thread that delivers silence or a tone, and a render
// thread that pulls and drops, both at the pace of real time.
class NullBackend : public AudioBackend {
public:
    struct Options {
        AudioFormat hardware{48000.0, 1};
        double toneHz = 0; // 0: silence
        float toneLevel = 0.25f;
        VoiceSettings voice = VoiceSettings::tuned();
    };

    NullBackend() = default;
    explicit NullBackend(Options options) : m_options(options) {}

    std::unique_ptr<AudioEngine> makeEngine() override;
    bool outputIsBuiltIn() override { return false; }

private:
    Options m_options;
};

#pragma once

#include "audio/AudioBackend.h"
#include "audio/VoiceProcessor.h"

#include <memory>
#include <string>
#include <vector>

// A WAV file as the microphone and a WAV file for what is played, for tests
// and benchmarks. It can be stepped by hand or run at the pace of real time,
// and it can fake what real devices do: a configuration change, another
// hardware format, a voice-processing failure.
class FileBackend : public AudioBackend {
public:
    struct Options {
        std::string micPath;    // empty: silence
        std::string playedPath; // written when an engine stops; empty: not written
        // The format of the capture hardware; by default the microphone file's
        // (48000 Hz mono without a file).
        std::optional<AudioFormat> hardware;
        std::uint32_t blockFrames = 0; // frames a capture block; 0: 20 ms
        bool realTime = false;         // paced threads; otherwise pump()
        std::optional<AudioError> voiceProcessingFailure;
        std::optional<AudioError> startFailure;
        bool builtInOutput = true;
        VoiceSettings voice = VoiceSettings::tuned();
    };

    FileBackend() : FileBackend(Options{}) {}
    explicit FileBackend(Options options);
    ~FileBackend() override;

    std::unique_ptr<AudioEngine> makeEngine() override;
    bool outputIsBuiltIn() override;

    // Delivers `blocks` capture blocks and pulls the same span of output on
    // the calling thread, from the running engine. Gives false when none runs.
    bool pump(int blocks = 1);
    // Pulls `frames` output samples, as the render thread would.
    bool pull(std::uint32_t frames);
    // The running engine's capture stops for good while playback goes on, and
    // the engine says it is not running, as when a device goes mid-call.
    bool loseCapture();
    // How often a source was detached while a render thread still ran: a
    // render block could then be cleared under the thread calling it.
    int sourcesDetachedWhileRendering() const;
    // The hardware changes (to `hardware`, when given); observers are told on
    // the calling thread.
    void injectConfigurationChange(std::optional<AudioFormat> hardware = std::nullopt);
    // The hardware changes and no observer is told, as when a notice is late.
    void changeHardwareQuietly(const AudioFormat& hardware);
    void setBuiltInOutput(bool builtIn);
    void setStartFailure(std::optional<AudioError> failure);

    // Everything played so far, mono at the source's rate.
    std::vector<float> played() const;
    int enginesMade() const;

    struct Shared;

private:
    std::shared_ptr<Shared> m_shared;
};

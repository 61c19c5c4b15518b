#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// The audio engine as call audio needs it: a capture tap, one source node that
// is pulled for output, optional voice processing, and news of device changes.
// Each backend (PulseAudio, null, file) makes engines of this shape.

// Interleaved 32-bit float at some rate and channel count.
struct AudioFormat {
    double sampleRate = 0;
    int channels = 0;

    bool valid() const { return sampleRate > 0 && channels > 0; }
    // "48000 Hz, 2 ch, float32"
    std::string description() const;

    bool operator==(const AudioFormat&) const = default;
};

// A failure of the platform, with a code and a description for a person.
struct AudioError {
    int code = 0;
    std::string description;
};

class AudioEngine {
public:
    // A block of captured audio; runs on the engine's capture thread.
    using CaptureBlock =
        std::function<void(const float* samples, std::uint32_t frames, const AudioFormat& format)>;
    // Fills `frames` mono samples of output at the source format; runs on the
    // real-time render thread, so it must not block or allocate.
    using RenderBlock = std::function<void(float* out, std::uint32_t frames)>;
    // A change of hardware or format; runs on a thread of the backend.
    using ChangeHandler = std::function<void()>;

    virtual ~AudioEngine() = default;

    // Echo cancellation, noise suppression and gain control on the capture path,
    // with what is played as the echo reference. May fail; changes inputFormat.
    virtual std::optional<AudioError> setVoiceProcessingEnabled(bool enabled) = 0;
    // The format the capture tap delivers now; invalid when there is no input.
    virtual AudioFormat inputFormat() = 0;
    // Captures in blocks of about `bufferFrames` frames. Replaces any tap.
    virtual void installTap(std::uint32_t bufferFrames, CaptureBlock block) = 0;
    virtual void removeTap() = 0;
    // The one source node, pulled for output in `format` (mono).
    virtual void attachSource(const AudioFormat& format, RenderBlock block) = 0;
    virtual void detachSource() = 0;
    // Prepares and starts capture and playback.
    virtual std::optional<AudioError> start() = 0;
    virtual void stop() = 0;
    virtual bool isRunning() = 0;
    // Registers for changes of hardware or format; the token removes it.
    virtual int addChangeObserver(ChangeHandler handler) = 0;
    virtual void removeChangeObserver(int token) = 0;
};

class AudioBackend {
public:
    virtual ~AudioBackend() = default;

    virtual std::unique_ptr<AudioEngine> makeEngine() = 0;
    // Whether the default output is the machine's own speaker, which can feed
    // the far end's voice back into the microphone. A failed query gives false.
    virtual bool outputIsBuiltIn() = 0;
};

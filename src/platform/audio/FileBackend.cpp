#include "audio/FileBackend.h"

#include "audio/EngineBase.h"
#include "audio/PacedThread.h"
#include "audio/Wav.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <set>

class FileEngine;

struct FileBackend::Shared {
    mutable std::mutex mutex;
    Options options;
    std::optional<WavData> mic; // mixed to mono
    bool micUnreadable = false;
    AudioFormat hardware;
    std::set<FileEngine*> engines;
    std::vector<float> played;
    int made = 0;
    int detachedWhileRendering = 0;
};

namespace {

constexpr auto period = std::chrono::milliseconds(20);

} // namespace

class FileEngine : public EngineBase {
public:
    explicit FileEngine(std::shared_ptr<FileBackend::Shared> shared)
        : EngineBase(shared->options.voice), m_shared(std::move(shared)) {
        std::lock_guard guard(m_shared->mutex);
        m_shared->engines.insert(this);
        ++m_shared->made;
    }

    ~FileEngine() override {
        stop();
        std::lock_guard guard(m_shared->mutex);
        m_shared->engines.erase(this);
    }

    std::optional<AudioError> start() override {
        {
            std::lock_guard guard(m_shared->mutex);
            if (m_shared->options.startFailure) {
                return m_shared->options.startFailure;
            }
            if (m_shared->micUnreadable) {
                return AudioError{2, "cannot read " + m_shared->options.micPath};
            }
        }
        m_running = true;
        m_captureLost = false;
        if (m_shared->options.realTime) {
            m_captureThread.start(period, [this] { captureBlock(); });
            const double rate = hasSource() ? sourceFormat().sampleRate : 8000.0;
            m_renderThread.start(period, [this, rate] { renderFrames(std::uint32_t(rate / 50)); });
        }
        return std::nullopt;
    }

    void stop() override {
        m_captureThread.stop();
        m_renderThread.stop();
        m_captureLost = false;
        if (m_running) {
            m_running = false;
            std::lock_guard guard(m_shared->mutex);
            if (!m_shared->options.playedPath.empty()) {
                const double rate = hasSource() ? sourceFormat().sampleRate : 8000.0;
                writeWav(m_shared->options.playedPath,
                         WavData{AudioFormat{rate, 1}, m_shared->played});
            }
        }
    }

    // One stream lost, the other going on: what a device unplugged mid-call leaves.
    bool isRunning() override { return m_running && !m_captureLost; }

    void detachSource() override {
        if (m_renderThread.running()) {
            std::lock_guard guard(m_shared->mutex);
            ++m_shared->detachedWhileRendering;
        }
        EngineBase::detachSource();
    }

    void loseCapture() {
        m_captureThread.stop();
        m_captureLost = true;
    }

    // One capture block at the hardware format, taken from the file.
    void captureBlock() {
        AudioFormat hw;
        std::uint32_t frames = 0;
        {
            std::lock_guard guard(m_shared->mutex);
            hw = m_shared->hardware;
            frames = m_shared->options.blockFrames != 0 ? m_shared->options.blockFrames
                                                        : std::uint32_t(hw.sampleRate / 50.0);
            m_block.assign(std::size_t(frames) * hw.channels, 0.0f);
            if (m_shared->mic) {
                const WavData& mic = *m_shared->mic;
                const double step = mic.format.sampleRate / hw.sampleRate;
                for (std::uint32_t i = 0; i < frames; ++i) {
                    double at = m_micPosition + double(i) * step;
                    auto index = std::size_t(at);
                    float v = 0;
                    if (index + 1 < mic.samples.size()) {
                        double frac = at - double(index);
                        v = float((1.0 - frac) * mic.samples[index] +
                                  frac * mic.samples[index + 1]);
                    } else if (index < mic.samples.size()) {
                        v = mic.samples[index];
                    }
                    for (int c = 0; c < hw.channels; ++c) {
                        m_block[std::size_t(i) * hw.channels + c] = v;
                    }
                }
                m_micPosition += double(frames) * step;
            }
        }
        deliverCapture(m_block.data(), frames, hw);
    }

    void renderFrames(std::uint32_t frames) {
        m_out.resize(frames);
        renderInto(m_out.data(), frames);
        std::lock_guard guard(m_shared->mutex);
        m_shared->played.insert(m_shared->played.end(), m_out.begin(), m_out.end());
    }

    double captureSeconds() {
        std::lock_guard guard(m_shared->mutex);
        const AudioFormat hw = m_shared->hardware;
        const std::uint32_t frames = m_shared->options.blockFrames != 0
                                         ? m_shared->options.blockFrames
                                         : std::uint32_t(hw.sampleRate / 50.0);
        return double(frames) / hw.sampleRate;
    }

    double renderRate() { return hasSource() ? sourceFormat().sampleRate : 8000.0; }

    void changed() { notifyChange(); }

protected:
    AudioFormat hardwareFormat() override {
        std::lock_guard guard(m_shared->mutex);
        return m_shared->hardware;
    }

    std::optional<AudioError> voiceProcessingObstacle() override {
        std::lock_guard guard(m_shared->mutex);
        return m_shared->options.voiceProcessingFailure;
    }

private:
    std::shared_ptr<FileBackend::Shared> m_shared;
    PacedThread m_captureThread;
    PacedThread m_renderThread;
    std::vector<float> m_block;
    std::vector<float> m_out;
    double m_micPosition = 0;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_captureLost{false};
};

FileBackend::FileBackend(Options options) : m_shared(std::make_shared<Shared>()) {
    m_shared->options = options;
    AudioFormat hardware{48000.0, 1};
    if (!options.micPath.empty()) {
        if (auto wav = readWav(options.micPath)) {
            WavData mono{AudioFormat{wav->format.sampleRate, 1}, {}};
            const int channels = wav->format.channels;
            for (std::size_t i = 0; i + std::size_t(channels) <= wav->samples.size();
                 i += std::size_t(channels)) {
                float sum = 0;
                for (int c = 0; c < channels; ++c) {
                    sum += wav->samples[i + std::size_t(c)];
                }
                mono.samples.push_back(sum / float(channels));
            }
            hardware = wav->format;
            m_shared->mic = std::move(mono);
        } else {
            m_shared->micUnreadable = true;
        }
    }
    m_shared->hardware = options.hardware.value_or(hardware);
}

FileBackend::~FileBackend() = default;

std::unique_ptr<AudioEngine> FileBackend::makeEngine() {
    return std::make_unique<FileEngine>(m_shared);
}

bool FileBackend::outputIsBuiltIn() {
    std::lock_guard guard(m_shared->mutex);
    return m_shared->options.builtInOutput;
}

namespace {

FileEngine* runningEngine(FileBackend::Shared& shared) {
    std::lock_guard guard(shared.mutex);
    for (FileEngine* engine : shared.engines) {
        if (engine->isRunning()) {
            return engine;
        }
    }
    return nullptr;
}

} // namespace

bool FileBackend::pump(int blocks) {
    FileEngine* engine = runningEngine(*m_shared);
    if (engine == nullptr) {
        return false;
    }
    for (int i = 0; i < blocks; ++i) {
        const double seconds = engine->captureSeconds();
        engine->captureBlock();
        engine->renderFrames(std::uint32_t(std::lround(seconds * engine->renderRate())));
    }
    return true;
}

bool FileBackend::loseCapture() {
    FileEngine* engine = runningEngine(*m_shared);
    if (engine == nullptr) {
        return false;
    }
    engine->loseCapture();
    return true;
}

int FileBackend::sourcesDetachedWhileRendering() const {
    std::lock_guard guard(m_shared->mutex);
    return m_shared->detachedWhileRendering;
}

bool FileBackend::pull(std::uint32_t frames) {
    FileEngine* engine = runningEngine(*m_shared);
    if (engine == nullptr) {
        return false;
    }
    engine->renderFrames(frames);
    return true;
}

void FileBackend::injectConfigurationChange(std::optional<AudioFormat> hardware) {
    // Held while telling, so that no engine goes away meanwhile; observers only
    // schedule work and never come back into the backend.
    std::lock_guard guard(m_shared->mutex);
    if (hardware) {
        m_shared->hardware = *hardware;
    }
    for (FileEngine* engine : m_shared->engines) {
        engine->changed();
    }
}

void FileBackend::changeHardwareQuietly(const AudioFormat& hardware) {
    std::lock_guard guard(m_shared->mutex);
    m_shared->hardware = hardware;
}

void FileBackend::setBuiltInOutput(bool builtIn) {
    std::lock_guard guard(m_shared->mutex);
    m_shared->options.builtInOutput = builtIn;
}

void FileBackend::setStartFailure(std::optional<AudioError> failure) {
    std::lock_guard guard(m_shared->mutex);
    m_shared->options.startFailure = std::move(failure);
}

std::vector<float> FileBackend::played() const {
    std::lock_guard guard(m_shared->mutex);
    return m_shared->played;
}

int FileBackend::enginesMade() const {
    std::lock_guard guard(m_shared->mutex);
    return m_shared->made;
}

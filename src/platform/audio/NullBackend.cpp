#include "audio/NullBackend.h"

#include "audio/EngineBase.h"
#include "audio/PacedThread.h"

#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr auto period = std::chrono::milliseconds(20);

class NullEngine : public EngineBase {
public:
    explicit NullEngine(NullBackend::Options options)
        : EngineBase(options.voice), m_options(std::move(options)) {}
    ~NullEngine() override { stop(); }

    std::optional<AudioError> start() override {
        if (m_running) {
            return std::nullopt;
        }
        const AudioFormat hw = m_options.hardware;
        const auto captureFrames = std::uint32_t(hw.sampleRate / 50.0);
        m_capture.assign(std::size_t(captureFrames) * hw.channels, 0.0f);
        const AudioFormat play = hasSource() ? sourceFormat() : AudioFormat{8000.0, 1};
        m_render.assign(std::size_t(play.sampleRate / 50.0), 0.0f);
        m_captureThread.start(
            period,
            [this, hw, captureFrames] {
                for (std::uint32_t i = 0; i < captureFrames; ++i) {
                    float v = 0;
                    if (m_options.toneHz > 0) {
                        v = m_options.toneLevel *
                            float(std::sin(2.0 * std::numbers::pi * m_options.toneHz *
                                           double(m_position + i) / hw.sampleRate));
                    }
                    for (int c = 0; c < hw.channels; ++c) {
                        m_capture[std::size_t(i) * hw.channels + c] = v;
                    }
                }
                m_position += captureFrames;
                if (m_options.shapeCapture) {
                    m_options.shapeCapture(m_capture.data(), captureFrames, hw);
                }
                deliverCapture(m_capture.data(), captureFrames, hw);
            },
            "velnor-capture");
        m_renderThread.start(
            period,
            [this] {
                renderInto(m_render.data(), std::uint32_t(m_render.size()));
                if (m_options.rendered) {
                    m_options.rendered(m_render.data(), std::uint32_t(m_render.size()));
                }
            },
            "velnor-render");
        m_running = true;
        return std::nullopt;
    }

    void stop() override {
        m_captureThread.stop();
        m_renderThread.stop();
        m_running = false;
    }

    bool isRunning() override { return m_running; }

protected:
    AudioFormat hardwareFormat() override { return m_options.hardware; }

private:
    NullBackend::Options m_options;
    PacedThread m_captureThread;
    PacedThread m_renderThread;
    std::vector<float> m_capture;
    std::vector<float> m_render;
    std::uint64_t m_position = 0;
    bool m_running = false;
};

} // namespace

std::unique_ptr<AudioEngine> NullBackend::makeEngine() {
    return std::make_unique<NullEngine>(m_options);
}

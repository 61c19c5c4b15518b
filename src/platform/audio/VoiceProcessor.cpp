#include "audio/VoiceProcessor.h"

#include <speex/speex_resampler.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr int resamplerQuality = 3;
// One second of far-end audio: more than any capture stall worth surviving.
constexpr std::size_t farCapacity = VoiceProcessor::rate;

std::string apmError(const char* what, int code) {
    return std::string(what) + " failed (" + std::to_string(code) + ")";
}

webrtc::EchoCancellation::SuppressionLevel suppressionLevel(VoiceSettings::Suppression level) {
    switch (level) {
    case VoiceSettings::Suppression::low:
        return webrtc::EchoCancellation::kLowSuppression;
    case VoiceSettings::Suppression::moderate:
        return webrtc::EchoCancellation::kModerateSuppression;
    case VoiceSettings::Suppression::high:
        break;
    }
    return webrtc::EchoCancellation::kHighSuppression;
}

// Whether a chunk carries sound worth learning from (above about -50 dBFS).
bool audible(const std::vector<float>& chunk) {
    double sum = 0;
    for (float v : chunk) {
        sum += double(v) * v;
    }
    return sum / double(chunk.size()) > 1e-5;
}

} // namespace

VoiceSettings VoiceSettings::tuned() {
    // The streams' latency readings miss the buffering a real path adds and
    // wander with the machine's load; where the echo lies is found from the
    // signals themselves, and told to the library's plain filter once found.
    // With the delay right, low suppression keeps a looped-back room over 45 dB
    // and ducks the near end in double-talk under 3 dB. The longer filter with
    // the library's own delay search forgave a wrong delay, but ducked 5 dB.
    // Firm suppression for the first two seconds of far-end speech hides the
    // echo the filter has not yet learnt.
    VoiceSettings s;
    s.trackEchoDelay = true;
    s.suppression = Suppression::low;
    s.learningSuppression = Suppression::high;
    s.learningSeconds = 2.0;
    return s;
}

std::unique_ptr<VoiceProcessor> VoiceProcessor::make(const VoiceSettings& settings,
                                                     double renderRate, AudioError* why) {
    auto fail = [&](int code, std::string text) -> std::unique_ptr<VoiceProcessor> {
        if (why != nullptr) {
            *why = AudioError{code, std::move(text)};
        }
        return nullptr;
    };
    if (!(renderRate > 0)) {
        return fail(1, "no render rate");
    }
    webrtc::Config config;
    config.Set<webrtc::ExtendedFilter>(new webrtc::ExtendedFilter(settings.extendedFilter));
    config.Set<webrtc::DelayAgnostic>(new webrtc::DelayAgnostic(settings.delayAgnostic));
    // The experimental gain control steers an analog microphone volume, which
    // nothing here hands back to the device.
    config.Set<webrtc::ExperimentalAgc>(new webrtc::ExperimentalAgc(false));
    std::unique_ptr<webrtc::AudioProcessing> apm(webrtc::AudioProcessing::Create(config));
    if (!apm) {
        return fail(2, "the audio processing module could not be made");
    }
    int err = apm->echo_cancellation()->Enable(true);
    if (err != 0) {
        return fail(err, apmError("echo cancellation", err));
    }
    const VoiceSettings::Suppression first =
        settings.learningSuppression.value_or(settings.suppression);
    err = apm->echo_cancellation()->set_suppression_level(suppressionLevel(first));
    if (err != 0) {
        return fail(err, apmError("echo suppression level", err));
    }
    if (settings.noiseSuppression) {
        err = apm->noise_suppression()->Enable(true);
        if (err != 0) {
            return fail(err, apmError("noise suppression", err));
        }
    }
    if (settings.gainControl) {
        err = apm->gain_control()->set_mode(webrtc::GainControl::kAdaptiveDigital);
        if (err == 0) {
            err = apm->gain_control()->Enable(true);
        }
        if (err != 0) {
            return fail(err, apmError("gain control", err));
        }
    }
    int rerr = 0;
    SpeexResamplerState* render = speex_resampler_init(1, spx_uint32_t(std::lround(renderRate)),
                                                       spx_uint32_t(rate), resamplerQuality, &rerr);
    if (render == nullptr) {
        return fail(rerr, speex_resampler_strerror(rerr));
    }
    return std::unique_ptr<VoiceProcessor>(new VoiceProcessor(settings, apm.release(), render));
}

VoiceProcessor::VoiceProcessor(const VoiceSettings& settings, webrtc::AudioProcessing* apm,
                               SpeexResamplerState_* renderResampler)
    : m_settings(settings), m_apm(apm), m_renderResampler(renderResampler), m_far(farCapacity),
      m_farChunk(chunk), m_outChunk(chunk),
      m_learning(settings.learningSuppression.has_value() && settings.learningSeconds > 0) {
    if (settings.trackEchoDelay) {
        m_tracker.emplace();
    }
}

VoiceProcessor::~VoiceProcessor() {
    speex_resampler_destroy(m_renderResampler);
    if (m_captureResampler != nullptr) {
        speex_resampler_destroy(m_captureResampler);
    }
}

void VoiceProcessor::render(const float* samples, std::uint32_t frames) {
    // Stack buffers only: this runs on the real-time thread.
    float out[1024];
    std::uint32_t done = 0;
    while (done < frames) {
        spx_uint32_t inLen = std::min<std::uint32_t>(frames - done, 256);
        spx_uint32_t outLen = sizeof out / sizeof out[0];
        speex_resampler_process_float(m_renderResampler, 0, samples + done, &inLen, out, &outLen);
        if (inLen == 0) {
            break;
        }
        m_far.push(out, outLen);
        done += inLen;
    }
}

std::optional<AudioError> VoiceProcessor::capture(const float* samples, std::uint32_t frames,
                                                  const AudioFormat& format,
                                                  std::vector<float>& out) {
    if (!format.valid()) {
        return AudioError{1, "invalid capture format " + format.description()};
    }
    if (m_captureResampler == nullptr || !(format == m_captureFormat)) {
        if (m_captureResampler != nullptr) {
            speex_resampler_destroy(m_captureResampler);
        }
        int err = 0;
        m_captureResampler = speex_resampler_init(1, spx_uint32_t(std::lround(format.sampleRate)),
                                                  spx_uint32_t(rate), resamplerQuality, &err);
        if (m_captureResampler == nullptr) {
            return AudioError{err, speex_resampler_strerror(err)};
        }
        m_captureFormat = format;
        m_near.clear();
    }
    m_mono.resize(frames);
    for (std::uint32_t i = 0; i < frames; ++i) {
        float sum = 0;
        for (int c = 0; c < format.channels; ++c) {
            sum += samples[std::size_t(i) * format.channels + c];
        }
        m_mono[i] = sum / float(format.channels);
    }
    const std::size_t pendingBefore = m_near.size();
    std::size_t room = std::size_t(double(frames) * rate / format.sampleRate) + 64;
    m_near.resize(pendingBefore + room);
    spx_uint32_t inLen = frames;
    spx_uint32_t outLen = spx_uint32_t(room);
    speex_resampler_process_float(m_captureResampler, 0, m_mono.data(), &inLen,
                                  m_near.data() + pendingBefore, &outLen);
    m_near.resize(pendingBefore + outLen);

    // The far end waits in the ring for up to a block, the near end in this
    // block for up to a block: both shift the echo's place in the stream.
    const std::size_t farWaiting = m_far.available();
    const std::size_t total = m_near.size();
    std::size_t offset = 0;
    while (total - offset >= std::size_t(chunk)) {
        while (m_far.available() >= std::size_t(chunk)) {
            m_far.pop(m_farChunk.data(), chunk);
            const float* far[] = {m_farChunk.data()};
            m_apm->AnalyzeReverseStream(far, chunk, rate, webrtc::AudioProcessing::kMono);
            if (m_tracker) {
                m_tracker->far(m_farChunk.data());
            }
            if (m_learning && audible(m_farChunk) &&
                double(++m_farChunks) * 0.01 >= m_settings.learningSeconds) {
                m_learning = false;
                m_apm->echo_cancellation()->set_suppression_level(
                    suppressionLevel(m_settings.suppression));
            }
        }
        const double nearWaitMs = double(total - offset) * 1000.0 / rate;
        const double farWaitMs = double(farWaiting) * 1000.0 / rate / 2.0;
        int delay = m_deviceDelayMs.load(std::memory_order_relaxed) + m_settings.delayOffsetMs +
                    int(std::lround(nearWaitMs - farWaitMs));
        if (m_tracker) {
            m_tracker->near(m_near.data() + offset);
            if (const auto found = m_tracker->delayMs()) {
                delay = *found;
            }
        }
        delay = std::clamp(delay, 0, 500);
        m_reportedDelayMs.store(delay, std::memory_order_relaxed);
        m_apm->set_stream_delay_ms(delay);
        const float* src[] = {m_near.data() + offset};
        float* dst[] = {m_outChunk.data()};
        int err = m_apm->ProcessStream(src, chunk, rate, webrtc::AudioProcessing::kMono, rate,
                                       webrtc::AudioProcessing::kMono, dst);
        if (err != 0) {
            m_near.erase(m_near.begin(), m_near.begin() + std::ptrdiff_t(offset + chunk));
            return AudioError{err, apmError("processing", err)};
        }
        out.insert(out.end(), m_outChunk.begin(), m_outChunk.end());
        offset += chunk;
    }
    m_near.erase(m_near.begin(), m_near.begin() + std::ptrdiff_t(offset));
    return std::nullopt;
}

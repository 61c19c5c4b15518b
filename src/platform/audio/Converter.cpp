#include "audio/Converter.h"

#include <speex/speex_resampler.h>

#include <algorithm>
#include <cmath>

namespace {

// Speech quality at a modest cost; 3 is the resampler's own choice for VoIP.
constexpr int resamplerQuality = 3;

} // namespace

std::unique_ptr<Converter> Converter::make(const AudioFormat& from) {
    if (!from.valid() || from.sampleRate > 768000.0 || from.channels > 32) {
        return nullptr;
    }
    int err = 0;
    auto rate = static_cast<spx_uint32_t>(std::lround(from.sampleRate));
    SpeexResamplerState* resampler =
        speex_resampler_init(1, rate, spx_uint32_t(wireRate), resamplerQuality, &err);
    if (resampler == nullptr || err != RESAMPLER_ERR_SUCCESS) {
        return nullptr;
    }
    return std::unique_ptr<Converter>(new Converter(from, resampler));
}

Converter::Converter(const AudioFormat& from, SpeexResamplerState_* resampler)
    : m_from(from), m_resampler(resampler) {}

Converter::~Converter() {
    speex_resampler_destroy(m_resampler);
}

Converter::Result Converter::convert(const float* samples, std::uint32_t frames, std::int16_t* out,
                                     std::uint32_t capacity) {
    Result result;
    if (frames == 0) {
        return result;
    }
    const int channels = m_from.channels;
    m_mono.resize(frames);
    for (std::uint32_t i = 0; i < frames; ++i) {
        float sum = 0;
        for (int c = 0; c < channels; ++c) {
            sum += samples[std::size_t(i) * channels + c];
        }
        // Scaled to the 16-bit range before filtering, so rounding happens once.
        m_mono[i] = sum / float(channels) * 32768.0f;
    }
    m_out.resize(capacity);
    spx_uint32_t consumed = 0;
    spx_uint32_t written = 0;
    while (consumed < frames && written < capacity) {
        spx_uint32_t inLen = frames - consumed;
        spx_uint32_t outLen = capacity - written;
        int err = speex_resampler_process_float(m_resampler, 0, m_mono.data() + consumed, &inLen,
                                                m_out.data() + written, &outLen);
        if (err != RESAMPLER_ERR_SUCCESS) {
            result.error = AudioError{err, speex_resampler_strerror(err)};
            return result;
        }
        if (inLen == 0 && outLen == 0) {
            break;
        }
        consumed += inLen;
        written += outLen;
    }
    for (spx_uint32_t i = 0; i < written; ++i) {
        float v = std::nearbyint(m_out[i]);
        out[i] = std::int16_t(std::clamp(v, -32768.0f, 32767.0f));
    }
    result.frames = written;
    return result;
}

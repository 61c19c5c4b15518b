#include "AudioCodec.h"

#include <opus/opus.h>
#include <spandsp.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>

extern "C" {
#include <rem/rem_g711.h>
}

namespace core {

namespace {

// The tables misread the one sample whose negation does not fit.
std::int16_t clipped(std::int16_t sample) {
    return sample == -32768 ? std::int16_t(-32767) : sample;
}

std::uint8_t toUlaw(std::int16_t sample) {
    return g711_pcm2ulaw(clipped(sample));
}

std::uint8_t toAlaw(std::int16_t sample) {
    return g711_pcm2alaw(clipped(sample));
}

} // namespace

std::uint32_t rtpClockRate(Codec codec) {
    return codec == Codec::opus ? 48000 : 8000;
}

std::uint32_t rtpFrameTicks(Codec codec) {
    return codec == Codec::opus ? 960 : 160;
}

const char* codecName(Codec codec) {
    switch (codec) {
    case Codec::pcmu:
        return "PCMU";
    case Codec::pcma:
        return "PCMA";
    case Codec::g722:
        return "G722";
    case Codec::opus:
        return "opus";
    }
    return "?";
}

AudioEncoder::AudioEncoder(Codec codec) : m_codec(codec) {
    if (codec == Codec::opus) {
        int error = 0;
        m_opus = opus_encoder_create(8000, 1, OPUS_APPLICATION_VOIP, &error);
        if (!m_opus) {
            throw std::runtime_error("opus encoder");
        }
        opus_encoder_ctl(m_opus, OPUS_SET_INBAND_FEC(1));
        opus_encoder_ctl(m_opus, OPUS_SET_PACKET_LOSS_PERC(5));
        opus_encoder_ctl(m_opus, OPUS_SET_COMPLEXITY(5));
    } else if (codec == Codec::g722) {
        m_g722 = g722_encode_init(nullptr, 64000, G722_SAMPLE_RATE_8000);
    }
}

AudioEncoder::~AudioEncoder() {
    if (m_opus) {
        opus_encoder_destroy(m_opus);
    }
    if (m_g722) {
        g722_encode_free(m_g722);
    }
}

std::vector<std::uint8_t> AudioEncoder::encode(const std::int16_t* pcm, int samples) {
    std::vector<std::uint8_t> out;
    switch (m_codec) {
    case Codec::pcmu:
        out.reserve(size_t(samples));
        for (int i = 0; i < samples; ++i)
            out.push_back(toUlaw(pcm[i]));
        break;
    case Codec::pcma:
        out.reserve(size_t(samples));
        for (int i = 0; i < samples; ++i)
            out.push_back(toAlaw(pcm[i]));
        break;
    case Codec::g722: {
        out.resize(size_t(samples));
        const int bytes = g722_encode(m_g722, out.data(), pcm, samples);
        out.resize(size_t(std::max(bytes, 0)));
        break;
    }
    case Codec::opus: {
        out.resize(400);
        const int bytes = opus_encode(m_opus, pcm, samples, out.data(), opus_int32(out.size()));
        out.resize(size_t(std::max(bytes, 0)));
        break;
    }
    }
    return out;
}

void Concealer::heard(const std::int16_t* samples, int count) {
    m_pitch = 0;
    m_lostSamples = 0;
    if (count >= historySize) {
        std::memcpy(m_history, samples + count - historySize, sizeof m_history);
    } else {
        std::memmove(m_history, m_history + count,
                     size_t(historySize - count) * sizeof(std::int16_t));
        std::memcpy(m_history + historySize - count, samples, size_t(count) * sizeof(std::int16_t));
    }
    m_filled = std::min(historySize, m_filled + count);
}

void Concealer::conceal(std::int16_t* out, int count) {
    if (m_filled < historySize) {
        std::fill(out, out + count, 0);
        return;
    }
    if (m_pitch == 0) {
        // The lag between 2.5 and 20 ms at which the last 20 ms best matches itself.
        constexpr int window = 160;
        double best = -1;
        m_pitch = 80;
        for (int lag = 20; lag <= 160; ++lag) {
            double product = 0, energy = 1;
            for (int i = historySize - window; i < historySize; ++i) {
                product += double(m_history[i]) * m_history[i - lag];
                energy += double(m_history[i - lag]) * m_history[i - lag];
            }
            const double score = product / std::sqrt(energy);
            if (score > best) {
                best = score;
                m_pitch = lag;
            }
        }
        m_phase = 0;
    }
    constexpr int fadeSamples = 800; // 100 ms to silence
    for (int i = 0; i < count; ++i) {
        const double gain = std::max(0.0, 1.0 - double(m_lostSamples) / fadeSamples);
        const std::int16_t sample = m_history[historySize - m_pitch + m_phase];
        out[i] = std::int16_t(double(sample) * gain);
        m_phase = (m_phase + 1) % m_pitch;
        ++m_lostSamples;
    }
}

AudioDecoder::AudioDecoder(Codec codec) : m_codec(codec) {
    if (codec == Codec::opus) {
        int error = 0;
        m_opus = opus_decoder_create(8000, 1, &error);
        if (!m_opus) {
            throw std::runtime_error("opus decoder");
        }
    } else {
        if (codec == Codec::g722) {
            m_g722 = g722_decode_init(nullptr, 64000, G722_SAMPLE_RATE_8000);
        }
    }
}

AudioDecoder::~AudioDecoder() {
    if (m_opus) {
        opus_decoder_destroy(m_opus);
    }
    if (m_g722) {
        g722_decode_free(m_g722);
    }
}

int AudioDecoder::decode(const std::uint8_t* payload, std::size_t size, std::int16_t* out,
                         int capacity) {
    int samples = 0;
    switch (m_codec) {
    case Codec::pcmu:
        samples = int(std::min<std::size_t>(size, std::size_t(capacity)));
        for (int i = 0; i < samples; ++i)
            out[i] = g711_u2l[payload[i]];
        break;
    case Codec::pcma:
        samples = int(std::min<std::size_t>(size, std::size_t(capacity)));
        for (int i = 0; i < samples; ++i)
            out[i] = g711_A2l[payload[i]];
        break;
    case Codec::g722:
        // Two samples at most for each byte, before the conversion to 8000 Hz.
        if (int(size) * 2 > capacity) {
            return 0;
        }
        samples = std::max(g722_decode(m_g722, out, payload, int(size)), 0);
        break;
    case Codec::opus:
        samples = std::max(opus_decode(m_opus, payload, opus_int32(size), out, capacity, 0), 0);
        break;
    }
    if (!m_opus && samples > 0) {
        m_concealer.heard(out, samples);
    }
    return samples;
}

void AudioDecoder::conceal(std::int16_t* out) {
    if (m_opus) {
        const int samples = opus_decode(m_opus, nullptr, 0, out, frameSamples, 0);
        if (samples != frameSamples) {
            std::fill(out, out + frameSamples, 0);
        }
    } else {
        m_concealer.conceal(out, frameSamples);
    }
}

void AudioDecoder::decode(const std::vector<std::uint8_t>& payload,
                          std::vector<std::int16_t>& out) {
    const size_t start = out.size();
    out.resize(start + maxDecodedSamples(payload.size()));
    const int samples =
        decode(payload.data(), payload.size(), out.data() + start, int(out.size() - start));
    out.resize(start + size_t(samples));
}

void AudioDecoder::conceal(std::vector<std::int16_t>& out) {
    const size_t start = out.size();
    out.resize(start + frameSamples);
    conceal(out.data() + start);
}

} // namespace core

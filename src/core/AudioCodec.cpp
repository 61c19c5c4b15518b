#include "AudioCodec.h"

#include <opus/opus.h>
#include <spandsp.h>

#include <algorithm>
#include <cstdint>
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
    case Codec::pcmu: return "PCMU";
    case Codec::pcma: return "PCMA";
    case Codec::g722: return "G722";
    case Codec::opus: return "opus";
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
        for (int i = 0; i < samples; ++i) out.push_back(toUlaw(pcm[i]));
        break;
    case Codec::pcma:
        out.reserve(size_t(samples));
        for (int i = 0; i < samples; ++i) out.push_back(toAlaw(pcm[i]));
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
        m_plc = plc_init(nullptr);
    }
}

AudioDecoder::~AudioDecoder() {
    if (m_opus) {
        opus_decoder_destroy(m_opus);
    }
    if (m_g722) {
        g722_decode_free(m_g722);
    }
    if (m_plc) {
        plc_free(static_cast<plc_state_t*>(m_plc));
    }
}

void AudioDecoder::decode(const std::vector<std::uint8_t>& payload, std::vector<std::int16_t>& out) {
    const size_t start = out.size();
    switch (m_codec) {
    case Codec::pcmu:
        for (std::uint8_t byte : payload) out.push_back(g711_u2l[byte]);
        break;
    case Codec::pcma:
        for (std::uint8_t byte : payload) out.push_back(g711_A2l[byte]);
        break;
    case Codec::g722: {
        out.resize(start + payload.size() * 2);
        const int samples = g722_decode(m_g722, out.data() + start, payload.data(), int(payload.size()));
        out.resize(start + size_t(std::max(samples, 0)));
        break;
    }
    case Codec::opus: {
        // Up to 120 ms in one packet.
        out.resize(start + 960);
        const int samples =
            opus_decode(m_opus, payload.data(), opus_int32(payload.size()), out.data() + start, 960, 0);
        out.resize(start + size_t(std::max(samples, 0)));
        break;
    }
    }
    if (m_plc && out.size() > start) {
        plc_rx(static_cast<plc_state_t*>(m_plc), out.data() + start, int(out.size() - start));
    }
}

void AudioDecoder::conceal(std::vector<std::int16_t>& out) {
    const size_t start = out.size();
    out.resize(start + frameSamples);
    if (m_opus) {
        const int samples = opus_decode(m_opus, nullptr, 0, out.data() + start, frameSamples, 0);
        if (samples != frameSamples) {
            std::fill(out.begin() + long(start), out.end(), 0);
        }
    } else {
        plc_fillin(static_cast<plc_state_t*>(m_plc), out.data() + start, frameSamples);
    }
}

} // namespace core

#pragma once

// The voice codecs, all seen from the engine's own rate: frames of 160
// samples at 8000 Hz go in and come out. Opus and G.722 run their own
// conversion to and from that rate; lost frames are concealed, not muted.

#include "JitterBuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct OpusEncoder;
struct OpusDecoder;
struct g722_encode_state_s;
struct g722_decode_state_s;

namespace core {

inline constexpr int frameSamples = 160;

// The RTP clock of a codec, and how far its clock moves in one frame.
std::uint32_t rtpClockRate(Codec codec);
std::uint32_t rtpFrameTicks(Codec codec);
const char* codecName(Codec codec);

class AudioEncoder {
public:
    explicit AudioEncoder(Codec codec);
    ~AudioEncoder();
    AudioEncoder(const AudioEncoder&) = delete;
    AudioEncoder& operator=(const AudioEncoder&) = delete;

    Codec codec() const { return m_codec; }
    std::vector<std::uint8_t> encode(const std::int16_t* pcm, int samples);

private:
    Codec m_codec;
    OpusEncoder* m_opus = nullptr;
    g722_encode_state_s* m_g722 = nullptr;
};

// Stands in for lost frames of a waveform codec: repeats the last pitch period
// of what was heard, fading out over about 100 ms.
class Concealer {
public:
    // What was really heard, in order.
    void heard(const std::int16_t* samples, int count);
    // One frame in place of a lost one.
    void conceal(std::int16_t* out, int count);

private:
    static constexpr int historySize = 320;
    std::int16_t m_history[historySize] = {};
    int m_filled = 0;
    int m_pitch = 0; // in samples, while concealing; 0 when not
    int m_phase = 0; // position within the repeated period
    int m_lostSamples = 0;
};

class AudioDecoder {
public:
    explicit AudioDecoder(Codec codec);
    ~AudioDecoder();
    AudioDecoder(const AudioDecoder&) = delete;
    AudioDecoder& operator=(const AudioDecoder&) = delete;

    Codec codec() const { return m_codec; }
    // The most samples one payload of that size can decode to: Opus packets
    // carry up to 120 ms, G.722 up to two samples a byte.
    static std::size_t maxDecodedSamples(std::size_t payloadSize) {
        return std::max<std::size_t>(960, payloadSize * 2);
    }
    // Decodes into out, which has room for capacity samples at 8000 Hz, and
    // gives the number written. Allocates nothing: it runs on the render thread.
    int decode(const std::uint8_t* payload, std::size_t size, std::int16_t* out, int capacity);
    // Writes one frame (frameSamples) that stands in for a lost one.
    void conceal(std::int16_t* out);
    // The same, appending to a vector.
    void decode(const std::vector<std::uint8_t>& payload, std::vector<std::int16_t>& out);
    void conceal(std::vector<std::int16_t>& out);

private:
    Codec m_codec;
    OpusDecoder* m_opus = nullptr;
    g722_decode_state_s* m_g722 = nullptr;
    Concealer m_concealer;
};

} // namespace core

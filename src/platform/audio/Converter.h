#pragma once

#include "audio/AudioBackend.h"

#include <cstdint>
#include <memory>
#include <vector>

struct SpeexResamplerState_;

// From the hardware's format to the wire's 16-bit mono 8000 Hz. The resampler's
// filter state is kept between blocks, so block edges leave no clicks: make one
// converter per stream of blocks.
class Converter {
public:
    static constexpr double wireRate = 8000.0;

    // Absent when no converter from `from` can be made.
    static std::unique_ptr<Converter> make(const AudioFormat& from);
    ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    struct Result {
        std::uint32_t frames = 0; // samples written to `out`
        std::optional<AudioError> error;
    };
    // Mixes the channels down, resamples and rounds to 16 bits; writes at most
    // `capacity` samples.
    Result convert(const float* samples, std::uint32_t frames, std::int16_t* out,
                   std::uint32_t capacity);

    const AudioFormat& from() const { return m_from; }

private:
    Converter(const AudioFormat& from, SpeexResamplerState_* resampler);

    AudioFormat m_from;
    SpeexResamplerState_* m_resampler;
    std::vector<float> m_mono;
    std::vector<float> m_out;
};

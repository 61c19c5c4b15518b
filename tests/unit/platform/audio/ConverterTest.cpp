#include "audio/Converter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

std::vector<float> tone(AudioFormat format, std::size_t frames, double hz) {
    std::vector<float> out;
    for (std::size_t i = 0; i < frames; ++i) {
        float v =
            0.5f * float(std::sin(2.0 * std::numbers::pi * hz * double(i) / format.sampleRate));
        for (int c = 0; c < format.channels; ++c) {
            out.push_back(v);
        }
    }
    return out;
}

} // namespace

TEST(Converter, A20MsBlockAt48kHzGives160Samples) {
    auto converter = Converter::make({48000.0, 1});
    ASSERT_NE(converter, nullptr);
    auto in = tone({48000.0, 1}, 960, 300);
    std::vector<std::int16_t> out(176);
    auto result = converter->convert(in.data(), 960, out.data(), 176);
    EXPECT_EQ(result.error, std::nullopt);
    EXPECT_EQ(result.frames, 160u);
}

TEST(Converter, A441FrameBlockAt44100HzGives80Samples) {
    auto converter = Converter::make({44100.0, 2});
    ASSERT_NE(converter, nullptr);
    auto in = tone({44100.0, 2}, 441, 300);
    std::vector<std::int16_t> out(96);
    EXPECT_EQ(converter->convert(in.data(), 441, out.data(), 96).frames, 80u);
}

TEST(Converter, BlocksGiveTheSameSamplesAsOneLongBlock) {
    const AudioFormat format{44100.0, 1};
    auto in = tone(format, 441 * 20, 700);
    auto whole = Converter::make(format);
    std::vector<std::int16_t> once(1700);
    auto all = whole->convert(in.data(), std::uint32_t(in.size() / 1), once.data(), 1700);
    ASSERT_EQ(all.frames, 1600u);
    auto blocks = Converter::make(format);
    std::vector<std::int16_t> pieces;
    for (std::size_t b = 0; b < 20; ++b) {
        std::vector<std::int16_t> out(96);
        auto r = blocks->convert(in.data() + b * 441, 441, out.data(), 96);
        pieces.insert(pieces.end(), out.begin(), out.begin() + r.frames);
    }
    ASSERT_EQ(pieces.size(), 1600u);
    for (std::size_t i = 0; i < 1600; ++i) {
        ASSERT_NEAR(pieces[i], once[i], 1) << i;
    }
}

TEST(Converter, ChannelsAreMixedAndFullScaleClips) {
    auto converter = Converter::make({8000.0, 2});
    std::vector<float> in;
    for (int i = 0; i < 160; ++i) {
        in.push_back(1.5f);
        in.push_back(1.5f);
    }
    std::vector<std::int16_t> out(176);
    auto r = converter->convert(in.data(), 160, out.data(), 176);
    ASSERT_EQ(r.frames, 160u);
    EXPECT_EQ(out[100], 32767);
}

TEST(Converter, NoneForAFormatWithoutRateOrChannels) {
    EXPECT_EQ(Converter::make({0.0, 1}), nullptr);
    EXPECT_EQ(Converter::make({48000.0, 0}), nullptr);
}

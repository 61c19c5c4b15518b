#include "audio/SampleRing.h"
#include "audio/VoiceProcessor.h"
#include "audio/Wav.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(Wav, SixteenBitRoundTrip) {
    QTemporaryDir dir;
    const std::string path = dir.filePath("a.wav").toStdString();
    WavData data{{16000.0, 2}, {0.0f, 0.5f, -0.5f, -1.0f, 0.25f, 0.125f}};
    ASSERT_TRUE(writeWav(path, data));
    auto back = readWav(path);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->format, (AudioFormat{16000.0, 2}));
    EXPECT_EQ(back->samples, data.samples);
}

TEST(Wav, AFileThatIsNoWavReadsAsNothing) {
    QTemporaryDir dir;
    const std::string path = dir.filePath("b.wav").toStdString();
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fputs("not a wav at all", f);
    std::fclose(f);
    EXPECT_EQ(readWav(path), std::nullopt);
    EXPECT_EQ(readWav(dir.filePath("missing.wav").toStdString()), std::nullopt);
}

namespace {

// A 16-bit mono WAV at 8 kHz whose chunk lengths are given, not derived.
std::vector<unsigned char> wavBytes(std::uint32_t fmtSize, std::uint32_t dataSize,
                                    std::size_t samples, std::size_t fmtBytes = 16) {
    std::vector<unsigned char> out;
    const auto put = [&out](std::uint32_t v, int n) {
        for (int i = 0; i < n; ++i) {
            out.push_back((unsigned char)(v >> (8 * i)));
        }
    };
    const auto text = [&out](const char* t) {
        for (int i = 0; i < 4; ++i) {
            out.push_back((unsigned char)t[i]);
        }
    };
    text("RIFF");
    put(0, 4);
    text("WAVE");
    text("fmt ");
    put(fmtSize, 4);
    const std::size_t fmtStart = out.size();
    put(1, 2);
    put(1, 2);
    put(8000, 4);
    put(16000, 4);
    put(2, 2);
    put(16, 2);
    out.resize(fmtStart + fmtBytes);
    text("data");
    put(dataSize, 4);
    for (std::size_t i = 0; i < samples; ++i) {
        put(0x4000, 2);
    }
    return out;
}

} // namespace

TEST(Wav, AChunkThatClaimsMoreThanTheFileHoldsIsRefused) {
    EXPECT_TRUE(parseWav(wavBytes(16, 8, 4)).has_value());
    EXPECT_EQ(parseWav(wavBytes(16, 10, 4)), std::nullopt);
    EXPECT_EQ(parseWav(wavBytes(16, 0x7fffffff, 4)), std::nullopt);
    // A format chunk cut short by the end of the file.
    auto cut = wavBytes(16, 8, 0);
    cut.resize(12 + 8 + 10);
    EXPECT_EQ(parseWav(cut), std::nullopt);
    EXPECT_EQ(parseWav(wavBytes(0xfffffff0, 8, 4)), std::nullopt);
}

TEST(Wav, SamplesOfUnknownLengthReadToTheEnd) {
    const auto wav = parseWav(wavBytes(16, 0xffffffff, 5));
    ASSERT_TRUE(wav.has_value());
    EXPECT_EQ(wav->samples, std::vector<float>(5, 0.5f));
}

TEST(Wav, AnOddFormatChunkIsPaddedToAnEvenLength) {
    auto bytes = wavBytes(17, 4, 2, 18);
    const auto wav = parseWav(bytes);
    ASSERT_TRUE(wav.has_value());
    EXPECT_EQ(wav->samples, std::vector<float>(2, 0.5f));
}

TEST(SampleRing, KeepsOrderAndRefusesWhatDoesNotFit) {
    SampleRing ring(4);
    const float in[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(ring.push(in, 5), 4u);
    float out[5] = {};
    EXPECT_EQ(ring.pop(out, 2), 2u);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 2);
    EXPECT_EQ(ring.push(in, 2), 2u);
    EXPECT_EQ(ring.pop(out, 5), 4u);
    EXPECT_EQ(out[0], 3);
    EXPECT_EQ(out[3], 2);
    EXPECT_EQ(ring.available(), 0u);
}

TEST(VoiceProcessor, Gives16kHzMonoInWhole10MsChunks) {
    AudioError why;
    auto voice = VoiceProcessor::make(VoiceSettings::tuned(), 8000.0, &why);
    ASSERT_NE(voice, nullptr) << why.description;
    EXPECT_EQ(voice->outputFormat(), (AudioFormat{16000.0, 1}));
    std::vector<float> block(441 * 2, 0.1f); // 10 ms at 44.1 kHz stereo
    std::vector<float> far(80, 0.0f);
    std::size_t total = 0;
    for (int i = 0; i < 10; ++i) {
        voice->render(far.data(), 80);
        std::vector<float> out;
        EXPECT_EQ(voice->capture(block.data(), 441, {44100.0, 2}, out), std::nullopt);
        EXPECT_EQ(out.size() % 160, 0u);
        total += out.size();
    }
    EXPECT_GE(total, 1440u); // 100 ms less the resampler's filter
    EXPECT_LE(total, 1600u);
}

#include "audio/PulseBackend.h"

#include <pulse/def.h>

TEST(PulseBuiltInRule, TheInternalSpeakerIsBuiltInAndHeadsetsAreNot) {
    EXPECT_TRUE(PulseBackend::builtIn("internal", "", std::nullopt));
    EXPECT_FALSE(PulseBackend::builtIn("headset", "", std::nullopt));
    EXPECT_FALSE(PulseBackend::builtIn("headphone", "pci", PA_DEVICE_PORT_TYPE_SPEAKER));
    EXPECT_TRUE(PulseBackend::builtIn("", "pci", PA_DEVICE_PORT_TYPE_SPEAKER));
    EXPECT_FALSE(PulseBackend::builtIn("", "pci", PA_DEVICE_PORT_TYPE_HEADPHONES));
    EXPECT_FALSE(PulseBackend::builtIn("", "usb", PA_DEVICE_PORT_TYPE_SPEAKER));
    EXPECT_FALSE(PulseBackend::builtIn("internal", "bluetooth", std::nullopt));
    EXPECT_FALSE(PulseBackend::builtIn("", "", std::nullopt));
}

#include "audio/DelayEstimate.h"

TEST(DelayEstimate, AMomentaryJumpIsNotReported) {
    DelayEstimate estimate;
    EXPECT_EQ(estimate.add(22), 22);
    for (int reading : {24, 21, 23, 22, 25}) {
        EXPECT_EQ(estimate.add(reading), 22); // within the hysteresis: no news
    }
    EXPECT_EQ(estimate.add(165), 22);
    EXPECT_EQ(estimate.add(23), 22);
}

TEST(DelayEstimate, ALastingChangeIsFollowed) {
    DelayEstimate estimate;
    for (int i = 0; i < 9; ++i) {
        estimate.add(20);
    }
    int reported = 0;
    for (int i = 0; i < 9; ++i) {
        reported = estimate.add(60);
    }
    EXPECT_EQ(reported, 60);
}

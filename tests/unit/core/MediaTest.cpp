#include "core/AudioCodec.h"
#include "core/JitterBuffer.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace core;

namespace {

MediaPacket packet(std::uint16_t seq) {
    MediaPacket p;
    p.seq = seq;
    p.timestamp = std::uint32_t(seq) * 160;
    p.codec = Codec::pcmu;
    const std::vector<std::uint8_t> bytes(160, std::uint8_t(seq));
    p.assign(bytes.data(), bytes.size());
    return p;
}

std::vector<std::int16_t> tone(int frames, double hz = 1000) {
    std::vector<std::int16_t> pcm;
    for (int i = 0; i < frames * frameSamples; ++i) {
        pcm.push_back(std::int16_t(8000 * std::sin(2 * M_PI * hz * i / 8000.0)));
    }
    return pcm;
}

double power(const std::vector<std::int16_t>& pcm, size_t from) {
    double sum = 0;
    for (size_t i = from; i < pcm.size(); ++i)
        sum += double(pcm[i]) * pcm[i];
    return sum / double(pcm.size() - from);
}

} // namespace

TEST(JitterBuffer, PlaysPacketsInSequenceOrderWhateverTheArrivalOrder) {
    JitterBuffer buffer;
    buffer.put(packet(11), 20, 8000);
    buffer.put(packet(10), 21, 8000);
    buffer.put(packet(12), 40, 8000);
    MediaPacket out;
    ASSERT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(out.seq, 10);
    ASSERT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(out.seq, 11);
    ASSERT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(out.seq, 12);
}

TEST(JitterBuffer, AMissingPacketIsReportedAsLostAndPlayMovesOn) {
    JitterBuffer buffer;
    buffer.put(packet(1), 0, 8000);
    buffer.put(packet(3), 40, 8000);
    MediaPacket out;
    EXPECT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(buffer.take(out), JitterBuffer::Take::lost);
    EXPECT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(out.seq, 3);
}

TEST(JitterBuffer, NothingArrivedIsEmpty) {
    JitterBuffer buffer;
    MediaPacket out;
    EXPECT_EQ(buffer.take(out), JitterBuffer::Take::empty);
}

TEST(JitterBuffer, SequenceNumbersWrapWithoutAJump) {
    JitterBuffer buffer;
    buffer.put(packet(65535), 0, 8000);
    buffer.put(packet(0), 20, 8000);
    MediaPacket out;
    EXPECT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(out.seq, 65535);
    EXPECT_EQ(buffer.take(out), JitterBuffer::Take::packet);
    EXPECT_EQ(out.seq, 0);
}

TEST(JitterBuffer, GrowsUnderJitterAndStaysWithinEightFrames) {
    JitterBuffer buffer;
    EXPECT_EQ(buffer.targetFrames(), 1);
    MediaPacket out;
    // Packets every 20 ms of media but arriving with up to 80 ms of scatter.
    for (int i = 0; i < 400; ++i) {
        const double arrival = i * 20.0 + ((i * 37) % 5) * 20.0;
        buffer.put(packet(std::uint16_t(i)), arrival, 8000);
        buffer.take(out);
    }
    EXPECT_GT(buffer.targetFrames(), 2);
    EXPECT_LE(buffer.targetFrames(), JitterBuffer::maxFrames);
}

TEST(JitterBuffer, ShrinksBackWhenTheNetworkIsCalm) {
    JitterBuffer buffer;
    MediaPacket out;
    int i = 0;
    for (; i < 200; ++i) {
        buffer.put(packet(std::uint16_t(i)), i * 20.0 + ((i * 37) % 5) * 20.0, 8000);
        buffer.take(out);
    }
    const int grown = buffer.targetFrames();
    for (; i < 3000; ++i) {
        buffer.put(packet(std::uint16_t(i)), i * 20.0 + 100, 8000);
        buffer.take(out);
    }
    EXPECT_LT(buffer.targetFrames(), grown);
    EXPECT_GE(buffer.targetFrames(), JitterBuffer::minFrames);
}

TEST(AudioCodec, EachCodecCarriesAToneAtTheEnginesRate) {
    for (Codec codec : {Codec::pcmu, Codec::pcma, Codec::g722, Codec::opus}) {
        AudioEncoder encoder(codec);
        AudioDecoder decoder(codec);
        const auto input = tone(50);
        std::vector<std::int16_t> output;
        for (int f = 0; f < 50; ++f) {
            const auto bytes = encoder.encode(input.data() + f * frameSamples, frameSamples);
            ASSERT_FALSE(bytes.empty()) << codecName(codec);
            decoder.decode(bytes, output);
        }
        ASSERT_EQ(output.size(), input.size()) << codecName(codec);
        // Past the codec's start-up, the power is close to the input's.
        const double ratio = power(output, 2000) / power(input, 2000);
        EXPECT_GT(ratio, 0.5) << codecName(codec);
        EXPECT_LT(ratio, 2.0) << codecName(codec);
    }
}

TEST(AudioCodec, ConcealmentContinuesTheSoundInsteadOfSilence) {
    for (Codec codec : {Codec::pcmu, Codec::g722, Codec::opus}) {
        AudioEncoder encoder(codec);
        AudioDecoder decoder(codec);
        const auto input = tone(20);
        std::vector<std::int16_t> output;
        for (int f = 0; f < 20; ++f) {
            decoder.decode(encoder.encode(input.data() + f * frameSamples, frameSamples), output);
        }
        std::vector<std::int16_t> concealed;
        decoder.conceal(concealed);
        ASSERT_EQ(concealed.size(), size_t(frameSamples));
        EXPECT_GT(power(concealed, 0), 0.1 * power(input, 0)) << codecName(codec);
    }
}

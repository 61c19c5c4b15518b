#include "audio/EchoDelayTracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int rate = EchoDelayTracker::rate;
constexpr int chunk = EchoDelayTracker::chunk;
constexpr int earlyMs = 20; // how far before the strongest path the delay is told

// Speech-like far end: coloured noise in syllables of 150 to 300 ms with short gaps.
std::vector<float> talk(double seconds, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0f, 0.1f);
    std::uniform_int_distribution<int> syllable(rate * 15 / 100, rate * 30 / 100);
    std::uniform_int_distribution<int> gap(rate * 3 / 100, rate * 12 / 100);
    std::vector<float> out(std::size_t(seconds * rate), 0.0f);
    float low = 0;
    std::size_t at = 0;
    while (at < out.size()) {
        const auto length = std::size_t(syllable(random));
        for (std::size_t i = 0; i < length && at < out.size(); ++i, ++at) {
            low = 0.7f * low + noise(random);
            out[at] = low * float(std::sin(M_PI * double(i) / double(length)));
        }
        at += std::size_t(gap(random));
    }
    return out;
}

// What the microphone hears: the far end back after `delayMs` at half its
// level, a reflection 8 ms later, and the local room's own noise.
std::vector<float> heard(const std::vector<float>& far, int delayMs, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0f, 0.001f);
    const auto delay = std::size_t(delayMs * rate / 1000);
    const auto reflection = delay + std::size_t(8 * rate / 1000);
    std::vector<float> mic(far.size());
    for (std::size_t n = 0; n < mic.size(); ++n) {
        mic[n] = noise(random);
        if (n >= delay) {
            mic[n] += 0.5f * far[n - delay];
        }
        if (n >= reflection) {
            mic[n] += 0.2f * far[n - reflection];
        }
    }
    return mic;
}

// Feeds the two as a capture thread would: the far end in uneven bursts (two
// chunks, none, one, one), each microphone chunk after the far end that came
// before it. After every microphone chunk `check` gets the delay told and the
// delay the canceller should be told: far samples fed since the one the
// microphone hears at the chunk's start, less the early margin. `delayMs`
// gives the echo's delay at a microphone sample.
template <typename Delay, typename Check>
void feed(EchoDelayTracker& tracker, const std::vector<float>& far, const std::vector<float>& mic,
          Delay delayMs, Check check) {
    static constexpr int bursts[] = {2, 0, 1, 1};
    std::size_t farFed = 0;
    const std::size_t chunks = mic.size() / chunk;
    for (std::size_t k = 0; k < chunks; ++k) {
        for (int b = 0; b < bursts[k % 4] && farFed + chunk <= far.size(); ++b) {
            tracker.far(far.data() + farFed);
            farFed += chunk;
        }
        tracker.near(mic.data() + k * chunk);
        const double heardFrom = double(k * chunk) - delayMs(k * chunk) * rate / 1000.0;
        const double expected = (double(farFed) - heardFrom) * 1000.0 / rate - earlyMs;
        check(k, tracker.delayMs(), expected);
    }
}

} // namespace

TEST(EchoDelayTracker, FindsTheEchoWithinTwoSecondsAndTellsItsDelayAsTheFarEndArrivesInBursts) {
    for (int delayMs : {30, 150, 400}) {
        SCOPED_TRACE(delayMs);
        const std::vector<float> far = talk(8.0, 1);
        const std::vector<float> mic = heard(far, delayMs, 2);
        EchoDelayTracker tracker;
        std::optional<std::size_t> foundAt;
        int wrong = 0;
        std::string firstWrong;
        auto delay = [&](std::size_t) { return delayMs; };
        feed(tracker, far, mic, delay,
             [&](std::size_t k, std::optional<int> told, double expected) {
                 if (!told) {
                     EXPECT_FALSE(foundAt) << "lost at chunk " << k;
                     return;
                 }
                 foundAt = foundAt.value_or(k);
                 if (std::abs(*told - expected) > 2.0 && wrong++ == 0) {
                     firstWrong = "chunk " + std::to_string(k) + ": told " + std::to_string(*told) +
                                  " ms, should be " + std::to_string(expected);
                 }
             });
        ASSERT_TRUE(foundAt);
        EXPECT_LE(*foundAt, std::size_t(200)) << "found after " << *foundAt * 10 << " ms";
        EXPECT_EQ(wrong, 0) << "first " << firstWrong;
    }
}

namespace {

// How many microphone chunks were given a delay to tell.
int chunksWithADelay(const std::vector<float>& far, const std::vector<float>& mic) {
    EchoDelayTracker tracker;
    int told = 0;
    feed(
        tracker, far, mic, [](std::size_t) { return 0; },
        [&](std::size_t, std::optional<int> delay, double) { told += delay ? 1 : 0; });
    return told;
}

} // namespace

TEST(EchoDelayTracker, FindsNothingWhileTheFarEndIsSilent) {
    const std::vector<float> talker = talk(8.0, 3); // the local talker alone
    EXPECT_EQ(chunksWithADelay(std::vector<float>(talker.size(), 0.0f), talker), 0);
}

TEST(EchoDelayTracker, FindsNothingWhenTheMicrophoneHearsNoEcho) {
    // A headset: the far end plays, the microphone hears only the local talker.
    EXPECT_EQ(chunksWithADelay(talk(8.0, 4), talk(8.0, 5)), 0);
}

TEST(EchoDelayTracker, APathThatChangesIsFoundAgainWithinFourSeconds) {
    // The sound moves to a Bluetooth headset: the echo comes back 200 ms later than before.
    const std::vector<float> far = talk(14.0, 6);
    std::vector<float> mic = heard(far, 100, 7);
    const std::vector<float> later = heard(far, 300, 8);
    const std::size_t change = 6 * rate;
    std::copy(later.begin() + std::ptrdiff_t(change), later.end(),
              mic.begin() + std::ptrdiff_t(change));
    EchoDelayTracker tracker;
    std::optional<double> beforeChange;
    std::optional<std::size_t> rightAgainAt;
    auto delay = [&](std::size_t sample) { return sample < change ? 100 : 300; };
    feed(tracker, far, mic, delay, [&](std::size_t k, std::optional<int> told, double expected) {
        if ((k + 1) * chunk == change) {
            ASSERT_TRUE(told);
            beforeChange = *told - expected;
        }
        if (k * chunk >= change && !rightAgainAt && told && std::abs(*told - expected) <= 2.0) {
            rightAgainAt = k * chunk - change;
        }
    });
    ASSERT_TRUE(beforeChange);
    EXPECT_LE(std::abs(*beforeChange), 2.0);
    ASSERT_TRUE(rightAgainAt) << "the new path was never found";
    EXPECT_LE(*rightAgainAt, std::size_t(4 * rate))
        << "found again after " << *rightAgainAt * 1000 / rate << " ms";
}

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// Finds where the echo of the far end lies in the microphone, from the
// cross-correlation of the two as the canceller is fed them. The streams'
// latency readings miss what the path adds beyond the sound server (a room,
// a loopback, a Bluetooth link) and wander with the machine's load; the echo
// itself does not.
//
// Both signals arrive in 10 ms chunks at 16 kHz on the capture thread: the
// far end as it is handed to the canceller, then each microphone chunk. The
// place is kept as an offset between the two sample counts, so that how
// unevenly the far end arrives does not move it; `delayMs()` turns it into
// the delay of the chunk just given, as the canceller counts delay.
//
// Both are brought down to 2 kHz (pre-emphasised, so that the voice's
// fundamental does not swamp the peak) and correlated over 0 to `maxDelayMs`;
// the sums fade over a few seconds so that a changed path is found again.
// The delay told lies some ms before the correlation's peak: the canceller
// forgives a delay told short far better than one told long.
//
// No allocation after construction.
class EchoDelayTracker {
public:
    static constexpr int rate = 16000;
    static constexpr int chunk = rate / 100;
    static constexpr int decimation = 8;

    explicit EchoDelayTracker(int maxDelayMs = 500);

    void far(const float* samples);  // one chunk
    void near(const float* samples); // one chunk, after the far end fed before it

    // The delay to tell the canceller for the chunk last given to near(), once
    // the echo has been found.
    std::optional<int> delayMs() const;

private:
    static constexpr int lowRate = rate / decimation;
    static constexpr int lowChunk = chunk / decimation;
    static constexpr int margin = lowRate / 20; // lags before delay zero and after the largest

    static void lower(const float* samples, float& previous, float* out);
    void rebase(std::int64_t relative);
    void locate();

    std::vector<float> m_far;     // far end at the low rate, oldest first
    std::int64_t m_farStart = 0;  // low-rate index of m_far[0]
    std::int64_t m_farCount = 0;  // low-rate samples of far end so far
    std::int64_t m_nearCount = 0; // low-rate samples of microphone so far
    float m_farPrevious = 0;
    float m_nearPrevious = 0;
    float m_nearLow[lowChunk] = {};
    std::vector<double> m_sums;         // by lag, from m_base
    std::optional<std::int64_t> m_base; // the offset (near minus far index) of m_sums[0]
    double m_farEnergy = 0;             // faded like the sums
    double m_nearEnergy = 0;
    double m_farSound = 0;                   // chunks of far-end sound, faded like the sums
    std::optional<std::int64_t> m_candidate; // the place the last searches found
    int m_agreed = 0;                        // searches in a row that found it
    int m_chunksSinceLocate = 0;
    std::optional<std::int64_t> m_offset; // near minus far index of the place told
    std::int64_t m_lastRelative = 0;      // near minus far count at the last near chunk
};

#include "audio/EchoDelayTracker.h"

#include <algorithm>
#include <cmath>

namespace {

// The sums lose half their weight in about two seconds of chunks.
constexpr double fade = 0.99654;
// Looked for again every 100 ms.
constexpr int locateEvery = 10;
// The peak must stand this far above the envelope's mean over every lag.
constexpr double peakOverMean = 12.0;
// The least correlation coefficient at the peak. Two unrelated talkers reach
// about 0.1 in the first second and 0.05 after some seconds; an echo heard
// through double-talk stays above 0.2 most of the time.
constexpr double likeness = 0.15;
// The delay told lies this far before the peak. The peak is the strongest
// path, which in a room follows its first sound by some ms; and the far end
// reaches the canceller in bursts that move the echo's place in its filter
// back and forth. Told early, the echo stays inside the filter all the same;
// told late, it falls before the filter's start and cannot be cancelled.
constexpr int earlyMs = 20;
// A far-end chunk counts as sound above about -50 dBFS; the correlation says
// nothing until about half a second of sound is in the faded sums.
constexpr double audibleChunk = 1e-5 * EchoDelayTracker::chunk / EchoDelayTracker::decimation;
constexpr double enoughSound = 50;
// A place found is told once three searches in a row agree on it within 2 ms,
// and a place told moves only when the new one lies more than 5 ms away:
// every move told makes the canceller learn the room again.
constexpr int agreeing = 3;
constexpr std::int64_t agreeLags = EchoDelayTracker::rate / EchoDelayTracker::decimation / 500;
constexpr std::int64_t moveLags = EchoDelayTracker::rate / EchoDelayTracker::decimation / 200;
constexpr float preEmphasis = 0.9f;

} // namespace

EchoDelayTracker::EchoDelayTracker(int maxDelayMs) {
    const auto window = std::size_t(std::max(1, maxDelayMs) * lowRate / 1000 + 2 * margin);
    m_far.reserve(2 * (window + 4 * lowChunk));
    m_sums.assign(window, 0.0);
}

void EchoDelayTracker::lower(const float* samples, float& previous, float* out) {
    for (int i = 0; i < lowChunk; ++i) {
        float sum = 0;
        for (int j = 0; j < decimation; ++j) {
            const float x = samples[i * decimation + j];
            sum += x - preEmphasis * previous;
            previous = x;
        }
        out[i] = sum / float(decimation);
    }
}

void EchoDelayTracker::far(const float* samples) {
    const std::size_t keep = m_sums.size() + 2 * lowChunk;
    if (m_far.size() + lowChunk > m_far.capacity()) {
        const std::size_t drop = m_far.size() - keep;
        m_far.erase(m_far.begin(), m_far.begin() + std::ptrdiff_t(drop));
        m_farStart += std::int64_t(drop);
    }
    float low[lowChunk];
    lower(samples, m_farPrevious, low);
    double energy = 0;
    for (float v : low) {
        energy += double(v) * v;
    }
    if (energy > audibleChunk) {
        m_farSound += 1;
    }
    m_farEnergy += energy;
    m_far.insert(m_far.end(), low, low + lowChunk);
    m_farCount += lowChunk;
}

void EchoDelayTracker::rebase(std::int64_t relative) {
    m_base = relative - margin;
    std::fill(m_sums.begin(), m_sums.end(), 0.0);
    m_offset.reset();
    m_candidate.reset();
    m_agreed = 0;
    m_chunksSinceLocate = 0;
}

void EchoDelayTracker::near(const float* samples) {
    lower(samples, m_nearPrevious, m_nearLow);
    double energy = 0;
    for (float v : m_nearLow) {
        energy += double(v) * v;
    }
    // Near minus far count: moves with how unevenly the far end arrives, and
    // jumps when a stream starts again.
    const std::int64_t relative = m_nearCount - m_farCount;
    if (!m_base || std::abs(relative - (*m_base + margin)) > margin / 2) {
        rebase(relative);
    }
    m_lastRelative = relative;
    for (double& s : m_sums) {
        s *= fade;
    }
    m_farSound *= fade;
    m_farEnergy *= fade;
    m_nearEnergy = m_nearEnergy * fade + energy;

    const auto window = std::int64_t(m_sums.size());
    for (int j = 0; j < lowChunk; ++j) {
        const std::int64_t n = m_nearCount + j;
        const double x = m_nearLow[j];
        // Lag k pairs near n with far n - base - k, which must have been fed and kept.
        const std::int64_t newest = n - *m_base;
        const std::int64_t from = std::max<std::int64_t>(0, newest - (m_farCount - 1));
        const std::int64_t to = std::min<std::int64_t>(window - 1, newest - m_farStart);
        for (std::int64_t k = from; k <= to; ++k) {
            m_sums[std::size_t(k)] += x * double(m_far[std::size_t(newest - m_farStart - k)]);
        }
    }
    m_nearCount += lowChunk;
    if (++m_chunksSinceLocate >= locateEvery) {
        m_chunksSinceLocate = 0;
        locate();
    }
}

void EchoDelayTracker::locate() {
    if (m_farSound < enoughSound) {
        return; // too little played lately: keep what was found
    }
    // The envelope: the squared sums, smoothed over three lags.
    const std::size_t window = m_sums.size();
    auto squared = [&](std::size_t k) { return m_sums[k] * m_sums[k]; };
    double peak = 0;
    std::size_t peakAt = 0;
    double total = 0;
    for (std::size_t k = 0; k < window; ++k) {
        const double here = squared(k);
        const double before = k > 0 ? squared(k - 1) : here;
        const double after = k + 1 < window ? squared(k + 1) : here;
        const double envelope = (before + 2 * here + after) / 4;
        total += envelope;
        if (envelope > peak) {
            peak = envelope;
            peakAt = k;
        }
    }
    if (peak <= 0 || peak < peakOverMean * total / double(window)) {
        return;
    }
    // And the two must be alike there: a correlation coefficient that chance
    // alone, over some seconds and this many lags, stays well below.
    const double peakSum = m_sums[peakAt];
    if (peakSum * peakSum < likeness * likeness * m_farEnergy * m_nearEnergy) {
        return;
    }
    const std::int64_t place = *m_base + std::int64_t(peakAt) - earlyMs * lowRate / 1000;
    if (m_candidate && std::abs(place - *m_candidate) <= agreeLags) {
        ++m_agreed;
    } else {
        m_candidate = place;
        m_agreed = 1;
    }
    if (m_agreed >= agreeing && (!m_offset || std::abs(*m_candidate - *m_offset) > moveLags)) {
        m_offset = *m_candidate;
    }
}

std::optional<int> EchoDelayTracker::delayMs() const {
    if (!m_offset) {
        return std::nullopt;
    }
    // Far samples fed since the one heard at the start of the last near chunk.
    const std::int64_t lowSamples = *m_offset - m_lastRelative;
    return int(std::lround(double(lowSamples) * 1000.0 / lowRate));
}

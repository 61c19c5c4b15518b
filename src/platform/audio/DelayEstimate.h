#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

// The echo delay told to the canceller, from latency readings of the streams.
// A reading now and then jumps for a moment (a late timing update); every jump
// told to the canceller makes it learn the room again. So the estimate is the
// median of the last readings, and it moves only by more than a few ms.
class DelayEstimate {
public:
    static constexpr std::size_t window = 9;
    static constexpr int hysteresisMs = 5;

    // Gives the delay to report after this reading.
    int add(int readingMs) {
        m_readings[m_next] = readingMs;
        m_next = (m_next + 1) % window;
        m_count = std::min(m_count + 1, window);
        std::array<int, window> sorted{};
        std::copy_n(m_readings.begin(), m_count, sorted.begin());
        std::sort(sorted.begin(), sorted.begin() + std::ptrdiff_t(m_count));
        const int median = sorted[m_count / 2];
        if (!m_current || std::abs(median - *m_current) > hysteresisMs) {
            m_current = median;
        }
        return *m_current;
    }

private:
    std::array<int, window> m_readings{};
    std::size_t m_next = 0;
    std::size_t m_count = 0;
    std::optional<int> m_current;
};

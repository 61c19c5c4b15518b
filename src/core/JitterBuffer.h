#pragma once

// Received media packets waiting to be played. Its depth adapts between one
// and eight frames of 20 ms: it grows when packets arrive late or unevenly and
// shrinks slowly when the network is calm again. Not locked: its owner locks.

#include <cstdint>
#include <map>
#include <vector>

namespace core {

enum class Codec : std::uint8_t { pcmu, pcma, g722, opus };

struct MediaPacket {
    std::uint16_t seq = 0;
    std::uint32_t timestamp = 0;
    Codec codec = Codec::pcmu;
    std::vector<std::uint8_t> payload;
};

class JitterBuffer {
public:
    enum class Take { packet, lost, empty };

    static constexpr int minFrames = 1;
    static constexpr int maxFrames = 8;
    static constexpr double frameMs = 20;

    // arrivalMs: the local time of arrival; clockRate: the RTP clock of the packet.
    void put(MediaPacket packet, double arrivalMs, std::uint32_t clockRate);
    // The next packet to play, a gap to conceal, or nothing at all.
    Take take(MediaPacket& out);

    int targetFrames() const { return m_target; }
    int depth() const { return int(m_packets.size()); }
    double jitterMs() const { return m_jitterMs; }
    std::uint64_t late() const { return m_late; }

private:
    std::int64_t extend(std::uint16_t seq);
    void adapt();

    std::map<std::int64_t, MediaPacket> m_packets;
    bool m_started = false;
    bool m_playing = false;
    std::int64_t m_highest = 0;
    std::int64_t m_next = 0;
    bool m_haveTransit = false;
    double m_lastTransitMs = 0;
    double m_jitterMs = 0;
    int m_target = minFrames;
    int m_calmTakes = 0;
    std::uint64_t m_late = 0;
};

} // namespace core

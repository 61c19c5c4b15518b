#pragma once

// Received media packets waiting to be played. Its depth adapts between one
// and eight frames of 20 ms: it grows when packets arrive late or unevenly and
// shrinks slowly when the network is calm again. It lives on the render
// thread, so it never allocates: packets sit in a fixed ring of slotCount. Not
// locked: its owner keeps it to one thread.

#include <array>
#include <cstddef>
#include <cstdint>

namespace core {

enum class Codec : std::uint8_t { pcmu, pcma, g722, opus };

struct MediaPacket {
    // The largest Opus packet is 1275 bytes; anything bigger is not voice.
    static constexpr std::size_t maxPayload = 1280;

    std::uint16_t seq = 0;
    std::uint32_t timestamp = 0;
    Codec codec = Codec::pcmu;
    std::uint16_t size = 0;
    std::array<std::uint8_t, maxPayload> payload{};

    // False (and nothing kept) when the payload does not fit.
    bool assign(const std::uint8_t* data, std::size_t length);
    const std::uint8_t* data() const { return payload.data(); }
};

class JitterBuffer {
public:
    enum class Take { packet, lost, empty };

    static constexpr int minFrames = 1;
    static constexpr int maxFrames = 8;
    static constexpr int slotCount = maxFrames * 4;
    static constexpr double frameMs = 20;

    // arrivalMs: the local time of arrival; clockRate: the RTP clock of the packet.
    void put(const MediaPacket& packet, double arrivalMs, std::uint32_t clockRate);
    // The next packet to play, a gap to conceal, or nothing at all.
    Take take(MediaPacket& out);

    int targetFrames() const { return m_target; }
    int depth() const { return m_count; }
    double jitterMs() const { return m_jitterMs; }
    std::uint64_t late() const { return m_late; }

private:
    struct Slot {
        bool used = false;
        std::int64_t index = 0;
        MediaPacket packet;
    };

    std::int64_t extend(std::uint16_t seq);
    void adapt();
    // The waiting packet with the lowest index; null when none waits.
    Slot* oldest();
    void drop(Slot& slot);

    std::array<Slot, slotCount> m_slots{};
    int m_count = 0;
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

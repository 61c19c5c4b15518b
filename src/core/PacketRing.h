#pragma once

// Received packets on their way from the loop thread, where the socket is
// read, to the render thread, where they are decoded: one writer, one reader,
// a fixed number of slots, neither a lock nor an allocation on either side.

#include "JitterBuffer.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace core {

class PacketRing {
public:
    static constexpr std::size_t capacity = 64; // 1.28 s of 20 ms frames

    struct Entry {
        MediaPacket packet;
        double arrivalMs = 0;
    };

    // Writer: the slot to fill, or null when the ring is full (the packet is
    // then dropped); publish() hands the filled slot over.
    Entry* claim();
    void publish();

    // Reader: the oldest entry, or null when none waits; release() frees it.
    const Entry* front();
    void release();

    std::uint64_t dropped() const { return m_dropped.load(std::memory_order_relaxed); }

private:
    std::array<Entry, capacity> m_entries{};
    // Counters that only grow; the slot is the counter modulo the capacity.
    alignas(64) std::atomic<std::size_t> m_written{0};
    alignas(64) std::atomic<std::size_t> m_read{0};
    std::atomic<std::uint64_t> m_dropped{0};
};

} // namespace core

#include "JitterBuffer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace core {

bool MediaPacket::assign(const std::uint8_t* data, std::size_t length) {
    if (length > maxPayload) {
        size = 0;
        return false;
    }
    if (length) {
        std::memcpy(payload.data(), data, length);
    }
    size = std::uint16_t(length);
    return true;
}

std::int64_t JitterBuffer::extend(std::uint16_t seq) {
    if (!m_started) {
        m_started = true;
        m_highest = seq;
        return seq;
    }
    // The 16-bit number nearest to the highest one seen, so that a wrap is no jump.
    const std::int64_t base = m_highest & ~std::int64_t(0xffff);
    std::int64_t candidate = base | seq;
    if (candidate - m_highest > 0x8000) {
        candidate -= 0x10000;
    } else if (m_highest - candidate > 0x8000) {
        candidate += 0x10000;
    }
    m_highest = std::max(m_highest, candidate);
    return candidate;
}

JitterBuffer::Slot* JitterBuffer::oldest() {
    Slot* found = nullptr;
    for (Slot& slot : m_slots) {
        if (slot.used && (!found || slot.index < found->index)) {
            found = &slot;
        }
    }
    return found;
}

void JitterBuffer::drop(Slot& slot) {
    slot.used = false;
    --m_count;
}

void JitterBuffer::put(const MediaPacket& packet, double arrivalMs, std::uint32_t clockRate) {
    const std::int64_t index = extend(packet.seq);
    // Inter-arrival jitter as in RTP receiver reports, in milliseconds.
    const double transit = arrivalMs - double(packet.timestamp) * 1000.0 / double(clockRate);
    if (m_haveTransit) {
        const double d = std::abs(transit - m_lastTransitMs);
        if (d < 1000) {
            m_jitterMs += (d - m_jitterMs) / 16.0;
        }
    }
    m_haveTransit = true;
    m_lastTransitMs = transit;

    if (m_playing && index < m_next) {
        // Too late to be played: the buffer was too shallow for this network.
        ++m_late;
        m_target = std::min(maxFrames, m_target + 1);
        m_calmTakes = 0;
        return;
    }
    Slot& slot = m_slots[std::size_t(((index % slotCount) + slotCount) % slotCount)];
    if (slot.used) {
        if (slot.index == index) {
            return; // a duplicate
        }
        if (slot.index > index) {
            return; // older than everything the ring can still hold
        }
        drop(slot);
    }
    if (m_count >= slotCount) {
        drop(*oldest());
    }
    slot.used = true;
    slot.index = index;
    slot.packet = packet;
    ++m_count;
    adapt();
}

void JitterBuffer::adapt() {
    // Enough depth for about three times the measured jitter.
    const int wanted =
        std::clamp(1 + int(std::ceil(3.0 * m_jitterMs / frameMs)), minFrames, maxFrames);
    if (wanted > m_target) {
        m_target = wanted;
        m_calmTakes = 0;
    }
}

JitterBuffer::Take JitterBuffer::take(MediaPacket& out) {
    if (!m_playing) {
        if (m_count < m_target) {
            return Take::empty;
        }
        m_playing = true;
        m_next = oldest()->index;
    }
    if (m_count == 0) {
        // Ran dry: wait until the target depth has been rebuilt.
        m_playing = false;
        m_target = std::min(maxFrames, m_target + 1);
        m_calmTakes = 0;
        return Take::empty;
    }
    // Shrink slowly: after a calm stretch, play one frame less deep.
    const int wanted =
        std::clamp(1 + int(std::ceil(3.0 * m_jitterMs / frameMs)), minFrames, maxFrames);
    if (wanted < m_target && ++m_calmTakes > 250) {
        --m_target;
        m_calmTakes = 0;
    }
    while (m_count > m_target + 2) {
        // Far deeper than needed: drop the oldest frame to catch up.
        drop(*oldest());
        m_next = oldest()->index;
    }
    Slot* first = oldest();
    while (first && first->index < m_next) {
        drop(*first);
        first = oldest();
    }
    if (!first) {
        m_playing = false;
        m_target = std::min(maxFrames, m_target + 1);
        m_calmTakes = 0;
        return Take::empty;
    }
    if (first->index == m_next) {
        out = first->packet;
        drop(*first);
        ++m_next;
        return Take::packet;
    }
    ++m_next;
    return Take::lost;
}

} // namespace core

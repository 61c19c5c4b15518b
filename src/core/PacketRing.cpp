#include "PacketRing.h"

namespace core {

PacketRing::Entry* PacketRing::claim() {
    const std::size_t written = m_written.load(std::memory_order_relaxed);
    if (written - m_read.load(std::memory_order_acquire) >= capacity) {
        m_dropped.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    }
    return &m_entries[written % capacity];
}

void PacketRing::publish() {
    m_written.store(m_written.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

const PacketRing::Entry* PacketRing::front() {
    const std::size_t read = m_read.load(std::memory_order_relaxed);
    if (read == m_written.load(std::memory_order_acquire)) {
        return nullptr;
    }
    return &m_entries[read % capacity];
}

void PacketRing::release() {
    m_read.store(m_read.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

} // namespace core

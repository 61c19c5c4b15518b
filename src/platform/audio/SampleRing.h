#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

// A single-producer, single-consumer ring of float samples. Neither side
// locks or allocates after construction, so the real-time render thread can
// hand samples to the capture thread.
class SampleRing {
public:
    explicit SampleRing(std::size_t capacity) : m_buffer(capacity + 1) {}

    // Producer: writes what fits, gives how many were written.
    std::size_t push(const float* samples, std::size_t count) {
        const std::size_t size = m_buffer.size();
        std::size_t head = m_head.load(std::memory_order_relaxed);
        std::size_t tail = m_tail.load(std::memory_order_acquire);
        std::size_t free = (tail + size - head - 1) % size;
        std::size_t n = count < free ? count : free;
        for (std::size_t i = 0; i < n; ++i) {
            m_buffer[(head + i) % size] = samples[i];
        }
        m_head.store((head + n) % size, std::memory_order_release);
        return n;
    }

    // Consumer: reads up to `count`, gives how many were read.
    std::size_t pop(float* out, std::size_t count) {
        const std::size_t size = m_buffer.size();
        std::size_t tail = m_tail.load(std::memory_order_relaxed);
        std::size_t head = m_head.load(std::memory_order_acquire);
        std::size_t used = (head + size - tail) % size;
        std::size_t n = count < used ? count : used;
        for (std::size_t i = 0; i < n; ++i) {
            out[i] = m_buffer[(tail + i) % size];
        }
        m_tail.store((tail + n) % size, std::memory_order_release);
        return n;
    }

    std::size_t available() const {
        const std::size_t size = m_buffer.size();
        std::size_t head = m_head.load(std::memory_order_acquire);
        std::size_t tail = m_tail.load(std::memory_order_acquire);
        return (head + size - tail) % size;
    }

    // Consumer side only.
    void clear() {
        m_tail.store(m_head.load(std::memory_order_acquire), std::memory_order_release);
    }

private:
    std::vector<float> m_buffer;
    std::atomic<std::size_t> m_head{0};
    std::atomic<std::size_t> m_tail{0};
};

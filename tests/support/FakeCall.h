#pragma once

#include "core/Core.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

// A core call for audio tests: it records every frame written to it and
// serves the samples it is given, then silence, 160 at a time.
class FakeCall : public core::Call {
public:
    explicit FakeCall(std::vector<std::int16_t> toServe = {})
        : m_toServe(toServe.begin(), toServe.end()) {}

    void answer() override {}
    void hangup() override {}
    std::string sipCallId() const override { return "fake"; }
    std::vector<std::uint64_t> mediaCounters() const override { return {0, 0}; }
    core::CallStats stats() const override { return {}; }
    std::optional<std::string> remoteName() const override { return std::nullopt; }
    std::string remoteNumber() const override { return "100"; }
    void sendDtmf(char) override {}
    void setHold(bool) override {}
    void transfer(const std::string&) override {}

    std::vector<std::int16_t> readAudio() override {
        std::vector<std::int16_t> out(160);
        readAudioInto(out.data(), out.size());
        return out;
    }

    // Serves the samples it was given, then silence, without a list of its own.
    void readAudioInto(std::int16_t* out, std::size_t count) override {
        std::lock_guard guard(m_mutex);
        ++m_reads;
        for (std::size_t i = 0; i < count; ++i) {
            if (m_toServe.empty()) {
                out[i] = 0;
            } else {
                out[i] = m_toServe.front();
                m_toServe.pop_front();
            }
        }
    }

    void writeAudio(const std::vector<std::int16_t>& frame) override {
        std::lock_guard guard(m_mutex);
        m_written.push_back(frame);
        m_wake.notify_all();
    }

    void serve(const std::vector<std::int16_t>& samples) {
        std::lock_guard guard(m_mutex);
        m_toServe.insert(m_toServe.end(), samples.begin(), samples.end());
    }

    std::vector<std::vector<std::int16_t>> written() const {
        std::lock_guard guard(m_mutex);
        return m_written;
    }
    std::size_t framesWritten() const {
        std::lock_guard guard(m_mutex);
        return m_written.size();
    }
    int reads() const {
        std::lock_guard guard(m_mutex);
        return m_reads;
    }

    // Waits until at least `count` frames have arrived; false when the bound passes first.
    bool waitForFrames(std::size_t count, std::chrono::milliseconds bound) {
        std::unique_lock lock(m_mutex);
        return m_wake.wait_for(lock, bound, [&] { return m_written.size() >= count; });
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::int16_t> m_toServe;
    std::vector<std::vector<std::int16_t>> m_written;
    int m_reads = 0;
};

#include "EngineCallAudio.h"

#include "../tests/integration/core/SipLab.h"
#include "audio/NullBackend.h"
#include "telephony/CallAudio.h"

#include <span>
#include <sys/prctl.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <mutex>
#include <new>

namespace {

using Clock = std::chrono::steady_clock;
using Kind = core::CallState::Kind;

// Allocations and frees on the null backend's render thread, while counting is on.
std::atomic<bool> counting{false};
std::atomic<long> renderAllocations{0};
std::atomic<long> renderFrees{0};

bool onRenderThread() {
    // 0 unknown, 1 render, 2 other; prctl neither allocates nor locks.
    thread_local int known = 0;
    if (known == 0) {
        char name[16] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        known = std::strcmp(name, "velnor-render") == 0 ? 1 : 2;
    }
    return known == 1;
}

void noteAllocation() {
    if (counting.load(std::memory_order_relaxed) && onRenderThread()) {
        renderAllocations.fetch_add(1, std::memory_order_relaxed);
    }
}

void noteFree(void* p) {
    if (p != nullptr && counting.load(std::memory_order_relaxed) && onRenderThread()) {
        renderFrees.fetch_add(1, std::memory_order_relaxed);
    }
}

double ms(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

bool hasClick(std::span<const std::int16_t> frame) {
    for (std::int16_t s : frame) {
        if (std::abs(int(s)) > 8000) {
            return true;
        }
    }
    return false;
}

// The core's call as call audio sees it, with the moments a click passed noted.
class Watched : public core::Call {
public:
    explicit Watched(std::shared_ptr<core::Call> inner) : m_inner(std::move(inner)) {}

    void answer() override { m_inner->answer(); }
    void hangup() override { m_inner->hangup(); }
    std::string sipCallId() const override { return m_inner->sipCallId(); }
    std::vector<std::uint64_t> mediaCounters() const override { return m_inner->mediaCounters(); }
    core::CallStats stats() const override { return m_inner->stats(); }
    std::optional<std::string> remoteName() const override { return m_inner->remoteName(); }
    std::string remoteNumber() const override { return m_inner->remoteNumber(); }
    void sendDtmf(char digit) override { m_inner->sendDtmf(digit); }
    void setHold(bool hold) override { m_inner->setHold(hold); }
    void transfer(const std::string& target) override { m_inner->transfer(target); }

    std::vector<std::int16_t> readAudio() override {
        std::vector<std::int16_t> frame = m_inner->readAudio();
        if (watchRead.load() && hasClick(frame)) {
            readAt = Clock::now();
            watchRead = false;
        }
        return frame;
    }
    void readAudioInto(std::int16_t* out, std::size_t count) override {
        m_inner->readAudioInto(out, count);
        if (watchRead.load() && hasClick(std::span<const std::int16_t>(out, count))) {
            readAt = Clock::now();
            watchRead = false;
        }
    }
    void writeAudio(const std::vector<std::int16_t>& frame) override {
        if (watchWrite.load() && hasClick(frame)) {
            writtenAt = Clock::now();
            watchWrite = false;
        }
        m_inner->writeAudio(frame);
    }

    std::atomic<bool> watchRead{false};
    std::atomic<bool> watchWrite{false};
    Clock::time_point readAt;
    Clock::time_point writtenAt;

private:
    std::shared_ptr<core::Call> m_inner;
};

std::optional<CallAudio::Error> startAudio(CallAudio& audio, std::shared_ptr<core::Call> call) {
    std::promise<std::optional<CallAudio::Error>> done;
    auto result = done.get_future();
    audio.start(std::move(call), [&](auto error) { done.set_value(error); });
    return result.get();
}

double median(std::vector<double> v) {
    if (v.empty()) {
        return -1;
    }
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

void* operator new(std::size_t size) {
    noteAllocation();
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    noteFree(p);
    std::free(p);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}

EngineCallFigures measureEngineCall(std::chrono::seconds allocationSpan) {
    EngineCallFigures figures;
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    auto aliceEvents = std::make_shared<Events>();
    auto bobEvents = std::make_shared<Events>();
    auto alice = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), aliceEvents);
    auto bob = core::SipClient::init(
        accountFor(kamailio.tcpServer(), "bob", Kamailio::users().at("bob")), bobEvents);
    alice->start();
    bob->start();
    aliceEvents->waitRegistered();
    bobEvents->waitRegistered();

    auto outgoing = alice->placeCall("bob");
    auto incoming = bobEvents->waitIncoming();
    incoming->answer();
    aliceEvents->waitCall(outgoing->sipCallId(), Kind::connected);
    auto a = std::make_shared<Watched>(outgoing);
    auto b = std::make_shared<Watched>(incoming);

    // A's microphone: silence, and a click when asked for.
    std::atomic<bool> click{false};
    Clock::time_point clickAt;
    NullBackend::Options aOptions;
    aOptions.voice.noiseSuppression = false; // a lone click is what it would flatten
    aOptions.shapeCapture = [&](float* samples, std::uint32_t frames, const AudioFormat& f) {
        if (click.exchange(false)) {
            for (std::uint32_t i = 0; i < 48 && i < frames; ++i) {
                for (int c = 0; c < f.channels; ++c) {
                    samples[i * std::uint32_t(f.channels) + std::uint32_t(c)] =
                        (i / 6) % 2 ? 0.9f : -0.9f;
                }
            }
            clickAt = Clock::now();
        }
    };
    // B's speaker: when the click leaves the render block.
    std::atomic<bool> listening{false};
    Clock::time_point heardAt;
    NullBackend::Options bOptions;
    bOptions.voice.noiseSuppression = false;
    bOptions.rendered = [&](const float* samples, std::uint32_t frames) {
        if (!listening.load()) {
            return;
        }
        for (std::uint32_t i = 0; i < frames; ++i) {
            if (std::abs(samples[i]) > 0.25f) {
                heardAt = Clock::now();
                listening = false;
                return;
            }
        }
    };
    auto aAudio = CallAudio::make(std::make_shared<NullBackend>(aOptions));
    auto bAudio = CallAudio::make(std::make_shared<NullBackend>(bOptions));
    if (startAudio(*aAudio, a) || startAudio(*bAudio, b)) {
        std::fprintf(stderr, "call audio did not start\n");
        return figures;
    }

    // The allocation count covers the render thread over the span, clicks and all.
    counting = true;
    const auto countUntil = Clock::now() + allocationSpan;
    std::vector<double> total, capture, wire, render;
    while (Clock::now() < countUntil) {
        a->watchWrite = true;
        b->watchRead = true;
        listening = true;
        click = true;
        const auto deadline = Clock::now() + std::chrono::seconds(2);
        while (listening.load() && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        if (!listening.load() && !a->watchWrite.load() && !b->watchRead.load()) {
            total.push_back(ms(heardAt - clickAt));
            capture.push_back(ms(a->writtenAt - clickAt));
            wire.push_back(ms(b->readAt - a->writtenAt));
            render.push_back(ms(heardAt - b->readAt));
        }
        listening = false;
        // Room between clicks, so that each is told from the last.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    counting = false;
    figures.renderAllocations = renderAllocations.load();
    figures.renderFrees = renderFrees.load();
    figures.mouthToEarMs = median(total);
    figures.captureMs = median(capture);
    figures.wireMs = median(wire);
    figures.renderMs = median(render);
    figures.clicks = int(total.size());

    aAudio->stop();
    bAudio->stop();
    outgoing->hangup();
    aliceEvents->waitCall(outgoing->sipCallId(), Kind::ended);
    alice->stop();
    bob->stop();
    return figures;
}

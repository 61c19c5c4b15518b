#include "ClickListener.h"

#include "Waits.h"
#include "audio/PulseContext.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, 48000, 1};
constexpr pa_usec_t fragmentUsec = 2000;

} // namespace

ClickListener::ClickListener(const std::string& source)
    : m_context(std::make_unique<PulseContext>("", "velnor RZ bench listener", "click-listener")) {
    PulseContext::Lock lock(*m_context);
    if (auto failure = m_context->connected()) {
        std::fprintf(stderr, "listener: %s\n", failure->description.c_str());
        return;
    }
    m_stream = pa_stream_new(m_context->context(), "click listener", &spec, nullptr);
    pa_buffer_attr attr;
    std::memset(&attr, 0xff, sizeof attr);
    attr.fragsize = std::uint32_t(pa_usec_to_bytes(fragmentUsec, &spec));
    pa_stream_set_read_callback(m_stream, &ClickListener::onRead, this);
    pa_stream_set_state_callback(
        m_stream, [](pa_stream*, void* data) { static_cast<PulseContext*>(data)->signal(); },
        m_context.get());
    const auto flags = pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE |
                                         PA_STREAM_INTERPOLATE_TIMING);
    bool failed = pa_stream_connect_record(m_stream, source.c_str(), &attr, flags) < 0;
    if (!failed) {
        failed = m_context
                     ->waitFor([this] {
                         const auto state = pa_stream_get_state(m_stream);
                         return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
                     })
                     .has_value() ||
                 pa_stream_get_state(m_stream) != PA_STREAM_READY;
    }
    if (failed) {
        std::fprintf(stderr, "listener on %s: %s\n", source.c_str(),
                     m_context->error().description.c_str());
        pa_stream_unref(m_stream);
        m_stream = nullptr;
    }
}

ClickListener::~ClickListener() {
    PulseContext::Lock lock(*m_context);
    if (m_stream != nullptr) {
        pa_stream_set_read_callback(m_stream, nullptr, nullptr);
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
    }
}

bool ClickListener::waitHeard(std::chrono::milliseconds bound) {
    if (!waitUntil([this] { return m_heard.load(); }, bound)) {
        m_armed = false;
        return false;
    }
    m_heard = false;
    return true;
}

void ClickListener::onRead(pa_stream* stream, std::size_t, void* data) {
    auto* self = static_cast<ClickListener*>(data);
    const auto now = Clock::now();
    // Every sample still to read here was at the source after the one being read.
    std::size_t after = pa_stream_readable_size(stream) / sizeof(float);
    const void* bytes = nullptr;
    std::size_t size = 0;
    while (pa_stream_peek(stream, &bytes, &size) == 0 && size > 0) {
        const std::size_t count = size / sizeof(float);
        if (bytes != nullptr && self->m_armed) {
            const auto* samples = static_cast<const float*>(bytes);
            for (std::size_t i = 0; i < count; ++i) {
                if (std::fabs(samples[i]) > 0.1f) {
                    self->m_heardAt = now - std::chrono::microseconds(std::int64_t(
                                                (after > i ? after - i : 0) * 1e6 / spec.rate));
                    const pa_timing_info* timing = pa_stream_get_timing_info(stream);
                    self->m_sourceLatencyMs =
                        timing != nullptr ? double(timing->source_usec) / 1000.0 : 0.0;
                    self->m_armed = false;
                    self->m_heard = true;
                    break;
                }
            }
        }
        after -= std::min(after, count);
        pa_stream_drop(stream);
    }
}

#include "audio/PulseBackend.h"

#include "audio/DelayEstimate.h"
#include "audio/EngineBase.h"
#include "audio/PulseContext.h"
#include "audio/SampleRing.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace {

// No wait on the sound server lasts longer than this; then it is an error.
const char* const noAnswer = "the sound server did not answer within 2 s";
constexpr double blockSeconds = 0.020;
// Events come in bursts (a new sink brings its monitor source); one report each.
constexpr pa_usec_t coalesceUsec = 30 * 1000;
constexpr pa_usec_t latencyPollUsec = 250 * 1000;
const AudioFormat guess{48000.0, 1};

struct ServerInfo {
    std::string defaultSink;
    std::string defaultSource;
};

// With the loop locked: the server's defaults, or nothing within the bound.
std::optional<ServerInfo> serverInfo(PulseContext& context) {
    struct Ask {
        PulseContext* context;
        std::optional<ServerInfo> info;
    } ask{&context, std::nullopt};
    (void)context.wait(pa_context_get_server_info(
        context.context(),
        [](pa_context*, const pa_server_info* i, void* data) {
            auto* a = static_cast<Ask*>(data);
            if (i != nullptr) {
                a->info = ServerInfo{i->default_sink_name ? i->default_sink_name : "",
                                     i->default_source_name ? i->default_source_name : ""};
            }
            a->context->signal();
        },
        &ask));
    return ask.info;
}

class PulseEngine : public EngineBase {
public:
    PulseEngine(PulseBackend::Options options, std::shared_ptr<PulseContext> context,
                std::shared_ptr<std::atomic<int>> underflows)
        : EngineBase(options.voice), m_options(std::move(options)), m_context(std::move(context)),
          m_underflows(std::move(underflows)) {}

    ~PulseEngine() override {
        stop();
        if (m_listening != 0) {
            PulseContext::Lock lock(*m_context);
            if (m_coalesce != nullptr) {
                m_context->api()->time_free(m_coalesce);
                m_coalesce = nullptr;
            }
            m_context->unlisten(m_listening);
        }
    }

    std::optional<AudioError> start() override {
        if (auto unanswered = std::exchange(m_unanswered, std::nullopt)) {
            return unanswered;
        }
        if (auto failure = connect()) {
            return failure;
        }
        PulseContext::Lock lock(*m_context);
        // A stream whose device went away without a successor is opened afresh.
        if (m_playback != nullptr && !good(m_playback)) {
            closeStream(m_playback);
        }
        if (m_record != nullptr && !good(m_record)) {
            closeStream(m_record);
        }
        if (m_playback == nullptr) {
            if (auto failure = openPlayback()) {
                return failure;
            }
        }
        if (m_record == nullptr) {
            if (auto failure = openRecord()) {
                return failure;
            }
        }
        if (m_guessedFormat) {
            // The tap may have been made for a guessed format: a change brings one
            // for the real format.
            m_guessedFormat = false;
            if (!(m_recordFormat == guess)) {
                scheduleReport();
            }
        }
        if (m_latencyTimer == nullptr) {
            m_latencyTimer =
                pa_context_rttime_new(m_context->context(), pa_rtclock_now() + latencyPollUsec,
                                      &PulseEngine::onLatencyTimer, this);
        }
        return std::nullopt;
    }

    void stop() override {
        if (m_listening == 0) {
            return;
        }
        {
            PulseContext::Lock lock(*m_context);
            closeStream(m_playback);
            closeStream(m_record);
            if (m_latencyTimer != nullptr) {
                m_context->api()->time_free(m_latencyTimer);
                m_latencyTimer = nullptr;
            }
        }
        stopCaptureThread();
    }

    bool isRunning() override {
        if (m_listening == 0 || m_lost) {
            return false;
        }
        PulseContext::Lock lock(*m_context);
        return good(m_playback) && good(m_record);
    }

    PulseLatency latency() {
        PulseLatency out;
        out.playbackMs = m_playbackLatencyMs.load();
        out.recordMs = m_recordLatencyMs.load();
        out.underflows = m_underflows->load(std::memory_order_relaxed);
        return out;
    }

protected:
    AudioFormat hardwareFormat() override {
        if (auto failure = connect()) {
            // No server to ask: the format the record stream will ask for.
            m_guessedFormat = true;
            if (failure->code == PA_ERR_TIMEOUT) {
                m_unanswered = failure; // the start that follows need not wait again
            }
            return guess;
        }
        PulseContext::Lock lock(*m_context);
        m_formatError.reset();
        auto info = serverInfo(*m_context);
        if (!info) {
            // A server that took the connection and then stopped answering:
            // as with no answer to the connection, the start that follows says so.
            m_guessedFormat = true;
            m_unanswered = AudioError{PA_ERR_TIMEOUT, noAnswer};
            return guess;
        }
        struct Ask {
            PulseContext* context;
            AudioFormat format;
        } ask{m_context.get(), {}};
        const std::string source =
            m_options.source.empty() ? info->defaultSource : m_options.source;
        m_formatError = m_context->wait(pa_context_get_source_info_by_name(
            m_context->context(), source.c_str(),
            [](pa_context*, const pa_source_info* i, int eol, void* data) {
                auto* a = static_cast<Ask*>(data);
                if (eol == 0 && i != nullptr) {
                    a->format = AudioFormat{double(i->sample_spec.rate), i->sample_spec.channels};
                }
                a->context->signal();
            },
            &ask));
        return ask.format;
    }

    std::optional<AudioError> voiceProcessingObstacle() override {
        if (!m_options.voiceProcessing) {
            return AudioError{1, "turned off for this device"};
        }
        return std::nullopt;
    }

    void tapReplaced() override {
        // A new tap follows a change: record again from whatever the default is now.
        if (m_listening == 0) {
            return;
        }
        {
            PulseContext::Lock lock(*m_context);
            if (m_record == nullptr) {
                return;
            }
            closeStream(m_record);
        }
        stopCaptureThread();
        AudioFormat format = hardwareFormat();
        PulseContext::Lock lock(*m_context);
        openRecord(format);
    }

private:
    // The backend's context, ready, with this engine listening to it. After
    // the server went, the streams of the old connection are dropped first.
    std::optional<AudioError> connect() {
        if (m_listening != 0 && !m_lost) {
            return std::nullopt;
        }
        if (m_lost) {
            dropStreams();
        }
        PulseContext::Lock lock(*m_context);
        if (auto failure = m_context->connected()) {
            return failure;
        }
        if (m_listening == 0) {
            PulseContext::Listener listener;
            // Reported as a change, so the restarts connect again once a server is back.
            listener.lost = [this] {
                m_lost = true;
                notifyChange();
            };
            listener.event = [this](pa_subscription_event_type_t type) { onEvent(type); };
            m_listening = m_context->listen(std::move(listener));
        }
        if (auto info = serverInfo(*m_context)) {
            m_defaults = *info;
        }
        return std::nullopt;
    }

    void dropStreams() {
        {
            PulseContext::Lock lock(*m_context);
            closeStream(m_playback);
            closeStream(m_record);
            if (m_latencyTimer != nullptr) {
                m_context->api()->time_free(m_latencyTimer);
                m_latencyTimer = nullptr;
            }
            if (m_coalesce != nullptr) {
                m_context->api()->time_free(m_coalesce);
                m_coalesce = nullptr;
            }
        }
        stopCaptureThread();
        m_lost = false;
    }

    static const char* device(const std::string& name) {
        return name.empty() ? nullptr : name.c_str();
    }

    static bool good(pa_stream* stream) {
        return stream != nullptr && PA_STREAM_IS_GOOD(pa_stream_get_state(stream));
    }

    void closeStream(pa_stream*& stream) {
        if (stream == nullptr) {
            return;
        }
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_set_write_callback(stream, nullptr, nullptr);
        pa_stream_set_underflow_callback(stream, nullptr, nullptr);
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        stream = nullptr;
    }

    // With the loop locked: waits until the stream is ready or has failed.
    std::optional<AudioError> waitReady(pa_stream* stream) {
        bool failed = false;
        auto bounded = m_context->waitFor([&] {
            const pa_stream_state_t state = pa_stream_get_state(stream);
            failed = !PA_STREAM_IS_GOOD(state);
            return state == PA_STREAM_READY || failed;
        });
        if (failed) {
            return m_context->error();
        }
        return bounded;
    }

    static void onStreamState(pa_stream*, void* self) {
        static_cast<PulseEngine*>(self)->m_context->signal();
    }

    std::optional<AudioError> openPlayback() {
        const AudioFormat play = hasSource() ? sourceFormat() : AudioFormat{8000.0, 1};
        pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, std::uint32_t(play.sampleRate),
                            std::uint8_t(play.channels)};
        m_playback = pa_stream_new(m_context->context(), "call playback", &spec, nullptr);
        if (m_playback == nullptr) {
            return m_context->error();
        }
        pa_buffer_attr attr;
        std::memset(&attr, 0xff, sizeof attr);
        attr.tlength = std::uint32_t(pa_usec_to_bytes(20 * 1000, &spec));
        pa_stream_set_state_callback(m_playback, &PulseEngine::onStreamState, this);
        pa_stream_set_write_callback(m_playback, &PulseEngine::onWrite, this);
        pa_stream_set_underflow_callback(
            m_playback,
            [](pa_stream*, void* data) {
                static_cast<PulseEngine*>(data)->m_underflows->fetch_add(1,
                                                                         std::memory_order_relaxed);
            },
            this);
        const auto flags = pa_stream_flags_t(
            PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_INTERPOLATE_TIMING);
        if (pa_stream_connect_playback(m_playback, device(m_options.sink), &attr, flags, nullptr,
                                       nullptr) < 0) {
            auto failure = m_context->error();
            closeStream(m_playback);
            return failure;
        }
        if (auto failure = waitReady(m_playback)) {
            closeStream(m_playback);
            return failure;
        }
        return std::nullopt;
    }

    std::optional<AudioError> openRecord() {
        // Unlocked briefly: the format query waits on the loop itself.
        pa_threaded_mainloop_unlock(m_context->loop());
        AudioFormat format = hardwareFormat();
        pa_threaded_mainloop_lock(m_context->loop());
        return openRecord(format);
    }

    std::optional<AudioError> openRecord(AudioFormat format) {
        if (!format.valid()) {
            if (m_formatError) {
                return m_formatError;
            }
            return AudioError{PA_ERR_NOENTITY, "no input device"};
        }
        pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, std::uint32_t(format.sampleRate),
                            std::uint8_t(format.channels)};
        m_record = pa_stream_new(m_context->context(), "call capture", &spec, nullptr);
        if (m_record == nullptr) {
            return m_context->error();
        }
        m_recordFormat = format;
        pa_buffer_attr attr;
        std::memset(&attr, 0xff, sizeof attr);
        attr.fragsize = std::uint32_t(pa_usec_to_bytes(20 * 1000, &spec));
        pa_stream_set_state_callback(m_record, &PulseEngine::onStreamState, this);
        pa_stream_set_read_callback(m_record, &PulseEngine::onRead, this);
        const auto flags = pa_stream_flags_t(
            PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_INTERPOLATE_TIMING);
        startCaptureThread(format);
        if (pa_stream_connect_record(m_record, device(m_options.source), &attr, flags) < 0) {
            auto failure = m_context->error();
            closeStream(m_record);
            return failure;
        }
        if (auto failure = waitReady(m_record)) {
            closeStream(m_record);
            return failure;
        }
        return std::nullopt;
    }

    // The record stream hands over 5 ms pieces; a thread of our own assembles
    // 20 ms blocks and runs the tap, so voice processing and the core's
    // writeAudio never hold up playback on the main loop's thread.
    // The capture thread never takes the loop's lock, so it may be joined under it.
    void startCaptureThread(AudioFormat format) {
        stopCaptureThread();
        const std::uint32_t frames = std::uint32_t(std::lround(format.sampleRate * blockSeconds));
        const std::size_t block = std::size_t(frames) * std::size_t(format.channels);
        m_ring = std::make_unique<SampleRing>(block * 50);
        {
            std::lock_guard guard(m_captureMutex);
            m_captureStopping = false;
        }
        m_captureThread = std::thread([this, format, frames, block] {
            std::vector<float> samples(block);
            std::unique_lock lock(m_captureMutex);
            while (!m_captureStopping) {
                if (m_ring->available() < block) {
                    m_captureWake.wait(lock);
                    continue;
                }
                lock.unlock();
                m_ring->pop(samples.data(), block);
                deliverCapture(samples.data(), frames, format);
                lock.lock();
            }
        });
    }

    void stopCaptureThread() {
        {
            std::lock_guard guard(m_captureMutex);
            m_captureStopping = true;
        }
        m_captureWake.notify_all();
        if (m_captureThread.joinable()) {
            m_captureThread.join();
        }
    }

    static void onRead(pa_stream* stream, std::size_t, void* data) {
        auto* self = static_cast<PulseEngine*>(data);
        for (;;) {
            const void* bytes = nullptr;
            std::size_t size = 0;
            if (pa_stream_peek(stream, &bytes, &size) < 0 || size == 0) {
                break;
            }
            const std::size_t count = size / sizeof(float);
            if (bytes == nullptr) {
                // A hole in the stream: silence in its place keeps the pace.
                static const float zeros[256] = {};
                for (std::size_t done = 0; done < count;) {
                    std::size_t n = std::min<std::size_t>(count - done, 256);
                    self->m_ring->push(zeros, n);
                    done += n;
                }
            } else {
                self->m_ring->push(static_cast<const float*>(bytes), count);
            }
            pa_stream_drop(stream);
        }
        { std::lock_guard guard(self->m_captureMutex); }
        self->m_captureWake.notify_one();
    }

    static void onWrite(pa_stream* stream, std::size_t bytes, void* data) {
        auto* self = static_cast<PulseEngine*>(data);
        while (bytes >= sizeof(float)) {
            void* buffer = nullptr;
            std::size_t size = bytes;
            if (pa_stream_begin_write(stream, &buffer, &size) < 0 || buffer == nullptr) {
                return;
            }
            size -= size % sizeof(float);
            self->renderInto(static_cast<float*>(buffer), std::uint32_t(size / sizeof(float)));
            pa_stream_write(stream, buffer, size, nullptr, 0, PA_SEEK_RELATIVE);
            bytes -= std::min(bytes, size);
        }
    }

    static void onLatencyTimer(pa_mainloop_api* api, pa_time_event* event, const timeval*,
                               void* data) {
        auto* self = static_cast<PulseEngine*>(data);
        pa_usec_t play = 0, record = 0;
        int playNegative = 0, recordNegative = 0;
        bool have = true;
        if (self->m_playback == nullptr ||
            pa_stream_get_latency(self->m_playback, &play, &playNegative) < 0) {
            have = false;
        }
        if (self->m_record == nullptr ||
            pa_stream_get_latency(self->m_record, &record, &recordNegative) < 0) {
            have = false;
        }
        // A latency comes back as its size and a sign: after a playback
        // underrun what is written lies behind what plays, and PipeWire's
        // server reports monitors so; neither adds to the echo's delay.
        if (playNegative) {
            play = 0;
        }
        if (recordNegative) {
            record = 0;
        }
        if (have) {
            self->m_playbackLatencyMs = double(play) / 1000.0;
            self->m_recordLatencyMs = double(record) / 1000.0;
            const int delay = self->m_delay.add(int(std::lround(double(play + record) / 1000.0)));
            if (VoiceProcessor* voice = self->voiceProcessor()) {
                voice->setDeviceDelayMs(delay);
            }
        }
        // The timer belongs to the loop, so it outlives a context the server dropped.
        timeval next;
        pa_timeval_add(pa_gettimeofday(&next), latencyPollUsec);
        api->time_restart(event, &next);
    }

    // On the loop's thread: a server, sink or source event.
    void onEvent(pa_subscription_event_type_t type) {
        const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
        const auto kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
        if (facility == PA_SUBSCRIPTION_EVENT_SERVER) {
            // The default may have moved: compare once the answer is in.
            pa_operation* op = pa_context_get_server_info(
                m_context->context(),
                [](pa_context*, const pa_server_info* i, void* data) {
                    auto* self = static_cast<PulseEngine*>(data);
                    if (i == nullptr) {
                        return;
                    }
                    ServerInfo now{i->default_sink_name ? i->default_sink_name : "",
                                   i->default_source_name ? i->default_source_name : ""};
                    if (now.defaultSink != self->m_defaults.defaultSink ||
                        now.defaultSource != self->m_defaults.defaultSource) {
                        self->m_defaults = now;
                        self->scheduleReport();
                    }
                },
                this);
            if (op != nullptr) {
                pa_operation_unref(op);
            }
        } else if (kind == PA_SUBSCRIPTION_EVENT_NEW || kind == PA_SUBSCRIPTION_EVENT_REMOVE) {
            scheduleReport();
        }
    }

    void scheduleReport() {
        if (m_coalesce != nullptr) {
            return;
        }
        m_coalesce = pa_context_rttime_new(
            m_context->context(), pa_rtclock_now() + coalesceUsec,
            [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* data) {
                auto* self = static_cast<PulseEngine*>(data);
                api->time_free(event);
                self->m_coalesce = nullptr;
                self->notifyChange();
            },
            this);
    }

    PulseBackend::Options m_options;
    std::shared_ptr<PulseContext> m_context;
    int m_listening = 0; // the token while this engine listens to the context
    std::atomic<bool> m_lost{false};
    DelayEstimate m_delay;        // on the loop's thread
    bool m_guessedFormat = false; // the last format given was a guess, with no server to ask
    ServerInfo m_defaults;
    pa_stream* m_playback = nullptr;
    pa_stream* m_record = nullptr;
    pa_time_event* m_latencyTimer = nullptr;
    pa_time_event* m_coalesce = nullptr;
    AudioFormat m_recordFormat;
    std::optional<AudioError> m_formatError; // why the last format query gave nothing
    std::optional<AudioError> m_unanswered;  // a connection that just timed out
    std::unique_ptr<SampleRing> m_ring;
    std::thread m_captureThread;
    std::mutex m_captureMutex;
    std::condition_variable m_captureWake;
    bool m_captureStopping = false;
    std::atomic<double> m_playbackLatencyMs{0};
    std::atomic<double> m_recordLatencyMs{0};
    std::shared_ptr<std::atomic<int>> m_underflows; // the backend's count
};

} // namespace

std::unique_ptr<AudioEngine> PulseBackend::makeEngine() {
    std::lock_guard lock(m_devicesLock);
    return std::make_unique<PulseEngine>(m_options, m_context, m_underflows);
}

void PulseBackend::setDevices(std::string sink, std::string source) {
    {
        std::lock_guard lock(m_devicesLock);
        m_options.sink = sink;
        m_options.source = std::move(source);
    }
    // Whether the call's output is the speaker is asked of the chosen one.
    m_watch->follow(std::move(sink));
}

std::string PulseBackend::sink() const {
    std::lock_guard lock(m_devicesLock);
    return m_options.sink;
}

std::string PulseBackend::source() const {
    std::lock_guard lock(m_devicesLock);
    return m_options.source;
}

bool PulseBackend::builtIn(const std::string& formFactor, const std::string& bus,
                           std::optional<std::uint32_t> portType) {
    if (bus == "usb" || bus == "bluetooth") {
        return false;
    }
    if (!formFactor.empty()) {
        return formFactor == "internal";
    }
    return portType == std::uint32_t(PA_DEVICE_PORT_TYPE_SPEAKER);
}

PulseBackend::PulseBackend(Options options)
    : m_options(std::move(options)),
      m_context(std::make_shared<PulseContext>(m_options.server, m_options.applicationName,
                                               "pulse-call")),
      m_watch(std::make_unique<PulseOutputWatch>(m_context, m_options.sink)) {}

PulseBackend::~PulseBackend() = default;

bool PulseBackend::outputIsBuiltIn() {
    return m_watch->builtIn();
}

int PulseBackend::outputAnswers() const {
    return m_watch->answers();
}

PulseLatency pulseLatency(AudioEngine& engine) {
    if (auto* pulse = dynamic_cast<PulseEngine*>(&engine)) {
        return pulse->latency();
    }
    return {};
}

#include "audio/PulseContext.h"

#include <pulse/pulseaudio.h>

#include <chrono>
#include <utility>

namespace {

// No wait on the sound server lasts longer than this; then it is an error.
constexpr auto waitBound = std::chrono::seconds(2);
const char* const noAnswer = "the sound server did not answer within 2 s";
constexpr pa_usec_t reconnectUsec = 500 * 1000;

void release(pa_operation* op) {
    if (op != nullptr) {
        pa_operation_unref(op);
    }
}

} // namespace

PulseContext::PulseContext(std::string server, std::string applicationName, const char* threadName)
    : m_server(std::move(server)), m_name(std::move(applicationName)) {
    m_loop = pa_threaded_mainloop_new();
    if (m_loop == nullptr) {
        return;
    }
    pa_threaded_mainloop_set_name(m_loop, threadName);
    if (pa_threaded_mainloop_start(m_loop) < 0) {
        pa_threaded_mainloop_free(m_loop);
        m_loop = nullptr;
        return;
    }
    // Nothing here waits for the server: the listeners hear when it is there.
    Lock lock(*this);
    connect();
}

PulseContext::~PulseContext() {
    if (m_loop == nullptr) {
        return;
    }
    {
        Lock lock(*this);
        if (m_retry != nullptr) {
            api()->time_free(m_retry);
            m_retry = nullptr;
        }
        m_listeners.clear();
        if (m_context != nullptr) {
            pa_context_disconnect(m_context);
            dropContext();
        }
    }
    pa_threaded_mainloop_stop(m_loop);
    pa_threaded_mainloop_free(m_loop);
}

bool PulseContext::ready() const {
    return m_context != nullptr && pa_context_get_state(m_context) == PA_CONTEXT_READY;
}

void PulseContext::connect() {
    m_wasReady = false;
    m_context = pa_context_new(api(), m_name.c_str());
    if (m_context == nullptr) {
        return;
    }
    pa_context_set_state_callback(m_context, &PulseContext::onState, this);
    pa_context_set_subscribe_callback(m_context, &PulseContext::onEvent, this);
    if (pa_context_connect(m_context, m_server.empty() ? nullptr : m_server.c_str(),
                           PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        scheduleReconnect();
    }
}

void PulseContext::dropContext() {
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_unref(m_context);
    m_context = nullptr;
}

void PulseContext::onState(pa_context* context, void* data) {
    auto* self = static_cast<PulseContext*>(data);
    self->m_unanswered = false;
    self->m_silentUntil = {};
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        self->m_wasReady = true;
        release(pa_context_subscribe(context,
                                     pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK |
                                                            PA_SUBSCRIPTION_MASK_SOURCE |
                                                            PA_SUBSCRIPTION_MASK_SERVER),
                                     nullptr, nullptr));
        for (auto& [token, listener] : self->m_listeners) {
            if (listener.ready) {
                listener.ready();
            }
        }
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        const bool wasReady = std::exchange(self->m_wasReady, false);
        for (auto& [token, listener] : self->m_listeners) {
            if (wasReady && listener.lost) {
                listener.lost();
            }
            if (listener.failed) {
                listener.failed();
            }
        }
        self->scheduleReconnect();
    }
    self->signal();
}

void PulseContext::onEvent(pa_context*, pa_subscription_event_type_t type, std::uint32_t,
                           void* data) {
    auto* self = static_cast<PulseContext*>(data);
    for (auto& [token, listener] : self->m_listeners) {
        if (listener.event) {
            listener.event(type);
        }
    }
}

void PulseContext::scheduleReconnect() {
    if (m_retry != nullptr || m_context == nullptr) {
        return;
    }
    // The dead context goes on the loop's next turn, not inside its own callback.
    m_retry = pa_context_rttime_new(
        m_context, pa_rtclock_now() + reconnectUsec,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* data) {
            auto* self = static_cast<PulseContext*>(data);
            api->time_free(event);
            self->m_retry = nullptr;
            self->dropContext();
            self->connect();
        },
        this);
}

int PulseContext::listen(Listener listener) {
    const int token = m_nextToken++;
    auto& added = m_listeners.emplace(token, std::move(listener)).first->second;
    if (ready() && added.ready) {
        added.ready();
    }
    return token;
}

void PulseContext::unlisten(int token) {
    m_listeners.erase(token);
}

std::optional<AudioError> PulseContext::connected() {
    if (m_loop == nullptr) {
        return AudioError{PA_ERR_INTERNAL, "cannot start the PulseAudio main loop"};
    }
    if (ready()) {
        return std::nullopt;
    }
    if (m_unanswered) {
        return AudioError{PA_ERR_TIMEOUT, noAnswer};
    }
    if (m_context == nullptr || !PA_CONTEXT_IS_GOOD(pa_context_get_state(m_context))) {
        // Failed, and waiting for its next turn: that turn is now.
        if (m_retry != nullptr) {
            api()->time_free(m_retry);
            m_retry = nullptr;
        }
        if (m_context != nullptr) {
            dropContext();
        }
        connect();
        if (m_context == nullptr) {
            return AudioError{PA_ERR_INTERNAL, "cannot make a PulseAudio context"};
        }
    }
    bool failed = false;
    auto bounded = waitFor([&] {
        if (m_context == nullptr) {
            failed = true;
            return true;
        }
        const pa_context_state_t state = pa_context_get_state(m_context);
        failed = !PA_CONTEXT_IS_GOOD(state);
        return state == PA_CONTEXT_READY || failed;
    });
    if (failed) {
        return error();
    }
    m_unanswered = bounded.has_value();
    return bounded;
}

std::optional<AudioError> PulseContext::waitFor(const std::function<bool()>& done) {
    if (done()) {
        return std::nullopt;
    }
    if (m_context == nullptr) {
        return AudioError{PA_ERR_CONNECTIONREFUSED, pa_strerror(PA_ERR_CONNECTIONREFUSED)};
    }
    if (std::chrono::steady_clock::now() < m_silentUntil) {
        return AudioError{PA_ERR_TIMEOUT, noAnswer};
    }
    struct Alarm {
        pa_threaded_mainloop* loop;
        bool rang = false;
    } alarm{m_loop};
    const auto bound = std::chrono::duration_cast<std::chrono::microseconds>(waitBound);
    pa_time_event* timer = pa_context_rttime_new(
        m_context, pa_rtclock_now() + pa_usec_t(bound.count()),
        [](pa_mainloop_api*, pa_time_event*, const timeval*, void* data) {
            auto* a = static_cast<Alarm*>(data);
            a->rang = true;
            pa_threaded_mainloop_signal(a->loop, 0);
        },
        &alarm);
    std::optional<AudioError> result;
    while (!done()) {
        if (alarm.rang || timer == nullptr) {
            result = AudioError{PA_ERR_TIMEOUT, noAnswer};
            break;
        }
        pa_threaded_mainloop_wait(m_loop);
    }
    if (timer != nullptr) {
        api()->time_free(timer);
    }
    if (result && ready()) {
        m_silentUntil = std::chrono::steady_clock::now() + waitBound;
    }
    return result;
}

std::optional<AudioError> PulseContext::wait(pa_operation* op) {
    if (op == nullptr) {
        return error();
    }
    auto failure = waitFor([op] { return pa_operation_get_state(op) != PA_OPERATION_RUNNING; });
    if (failure) {
        pa_operation_cancel(op);
    }
    pa_operation_unref(op);
    return failure;
}

AudioError PulseContext::error() const {
    const int code = m_context != nullptr ? pa_context_errno(m_context) : PA_ERR_INTERNAL;
    return AudioError{code, pa_strerror(code)};
}

#include "audio/PulseOutputWatch.h"

#include "audio/PulseBackend.h"

#include <pulse/pulseaudio.h>

#include <optional>

namespace {

constexpr pa_usec_t reconnectUsec = 500 * 1000;
constexpr pa_usec_t followUpUsec = 300 * 1000;

} // namespace

PulseOutputWatch::PulseOutputWatch(std::string server, std::string applicationName)
    : m_server(std::move(server)), m_name(std::move(applicationName)) {
    m_loop = pa_threaded_mainloop_new();
    if (m_loop == nullptr) {
        return;
    }
    pa_threaded_mainloop_set_name(m_loop, "pulse-output");
    if (pa_threaded_mainloop_start(m_loop) < 0) {
        pa_threaded_mainloop_free(m_loop);
        m_loop = nullptr;
        return;
    }
    // Nothing here waits for the server: the first answer comes by itself.
    pa_threaded_mainloop_lock(m_loop);
    connect();
    pa_threaded_mainloop_unlock(m_loop);
}

PulseOutputWatch::~PulseOutputWatch() {
    if (m_loop == nullptr) {
        return;
    }
    pa_threaded_mainloop_lock(m_loop);
    if (m_retry != nullptr) {
        pa_threaded_mainloop_get_api(m_loop)->time_free(m_retry);
        m_retry = nullptr;
    }
    if (m_followUp != nullptr) {
        pa_threaded_mainloop_get_api(m_loop)->time_free(m_followUp);
        m_followUp = nullptr;
    }
    if (m_context != nullptr) {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
        m_context = nullptr;
    }
    pa_threaded_mainloop_unlock(m_loop);
    pa_threaded_mainloop_stop(m_loop);
    pa_threaded_mainloop_free(m_loop);
}

void PulseOutputWatch::connect() {
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), m_name.c_str());
    if (m_context == nullptr) {
        return;
    }
    pa_context_set_state_callback(m_context, &PulseOutputWatch::onState, this);
    pa_context_set_subscribe_callback(
        m_context,
        [](pa_context*, pa_subscription_event_type_t type, std::uint32_t, void* data) {
            const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
            if (facility == PA_SUBSCRIPTION_EVENT_SERVER ||
                facility == PA_SUBSCRIPTION_EVENT_SINK) {
                auto* self = static_cast<PulseOutputWatch*>(data);
                self->ask();
                self->askAgainLater();
            }
        },
        this);
    if (pa_context_connect(m_context, m_server.empty() ? nullptr : m_server.c_str(),
                           PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        scheduleReconnect();
    }
}

void PulseOutputWatch::onState(pa_context* context, void* data) {
    auto* self = static_cast<PulseOutputWatch*>(data);
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        pa_operation* op = pa_context_subscribe(
            context,
            pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
            nullptr, nullptr);
        if (op != nullptr) {
            pa_operation_unref(op);
        }
        self->ask();
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        // Without a server nothing is known about the output.
        self->m_builtIn.store(false, std::memory_order_release);
        self->scheduleReconnect();
    }
}

void PulseOutputWatch::scheduleReconnect() {
    if (m_retry != nullptr || m_context == nullptr) {
        return;
    }
    // The dead context goes on the loop's next turn, not inside its own callback.
    m_retry = pa_context_rttime_new(
        m_context, pa_rtclock_now() + reconnectUsec,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* data) {
            auto* self = static_cast<PulseOutputWatch*>(data);
            api->time_free(event);
            self->m_retry = nullptr;
            if (self->m_followUp != nullptr) {
                api->time_free(self->m_followUp);
                self->m_followUp = nullptr;
            }
            pa_context_set_state_callback(self->m_context, nullptr, nullptr);
            pa_context_set_subscribe_callback(self->m_context, nullptr, nullptr);
            pa_context_unref(self->m_context);
            self->m_context = nullptr;
            self->connect();
        },
        this);
}

void PulseOutputWatch::askAgainLater() {
    // PipeWire's server reports a new default before its session manager has
    // made it the one the server gives: one more look once things have settled.
    if (m_followUp != nullptr) {
        pa_context_rttime_restart(m_context, m_followUp, pa_rtclock_now() + followUpUsec);
        return;
    }
    m_followUp = pa_context_rttime_new(
        m_context, pa_rtclock_now() + followUpUsec,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* data) {
            auto* self = static_cast<PulseOutputWatch*>(data);
            api->time_free(event);
            self->m_followUp = nullptr;
            self->ask();
        },
        this);
}

void PulseOutputWatch::ask() {
    pa_operation* op = pa_context_get_server_info(
        m_context,
        [](pa_context* context, const pa_server_info* info, void* data) {
            auto* self = static_cast<PulseOutputWatch*>(data);
            if (info == nullptr || info->default_sink_name == nullptr ||
                *info->default_sink_name == '\0') {
                self->m_builtIn.store(false, std::memory_order_release);
                self->m_answers.fetch_add(1, std::memory_order_acq_rel);
                return;
            }
            pa_operation* sinkOp = pa_context_get_sink_info_by_name(
                context, info->default_sink_name,
                [](pa_context*, const pa_sink_info* sink, int eol, void* data) {
                    auto* self = static_cast<PulseOutputWatch*>(data);
                    if (eol > 0) {
                        return; // the end of a list already answered
                    }
                    bool builtIn = false;
                    if (eol == 0 && sink != nullptr) {
                        const char* form =
                            pa_proplist_gets(sink->proplist, PA_PROP_DEVICE_FORM_FACTOR);
                        const char* bus = pa_proplist_gets(sink->proplist, PA_PROP_DEVICE_BUS);
                        std::optional<std::uint32_t> port;
                        if (sink->active_port != nullptr) {
                            port = sink->active_port->type;
                        }
                        builtIn = PulseBackend::builtIn(form ? form : "", bus ? bus : "", port);
                    }
                    self->m_builtIn.store(builtIn, std::memory_order_release);
                    self->m_answers.fetch_add(1, std::memory_order_acq_rel);
                },
                self);
            if (sinkOp != nullptr) {
                pa_operation_unref(sinkOp);
            }
        },
        this);
    if (op != nullptr) {
        pa_operation_unref(op);
    }
}

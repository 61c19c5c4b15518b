#include "audio/PulseOutputWatch.h"

#include "audio/PulseBackend.h"
#include "audio/PulseContext.h"

#include <pulse/pulseaudio.h>

#include <optional>

namespace {

constexpr pa_usec_t followUpUsec = 300 * 1000;

} // namespace

PulseOutputWatch::PulseOutputWatch(std::shared_ptr<PulseContext> context, std::string sink)
    : m_context(std::move(context)), m_sink(std::move(sink)) {
    if (!m_context->usable()) {
        return;
    }
    PulseContext::Lock lock(*m_context);
    PulseContext::Listener listener;
    listener.ready = [this] { ask(); };
    // Without a server nothing is known about the output.
    listener.lost = [this] { m_builtIn.store(false, std::memory_order_release); };
    listener.event = [this](pa_subscription_event_type_t type) {
        const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
        if (facility == PA_SUBSCRIPTION_EVENT_SERVER || facility == PA_SUBSCRIPTION_EVENT_SINK) {
            ask();
            askAgainLater();
        }
    };
    m_listening = m_context->listen(std::move(listener));
}

PulseOutputWatch::~PulseOutputWatch() {
    if (!m_context->usable()) {
        return;
    }
    PulseContext::Lock lock(*m_context);
    if (m_followUp != nullptr) {
        m_context->api()->time_free(m_followUp);
        m_followUp = nullptr;
    }
    m_context->unlisten(m_listening);
    for (pa_operation* op : m_asking) {
        if (pa_operation_get_state(op) == PA_OPERATION_RUNNING) {
            pa_operation_cancel(op);
        }
        pa_operation_unref(op);
    }
    m_asking.clear();
}

void PulseOutputWatch::keep(pa_operation* op) {
    if (op == nullptr) {
        return;
    }
    std::erase_if(m_asking, [](pa_operation* held) {
        if (pa_operation_get_state(held) == PA_OPERATION_RUNNING) {
            return false;
        }
        pa_operation_unref(held);
        return true;
    });
    m_asking.push_back(op);
}

void PulseOutputWatch::askAgainLater() {
    // PipeWire's server reports a new default before its session manager has
    // made it the one the server gives: one more look once things have settled.
    pa_context* context = m_context->context();
    if (context == nullptr) {
        return;
    }
    if (m_followUp != nullptr) {
        pa_context_rttime_restart(context, m_followUp, pa_rtclock_now() + followUpUsec);
        return;
    }
    m_followUp = pa_context_rttime_new(
        context, pa_rtclock_now() + followUpUsec,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* data) {
            auto* self = static_cast<PulseOutputWatch*>(data);
            api->time_free(event);
            self->m_followUp = nullptr;
            self->ask();
        },
        this);
}

void PulseOutputWatch::follow(std::string sink) {
    if (!m_context->usable()) {
        return;
    }
    PulseContext::Lock lock(*m_context);
    if (sink == m_sink) {
        return;
    }
    m_sink = std::move(sink);
    ask();
}

void PulseOutputWatch::ask() {
    if (m_sink.empty()) {
        askDefault();
        return;
    }
    pa_context* context = m_context->context();
    if (context == nullptr) {
        return;
    }
    pa_operation* op = pa_context_get_sink_info_by_name(
        context, m_sink.c_str(),
        [](pa_context*, const pa_sink_info* sink, int eol, void* data) {
            auto* self = static_cast<PulseOutputWatch*>(data);
            if (eol > 0) {
                return; // the end of a list already answered
            }
            if (eol < 0 || sink == nullptr) {
                self->askDefault(); // the chosen sink is gone: calls play on the default
                return;
            }
            self->record(sink);
        },
        this);
    keep(op);
}

void PulseOutputWatch::askDefault() {
    if (m_context->context() == nullptr) {
        return;
    }
    pa_operation* op = pa_context_get_server_info(
        m_context->context(),
        [](pa_context* context, const pa_server_info* info, void* data) {
            auto* self = static_cast<PulseOutputWatch*>(data);
            if (info == nullptr || info->default_sink_name == nullptr ||
                *info->default_sink_name == '\0') {
                self->record(nullptr);
                return;
            }
            pa_operation* sinkOp = pa_context_get_sink_info_by_name(
                context, info->default_sink_name,
                [](pa_context*, const pa_sink_info* sink, int eol, void* data) {
                    auto* self = static_cast<PulseOutputWatch*>(data);
                    if (eol > 0) {
                        return; // the end of a list already answered
                    }
                    self->record(eol == 0 ? sink : nullptr);
                },
                self);
            self->keep(sinkOp);
        },
        this);
    keep(op);
}

void PulseOutputWatch::record(const pa_sink_info* sink) {
    bool builtIn = false;
    if (sink != nullptr) {
        const char* form = pa_proplist_gets(sink->proplist, PA_PROP_DEVICE_FORM_FACTOR);
        const char* bus = pa_proplist_gets(sink->proplist, PA_PROP_DEVICE_BUS);
        std::optional<std::uint32_t> port;
        if (sink->active_port != nullptr) {
            port = sink->active_port->type;
        }
        builtIn = PulseBackend::builtIn(form ? form : "", bus ? bus : "", port);
    }
    m_builtIn.store(builtIn, std::memory_order_release);
    m_answers.fetch_add(1, std::memory_order_acq_rel);
}

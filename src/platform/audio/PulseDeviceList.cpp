#include "audio/PulseDeviceList.h"

#include <pulse/pulseaudio.h>

namespace {

constexpr pa_usec_t reconnectUsec = 500 * 1000;

std::string text(const char* value) {
    return value != nullptr ? std::string(value) : std::string();
}

void release(pa_operation* op) {
    if (op != nullptr) {
        pa_operation_unref(op);
    }
}

} // namespace

PulseDeviceList::PulseDeviceList(std::string server, std::string applicationName, Changed changed)
    : m_server(std::move(server)), m_name(std::move(applicationName)),
      m_changed(std::move(changed)) {
    m_loop = pa_threaded_mainloop_new();
    if (m_loop == nullptr) {
        return;
    }
    pa_threaded_mainloop_set_name(m_loop, "pulse-devices");
    if (pa_threaded_mainloop_start(m_loop) < 0) {
        pa_threaded_mainloop_free(m_loop);
        m_loop = nullptr;
        return;
    }
    pa_threaded_mainloop_lock(m_loop);
    connect();
    pa_threaded_mainloop_unlock(m_loop);
}

PulseDeviceList::~PulseDeviceList() {
    if (m_loop == nullptr) {
        return;
    }
    pa_threaded_mainloop_lock(m_loop);
    if (m_retry != nullptr) {
        pa_threaded_mainloop_get_api(m_loop)->time_free(m_retry);
        m_retry = nullptr;
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

void PulseDeviceList::connect() {
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), m_name.c_str());
    if (m_context == nullptr) {
        return;
    }
    pa_context_set_state_callback(m_context, &PulseDeviceList::onState, this);
    pa_context_set_subscribe_callback(
        m_context,
        [](pa_context*, pa_subscription_event_type_t, std::uint32_t, void* data) {
            static_cast<PulseDeviceList*>(data)->ask();
        },
        this);
    if (pa_context_connect(m_context, m_server.empty() ? nullptr : m_server.c_str(),
                           PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        scheduleReconnect();
    }
}

void PulseDeviceList::onState(pa_context* context, void* data) {
    auto* self = static_cast<PulseDeviceList*>(data);
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY) {
        release(pa_context_subscribe(context,
                                     pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK |
                                                            PA_SUBSCRIPTION_MASK_SOURCE |
                                                            PA_SUBSCRIPTION_MASK_SERVER),
                                     nullptr, nullptr));
        self->ask();
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        self->m_outstanding = 0;
        self->m_askAgain = false;
        self->m_changed(SoundDevices{});
        self->scheduleReconnect();
    }
}

void PulseDeviceList::scheduleReconnect() {
    if (m_retry != nullptr || m_context == nullptr) {
        return;
    }
    // The dead context goes on the loop's next turn, not inside its own callback.
    m_retry = pa_context_rttime_new(
        m_context, pa_rtclock_now() + reconnectUsec,
        [](pa_mainloop_api* api, pa_time_event* event, const timeval*, void* data) {
            auto* self = static_cast<PulseDeviceList*>(data);
            api->time_free(event);
            self->m_retry = nullptr;
            pa_context_set_state_callback(self->m_context, nullptr, nullptr);
            pa_context_set_subscribe_callback(self->m_context, nullptr, nullptr);
            pa_context_unref(self->m_context);
            self->m_context = nullptr;
            self->connect();
        },
        this);
}

void PulseDeviceList::ask() {
    // A burst of events during one round asks once more when it ends.
    if (m_outstanding > 0) {
        m_askAgain = true;
        return;
    }
    m_pending = SoundDevices{};
    m_outstanding = 3;
    release(pa_context_get_server_info(
        m_context,
        [](pa_context*, const pa_server_info* info, void* data) {
            auto* self = static_cast<PulseDeviceList*>(data);
            if (info != nullptr) {
                self->m_pending.defaultOutput = text(info->default_sink_name);
                self->m_pending.defaultInput = text(info->default_source_name);
            }
            self->finishOne();
        },
        this));
    release(pa_context_get_sink_info_list(
        m_context,
        [](pa_context*, const pa_sink_info* sink, int eol, void* data) {
            auto* self = static_cast<PulseDeviceList*>(data);
            if (eol != 0) {
                self->finishOne();
                return;
            }
            self->m_pending.outputs.push_back({text(sink->name), text(sink->description)});
        },
        this));
    release(pa_context_get_source_info_list(
        m_context,
        [](pa_context*, const pa_source_info* source, int eol, void* data) {
            auto* self = static_cast<PulseDeviceList*>(data);
            if (eol != 0) {
                self->finishOne();
                return;
            }
            // A sink's monitor is no microphone.
            if (source->monitor_of_sink == PA_INVALID_INDEX) {
                self->m_pending.inputs.push_back({text(source->name), text(source->description)});
            }
        },
        this));
}

void PulseDeviceList::finishOne() {
    if (m_outstanding == 0 || --m_outstanding > 0) {
        return;
    }
    m_changed(m_pending);
    if (m_askAgain) {
        m_askAgain = false;
        ask();
    }
}

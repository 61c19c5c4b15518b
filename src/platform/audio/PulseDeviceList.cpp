#include "audio/PulseDeviceList.h"

#include "audio/PulseContext.h"

#include <pulse/pulseaudio.h>

namespace {

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
    : m_changed(std::move(changed)),
      m_context(std::make_unique<PulseContext>(std::move(server), std::move(applicationName),
                                               "pulse-devices")) {
    if (!m_context->usable()) {
        return;
    }
    PulseContext::Lock lock(*m_context);
    PulseContext::Listener listener;
    listener.ready = [this] { ask(); };
    listener.failed = [this] {
        m_outstanding = 0;
        m_askAgain = false;
        m_changed(SoundDevices{});
    };
    listener.event = [this](pa_subscription_event_type_t) { ask(); };
    m_listening = m_context->listen(std::move(listener));
}

PulseDeviceList::~PulseDeviceList() {
    if (!m_context->usable()) {
        return;
    }
    PulseContext::Lock lock(*m_context);
    m_context->unlisten(m_listening);
}

void PulseDeviceList::ask() {
    // A burst of events during one round asks once more when it ends.
    if (m_outstanding > 0) {
        m_askAgain = true;
        return;
    }
    m_pending = SoundDevices{};
    m_outstanding = 3;
    pa_context* context = m_context->context();
    release(pa_context_get_server_info(
        context,
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
        context,
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
        context,
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

#include "telephony/HeadsetControl.h"

#include "hid/HidrawDevice.h"
#include "platform/Log.h"
#include "telephony/Phone.h"

HeadsetControl::HeadsetControl(Phone& phone, QObject* parent) : QObject(parent), m_phone(phone) {
    connect(&m_phone, &Phone::activeCallChanged, this, &HeadsetControl::updateLights);
}

void HeadsetControl::attach(HidrawDevice* device) {
    if (m_device) {
        disconnect(m_device, nullptr, this, nullptr);
    }
    m_device = device;
    m_offHook.reset();
    if (!device) {
        return;
    }
    connect(device, &HidrawDevice::pressed, this, &HeadsetControl::onPressed);
    connect(device, &HidrawDevice::gone, this, [this] { m_offHook.reset(); });
    Log::info(Log::app, QStringLiteral("Call buttons of %1 in use").arg(device->name()));
    updateLights();
}

hid::HeadsetLights HeadsetControl::lightsFor(const Phone& phone) {
    hid::HeadsetLights lights;
    const auto& call = phone.activeCall();
    if (!call) {
        return lights;
    }
    using Status = Phone::ActiveCall::Status;
    lights.ring = call->status == Status::incoming;
    lights.offHook = !lights.ring;
    lights.mute = call->muted;
    lights.hold = call->held;
    return lights;
}

void HeadsetControl::onPressed(const hid::HeadsetButtons& buttons) {
    const auto& call = m_phone.activeCall();
    const bool ringing = call && call->status == Phone::ActiveCall::Status::incoming;
    // A hook switch that reports its level acts when the level changes; one
    // that reports presses acts on each press.
    bool pickUp = false;
    bool hangUp = false;
    if (buttons.offHook && buttons.offHook != m_offHook) {
        const bool wasKnown = m_offHook.has_value();
        m_offHook = buttons.offHook;
        if (*buttons.offHook) {
            pickUp = true;
        } else if (wasKnown) {
            hangUp = true;
        }
    }
    if (buttons.hookPressed) {
        (ringing ? pickUp : hangUp) = true;
    }
    if (pickUp && ringing) {
        m_phone.answer();
    } else if (hangUp && call && !ringing) {
        m_phone.hangUpActive();
    }
    if (call && !ringing) {
        if (buttons.mutePressed) {
            m_phone.setActiveMuted(!call->muted);
        } else if (buttons.muted && *buttons.muted != call->muted) {
            m_phone.setActiveMuted(*buttons.muted);
        }
    }
    // A headset that toggles its own light expects the host's word back.
    updateLights();
}

void HeadsetControl::updateLights() {
    if (m_device) {
        m_device->setLights(lightsFor(m_phone));
    }
}

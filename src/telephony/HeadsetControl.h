#pragma once

#include "hid/HeadsetReports.h"
#include "hid/HidrawDevice.h"

#include <QObject>
#include <QPointer>

class Phone;

// A headset's call buttons acting on the phone, and its lights following it:
// the hook switch answers a ringing call and hangs up a running one, the mute
// button mutes and unmutes, and the off-hook, ring and mute lights show the
// call. A headset that goes away takes only its lights with it.
class HeadsetControl : public QObject {
    Q_OBJECT
public:
    explicit HeadsetControl(Phone& phone, QObject* parent = nullptr);

    // Follows this headset from now on (one at a time; a later one replaces it).
    void attach(HidrawDevice* device);
    HidrawDevice* device() const { return m_device; }

    // The lights the phone's state calls for.
    static hid::HeadsetLights lightsFor(const Phone& phone);

private:
    void onPressed(const hid::HeadsetButtons& buttons);
    void updateLights();

    Phone& m_phone;
    QPointer<HidrawDevice> m_device;
    // The hook switch's last level, to act on its changes only.
    std::optional<bool> m_offHook;
};

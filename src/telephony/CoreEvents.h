#pragma once

#include "core/Core.h"

#include <QPointer>

#include <memory>

class Phone;

// The engine's delegate. Callbacks arrive on the engine's thread; each is
// posted to the main thread in the order it came and handed to the phone
// there. One that arrives after this object or the phone is gone is dropped.
class CoreEvents : public core::ClientDelegate, public std::enable_shared_from_this<CoreEvents> {
public:
    static std::shared_ptr<CoreEvents> make(Phone* phone);

    void registrationChanged(core::RegistrationState state) override;
    void incomingCall(std::shared_ptr<core::Call> call) override;
    void callStateChanged(std::string sipCallId, core::CallState state) override;

private:
    explicit CoreEvents(Phone* phone) : m_phone(phone) {}

    // Runs `deliver` on the main thread with the phone, if both are still there.
    template <typename Deliver> void post(Deliver deliver);

    // Read on the main thread only.
    QPointer<Phone> m_phone;
};

#include "telephony/CoreEvents.h"

#include "telephony/Phone.h"

#include <QCoreApplication>
#include <QMetaObject>

std::shared_ptr<CoreEvents> CoreEvents::make(Phone* phone) {
    return std::shared_ptr<CoreEvents>(new CoreEvents(phone));
}

template <typename Deliver> void CoreEvents::post(Deliver deliver) {
    // The application object lives on the main thread for the whole run, so
    // the posted events queue there in the order they were made.
    std::weak_ptr<CoreEvents> weak = weak_from_this();
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [weak, deliver = std::move(deliver)]() mutable {
            const auto self = weak.lock();
            if (!self) {
                return;
            }
            Phone* phone = self->m_phone.data();
            if (!phone) {
                return;
            }
            deliver(*phone);
        },
        Qt::QueuedConnection);
}

void CoreEvents::registrationChanged(core::RegistrationState state) {
    post([state = std::move(state)](Phone& phone) { phone.registrationChanged(state); });
}

void CoreEvents::incomingCall(std::shared_ptr<core::Call> call) {
    post([call = std::move(call)](Phone& phone) { phone.incomingCall(call); });
}

void CoreEvents::callStateChanged(std::string sipCallId, core::CallState state) {
    post([id = std::move(sipCallId), state = std::move(state)](Phone& phone) {
        phone.callStateChanged(id, state);
    });
}

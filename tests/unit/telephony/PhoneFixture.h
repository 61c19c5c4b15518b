#pragma once

// A phone over a fake engine for the phone's unit tests: the engine it makes
// is kept, may be told to refuse, and the call's end is counted.

#include "FakeCore.h"
#include "ManualClock.h"
#include "audio/NullBackend.h"
#include "telephony/Phone.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class PhoneFixture : public testing::Test {
protected:
    PhoneFixture() {
        phone.setClientFactory([this](const core::SipAccount& account,
                                      std::shared_ptr<core::ClientDelegate> delegate) {
            if (refuseInit) {
                throw *refuseInit;
            }
            auto client = std::make_shared<FakeClient>(account, std::move(delegate));
            if (refuseStart) {
                client->refuseStart = refuseStart;
            }
            clients.push_back(client);
            return client;
        });
        phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
        phone.onCallEnded = [this] { ++ended; };
    }

    FakeClient& client() { return *clients.back(); }

    // Starts the phone and has the engine report it registered.
    void registered() {
        phone.start();
        phone.registrationChanged(core::RegistrationState::registered());
    }

    // An outgoing call the engine has taken; gives its uuid.
    QUuid dialled(const QString& number = "204") {
        phone.dial(number);
        EXPECT_TRUE(phone.activeCall());
        return phone.activeCall() ? phone.activeCall()->uuid : QUuid();
    }

    std::shared_ptr<FakeCoreCall> incoming(const std::string& id, const std::string& number,
                                           std::optional<std::string> name = {}) {
        auto call = std::make_shared<FakeCoreCall>(id, number, std::move(name));
        phone.incomingCall(call);
        return call;
    }

    // Lets queued events (the engine's, the audio's completion) run, for at most the bound.
    void settle(const std::function<bool()>& until, int boundMs = 5000) {
        QDeadlineTimer deadline(boundMs);
        while (!until() && !deadline.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
    }

    const Recents::Entry& newest() { return phone.recents().entries().front(); }

    MemorySettingsStore settings;
    ManualClock clock;
    Phone phone{settings, std::make_shared<NullBackend>(), clock};
    std::vector<std::shared_ptr<FakeClient>> clients;
    std::optional<core::CoreError> refuseInit;
    std::optional<core::CoreError> refuseStart;
    int ended = 0;
};

#pragma once

// The phone system as the app meets it, private to one test: rz-devserver
// offering a kamailio of its own as the SIP edge, baresip parties registered
// there, a PulseAudio daemon with null sinks, and gnome-keyring's Secret
// Service on a private bus. The signed-in session and the phone run in this
// process with the real engine.

#include "../core/SipLab.h"
#include "../session/BrowserKit.h"
#include "DevServer.h"
#include "PulseAudioServer.h"
#include "Services.h"
#include "audio/PulseBackend.h"
#include "session/Session.h"
#include "telephony/Phone.h"

#include <QTemporaryDir>

#include <memory>

using Status = Phone::ActiveCall::Status;

// Waits for the condition while the event loop runs; false when the bound passed.
bool waitFor(const std::function<bool()>& condition, int boundMs = 10000);
// The status of the phone's active call, if it has one.
std::optional<Status> status(Phone& phone);

// Waits until the party's baresip reported an event with all these pieces; the
// party's events arrive while the phone's own keep being handled.
bool partySaw(Baresip& party, const std::vector<std::string>& pieces, int boundMs = 10000);

// Seconds of what a PulseAudio source (a sink's monitor) heard, at 8000 Hz mono.
std::vector<std::int16_t> recordSink(const QString& source, double seconds);

class PhoneLab {
public:
    struct Options {
        bool tls = false;
        // The SIP user the device is given; one of kamailio's test users.
        std::string user = "alice";
    };

    explicit PhoneLab(Options options);
    PhoneLab() : PhoneLab(Options{}) {}

    // Signs in on rz-devserver; provisioning starts the phone. Throws when the
    // session did not get there within the bound.
    void signIn();
    // Waits for the phone to be registered; throws with what it shows otherwise.
    void waitRegistered(std::chrono::milliseconds bound = 10s);

    std::unique_ptr<Baresip> party(const std::string& user, Baresip::Role role);

    // Seconds of what the default sink played, at 8000 Hz, recorded from its monitor.
    std::vector<std::int16_t> recordSpeaker(double seconds);

    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio{dir.path(), certs, {}};
    QString tone = writeToneFile(dir.path(), 1000);
    PrivateBus bus;
    SecretService secretService{bus};
    PulseAudioServer pulse;
    DevServer server;
    MemorySettingsStore settings;
    KeychainStore secrets;
    std::unique_ptr<Phone> phone;
    std::unique_ptr<Session> session;
    Options options;
};

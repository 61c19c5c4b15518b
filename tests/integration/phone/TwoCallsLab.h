#pragma once

// The app signed in on rz-devserver's own phone system, with the real engine
// and PulseAudio in this process, and Frank's desk phone (206) as a far end
// that records what reaches it. For the tests and the bench of two calls.

#include "../devserver/PhoneKit.h"
#include "PhoneLab.h"
#include "PulseAudioServer.h"
#include "Services.h"
#include "audio/PulseBackend.h"
#include "session/Session.h"
#include "telephony/Phone.h"

#include <QEventLoop>
#include <QTimer>

#include <memory>
#include <stdexcept>

// The app's microphone is a 1 kHz tone; Frank (206, a baresip provisioned as
// his desk phone) plays 500 Hz and records what reaches him.
inline constexpr double appTone = 1000;
inline constexpr double frankTone = 500;

class TwoCallsLab {
public:
    // A bench keeps the sign-in in memory: the Secret Service's library holds
    // a bus connection that would end the process when this lab's bus goes.
    explicit TwoCallsLab(bool keychain = true)
        : pulse({"load-module module-null-sink sink_name=speaker rate=48000 channels=1 "
                 "norewinds=1",
                 "load-module module-sine-source source_name=mic rate=48000 frequency=1000",
                 "set-default-sink speaker", "set-default-source mic"}),
          server() {
        qputenv("GSETTINGS_BACKEND", "memory");
        settings.setUrl("rz.server", server.url());
        settings.setText("sip.caFile", server.caFile());
        PulseBackend::Options options;
        options.voice.noiseSuppression = false; // a steady tone is what it removes
        phone = std::make_unique<Phone>(settings, std::make_shared<PulseBackend>(options));
        phone->setCaFile(settings.text("sip.caFile"));
        if (keychain) {
            secrets = std::make_unique<KeychainStore>();
        } else {
            secrets = std::make_unique<MemorySecureStore>();
        }
        session = std::make_unique<Session>(settings, *secrets);
        session->setPhone(phone.get());
        // Live updates follow the call in front, as the app has them do.
        QObject::connect(phone.get(), &Phone::activeSipCallIdChanged, session.get(),
                         [this] { session->live().follow(phone->activeSipCallId()); });
        // Anna allows the sign-in on the server's page, as in a browser. (The
        // page stays, rather than an automatic approval, so that Frank's phone
        // can be provisioned for him through it.)
        session->setOpenBrowser([this](const QUrl& url) {
            QNetworkAccessManager network;
            const auto page = httpRequest(network, "GET", url);
            const auto decision = httpRequest(network, "POST", server.url("oauth/authorize"),
                                              kit::form({{"request", kit::pageRequestId(page.body)},
                                                         {"user", "u-001"},
                                                         {"decision", "allow"}}),
                                              kit::formHeaders);
            const QUrl redirect(QString::fromUtf8(decision.header("Location")));
            QMetaObject::invokeMethod(
                session.get(), [this, redirect] { session->handleRedirect(redirect); },
                Qt::QueuedConnection);
            return decision.status == 302;
        });
    }

    void signInAndRegister() {
        session->signIn();
        if (!waitFor([&] { return session->hasError() || phone->isRegistered(); }, 20000)) {
            throw std::runtime_error("not registered: " + phone->registrationText().toStdString());
        }
        if (session->hasError()) {
            throw std::runtime_error("sign-in failed: " + session->errorText().toStdString());
        }
    }

    // Frank's desk phone, registered.
    std::unique_ptr<kit::Agent> frank() {
        auto agent =
            std::make_unique<kit::Agent>(server, server.provision("u-006", "install-frank"), "tcp",
                                         kit::toneWav(dir.path(), int(frankTone)));
        if (!agent->waitRegistered()) {
            throw std::runtime_error("Frank's phone did not register: " + agent->output());
        }
        return agent;
    }

    // Dials Frank and has him answer; waits until the call is connected with its audio up.
    void callFrank(kit::Agent& frank) {
        phone->dial("206");
        frank.waitEvent({"CALL_INCOMING"}, 15s);
        frank.command("accept");
        if (!waitFor([&] {
                return status(*phone) == Status::connected &&
                       phone->activeCall()->remote == "206" && !phone->startingCall();
            })) {
            throw std::runtime_error("Frank's call did not connect");
        }
    }

    std::vector<std::int16_t> speaker(double seconds) {
        return recordSink(QStringLiteral("speaker.monitor"), seconds);
    }

    TempHome home;
    QTemporaryDir dir;
    PrivateBus bus;
    SecretService secretService{bus};
    PulseAudioServer pulse;
    kit::PhoneServer server;
    MemorySettingsStore settings;
    std::unique_ptr<SecureStore> secrets;
    std::unique_ptr<Phone> phone;
    std::unique_ptr<Session> session;
};

// Lets the call run for a while: the figures of what is heard need time to pass.
inline void talkFor(std::chrono::milliseconds duration) {
    QEventLoop loop;
    QTimer::singleShot(duration, &loop, &QEventLoop::quit);
    loop.exec();
}

#include "../contacts/EdsLab.h"
#include "../session/BrowserKit.h"
#include "DevServer.h"
#include "PhoneLab.h"
#include "PulseAudioServer.h"
#include "RunTask.h"
#include "Services.h"
#include "StderrCapture.h"
#include "audio/PulseBackend.h"
#include "contacts/PhoneContacts.h"
#include "session/Session.h"
#include "telephony/Phone.h"

#include <QTest>

#include <gtest/gtest.h>

// The phone against rz-devserver's own phone system, as a user meets it:
// the device is provisioned by the server and registered at its kamailio,
// calls go through its relay to parties that are real user agents, and the
// caller is named from the desktop's address book or the company directory.
namespace {

class ServerPhoneLab {
public:
    explicit ServerPhoneLab(bool addressBook)
        : pulse({"load-module module-null-sink sink_name=speaker rate=48000 channels=1 "
                 "norewinds=1",
                 "load-module module-sine-source source_name=mic rate=48000 frequency=1000",
                 "set-default-sink speaker", "set-default-source mic"}),
          server({"--auto-approve", "u-001", "--phone", "--state", dir.path()}) {
        // GIO's dconf backend holds a bus connection of its own that ends the
        // process when the private bus goes at the end of the test.
        qputenv("GSETTINGS_BACKEND", "memory");
        if (addressBook) {
            eds = std::make_unique<EdsLab>(bus);
        }
        // The phone system takes a moment after the server listens.
        const auto ready = server.phoneReady();
        settings.setUrl("rz.server", server.url());
        settings.setText("sip.caFile", QString::fromStdString(ready.at("caFile")));
        PulseBackend::Options options;
        options.voice.noiseSuppression = false; // a steady tone is what it removes
        phone = std::make_unique<Phone>(settings, std::make_shared<PulseBackend>(options));
        phone->setCaFile(settings.text("sip.caFile"));
        session = std::make_unique<Session>(settings, secrets);
        session->setPhone(phone.get());
        contacts = std::make_unique<PhoneContacts>(std::make_shared<EdsAddressBook>());
        // Wired as the app wires them.
        Session* s = session.get();
        PhoneContacts* c = contacts.get();
        phone->colleagueName = [s](const QString& number) { return s->colleagueName(number); };
        phone->contactName = [c](const QString& number) { return c->name(number); };
        useSigningInBrowser(*session);
    }

    void signInAndRegister() {
        runTask(contacts->refresh(), std::chrono::seconds(20));
        session->signIn();
        if (!waitFor([&] { return session->hasError() || phone->isRegistered(); }, 20000)) {
            throw std::runtime_error("not registered: " + phone->registrationText().toStdString());
        }
        if (session->hasError()) {
            throw std::runtime_error("sign-in failed: " + session->errorText().toStdString());
        }
    }

    // The registrations the server's kamailio reported for this device.
    int registrations() { return registrationsOf(phone->account().username); }
    int registrationsOf(const QString& sipUser) {
        // Kept whole: the loop must not run over a part of a temporary.
        const auto state = server.control("GET", "phone");
        int count = 0;
        for (const auto& r : state.at("registrations")) {
            count += r.at("sipUsername") == sipUser.toStdString() ? 1 : 0;
        }
        return count;
    }

    TempHome home;
    QTemporaryDir dir;
    PrivateBus bus;
    SecretService secretService{bus};
    PulseAudioServer pulse;
    DevServer server;
    std::unique_ptr<EdsLab> eds;
    MemorySettingsStore settings;
    KeychainStore secrets;
    std::unique_ptr<Phone> phone;
    std::unique_ptr<Session> session;
    std::unique_ptr<PhoneContacts> contacts;
};

} // namespace

TEST(PhoneOnServer, TheServersRegistrarKnowsTheDeviceTheEchoSendsTheToneBackAndSignOutForgetsIt) {
    ServerPhoneLab lab(false);
    lab.signInAndRegister();
    EXPECT_EQ(lab.registrations(), 1);

    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    EXPECT_FALSE(lab.phone->lastError()) << lab.phone->lastErrorText().toStdString();
    ASSERT_TRUE(waitFor([&] { return !lab.phone->startingCall(); }));
    // The microphone's tone goes through the relay to the echo and back out of the speaker.
    const auto heard = recordSink("speaker.monitor", 2.0);
    ASSERT_GE(heard.size(), 8000u);
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0);
    lab.phone->hangUpActive();
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    EXPECT_EQ(lab.phone->recents().entries().front().remote, "999");

    const QString device = lab.phone->account().username;
    runTask(lab.session->signOut(true));
    EXPECT_TRUE(waitFor([&] { return lab.registrationsOf(device) == 0; }));
}

TEST(PhoneOnServer, AnOutsideCallerIsNamedFromTheAddressBookAnsweredAndEndedByTheCaller) {
    ServerPhoneLab lab(true);
    lab.eds->add({{"Paula Steiner", "Paula", {"+49 170 555 0123"}}});
    lab.signInAndRegister();
    int ended = 0;
    lab.phone->onCallEnded = [&] { ++ended; };

    lab.server.control("POST", "phone/call",
                       {{"from", "205"}, {"to", "201"}, {"as", "+491705550123"}});
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::incoming; }));
    EXPECT_EQ(lab.phone->activeCall()->remote, "+491705550123");
    EXPECT_EQ(lab.phone->activeCall()->remoteName, "Paula Steiner");
    EXPECT_EQ(lab.phone->recents().entries().front().name, "Paula Steiner");

    lab.phone->answer();
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    lab.server.control("POST", "phone/hangup");
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    EXPECT_EQ(ended, 1);
    const auto& entry = lab.phone->recents().entries().front();
    EXPECT_TRUE(entry.incoming);
    EXPECT_TRUE(entry.answered);
    EXPECT_FALSE(entry.failure);
}

TEST(PhoneOnServer, AColleagueIsNamedAsThePhoneSystemShowsThem) {
    ServerPhoneLab lab(true);
    lab.signInAndRegister();
    lab.server.control("POST", "phone/call", {{"from", "205"}, {"to", "201"}});
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::incoming; }));
    EXPECT_EQ(lab.phone->activeCall()->remote, "205");
    EXPECT_EQ(lab.phone->activeCall()->remoteName, "Emma Lindqvist");
    lab.phone->hangUpActive();
}

TEST(PhoneOnServer, WithoutTheAddressBookServiceCallsWorkAndTheDirectoryNamesTheCaller) {
    ServerPhoneLab lab(false); // nothing answers for the address book on the bus
    StderrCapture capture;
    lab.signInAndRegister();
    const auto reply = runTask(lab.session->api().request("api/directory"));
    lab.session->setDirectory(decode<Directory>(reply.body));

    // Emma's own direct line, dialled from outside.
    lab.server.control("POST", "phone/call",
                       {{"from", "205"}, {"to", "201"}, {"as", "+4930555205"}});
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::incoming; }));
    EXPECT_EQ(lab.phone->activeCall()->remoteName, "Emma Lindqvist");
    lab.phone->answer();
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    lab.phone->hangUpActive();
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    EXPECT_EQ(capture.take().count("The address book cannot be read"), 1);
}

#include "../phone/PhoneLab.h"
#include "RunTask.h"

#include <gtest/gtest.h>

// A call through the phone on rz-devserver's phone system: the list shows it
// from this computer at once, and the server's own line once the call's end
// has reloaded the log.
namespace {

class HistoryPhoneLab {
public:
    HistoryPhoneLab()
        : pulse({"load-module module-null-sink sink_name=speaker rate=48000 channels=1 "
                 "norewinds=1",
                 "load-module module-sine-source source_name=mic rate=48000 frequency=1000",
                 "set-default-sink speaker", "set-default-source mic"}),
          server({"--auto-approve", "u-001", "--phone", "--state", dir.path()}) {
        qputenv("GSETTINGS_BACKEND", "memory");
        const auto ready = server.phoneReady();
        settings.setUrl("rz.server", server.url());
        settings.setText("sip.caFile", QString::fromStdString(ready.at("caFile")));
        phone = std::make_unique<Phone>(settings, std::make_shared<PulseBackend>());
        phone->setCaFile(settings.text("sip.caFile"));
        session = std::make_unique<Session>(settings, secrets);
        session->setPhone(phone.get());
        // Wired as the app wires it.
        Session* s = session.get();
        phone->onCallEnded = [s] { s->reloadHistoryAfterCall(); };
        useSigningInBrowser(*session);
    }

    void signInAndRegister() {
        session->signIn();
        if (!waitFor([&] { return session->hasError() || phone->isRegistered(); }, 20000)) {
            throw std::runtime_error("not registered: " + phone->registrationText().toStdString());
        }
        if (session->hasError()) {
            throw std::runtime_error("sign-in failed: " + session->errorText().toStdString());
        }
        if (!waitFor(
                [&] { return session->history().hasLoaded() && !session->history().loading(); })) {
            throw std::runtime_error("the first page never came");
        }
    }

    QList<CallHistory::Item> items() {
        return session->history().items(session->historyOwner(), phone->recents().entries());
    }

    int callLogRequests() {
        const auto requests = server.control("GET", "requests");
        int count = 0;
        for (const auto& request : requests) {
            count += request["path"] == "api/calls" ? 1 : 0;
        }
        return count;
    }

    TempHome home;
    QTemporaryDir dir;
    PrivateBus bus;
    SecretService secretService{bus};
    PulseAudioServer pulse;
    DevServer server;
    MemorySettingsStore settings;
    KeychainStore secrets;
    std::unique_ptr<Phone> phone;
    std::unique_ptr<Session> session;
};

} // namespace

TEST(CallHistoryOnThePhone, ACallShowsFirstFromThisComputerThenAsTheServersLine) {
    HistoryPhoneLab lab;
    lab.signInAndRegister();
    const int loadsBefore = lab.callLogRequests();
    const QString newestBefore = lab.session->history().rows().first().callUuid;

    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    const QString localId = lab.phone->activeCall()->uuid.toString(QUuid::WithoutBraces).toUpper();
    // At once, and although the server has rows: this computer's line, on top.
    auto during = lab.items();
    ASSERT_FALSE(during.isEmpty());
    EXPECT_EQ(during.first().id, localId);
    EXPECT_TRUE(during.first().inProgress);
    EXPECT_EQ(during.first().remote, "999");
    EXPECT_FALSE(during.first().incoming);

    lab.phone->hangUpActive();
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    // The end reloads the first page by itself, and the server's line replaces ours.
    ASSERT_TRUE(waitFor(
        [&] {
            return !lab.session->history().rows().isEmpty() &&
                   lab.session->history().rows().first().callUuid != newestBefore;
        },
        15000));
    EXPECT_EQ(lab.callLogRequests(), loadsBefore + 1);
    const auto after = lab.items();
    ASSERT_FALSE(after.isEmpty());
    EXPECT_NE(after.first().id, localId);
    EXPECT_EQ(after.first().id, lab.session->history().rows().first().callUuid);
    EXPECT_EQ(after.first().remote, "999");
    EXPECT_FALSE(after.first().incoming);
    EXPECT_TRUE(after.first().answered);
    EXPECT_FALSE(after.first().inProgress);
    for (const auto& item : after) {
        EXPECT_NE(item.id, localId);
    }
}

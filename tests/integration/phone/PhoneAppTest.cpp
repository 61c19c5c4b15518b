#include "../core/SipLab.h"
#include "../session/BrowserKit.h"
#include "DevServer.h"
#include "PulseAudioServer.h"
#include "RunTask.h"
#include "Services.h"
#include "history/Recents.h"
#include "session/Session.h"

#include "EventLoopWait.h"
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>

#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

// The app itself, started as a person starts it, with a kept sign-in: it
// provisions, registers at kamailio and is driven over its D-Bus interface
// and by links handed to a second start.
namespace {

class PhoneApp : public testing::Test {
protected:
    PhoneApp() {
        QDir().mkpath(home.configHome() + "/velnor");
        settings = std::make_unique<IniSettingsStore>(configFile());
        settings->setUrl("rz.server", server.url());
        // The device rz-devserver hands out gets one of this kamailio's users.
        server.control("POST", "faults",
                       {{"method", "POST"},
                        {"path", "api/me/app-device"},
                        {"status", 200},
                        {"count", 100},
                        {"body", labDevice(kamailio)}});
        // A sign-in kept from before, in the Secret Service the app will use.
        Session session(*settings, keychain);
        useSigningInBrowser(session);
        session.signIn();
        // A constructor cannot stop the test; the check that follows fails it.
        EXPECT_TRUE(spinUntil([&] { return session.me().has_value() || session.hasError(); },
                              std::chrono::milliseconds(10000)));
        EXPECT_FALSE(session.hasError()) << session.errorText().toStdString();
    }

    QString configFile() const { return home.configHome() + "/velnor/rz.conf"; }

    QProcessEnvironment environment() const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        return environment;
    }

    void startApp(ChildProcess& process, const QStringList& arguments = {}) {
        settings->flush();
        process.start(VELNOR_APP_PATH, arguments, environment());
        process.process().setReadChannel(QProcess::StandardError);
    }

    QByteArray waitForLine(ChildProcess& process, const QByteArray& text) {
        for (;;) {
            const QByteArray line = process.readLine(std::chrono::seconds(20));
            if (line.contains(text)) {
                return line;
            }
        }
    }

    QVariant property(const char* name) {
        QDBusInterface app("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
        return app.property(name);
    }

    bool waitForProperty(const char* name, const std::function<bool(const QVariant&)>& wanted,
                         int boundMs = 15000) {
        QDeadlineTimer deadline(boundMs);
        while (!deadline.hasExpired()) {
            if (wanted(property(name))) {
                return true;
            }
            QTest::qWait(20);
        }
        return false;
    }

    QDBusMessage call(const QString& method, const QVariantList& arguments = {}) {
        QDBusInterface app("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
        return app.callWithArgumentList(QDBus::Block, method, arguments);
    }

    TempHome home;
    PrivateBus bus;
    SecretService secretService{bus};
    KeychainStore keychain;
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-sine-source source_name=mic rate=48000 frequency=1000",
         "set-default-sink speaker", "set-default-source mic"}};
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio{dir.path(), certs, {}};
    QString tone = writeToneFile(dir.path(), 1000);
    DevServer server{{"--auto-approve", "u-001"}};
    std::unique_ptr<IniSettingsStore> settings;
};

} // namespace

TEST_F(PhoneApp, AKeptSignInRegistersAtLaunch) {
    ChildProcess app;
    startApp(app);
    EXPECT_TRUE(waitForProperty("Registration", [](const QVariant& v) {
        return v.toString() == "registered";
    })) << property("Registration").toString().toStdString();
}

TEST_F(PhoneApp, ATelLinkHandedToASecondStartIsDialledByTheRunningApp) {
    ChildProcess app;
    startApp(app);
    ASSERT_TRUE(waitForProperty("Registration",
                                [](const QVariant& v) { return v.toString() == "registered"; }));
    ChildProcess second;
    second.start(VELNOR_APP_PATH, {"tel:+49 (30) 1234-567"}, environment());
    ASSERT_TRUE(second.process().waitForFinished(10000));
    EXPECT_EQ(second.process().exitCode(), 0);
    // The engine placed it; kamailio knows no such user, so it ends there.
    const QByteArray dialled = waitForLine(app, "dialed +49301234567: ");
    EXPECT_TRUE(dialled.contains("[call]")) << dialled.toStdString();
}

TEST_F(PhoneApp, DialOverTheBusReachesTheEchoPartyAndHangUpEndsIt) {
    Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa);
    ChildProcess app;
    startApp(app);
    ASSERT_TRUE(waitForProperty("Registration",
                                [](const QVariant& v) { return v.toString() == "registered"; }));
    call("Dial", {"bob"});
    const auto status = [](const QVariant& v) {
        return qdbus_cast<QVariantMap>(v).value("status").toString();
    };
    ASSERT_TRUE(waitForProperty("ActiveCall", [&](const QVariant& v) {
        return status(v) == "connected";
    })) << status(property("ActiveCall")).toStdString();
    const QVariantMap active = qdbus_cast<QVariantMap>(property("ActiveCall"));
    EXPECT_EQ(active.value("number").toString(), "bob");
    EXPECT_TRUE(active.value("outgoing").toBool());
    EXPECT_FALSE(active.value("connectedAt").toString().isEmpty());
    call("SetMuted", {true});
    EXPECT_TRUE(qdbus_cast<QVariantMap>(property("ActiveCall")).value("muted").toBool());
    call("HangUp");
    EXPECT_TRUE(waitForProperty(
        "ActiveCall", [](const QVariant& v) { return qdbus_cast<QVariantMap>(v).isEmpty(); }));
    bob.waitEvent({"CALL_CLOSED"});
}

TEST_F(PhoneApp, AnAppKilledMidCallHasTheCallMarkedInterruptedAtTheNextStart) {
    Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa);
    {
        ChildProcess app;
        startApp(app);
        ASSERT_TRUE(waitForProperty(
            "Registration", [](const QVariant& v) { return v.toString() == "registered"; }));
        call("Dial", {"bob"});
        ASSERT_TRUE(waitForProperty("ActiveCall", [](const QVariant& v) {
            return qdbus_cast<QVariantMap>(v).value("status").toString() == "connected";
        }));
        // The app writes its settings on a thread of its own: the answer
        // reaches the file a moment after the bus reports it.
        QDeadlineTimer written(10000);
        while (!written.hasExpired()) {
            IniSettingsStore file(configFile());
            const auto entries = Recents::decode(file.data("recents.v1").value_or(QByteArray()));
            if (entries && !entries->isEmpty() && entries->front().answered) {
                break;
            }
            QTest::qWait(20);
        }
        ::kill(pid_t(app.pid()), SIGKILL);
        ASSERT_TRUE(app.process().waitForFinished(10000));
    }
    IniSettingsStore before(configFile());
    const auto killed = Recents::decode(*before.data("recents.v1"));
    ASSERT_TRUE(killed);
    ASSERT_FALSE(killed->isEmpty());
    EXPECT_EQ(killed->front().inProgress, true);
    EXPECT_TRUE(killed->front().answered);

    ChildProcess next;
    startApp(next);
    waitForLine(next, "started");
    QDeadlineTimer deadline(10000);
    std::optional<QList<Recents::Entry>> repaired;
    while (!deadline.hasExpired()) {
        IniSettingsStore after(configFile());
        repaired = Recents::decode(after.data("recents.v1").value_or(QByteArray()));
        if (repaired && !repaired->isEmpty() && repaired->front().interrupted == true) {
            break;
        }
        QTest::qWait(20);
    }
    ASSERT_TRUE(repaired && !repaired->isEmpty());
    const auto& entry = repaired->front();
    EXPECT_EQ(entry.id, killed->front().id);
    EXPECT_EQ(entry.interrupted, true);
    EXPECT_FALSE(entry.inProgress);
    EXPECT_TRUE(entry.answered);
    EXPECT_FALSE(entry.duration);
}

// --- two calls ---
TEST_F(PhoneApp, HoldASecondCallSwapAndHangUpOverTheBus) {
    Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa);
    Baresip carol(dir.path(), "carol", Baresip::Role::tonePlayer, kamailio, tone, certs.trustedCa);
    ChildProcess app;
    startApp(app);
    ASSERT_TRUE(waitForProperty("Registration",
                                [](const QVariant& v) { return v.toString() == "registered"; }));
    const auto active = [&] { return qdbus_cast<QVariantMap>(property("ActiveCall")); };
    const auto is = [&](const char* number, const char* status, bool held) {
        return waitForProperty("ActiveCall", [&](const QVariant& v) {
            const auto call = qdbus_cast<QVariantMap>(v);
            return call.value("number").toString() == number &&
                   call.value("status").toString() == status && call.value("held").toBool() == held;
        });
    };
    call("Dial", {"bob"});
    ASSERT_TRUE(is("bob", "connected", false)) << active().value("status").toString().toStdString();
    call("ToggleHold");
    ASSERT_TRUE(is("bob", "connected", true));
    call("ToggleHold");
    ASSERT_TRUE(is("bob", "connected", false));

    // A second call puts Bob on hold; Swap brings him back.
    call("Dial", {"carol"});
    carol.waitEvent({"CALL_INCOMING"});
    carol.command("accept");
    ASSERT_TRUE(is("carol", "connected", false));
    call("Swap");
    ASSERT_TRUE(is("bob", "connected", false));
    // Ending Bob's call brings Carol forward, still on hold.
    call("HangUp");
    ASSERT_TRUE(is("carol", "connected", true));
    call("HangUp");
    EXPECT_TRUE(waitForProperty(
        "ActiveCall", [](const QVariant& v) { return qdbus_cast<QVariantMap>(v).isEmpty(); }));
    bob.waitEvent({"CALL_CLOSED"});
}

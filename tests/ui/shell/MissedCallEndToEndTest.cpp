#include "AppHarness.h"
#include "PulseAudioServer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QEventLoop>
#include <QTimer>

// A missed call as a person meets it, every part real: the app's own process
// on an X display of its own, signed in on rz-devserver with its phone system,
// a colleague's phone (baresip) calling and giving up, and dunst showing the
// notification on the private session bus with its menu answered from a file.
namespace {

class MissedCallDesktop : public AppHarness {
protected:
    // Dana Weber (u-006, 206) has no call log on the server yet and no phone
    // of her own there, so the app's is the one that rings.
    MissedCallDesktop() : AppHarness({"--phone", "--auto-approve", "u-006"}) {}

    void SetUp() override {
        AppHarness::SetUp();
        QDeadlineTimer ready(30000);
        for (;;) {
            try {
                server.phoneReady();
                break;
            } catch (const std::exception& error) {
                ASSERT_FALSE(ready.hasExpired()) << error.what();
            }
        }
        // dunst's context menu asks a "dmenu" which action to take; this one
        // picks the line of the action named in a file.
        const QString menu = scripts.filePath("menu");
        QFile script(menu);
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\ncat > \"" + scripts.filePath("menu-offered").toUtf8() +
                     "\"\ngrep -F \"[\" \"" + scripts.filePath("menu-offered").toUtf8() +
                     "\" | grep -F \"$(cat \"" + scripts.filePath("menu-choice").toUtf8() +
                     "\")\" | head -n 1\n");
        script.close();
        QFile::setPermissions(menu, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir().mkpath(scripts.filePath("dunst-config/dunst"));
        QFile config(scripts.filePath("dunst-config/dunst/dunstrc"));
        ASSERT_TRUE(config.open(QIODevice::WriteOnly));
        config.write("[global]\ndmenu = " + menu.toUtf8() + "\n");
        config.close();
        QProcessEnvironment dunstEnvironment = environment();
        dunstEnvironment.insert("XDG_CONFIG_HOME", scripts.filePath("dunst-config"));
        dunst.start("dunst", {}, dunstEnvironment);
        bus.waitForName("org.freedesktop.Notifications");
    }

    void TearDown() override {
        connection.reset();
        QDBusConnection::disconnectFromBus("missed-test");
    }

    void startSignedIn() {
        app.start(VELNOR_APP_PATH, {}, environment());
        app.process().setReadChannel(QProcess::StandardError);
        waitForLine("started");
        bus.waitForName("net.velnor.rz");
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(bus.address(), "missed-test"));
        ASSERT_TRUE(connection->isConnected());
        call("SignIn");
        ASSERT_TRUE(waitFor([&] { return property("State").toString() == "signedIn"; }));
        ASSERT_TRUE(
            waitFor([&] { return property("Registration").toString() == "registered"; }, 30000))
            << property("Registration").toString().toStdString();
    }

    QVariant property(const char* name) {
        QDBusMessage get = QDBusMessage::createMethodCall("net.velnor.rz", "/net/velnor/rz",
                                                          "org.freedesktop.DBus.Properties", "Get");
        get << QString("net.velnor.rz.App") << QString::fromLatin1(name);
        const QDBusMessage reply = connection->call(get, QDBus::Block, 10000);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            throw std::runtime_error(reply.errorMessage().toStdString());
        }
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }

    QVariantMap activeCall() { return qdbus_cast<QVariantMap>(property("ActiveCall")); }

    void call(const char* method) {
        const QDBusMessage reply =
            connection->call(QDBusMessage::createMethodCall("net.velnor.rz", "/net/velnor/rz",
                                                            "net.velnor.rz.App", method),
                             QDBus::Block, 10000);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    bool waitFor(const std::function<bool()>& condition, int boundMs = 15000) {
        QDeadlineTimer deadline(boundMs);
        while (!deadline.hasExpired()) {
            if (condition()) {
                return true;
            }
            QEventLoop loop;
            QTimer::singleShot(50, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return condition();
    }

    QString run(const QString& program, const QStringList& arguments) {
        QProcess tool;
        tool.setProcessEnvironment(environment());
        tool.start(program, arguments);
        if (!tool.waitForFinished(10000)) {
            tool.kill();
            tool.waitForFinished();
            return {};
        }
        return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    }

    int notificationsShown() {
        bool ok = false;
        const int count = run("dunstctl", {"count", "displayed"}).toInt(&ok);
        return ok ? count : -1;
    }

    void choose(const QByteArray& action) {
        QFile choice(scripts.filePath("menu-choice"));
        ASSERT_TRUE(choice.open(QIODevice::WriteOnly));
        choice.write("," + action + "]");
        choice.close();
        run("dunstctl", {"context"});
    }

    QString offeredMenu() {
        QFile offered(scripts.filePath("menu-offered"));
        return offered.open(QIODevice::ReadOnly) ? QString::fromUtf8(offered.readAll()) : QString();
    }

    // Emma (205) rings Dana and gives up before anyone answers.
    void missedCallFromEmma() {
        server.control("POST", "phone/call", {{"from", "205"}, {"to", "206"}});
        ASSERT_TRUE(waitFor([&] { return activeCall().value("status").toString() == "incoming"; }));
        server.control("POST", "phone/hangup");
        ASSERT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
    }

    // The app is calling 205 (Emma lets it ring); it is hung up.
    void hangUpTheCallTo205() {
        QVariantMap seen;
        ASSERT_TRUE(waitFor([&] {
            seen = activeCall();
            return seen.value("number").toString() == "205";
        })) << seen.value("number").toString().toStdString();
        EXPECT_TRUE(seen.value("outgoing").toBool());
        call("HangUp");
        ASSERT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
    }

    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-null-sink sink_name=quiet rate=48000 channels=1 norewinds=1",
         "set-default-sink speaker", "set-default-source quiet.monitor"}};
    ChildProcess dunst;
    std::unique_ptr<QDBusConnection> connection;
};

} // namespace

TEST_F(MissedCallDesktop, AMissedCallIsNotifiedAndCallBackFromTheNotificationCallsTheCaller) {
    startSignedIn();
    missedCallFromEmma();
    // The ringing notification went with the call; the missed call's came.
    ASSERT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 10000));
    choose("call-back");
    hangUpTheCallTo205();
    // The menu the person chose from, as dunst offered it.
    EXPECT_TRUE(offeredMenu().contains("Call back")) << offeredMenu().toStdString();
}

TEST_F(MissedCallDesktop, ADoubleClickOnTheTopRowOfRecentsCallsItsNumber) {
    startSignedIn();
    missedCallFromEmma();
    // Dana's list held nothing: Emma's call is its first row, from this
    // computer at once and from the server after the reload, 205 either way.
    QString window;
    ASSERT_TRUE(waitFor([&] {
        window = run("xdotool", {"search", "--onlyvisible", "--name", "^velnor RZ$"});
        return !window.isEmpty();
    }));
    // Beside the sidebar, the middle of the first row.
    xdotool({"mousemove", "--window", window.section('\n', 0, 0), "460", "28"});
    xdotool({"click", "--repeat", "2", "--delay", "60", "1"});
    grabScreen().save(QString(VELNOR_SCREENSHOTS) + "/desktop-recents-missed.png");
    hangUpTheCallTo205();
}

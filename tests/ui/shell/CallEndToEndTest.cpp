#include "../../integration/core/SipLab.h"
#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "PulseAudioServer.h"
#include "Services.h"
#include "session/Session.h"

#include <QDBusInterface>
#include <QDBusMetaType>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

// The app as a person meets a call, every part real: the app's own process on
// an X display of its own with a kept sign-in, registered at kamailio; a
// colleague's phone (baresip) calling it; dunst showing notifications on a
// private session bus; the ring played into a private PulseAudio.
namespace {

class CallEndToEnd : public testing::Test {
protected:
    CallEndToEnd() {
        QDir().mkpath(home.configHome() + "/velnor");
        settings = std::make_unique<IniSettingsStore>(home.configHome() + "/velnor/rz.conf");
        settings->setUrl("rz.server", server.url());
        // The device the dashboard hands out is one of this kamailio's users.
        server.control("POST", "faults",
                       {{"method", "POST"},
                        {"path", "api/me/app-device"},
                        {"status", 200},
                        {"count", 100},
                        {"body",
                         {{"deviceId", "dev-lab"},
                          {"name", "Linux of Anna Berger"},
                          {"sipUsername", "alice"},
                          {"password", Kamailio::users().at("alice")},
                          {"realm", "127.0.0.1"},
                          {"srtp", false},
                          {"edge", nlohmann::json::array({{{"host", "127.0.0.1"},
                                                           {"port", kamailio.tcpPort()},
                                                           {"transport", "tcp"}}})}}}});
        Session session(*settings, keychain);
        useSigningInBrowser(session);
        session.signIn();
        QTRY_VERIFY_WITH_TIMEOUT(session.me().has_value() || session.hasError(), 10000);
        EXPECT_FALSE(session.hasError()) << session.errorText().toStdString();

        // dunst's context menu asks a "dmenu" which action to take; this one
        // picks the line of the action the test names in a file.
        menuScript = dir.filePath("menu");
        QFile script(menuScript);
        EXPECT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\ncat > \"" + dir.filePath("menu-offered").toUtf8() +
                     "\"\ngrep -F \"[\" \"" + dir.filePath("menu-offered").toUtf8() +
                     "\" | grep -F \"$(cat \"" + dir.filePath("menu-choice").toUtf8() +
                     "\")\" | head -n 1\n");
        script.close();
        QFile::setPermissions(menuScript, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir().mkpath(dir.filePath("dunst-config/dunst"));
        QFile config(dir.filePath("dunst-config/dunst/dunstrc"));
        EXPECT_TRUE(config.open(QIODevice::WriteOnly));
        config.write("[global]\ndmenu = " + menuScript.toUtf8() + "\n");
        config.close();
        QProcessEnvironment dunstEnvironment = environment();
        dunstEnvironment.insert("XDG_CONFIG_HOME", dir.filePath("dunst-config"));
        dunst.start("dunst", {}, dunstEnvironment);
        bus.waitForName("org.freedesktop.Notifications");
    }

    QProcessEnvironment environment() const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display.display());
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.remove("WAYLAND_DISPLAY");
        return environment;
    }

    void startApp() {
        app.start(VELNOR_APP_PATH, {}, environment());
        app.process().setReadChannel(QProcess::StandardError);
        ASSERT_TRUE(waitForProperty("Registration", [](const QVariant& v) {
            return v.toString() == "registered";
        })) << property("Registration").toString().toStdString();
    }

    QVariant property(const char* name) {
        QDBusInterface bus("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
        return bus.property(name);
    }

    QDBusMessage call(const QString& method, const QVariantList& arguments = {}) {
        QDBusInterface bus("net.velnor.rz", "/net/velnor/rz", "net.velnor.rz.App");
        return bus.callWithArgumentList(QDBus::Block, method, arguments);
    }

    QString callStatus() {
        return qdbus_cast<QVariantMap>(property("ActiveCall")).value("status").toString();
    }

    bool waitForProperty(const char* name, const std::function<bool(const QVariant&)>& wanted,
                         int boundMs = 15000) {
        return waitFor([&] { return wanted(property(name)); }, boundMs);
    }

    bool waitFor(const std::function<bool()>& until, int boundMs) {
        QDeadlineTimer deadline(boundMs);
        while (!until()) {
            if (deadline.hasExpired()) {
                return false;
            }
            QTest::qWait(20);
        }
        return true;
    }

    // Runs a tool on the test's display and bus; its standard output.
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

    // Chooses an action of the notification on screen through dunst's context menu.
    void choose(const QByteArray& action) {
        QFile choice(dir.filePath("menu-choice"));
        ASSERT_TRUE(choice.open(QIODevice::WriteOnly));
        choice.write("," + action + "]");
        choice.close();
        run("dunstctl", {"context"});
    }

    QString offeredMenu() {
        QFile offered(dir.filePath("menu-offered"));
        return offered.open(QIODevice::ReadOnly) ? QString::fromUtf8(offered.readAll()) : QString();
    }

    // The loudness of what the speaker played over some seconds, as RMS of 16-bit samples.
    double speakerLevel(double seconds) {
        ChildProcess recorder;
        recorder.start("parec", {"--device=speaker.monitor", "--rate=8000", "--channels=1",
                                 "--format=s16le", "--raw", "--latency-msec=20"});
        QByteArray bytes;
        const qsizetype wanted = qsizetype(seconds * 8000) * 2;
        QDeadlineTimer deadline(qint64(seconds * 1000) + 5000);
        while (bytes.size() < wanted && !deadline.hasExpired()) {
            recorder.process().waitForReadyRead(100);
            bytes += recorder.process().readAllStandardOutput();
        }
        recorder.stop();
        std::vector<std::int16_t> samples(std::size_t(bytes.size() / 2));
        std::memcpy(samples.data(), bytes.constData(), samples.size() * 2);
        double sum = 0;
        for (std::int16_t s : samples) {
            sum += double(s) * s;
        }
        return samples.empty() ? 0 : std::sqrt(sum / double(samples.size()));
    }

    // Whether the sound server plays the theme's ring for anyone.
    bool ringPlaying() {
        return pulse.pactl({"list", "sink-inputs"}).contains("event.id = \"phone-incoming-call\"");
    }

    QString callWindowId() { return run("xdotool", {"search", "--name", "^Call$"}); }

    TempHome home;
    PrivateBus bus;
    SecretService secretService{bus};
    KeychainStore keychain;
    // The microphone is silent, so that after the ring stops the speaker is quiet.
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-null-sink sink_name=quiet rate=48000 channels=1 norewinds=1",
         "set-default-sink speaker", "set-default-source quiet.monitor"}};
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio{dir.path(), certs, {}};
    QString tone = writeToneFile(dir.path(), 1000);
    DevServer server{{"--auto-approve", "u-001"}};
    std::unique_ptr<IniSettingsStore> settings;
    VirtualDisplay display;
    QString menuScript;
    ChildProcess dunst;
    ChildProcess app;
};

} // namespace

TEST_F(CallEndToEnd, ACallerRingsIsNotifiedAndAnsweredFromTheNotification) {
    startApp();
    auto carol = std::make_unique<Baresip>(dir.path(), "carol", Baresip::Role::echo, kamailio, tone,
                                           certs.trustedCa);
    carol->command("dial", "sip:alice@127.0.0.1");
    ASSERT_TRUE(waitFor([&] { return callStatus() == "incoming"; }, 15000))
        << callStatus().toStdString();
    ASSERT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 5000));
    EXPECT_FALSE(callWindowId().isEmpty());
    // The ring is heard: the theme's sound played into the default sink.
    EXPECT_GT(speakerLevel(2.6), 300.0);

    EXPECT_TRUE(ringPlaying());

    choose("answer");
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 10000))
        << callStatus().toStdString();
    EXPECT_TRUE(offeredMenu().contains("Answer")) << offeredMenu().toStdString();
    EXPECT_TRUE(offeredMenu().contains("Decline")) << offeredMenu().toStdString();
    carol->waitEvent({"CALL_ESTABLISHED"});
    EXPECT_TRUE(waitFor([&] { return notificationsShown() == 0; }, 5000));
    // The ring stopped at once and does not come back over more than one ring's period
    // (the speaker now plays the caller's voice, so the stream is what tells).
    EXPECT_TRUE(waitFor([&] { return !ringPlaying(); }, 1000));
    QDeadlineTimer period(3000);
    while (!period.hasExpired()) {
        ASSERT_FALSE(ringPlaying());
    }
    EXPECT_FALSE(callWindowId().isEmpty());

    call("HangUp");
    carol->waitEvent({"CALL_CLOSED"});
    EXPECT_TRUE(waitFor([&] { return callWindowId().isEmpty(); }, 5000));
}

TEST_F(CallEndToEnd, ACallerWhoGivesUpWithdrawsTheNotificationAndTheWindow) {
    startApp();
    auto carol = std::make_unique<Baresip>(dir.path(), "carol", Baresip::Role::echo, kamailio, tone,
                                           certs.trustedCa);
    carol->command("dial", "sip:alice@127.0.0.1");
    ASSERT_TRUE(waitFor([&] { return callStatus() == "incoming"; }, 15000));
    ASSERT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 5000));
    carol->command("hangup");
    EXPECT_TRUE(waitFor([&] { return callStatus().isEmpty(); }, 10000));
    EXPECT_TRUE(waitFor([&] { return notificationsShown() == 0; }, 5000));
    EXPECT_TRUE(waitFor([&] { return callWindowId().isEmpty(); }, 5000));
}

TEST_F(CallEndToEnd, DeclineFromTheNotificationEndsTheCall) {
    startApp();
    auto carol = std::make_unique<Baresip>(dir.path(), "carol", Baresip::Role::echo, kamailio, tone,
                                           certs.trustedCa);
    carol->command("dial", "sip:alice@127.0.0.1");
    ASSERT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 15000));
    choose("decline");
    carol->waitEvent({"CALL_CLOSED"});
    EXPECT_TRUE(waitFor([&] { return callStatus().isEmpty(); }, 10000));
    EXPECT_TRUE(waitFor([&] { return notificationsShown() == 0; }, 5000));
}

TEST_F(CallEndToEnd, AnOutgoingCallOpensTheCallWindowAndItsEndButtonHangsUp) {
    Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa);
    startApp();
    call("Dial", {"bob"});
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 15000))
        << callStatus().toStdString();
    ASSERT_TRUE(waitFor([&] { return !callWindowId().isEmpty(); }, 5000));
    // No notification and no ring for a call of one's own.
    EXPECT_EQ(notificationsShown(), 0);
    const QString id = callWindowId().split('\n').value(0);
    const QStringList geometry = run("xdotool", {"getwindowgeometry", "--shell", id}).split('\n');
    std::map<QString, int> values;
    for (const QString& line : geometry) {
        values[line.section('=', 0, 0)] = line.section('=', 1).toInt();
    }
    // The End button is the one red circle of a connected call; click its middle.
    QImage screen = QImage::fromData(
        [&] {
            QProcess grab;
            grab.setProcessEnvironment(environment());
            grab.start("/usr/bin/import", {"-window", "root", "png:-"});
            grab.waitForFinished(10000);
            return grab.readAllStandardOutput();
        }(),
        "PNG");
    ASSERT_FALSE(screen.isNull());
    QRect red;
    const QRect window(values["X"], values["Y"], values["WIDTH"], values["HEIGHT"]);
    for (int y = window.top(); y <= window.bottom(); ++y) {
        for (int x = window.left(); x <= window.right(); ++x) {
            if (screen.pixelColor(x, y).rgb() == QColor("#E7000B").rgb()) {
                red |= QRect(x, y, 1, 1);
            }
        }
    }
    ASSERT_FALSE(red.isEmpty());
    EXPECT_GT(red.width(), 30);
    run("xdotool", {"mousemove", QString::number(red.center().x()),
                    QString::number(red.center().y()), "click", "1"});
    bob.waitEvent({"CALL_CLOSED"});
    EXPECT_TRUE(waitFor([&] { return callStatus().isEmpty(); }, 10000));
    EXPECT_TRUE(waitFor([&] { return callWindowId().isEmpty(); }, 5000));
}

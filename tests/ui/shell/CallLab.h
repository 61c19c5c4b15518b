#pragma once

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
#include <QTest>

#include <cmath>
#include <cstring>
#include <stdexcept>

// Everything around the app when a call comes in, private to one test or
// bench run: a kept sign-in on rz-devserver whose device is a user of a
// kamailio of its own, a PulseAudio whose speaker is a null sink and whose
// microphone is silent, an X display, and dunst showing notifications on a
// private session bus, with its context menu answered from a file.
class CallLab {
public:
    CallLab() {
        QDir().mkpath(home.configHome() + "/velnor");
        settings = std::make_unique<IniSettingsStore>(home.configHome() + "/velnor/rz.conf");
        settings->setUrl("rz.server", server.url());
        // The device the dashboard hands out is one of this kamailio's users.
        server.control("POST", "faults",
                       {{"method", "POST"},
                        {"path", "api/me/app-device"},
                        {"status", 200},
                        {"count", 100},
                        {"body", labDevice(kamailio)}});
        Session session(*settings, keychain);
        useSigningInBrowser(session);
        session.signIn();
        if (!waitFor([&] { return session.me().has_value() || session.hasError(); }, 10000) ||
            session.hasError()) {
            throw std::runtime_error("the kept sign-in failed: " +
                                     session.errorText().toStdString());
        }

        // dunst's context menu asks a "dmenu" which action to take; this one
        // picks the line of the action the test names in a file.
        menuScript = dir.filePath("menu");
        QFile script(menuScript);
        if (!script.open(QIODevice::WriteOnly)) {
            throw std::runtime_error("cannot write the menu script");
        }
        script.write("#!/bin/sh\ncat > \"" + dir.filePath("menu-offered").toUtf8() +
                     "\"\ngrep -F \"[\" \"" + dir.filePath("menu-offered").toUtf8() +
                     "\" | grep -F \"$(cat \"" + dir.filePath("menu-choice").toUtf8() +
                     "\")\" | head -n 1\n");
        script.close();
        QFile::setPermissions(menuScript, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir().mkpath(dir.filePath("dunst-config/dunst"));
        QFile config(dir.filePath("dunst-config/dunst/dunstrc"));
        if (!config.open(QIODevice::WriteOnly)) {
            throw std::runtime_error("cannot write dunst's configuration");
        }
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
        // Qt shows its accessibility tree on AT-SPI only when asked or when a
        // screen reader runs; the tests read it.
        environment.insert("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
        return environment;
    }

    // Starts the app and waits until it is registered; false when it was not in time.
    bool startApp(const QString& appPath) {
        settings->flush();
        app.start(appPath, {}, environment());
        app.process().setReadChannel(QProcess::StandardError);
        return waitForProperty("Registration",
                               [](const QVariant& v) { return v.toString() == "registered"; });
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
        if (!choice.open(QIODevice::WriteOnly)) {
            throw std::runtime_error("cannot write the menu choice");
        }
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
        return PulseAudioServer::rms(PulseAudioServer::record("speaker.monitor", seconds));
    }

    // Whether the sound server plays the theme's ring for anyone.
    bool ringPlaying() {
        return pulse.pactl({"list", "sink-inputs"}).contains("event.id = \"phone-incoming-call\"");
    }

    QString callWindowId() {
        return run("xdotool", {"search", "--onlyvisible", "--name", "^Call$"});
    }

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
    WindowManager windowManager{display.display()};
    QString menuScript;
    ChildProcess dunst;
    ChildProcess app;
};

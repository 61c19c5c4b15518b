#include "CallLab.h"

#include <QImage>

#include <gtest/gtest.h>

// The app as a person meets a call, every part real: the app's own process on
// an X display of its own with a kept sign-in, registered at kamailio; a
// colleague's phone (baresip) calling it; dunst showing notifications on a
// private session bus; the ring played into a private PulseAudio.
namespace {

class CallEndToEnd : public testing::Test, public CallLab {
protected:
    void startApp() {
        ASSERT_TRUE(CallLab::startApp(VELNOR_APP_PATH))
            << property("Registration").toString().toStdString();
    }
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

    // The user is busy in another window when the call comes.
    const QString mainWindow = run("xdotool", {"search", "--onlyvisible", "--name", "^velnor RZ$"});
    ASSERT_FALSE(mainWindow.isEmpty());
    run("xdotool", {"windowactivate", "--sync", mainWindow});
    ASSERT_EQ(windowManager.activeWindow(), mainWindow);

    choose("answer");
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 10000))
        << callStatus().toStdString();
    EXPECT_TRUE(offeredMenu().contains("Answer")) << offeredMenu().toStdString();
    EXPECT_TRUE(offeredMenu().contains("Decline")) << offeredMenu().toStdString();
    carol->waitEvent({"CALL_ESTABLISHED"});
    // Answering from the notification brings the call window to the front.
    EXPECT_TRUE(waitFor([&] { return windowManager.activeWindow() == callWindowId(); }, 5000))
        << windowManager.activeWindow().toStdString() << " " << callWindowId().toStdString();
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
    // --- call history ---
    // The ringing notification is closed, and the missed call's stands in its place.
    EXPECT_TRUE(waitFor([&] { return run("dunstctl", {"count", "history"}) == "1"; }, 5000));
    EXPECT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 5000));
    EXPECT_FALSE(run("dunstctl", {"history"}).contains("Missed call"))
        << run("dunstctl", {"history"}).toStdString();
    // --- end of call history ---
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

// What a screen reader finds in the call window, read from the AT-SPI tree:
// the window by its title, every button named, no focusable element unnamed.
TEST_F(CallEndToEnd, AScreenReaderFindsEveryControlOfTheCallWindowNamed) {
    ChildProcess accessibilityBus;
    accessibilityBus.start("/usr/libexec/at-spi-bus-launcher", {"--launch-immediately"},
                           environment());
    bus.waitForName("org.a11y.Bus");
    Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa);
    startApp();
    call("Dial", {"bob"});
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 15000));
    ASSERT_TRUE(waitFor([&] { return !callWindowId().isEmpty(); }, 5000));
    const QString script = dir.filePath("tree.py");
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"PY(
import pyatspi
def walk(node, depth=0):
    try:
        role = node.getRoleName()
        states = node.getState()
        name = node.name
    except Exception:
        return
    if not states.contains(pyatspi.STATE_SHOWING):
        return
    focusable = states.contains(pyatspi.STATE_FOCUSABLE)
    print("%s|%s|%s" % (role, name, "focusable" if focusable else ""))
    for child in node:
        walk(child, depth + 1)
for app in pyatspi.Registry.getDesktop(0):
    if app is None:
        continue
    for frame in app:
        if frame is not None and frame.name == "Call":
            print("frame|Call|")
            walk(frame)
)PY");
    file.close();
    QString tree;
    // The tree fills in as the window is drawn; read until the End button is there.
    ASSERT_TRUE(waitFor(
        [&] {
            tree = run("/usr/bin/python3", {script});
            return tree.contains("push button|End|");
        },
        10000))
        << tree.toStdString();
    std::printf("%s\n", qPrintable(tree));
    for (const char* name : {"Mute", "Keypad", "End", "Mini bar"}) {
        EXPECT_TRUE(tree.contains(QString("push button|%1|").arg(name))) << name;
    }
    for (const QString& line : tree.split('\n')) {
        const QStringList parts = line.split('|');
        if (parts.value(0) == "push button") {
            EXPECT_FALSE(parts.value(1).isEmpty()) << line.toStdString();
        }
        if (parts.value(2) == "focusable") {
            EXPECT_FALSE(parts.value(1).isEmpty()) << line.toStdString();
        }
    }
    call("HangUp");
}

// What the notification server is asked to show, seen on the bus as a
// monitor sees it: critical urgency (so that do-not-disturb still lets it
// through where the desktop allows), the incoming-call category, never
// expiring, with the actions "Answer" and "Decline".
TEST_F(CallEndToEnd, TheIncomingCallNotificationIsCriticalAndNeverExpires) {
    ChildProcess monitor;
    monitor.start("dbus-monitor",
                  {"--session", "interface=org.freedesktop.Notifications,member=Notify"},
                  environment());
    startApp();
    auto carol = std::make_unique<Baresip>(dir.path(), "carol", Baresip::Role::echo, kamailio, tone,
                                           certs.trustedCa);
    carol->command("dial", "sip:alice@127.0.0.1");
    ASSERT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 15000));
    QByteArray seen;
    ASSERT_TRUE(waitFor(
        [&] {
            monitor.process().waitForReadyRead(50);
            seen += monitor.process().readAllStandardOutput();
            return seen.contains("x-velnor.incoming-call");
        },
        5000))
        << seen.toStdString();
    QByteArray flat = seen;
    flat.replace(" ", "").replace("\n", "");
    EXPECT_TRUE(flat.contains("string\"urgency\"variantbyte2")) << seen.toStdString();
    EXPECT_TRUE(flat.contains("string\"category\"variantstring\"x-velnor.incoming-call\""));
    EXPECT_TRUE(
        flat.contains("string\"answer\"string\"Answer\"string\"decline\"string\"Decline\""));
    EXPECT_TRUE(flat.contains("string\"carol\"string\"Incomingcall\""));
    // The expiry comes last: 0, never.
    EXPECT_TRUE(flat.contains("]int320")) << seen.toStdString();
    carol->command("hangup");
    // --- call history ---
    // The ringing notification closes; the missed call's takes its place.
    EXPECT_TRUE(waitFor([&] { return run("dunstctl", {"count", "history"}) == "1"; }, 10000));
    EXPECT_TRUE(waitFor([&] { return notificationsShown() == 1; }, 10000));
    // --- end of call history ---
}

TEST_F(CallEndToEnd, ATelLinkOpenedWithTheAppCallsAndOpensTheCallWindow) {
    Baresip bob(dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa);
    startApp();
    EXPECT_TRUE(callWindowId().isEmpty());
    ChildProcess second;
    second.start(VELNOR_APP_PATH, {"tel:bob"}, environment());
    ASSERT_TRUE(second.process().waitForFinished(10000));
    EXPECT_EQ(second.process().exitCode(), 0);
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 15000))
        << callStatus().toStdString();
    EXPECT_TRUE(waitFor([&] { return !callWindowId().isEmpty(); }, 5000));
    call("HangUp");
    bob.waitEvent({"CALL_CLOSED"});
    EXPECT_TRUE(waitFor([&] { return callWindowId().isEmpty(); }, 5000));
}

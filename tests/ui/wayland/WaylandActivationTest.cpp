#include "../shell/AppHarness.h"
#include "HeadlessSway.h"
#include "PulseAudioServer.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QEventLoop>
#include <QTimer>

// The app on a Wayland compositor: headless sway (wlroots, which implements
// xdg-activation), signed in to rz-devserver's phone system, with a
// notification server on the private session bus that hands an activation
// token over with the action chosen. Whether a window came to the front is
// read from sway's own tree.
namespace {

class WaylandDesktop : public AppHarness {
protected:
    WaylandDesktop() : AppHarness({"--phone", "--auto-approve", "u-001"}) {}

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
        // A window that asks with a valid token is given focus; sway's own
        // default only marks it urgent.
        sway = std::make_unique<HeadlessSway>("focus_on_window_activation focus");
        notifications.start(VELNOR_NOTIFICATION_SERVER,
                            {VELNOR_TOKEN_CLIENT, scripts.filePath("notifications.log")},
                            waylandEnvironment());
        bus.waitForName("org.freedesktop.Notifications");
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(bus.address(), "wayland-test"));
        ASSERT_TRUE(connection->isConnected());
    }

    void TearDown() override {
        app.stop();
        other.stop();
        notifications.stop();
        connection.reset();
        QDBusConnection::disconnectFromBus("wayland-test");
        sway.reset();
    }

    QProcessEnvironment waylandEnvironment() const {
        return sway->clientEnvironment(environment());
    }

    void startSignedIn() {
        app.start(VELNOR_APP_PATH, {}, waylandEnvironment());
        app.process().setReadChannel(QProcess::StandardError);
        waitForLine("started");
        bus.waitForName("net.velnor.rz");
        call("SignIn");
        ASSERT_TRUE(waitFor([&] { return property("State").toString() == "signedIn"; }));
        ASSERT_TRUE(
            waitFor([&] { return property("Registration").toString() == "registered"; }, 30000))
            << property("Registration").toString().toStdString();
    }

    // Another program's window, which takes the focus as a new window does.
    void focusAnotherProgram() {
        other.start(VELNOR_OTHER_WINDOW, {}, sway->clientEnvironment(environment()));
        ASSERT_TRUE(waitFor([&] {
            const auto view = sway->focused();
            return view && view->pid == other.pid();
        }));
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

    // The notification server's method of its own: the notifications on screen.
    QList<std::pair<uint, QStringList>> shownNotifications() {
        const QDBusMessage reply =
            connection->call(QDBusMessage::createMethodCall(
                                 "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                 "net.velnor.test.Notifications", "Shown"),
                             QDBus::Block, 10000);
        QList<std::pair<uint, QStringList>> shown;
        if (reply.type() != QDBusMessage::ReplyMessage) {
            return shown;
        }
        const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            uint id = 0;
            QString summary;
            QStringList actions;
            list.beginStructure();
            list >> id >> summary >> actions;
            list.endStructure();
            shown.append({id, actions});
        }
        list.endArray();
        return shown;
    }

    // The person chooses an action of the notification on screen; the token handed over.
    QString invoke(uint id, const QString& action) {
        QDBusMessage invoke = QDBusMessage::createMethodCall(
            "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
            "net.velnor.test.Notifications", "Invoke");
        invoke << id << action;
        const QDBusMessage reply = connection->call(invoke, QDBus::Block, 15000);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            throw std::runtime_error(reply.errorMessage().toStdString());
        }
        return reply.arguments().value(0).toString();
    }

    // A colleague's call rings here with another program in front: the
    // notification is up and the call window is mapped but not focused.
    uint colleagueCallsWhileAnotherProgramIsInFront() {
        server.control("POST", "phone/call", {{"from", "u-005"}, {"to", "201"}});
        uint id = 0;
        EXPECT_TRUE(waitFor(
            [&] {
                for (const auto& [shown, actions] : shownNotifications()) {
                    if (actions.contains("answer")) {
                        id = shown;
                    }
                }
                return id != 0;
            },
            20000));
        EXPECT_EQ(activeCall().value("status").toString(), "incoming");
        EXPECT_TRUE(waitFor([&] { return callWindowMapped(); }));
        // The person went on working in the other program while it rang.
        EXPECT_TRUE(sway->command(QString("[pid=%1] focus").arg(other.pid())));
        EXPECT_TRUE(waitFor([&] {
            const auto view = sway->focused();
            return view && view->pid == other.pid();
        }));
        return id;
    }

    // Qt on Wayland adds the app's name to a window's title: "Call — velnor RZ".
    static bool isCallWindow(const QString& title) {
        return title == "Call" || title.startsWith("Call \u2014");
    }

    bool callWindowMapped() {
        for (const HeadlessSway::View& view : sway->views()) {
            if (view.pid == app.pid() && isCallWindow(view.title)) {
                return true;
            }
        }
        return false;
    }

    bool callWindowFocused() {
        const auto view = sway->focused();
        return view && view->pid == app.pid() && isCallWindow(view->title);
    }

    // Polls a condition on the event loop until it holds; false past the bound.
    bool waitFor(const std::function<bool()>& condition, int boundMs = 15000) {
        QDeadlineTimer deadline(boundMs);
        while (!deadline.hasExpired()) {
            if (condition()) {
                return true;
            }
            QEventLoop loop;
            QTimer::singleShot(100, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return condition();
    }

    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-sine-source source_name=mic rate=48000 frequency=440",
         "set-default-sink speaker", "set-default-source mic"}};
    std::unique_ptr<HeadlessSway> sway;
    ChildProcess notifications;
    ChildProcess other;
    std::unique_ptr<QDBusConnection> connection;
};

} // namespace

TEST_F(WaylandDesktop, AnswerOnTheNotificationConnectsTheCallAndFocusesTheCallWindow) {
    startSignedIn();
    focusAnotherProgram();
    const uint id = colleagueCallsWhileAnotherProgramIsInFront();
    ASSERT_NE(id, 0u);
    ASSERT_FALSE(callWindowFocused());

    const QString token = invoke(id, "answer");
    EXPECT_FALSE(token.isEmpty());
    EXPECT_TRUE(waitFor([&] { return activeCall().value("status") == "connected"; }, 20000))
        << activeCall().value("status").toString().toStdString();
    EXPECT_TRUE(waitFor([&] { return callWindowFocused(); }))
        << (sway->focused() ? sway->focused()->title.toStdString() : "nothing focused");
    call("HangUp");
    EXPECT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
}

TEST_F(WaylandDesktop, ClickingTheNotificationFocusesTheCallWindowAndLeavesTheCallRinging) {
    startSignedIn();
    focusAnotherProgram();
    const uint id = colleagueCallsWhileAnotherProgramIsInFront();
    ASSERT_NE(id, 0u);
    ASSERT_FALSE(callWindowFocused());

    invoke(id, "default");
    EXPECT_TRUE(waitFor([&] { return callWindowFocused(); }))
        << (sway->focused() ? sway->focused()->title.toStdString() : "nothing focused");
    EXPECT_EQ(activeCall().value("status").toString(), "incoming");
    call("HangUp");
    EXPECT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
}

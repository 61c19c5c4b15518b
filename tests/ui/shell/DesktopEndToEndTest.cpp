#include "AppHarness.h"

#include "PulseAudioServer.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QEventLoop>
#include <QTimer>

// The app as a person uses it on a desktop: an X display of its own, the
// keyboard through XTEST, rz-devserver with its real phone system behind it,
// PulseAudio with a null sink, and the Secret Service on a private bus.
namespace {

class Desktop : public AppHarness {
protected:
    Desktop() : AppHarness({"--phone", "--auto-approve", "u-001"}) {}

    void SetUp() override {
        AppHarness::SetUp();
        // The phone system answers once kamailio, the relay and the parties are up.
        QDeadlineTimer ready(30000);
        for (;;) {
            try {
                server.phoneReady();
                break;
            } catch (const std::exception& error) {
                ASSERT_FALSE(ready.hasExpired()) << error.what();
            }
        }
    }

    void TearDown() override {
        connection.reset();
        QDBusConnection::disconnectFromBus("desktop-test");
    }

    // The app opens on the keypad, as it would after a person left it there.
    void openOnTheKeypad() {
        QFile config(home.configHome() + "/velnor/rz.conf");
        ASSERT_TRUE(config.open(QIODevice::Append));
        config.write("section=keypad\n");
    }

    // `first`: a line the app logs before it says it started.
    void startSignedIn(const QByteArray& first = {}) {
        app.start(VELNOR_APP_PATH, {}, environment());
        app.process().setReadChannel(QProcess::StandardError);
        if (!first.isEmpty()) {
            waitForLine(first);
        }
        waitForLine("started");
        bus.waitForName("net.velnor.rz");
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(bus.address(), "desktop-test"));
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

    // The main window's X id, once it is mapped.
    QString mainWindowId() {
        QProcess search;
        search.setProcessEnvironment(environment());
        search.start("xdotool", {"search", "--sync", "--onlyvisible", "--name", "^velnor RZ$"});
        if (!search.waitForFinished(15000)) {
            search.kill();
            search.waitForFinished();
            return {};
        }
        return QString::fromUtf8(search.readAllStandardOutput()).trimmed();
    }

    // The id of the visible window whose title matches, or empty; no waiting.
    QString windowId(const QString& title) {
        QProcess search;
        search.setProcessEnvironment(environment());
        search.start("xdotool", {"search", "--onlyvisible", "--name", title});
        search.waitForFinished(10000);
        return QString::fromUtf8(search.readAllStandardOutput()).trimmed();
    }

    int visibleMainWindows() {
        QProcess search;
        search.setProcessEnvironment(environment());
        search.start("xdotool", {"search", "--onlyvisible", "--name", "^velnor RZ$"});
        search.waitForFinished(10000);
        return QString::fromUtf8(search.readAllStandardOutput())
            .split('\n', Qt::SkipEmptyParts)
            .size();
    }

    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-sine-source source_name=mic rate=48000 frequency=440",
         "set-default-sink speaker", "set-default-source mic"}};
    std::unique_ptr<QDBusConnection> connection;
};

} // namespace

TEST_F(Desktop, ANumberTypedOnTheKeypadAndEnterCallTheEchoTest) {
    openOnTheKeypad();
    startSignedIn();
    const QString id = mainWindowId();
    ASSERT_FALSE(id.isEmpty());
    ASSERT_EQ(xdotool({"windowfocus", "--sync", id}), 0);
    ASSERT_EQ(xdotool({"type", "--delay", "40", "999"}), 0);
    QDir().mkpath(VELNOR_SCREENSHOTS);
    grabScreen().save(QString(VELNOR_SCREENSHOTS) + "/desktop-keypad-typed.png");
    ASSERT_EQ(xdotool({"key", "Return"}), 0);
    ASSERT_TRUE(waitFor([&] { return !activeCall().isEmpty(); }));
    EXPECT_EQ(activeCall().value("number").toString(), "999");
    EXPECT_TRUE(activeCall().value("outgoing").toBool());
    // The call window opens in front of the main window.
    QString callWindow;
    EXPECT_TRUE(waitFor([&] {
        callWindow = windowId("^Call$");
        return !callWindow.isEmpty() && windowManager.activeWindow() == callWindow;
    })) << callWindow.toStdString()
        << " " << windowManager.activeWindow().toStdString();
    // The echo test answers; the call is up until it is hung up.
    ASSERT_TRUE(waitFor([&] { return activeCall().value("status") == "connected"; }, 20000))
        << activeCall().value("status").toString().toStdString();
    call("HangUp");
    EXPECT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
}

TEST_F(Desktop, WithoutATrayTheClosedWindowStillLeavesTheAppRunningForCalls) {
    // No tray on this display, as on GNOME without an AppIndicator extension.
    startSignedIn("This desktop shows no tray");
    const QString id = mainWindowId();
    ASSERT_FALSE(id.isEmpty());
    ASSERT_EQ(xdotool({"windowfocus", "--sync", id}), 0);
    ASSERT_EQ(xdotool({"key", "ctrl+w"}), 0);
    waitForLine("Main window closed; still running for calls");
    EXPECT_TRUE(waitFor([&] { return visibleMainWindows() == 0; }));
    server.control("POST", "phone/call", {{"from", "u-005"}, {"to", "201"}});
    ASSERT_TRUE(waitFor([&] { return activeCall().value("status") == "incoming"; }, 20000));
    EXPECT_TRUE(app.running());
    call("HangUp");
    EXPECT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
}

TEST_F(Desktop, TheTrayIconShowsAndWithTheWindowClosedTheAppLivesOnAndStillTakesACall) {
    // trayer is the desktop's tray here: an XEmbed system tray on this display.
    ChildProcess tray;
    tray.start("trayer",
               {"--edge", "top", "--align", "right", "--widthtype", "pixel", "--width", "120",
                "--height", "24"},
               environment());
    ASSERT_TRUE(waitFor([&] { return xdotool({"search", "--class", "trayer"}) == 0; }));
    startSignedIn("Tray icon shown");
    const QString id = mainWindowId();
    ASSERT_FALSE(id.isEmpty());
    ASSERT_EQ(xdotool({"windowfocus", "--sync", id}), 0);
    ASSERT_EQ(xdotool({"key", "ctrl+w"}), 0);
    waitForLine("Main window closed; still running for calls");
    EXPECT_TRUE(waitFor([&] { return visibleMainWindows() == 0; }));
    EXPECT_TRUE(app.running());
    EXPECT_EQ(property("Registration").toString(), "registered");

    // Emma (205) calls Anna (201): the call reaches the app with its window closed.
    server.control("POST", "phone/call", {{"from", "u-005"}, {"to", "201"}});
    ASSERT_TRUE(waitFor([&] { return activeCall().value("status") == "incoming"; }, 20000));
    call("HangUp");
    EXPECT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));

    // Starting the app again brings the one main window back.
    QProcess second;
    second.setProcessEnvironment(environment());
    second.start(VELNOR_APP_PATH, {});
    ASSERT_TRUE(second.waitForFinished(20000));
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_TRUE(waitFor([&] { return visibleMainWindows() == 1; }));
    EXPECT_EQ(visibleMainWindows(), 1);
}

TEST_F(Desktop, AStatusNotifierTrayThatStartsAfterTheAppShowsTheIconAndItsClickOpensThePanel) {
    // The app starts before the desktop's panel, as a login may start them.
    startSignedIn("This desktop shows no tray");
    // A StatusNotifierItem tray with its own watcher, drawn along the top of the screen.
    ChildProcess tray;
    // GTK's accessibility bridge would look for a bus this private session lacks.
    QProcessEnvironment trayEnvironment = environment();
    trayEnvironment.insert("NO_AT_BRIDGE", "1");
    tray.start("gtk-sni-tray-standalone", {"--watcher", "--top", "--end", "--size", "28"},
               trayEnvironment);
    waitForLine("Tray icon shown");

    // The tray's watcher holds the app's item, and the item says the registration.
    QDBusMessage items =
        QDBusMessage::createMethodCall("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                                       "org.freedesktop.DBus.Properties", "Get");
    items << QString("org.kde.StatusNotifierWatcher") << QString("RegisteredStatusNotifierItems");
    const QDBusMessage held = connection->call(items, QDBus::Block, 5000);
    ASSERT_EQ(held.type(), QDBusMessage::ReplyMessage) << held.errorMessage().toStdString();
    const QStringList registered =
        held.arguments().value(0).value<QDBusVariant>().variant().toStringList();
    ASSERT_EQ(registered.size(), 1) << registered.join(' ').toStdString();
    QDBusMessage tip = QDBusMessage::createMethodCall(registered.first(), "/StatusNotifierItem",
                                                      "org.freedesktop.DBus.Properties", "Get");
    tip << QString("org.kde.StatusNotifierItem") << QString("ToolTip");
    const QDBusMessage toolTip = connection->call(tip, QDBus::Block, 5000);
    ASSERT_EQ(toolTip.type(), QDBusMessage::ReplyMessage) << toolTip.errorMessage().toStdString();
    const QDBusArgument tipValue =
        toolTip.arguments().value(0).value<QDBusVariant>().variant().value<QDBusArgument>();
    QString iconName, title, description;
    tipValue.beginStructure();
    tipValue >> iconName;
    tipValue.beginArray();
    tipValue.endArray();
    tipValue >> title >> description;
    tipValue.endStructure();
    EXPECT_EQ(title, "velnor RZ");
    EXPECT_EQ(description, "Online");

    // The window closed, a click on the icon at the top right opens the panel.
    const QString id = mainWindowId();
    ASSERT_FALSE(id.isEmpty());
    ASSERT_EQ(xdotool({"windowfocus", "--sync", id}), 0);
    ASSERT_EQ(xdotool({"key", "ctrl+w"}), 0);
    EXPECT_TRUE(waitFor([&] { return visibleMainWindows() == 0; }));
    QDir().mkpath(VELNOR_SCREENSHOTS);
    grabScreen().copy(1080, 0, 200, 40).save(QString(VELNOR_SCREENSHOTS) + "/sni-tray-icon.png");
    ASSERT_EQ(xdotool({"mousemove", "1267", "14", "click", "1"}), 0);
    ASSERT_TRUE(waitFor([&] { return visibleMainWindows() == 1; }));
    // The one window is the panel, below the icon at the top right.
    QProcess where;
    where.setProcessEnvironment(environment());
    where.start("xdotool", {"getwindowgeometry", "--shell", windowId("^velnor RZ$")});
    ASSERT_TRUE(where.waitForFinished(10000));
    const QString geometry = QString::fromUtf8(where.readAllStandardOutput());
    const auto value = [&](const QString& key) {
        for (const QString& line : geometry.split('\n')) {
            if (line.startsWith(key + "=")) {
                return line.mid(key.size() + 1).toInt();
            }
        }
        return -1;
    };
    EXPECT_GE(value("X") + value("WIDTH"), 1200) << geometry.toStdString();
    EXPECT_GE(value("Y"), 28) << geometry.toStdString();
    EXPECT_LT(value("Y"), 100) << geometry.toStdString();
    grabScreen().save(QString(VELNOR_SCREENSHOTS) + "/sni-tray-panel.png");
    EXPECT_TRUE(app.running());
}

// A day with a screen reader: sign-in, a call placed on the keypad, a call
// answered and both hung up, every step an action on an element found by its
// accessible name over AT-SPI, on a private accessibility bus, with no mouse,
// no keyboard and no call of the app's own D-Bus methods. Only what the test
// checks is read back from the app.
TEST_F(Desktop, AScreenReaderUserSignsInCallsAnswersAndHangsUpThroughAtSpiAlone) {
    ChildProcess a11yBus;
    a11yBus.start("/usr/libexec/at-spi-bus-launcher", {"--launch-immediately"}, environment());
    bus.waitForName("org.a11y.Bus");
    QProcessEnvironment env = environment();
    env.insert("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
    app.start(VELNOR_APP_PATH, {}, env);
    app.process().setReadChannel(QProcess::StandardError);
    waitForLine("Main window shown");
    bus.waitForName("net.velnor.rz");
    connection = std::make_unique<QDBusConnection>(
        QDBusConnection::connectToBus(bus.address(), "desktop-test"));
    ASSERT_TRUE(connection->isConnected());

    auto act = [&](const char* command, const QString& name) {
        QProcess tool;
        tool.setProcessEnvironment(environment());
        tool.start("/usr/bin/python3", {VELNOR_A11Y_ACTION, "velnor-rz", command, name, "20"});
        if (!tool.waitForFinished(30000)) {
            tool.kill();
            tool.waitForFinished();
        }
        std::printf("a11y %s %s: %s%s", command, qPrintable(name),
                    tool.readAllStandardOutput().constData(),
                    tool.readAllStandardError().constData());
        return tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
    };

    ASSERT_TRUE(act("press", "Sign in with velnor RZ"));
    waitForLine("Signed in to");
    ASSERT_TRUE(waitFor([&] { return property("Registration").toString() == "registered"; }, 30000))
        << property("Registration").toString().toStdString();

    // The echo test, 999, dialled on the keypad.
    ASSERT_TRUE(act("press", "Keypad"));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(act("press", "9 WXYZ"));
    }
    ASSERT_TRUE(act("wait", "999"));
    ASSERT_TRUE(act("press", "Call"));
    ASSERT_TRUE(waitFor([&] { return activeCall().value("status") == "connected"; }, 20000))
        << activeCall().value("status").toString().toStdString();
    EXPECT_EQ(activeCall().value("number").toString(), "999");
    ASSERT_TRUE(act("press", "End"));
    ASSERT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));

    // Emma (205) calls; the call window's Answer takes it, its End ends it.
    server.control("POST", "phone/call", {{"from", "u-005"}, {"to", "201"}});
    ASSERT_TRUE(waitFor([&] { return activeCall().value("status") == "incoming"; }, 20000));
    ASSERT_TRUE(act("press", "Answer"));
    ASSERT_TRUE(waitFor([&] { return activeCall().value("status") == "connected"; }, 20000))
        << activeCall().value("status").toString().toStdString();
    ASSERT_TRUE(act("press", "End"));
    EXPECT_TRUE(waitFor([&] { return activeCall().isEmpty(); }));
}

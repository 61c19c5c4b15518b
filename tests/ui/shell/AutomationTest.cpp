#include "AppHarness.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QEventLoop>
#include <QTimer>

// The app driven from outside over its session-bus interface, as a person's
// own script would: properties to read, changes announced, methods to call.
namespace {

class Automation : public AppHarness {
protected:
    void startApp() {
        app.start(VELNOR_APP_PATH, {}, environment());
        app.process().setReadChannel(QProcess::StandardError);
        waitForLine("started");
        bus.waitForName("net.velnor.rz");
        connection = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(bus.address(), "automation-test"));
        ASSERT_TRUE(connection->isConnected());
        ASSERT_TRUE(connection->connect("net.velnor.rz", "/net/velnor/rz",
                                        "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                        &recorder, SLOT(record(QDBusMessage))));
    }

    void TearDown() override {
        connection.reset();
        QDBusConnection::disconnectFromBus("automation-test");
    }

    QString property(const char* name) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            "net.velnor.rz", "/net/velnor/rz", "org.freedesktop.DBus.Properties", "Get");
        call << QString("net.velnor.rz.App") << QString::fromLatin1(name);
        const QDBusMessage reply = connection->call(call, QDBus::Block, 10000);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            throw std::runtime_error(reply.errorMessage().toStdString());
        }
        return reply.arguments().value(0).value<QDBusVariant>().variant().toString();
    }

    void callMethod(const char* method, const QVariantList& arguments = {}) {
        QDBusMessage call = QDBusMessage::createMethodCall("net.velnor.rz", "/net/velnor/rz",
                                                           "net.velnor.rz.App", method);
        call.setArguments(arguments);
        const QDBusMessage reply = connection->call(call, QDBus::Block, 10000);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    }

    // Waits, on the event loop, until a property has the value; false past the bound.
    bool waitForProperty(const char* name, const QString& value, int boundMs = 15000) {
        QDeadlineTimer deadline(boundMs);
        while (!deadline.hasExpired()) {
            if (property(name) == value) {
                return true;
            }
            QEventLoop loop;
            QObject::connect(&recorder, &ChangeRecorder::changed, &loop, &QEventLoop::quit);
            QTimer::singleShot(200, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return property(name) == value;
    }

    // Waits until a PropertiesChanged signal has carried the value.
    bool waitForAnnounced(const char* name, const QString& value, int boundMs = 5000) {
        QDeadlineTimer deadline(boundMs);
        while (!recorder.values(name).contains(value) && !deadline.hasExpired()) {
            QEventLoop loop;
            QObject::connect(&recorder, &ChangeRecorder::changed, &loop, &QEventLoop::quit);
            QTimer::singleShot(200, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return recorder.values(name).contains(value);
    }

    std::unique_ptr<QDBusConnection> connection;
    ChangeRecorder recorder;
};

} // namespace

TEST_F(Automation, PropertiesTellTheStateServerUserAndError) {
    startApp();
    ASSERT_TRUE(waitForProperty("State", "signedOut"));
    EXPECT_EQ(property("Server"), server.url().toString());
    EXPECT_EQ(property("UserName"), "");
    EXPECT_EQ(property("Error"), "");
}

TEST_F(Automation, SignInSignsInThroughTheBrowserAndAnnouncesEachChange) {
    startApp();
    ASSERT_TRUE(waitForProperty("State", "signedOut"));
    callMethod("SignIn");
    ASSERT_TRUE(waitForProperty("State", "signedIn"));
    ASSERT_TRUE(waitForProperty("UserName", "Anna Berger"));
    EXPECT_TRUE(waitForAnnounced("State", "signingIn"));
    EXPECT_TRUE(waitForAnnounced("State", "signedIn"));
    EXPECT_TRUE(waitForAnnounced("UserName", "Anna Berger"));
}

TEST_F(Automation, LiveUpdatesConnectOnceSignedInAndTellAFrameThatDidNotRead) {
    startApp();
    ASSERT_TRUE(waitForProperty("State", "signedOut"));
    EXPECT_EQ(property("LiveConnected"), "false");
    callMethod("SignIn");
    ASSERT_TRUE(waitForProperty("State", "signedIn"));
    ASSERT_TRUE(waitForProperty("LiveConnected", "true"));
    EXPECT_TRUE(waitForAnnounced("LiveConnected", "true"));
    const std::string frame = R"({"type":"delta","topic":"presence","data":{"state":"away"}})";
    server.control("POST", "live/push", {{"frame", frame}});
    const QString expected =
        QStringLiteral("delta presence: key \"state\": unknown value \"away\" · ") +
        QString::fromStdString(frame);
    ASSERT_TRUE(waitForProperty("LiveDecodeError", expected));
    EXPECT_TRUE(waitForAnnounced("LiveDecodeError", expected));
}

TEST_F(Automation, CancelSignInGoesBackToSignedOut) {
    // A browser that never comes back.
    QFile script(browser);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\nexit 0\n");
    script.close();
    startApp();
    ASSERT_TRUE(waitForProperty("State", "signedOut"));
    callMethod("SignIn");
    ASSERT_TRUE(waitForProperty("State", "signingIn"));
    callMethod("CancelSignIn");
    ASSERT_TRUE(waitForProperty("State", "signedOut"));
}

TEST_F(Automation, HandleUrlTakesTheSamePathAsALink) {
    startApp();
    callMethod("HandleUrl", {QString("rzmobile://oauth/callback?code=x&state=stale")});
    waitForLine("Received a sign-in link");
    // With no sign-in pending, a stale redirect changes nothing.
    EXPECT_EQ(property("Error"), "");
    callMethod("HandleUrl", {QString("callto:+4930123")});
    waitForLine("Dialling +4930123 from a callto: link");
}

TEST(AutomationWithoutBus, TheAppRunsAndSaysOnceThatTheBusIsMissing) {
    TempHome home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/velnor-test-bus");
    ChildProcess app;
    app.start(VELNOR_APP_PATH, {}, environment);
    app.process().setReadChannel(QProcess::StandardError);
    int busLines = 0;
    for (;;) {
        const QByteArray line = app.readLine(std::chrono::seconds(20));
        if (line.contains("No session bus")) {
            ++busLines;
        }
        if (line.contains("started")) {
            break;
        }
    }
    EXPECT_EQ(busLines, 1);
}

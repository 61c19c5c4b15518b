#include "Services.h"

#include <QProcessEnvironment>

#include <gtest/gtest.h>

#include <csignal>

namespace {

// The app as a person starts it, drawing offscreen in a home of its own.
class AppProcess : public testing::Test {
protected:
    void start() {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        app.start(VELNOR_APP_PATH, {}, environment);
        app.process().setReadChannel(QProcess::StandardError);
    }

    // Reads standard error until a line holds the text; throws past the bound.
    QByteArray waitForLine(const QByteArray& text) {
        for (;;) {
            const QByteArray line = app.readLine(std::chrono::seconds(20));
            if (line.contains(text)) {
                return line;
            }
        }
    }

    TempHome home;
    ChildProcess app;
};

// A second launch, as the desktop makes when it opens a link with the app.
int launchAgain(const QStringList& arguments, QByteArray* output = nullptr) {
    QProcess second;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    second.setProcessEnvironment(environment);
    second.start(VELNOR_APP_PATH, arguments);
    if (!second.waitForFinished(20000)) {
        second.kill();
        second.waitForFinished(5000);
        return -1;
    }
    if (output) {
        *output = second.readAllStandardError();
    }
    return second.exitCode();
}

} // namespace

TEST_F(AppProcess, StartsShowsItsWindowAndQuitsCleanlyOnSigterm) {
    start();
    EXPECT_TRUE(waitForLine("started").contains("[app] velnor RZ"));
    ::kill(pid_t(app.pid()), SIGTERM);
    ASSERT_TRUE(app.process().waitForFinished(10000));
    EXPECT_EQ(app.process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app.process().exitCode(), 0);
    EXPECT_TRUE(app.process().readAllStandardError().contains("velnor RZ stopped"));
}

TEST_F(AppProcess, PrintsNoQmlWarningsOnStart) {
    start();
    waitForLine("started");
    ::kill(pid_t(app.pid()), SIGTERM);
    ASSERT_TRUE(app.process().waitForFinished(10000));
    const QByteArray rest = app.process().readAllStandardError();
    EXPECT_FALSE(rest.contains("qrc:/")) << rest.toStdString();
}

TEST_F(AppProcess, ASecondLaunchHandsItsSignInLinkToTheRunningAppAndExits) {
    start();
    waitForLine("Main window shown");
    QByteArray secondOutput;
    EXPECT_EQ(launchAgain({"rzmobile://oauth/callback?code=abc&state=xyz"}, &secondOutput), 0);
    // The second process never showed a window of its own.
    EXPECT_FALSE(secondOutput.contains("started")) << secondOutput.toStdString();
    EXPECT_TRUE(waitForLine("Received a sign-in link").contains("[app]"));
    ::kill(pid_t(app.pid()), SIGTERM);
    ASSERT_TRUE(app.process().waitForFinished(10000));
    EXPECT_EQ(app.process().exitCode(), 0);
}

TEST_F(AppProcess, ATelLinkIsTakenByTheRunningAppAndDialled) {
    start();
    waitForLine("Main window shown");
    EXPECT_EQ(launchAgain({"tel:+4930123456"}), 0);
    EXPECT_TRUE(waitForLine("Dialling +4930123456 from a tel: link").contains("[phone]"));
}

TEST_F(AppProcess, ALaunchWithNoAppRunningStartsNormallyAndThenTakesTheLink) {
    app.start(VELNOR_APP_PATH, {"sip:alice@example.com"}, [] {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        return environment;
    }());
    app.process().setReadChannel(QProcess::StandardError);
    waitForLine("started");
    EXPECT_TRUE(waitForLine("Dialling alice from a sip: link").contains("[phone]"));
}

TEST_F(AppProcess, ASocketLeftByAnAppThatDiedDoesNotStopTheNextOne) {
    start();
    waitForLine("Main window shown");
    ::kill(pid_t(app.pid()), SIGKILL);
    ASSERT_TRUE(app.process().waitForFinished(10000));
    ChildProcess next;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    next.start(VELNOR_APP_PATH, {}, environment);
    next.process().setReadChannel(QProcess::StandardError);
    for (;;) {
        if (next.readLine(std::chrono::seconds(20)).contains("Main window shown")) {
            break;
        }
    }
}

TEST_F(AppProcess, ASecondLaunchLeavesABusyRunningAppAloneAndSaysSo) {
    start();
    waitForLine("Main window shown");
    // Stopped, the running app holds its socket but cannot answer.
    ::kill(pid_t(app.pid()), SIGSTOP);
    QByteArray secondOutput;
    const int status = launchAgain({"tel:+4930123456"}, &secondOutput);
    ::kill(pid_t(app.pid()), SIGCONT);
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(secondOutput.contains("already running but did not answer"))
        << secondOutput.toStdString();
    EXPECT_FALSE(secondOutput.contains("started")) << secondOutput.toStdString();
    // The running app keeps its socket: a later launch still reaches it, and
    // the link of the launch that gave up is not taken late.
    EXPECT_EQ(launchAgain({"tel:+4930999"}), 0);
    EXPECT_TRUE(waitForLine("Dialling +4930999 from a tel: link").contains("[phone]"));
    ::kill(pid_t(app.pid()), SIGTERM);
    ASSERT_TRUE(app.process().waitForFinished(10000));
    EXPECT_FALSE(app.process().readAllStandardError().contains("Dialling +4930123456"));
}

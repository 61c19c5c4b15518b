#include "DevServer.h"
#include "Services.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

// A newcomer's first sign-in, with every real part: the app on an X display,
// the desktop's link opener calling the browser, the dashboard's sign-in
// page approving, the browser handing the redirect to a second launch of the
// app, and that launch passing it to the running one.
namespace {

class SignInEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        // The app's settings point at the development dashboard.
        QDir().mkpath(home.configHome() + "/velnor");
        QFile config(home.configHome() + "/velnor/rz.conf");
        ASSERT_TRUE(config.open(QIODevice::WriteOnly));
        config.write("[General]\nrz.server=" + server.url().toString().toUtf8() + "\n");
        config.close();

        // The "browser": asks the sign-in page, which approves at once, and
        // opens the address it is sent to with the app, as a browser does
        // with a link of an app's scheme.
        browser = scripts.filePath("browser");
        QFile script(browser);
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\n"
                     "echo \"$1\" > \"" + scripts.filePath("opened").toUtf8() + "\"\n"
                     "location=$(curl -s -o /dev/null -w '%{redirect_url}' \"$1\")\n"
                     "exec \"" VELNOR_APP_PATH "\" \"$location\"\n");
        script.close();
        QFile::setPermissions(browser, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QProcessEnvironment environment() const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display.display());
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("BROWSER", browser);
        environment.remove("WAYLAND_DISPLAY");
        return environment;
    }

    QByteArray waitForLine(const QByteArray& text) {
        for (;;) {
            const QByteArray line = app.readLine(std::chrono::seconds(20));
            std::printf("app: %s\n", line.constData());
            if (line.contains(text)) {
                return line;
            }
        }
    }

    int xdotool(const QStringList& arguments) {
        QProcess tool;
        tool.setProcessEnvironment(environment());
        tool.start("xdotool", arguments);
        if (!tool.waitForFinished(10000)) {
            tool.kill();
            tool.waitForFinished();
            return -1;
        }
        return tool.exitCode();
    }

    QImage grabScreen() {
        QProcess grab;
        grab.setProcessEnvironment(environment());
        grab.start("/usr/bin/import", {"-window", "root", "png:-"});
        if (!grab.waitForFinished(10000)) {
            grab.kill();
            grab.waitForFinished();
            return {};
        }
        return QImage::fromData(grab.readAllStandardOutput(), "PNG");
    }

    // Where on the screen pixels of exactly this colour are, as one rectangle.
    QRect areaOfColour(const QColor& colour) {
        const QImage screen = grabScreen();
        QRect area;
        for (int y = 0; y < screen.height(); ++y) {
            for (int x = 0; x < screen.width(); ++x) {
                if (screen.pixelColor(x, y).rgb() == colour.rgb()) {
                    area |= QRect(x, y, 1, 1);
                }
            }
        }
        return area;
    }

    TempHome home;
    PrivateBus bus;
    SecretService secrets{bus};
    DevServer server{{"--auto-approve", "u-001"}};
    VirtualDisplay display;
    QTemporaryDir scripts;
    QString browser;
    ChildProcess app;
};

} // namespace

TEST_F(SignInEndToEnd, ANewcomerPressesSignInAndEndsUpSignedIn) {
    app.start(VELNOR_APP_PATH, {}, environment());
    app.process().setReadChannel(QProcess::StandardError);
    waitForLine("Main window shown");

    // The newcomer sees the one blue button and clicks it. The first frame may
    // reach the X server a moment after the app has drawn it: look again until then.
    QRect button;
    QDeadlineTimer deadline(std::chrono::seconds(10));
    while (button.width() <= 200 && !deadline.hasExpired()) {
        button = areaOfColour(QColor("#3451F6"));
    }
    ASSERT_GT(button.width(), 200) << "no sign-in button on the screen";
    ASSERT_EQ(xdotool({"mousemove", QString::number(button.center().x()),
                       QString::number(button.center().y()), "click", "1"}),
              0);

    const QByteArray signedIn = waitForLine("Signed in to");
    EXPECT_TRUE(signedIn.contains("as Anna Berger")) << signedIn.toStdString();
    // The window now shows who is signed in; its "Sign out" button is blue no more.
    QDeadlineTimer shown(std::chrono::seconds(10));
    while (areaOfColour(QColor("#3451F6")).width() > 200 && !shown.hasExpired()) {
    }
    QDir().mkpath(VELNOR_SCREENSHOTS);
    grabScreen().save(QString(VELNOR_SCREENSHOTS) + "/signed-in-x11.png");
    QFile opened(scripts.filePath("opened"));
    ASSERT_TRUE(opened.open(QIODevice::ReadOnly));
    EXPECT_TRUE(opened.readAll().contains("/oauth/authorize?response_type=code"));

    // A second start of the app later restores the sign-in by itself.
    ::kill(pid_t(app.pid()), SIGTERM);
    ASSERT_TRUE(app.process().waitForFinished(10000));
    EXPECT_EQ(app.process().exitCode(), 0);
    ChildProcess again;
    again.start(VELNOR_APP_PATH, {}, environment());
    again.process().setReadChannel(QProcess::StandardError);
    for (;;) {
        const QByteArray line = again.readLine(std::chrono::seconds(20));
        if (line.contains("Signed in to")) {
            EXPECT_TRUE(line.contains("as Anna Berger"));
            break;
        }
    }
}

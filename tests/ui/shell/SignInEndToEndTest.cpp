#include "AppHarness.h"

// A newcomer's first sign-in: the dashboard's sign-in page approves in the
// browser, which hands the redirect to a second launch of the app, which
// passes it to the running one.
using SignInEndToEnd = AppHarness;

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

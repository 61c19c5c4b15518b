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

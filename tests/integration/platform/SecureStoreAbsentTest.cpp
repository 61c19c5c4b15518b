#include "platform/SecureStore.h"

#include "RunTask.h"
#include "Services.h"
#include "StderrCapture.h"

#include <gtest/gtest.h>

// A desktop bus where no Secret Service runs, and none can be started.
TEST(NoSecretService, ReadsGiveNoneWritesAreDroppedAndOneLineIsLogged) {
    TempHome home;
    PrivateBus bus;
    KeychainStore store;

    StderrCapture capture;
    runTask(store.save("token", "net.velnor.rz.oauth", "https://rz.velnor.net/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://rz.velnor.net/")), std::nullopt);
    runTask(store.remove("net.velnor.rz.oauth", "https://rz.velnor.net/"));
    runTask(store.save("again", "net.velnor.rz.sip", "1001"));
    const QString written = QString::fromUtf8(capture.take());

    const auto lines = written.split(u'\n', Qt::SkipEmptyParts).filter("Secret Service");
    ASSERT_EQ(lines.size(), 1) << written.toStdString();
    EXPECT_TRUE(lines.first().contains("[app] Secret Service unavailable"))
        << written.toStdString();
}

TEST(NoSessionBus, EveryOperationStillEndsQuietly) {
    TempHome home;
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/velnor-test-bus");
    KeychainStore store;
    runTask(store.save("token", "net.velnor.rz.oauth", "https://rz.velnor.net/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://rz.velnor.net/")), std::nullopt);
    runTask(store.remove("net.velnor.rz.oauth", "https://rz.velnor.net/"));
}

#include "session/Session.h"

#include "EventLoopWait.h"
#include "ManualClock.h"
#include "RunTask.h"
#include "Services.h"

#include <QFile>

#include <gtest/gtest.h>

// The session's part in the call log: the reload after a call, the owner, and
// what a sign-out forgets. Loading against rz-devserver is in the integration suite.
namespace {

class SessionHistoryTest : public testing::Test {
protected:
    TempHome home; // the cache file lands in a folder of this test's own
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    ManualClock clock;
};

} // namespace

TEST_F(SessionHistoryTest, TheReloadAfterACallWaitsOneAndAHalfSecondsBeforeAsking) {
    Session session(settings, secrets, clock);
    // Not signed in: the load that follows fails at once, without the network.
    session.reloadHistoryAfterCall();
    clock.advance(std::chrono::milliseconds(1499));
    EXPECT_FALSE(spinUntil([&] { return session.history().hasLastError(); },
                           std::chrono::milliseconds(200)));
    clock.advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(spinUntil([&] { return session.history().hasLastError(); }));
    EXPECT_FALSE(session.history().loading());
}

TEST_F(SessionHistoryTest, TheCallLogKeepsItsCacheInTheCachesFolder) {
    Session session(settings, secrets, clock);
    EXPECT_EQ(session.history().cachePath(), home.cacheHome() + "/velnor-rz/calls.v1.json");
}

TEST_F(SessionHistoryTest, SigningOutForgetsTheCallLogAndRemovesItsFile) {
    QDir().mkpath(home.cacheHome() + "/velnor-rz");
    QFile file(home.cacheHome() + "/velnor-rz/calls.v1.json");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"([{"callUuid":"c1","from":"204","to":"201","direction":"inbound",)"
               R"("startAt":"2026-11-22T10:00:00Z"}])");
    file.close();
    Session session(settings, secrets, clock);
    ASSERT_EQ(session.history().rows().size(), 1);
    session.resetLocal();
    EXPECT_TRUE(session.history().rows().isEmpty());
    EXPECT_FALSE(session.history().hasLoaded());
    EXPECT_FALSE(QFile::exists(file.fileName()));
}

TEST_F(SessionHistoryTest, BeforeSignInTheOwnerHasNoExtensionNameOrUser) {
    Session session(settings, secrets, clock);
    const auto owner = session.historyOwner();
    EXPECT_FALSE(owner.extension_);
    EXPECT_FALSE(owner.name);
    EXPECT_TRUE(owner.usernames.isEmpty());
}

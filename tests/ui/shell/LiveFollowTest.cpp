#include "shell/Application.h"

#include "StderrCapture.h"

#include <gtest/gtest.h>

// The shell hands each change of the phone's active call to live updates.
TEST(ShellLiveFollow, EachActiveCallChangeIsFollowed) {
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app{settings, secrets};
    Live& live = app.session().live();
    app.activeSipCallIdChanged(QStringLiteral("sip-1"));
    EXPECT_EQ(live.followedSipCallId(), "sip-1");
    app.activeSipCallIdChanged(std::nullopt);
    EXPECT_EQ(live.followedSipCallId(), std::nullopt);
}

TEST(ShellLiveFollow, AResumeOrTheNetworkReturningHurriesLive) {
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app{settings, secrets};
    Live& live = app.session().live();
    live.start();
    StderrCapture err;
    emit app.wakeups().resumed();
    emit app.wakeups().networkUp();
    live.stop();
    EXPECT_EQ(err.take().count("[live] reconnecting at once\n"), 2);
}

#include "session/Session.h"

#include "BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;
using namespace std::chrono_literals;

// The session's live updates against rz-devserver: started once signed in,
// stopped and emptied at sign-out, and never the thing that ends a session.
namespace {

class SessionLive : public testing::Test {
protected:
    SessionLive() {
        settings.setUrl("rz.server", server.url());
        session = std::make_unique<Session>(settings, secrets);
        useSigningInBrowser(*session);
    }

    void signIn() {
        session->signIn();
        ASSERT_TRUE(spinUntil([&] { return session->me().has_value() || session->hasError(); },
                              std::chrono::milliseconds(10000)));
        ASSERT_FALSE(session->hasError()) << session->errorText().toStdString();
    }

    json sockets() { return server.control("GET", "live")["sockets"]; }

    DevServer server{{"--auto-approve", "u-001"}};
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    std::unique_ptr<Session> session;
};

} // namespace

TEST_F(SessionLive, SigningInStartsLiveUpdates) {
    EXPECT_FALSE(session->live().running());
    signIn();
    EXPECT_TRUE(session->live().running());
    ASSERT_TRUE(spinUntil([&] { return session->live().connected(); }, 10s));
    ASSERT_TRUE(spinUntil([&] { return session->live().presence().size() == 12; }));
    EXPECT_EQ(sockets().size(), 1u);
}

TEST_F(SessionLive, SigningOutStopsLiveUpdatesAndForgetsWhatTheyShowed) {
    signIn();
    Live& live = session->live();
    ASSERT_TRUE(spinUntil([&] { return live.presence().size() == 12; }, 10s));
    live.watchQueues({"q-support"});
    ASSERT_TRUE(spinUntil([&] { return live.boards().contains("q-support"); }));
    runTask(session->signOut(false));
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_FALSE(live.running());
    EXPECT_FALSE(live.connected());
    EXPECT_TRUE(live.presence().isEmpty());
    EXPECT_TRUE(live.boards().isEmpty());
    // The queue stays wanted until the next watchQueues sorts it out.
    EXPECT_TRUE(live.topics().contains("queue:q-support"));
    ASSERT_TRUE(spinUntil([&] { return sockets().empty(); }));
}

TEST_F(SessionLive, ARevokedSignInCostsTheSocketButNotTheSession) {
    signIn();
    Live& live = session->live();
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }, 10s));
    // The reads that follow a sign-in end with voicemail; a refusal met by
    // any of them would end the session, which is not what this is about.
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }, 10s));
    server.control("POST", "tokens/revoke", json::object());
    ASSERT_TRUE(spinUntil([&] { return !live.connected(); }));
    // The retries are refused at the handshake; the session stays until one
    // of the reads that can end it meets the refusal.
    ASSERT_TRUE(spinUntil([&] { return live.waiting(); }));
    EXPECT_EQ(session->state(), Session::State::signedIn);
    EXPECT_TRUE(live.running());
    EXPECT_EQ(live.presence().size(), 12);
}

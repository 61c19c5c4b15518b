#include "session/Session.h"

#include "BrowserKit.h"
#include "DevServer.h"
#include "RunTask.h"
#include "Services.h"

#include "EventLoopWait.h"
#include <QSignalSpy>

#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;

// Session's sign-in, restore and sign-out against rz-devserver.
namespace {

class SessionServer : public testing::Test {
protected:
    SessionServer() { settings.setUrl("rz.server", server.url()); }

    std::unique_ptr<Session> make() {
        auto session = std::make_unique<Session>(settings, secrets);
        useSigningInBrowser(*session);
        return session;
    }

    void signIn(Session& session) {
        session.signIn();
        ASSERT_TRUE(spinUntil([&] { return session.me().has_value() || session.hasError(); },
                              std::chrono::milliseconds(10000)));
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
    }

    QList<json> requests(const QString& method, const QString& path) {
        QList<json> seen;
        for (const json& request : server.control("GET", "requests")) {
            if (request["method"] == method.toStdString() &&
                request["path"] == path.toStdString()) {
                seen.append(request);
            }
        }
        return seen;
    }

    DevServer server{{"--auto-approve", "u-001"}};
    MemorySettingsStore settings;
    MemorySecureStore secrets;
};

} // namespace

TEST_F(SessionServer, ASignInThroughTheBrowserEndsSignedInWithTheUser) {
    auto session = make();
    QSignalSpy states(session.get(), &Session::stateChanged);
    signIn(*session);
    EXPECT_EQ(session->state(), Session::State::signedIn);
    EXPECT_EQ(session->userName(), "Anna Berger");
    EXPECT_EQ(session->me()->extension_, "201");
    EXPECT_TRUE(runTask(session->api().hasRefreshToken()));
    EXPECT_GE(states.count(), 2); // signingIn, then signedIn
}

TEST_F(SessionServer, ALaterLaunchRestoresTheSignInAtOnce) {
    signIn(*make());
    auto later = make();
    later->restore();
    // Signed in before the server has answered anything.
    EXPECT_EQ(later->state(), Session::State::signedIn);
    ASSERT_TRUE(spinUntil([&] { return later->userName() == QString("Anna Berger"); },
                          std::chrono::milliseconds(10000)))
        << later->userName().toStdString();
}

TEST_F(SessionServer, ALaunchWithAStoredSignInAndNoNetworkStaysSignedInWithTheError) {
    signIn(*make());
    server.process().stop();
    auto later = make();
    runTask(later->restore());
    EXPECT_EQ(later->state(), Session::State::signedIn);
    EXPECT_FALSE(later->me());
    EXPECT_TRUE(later->hasError());
}

TEST_F(SessionServer, ARevokedSignInAtLaunchLandsOnTheLoginScreenWithoutAMessage) {
    signIn(*make());
    server.control("POST", "tokens/revoke", json::object());
    settings.setText("rz.deviceId", "dev-old");
    auto later = make();
    runTask(later->restore());
    EXPECT_EQ(later->state(), Session::State::signedOut);
    EXPECT_FALSE(later->hasError());
    EXPECT_EQ(settings.text("rz.deviceId"), std::nullopt);
    EXPECT_EQ(settings.url("rz.server"), server.url());
}

TEST_F(SessionServer, AServerErrorOnMeShowsItsTextAndStaysSignedIn) {
    signIn(*make());
    server.control("POST", "faults",
                   {{"path", "api/me"}, {"status", 503}, {"body", "maintenance"}});
    auto later = make();
    runTask(later->restore());
    EXPECT_EQ(later->state(), Session::State::signedIn);
    EXPECT_EQ(later->errorText(), "HTTP 503: maintenance");
}

TEST_F(SessionServer, SignOutRemovingTheDeviceDeletesItAndDoesNotRevoke) {
    auto session = make();
    signIn(*session);
    settings.setText("rz.deviceId", "dev-42");
    server.control("DELETE", "requests");
    runTask(session->signOut(true));
    EXPECT_EQ(requests("DELETE", "api/devices/dev-42").size(), 1);
    EXPECT_TRUE(requests("POST", "oauth/revoke").isEmpty());
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_FALSE(runTask(session->api().hasRefreshToken()));
    EXPECT_EQ(settings.text("rz.deviceId"), std::nullopt);
}

TEST_F(SessionServer, SignOutKeepingTheDeviceRevokesAndTheNextSignInStartsFresh) {
    auto session = make();
    signIn(*session);
    settings.setText("rz.deviceId", "dev-42");
    server.control("DELETE", "requests");
    runTask(session->signOutKeepingDevice());
    EXPECT_EQ(requests("POST", "oauth/revoke").size(), 1);
    EXPECT_TRUE(requests("DELETE", "api/devices/dev-42").isEmpty());
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_EQ(settings.text("rz.deviceId"), std::nullopt);
    signIn(*session);
    EXPECT_EQ(session->state(), Session::State::signedIn);
}

TEST_F(SessionServer, ARefusedCodeExchangeShowsTheServersWord) {
    auto session = make();
    server.control(
        "POST", "faults",
        {{"path", "oauth/token"}, {"status", 400}, {"body", R"({"error":"invalid_grant"})"}});
    session->signIn();
    ASSERT_TRUE(spinUntil([&] { return session->hasError(); }, std::chrono::milliseconds(10000)));
    EXPECT_EQ(session->errorText(), "OAuth: invalid_grant");
    EXPECT_EQ(session->state(), Session::State::signedOut);
}

TEST_F(SessionServer, TheRefreshTokenIsKeptInTheRealSecretService) {
    TempHome home;
    PrivateBus bus;
    SecretService service(bus);
    KeychainStore keychain;
    {
        Session session(settings, keychain);
        useSigningInBrowser(session);
        signIn(session);
    }
    KeychainStore again;
    Session later(settings, again);
    runTask(later.restore());
    EXPECT_EQ(later.state(), Session::State::signedIn);
    EXPECT_EQ(later.userName(), "Anna Berger");
}

#include "api/API.h"

#include "DevServer.h"
#include "ManualClock.h"
#include "RunTask.h"
#include "SignInKit.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using nlohmann::json;

// The API client against rz-devserver over real HTTP.
namespace {

class ApiServer : public testing::Test {
protected:
    explicit ApiServer(QStringList arguments = {"--auto-approve", "u-001"}) : server(arguments) {}

    // A whole sign-in: authorize in the "browser", then the code exchange.
    void signIn() {
        const auto authorization = API::makeAuthorization(server.url());
        const QUrl redirect = browserSignIn(authorization.url);
        ASSERT_EQ(queryItem(redirect, "state"), authorization.state);
        runTask(api->exchangeCode(queryItem(redirect, "code"), authorization.verifier));
        server.control("DELETE", "requests");
    }

    // The requests the server saw, optionally only those to one path.
    QList<json> requests(const QString& method = {}, const QString& path = {}) {
        QList<json> seen;
        for (const json& request : server.control("GET", "requests")) {
            if ((method.isEmpty() || request["method"] == method.toStdString()) &&
                (path.isEmpty() || request["path"] == path.toStdString())) {
                seen.append(request);
            }
        }
        return seen;
    }

    std::optional<QString> storedRefreshToken() {
        return runTask(
            store.read("net.velnor.rz.oauth", server.url().toString(QUrl::FullyEncoded)));
    }

    DevServer server;
    MemorySecureStore store;
    ManualClock clock{QDateTime::currentDateTimeUtc()};
    std::shared_ptr<API> api = API::make(server.url(), store, clock);
};

} // namespace

TEST_F(ApiServer, SignsInWithPkceAndReadsMe) {
    signIn();
    ASSERT_TRUE(storedRefreshToken());
    const auto reply = runTask(api->request("api/me"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(decode<Me>(reply.body).name, "Anna Berger");
    const auto seen = requests("GET", "api/me");
    ASSERT_EQ(seen.size(), 1);
}

TEST_F(ApiServer, ARefreshTokenWithAPlusArrivesIntact) {
    signIn();
    const QString refreshToken = *storedRefreshToken();
    // The server's refresh tokens carry "+" and "/" on purpose.
    ASSERT_TRUE(refreshToken.contains('+') || refreshToken.contains('/'))
        << refreshToken.toStdString();
    clock.advance(3600s);
    runTask(api->request("api/me"));
    EXPECT_EQ(api->refreshCount(), 1);
    const auto posts = requests("POST", "oauth/token");
    ASSERT_EQ(posts.size(), 1);
    const std::string body = posts[0]["body"];
    EXPECT_NE(body.find("grant_type=refresh_token"), std::string::npos) << body;
    EXPECT_EQ(body.find('+'), std::string::npos) << body;
    // The token rotated: the new one is kept.
    EXPECT_NE(*storedRefreshToken(), refreshToken);
}

TEST_F(ApiServer, ATokenThirtyOneSecondsFromExpiryIsUsedAndTwentyNineIsRefreshed) {
    signIn();
    const QString first = runTask(api->validAccessToken());
    clock.advance(3600s - 31s);
    EXPECT_EQ(runTask(api->validAccessToken()), first);
    EXPECT_EQ(api->refreshCount(), 0);
    clock.advance(2s);
    EXPECT_NE(runTask(api->validAccessToken()), first);
    EXPECT_EQ(api->refreshCount(), 1);
}

TEST_F(ApiServer, TwoConcurrentRequestsWithAnExpiredTokenMakeOneRefresh) {
    signIn();
    clock.advance(2h);
    auto both = [](std::shared_ptr<API> client) -> QCoro::Task<int> {
        auto first = client->request("api/me");
        auto second = client->request("api/directory");
        const auto a = co_await std::move(first);
        const auto b = co_await std::move(second);
        co_return a.status + b.status;
    };
    EXPECT_EQ(runTask(both(api)), 400);
    EXPECT_EQ(requests("POST", "oauth/token").size(), 1);
    EXPECT_EQ(api->refreshCount(), 1);
}

TEST_F(ApiServer, A401AfterAFreshTokenFailsWithNoThirdTry) {
    signIn();
    server.control("POST", "faults",
                   {{"method", "GET"},
                    {"path", "api/me"},
                    {"count", 2},
                    {"status", 401},
                    {"body", "token not accepted"}});
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.text(), "HTTP 401: token not accepted");
    }
    EXPECT_EQ(requests("GET", "api/me").size(), 2);
    EXPECT_EQ(requests("POST", "oauth/token").size(), 1);
}

TEST_F(ApiServer, OneStray401IsHealedByARefresh) {
    signIn();
    server.control("POST", "faults",
                   {{"method", "GET"}, {"path", "api/me"}, {"count", 1}, {"status", 401}});
    EXPECT_EQ(runTask(api->request("api/me")).status, 200);
    EXPECT_EQ(api->refreshCount(), 1);
}

TEST_F(ApiServer, ALongErrorBodyShowsOnlyItsFirst200Characters) {
    signIn();
    server.control("POST", "faults",
                   {{"path", "api/me"}, {"status", 500}, {"body", std::string(500, 'e')}});
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.status(), 500);
        EXPECT_EQ(failure.text(), "HTTP 500: " + QString(200, 'e'));
    }
}

TEST_F(ApiServer, AnUnchangedDirectoryIs304WithAnEmptyBodyAndNoFailure) {
    signIn();
    const auto first = runTask(api->request("api/directory"));
    const QByteArray etag = first.header("ETag");
    ASSERT_FALSE(etag.isEmpty());
    const auto second =
        runTask(api->request("api/directory", "GET", std::nullopt, {{"If-None-Match", etag}}));
    EXPECT_EQ(second.status, 304);
    EXPECT_TRUE(second.body.isEmpty());
}

TEST_F(ApiServer, ABodyIsSentAsJsonUnlessTheCallerSaysOtherwise) {
    signIn();
    runTask(api->request("api/users/u-001", "PATCH", wire::bytes(DndPatch{true}.toJson())));
    const auto patch = requests("PATCH", "api/users/u-001");
    ASSERT_EQ(patch.size(), 1);
    bool json = false;
    for (const auto& header : patch[0]["headers"]) {
        if (QString::fromStdString(header[0]).compare("content-type", Qt::CaseInsensitive) == 0) {
            json = header[1] == "application/json";
        }
    }
    EXPECT_TRUE(json) << patch[0].dump();

    runTask(api->request("api/me/avatar", "PUT", QByteArray("\xff\xd8\xff\xe0 jpeg", 9),
                         {{"Content-Type", "image/jpeg"}}));
    const auto put = requests("PUT", "api/me/avatar");
    ASSERT_EQ(put.size(), 1);
    bool jpeg = false;
    for (const auto& header : put[0]["headers"]) {
        if (QString::fromStdString(header[0]).compare("content-type", Qt::CaseInsensitive) == 0) {
            jpeg = header[1] == "image/jpeg";
        }
    }
    EXPECT_TRUE(jpeg) << put[0].dump();
}

TEST_F(ApiServer, AnInvalidCodeIsTheServersWordAndKeepsAStoredToken) {
    runTask(store.save("kept", "net.velnor.rz.oauth", server.url().toString(QUrl::FullyEncoded)));
    try {
        runTask(api->exchangeCode("no-such-code", "verifier-that-does-not-match-anything-at-all"));
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.text(), "OAuth: invalid_grant");
    }
    EXPECT_EQ(storedRefreshToken(), "kept");
}

TEST_F(ApiServer, ARevokedSignInEndsInSignedOutAndTheTokenIsGone) {
    signIn();
    server.control("POST", "tokens/revoke", json::object());
    clock.advance(2h);
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.kind(), API::Failure::Kind::signedOut);
    }
    EXPECT_EQ(storedRefreshToken(), std::nullopt);
}

TEST_F(ApiServer, AnotherTokenEndpointErrorKeepsTheToken) {
    signIn();
    server.control(
        "POST", "faults",
        {{"path", "oauth/token"}, {"status", 400}, {"body", R"({"error":"invalid_client"})"}});
    clock.advance(2h);
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.text(), "OAuth: invalid_client");
    }
    EXPECT_TRUE(storedRefreshToken());
}

TEST_F(ApiServer, ATokenEndpointAnswerThatIsNotOAuthIsHttp) {
    signIn();
    server.control(
        "POST", "faults",
        {{"path", "oauth/token"}, {"status", 502}, {"body", "<html>bad gateway</html>"}});
    clock.advance(2h);
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.text(), "HTTP 502: <html>bad gateway</html>");
    }
    EXPECT_TRUE(storedRefreshToken());
}

TEST_F(ApiServer, TheLiveAddressOfAnHttpServerIsWs) {
    signIn();
    const auto live = runTask(api->liveConnection());
    EXPECT_EQ(live.url.scheme(), "ws");
    EXPECT_EQ(live.url.path(), "/api/live");
    EXPECT_EQ(live.url.port(), server.port());
    EXPECT_EQ(live.token, runTask(api->validAccessToken()));
    EXPECT_GT(live.expiry, clock.now().addSecs(3500));
}

TEST_F(ApiServer, ClearTokensWithoutRevokeMakesNoRequest) {
    signIn();
    runTask(api->clearTokens(false));
    EXPECT_TRUE(requests().isEmpty());
    EXPECT_EQ(storedRefreshToken(), std::nullopt);
}

TEST_F(ApiServer, ClearTokensWithRevokeTellsTheServerFirst) {
    signIn();
    const QString refreshToken = *storedRefreshToken();
    runTask(api->clearTokens(true));
    const auto revokes = requests("POST", "oauth/revoke");
    ASSERT_EQ(revokes.size(), 1);
    const std::string body = revokes[0]["body"];
    EXPECT_NE(body.find("client_id=rz-mobile"), std::string::npos) << body;
    EXPECT_NE(body.find("token="), std::string::npos) << body;
    EXPECT_EQ(storedRefreshToken(), std::nullopt);
    // The server no longer honours it.
    runTask(
        store.save(refreshToken, "net.velnor.rz.oauth", server.url().toString(QUrl::FullyEncoded)));
    clock.advance(2h);
    EXPECT_THROW(runTask(api->request("api/me")), API::Failure);
}

TEST_F(ApiServer, ANetworkFailureIsTheTransportsOwnAndKeepsTheToken) {
    signIn();
    server.process().stop();
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::TransportError& error) {
        EXPECT_FALSE(error.text().isEmpty());
    }
    EXPECT_TRUE(storedRefreshToken());
}

TEST_F(ApiServer, AServerThatDoesNotAnswerInTimeSaysSo) {
    api = API::make(server.url(), store, clock, 300ms);
    signIn();
    server.control("POST", "faults", {{"path", "api/me"}, {"delayMs", 3000}});
    try {
        runTask(api->request("api/me"));
        FAIL() << "no failure";
    } catch (const API::TransportError& error) {
        EXPECT_EQ(error.text(), "The server did not answer within 0.3 seconds.");
    }
}

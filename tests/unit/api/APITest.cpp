#include "api/API.h"

#include "ManualClock.h"
#include "RunTask.h"

#include <QRegularExpression>
#include <QUrlQuery>

#include <gtest/gtest.h>

// What the client does without a server. Everything that talks to one is
// tested against rz-devserver in the integration suite.

TEST(RandomURLSafeString, ThirtyTwoBytesGiveFortyThreeCharactersAndSixteenGiveTwentyTwo) {
    EXPECT_EQ(API::randomURLSafeString(32).size(), 43);
    EXPECT_EQ(API::randomURLSafeString(16).size(), 22);
}

TEST(RandomURLSafeString, UsesOnlyUrlSafeCharactersAndDiffersEachTime) {
    const QRegularExpression safe("^[A-Za-z0-9_-]+$");
    QSet<QString> seen;
    for (int i = 0; i < 200; ++i) {
        const QString text = API::randomURLSafeString(32);
        EXPECT_TRUE(safe.match(text).hasMatch()) << text.toStdString();
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 200);
}

TEST(Challenge, IsTheUrlSafeSha256OfTheVerifier) {
    // The worked example of the PKCE standard.
    EXPECT_EQ(API::challenge("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
              "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
}

TEST(MakeAuthorization, AsksForACodeWithPkceInTheDocumentedOrder) {
    const auto authorization = API::makeAuthorization(QUrl("https://rz.velnor.net/"));
    EXPECT_EQ(authorization.url.scheme(), "https");
    EXPECT_EQ(authorization.url.host(), "rz.velnor.net");
    EXPECT_EQ(authorization.url.path(), "/oauth/authorize");
    const auto items = QUrlQuery(authorization.url).queryItems(QUrl::FullyDecoded);
    ASSERT_EQ(items.size(), 6);
    EXPECT_EQ(items[0], qMakePair(QString("response_type"), QString("code")));
    EXPECT_EQ(items[1], qMakePair(QString("client_id"), QString("rz-mobile")));
    EXPECT_EQ(items[2], qMakePair(QString("redirect_uri"), QString("rzmobile://oauth/callback")));
    EXPECT_EQ(items[3],
              qMakePair(QString("code_challenge"), API::challenge(authorization.verifier)));
    EXPECT_EQ(items[4], qMakePair(QString("code_challenge_method"), QString("S256")));
    EXPECT_EQ(items[5], qMakePair(QString("state"), authorization.state));
    EXPECT_EQ(authorization.verifier.size(), 43);
    EXPECT_EQ(authorization.state.size(), 22);
}

TEST(MakeAuthorization, KeepsTheServersOwnPathWithOrWithoutTrailingSlash) {
    EXPECT_EQ(API::makeAuthorization(QUrl("https://x.example/pbx")).url.path(),
              "/pbx/oauth/authorize");
    EXPECT_EQ(API::makeAuthorization(QUrl("https://x.example/pbx/")).url.path(),
              "/pbx/oauth/authorize");
    EXPECT_EQ(API::makeAuthorization(QUrl("http://127.0.0.1:8480")).url.toString(QUrl::RemoveQuery),
              "http://127.0.0.1:8480/oauth/authorize");
}

TEST(UrlOf, ServerWithAndWithoutTrailingSlashGiveTheSameUrls) {
    EXPECT_EQ(API::urlOf(QUrl("https://rz.velnor.net"), "api/me"),
              QUrl("https://rz.velnor.net/api/me"));
    EXPECT_EQ(API::urlOf(QUrl("https://rz.velnor.net/"), "api/me"),
              QUrl("https://rz.velnor.net/api/me"));
}

TEST(UrlOf, ABasePathIsKeptAndAPathMayCarryAQuery) {
    EXPECT_EQ(API::urlOf(QUrl("https://x.example/tenant/a"), "api/calls?mine=1&limit=50"),
              QUrl("https://x.example/tenant/a/api/calls?mine=1&limit=50"));
    EXPECT_EQ(API::urlOf(QUrl("https://x.example/tenant/a/"), "api/directory"),
              QUrl("https://x.example/tenant/a/api/directory"));
}

TEST(FormBody, APlusArrivesAsAPlusNotASpace) {
    EXPECT_EQ(API::formBody({{"refresh_token", "ab+cd/ef=="}}), "refresh_token=ab%2Bcd%2Fef%3D%3D");
}

TEST(FormBody, SeparatorsAndSpacesInValuesAreEncoded) {
    EXPECT_EQ(API::formBody({{"a", "x&y=z"}, {"b", "two words"}, {"c", QString::fromUtf8("ü")}}),
              "a=x%26y%3Dz&b=two%20words&c=%C3%BC");
    EXPECT_EQ(API::formBody({}), QByteArray());
}

TEST(FailureText, HttpShowsStatusAndTheFirst200Characters) {
    const QString body = QString(500, u'x');
    const QString text = API::Failure::http(500, body).text();
    EXPECT_EQ(text, "HTTP 500: " + QString(200, u'x'));
}

TEST(FailureText, CountsUserPerceivedCharacters) {
    // "e" with a combining acute accent is one character a person sees.
    QString body;
    for (int i = 0; i < 300; ++i) {
        body += QString::fromUtf8("e\xCC\x81");
    }
    const QString text = API::Failure::http(502, body).text();
    EXPECT_EQ(text, "HTTP 502: " + body.left(400));
}

TEST(FailureText, AShortBodyIsShownWhole) {
    EXPECT_EQ(API::Failure::http(404, "not found").text(), "HTTP 404: not found");
    EXPECT_EQ(API::Failure::http(503, "").text(), "HTTP 503: ");
}

TEST(FailureText, OAuthAndSignedOut) {
    EXPECT_EQ(API::Failure::oauth("invalid_grant").text(), "OAuth: invalid_grant");
    EXPECT_EQ(API::Failure::oauth("state mismatch").text(), "OAuth: state mismatch");
    EXPECT_EQ(API::Failure::signedOut().text(), "Signed out. Please sign in again.");
}

// One rule for every owner of a user action and every list's error field.
TEST(Describe, AFailureReadsAsItsOwnSentenceWhateverItFailedWith) {
    const auto of = [](auto thrown) { return API::describe(std::make_exception_ptr(thrown)); };
    EXPECT_EQ(of(API::Failure::http(403, "Not allowed")), "HTTP 403: Not allowed");
    EXPECT_EQ(of(API::Failure::signedOut()), "Signed out. Please sign in again.");
    EXPECT_EQ(of(API::TransportError("Connection refused")), "Connection refused");
    EXPECT_EQ(of(std::runtime_error("disk full")), "disk full");
    EXPECT_EQ(of(42), "Something went wrong.");
}

TEST(ApiWithoutTokens, ARequestFailsSignedOutBeforeTouchingTheNetwork) {
    MemorySecureStore store;
    auto api = API::make(QUrl("http://127.0.0.1:1/"), store);
    try {
        runTask(api->request("api/me"));
        FAIL() << "the request did not fail";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.kind(), API::Failure::Kind::signedOut);
    }
    EXPECT_EQ(api->refreshCount(), 0);
}

TEST(ApiWithoutTokens, HasRefreshTokenLooksInTheStoreUnderTheServersAddress) {
    MemorySecureStore store;
    auto api = API::make(QUrl("https://rz.velnor.net/"), store);
    EXPECT_FALSE(runTask(api->hasRefreshToken()));
    runTask(store.save("r", "net.velnor.rz.oauth", "https://other.example/"));
    EXPECT_FALSE(runTask(api->hasRefreshToken()));
    runTask(store.save("r", "net.velnor.rz.oauth", "https://rz.velnor.net/"));
    EXPECT_TRUE(runTask(api->hasRefreshToken()));
}

TEST(ApiWithoutTokens, ClearTokensWithoutRevokeForgetsTheRefreshToken) {
    MemorySecureStore store;
    runTask(store.save("r", "net.velnor.rz.oauth", "https://rz.velnor.net/"));
    auto api = API::make(QUrl("https://rz.velnor.net/"), store);
    runTask(api->clearTokens(false));
    EXPECT_EQ(store.size(), 0);
}

TEST(ApiTransport, ARefusedConnectionIsTheNetworksOwnErrorAndKeepsTheToken) {
    MemorySecureStore store;
    runTask(store.save("r", "net.velnor.rz.oauth", "http://127.0.0.1:1/"));
    auto api = API::make(QUrl("http://127.0.0.1:1/"), store);
    try {
        runTask(api->request("api/me"));
        FAIL() << "the request did not fail";
    } catch (const API::TransportError& error) {
        EXPECT_TRUE(error.text().contains("refused", Qt::CaseInsensitive)) << error.what();
    }
    EXPECT_TRUE(runTask(api->hasRefreshToken()));
}

TEST(ApiTransport, ARevokeThatCannotReachTheServerStillForgetsTheTokens) {
    MemorySecureStore store;
    runTask(store.save("r", "net.velnor.rz.oauth", "http://127.0.0.1:1/"));
    auto api = API::make(QUrl("http://127.0.0.1:1/"), store);
    runTask(api->clearTokens(true));
    EXPECT_EQ(store.size(), 0);
}

TEST(LiveAddress, NeedsATokenFirst) {
    MemorySecureStore store;
    auto api = API::make(QUrl("https://rz.velnor.net/"), store);
    EXPECT_THROW(runTask(api->liveConnection()), API::Failure);
}

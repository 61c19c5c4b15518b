#include "DevServerKit.h"

using namespace kit;

namespace {

json oauthError(const HttpResult& result) {
    EXPECT_EQ(result.status, 400) << result.body.toStdString();
    return result.json();
}

} // namespace

TEST(DevServerOAuth, TheSignInPageListsTheDemoUsersWithAllowAndDeny) {
    DevServer server;
    QNetworkAccessManager network;
    const auto page =
        httpRequest(network, "GET", authorizeUrl(server, challengeOf(newVerifier()), "s1"));
    ASSERT_EQ(page.status, 200);
    EXPECT_TRUE(page.header("Content-Type").startsWith("text/html"));
    const auto html = QString::fromUtf8(page.body);
    EXPECT_TRUE(html.contains("Anna Berger"));
    EXPECT_TRUE(html.contains("Luca Romano"));
    EXPECT_TRUE(html.contains(">Allow<"));
    EXPECT_TRUE(html.contains(">Deny<"));
}

TEST(DevServerOAuth, TheAuthorizeRequestIsCheckedParameterByParameter) {
    DevServer server;
    QNetworkAccessManager network;
    const auto challenge = challengeOf(newVerifier());
    EXPECT_EQ(httpRequest(network, "GET", authorizeUrl(server, challenge, "s", "other")).status,
              400);
    EXPECT_EQ(httpRequest(network, "GET",
                          authorizeUrl(server, challenge, "s", "rz-mobile", "https://evil/cb"))
                  .status,
              400);
    EXPECT_EQ(httpRequest(network, "GET",
                          authorizeUrl(server, challenge, "s", "rz-mobile",
                                       "rzmobile://oauth/callback", "plain"))
                  .status,
              400);
    auto url = authorizeUrl(server, challenge, "s");
    url.setQuery(url.query().replace("response_type=code", "response_type=token"));
    EXPECT_EQ(httpRequest(network, "GET", url).status, 400);
    EXPECT_EQ(httpRequest(network, "GET", authorizeUrl(server, challenge, "s")).status, 200);
}

TEST(DevServerOAuth, AllowRedirectsWithACodeAndTheGivenState) {
    DevServer server;
    QNetworkAccessManager network;
    const auto page =
        httpRequest(network, "GET", authorizeUrl(server, challengeOf(newVerifier()), "state-42"));
    const auto decision = httpRequest(
        network, "POST", server.url("oauth/authorize"),
        form({{"request", pageRequestId(page.body)}, {"user", "u-001"}, {"decision", "allow"}}),
        formHeaders);
    ASSERT_EQ(decision.status, 302);
    const QUrl location(QString::fromUtf8(decision.header("Location")));
    EXPECT_EQ(location.scheme(), "rzmobile");
    EXPECT_EQ(location.host(), "oauth");
    EXPECT_EQ(location.path(), "/callback");
    EXPECT_FALSE(locationQuery(decision).queryItemValue("code").isEmpty());
    EXPECT_EQ(locationQuery(decision).queryItemValue("state"), "state-42");
}

TEST(DevServerOAuth, DenyRedirectsWithAccessDeniedAndTheState) {
    DevServer server;
    QNetworkAccessManager network;
    const auto page =
        httpRequest(network, "GET", authorizeUrl(server, challengeOf(newVerifier()), "st-7"));
    const auto decision = httpRequest(
        network, "POST", server.url("oauth/authorize"),
        form({{"request", pageRequestId(page.body)}, {"user", "u-001"}, {"decision", "deny"}}),
        formHeaders);
    ASSERT_EQ(decision.status, 302);
    EXPECT_EQ(locationQuery(decision).queryItemValue("error"), "access_denied");
    EXPECT_EQ(locationQuery(decision).queryItemValue("state"), "st-7");
    EXPECT_FALSE(locationQuery(decision).hasQueryItem("code"));
}

TEST(DevServerOAuth, AutoApproveSkipsThePage) {
    DevServer server({"--auto-approve", "u-003"});
    QNetworkAccessManager network;
    const auto verifier = newVerifier();
    const auto answer =
        httpRequest(network, "GET", authorizeUrl(server, challengeOf(verifier), "auto"));
    ASSERT_EQ(answer.status, 302);
    EXPECT_EQ(locationQuery(answer).queryItemValue("state"), "auto");
    const auto tokens =
        tokensOf(exchange(server, network, locationQuery(answer).queryItemValue("code"), verifier));
    const auto me = httpRequest(network, "GET", server.url("api/me"), {}, bearer(tokens.access));
    EXPECT_EQ(me.json().at("id"), "u-003");
}

TEST(DevServerOAuth, TheCodeExchangeGivesTokensThatOpenTheApi) {
    DevServer server({"--access-ttl", "900"});
    QNetworkAccessManager network;
    const auto verifier = newVerifier();
    const auto code = authorizeCode(server, network, verifier, "u-002");
    const auto result = exchange(server, network, code, verifier);
    ASSERT_EQ(result.status, 200) << result.body.toStdString();
    const auto body = result.json();
    EXPECT_EQ(body.at("expires_in"), 900);
    EXPECT_TRUE(body.at("access_token").is_string());
    EXPECT_TRUE(body.at("refresh_token").is_string());
    const auto me = httpRequest(network, "GET", server.url("api/me"), {},
                                bearer(QString::fromStdString(body.at("access_token"))));
    ASSERT_EQ(me.status, 200);
    EXPECT_EQ(me.json().at("id"), "u-002");
}

TEST(DevServerOAuth, AWrongVerifierIsAnInvalidGrant) {
    DevServer server;
    QNetworkAccessManager network;
    const auto code = authorizeCode(server, network, newVerifier());
    EXPECT_EQ(oauthError(exchange(server, network, code, newVerifier())).at("error"),
              "invalid_grant");
}

TEST(DevServerOAuth, ACodeWorksOnce) {
    DevServer server;
    QNetworkAccessManager network;
    const auto verifier = newVerifier();
    const auto code = authorizeCode(server, network, verifier);
    EXPECT_EQ(exchange(server, network, code, verifier).status, 200);
    EXPECT_EQ(oauthError(exchange(server, network, code, verifier)).at("error"), "invalid_grant");
    EXPECT_EQ(oauthError(exchange(server, network, "made-up", verifier)).at("error"),
              "invalid_grant");
}

TEST(DevServerOAuth, ACodeExpiresAfterSixtySeconds) {
    DevServer server;
    QNetworkAccessManager network;
    const auto verifier = newVerifier();
    const auto code = authorizeCode(server, network, verifier);
    server.control("POST", "clock", {{"advanceS", 61}});
    EXPECT_EQ(oauthError(exchange(server, network, code, verifier)).at("error"), "invalid_grant");
}

TEST(DevServerOAuth, ARefreshRotatesTheRefreshToken) {
    DevServer server;
    QNetworkAccessManager network;
    const auto first = signIn(server, network);
    const auto renewed = refresh(server, network, first.refresh);
    ASSERT_EQ(renewed.status, 200);
    const auto second = tokensOf(renewed);
    EXPECT_NE(second.refresh, first.refresh);
    EXPECT_NE(second.access, first.access);
    EXPECT_EQ(oauthError(refresh(server, network, first.refresh)).at("error"), "invalid_grant");
    EXPECT_EQ(refresh(server, network, second.refresh).status, 200);
    EXPECT_EQ(httpRequest(network, "GET", server.url("api/me"), {}, bearer(second.access)).status,
              200);
}

TEST(DevServerOAuth, RevokeEndsTheRefreshToken) {
    DevServer server;
    QNetworkAccessManager network;
    const auto tokens = signIn(server, network);
    const auto other = signIn(server, network);
    const auto revoked =
        httpRequest(network, "POST", server.url("oauth/revoke"),
                    form({{"token", tokens.refresh}, {"client_id", "rz-mobile"}}), formHeaders);
    EXPECT_EQ(revoked.status, 200);
    EXPECT_EQ(oauthError(refresh(server, network, tokens.refresh)).at("error"), "invalid_grant");
    // The access token of that sign-in went with it; another sign-in stays.
    EXPECT_EQ(httpRequest(network, "GET", server.url("api/me"), {}, bearer(tokens.access)).status,
              401);
    EXPECT_EQ(httpRequest(network, "GET", server.url("api/me"), {}, bearer(other.access)).status,
              200);
}

TEST(DevServerOAuth, BadTokenRequestsGetTheirOAuthErrors) {
    DevServer server;
    QNetworkAccessManager network;
    const auto post = [&](const QByteArray& body) {
        return oauthError(
                   httpRequest(network, "POST", server.url("oauth/token"), body, formHeaders))
            .at("error")
            .get<std::string>();
    };
    EXPECT_EQ(post(form({{"grant_type", "password"}, {"client_id", "rz-mobile"}})),
              "unsupported_grant_type");
    EXPECT_EQ(post(form({{"grant_type", "refresh_token"},
                         {"client_id", "someone-else"},
                         {"refresh_token", "x"}})),
              "invalid_client");
    EXPECT_EQ(post(form({{"grant_type", "authorization_code"}, {"client_id", "rz-mobile"}})),
              "invalid_request");
    EXPECT_EQ(post(form({{"client_id", "rz-mobile"}})), "invalid_request");
    EXPECT_EQ(post("grant_type=refresh_token&refresh_token=%zz"), "invalid_request");
}

TEST(DevServerOAuth, APlusInAFormIsASpace) {
    DevServer server;
    QNetworkAccessManager network;
    // "refresh+token" decodes to "refresh token", which is no grant type at all.
    const auto result = httpRequest(network, "POST", server.url("oauth/token"),
                                    "grant_type=refresh+token&client_id=rz-mobile", formHeaders);
    EXPECT_EQ(oauthError(result).at("error"), "unsupported_grant_type");
    const auto requests = server.control("GET", "requests");
    EXPECT_EQ(requests.back().at("body"), "grant_type=refresh+token&client_id=rz-mobile");
}

TEST(DevServerOAuth, AnAccessTokenEndsAfterItsLifetime) {
    DevServer server({"--access-ttl", "60"});
    QNetworkAccessManager network;
    const auto tokens = signIn(server, network);
    EXPECT_EQ(tokens.expiresIn, 60);
    EXPECT_EQ(httpRequest(network, "GET", server.url("api/me"), {}, bearer(tokens.access)).status,
              200);
    server.control("POST", "clock", {{"advanceS", 61}});
    EXPECT_EQ(httpRequest(network, "GET", server.url("api/me"), {}, bearer(tokens.access)).status,
              401);
    EXPECT_EQ(refresh(server, network, tokens.refresh).status, 200);
}

TEST(DevServerOAuth, ARequestWithoutAValidBearerIs401WithABody) {
    DevServer server;
    QNetworkAccessManager network;
    const auto none = httpRequest(network, "GET", server.url("api/me"));
    EXPECT_EQ(none.status, 401);
    EXPECT_EQ(none.json().at("error"), "invalid_token");
    EXPECT_TRUE(none.header("WWW-Authenticate").startsWith("Bearer"));
    EXPECT_EQ(
        httpRequest(network, "GET", server.url("api/directory"), {}, bearer("nonsense")).status,
        401);
    const auto tokens = signIn(server, network);
    server.control("POST", "tokens/expire", {{"token", tokens.access.toStdString()}});
    EXPECT_EQ(httpRequest(network, "GET", server.url("api/me"), {}, bearer(tokens.access)).status,
              401);
}

TEST(DevServerOAuth, AutoApproveOfAnUnknownUserRefusesToStart) {
    EXPECT_THROW(DevServer({"--auto-approve", "nobody"}), std::runtime_error);
}

TEST(DevServerOAuth, ARefreshTokenWithAPlusWorksOnlyWhenEscaped) {
    DevServer server;
    QNetworkAccessManager network;
    const auto tokens = signIn(server, network);
    ASSERT_TRUE(tokens.refresh.contains('+'));
    // Sent as a URL query leaves it: the form decoder reads a space there.
    const auto unescaped =
        httpRequest(network, "POST", server.url("oauth/token"),
                    "grant_type=refresh_token&client_id=rz-mobile&refresh_token=" +
                        QUrl::toPercentEncoding(tokens.refresh, "+"),
                    formHeaders);
    EXPECT_EQ(oauthError(unescaped).at("error"), "invalid_grant");
    EXPECT_EQ(refresh(server, network, tokens.refresh).status, 200);
}

TEST(DevServerOAuth, TheTokenEndpointWantsAFormBody) {
    DevServer server;
    QNetworkAccessManager network;
    const auto verifier = newVerifier();
    const auto code = authorizeCode(server, network, verifier);
    const auto asJson =
        httpRequest(network, "POST", server.url("oauth/token"),
                    dump(json{{"grant_type", "authorization_code"}, {"code", code.toStdString()}}),
                    {{"Content-Type", "application/json"}});
    EXPECT_EQ(oauthError(asJson).at("error"), "invalid_request");
    EXPECT_EQ(exchange(server, network, code, verifier).status, 200);
}

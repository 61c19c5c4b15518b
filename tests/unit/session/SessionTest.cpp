#include "session/Session.h"

#include "RunTask.h"
#include "StderrCapture.h"

#include <QSignalSpy>
#include <QUrlQuery>

#include <gtest/gtest.h>

// Session's rules that need no server. Sign-in, restore and sign-out against
// rz-devserver are in the integration suite.
namespace {

class SessionTest : public testing::Test {
protected:
    std::unique_ptr<Session> make() {
        auto session = std::make_unique<Session>(settings, secrets);
        session->setOpenBrowser([this](const QUrl& url) {
            opened.append(url);
            return browserWorks;
        });
        return session;
    }

    QUrl redirect(const QString& query) { return QUrl("rzmobile://oauth/callback?" + query); }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    QList<QUrl> opened;
    bool browserWorks = true;
};

Directory company() {
    Directory directory;
    Directory::Entry ada;
    ada.id = "u1";
    ada.name = "Ada";
    ada.extension_ = "101";
    ada.numbers = QStringList{"030 1234567"};
    Directory::Entry bo;
    bo.id = "u2";
    bo.name = "Bo";
    bo.extension_ = "12345";
    bo.numbers = QStringList{"+1 (555) 000-1111"};
    directory.users = {ada, bo};
    Directory::Entry sales;
    sales.id = "g1";
    sales.name = "Sales";
    sales.extension_ = "200";
    directory.groups = {sales};
    Directory::Entry flow;
    flow.id = "f1";
    flow.name = "Main line";
    flow.extension_ = "300";
    directory.flows = {flow};
    return directory;
}

} // namespace

TEST_F(SessionTest, StartsLoadingOnTheDefaultDashboardWhenNoneIsSaved) {
    auto session = make();
    EXPECT_EQ(session->state(), Session::State::loading);
    EXPECT_EQ(session->server(), QUrl("https://rz.velnor.net/"));
}

TEST_F(SessionTest, ASavedDashboardIsUsed) {
    settings.setUrl("rz.server", QUrl("http://127.0.0.1:8480/"));
    EXPECT_EQ(make()->server(), QUrl("http://127.0.0.1:8480/"));
}

TEST_F(SessionTest, TheDevelopmentEndpointGivesTheDefaultButStaysSaved) {
    settings.setUrl("rz.server", QUrl("http://localhost:3000/"));
    EXPECT_EQ(make()->server(), QUrl("https://rz.velnor.net/"));
    EXPECT_EQ(settings.url("rz.server"), QUrl("http://localhost:3000/"));
}

TEST_F(SessionTest, ChooseServerSwitchesAndSaves) {
    auto session = make();
    QSignalSpy changed(session.get(), &Session::serverChanged);
    session->chooseServer(QUrl("https://pbx.example.com/tenant/"));
    EXPECT_EQ(session->server(), QUrl("https://pbx.example.com/tenant/"));
    EXPECT_EQ(session->api().server(), QUrl("https://pbx.example.com/tenant/"));
    EXPECT_EQ(settings.url("rz.server"), QUrl("https://pbx.example.com/tenant/"));
    EXPECT_EQ(changed.count(), 1);
}

TEST_F(SessionTest, AnAddressTypedWithSpacesAndTabsIsAcceptedTrimmed) {
    auto session = make();
    session->chooseServerText(" \t https://pbx.example.com/ \t ");
    EXPECT_EQ(session->server(), QUrl("https://pbx.example.com/"));
}

TEST_F(SessionTest, AnAddressWithoutASchemeLeavesTheServerAsItWas) {
    auto session = make();
    session->chooseServerText("pbx.example.com");
    session->chooseServerText("");
    session->chooseServerText("   ");
    EXPECT_EQ(session->server(), QUrl("https://rz.velnor.net/"));
    EXPECT_EQ(settings.url("rz.server"), std::nullopt);
}

TEST_F(SessionTest, SignInOpensTheBrowserOnTheAuthorizeAddressAndWaits) {
    auto session = make();
    session->setError(QString("old"));
    session->signIn();
    EXPECT_EQ(session->state(), Session::State::signingIn);
    EXPECT_FALSE(session->hasError());
    ASSERT_EQ(opened.size(), 1);
    ASSERT_TRUE(session->pendingAuth());
    EXPECT_EQ(opened[0], session->pendingAuth()->url);
    EXPECT_EQ(opened[0].path(), "/oauth/authorize");
    EXPECT_EQ(QUrlQuery(opened[0]).queryItemValue("state"), session->pendingAuth()->state);
}

TEST_F(SessionTest, ABrowserThatCannotBeOpenedLeavesTheAddressToOpenByHand) {
    browserWorks = false;
    auto session = make();
    session->signIn();
    EXPECT_EQ(session->state(), Session::State::signingIn);
    EXPECT_TRUE(
        session->errorText().contains(session->pendingAuth()->url.toString(QUrl::FullyEncoded)));
}

TEST_F(SessionTest, CancelAbandonsTheBrowserFlow) {
    auto session = make();
    session->signIn();
    session->cancelSignIn();
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_FALSE(session->pendingAuth());
}

TEST_F(SessionTest, ARedirectWithNoPendingSignInChangesNothing) {
    auto session = make();
    runTask(session->handleRedirect(redirect("code=c&state=s")));
    EXPECT_EQ(session->state(), Session::State::loading);
    EXPECT_FALSE(session->hasError());
}

TEST_F(SessionTest, ARedirectWithAnotherSchemeIsIgnoredAndTheSignInStaysPending) {
    auto session = make();
    session->signIn();
    const QString state = session->pendingAuth()->state;
    runTask(session->handleRedirect(QUrl("https://oauth/callback?code=c&state=" + state)));
    EXPECT_EQ(session->state(), Session::State::signingIn);
    ASSERT_TRUE(session->pendingAuth());
    EXPECT_EQ(session->pendingAuth()->state, state);
}

TEST_F(SessionTest, ARefusalWithTheRightStateShowsTheServersWord) {
    auto session = make();
    session->signIn();
    runTask(session->handleRedirect(
        redirect("error=access_denied&state=" + session->pendingAuth()->state)));
    EXPECT_EQ(session->errorText(), "OAuth: access_denied");
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_FALSE(session->pendingAuth());
}

TEST_F(SessionTest, AWrongStateWinsOverAnError) {
    auto session = make();
    session->signIn();
    runTask(session->handleRedirect(redirect("error=access_denied&state=wrong")));
    EXPECT_EQ(session->errorText(), "OAuth: state mismatch");
    EXPECT_EQ(session->state(), Session::State::signedOut);
}

TEST_F(SessionTest, AMissingStateIsAMismatch) {
    auto session = make();
    session->signIn();
    runTask(session->handleRedirect(redirect("code=abc")));
    EXPECT_EQ(session->errorText(), "OAuth: state mismatch");
}

TEST_F(SessionTest, ARedirectWithoutACodeSaysSo) {
    auto session = make();
    session->signIn();
    runTask(session->handleRedirect(redirect("state=" + session->pendingAuth()->state)));
    EXPECT_EQ(session->errorText(), "OAuth: no code");
}

TEST_F(SessionTest, TheFirstOfRepeatedItemsCounts) {
    auto session = make();
    session->signIn();
    runTask(session->handleRedirect(
        redirect("state=" + session->pendingAuth()->state + "&state=other")));
    EXPECT_EQ(session->errorText(), "OAuth: no code");
}

TEST_F(SessionTest, ASecondRedirectAfterAFailureIsIgnored) {
    auto session = make();
    session->signIn();
    const QString state = session->pendingAuth()->state;
    runTask(session->handleRedirect(redirect("state=" + state)));
    session->clearError();
    runTask(session->handleRedirect(redirect("state=" + state)));
    EXPECT_FALSE(session->hasError());
}

TEST_F(SessionTest, RestoreWithoutAStoredSignInIsSignedOut) {
    auto session = make();
    runTask(session->restore());
    EXPECT_EQ(session->state(), Session::State::signedOut);
}

TEST_F(SessionTest, EveryPresentErrorIsLoggedEvenWhenRepeated) {
    auto session = make();
    QSignalSpy changed(session.get(), &Session::errorChanged);
    StderrCapture capture;
    session->setError(QString("HTTP 500: boom"));
    session->setError(QString("HTTP 500: boom"));
    session->setError(std::nullopt);
    const QString written = QString::fromUtf8(capture.take());
    EXPECT_EQ(written.count("[api] HTTP 500: boom"), 2) << written.toStdString();
    EXPECT_EQ(changed.count(), 2);
}

TEST_F(SessionTest, ResetLocalForgetsTheDeviceButKeepsTheServer) {
    settings.setUrl("rz.server", QUrl("http://127.0.0.1:8480/"));
    settings.setText("rz.deviceId", "dev-1");
    auto session = make();
    session->setDirectory(company());
    session->resetLocal();
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_EQ(settings.text("rz.deviceId"), std::nullopt);
    EXPECT_EQ(settings.url("rz.server"), QUrl("http://127.0.0.1:8480/"));
    EXPECT_FALSE(session->directory());
}

TEST(NumberKey, KeepsTheLastTenDigits) {
    EXPECT_EQ(Session::numberKey("+49 30 1234567"), "9301234567");
    EXPECT_EQ(Session::numberKey("030 1234567"), "0301234567");
    EXPECT_EQ(Session::numberKey("101"), "101");
    EXPECT_EQ(Session::numberKey("sip:alice"), "");
}

TEST_F(SessionTest, AColleagueIsFoundByTheLastTenDigitsOfADirectNumber) {
    auto session = make();
    session->setDirectory(company());
    // "+49 30 1234567" and "030 1234567" differ in their last ten digits.
    EXPECT_EQ(session->colleague("+49 30 1234567"), std::nullopt);
    EXPECT_EQ(session->colleague("0301234567")->id, "u1");
    EXPECT_EQ(session->colleague("+1 555 000 1111")->id, "u2");
    EXPECT_EQ(session->colleague("15550001111")->id, "u2");
}

TEST_F(SessionTest, AShortNumberIsMatchedOnlyByAnExtension) {
    auto session = make();
    session->setDirectory(company());
    EXPECT_EQ(session->colleague("12345")->id, "u2");
    EXPECT_EQ(session->colleague("01111"), std::nullopt);
    EXPECT_EQ(session->colleague("101")->id, "u1");
}

TEST_F(SessionTest, ColleagueNameFallsBackToARingGroupButNotAFlow) {
    auto session = make();
    EXPECT_EQ(session->colleagueName("101"), std::nullopt);
    session->setDirectory(company());
    EXPECT_EQ(session->colleagueName("101"), "Ada");
    EXPECT_EQ(session->colleagueName("200"), "Sales");
    EXPECT_EQ(session->colleagueName("300"), std::nullopt);
}

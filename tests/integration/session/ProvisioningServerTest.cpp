#include "session/Session.h"

#include "../../unit/telephony/FakeCore.h"
#include "BrowserKit.h"
#include "DevServer.h"
#include "RunTask.h"
#include "audio/NullBackend.h"
#include "telephony/Phone.h"

#include "EventLoopWait.h"
#include <QSignalSpy>

#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;

// Provisioning this computer as a device of the signed-in user against
// rz-devserver. The phone records what it is asked to register with; the
// registration itself against kamailio is in the phone's integration suite.
namespace {

class ProvisioningServer : public testing::Test {
protected:
    explicit ProvisioningServer(QStringList arguments = {"--auto-approve", "u-001", "--sip-edge",
                                                         "udp:b:5060", "--sip-edge", "tls:a:5061"})
        : server(arguments) {
        settings.setUrl("rz.server", server.url());
        phone.setClientFactory(
            [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
                auto client = std::make_shared<FakeClient>(account, std::move(d));
                clients.push_back(client);
                return client;
            });
    }

    std::unique_ptr<Session> make() {
        auto session = std::make_unique<Session>(settings, secrets);
        session->setPhone(&phone);
        useSigningInBrowser(*session);
        return session;
    }

    // Signs in and waits for enter() to have done its part with the phone.
    void signIn(Session& session, int provisionsBefore = 0) {
        session.signIn();
        ASSERT_TRUE(spinUntil(
            [&] {
                return session.hasError() || provisions() > provisionsBefore ||
                       (session.me() && !clients.empty());
            },
            std::chrono::milliseconds(10000)));
        // The reply may still be on its way back into the session.
        ASSERT_TRUE(spinUntil([&] { return session.hasError() || settings.text("rz.deviceId"); },
                              std::chrono::milliseconds(10000)));
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
    int provisions() { return int(requests("POST", "api/me/app-device").size()); }

    void fault(int status, const json& body) {
        server.control("POST", "faults",
                       {{"method", "POST"},
                        {"path", "api/me/app-device"},
                        {"status", status},
                        {"body", body}});
    }

    DevServer server;
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Phone phone{settings, std::make_shared<NullBackend>()};
    std::vector<std::shared_ptr<FakeClient>> clients;
};

} // namespace

TEST_F(ProvisioningServer, AFirstSignInProvisionsThisComputerAndStartsThePhoneOnTheTlsEdge) {
    auto session = make();
    signIn(*session);
    ASSERT_FALSE(session->hasError()) << session->errorText().toStdString();
    ASSERT_EQ(provisions(), 1);
    const json sent =
        json::parse(requests("POST", "api/me/app-device")[0]["body"].get<std::string>());
    EXPECT_EQ(sent["name"], "Linux of Anna Berger");
    EXPECT_EQ(sent["platform"], "linux");
    EXPECT_TRUE(sent.contains("model"));
    EXPECT_EQ(QString::fromStdString(sent["installId"]),
              runTask(secrets.read("net.velnor.rz.install", "id")));

    ASSERT_TRUE(settings.text("rz.deviceId"));
    const Account account = phone.account();
    EXPECT_EQ(account.server, "a:5061");
    EXPECT_FALSE(account.username.isEmpty());
    EXPECT_FALSE(account.password.isEmpty());
    EXPECT_EQ(settings.text("account.server"), "a:5061");
    EXPECT_EQ(settings.text("account.username"), account.username);
    EXPECT_EQ(runTask(secrets.read("net.velnor.rz.sip", account.username)), account.password);
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(clients[0]->account.server, "a:5061");
    EXPECT_EQ(clients[0]->starts, 1);
}

TEST_F(ProvisioningServer, TwoProvisioningsOnOneComputerSendTheSameInstallId) {
    auto session = make();
    signIn(*session);
    runTask(session->signOutKeepingDevice());
    EXPECT_FALSE(settings.text("rz.deviceId"));
    EXPECT_FALSE(phone.account().isComplete());
    signIn(*session, 1);
    const auto sent = requests("POST", "api/me/app-device");
    ASSERT_EQ(sent.size(), 2);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>())["installId"],
              json::parse(sent[1]["body"].get<std::string>())["installId"]);
}

TEST_F(ProvisioningServer, ALaterLaunchWithTheDeviceWakesThePhoneWithoutAsking) {
    auto first = make();
    signIn(*first);
    const Account account = phone.account();
    phone.stop();
    clients.clear();
    phone.setAccount(runTask(Account::load(settings, secrets)));
    EXPECT_EQ(phone.account(), account);

    auto later = make();
    runTask(later->restore());
    EXPECT_EQ(provisions(), 1);
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(clients[0]->starts, 1);
    EXPECT_EQ(clients[0]->account.username, account.username.toStdString());
}

TEST_F(ProvisioningServer, SignOutRemovingTheDeviceStopsThePhoneAndForgetsTheAccount) {
    auto session = make();
    signIn(*session);
    const QString deviceId = *settings.text("rz.deviceId");
    runTask(session->signOut(true));
    EXPECT_EQ(clients[0]->stops, 1);
    EXPECT_FALSE(phone.client());
    EXPECT_EQ(phone.registration(), Phone::Registration::off());
    EXPECT_EQ(phone.account(), Account::builtIn());
    EXPECT_EQ(settings.text("account.username"), "");
    EXPECT_FALSE(settings.text("rz.deviceId"));
    EXPECT_EQ(requests("DELETE", "api/devices/" + deviceId).size(), 1);
    // The install id stays for the next provisioning.
    EXPECT_TRUE(runTask(secrets.read("net.velnor.rz.install", "id")));
}

TEST_F(ProvisioningServer, AReplyThatIsNotADeviceShowsTheReadersTextAndStoresNothing) {
    fault(200, {{"deviceId", "dev-9"}, {"name", "x"}});
    auto session = make();
    signIn(*session);
    ASSERT_TRUE(session->hasError());
    EXPECT_TRUE(session->errorText().contains("sipUsername")) << session->errorText().toStdString();
    EXPECT_EQ(session->state(), Session::State::signedIn);
    EXPECT_FALSE(settings.text("rz.deviceId"));
    EXPECT_FALSE(settings.text("account.username"));
    EXPECT_EQ(phone.account(), Account::builtIn());
    EXPECT_TRUE(clients.empty());
}

TEST_F(ProvisioningServer, AnEmptyEdgeListFailsAndLeavesTheDeviceIdUnset) {
    fault(200, {{"deviceId", "dev-9"},
                {"name", "Linux of Anna Berger"},
                {"sipUsername", "acme.201.9"},
                {"password", "pw"},
                {"realm", "acme"},
                {"srtp", false},
                {"edge", json::array()}});
    auto session = make();
    signIn(*session);
    EXPECT_EQ(session->errorText(), "OAuth: no TCP or TLS edge offered");
    EXPECT_FALSE(settings.text("rz.deviceId"));
    EXPECT_FALSE(settings.text("account.username"));
    EXPECT_EQ(phone.account(), Account::builtIn());
    EXPECT_TRUE(clients.empty());
}

TEST_F(ProvisioningServer, AServerErrorShowsStatusAndBodyAndStoresNothing) {
    fault(500, "the device store is down");
    auto session = make();
    signIn(*session);
    EXPECT_EQ(session->errorText(), "HTTP 500: the device store is down");
    EXPECT_FALSE(settings.text("rz.deviceId"));
    EXPECT_EQ(phone.account(), Account::builtIn());
    EXPECT_TRUE(clients.empty());
}

TEST_F(ProvisioningServer, AnAccountWithoutTheDeviceIdProvisionsAgain) {
    auto first = make();
    signIn(*first);
    settings.remove("rz.deviceId");
    auto later = make();
    runTask(later->restore());
    EXPECT_EQ(provisions(), 2);
}

#include "session/Session.h"

#include "RunTask.h"

#include <QUuid>

#include <gtest/gtest.h>

// The choice of the SIP entry point and the install id; the exchange with the
// server is in the integration suite.
namespace {

AppDevice::Edge edge(const char* transport, const char* host, qint64 port) {
    return {host, port, transport};
}

} // namespace

TEST(Provisioning, AnEdgeOfAnotherTransportIsPassedOverForTheNextTls) {
    const auto chosen = Session::chooseEdge({edge("udp", "b", 5060), edge("tls", "a", 5061)});
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen->host, "a");
    EXPECT_EQ(chosen->port, 5061);
}

TEST(Provisioning, TheServersOrderDecidesBetweenTlsAndTcp) {
    EXPECT_EQ(Session::chooseEdge({edge("tls", "a", 5061), edge("tcp", "b", 5060)})->transport,
              "tls");
    EXPECT_EQ(Session::chooseEdge({edge("tcp", "b", 5060), edge("tls", "a", 5061)})->transport,
              "tcp");
}

TEST(Provisioning, NoEdgeOrNoneOfTcpOrTlsGivesNone) {
    EXPECT_FALSE(Session::chooseEdge({}));
    EXPECT_FALSE(Session::chooseEdge(
        {edge("udp", "a", 5060), edge("TLS", "a", 5061), edge("wss", "a", 443)}));
}

TEST(Provisioning, TheInstallIdIsMadeOnceAndKept) {
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Session session(settings, secrets);
    const QString first = runTask(session.installId());
    EXPECT_EQ(first.size(), 36);
    EXPECT_EQ(first, first.toUpper());
    EXPECT_FALSE(QUuid::fromString(first).isNull());
    EXPECT_EQ(runTask(secrets.read("net.velnor.rz.install", "id")), first);
    Session again(settings, secrets);
    EXPECT_EQ(runTask(again.installId()), first);
}

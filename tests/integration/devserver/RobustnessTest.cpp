#include "DevServerKit.h"

#include <QDeadlineTimer>
#include <QTcpSocket>

using namespace kit;

namespace {

// Writes bytes on a fresh connection and gives what came back before the
// server closed it or the bound passed.
QByteArray exchangeRaw(DevServer& server, const QByteArray& bytes,
                       std::chrono::milliseconds bound = 2s) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, server.port());
    if (!socket.waitForConnected(int(bound.count()))) {
        throw std::runtime_error("no connection");
    }
    socket.write(bytes);
    socket.flush();
    QByteArray answer;
    QDeadlineTimer deadline(bound);
    while (!deadline.hasExpired() && socket.state() == QAbstractSocket::ConnectedState) {
        if (socket.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime())))) {
            answer += socket.readAll();
            if (answer.contains("\r\n\r\n")) {
                break;
            }
        }
    }
    answer += socket.readAll();
    return answer;
}

} // namespace

TEST(DevServerRobustness, BrokenRequestsGetAnAnswerAndTheServerGoesOn) {
    SignedIn s;
    EXPECT_TRUE(exchangeRaw(s.server, "NONSENSE\r\n\r\n").startsWith("HTTP/1.1 400"));
    EXPECT_TRUE(exchangeRaw(s.server, "GET /api/me HTTP/1.1\r\nno colon here\r\n\r\n")
                    .startsWith("HTTP/1.1 400"));
    EXPECT_TRUE(exchangeRaw(s.server, "GET relative HTTP/1.1\r\n\r\n").startsWith("HTTP/1.1 400"));
    EXPECT_TRUE(exchangeRaw(s.server, "POST /oauth/token HTTP/1.1\r\nContent-Length: -5\r\n\r\n")
                    .startsWith("HTTP/1.1 400"));
    EXPECT_TRUE(
        exchangeRaw(s.server, "POST /oauth/token HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n")
            .startsWith("HTTP/1.1 411"));
    EXPECT_TRUE(exchangeRaw(s.server, "GET / HTTP/1.1\r\nX: " + QByteArray(70 * 1024, 'a'))
                    .startsWith("HTTP/1.1 431"));
    // Half a request, then the connection goes.
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, s.server.port());
        ASSERT_TRUE(socket.waitForConnected(2000));
        socket.write("PUT /api/me/forwarding HTTP/1.1\r\nContent-Length: 100\r\n\r\n{\"al");
        socket.flush();
        socket.abort();
    }
    // A websocket handshake on a path without one.
    const auto upgrade = exchangeRaw(
        s.server,
        "GET /api/me HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n");
    EXPECT_TRUE(upgrade.startsWith("HTTP/1.1 404"));
    // Keep-alive: two requests on one connection get two answers.
    const auto two =
        exchangeRaw(s.server, "GET /nope HTTP/1.1\r\nHost: x\r\n\r\n"
                              "GET /nope HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(two.startsWith("HTTP/1.1 404"));

    EXPECT_TRUE(s.server.process().running());
    EXPECT_EQ(s.get("api/me").status, 200);
}

TEST(DevServerRobustness, RandomBytesNeverStopTheServer) {
    SignedIn s;
    QRandomGenerator random(7);
    for (int round = 0; round < 40; ++round) {
        QByteArray bytes(int(random.bounded(1, 600)), Qt::Uninitialized);
        for (auto& b : bytes)
            b = char(random.bounded(256));
        if (round % 2)
            bytes.prepend("POST /api/me/app-device HTTP/1.1\r\nContent-Length: 40\r\n\r\n");
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, s.server.port());
        ASSERT_TRUE(socket.waitForConnected(2000));
        socket.write(bytes);
        socket.flush();
        socket.waitForReadyRead(20);
        socket.abort();
    }
    LiveClient live(s.server, s.tokens.access);
    for (int round = 0; round < 20; ++round) {
        QByteArray bytes(int(random.bounded(1, 200)), Qt::Uninitialized);
        for (auto& b : bytes)
            b = char(random.bounded(32, 127));
        live.socket().sendTextMessage(QString::fromLatin1(bytes));
        live.send(json{{"type", "sub"}, {"topic", std::string(bytes.constData(), 5)}});
    }
    live.sub("presence");
    while (live.nextData().value("type", "") != "snapshot") {
    }
    EXPECT_TRUE(s.server.process().running());
    EXPECT_EQ(s.get("api/me").status, 200);
}

#include "api/API.h"

#include "ManualClock.h"
#include "RunTask.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

using namespace std::chrono_literals;

// What the client does with answers no dashboard should give: far too large,
// or dribbled out so slowly that each byte beats the silence bound. A plain
// HTTP server on loopback plays the misbehaving dashboard.
namespace {

class RawServer : public QObject {
public:
    // Called once per request with its path; writes the whole answer itself.
    using Answer = std::function<void(const QByteArray& path, QTcpSocket* socket)>;

    explicit RawServer(Answer answer) : m_answer(std::move(answer)) {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { serve(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QUrl url() const { return QUrl(QString("http://127.0.0.1:%1/").arg(m_server.serverPort())); }

private:
    void serve(QTcpSocket* socket) {
        QByteArray& request = m_pending[socket];
        request += socket->readAll();
        const qsizetype end = request.indexOf("\r\n\r\n");
        if (end < 0) {
            return;
        }
        const QByteArray head = request.left(end);
        const qsizetype lengthAt = head.toLower().indexOf("content-length:");
        const qsizetype length =
            lengthAt < 0 ? 0 : head.mid(lengthAt + 15).split('\r').first().trimmed().toLongLong();
        if (request.size() < end + 4 + length) {
            return;
        }
        const QByteArray path = head.split(' ').value(1);
        m_pending.remove(socket);
        if (path == "/oauth/token") {
            const QByteArray body = R"({"access_token":"a","refresh_token":"r","expires_in":3600})";
            socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                          QByteArray::number(body.size()) + "\r\n\r\n" + body);
            return;
        }
        m_answer(path, socket);
    }

    Answer m_answer;
    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_pending;
};

QByteArray head(int status, qint64 length) {
    return "HTTP/1.1 " + QByteArray::number(status) +
           " X\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(length) +
           "\r\n\r\n";
}

// Writes n bytes of the letter in blocks, as fast as the client takes them.
void stream(QTcpSocket* socket, qint64 n, char letter) {
    const QByteArray block(256 * 1024, letter);
    auto left = std::make_shared<qint64>(n);
    const auto more = [socket, block, left] {
        while (*left > 0 && socket->bytesToWrite() < 4 * block.size()) {
            const qint64 size = std::min<qint64>(*left, block.size());
            socket->write(block.constData(), size);
            *left -= size;
        }
    };
    QObject::connect(socket, &QTcpSocket::bytesWritten, socket, more);
    more();
}

class ApiLimits : public testing::Test {
protected:
    std::shared_ptr<API> make(const RawServer& server, std::chrono::milliseconds timeout = 60s) {
        auto api = API::make(server.url(), store, clock, timeout);
        runTask(store.save("r", "net.velnor.rz.oauth", server.url().toString(QUrl::FullyEncoded)));
        return api;
    }

    QString transportFailure(std::shared_ptr<API> api, const QString& path) {
        try {
            runTask(api->request(path), 30s);
        } catch (const API::TransportError& error) {
            return error.text();
        }
        return "no failure";
    }

    MemorySecureStore store;
    ManualClock clock{QDateTime::currentDateTimeUtc()};
};

} // namespace

TEST_F(ApiLimits, AnAnswerOfSixteenMegabytesIsRead) {
    RawServer server([](const QByteArray&, QTcpSocket* socket) {
        socket->write(head(200, API::maxBodyBytes));
        stream(socket, API::maxBodyBytes, ' ');
    });
    const auto reply = runTask(make(server)->request("api/directory"), 30s);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body.size(), API::maxBodyBytes);
}

TEST_F(ApiLimits, AnAnnouncedAnswerOverSixteenMegabytesFailsWithoutBeingRead) {
    RawServer server([](const QByteArray&, QTcpSocket* socket) {
        socket->write(head(200, API::maxBodyBytes + 1));
        stream(socket, API::maxBodyBytes + 1, ' ');
    });
    EXPECT_EQ(transportFailure(make(server), "api/directory"),
              "The server's answer is larger than 16 MB.");
}

TEST_F(ApiLimits, AnUnannouncedAnswerOverSixteenMegabytesFailsAtTheCap) {
    RawServer server([](const QByteArray&, QTcpSocket* socket) {
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: "
                      "close\r\n\r\n");
        stream(socket, 64 * 1024 * 1024, ' ');
    });
    EXPECT_EQ(transportFailure(make(server), "api/directory"),
              "The server's answer is larger than 16 MB.");
}

TEST_F(ApiLimits, AHugeErrorAnswerStillGivesItsFirst200Characters) {
    RawServer server([](const QByteArray&, QTcpSocket* socket) {
        socket->write(head(500, 32 * 1024 * 1024));
        stream(socket, 32 * 1024 * 1024, 'x');
    });
    auto api = make(server);
    try {
        runTask(api->request("api/me"), 30s);
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.text(), "HTTP 500: " + QString(200, 'x'));
    }
}

TEST_F(ApiLimits, AnAnswerDribbledOutPastTwiceTheSilenceBoundFails) {
    RawServer server([](const QByteArray&, QTcpSocket* socket) {
        socket->write(head(200, 1000));
        // One byte every 100 ms: never silent for the 0.5 s bound, never done either.
        auto* timer = new QTimer(socket);
        QObject::connect(timer, &QTimer::timeout, socket, [socket] { socket->write(" "); });
        timer->start(100);
    });
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_EQ(transportFailure(make(server, 500ms), "api/me"),
              "The server did not finish answering within 1 seconds.");
    EXPECT_LT(elapsed.elapsed(), 5000);
}

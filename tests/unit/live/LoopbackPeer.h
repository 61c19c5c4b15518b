#pragma once

#include "api/API.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QHostAddress>
#include <QList>
#include <QPointer>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

#include "EventLoopWait.h"

#include <QCoro/QCoroTask>

#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <vector>

// A websocket server inside the test process, on loopback, for the parts of
// Live that only a socket shows: what is sent on opening, pongs, renewals,
// and how a lost socket is retried. Frames it receives are kept in order.
class LoopbackPeer {
public:
    struct Received {
        nlohmann::json frame;
        bool text = true;
        int socket = 0; // which connection, counting from 1
    };

    LoopbackPeer() {
        if (!m_server.listen(QHostAddress::LocalHost, 0)) {
            throw std::runtime_error("the loopback websocket server could not listen");
        }
        QObject::connect(&m_server, &QWebSocketServer::newConnection, [this] {
            while (QWebSocket* socket = m_server.nextPendingConnection()) {
                const int number = int(m_sockets.size()) + 1;
                m_sockets.push_back(socket);
                m_authorizations.push_back(socket->request().rawHeader("Authorization"));
                QObject::connect(socket, &QWebSocket::textMessageReceived,
                                 [this, number](const QString& text) {
                                     m_received.push_back(
                                         {nlohmann::json::parse(text.toStdString(), nullptr, false),
                                          true, number});
                                 });
                QObject::connect(socket, &QWebSocket::binaryMessageReceived,
                                 [this, number](const QByteArray& bytes) {
                                     m_received.push_back({nlohmann::json::parse(
                                                               bytes.toStdString(), nullptr, false),
                                                           false, number});
                                 });
                QObject::connect(socket, &QWebSocket::disconnected, [this, number] {
                    m_closeCodes.push_back(
                        {number, int(m_sockets[size_t(number - 1)]->closeCode())});
                });
            }
        });
    }

    ~LoopbackPeer() {
        for (auto& socket : m_sockets) {
            if (socket) {
                socket->abort();
                delete socket;
            }
        }
    }

    QUrl url() const {
        return QUrl(QStringLiteral("ws://127.0.0.1:%1/api/live").arg(m_server.serverPort()));
    }

    // A connection closure for Live that hands out this peer's address.
    std::function<QCoro::Task<API::LiveConnection>()> connection(std::function<QDateTime()> expiry,
                                                                 QString token = "token-1") {
        return [this, expiry, token]() -> QCoro::Task<API::LiveConnection> {
            ++m_connectionCalls;
            co_return API::LiveConnection{url(), m_nextToken.isEmpty() ? token : m_nextToken,
                                          expiry()};
        };
    }
    void setNextToken(QString token) { m_nextToken = std::move(token); }
    int connectionCalls() const { return m_connectionCalls; }

    int socketCount() const { return int(m_sockets.size()); }
    QWebSocket& socket(int number) { return *m_sockets.at(size_t(number - 1)); }
    QWebSocket& last() { return socket(socketCount()); }
    const std::vector<Received>& received() const { return m_received; }
    const QList<QByteArray>& authorizations() const { return m_authorizations; }
    // Close codes the peer saw, per socket number, in the order the sockets closed.
    const std::vector<std::pair<int, int>>& closeCodes() const { return m_closeCodes; }

    void sendText(int number, const QByteArray& text) {
        socket(number).sendTextMessage(QString::fromUtf8(text));
        socket(number).flush();
    }

    // Received frames of one type on one socket (0: any socket).
    std::vector<nlohmann::json> framesOf(const std::string& type, int number = 0) const {
        std::vector<nlohmann::json> out;
        for (const auto& r : m_received) {
            if ((number == 0 || r.socket == number) && r.frame.is_object() &&
                r.frame.value("type", "") == type) {
                out.push_back(r.frame);
            }
        }
        return out;
    }

private:
    QWebSocketServer m_server{QStringLiteral("loopback"), QWebSocketServer::NonSecureMode};
    std::vector<QPointer<QWebSocket>> m_sockets;
    QList<QByteArray> m_authorizations;
    std::vector<Received> m_received;
    std::vector<std::pair<int, int>> m_closeCodes;
    int m_connectionCalls = 0;
    QString m_nextToken;
};

#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QUrlQuery>

#include <functional>
#include <memory>
#include <optional>

class QTcpServer;
class QTcpSocket;
class QWebSocket;
class QWebSocketServer;

namespace rzdev {

using HeaderList = QList<QPair<QByteArray, QByteArray>>;

struct HttpRequest {
    QByteArray method;
    QString path; // decoded, without the leading "/"
    QString queryText;
    QUrlQuery query;
    HeaderList headers;
    QByteArray body;
    QHostAddress peer;
    quint16 peerPort = 0;

    QByteArray header(const QByteArray& name) const;
};

struct HttpResponse {
    int status = 200;
    HeaderList headers;
    QByteArray body;

    void addHeader(const QByteArray& name, const QByteArray& value) {
        headers.append(qMakePair(name, value));
    }
    static HttpResponse empty(int status);
    static HttpResponse bytes(int status, QByteArray body, const QByteArray& contentType);
};

// Sends the answer to one request, now or later (faults delay answers). Safe to
// call after the peer went away.
class Responder {
public:
    void send(const HttpResponse& response) const;
    std::shared_ptr<std::function<void(const HttpResponse&)>> sink;
};

// A plain HTTP/1.1 server on loopback: keep-alive, Content-Length bodies up to
// a limit, one request at a time per connection, and websocket upgrades handed
// to a QWebSocketServer.
class HttpServer : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 maxBody = 8 * 1024 * 1024;

    using Handler = std::function<void(const HttpRequest&, Responder)>;
    // Returns an answer to refuse the upgrade, or nothing to accept it.
    using UpgradeHandler = std::function<std::optional<HttpResponse>(const HttpRequest&)>;

    explicit HttpServer(QObject* parent = nullptr);
    ~HttpServer() override;

    bool listen(quint16 port);
    quint16 port() const;

    void setHandler(Handler handler) { m_handler = std::move(handler); }
    void setUpgradeHandler(UpgradeHandler handler) { m_upgrade = std::move(handler); }

signals:
    void newWebSocket(QWebSocket* socket);

private:
    void accept();

    QTcpServer* m_tcp;
    QWebSocketServer* m_ws;
    Handler m_handler;
    UpgradeHandler m_upgrade;
    friend class HttpConnection;
};

QByteArray reasonPhrase(int status);

} // namespace rzdev

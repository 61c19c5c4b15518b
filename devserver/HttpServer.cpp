#include "HttpServer.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <QWebSocket>
#include <QWebSocketServer>

namespace rzdev {

namespace {

constexpr qsizetype maxHeader = 64 * 1024;

} // namespace

QByteArray HttpRequest::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

HttpResponse HttpResponse::empty(int status) {
    HttpResponse response;
    response.status = status;
    return response;
}

HttpResponse HttpResponse::bytes(int status, QByteArray body, const QByteArray& contentType) {
    HttpResponse response;
    response.status = status;
    response.body = std::move(body);
    response.addHeader("Content-Type", contentType);
    return response;
}

void Responder::send(const HttpResponse& response) const {
    if (sink && *sink) {
        auto once = std::move(*sink);
        *sink = nullptr;
        once(response);
    }
}

QByteArray reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 302:
        return "Found";
    case 304:
        return "Not Modified";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 409:
        return "Conflict";
    case 411:
        return "Length Required";
    case 413:
        return "Payload Too Large";
    case 415:
        return "Unsupported Media Type";
    case 429:
        return "Too Many Requests";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    case 504:
        return "Gateway Timeout";
    default:
        return "Status";
    }
}

// One TCP connection: reads a request, waits for its answer, then reads the next.
class HttpConnection : public QObject {
public:
    HttpConnection(HttpServer* server, QTcpSocket* socket)
        : QObject(socket), m_server(server), m_socket(socket) {
        connect(socket, &QTcpSocket::readyRead, this, &HttpConnection::readMore);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }

private:
    enum class Stage { Header, Body, Answering, Draining, Closing };

    void readMore() {
        if (m_stage == Stage::Draining) {
            // The answer to a body that is too large is out; the rest of the
            // body is read and dropped so that the client gets to read it.
            m_drain -= m_socket->readAll().size();
            if (m_drain <= 0) {
                m_stage = Stage::Closing;
                m_socket->disconnectFromHost();
            }
            return;
        }
        if (m_stage == Stage::Header && m_buffer.isEmpty() && !m_socket->isTransactionStarted()) {
            // Kept so that an upgrade request can be handed over unread.
            m_socket->startTransaction();
        }
        m_buffer += m_socket->readAll();
        process();
    }

    void process() {
        while (true) {
            if (m_stage == Stage::Header) {
                const auto end = m_buffer.indexOf("\r\n\r\n");
                if (end < 0) {
                    if (m_buffer.size() > maxHeader) {
                        fail(431, "request header too large");
                    }
                    return;
                }
                if (!parseHeader(m_buffer.left(end))) {
                    fail(400, "malformed request");
                    return;
                }
                m_buffer.remove(0, end + 4);
                if (isUpgrade()) {
                    upgrade();
                    return;
                }
                if (m_socket->isTransactionStarted()) {
                    m_socket->commitTransaction();
                }
                if (!m_request.header("Transfer-Encoding").isEmpty()) {
                    fail(411, "chunked bodies are not accepted; send Content-Length");
                    return;
                }
                bool ok = true;
                const auto lengthText = m_request.header("Content-Length").trimmed();
                m_length = lengthText.isEmpty() ? 0 : lengthText.toLongLong(&ok);
                if (!ok || m_length < 0) {
                    fail(400, "bad Content-Length");
                    return;
                }
                if (m_length > HttpServer::maxBody) {
                    m_drain = m_length - m_buffer.size();
                    fail(413, "body larger than 8 MiB");
                    return;
                }
                m_stage = Stage::Body;
            }
            if (m_stage == Stage::Body) {
                if (m_buffer.size() < m_length) {
                    return;
                }
                m_request.body = m_buffer.left(m_length);
                m_buffer.remove(0, m_length);
                m_stage = Stage::Answering;
                dispatch();
            }
            if (m_stage != Stage::Header) {
                return;
            }
            if (m_buffer.isEmpty()) {
                return;
            }
        }
    }

    bool parseHeader(const QByteArray& text) {
        m_request = HttpRequest{};
        const auto lines = text.split('\n');
        const auto requestLine = lines.value(0).trimmed().split(' ');
        if (requestLine.size() != 3 || !requestLine[2].startsWith("HTTP/1.")) {
            return false;
        }
        m_request.method = requestLine[0];
        const QByteArray target = requestLine[1];
        const auto question = target.indexOf('?');
        const QByteArray rawPath = question < 0 ? target : target.left(question);
        const QByteArray rawQuery = question < 0 ? QByteArray() : target.mid(question + 1);
        if (!rawPath.startsWith('/')) {
            return false;
        }
        m_request.path = QUrl::fromPercentEncoding(rawPath.mid(1));
        m_request.queryText = QString::fromUtf8(rawQuery);
        m_request.query = QUrlQuery(m_request.queryText);
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const auto line = lines[i].trimmed();
            if (line.isEmpty()) {
                continue;
            }
            const auto colon = line.indexOf(':');
            if (colon <= 0) {
                return false;
            }
            m_request.headers.append(
                qMakePair(line.left(colon).trimmed(), line.mid(colon + 1).trimmed()));
        }
        m_request.peer = m_socket->peerAddress();
        m_request.peerPort = m_socket->peerPort();
        m_keepAlive =
            requestLine[2] == "HTTP/1.1" && m_request.header("Connection").toLower() != "close";
        return true;
    }

    bool isUpgrade() const {
        return m_request.method == "GET" &&
               m_request.header("Upgrade").compare("websocket", Qt::CaseInsensitive) == 0;
    }

    void upgrade() {
        std::optional<HttpResponse> refusal;
        if (m_server->m_upgrade) {
            refusal = m_server->m_upgrade(m_request);
        } else {
            refusal = HttpResponse::bytes(404, "no websocket here\n", "text/plain");
        }
        if (refusal) {
            if (m_socket->isTransactionStarted()) {
                m_socket->commitTransaction();
            }
            m_keepAlive = false;
            m_stage = Stage::Answering;
            write(*refusal);
            return;
        }
        // The websocket server reads the handshake again from the start.
        m_socket->disconnect();
        m_socket->rollbackTransaction();
        m_stage = Stage::Closing;
        m_socket->setParent(nullptr);
        m_server->m_ws->handleConnection(m_socket);
        emit m_socket->readyRead();
        deleteLater();
    }

    void dispatch() {
        QPointer<HttpConnection> self(this);
        Responder responder;
        responder.sink = std::make_shared<std::function<void(const HttpResponse&)>>(
            [self](const HttpResponse& response) {
                if (self) {
                    self->write(response);
                }
            });
        if (m_server->m_handler) {
            m_server->m_handler(m_request, responder);
        } else {
            responder.send(HttpResponse::empty(404));
        }
    }

    void write(const HttpResponse& response) {
        if (m_stage != Stage::Answering) {
            return;
        }
        QByteArray out = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                         reasonPhrase(response.status) + "\r\n";
        bool hasLength = false;
        for (const auto& [key, value] : response.headers) {
            hasLength = hasLength || key.compare("Content-Length", Qt::CaseInsensitive) == 0;
            out += key + ": " + value + "\r\n";
        }
        if (!hasLength) {
            out += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
        }
        out += m_keepAlive ? "Connection: keep-alive\r\n" : "Connection: close\r\n";
        out += "\r\n";
        if (m_request.method != "HEAD") {
            out += response.body;
        }
        m_socket->write(out);
        if (!m_keepAlive) {
            if (m_drain > 0 && m_drain <= 8 * HttpServer::maxBody) {
                m_stage = Stage::Draining;
                return;
            }
            m_stage = Stage::Closing;
            m_socket->disconnectFromHost();
            return;
        }
        m_stage = Stage::Header;
        if (!m_buffer.isEmpty()) {
            QMetaObject::invokeMethod(
                this, [this] { process(); }, Qt::QueuedConnection);
        }
    }

    void fail(int status, const QByteArray& message) {
        if (m_socket->isTransactionStarted()) {
            m_socket->commitTransaction();
        }
        m_keepAlive = false;
        m_stage = Stage::Answering;
        m_buffer.clear();
        write(HttpResponse::bytes(status,
                                  "{\"error\":\"bad_request\",\"message\":\"" + message + "\"}",
                                  "application/json"));
    }

    HttpServer* m_server;
    QTcpSocket* m_socket;
    QByteArray m_buffer;
    Stage m_stage = Stage::Header;
    HttpRequest m_request;
    qint64 m_length = 0;
    qint64 m_drain = 0;
    bool m_keepAlive = true;
};

HttpServer::HttpServer(QObject* parent)
    : QObject(parent), m_tcp(new QTcpServer(this)),
      m_ws(new QWebSocketServer(QStringLiteral("rz-devserver"), QWebSocketServer::NonSecureMode,
                                this)) {
    connect(m_tcp, &QTcpServer::newConnection, this, &HttpServer::accept);
    connect(m_ws, &QWebSocketServer::newConnection, this, [this] {
        while (auto* socket = m_ws->nextPendingConnection()) {
            emit newWebSocket(socket);
        }
    });
}

HttpServer::~HttpServer() = default;

bool HttpServer::listen(quint16 port) {
    return m_tcp->listen(QHostAddress::LocalHost, port);
}

quint16 HttpServer::port() const {
    return m_tcp->serverPort();
}

void HttpServer::accept() {
    while (auto* socket = m_tcp->nextPendingConnection()) {
        new HttpConnection(this, socket);
    }
}

} // namespace rzdev

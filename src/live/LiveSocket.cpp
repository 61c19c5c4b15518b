#include "live/LiveSocket.h"

#include <QMetaObject>

struct LiveSocket::Wait {
    LiveSocket* socket;
    bool forOpen;
    // Into the waiting frame: GCC 12 destroys a member of an aggregate
    // awaiter once too often when the awaiter is a temporary.
    const std::stop_token* stop;

    bool await_ready() const noexcept {
        return stop->stop_requested() || socket->m_failed ||
               (forOpen ? socket->m_open : !socket->m_inbox.empty());
    }
    bool await_suspend(std::coroutine_handle<> handle) {
        return socket->m_waiter.arm(handle, *stop);
    }
    void await_resume() const noexcept {}
};

std::shared_ptr<LiveSocket> LiveSocket::make() {
    return std::shared_ptr<LiveSocket>(new LiveSocket, [](LiveSocket* s) { s->deleteLater(); });
}

LiveSocket::LiveSocket() {
    // Connected before open(): a message the server sends at once is not lost.
    connect(&m_socket, &QWebSocket::textMessageReceived, this, [this](const QString& text) {
        m_inbox.push_back(text.toUtf8());
        wake();
    });
    connect(&m_socket, &QWebSocket::binaryMessageReceived, this, [this](const QByteArray& bytes) {
        m_inbox.push_back(bytes);
        wake();
    });
    connect(&m_socket, &QWebSocket::connected, this, [this] {
        m_open = true;
        wake();
    });
    connect(&m_socket, &QWebSocket::disconnected, this, [this] {
        if (!m_cancelled && m_open) {
            m_closeCode = int(m_socket.closeCode());
        }
        fail(m_open ? QStringLiteral("the connection was closed")
                    : (m_socket.errorString().isEmpty() ? QStringLiteral("the handshake failed")
                                                        : m_socket.errorString()));
    });
    connect(&m_socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
            [this](QAbstractSocket::SocketError) { fail(m_socket.errorString()); });
}

LiveSocket::~LiveSocket() {
    m_socket.disconnect(this);
    m_socket.abort();
}

void LiveSocket::wake() {
    // Resumed from the event loop, never from inside the socket's own signal.
    m_waiter.resumeLater(this);
}

void LiveSocket::fail(const QString& why) {
    if (m_failed) {
        return;
    }
    m_failed = true;
    m_failure = why;
    wake();
}

QCoro::Task<> LiveSocket::open(QNetworkRequest request, std::stop_token stop) {
    m_socket.open(request);
    co_await Wait{this, true, &stop};
    if (m_failed) {
        throw SocketError(m_failure.toStdString());
    }
    if (!m_open) {
        throw SocketError("stopped");
    }
}

QCoro::Task<> LiveSocket::send(QString text) {
    if (!isOpen() || m_socket.state() != QAbstractSocket::ConnectedState) {
        throw SocketError("the socket is not open");
    }
    const qint64 sent = m_socket.sendTextMessage(text);
    if (sent <= 0 && !text.isEmpty()) {
        throw SocketError("the message could not be sent");
    }
    co_return;
}

QCoro::Task<QByteArray> LiveSocket::receive(std::stop_token stop) {
    co_await Wait{this, false, &stop};
    if (!m_inbox.empty()) {
        QByteArray bytes = std::move(m_inbox.front());
        m_inbox.pop_front();
        co_return bytes;
    }
    throw SocketError(m_failed ? m_failure.toStdString() : std::string("stopped"));
}

void LiveSocket::cancel() {
    if (m_cancelled) {
        return;
    }
    m_cancelled = true;
    if (m_closeCode == 0) {
        m_closeCode = QWebSocketProtocol::CloseCodeGoingAway;
    }
    if (m_socket.state() == QAbstractSocket::ConnectedState) {
        m_socket.close(QWebSocketProtocol::CloseCodeGoingAway);
    } else {
        m_socket.abort();
    }
    // Messages not yet handled are dropped with the socket.
    m_inbox.clear();
    fail(QStringLiteral("cancelled"));
}

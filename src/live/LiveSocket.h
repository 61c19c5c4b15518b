#pragma once

#include <QByteArray>
#include <QNetworkRequest>
#include <QObject>
#include <QString>
#include <QWebSocket>

#include <QCoro/QCoroTask>

#include "platform/Resumption.h"

#include <coroutine>
#include <deque>
#include <memory>
#include <stdexcept>
#include <stop_token>

// One websocket of the live connection, awaited from coroutines: open, send
// text, receive the next message. Messages that arrive while nobody waits are
// queued in order. Once the socket has failed or been cancelled every wait
// fails with SocketError; so does a wait whose stop token is stopped, at once,
// inside the stop request.
class LiveSocket : public QObject {
    Q_OBJECT
public:
    class SocketError : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // Made with deleteLater as its deleter, since a socket may be let go of
    // from inside one of its own signals.
    static std::shared_ptr<LiveSocket> make();
    ~LiveSocket() override;

    // Starts the handshake and waits until it is done or has failed.
    QCoro::Task<> open(QNetworkRequest request, std::stop_token stop = {});
    // Sends one text message; fails when the socket is not open.
    QCoro::Task<> send(QString text);
    // The next message's bytes, text or binary alike.
    QCoro::Task<QByteArray> receive(std::stop_token stop = {});
    // Closes with 1001 (going away) and no reason, or drops a handshake in progress.
    void cancel();

    // The close code the peer sent, or the one this side closed with; 0 while there is none.
    int closeCode() const { return m_closeCode; }
    bool isOpen() const { return m_open && !m_failed; }
    QWebSocket& socket() { return m_socket; }

private:
    LiveSocket();

    struct Wait;
    void fail(const QString& why);
    void wake();

    QWebSocket m_socket;
    std::deque<QByteArray> m_inbox;
    Resumption m_waiter;
    bool m_open = false;
    bool m_failed = false;
    bool m_cancelled = false;
    QString m_failure;
    int m_closeCode = 0;
};

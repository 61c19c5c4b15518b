#pragma once

#include "Model.h"

#include <QByteArray>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>

namespace rzdev {

// The control connection of one baresip process (ctrl_tcp): commands out,
// events and answers in, both as netstrings holding JSON.
class BaresipControl : public QObject {
    Q_OBJECT
public:
    BaresipControl(QString name, quint16 port, QObject* parent = nullptr);

    // Connects, trying again until it answers or the bound passes.
    void connectWithin(int boundMs);
    bool connected() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    void command(const std::string& name, const std::string& params = {});
    QString name() const { return m_name; }
    void close() { m_socket.abort(); }

signals:
    void ready();
    void failed(const QString& why);
    void event(const rzdev::Json& event);

private:
    void read();

    QString m_name;
    quint16 m_port;
    QTcpSocket m_socket;
    QByteArray m_buffer;
    QTimer m_retry;
    qint64 m_deadlineMs = 0;
    int m_token = 0;
};

} // namespace rzdev

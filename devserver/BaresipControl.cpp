#include "BaresipControl.h"

#include <QDateTime>

namespace rzdev {

BaresipControl::BaresipControl(QString name, quint16 port, QObject* parent)
    : QObject(parent), m_name(std::move(name)), m_port(port) {
    m_retry.setSingleShot(true);
    m_retry.setInterval(20);
    connect(&m_retry, &QTimer::timeout, this,
            [this] { m_socket.connectToHost(QStringLiteral("127.0.0.1"), m_port); });
    connect(&m_socket, &QTcpSocket::connected, this, &BaresipControl::ready);
    connect(&m_socket, &QTcpSocket::readyRead, this, &BaresipControl::read);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, [this] {
        if (m_socket.state() == QAbstractSocket::ConnectedState)
            return;
        if (QDateTime::currentMSecsSinceEpoch() > m_deadlineMs) {
            emit failed(m_name + QStringLiteral(": control port does not answer"));
            return;
        }
        m_socket.abort();
        m_retry.start();
    });
}

void BaresipControl::connectWithin(int boundMs) {
    m_deadlineMs = QDateTime::currentMSecsSinceEpoch() + boundMs;
    m_socket.abort();
    m_buffer.clear();
    m_socket.connectToHost(QStringLiteral("127.0.0.1"), m_port);
}

void BaresipControl::command(const std::string& name, const std::string& params) {
    const Json json =
        Json{{"command", name}, {"params", params}, {"token", std::to_string(++m_token)}};
    const std::string text = json.dump();
    m_socket.write(QByteArray::number(qsizetype(text.size())) + ':' +
                   QByteArray::fromStdString(text) + ',');
}

void BaresipControl::read() {
    m_buffer += m_socket.readAll();
    for (;;) {
        const qsizetype colon = m_buffer.indexOf(':');
        if (colon <= 0)
            return;
        bool ok = false;
        const qsizetype length = m_buffer.left(colon).toLongLong(&ok);
        if (!ok) {
            // Out of step with the stream: start again with what comes next.
            m_buffer.clear();
            return;
        }
        if (m_buffer.size() < colon + 1 + length + 1)
            return;
        const QByteArray body = m_buffer.mid(colon + 1, length);
        m_buffer.remove(0, colon + 1 + length + 1);
        Json json = Json::parse(body.constData(), body.constData() + body.size(), nullptr, false);
        if (json.is_object())
            emit event(json);
    }
}

} // namespace rzdev

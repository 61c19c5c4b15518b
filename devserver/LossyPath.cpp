#include "LossyPath.h"

#include <QNetworkDatagram>
#include <QTimer>

namespace rzdev {

LossyPath::LossyPath(quint16 partyPort, QObject* parent) : QObject(parent), m_partyPort(partyPort) {
    m_front.bind(QHostAddress::LocalHost, 0);
    m_back.bind(QHostAddress::LocalHost, 0);
    connect(&m_front, &QUdpSocket::readyRead, this, [this] { pass(m_front, true); });
    connect(&m_back, &QUdpSocket::readyRead, this, [this] { pass(m_back, false); });
}

void LossyPath::setImpairment(double lossPercent, int jitterMs) {
    m_lossPercent = lossPercent;
    m_jitterMs = jitterMs;
}

void LossyPath::pass(QUdpSocket& from, bool towardsParty) {
    while (from.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = from.receiveDatagram();
        if (towardsParty) {
            // Whoever sends from the relay's side gets the party's answers.
            m_relayAddress = datagram.senderAddress();
            m_relayPort = quint16(datagram.senderPort());
        }
        if (m_lossPercent > 0 && m_random.generateDouble() * 100.0 < m_lossPercent) {
            ++m_dropped;
            continue;
        }
        ++m_passed;
        if (towardsParty)
            send(m_back, datagram.data(), QHostAddress::LocalHost, m_partyPort);
        else if (m_relayPort != 0)
            send(m_front, datagram.data(), m_relayAddress, m_relayPort);
    }
}

void LossyPath::send(QUdpSocket& via, const QByteArray& packet, const QHostAddress& to,
                     quint16 port) {
    if (m_jitterMs <= 0) {
        via.writeDatagram(packet, to, port);
        return;
    }
    const int delay = int(m_random.bounded(m_jitterMs + 1));
    QTimer::singleShot(delay, Qt::PreciseTimer, this,
                       [&via, packet, to, port] { via.writeDatagram(packet, to, port); });
}

} // namespace rzdev

#pragma once

#include <QHostAddress>
#include <QObject>
#include <QRandomGenerator>
#include <QUdpSocket>

namespace rzdev {

// A media path with faults put in on purpose: RTP between the relay and a
// party passes through here, and each packet, either way, is lost with the
// given chance or held back by up to the given jitter (so packets may also
// arrive out of order, as on a busy network).
class LossyPath : public QObject {
    Q_OBJECT
public:
    // Listens on a free loopback port, which the party's SDP offers instead of
    // its own; what arrives goes on to the party at `partyPort`.
    explicit LossyPath(quint16 partyPort, QObject* parent = nullptr);

    bool listening() const { return m_front.state() == QAbstractSocket::BoundState; }
    quint16 port() const { return m_front.localPort(); }

    void setImpairment(double lossPercent, int jitterMs);
    double lossPercent() const { return m_lossPercent; }
    int jitterMs() const { return m_jitterMs; }
    // Packets dropped on purpose so far, and packets passed on, both ways.
    qint64 dropped() const { return m_dropped; }
    qint64 passed() const { return m_passed; }

private:
    void pass(QUdpSocket& from, bool towardsParty);
    void send(QUdpSocket& via, const QByteArray& packet, const QHostAddress& to, quint16 port);

    QUdpSocket m_front; // faces the relay
    QUdpSocket m_back;  // faces the party
    quint16 m_partyPort;
    QHostAddress m_relayAddress;
    quint16 m_relayPort = 0;
    double m_lossPercent = 0;
    int m_jitterMs = 0;
    qint64 m_dropped = 0;
    qint64 m_passed = 0;
    QRandomGenerator m_random{20261122};
};

} // namespace rzdev

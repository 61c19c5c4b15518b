#pragma once

#include "session/CallQuality.h"

#include <QObject>
#include <QString>
#include <QTimer>

class Live;
class Phone;

// What the call window's signal bars and statistics panel show of the call
// in front, worked out again once a second while there is a call: the level
// and its words, the server's worst MOS beside the one estimated here, and
// the lines of the table.
class CallStatistics : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString level READ levelName NOTIFY updated)
    Q_PROPERTY(QString levelText READ levelText NOTIFY updated)
    Q_PROPERTY(QString serverMos READ serverMos NOTIFY updated)
    Q_PROPERTY(QString localMos READ localMos NOTIFY updated)
    Q_PROPERTY(bool hasStats READ hasStats NOTIFY updated)
    Q_PROPERTY(QString incomingLoss READ incomingLoss NOTIFY updated)
    Q_PROPERTY(QString incomingJitter READ incomingJitter NOTIFY updated)
    Q_PROPERTY(QString outgoingLoss READ outgoingLoss NOTIFY updated)
    Q_PROPERTY(QString outgoingJitter READ outgoingJitter NOTIFY updated)
    Q_PROPERTY(QString roundTrip READ roundTrip NOTIFY updated)
    Q_PROPERTY(QString packets READ packets NOTIFY updated)
    Q_PROPERTY(QString warning READ warning NOTIFY updated)
public:
    CallStatistics(Phone& phone, Live& live, QObject* parent = nullptr);

    std::optional<CallQuality::Level> level() const { return m_level; }
    QString levelName() const { return CallQuality::levelName(m_level); }
    QString levelText() const { return CallQuality::levelText(m_level); }
    QString serverMos() const { return m_serverMos; }
    QString localMos() const { return m_localMos; }
    bool hasStats() const { return m_hasStats; }
    QString incomingLoss() const { return m_incomingLoss; }
    QString incomingJitter() const { return m_incomingJitter; }
    QString outgoingLoss() const { return m_outgoingLoss; }
    QString outgoingJitter() const { return m_outgoingJitter; }
    QString roundTrip() const { return m_roundTrip; }
    QString packets() const { return m_packets; }
    QString warning() const { return m_warning; }

public slots:
    // Reads the figures anew; the timer calls it once a second during a call.
    void refresh();

signals:
    void updated();

private:
    void follow();

    Phone& m_phone;
    Live& m_live;
    QTimer m_timer;
    std::optional<CallQuality::Level> m_level;
    QString m_serverMos;
    QString m_localMos;
    bool m_hasStats = false;
    QString m_incomingLoss;
    QString m_incomingJitter;
    QString m_outgoingLoss;
    QString m_outgoingJitter;
    QString m_roundTrip;
    QString m_packets;
    QString m_warning;
};

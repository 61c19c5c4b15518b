#pragma once

#include <QDBusConnection>
#include <QNetworkInformation>
#include <QObject>

// Moments when an open socket is likely dead without knowing it: the machine
// has just resumed from suspend (logind's PrepareForSleep(false)), or the
// network has come back. Whoever keeps a long-lived connection reconnects on
// these at once instead of waiting out a back-off.
class SystemWakeups : public QObject {
    Q_OBJECT
public:
    explicit SystemWakeups(QObject* parent = nullptr);

    // Listens to logind on the given bus (the system bus in the app). False when it cannot.
    bool watchSleep(const QDBusConnection& bus);
    // Listens to the platform's reachability, where Qt has a backend for it.
    bool watchNetwork();

public slots:
    // logind's signal: true before sleeping, false after waking.
    void prepareForSleep(bool sleeping);
    void reachabilityChanged(QNetworkInformation::Reachability reachability);

signals:
    void resumed();
    void networkUp();

private:
    QNetworkInformation::Reachability m_reachability = QNetworkInformation::Reachability::Unknown;
};

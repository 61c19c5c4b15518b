#include "shell/SystemWakeups.h"

#include "platform/Log.h"

SystemWakeups::SystemWakeups(QObject* parent) : QObject(parent) {}

bool SystemWakeups::watchSleep(const QDBusConnection& bus) {
    QDBusConnection connection(bus);
    return connection.connect(QStringLiteral("org.freedesktop.login1"),
                              QStringLiteral("/org/freedesktop/login1"),
                              QStringLiteral("org.freedesktop.login1.Manager"),
                              QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
}

bool SystemWakeups::watchNetwork() {
    if (!QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) {
        Log::info(Log::app, QStringLiteral("No network reachability on this system"));
        return false;
    }
    auto* info = QNetworkInformation::instance();
    m_reachability = info->reachability();
    connect(info, &QNetworkInformation::reachabilityChanged, this,
            &SystemWakeups::reachabilityChanged);
    return true;
}

void SystemWakeups::prepareForSleep(bool sleeping) {
    if (!sleeping) {
        Log::info(Log::app, QStringLiteral("Resumed from suspend"));
        emit resumed();
    }
}

void SystemWakeups::reachabilityChanged(QNetworkInformation::Reachability reachability) {
    const bool wasOnline = m_reachability == QNetworkInformation::Reachability::Online;
    m_reachability = reachability;
    if (!wasOnline && reachability == QNetworkInformation::Reachability::Online) {
        Log::info(Log::app, QStringLiteral("The network is back"));
        emit networkUp();
    }
}

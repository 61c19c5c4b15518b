#include "shell/MissedCallNotifications.h"

#include "platform/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");

constexpr uchar normal = 1;

} // namespace

MissedCallNotifications::MissedCallNotifications(const QDBusConnection& bus, QObject* parent)
    : QObject(parent), m_bus(bus) {
    m_bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this,
                  SLOT(onActionInvoked(uint, QString)));
    m_bus.connect(service, path, interface, QStringLiteral("ActivationToken"), this,
                  SLOT(onActivationToken(uint, QString)));
    m_bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                  SLOT(onClosed(uint, uint)));
}

QString MissedCallNotifications::body(const QString& number, const QString& name) {
    if (name.isEmpty() || name == number) {
        return number;
    }
    return name + u'\n' + number;
}

void MissedCallNotifications::post(const QString& number, const QString& name) {
    const QStringList actions{QString::fromLatin1(defaultAction), tr("Show"),
                              QString::fromLatin1(callBackAction), tr("Call back")};
    const QVariantMap hints{
        {QStringLiteral("urgency"), QVariant::fromValue(normal)},
        {QStringLiteral("category"), QString::fromLatin1(category)},
        {QStringLiteral("desktop-entry"), QGuiApplication::desktopFileName()},
    };
    QDBusMessage message =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    message << QGuiApplication::applicationDisplayName() << uint(0)
            << QStringLiteral("net.velnor.rz") << tr("Missed call") << body(number, name) << actions
            << hints << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, number](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<uint> reply = *call;
                if (reply.isError()) {
                    Log::error(Log::call,
                               QStringLiteral("The missed-call notification could not be shown: %1")
                                   .arg(reply.error().message()));
                    return;
                }
                m_shown.insert(reply.value(), number);
                Log::info(Log::call, QStringLiteral("Missed-call notification shown"));
                emit posted(reply.value());
            });
}

void MissedCallNotifications::onActionInvoked(uint id, const QString& action) {
    if (!m_shown.contains(id)) {
        return; // another notification's
    }
    const QByteArray token = m_tokens.take(id);
    if (action == QLatin1String(callBackAction)) {
        emit callBack(m_shown.value(id), token);
    } else if (action == QLatin1String(defaultAction)) {
        emit showRequested(token);
    }
}

void MissedCallNotifications::onActivationToken(uint id, const QString& token) {
    if (m_shown.contains(id)) {
        m_tokens.insert(id, token.toUtf8());
    }
}

void MissedCallNotifications::onClosed(uint id, uint) {
    m_shown.remove(id);
    m_tokens.remove(id);
}

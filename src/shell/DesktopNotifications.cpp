#include "shell/DesktopNotifications.h"

#include "platform/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");

// The urgency hint's "critical".
constexpr uchar critical = 2;

} // namespace

DesktopNotifications::DesktopNotifications(const QDBusConnection& bus, QObject* parent)
    : CallNotifier(parent), m_bus(bus) {
    m_bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this,
                  SLOT(onActionInvoked(uint, QString)));
    m_bus.connect(service, path, interface, QStringLiteral("ActivationToken"), this,
                  SLOT(onActivationToken(uint, QString)));
    m_bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                  SLOT(onClosed(uint, uint)));
}

void DesktopNotifications::post(const QString& key, const QString& title, const QString& body) {
    uint replaces = 0;
    for (auto it = m_shown.constBegin(); it != m_shown.constEnd(); ++it) {
        if (it.value() == key) {
            replaces = it.key();
        }
    }
    const QStringList actions{QString::fromLatin1(defaultAction), tr("Show"),
                              QString::fromLatin1(answerAction),  tr("Answer"),
                              QString::fromLatin1(declineAction), tr("Decline")};
    const QVariantMap hints{
        {QStringLiteral("urgency"), QVariant::fromValue(critical)},
        {QStringLiteral("category"), QString::fromLatin1(category)},
        {QStringLiteral("desktop-entry"), QGuiApplication::desktopFileName()},
        // The ring is ours and repeats; the server must not add a sound.
        {QStringLiteral("suppress-sound"), true},
    };
    QDBusMessage message =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    message << QGuiApplication::applicationDisplayName() << replaces
            << QStringLiteral("net.velnor.rz") << title << body << actions << hints
            << int(0); // never expires: it goes when the call stops ringing
    m_pending.insert(key, false);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    Log::info(Log::call, QStringLiteral("Incoming-call notification posted"));
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, key](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<uint> reply = *call;
                const bool withdrawn = m_pending.take(key);
                if (reply.isError()) {
                    Log::error(Log::call, QStringLiteral("The incoming-call notification "
                                                         "could not be shown: %1")
                                              .arg(reply.error().message()));
                    return;
                }
                const uint id = reply.value();
                m_shown.insert(id, key);
                Log::info(Log::call, QStringLiteral("Incoming-call notification shown"));
                emit posted(id);
                if (withdrawn) {
                    withdrawAll();
                }
            });
}

void DesktopNotifications::withdrawAll() {
    for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
        it.value() = true;
    }
    for (auto it = m_shown.constBegin(); it != m_shown.constEnd(); ++it) {
        m_bus.asyncCall(QDBusMessage::createMethodCall(service, path, interface,
                                                       QStringLiteral("CloseNotification"))
                        << it.key());
    }
    m_shown.clear();
    m_tokens.clear();
}

void DesktopNotifications::onActionInvoked(uint id, const QString& action) {
    if (!m_shown.contains(id)) {
        return; // another app's notification
    }
    emit actionInvoked(action, m_tokens.take(id));
}

void DesktopNotifications::onActivationToken(uint id, const QString& token) {
    // Comes just before ActionInvoked for the same notification.
    if (m_shown.contains(id)) {
        m_tokens.insert(id, token.toUtf8());
    }
}

void DesktopNotifications::onClosed(uint id, uint) {
    m_shown.remove(id);
    m_tokens.remove(id);
}

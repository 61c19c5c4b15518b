#include "shell/Automation.h"

#include "platform/Log.h"
#include "shell/Application.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QUrl>

Automation::Automation(Application& app, QObject* parent) : QObject(parent), m_app(app) {
    Session& session = m_app.session();
    connect(&session, &Session::stateChanged, this, [this] { changed("State", state()); });
    connect(&session, &Session::serverChanged, this, [this] { changed("Server", server()); });
    connect(&session, &Session::meChanged, this, [this] { changed("UserName", userName()); });
    connect(&session, &Session::errorChanged, this, [this] { changed("Error", error()); });
    Live& live = session.live();
    connect(&live, &Live::connectedChanged, this,
            [this] { changed("LiveConnected", liveConnected()); });
    connect(&live, &Live::lastDecodeErrorChanged, this,
            [this] { changed("LiveDecodeError", liveDecodeError()); });
}

bool Automation::publish() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        Log::error(Log::app, QStringLiteral("No session bus (%1); the app runs without its "
                                            "D-Bus interface")
                                 .arg(bus.lastError().message()));
        return false;
    }
    if (!bus.registerObject(QString::fromLatin1(objectPath), this,
                            QDBusConnection::ExportAllSlots |
                                QDBusConnection::ExportAllProperties)) {
        Log::error(Log::app, QStringLiteral("Cannot export %1 on the session bus: %2")
                                 .arg(QString::fromLatin1(objectPath), bus.lastError().message()));
        return false;
    }
    if (!bus.registerService(QString::fromLatin1(serviceName))) {
        Log::error(Log::app, QStringLiteral("Cannot own %1 on the session bus: %2")
                                 .arg(QString::fromLatin1(serviceName), bus.lastError().message()));
        bus.unregisterObject(QString::fromLatin1(objectPath));
        return false;
    }
    m_published = true;
    return true;
}

QString Automation::state() const {
    return m_app.session().stateName();
}

QString Automation::server() const {
    return m_app.session().server().toString();
}

QString Automation::userName() const {
    return m_app.session().userName();
}

QString Automation::error() const {
    return m_app.session().errorText();
}

bool Automation::liveConnected() const {
    return m_app.session().live().connected();
}

QString Automation::liveDecodeError() const {
    return m_app.session().live().lastDecodeErrorText();
}

void Automation::SignIn() {
    m_app.session().signIn();
}

void Automation::CancelSignIn() {
    m_app.session().cancelSignIn();
}

void Automation::HandleUrl(const QString& url) {
    m_app.raiseMainWindow();
    m_app.handleUrl(QUrl(url));
}

void Automation::changed(const char* property, const QVariant& value) {
    if (!m_published) {
        return;
    }
    QDBusMessage signal = QDBusMessage::createSignal(
        QString::fromLatin1(objectPath), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("PropertiesChanged"));
    signal << QString::fromLatin1(interfaceName)
           << QVariantMap{{QString::fromLatin1(property), value}} << QStringList();
    QDBusConnection::sessionBus().send(signal);
}

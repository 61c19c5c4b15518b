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
    Phone& phone = m_app.phone();
    connect(&phone, &Phone::registrationUpdated, this,
            [this] { changed("Registration", registration()); });
    connect(&phone, &Phone::activeCallChanged, this,
            [this] { changed("ActiveCall", activeCall()); });
    connect(&phone, &Phone::lastErrorChanged, this, [this] { changed("LastError", lastError()); });
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

QString Automation::registration() const {
    return m_app.phone().registrationText();
}

QVariantMap Automation::activeCall() const {
    return m_app.phone().activeCallMap();
}

QString Automation::lastError() const {
    return m_app.phone().lastErrorText();
}

void Automation::Dial(const QString& number) {
    m_app.phone().dialOrQueue(number);
}

void Automation::Answer() {
    m_app.phone().answer();
}

void Automation::HangUp() {
    m_app.phone().hangUpActive();
}

void Automation::SetMuted(bool muted) {
    m_app.phone().setActiveMuted(muted);
}

bool Automation::SendDigits(const QString& digits) {
    return m_app.phone().sendActiveDigits(digits);
}

// --- two calls ---
void Automation::ToggleHold() {
    m_app.phone().toggleHold();
}

void Automation::Swap() {
    m_app.phone().swap();
}

void Automation::Transfer(const QString& target) {
    m_app.phone().transfer(target);
}

void Automation::Merge() {
    m_app.session().mergeCallsFromScreen();
}

void Automation::SignIn() {
    m_app.session().signIn();
}

void Automation::CancelSignIn() {
    m_app.session().cancelSignIn();
}

void Automation::HandleUrl(const QString& url) {
    m_app.raiseMainWindow();
    m_app.handleLink(url);
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

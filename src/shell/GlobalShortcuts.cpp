#include "shell/GlobalShortcuts.h"

#include "platform/Log.h"
#include "telephony/Phone.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QUuid>

namespace {

// One shortcut as the portal takes it: its id and its properties.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& out, const PortalShortcut& shortcut) {
    out.beginStructure();
    out << shortcut.id << shortcut.properties;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, PortalShortcut& shortcut) {
    in.beginStructure();
    in >> shortcut.id >> shortcut.properties;
    in.endStructure();
    return in;
}

QString freshToken() {
    return QStringLiteral("velnor") + QUuid::createUuid().toString(QUuid::Id128);
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

GlobalShortcuts::GlobalShortcuts(Phone& phone, const QDBusConnection& session, QObject* parent)
    : QObject(parent), m_phone(phone), m_bus(session) {
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    connect(this, &GlobalShortcuts::activated, this, &GlobalShortcuts::act);
}

QString GlobalShortcuts::requestPath(const QString& token) const {
    // The portal names a request by its caller's unique name, without the
    // colon and with underscores for dots, and the caller's token.
    QString sender = m_bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
}

void GlobalShortcuts::start() {
    const QString token = freshToken();
    m_bus.connect(QString::fromLatin1(portalService), requestPath(token),
                  QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"),
                  this, SLOT(onSessionCreated(uint, QVariantMap)));
    m_bus.connect(QString::fromLatin1(portalService), QString::fromLatin1(portalPath),
                  QString::fromLatin1(portalInterface), QStringLiteral("Activated"), this,
                  SLOT(onActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    QDBusMessage create = QDBusMessage::createMethodCall(
        QString::fromLatin1(portalService), QString::fromLatin1(portalPath),
        QString::fromLatin1(portalInterface), QStringLiteral("CreateSession"));
    create << QVariantMap{{QStringLiteral("handle_token"), token},
                          {QStringLiteral("session_handle_token"), freshToken()}};
    auto* call = new QDBusPendingCallWatcher(m_bus.asyncCall(create, 5000), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        if (done->isError()) {
            Log::info(Log::app, QStringLiteral("This desktop offers no global shortcuts (%1)")
                                    .arg(done->error().message()));
            emit settled();
        }
    });
}

void GlobalShortcuts::onSessionCreated(uint response, const QVariantMap& results) {
    if (response != 0) {
        Log::info(Log::app, QStringLiteral("The desktop made no session for global shortcuts"));
        emit settled();
        return;
    }
    const QVariant handle = results.value(QStringLiteral("session_handle"));
    m_session = handle.canConvert<QDBusObjectPath>() && handle.userType() != QMetaType::QString
                    ? handle.value<QDBusObjectPath>().path()
                    : handle.toString();
    if (m_session.isEmpty()) {
        emit settled();
        return;
    }
    bind();
}

void GlobalShortcuts::bind() {
    const QString token = freshToken();
    m_bus.connect(QString::fromLatin1(portalService), requestPath(token),
                  QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"),
                  this, SLOT(onBound(uint, QVariantMap)));
    const auto shortcut = [](const QString& id, const QString& description,
                             const QString& trigger) {
        return PortalShortcut{id,
                              {{QStringLiteral("description"), description},
                               {QStringLiteral("preferred_trigger"), trigger}}};
    };
    const QList<PortalShortcut> shortcuts = {
        shortcut(QStringLiteral("answer"), tr("Answer the ringing call"),
                 QStringLiteral("CTRL+ALT+A")),
        shortcut(QStringLiteral("hang-up"), tr("Hang up"), QStringLiteral("CTRL+ALT+H")),
        shortcut(QStringLiteral("mute"), tr("Mute or unmute the call"),
                 QStringLiteral("CTRL+ALT+M"))};
    QDBusMessage bindCall = QDBusMessage::createMethodCall(
        QString::fromLatin1(portalService), QString::fromLatin1(portalPath),
        QString::fromLatin1(portalInterface), QStringLiteral("BindShortcuts"));
    bindCall << QVariant::fromValue(QDBusObjectPath(m_session)) << QVariant::fromValue(shortcuts)
             << QString() << QVariantMap{{QStringLiteral("handle_token"), token}};
    auto* call = new QDBusPendingCallWatcher(m_bus.asyncCall(bindCall, 5000), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        if (done->isError()) {
            Log::error(Log::app, QStringLiteral("The global shortcuts were not bound: %1")
                                     .arg(done->error().message()));
            emit settled();
        }
    });
}

void GlobalShortcuts::onBound(uint response, const QVariantMap&) {
    if (response != 0) {
        Log::info(Log::app, QStringLiteral("The global shortcuts were declined"));
        emit settled();
        return;
    }
    if (!m_bound) {
        m_bound = true;
        Log::info(Log::app, QStringLiteral("Global shortcuts bound"));
        emit availableChanged();
    }
    emit settled();
}

void GlobalShortcuts::onActivated(const QDBusObjectPath& session, const QString& id, qulonglong,
                                  const QVariantMap&) {
    if (session.path() == m_session) {
        emit activated(id);
    }
}

void GlobalShortcuts::act(const QString& id) {
    const auto& call = m_phone.activeCall();
    if (!call) {
        return;
    }
    const bool ringing = call->status == Phone::ActiveCall::Status::incoming;
    if (id == u"answer" && ringing) {
        m_phone.answer();
    } else if (id == u"hang-up") {
        m_phone.hangUpActive();
    } else if (id == u"mute" && !ringing) {
        m_phone.setActiveMuted(!call->muted);
    }
}

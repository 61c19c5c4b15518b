#include "shell/Appearance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceGroup = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");

bool paletteIsDark() {
    return QGuiApplication::palette().color(QPalette::Window).lightnessF() < 0.5;
}

// Older portals wrap the value in one more variant.
std::optional<uint> schemeFrom(QVariant value) {
    while (value.canConvert<QDBusVariant>() && value.typeId() == qMetaTypeId<QDBusVariant>()) {
        value = value.value<QDBusVariant>().variant();
    }
    bool ok = false;
    const uint scheme = value.toUInt(&ok);
    return ok ? std::optional(scheme) : std::nullopt;
}

} // namespace

Appearance::Appearance(QObject* parent) : QObject(parent) {
    qGuiApp->installEventFilter(this);
    QDBusConnection::sessionBus().connect(portalService, portalPath, settingsInterface,
                                          QStringLiteral("SettingChanged"), this,
                                          SLOT(settingChanged(QString, QString, QDBusVariant)));
    update();
    askPortal();
}

bool Appearance::isDark(std::optional<uint> colorScheme, bool paletteIsDark) {
    if (colorScheme == 1u) {
        return true;
    }
    if (colorScheme == 2u) {
        return false;
    }
    return paletteIsDark;
}

bool Appearance::eventFilter(QObject* watched, QEvent* event) {
    if (watched == qGuiApp && event->type() == QEvent::ApplicationPaletteChange) {
        update();
    }
    return QObject::eventFilter(watched, event);
}

void Appearance::settingChanged(const QString& group, const QString& key,
                                const QDBusVariant& value) {
    if (group == appearanceGroup && key == colorSchemeKey) {
        m_colorScheme = schemeFrom(value.variant());
        update();
    }
}

void Appearance::askPortal() {
    auto message = QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface,
                                                  QStringLiteral("Read"));
    message << appearanceGroup << colorSchemeKey;
    // Asked without waiting: start-up does not hang on a slow or missing portal.
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                QDBusPendingReply<QVariant> reply = *call;
                if (reply.isError()) {
                    return;
                }
                m_colorScheme = schemeFrom(reply.value());
                update();
            });
}

void Appearance::update() {
    const bool dark = isDark(m_colorScheme, paletteIsDark());
    if (dark != m_dark) {
        m_dark = dark;
        emit darkChanged();
    }
}

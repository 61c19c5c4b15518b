#include "shell/CallInhibitor.h"

#include "platform/Log.h"
#include "telephony/Phone.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>

namespace {

const QString reason = QStringLiteral("A call is in progress");

} // namespace

CallInhibitor::CallInhibitor(Phone& phone, const QDBusConnection& session,
                             const QDBusConnection& system, QObject* parent)
    : QObject(parent), m_phone(phone), m_session(session), m_system(system) {
    connect(&m_phone, &Phone::activeCallChanged, this, &CallInhibitor::update);
    update();
}

CallInhibitor::~CallInhibitor() {
    m_wanted = false;
    release();
}

void CallInhibitor::update() {
    const bool wanted = m_phone.hasActiveCall();
    if (wanted == m_wanted) {
        return;
    }
    m_wanted = wanted;
    wanted ? hold() : release();
}

void CallInhibitor::hold() {
    const QString who = QGuiApplication::applicationDisplayName();
    QDBusMessage screenSaver = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.ScreenSaver"),
        QStringLiteral("/org/freedesktop/ScreenSaver"),
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("Inhibit"));
    screenSaver << who << reason;
    auto* asked = new QDBusPendingCallWatcher(m_session.asyncCall(screenSaver), this);
    connect(asked, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        call->deleteLater();
        const QDBusPendingReply<uint> reply = *call;
        if (reply.isError()) {
            Log::info(Log::call, QStringLiteral("The screen saver cannot be held off: %1")
                                     .arg(reply.error().message()));
            return;
        }
        m_cookie = reply.value();
        if (!m_wanted) {
            release(); // the call ended while we asked
            return;
        }
        emit changed();
    });

    QDBusMessage logind = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    logind << QStringLiteral("idle") << who << reason << QStringLiteral("block");
    auto* locked = new QDBusPendingCallWatcher(m_system.asyncCall(logind), this);
    connect(locked, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *call;
                if (reply.isError()) {
                    Log::info(Log::call, QStringLiteral("Idle sleep cannot be held off: %1")
                                             .arg(reply.error().message()));
                    return;
                }
                if (!m_wanted) {
                    return; // dropping the descriptor lets it go
                }
                m_idleLock = reply.value();
                emit changed();
            });
}

void CallInhibitor::release() {
    bool any = false;
    if (m_cookie) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.ScreenSaver"),
            QStringLiteral("/org/freedesktop/ScreenSaver"),
            QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("UnInhibit"));
        message << *m_cookie;
        m_session.asyncCall(message);
        m_cookie.reset();
        any = true;
    }
    if (m_idleLock.isValid()) {
        // logind lets the inhibitor go when its descriptor closes.
        m_idleLock = QDBusUnixFileDescriptor();
        any = true;
    }
    if (any) {
        emit changed();
    }
}

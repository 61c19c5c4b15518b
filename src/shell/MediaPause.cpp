#include "shell/MediaPause.h"

#include "platform/Log.h"
#include "telephony/Phone.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace {

const QString playerPrefix = QStringLiteral("org.mpris.MediaPlayer2.");
const QString playerPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");

} // namespace

MediaPause::MediaPause(Phone& phone, const QDBusConnection& session, QObject* parent)
    : QObject(parent), m_phone(phone), m_bus(session) {
    connect(&m_phone, &Phone::activeCallChanged, this, &MediaPause::update);
    update();
}

void MediaPause::update() {
    const bool inCall = m_phone.hasActiveCall();
    if (inCall == m_inCall) {
        return;
    }
    m_inCall = inCall;
    inCall ? pausePlaying() : resumePaused();
}

void MediaPause::pausePlaying() {
    const int round = ++m_round;
    const QDBusMessage list = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ListNames"));
    auto* listed = new QDBusPendingCallWatcher(m_bus.asyncCall(list), this);
    connect(listed, &QDBusPendingCallWatcher::finished, this,
            [this, round](QDBusPendingCallWatcher* names) {
                names->deleteLater();
                const QDBusPendingReply<QStringList> reply = *names;
                if (reply.isError() || round != m_round || !m_inCall) {
                    return;
                }
                for (const QString& name : reply.value()) {
                    if (!name.startsWith(playerPrefix)) {
                        continue;
                    }
                    QDBusMessage get = QDBusMessage::createMethodCall(
                        name, playerPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                        QStringLiteral("Get"));
                    get << playerInterface << QStringLiteral("PlaybackStatus");
                    auto* asked = new QDBusPendingCallWatcher(m_bus.asyncCall(get, 2000), this);
                    connect(asked, &QDBusPendingCallWatcher::finished, this,
                            [this, round, name](QDBusPendingCallWatcher* status) {
                                status->deleteLater();
                                const QDBusPendingReply<QDBusVariant> playing = *status;
                                if (playing.isError() || round != m_round || !m_inCall ||
                                    playing.value().variant().toString() != u"Playing") {
                                    return;
                                }
                                call(name, QStringLiteral("Pause"));
                                m_paused.append(name);
                                Log::info(Log::call, QStringLiteral("Paused %1 for the call")
                                                         .arg(name.mid(playerPrefix.size())));
                                emit acted(name, true);
                            });
                }
            });
}

void MediaPause::resumePaused() {
    ++m_round;
    const QStringList players = std::exchange(m_paused, {});
    for (const QString& name : players) {
        call(name, QStringLiteral("Play"));
        Log::info(Log::call,
                  QStringLiteral("Resumed %1 after the call").arg(name.mid(playerPrefix.size())));
        emit acted(name, false);
    }
}

void MediaPause::call(const QString& player, const QString& method) {
    m_bus.asyncCall(QDBusMessage::createMethodCall(player, playerPath, playerInterface, method));
}

#pragma once

#include "shell/CallNotifier.h"

#include <QDBusConnection>
#include <QHash>
#include <QSet>

// The incoming-call notification on the freedesktop notification server of
// the session bus: critical urgency so that do-not-disturb modes still show
// it where the desktop allows, never expiring, with the actions "Answer" and
// "Decline". A server that is missing or refuses is logged once per post and
// otherwise ignored: the call window and the ring still work.
class DesktopNotifications : public CallNotifier {
    Q_OBJECT
public:
    static constexpr char category[] = "x-velnor.incoming-call";

    explicit DesktopNotifications(const QDBusConnection& bus = QDBusConnection::sessionBus(),
                                  QObject* parent = nullptr);

    void post(const QString& key, const QString& title, const QString& body) override;
    void withdrawAll() override;

    // Notifications the server has confirmed and not yet closed.
    int shownCount() const { return int(m_shown.size()); }

signals:
    // The server confirmed a post; `id` is its number for it.
    void posted(uint id);

private slots:
    void onActionInvoked(uint id, const QString& action);
    void onActivationToken(uint id, const QString& token);
    void onClosed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    // Server id → our key, for the notifications on screen.
    QHash<uint, QString> m_shown;
    // Keys whose post has not been answered yet, and whether they were
    // withdrawn meanwhile (then they close as soon as their id arrives).
    QHash<QString, bool> m_pending;
    QHash<uint, QByteArray> m_tokens;
};

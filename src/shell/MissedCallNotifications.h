#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QString>

// A missed call on the desktop's notification server: who called, with
// "Call back", at normal urgency and the server's own time-out. A server that
// is missing or refuses is logged and otherwise ignored.
class MissedCallNotifications : public QObject {
    Q_OBJECT
public:
    static constexpr char category[] = "call.unanswered";
    static constexpr char callBackAction[] = "call-back";
    static constexpr char defaultAction[] = "default";

    explicit MissedCallNotifications(const QDBusConnection& bus = QDBusConnection::sessionBus(),
                                     QObject* parent = nullptr);

    // "Missed call", then the caller's name and number (or the number alone).
    void post(const QString& number, const QString& name);

    static QString body(const QString& number, const QString& name);

signals:
    // The server confirmed a post.
    void posted(uint id);
    // "Call back" was chosen for this number.
    void callBack(const QString& number, const QByteArray& activationToken);
    // The notification itself was clicked: the list of calls is wanted.
    void showRequested(const QByteArray& activationToken);

private slots:
    void onActionInvoked(uint id, const QString& action);
    void onActivationToken(uint id, const QString& token);
    void onClosed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    // Server id → the number it offers to call back.
    QHash<uint, QString> m_shown;
    QHash<uint, QByteArray> m_tokens;
};

#pragma once

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>
#include <QVariantMap>

class Phone;

// Answer, hang up and mute from anywhere, through the desktop's global
// shortcuts portal (org.freedesktop.portal.GlobalShortcuts) where it offers
// one: a session is made, the three shortcuts are bound (the desktop lets the
// person choose the keys), and each activation acts on the phone. Where the
// desktop has no such portal, available() stays false and the settings say so.
class GlobalShortcuts : public QObject {
    Q_OBJECT
public:
    static constexpr char portalService[] = "org.freedesktop.portal.Desktop";
    static constexpr char portalPath[] = "/org/freedesktop/portal/desktop";
    static constexpr char portalInterface[] = "org.freedesktop.portal.GlobalShortcuts";

    GlobalShortcuts(Phone& phone, const QDBusConnection& session, QObject* parent = nullptr);

    // Asks the portal for a session and binds the shortcuts; the answers come later.
    void start();
    // Whether the shortcuts are bound.
    bool available() const { return m_bound; }

signals:
    void availableChanged();
    // The desktop has answered: the shortcuts are bound, or there will be none.
    void settled();
    // A shortcut the desktop reported pressed, by its id ("answer", "hang-up", "mute").
    void activated(const QString& id);

private slots:
    void onSessionCreated(uint response, const QVariantMap& results);
    void onBound(uint response, const QVariantMap& results);
    void onActivated(const QDBusObjectPath& session, const QString& id, qulonglong timestamp,
                     const QVariantMap& options);

private:
    // Where the portal will put the answer to a request made with this token.
    QString requestPath(const QString& token) const;
    void bind();
    void act(const QString& id);

    Phone& m_phone;
    QDBusConnection m_bus;
    QString m_session;
    bool m_bound = false;
};

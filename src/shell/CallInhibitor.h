#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>

#include <optional>

class Phone;

// Keeps the screen on and the machine awake while a call rings or runs: the
// desktop's screen saver is inhibited (org.freedesktop.ScreenSaver) and logind
// holds an "idle" inhibitor. Both are let go when the last call ends. A
// desktop without either service simply goes without.
class CallInhibitor : public QObject {
    Q_OBJECT
public:
    CallInhibitor(Phone& phone, const QDBusConnection& session, const QDBusConnection& system,
                  QObject* parent = nullptr);
    ~CallInhibitor() override;

    // Whether the screen saver has granted an inhibition (its cookie is held).
    bool screenSaverInhibited() const { return m_cookie.has_value(); }
    // Whether logind's idle inhibitor is held.
    bool idleInhibited() const { return m_idleLock.isValid(); }

signals:
    // Either inhibition was granted or let go.
    void changed();

private:
    void update();
    void hold();
    void release();

    Phone& m_phone;
    QDBusConnection m_session;
    QDBusConnection m_system;
    bool m_wanted = false;
    std::optional<uint> m_cookie;
    QDBusUnixFileDescriptor m_idleLock;
};

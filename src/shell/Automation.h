#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

class Application;

// The app on the session bus, for a person's own scripts and for tests that
// drive the app from outside: the name net.velnor.rz, the object
// /net/velnor/rz, the interface net.velnor.rz.App.
class Automation : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "net.velnor.rz.App")
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(QString Server READ server)
    Q_PROPERTY(QString UserName READ userName)
    Q_PROPERTY(QString Error READ error)
    Q_PROPERTY(bool LiveConnected READ liveConnected)
    Q_PROPERTY(QString LiveDecodeError READ liveDecodeError)
    // The phone.
    Q_PROPERTY(QString Registration READ registration)
    Q_PROPERTY(QVariantMap ActiveCall READ activeCall)
    Q_PROPERTY(QString LastError READ lastError)
public:
    static constexpr char serviceName[] = "net.velnor.rz";
    static constexpr char objectPath[] = "/net/velnor/rz";
    static constexpr char interfaceName[] = "net.velnor.rz.App";

    explicit Automation(Application& app, QObject* parent = nullptr);

    // Takes the bus name and exports the object; false (and one log line)
    // when there is no session bus or the name is taken.
    bool publish();

    QString state() const;
    QString server() const;
    QString userName() const;
    QString error() const;
    bool liveConnected() const;
    QString liveDecodeError() const;
    QString registration() const;
    QVariantMap activeCall() const;
    QString lastError() const;

public slots:
    void SignIn();
    void CancelSignIn();
    void HandleUrl(const QString& url);
    // The phone: a dial waits for the registration when there is none yet.
    void Dial(const QString& number);
    void Answer();
    void HangUp();
    void SetMuted(bool muted);
    bool SendDigits(const QString& digits);
    // --- two calls ---
    void ToggleHold();
    void Swap();
    void Transfer(const QString& target);
    void Merge();

private:
    void changed(const char* property, const QVariant& value);

    Application& m_app;
    bool m_published = false;
};

#pragma once

#include <QObject>
#include <QString>

// Where the incoming-call notification goes: the desktop's notification
// server in the app, a recording double in unit tests of CallWindows.
class CallNotifier : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Action keys of the incoming-call notification.
    static constexpr char answerAction[] = "answer";
    static constexpr char declineAction[] = "decline";
    static constexpr char defaultAction[] = "default";

    // Posts the incoming-call notification with "Answer" and "Decline"; `key`
    // names it (the call's UUID), so that a second post for the same call
    // replaces rather than adds.
    virtual void post(const QString& key, const QString& title, const QString& body) = 0;
    // Takes every notification this app posted off the screen.
    virtual void withdrawAll() = 0;

signals:
    // The person chose an action; `activationToken` is what the server handed
    // over for raising a window on Wayland, empty when it gave none.
    void actionInvoked(const QString& action, const QByteArray& activationToken);
};

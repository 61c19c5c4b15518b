#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <QStringList>

// One running app per user. A second launch (the browser handing over a
// sign-in link, a tel: link, a click on the launcher) passes its links to the
// running app over a local socket and exits.
//
// The socket's owner also holds an exclusive lock on a file beside it for as
// long as it lives, so a later launch can tell a socket left by an app that
// died (free to replace) from one whose app is alive but busy (left alone).
class SingleInstance : public QObject {
    Q_OBJECT
public:
    enum class Listen {
        listening,      // this process is now the running app
        ownedByAnother, // a live app holds the socket but did not take the links
        failed,         // the socket could not be made
    };

    // The socket in $XDG_RUNTIME_DIR, or in the temporary folder with the user's id.
    static QString defaultPath();

    // The links of one hand-over message; anything else in it is dropped.
    static QStringList readMessage(const QByteArray& line);

    explicit SingleInstance(QString path = defaultPath(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when a running app took the links (an empty list just raises it).
    bool handOver(const QStringList& links, int timeoutMs = 3000);
    // Becomes the running app when no live app owns the socket.
    Listen listen();

    QString lockPath() const { return m_path + QStringLiteral(".lock"); }

signals:
    // A later launch asked for the window, with these links.
    void activated(const QStringList& links);

private:
    void accept();
    // 0, or the errno of opening or locking the lock file.
    int takeLock();

    QString m_path;
    QLocalServer m_server;
    int m_lock = -1;
};

#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <QStringList>

// One running app per user. A second launch (the browser handing over a
// sign-in link, a tel: link, a click on the launcher) passes its links to the
// running app over a local socket and exits.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    // The socket in $XDG_RUNTIME_DIR, or in the temporary folder with the user's id.
    static QString defaultPath();

    explicit SingleInstance(QString path = defaultPath(), QObject* parent = nullptr);

    // True when a running app took the links (an empty list just raises it).
    bool handOver(const QStringList& links, int timeoutMs = 3000);
    // Becomes the running app; false when the socket could not be made.
    bool listen();

signals:
    // A later launch asked for the window, with these links.
    void activated(const QStringList& links);

private:
    void accept();

    QString m_path;
    QLocalServer m_server;
};

#include "shell/SingleInstance.h"

#include "platform/Log.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>

#include <unistd.h>

namespace {

// Each message is one JSON array of links on one line; the running app
// answers "ok" once it has taken them.
constexpr char acknowledgement[] = "ok\n";

} // namespace

QString SingleInstance::defaultPath() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(runtime).exists()) {
        return runtime + QStringLiteral("/net.velnor.rz.sock");
    }
    return QDir::tempPath() + QStringLiteral("/net.velnor.rz-%1.sock").arg(::getuid());
}

SingleInstance::SingleInstance(QString path, QObject* parent)
    : QObject(parent), m_path(std::move(path)) {
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

bool SingleInstance::handOver(const QStringList& links, int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(m_path);
    if (!socket.waitForConnected(timeoutMs)) {
        return false;
    }
    const QByteArray message =
        QJsonDocument(QJsonArray::fromStringList(links)).toJson(QJsonDocument::Compact) + '\n';
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs)) {
        return false;
    }
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(timeoutMs)) {
            return false;
        }
    }
    return socket.readLine() == acknowledgement;
}

bool SingleInstance::listen() {
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (m_server.listen(m_path)) {
        return true;
    }
    // Nobody answered on it, so the socket is left from an app that ended.
    QLocalServer::removeServer(m_path);
    if (m_server.listen(m_path)) {
        return true;
    }
    Log::error(Log::app, QStringLiteral("Cannot listen on %1: %2; links from later launches "
                                        "will open a second window")
                             .arg(m_path, m_server.errorString()));
    return false;
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > 64 * 1024) {
                    socket->abort();
                }
                return;
            }
            const QJsonDocument document = QJsonDocument::fromJson(socket->readLine());
            QStringList links;
            for (const auto& value : document.array()) {
                if (value.isString()) {
                    links.append(value.toString());
                }
            }
            socket->write(acknowledgement);
            socket->flush();
            socket->disconnectFromServer();
            emit activated(links);
        });
    }
}

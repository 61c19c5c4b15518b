#include "shell/SingleInstance.h"

#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

// Each message is one JSON array of links on one line; the running app
// answers "ok" once it has taken them.
constexpr char acknowledgement[] = "ok\n";
// A message longer than any list of links a desktop hands over is refused.
constexpr qint64 maxMessageBytes = 64 * 1024;

bool peerHungUp(qintptr descriptor) {
    pollfd entry{int(descriptor), POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP)) != 0;
}

} // namespace

QString SingleInstance::defaultPath() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(runtime).exists()) {
        return runtime + QStringLiteral("/net.velnor.rz.sock");
    }
    return QDir::tempPath() + QStringLiteral("/net.velnor.rz-%1.sock").arg(::getuid());
}

QStringList SingleInstance::readMessage(const QByteArray& line) {
    QStringList links;
    if (line.size() > maxMessageBytes) {
        return links;
    }
    const QJsonDocument document = QJsonDocument::fromJson(line);
    for (const auto& value : document.array()) {
        if (value.isString()) {
            links.append(value.toString());
        }
    }
    return links;
}

SingleInstance::SingleInstance(QString path, QObject* parent)
    : QObject(parent), m_path(std::move(path)) {
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

SingleInstance::~SingleInstance() {
    if (m_lock >= 0) {
        ::close(m_lock);
    }
}

int SingleInstance::takeLock() {
    if (m_lock >= 0) {
        return 0;
    }
    const QByteArray file = QFile::encodeName(lockPath());
    const int fd = ::open(file.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return errno;
    }
    // The kernel lets go of the lock when the holder ends, however it ends.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        ::close(fd);
        return error;
    }
    m_lock = fd;
    return 0;
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

SingleInstance::Listen SingleInstance::listen() {
    if (const int error = takeLock()) {
        if (error == EWOULDBLOCK) {
            return Listen::ownedByAnother;
        }
        Log::error(Log::app, QStringLiteral("Cannot lock %1: %2; links from later launches "
                                            "will open a second window")
                                 .arg(lockPath(), QString::fromLocal8Bit(::strerror(error))));
        return Listen::failed;
    }
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (m_server.listen(m_path)) {
        return Listen::listening;
    }
    // With the lock held, a socket already there is one left by an app that ended.
    QLocalServer::removeServer(m_path);
    if (m_server.listen(m_path)) {
        return Listen::listening;
    }
    Log::error(Log::app, QStringLiteral("Cannot listen on %1: %2; links from later launches "
                                        "will open a second window")
                             .arg(m_path, m_server.errorString()));
    return Listen::failed;
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > maxMessageBytes) {
                    socket->abort();
                }
                return;
            }
            const QStringList links = readMessage(socket->readLine());
            // A launch that gave up waiting has told its user so; its links are not taken late.
            if (peerHungUp(socket->socketDescriptor())) {
                socket->abort();
                return;
            }
            socket->write(acknowledgement);
            socket->flush();
            socket->disconnectFromServer();
            emit activated(links);
        });
    }
}

// Session's directory and pictures: the conditional directory read, the
// picture caches and the user's own picture.
#include "session/Session.h"

#include "history/DirectoryCache.h"

#include <QPointer>

#include <QCoro/QCoroSignal>

// One picture download that several rows wait for.
class AvatarFlight : public QObject {
    Q_OBJECT
public:
    QCoro::Task<std::optional<QByteArray>> wait() {
        if (!m_done) {
            co_await qCoro(this, &AvatarFlight::finished);
        }
        std::optional<QByteArray> bytes = m_bytes;
        co_return bytes;
    }

    void finish(std::optional<QByteArray> bytes) {
        m_bytes = std::move(bytes);
        m_done = true;
        emit finished();
    }

signals:
    void finished();

private:
    bool m_done = false;
    std::optional<QByteArray> m_bytes;
};

void Session::setDirectoryError(std::optional<QString> error) {
    if (error != m_directoryError) {
        m_directoryError = std::move(error);
        emit directoryErrorChanged();
    }
}

void Session::reloadDirectory() {
    refreshDirectory();
}

QCoro::Task<> Session::refreshDirectory() {
    auto api = m_api;
    QPointer<Session> self(this);
    API::Headers headers;
    if (m_directoryETag) {
        headers.append({QStringLiteral("If-None-Match"), *m_directoryETag});
    }
    std::exception_ptr failure;
    try {
        const auto reply =
            co_await api->request(QStringLiteral("api/directory"), "GET", std::nullopt, headers);
        if (!self) {
            co_return;
        }
        // An unchanged directory is the common answer: nothing is read or published.
        if (reply.status != 304) {
            ++m_directoryDecodes;
            auto directory = decode<Directory>(reply.body);
            const QByteArray tag = reply.header("ETag");
            m_directoryETag =
                tag.isEmpty() ? std::nullopt : std::optional<QString>(QString::fromLatin1(tag));
            setDirectory(std::move(directory));
            DirectoryCache::update(m_directory->users, m_directory->groups, m_directory->flows);
        }
        setDirectoryError(std::nullopt);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!failure || !self) {
        co_return;
    }
    try {
        std::rethrow_exception(failure);
    } catch (const API::Failure& f) {
        if (f.kind() == API::Failure::Kind::signedOut) {
            resetLocal();
            co_return;
        }
    } catch (...) {
    }
    // The older list goes on showing, marked stale.
    setDirectoryError(failureText(failure));
}

QCoro::Task<std::optional<QByteArray>> Session::avatarData(AvatarRef ref) {
    if (const auto kept = m_avatarImages.constFind(ref); kept != m_avatarImages.cend()) {
        QByteArray bytes = *kept;
        co_return bytes;
    }
    if (const auto flight = m_avatarTasks.value(ref)) {
        co_return co_await flight->wait();
    }
    // No wait between the checks above and this insertion: that is what
    // makes concurrent callers share the download.
    auto flight = std::make_shared<AvatarFlight>();
    m_avatarTasks.insert(ref, flight);
    QPointer<Session> self(this);
    std::optional<QByteArray> bytes = co_await fetchAvatar(ref);
    if (self) {
        m_avatarTasks.remove(ref);
        if (bytes) {
            m_avatarImages.insert(ref, *bytes);
            emit avatarImageAdded(ref.url, ref.version);
        }
    }
    flight->finish(bytes);
    co_return bytes;
}

QCoro::Task<std::optional<QByteArray>> Session::fetchAvatar(AvatarRef ref) {
    if (auto kept = m_avatarCache.read(ref)) {
        co_return kept;
    }
    auto api = m_api;
    QPointer<Session> self(this);
    // A path relative to the dashboard keeps the dashboard's own base path;
    // a full address is asked as it stands.
    QString path = ref.url;
    if (path.startsWith(u'/')) {
        path.remove(0, 1);
    }
    std::optional<QByteArray> bytes;
    try {
        const auto reply = co_await api->request(path);
        bytes = reply.body;
    } catch (...) {
        // Not remembered: the next call asks again, and the initials stand in meanwhile.
        co_return std::nullopt;
    }
    if (self) {
        // An unwritable cache only costs a download next launch.
        m_avatarCache.write(ref, *bytes);
    }
    co_return bytes;
}

QCoro::Task<> Session::uploadAvatar(QByteArray jpeg) {
    auto api = m_api;
    QPointer<Session> self(this);
    // The picture as it is, in place of the JSON type of other requests.
    API::Headers headers;
    headers.append({QStringLiteral("Content-Type"), QStringLiteral("image/jpeg")});
    try {
        const auto reply =
            co_await api->request(QStringLiteral("api/me/avatar"), "PUT", jpeg, headers);
        const auto response = decode<AvatarResponse>(reply.body);
        if (!self) {
            co_return;
        }
        if (m_me) {
            Me me = *m_me;
            me.avatar = response.avatar;
            setMe(std::move(me));
        }
        if (response.avatar) {
            // Shown at once, and never fetched back.
            m_avatarImages.insert(*response.avatar, jpeg);
            emit avatarImageAdded(response.avatar->url, response.avatar->version);
        }
    } catch (...) {
        if (self) {
            setError(failureText(std::current_exception()));
        }
        co_return;
    }
    // The next read must bring the new picture's reference.
    m_directoryETag.reset();
    co_await refreshDirectory();
}

QCoro::Task<> Session::deleteAvatar() {
    auto api = m_api;
    QPointer<Session> self(this);
    try {
        co_await api->request(QStringLiteral("api/me/avatar"), "DELETE");
    } catch (...) {
        if (self) {
            setError(failureText(std::current_exception()));
        }
        co_return;
    }
    if (!self) {
        co_return;
    }
    if (m_me) {
        Me me = *m_me;
        me.avatar.reset();
        setMe(std::move(me));
    }
    m_directoryETag.reset();
    co_await refreshDirectory();
}

#include "SessionDirectory.moc"

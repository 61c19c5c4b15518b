#include "session/Session.h"

#include "history/DirectoryCache.h"
#include "session/CallStatistics.h" // --- call statistics ---

#include "platform/Hardware.h"
#include "platform/Log.h"
#include "telephony/Phone.h"

#include <QUrlQuery>
#include <QUuid>

const QUrl Session::defaultServer(QStringLiteral("https://rz.velnor.net/"));
const QUrl Session::developmentServer(QStringLiteral("http://localhost:3000/"));

namespace {

// The value of the first query item with that name.
std::optional<QString> firstItem(const QList<QPair<QString, QString>>& items, const char* name) {
    for (const auto& [key, value] : items) {
        if (key == QLatin1String(name)) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace

Session::Session(SettingsStore& settings, SecureStore& secrets, Clock& clock, QObject* parent)
    : QObject(parent), m_settings(settings), m_secrets(secrets), m_clock(clock),
      m_server(savedServer(settings)), m_api(API::make(m_server, secrets, clock)),
      m_live(std::make_unique<Live>(
          [self = QPointer<Session>(this)] { return liveConnection(self); }, clock)) {
    // --- directory ---
    m_directoryModel = std::make_unique<DirectoryModel>();
    m_directoryModel->bind(this);
    m_directoryList = std::make_unique<DirectoryFilter>();
    m_directoryList->setDirectoryModel(m_directoryModel.get());
    connectActions();
}

QCoro::Task<API::LiveConnection> Session::liveConnection(QPointer<Session> session) {
    if (!session) {
        throw API::Failure::signedOut();
    }
    // The API of the moment: a change of server reaches the next socket.
    auto api = session->m_api;
    co_return co_await api->liveConnection();
}

Session::~Session() {
    m_ending.request_stop();
}

QUrl Session::savedServer(const SettingsStore& settings) {
    const auto saved = settings.url(QString::fromLatin1(serverKey));
    if (!saved || *saved == developmentServer) {
        return defaultServer;
    }
    return *saved;
}

QString Session::stateName() const {
    switch (m_state) {
    case State::loading:
        return QStringLiteral("loading");
    case State::signedOut:
        return QStringLiteral("signedOut");
    case State::signingIn:
        return QStringLiteral("signingIn");
    case State::signedIn:
        return QStringLiteral("signedIn");
    }
    return {};
}

void Session::setState(State state) {
    if (state != m_state) {
        m_state = state;
        emit stateChanged();
    }
}

void Session::setMe(std::optional<Me> me) {
    if (me != m_me) {
        m_me = std::move(me);
        emit meChanged();
    }
}

void Session::setDirectory(std::optional<Directory> directory) {
    if (directory != m_directory) {
        m_directory = std::move(directory);
        emit directoryChanged();
    }
}

void Session::setError(std::optional<QString> error) {
    if (error) {
        Log::error(Log::api, *error);
    }
    if (error != m_error) {
        m_error = std::move(error);
        emit errorChanged();
    }
}

QCoro::Task<> Session::restore() {
    const bool hasToken = co_await m_api->hasRefreshToken();
    if (!hasToken) {
        setState(State::signedOut);
        co_return;
    }
    // Signed in before the server has said anything, so that a stored
    // session shows the app at once and works from caches when offline.
    setState(State::signedIn);
    co_await enter();
}

void Session::chooseServer(const QUrl& url) {
    if (url != m_server) {
        m_server = url;
        emit serverChanged();
    }
    m_settings.setUrl(QString::fromLatin1(serverKey), url);
    m_api = API::make(url, m_secrets, m_clock);
}

void Session::chooseServerText(const QString& text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    auto blank = [](QChar c) { return c == u' ' || c == u'\t'; };
    while (begin < end && blank(text[begin])) {
        ++begin;
    }
    while (end > begin && blank(text[end - 1])) {
        --end;
    }
    const QUrl url(text.mid(begin, end - begin), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty()) {
        return;
    }
    chooseServer(url);
}

void Session::signIn() {
    setError(std::nullopt);
    setState(State::signingIn);
    const auto authorization = API::makeAuthorization(m_server);
    m_pendingAuth = PendingAuth{authorization.url, authorization.verifier, authorization.state};
    const bool opened = m_openBrowser && m_openBrowser(authorization.url);
    if (!opened) {
        // The sign-in can still finish if the person opens the address themselves.
        setError(tr("Could not open a web browser. To sign in, open this address in one: %1")
                     .arg(authorization.url.toString(QUrl::FullyEncoded)));
    }
}

void Session::cancelSignIn() {
    m_pendingAuth.reset();
    setState(State::signedOut);
}

QCoro::Task<> Session::handleRedirect(QUrl url) {
    if (url.scheme() != u"rzmobile") {
        co_return;
    }
    if (!m_pendingAuth) {
        // A stale or repeated redirect.
        co_return;
    }
    const PendingAuth pending = *m_pendingAuth;
    m_pendingAuth.reset();
    std::exception_ptr failure;
    try {
        co_await completeSignIn(url, pending);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        setError(failureText(failure));
        setState(State::signedOut);
        co_return;
    }
    setState(State::signedIn);
    co_await enter();
}

QCoro::Task<> Session::completeSignIn(QUrl url, PendingAuth pending) {
    const auto items = QUrlQuery(url).queryItems(QUrl::FullyDecoded);
    const auto state = firstItem(items, "state");
    if (!state || *state != pending.state) {
        throw API::Failure::oauth(QStringLiteral("state mismatch"));
    }
    if (const auto error = firstItem(items, "error")) {
        throw API::Failure::oauth(*error);
    }
    const auto code = firstItem(items, "code");
    if (!code) {
        throw API::Failure::oauth(QStringLiteral("no code"));
    }
    auto api = m_api;
    co_await api->exchangeCode(*code, pending.verifier);
}

QCoro::Task<> Session::enter() {
    std::exception_ptr failure;
    try {
        auto api = m_api;
        const auto reply = co_await api->request(QStringLiteral("api/me"));
        setMe(decode<Me>(reply.body));
        Log::info(Log::api,
                  QStringLiteral("Signed in to %1 as %2").arg(m_server.toString(), m_me->name));
        // A device already provisioned keeps what it has; anything missing
        // asks the server again.
        if (m_phone) {
            const auto deviceId = m_settings.text(QString::fromLatin1(deviceIdKey));
            if (m_phone->account().isComplete() && deviceId) {
                m_phone->wake();
            } else {
                co_await provisionDevice();
            }
        }
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const API::Failure& f) {
            if (f.kind() == API::Failure::Kind::signedOut) {
                resetLocal();
                co_return;
            }
        } catch (...) {
        }
        setError(failureText(failure));
        co_return;
    }
    // Then, each handling its own failures: live updates, queues, the
    // directory, the first page of the call history, voicemail.
    m_live->start();
    // Each step waits for the one before; a session gone meanwhile stops them.
    const QPointer<Session> self(this);
    // --- server actions: queues ---
    co_await refreshQueues();
    if (!self) {
        co_return;
    }
    // --- end of server actions: queues ---
    // --- directory ---
    co_await refreshDirectory();
    if (!self) {
        co_return;
    }
    // --- call history ---
    co_await loadHistory();
    if (!self) {
        co_return;
    }
    // --- server actions: voicemail ---
    co_await refreshVoicemail();
    // --- end of server actions: voicemail ---
}

std::optional<AppDevice::Edge> Session::chooseEdge(const QList<AppDevice::Edge>& edges) {
    for (const auto& edge : edges) {
        if (edge.transport == u"tcp" || edge.transport == u"tls") {
            return edge;
        }
    }
    return std::nullopt;
}

QCoro::Task<QString> Session::installId() {
    const QString service = QString::fromLatin1(installService);
    const QString account = QString::fromLatin1(installAccount);
    if (const auto kept = co_await m_secrets.read(service, account)) {
        co_return *kept;
    }
    const QString made = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    co_await m_secrets.save(made, service, account);
    co_return made;
}

QCoro::Task<> Session::provisionDevice() {
    auto api = m_api;
    AppDeviceRequest request;
    request.installId = co_await installId();
    request.name = tr("%1 of %2").arg(QStringLiteral("Linux"), m_me ? m_me->name : QString());
    request.platform = QStringLiteral("linux");
    // Sent even when empty: the server treats it as free text.
    request.model = Hardware::model();
    const auto reply = co_await api->request(QStringLiteral("api/me/app-device"), "POST",
                                             QByteArray::fromStdString(request.toJson().dump()));
    const auto device = decode<AppDevice>(reply.body);
    const auto edge = chooseEdge(device.edge);
    if (!edge) {
        throw API::Failure::oauth(QStringLiteral("no TCP or TLS edge offered"));
    }
    m_settings.setText(QString::fromLatin1(deviceIdKey), device.deviceId);
    const Account account{edge->host + u':' + QString::number(edge->port), device.realm,
                          device.sipUsername, device.password, edge->transport};
    if (!m_phone) {
        co_await Account::save(account, m_settings, m_secrets);
        co_return;
    }
    m_phone->setAccount(account);
    co_await Account::save(account, m_settings, m_secrets);
    m_phone->stop();
    m_phone->start();
}

QCoro::Task<> Session::signOut(bool removeDevice) {
    auto api = m_api;
    const auto deviceId = m_settings.text(QString::fromLatin1(deviceIdKey));
    if (removeDevice && deviceId) {
        try {
            co_await api->request(QStringLiteral("api/devices/") + *deviceId, "DELETE");
        } catch (...) {
            // The device stays on the server; nothing more can be done from here.
        }
    }
    // With the device removed the DELETE alone tells the server; a kept
    // device has its sign-in revoked instead.
    co_await api->clearTokens(!removeDevice);
    resetLocal();
}

QCoro::Task<> Session::signOutKeepingDevice() {
    auto api = m_api;
    co_await api->clearTokens(true);
    resetLocal();
}

void Session::signOutFromScreen(bool removeDevice) {
    signOut(removeDevice);
}

void Session::signOutKeepingDeviceFromScreen() {
    signOutKeepingDevice();
}

void Session::resetLocal() {
    // Live updates stop first, and what they showed is forgotten; the topics
    // and the followed call stay for the next follow or watchQueues to sort out.
    m_live->stop();
    m_live->clearState();
    // --- server actions ---
    setQueues({});
    // --- end of server actions ---
    // The directory cache is emptied here, once it exists.
    if (m_phone) {
        // A call in progress ends with the client.
        m_phone->stop();
        const Account empty = Account::builtIn();
        m_phone->setAccount(empty);
        Account::save(empty, m_settings, m_secrets);
        m_phone->stop();
        m_phone->start();
    }
    m_settings.remove(QString::fromLatin1(deviceIdKey));
    setMe(std::nullopt);
    setDirectory(std::nullopt);
    // --- directory: pictures in memory stay, for the next sign-in ---
    m_directoryETag.reset();
    setDirectoryError(std::nullopt);
    DirectoryCache::remove();
    // --- call history ---
    // The local recents stay: they are this computer's, not the user's.
    m_history->clear();
    // --- server actions ---
    setVoicemail({});
    setVoicemailLoaded(false);
    // --- end of server actions ---
    setState(State::signedOut);
}

QString Session::numberKey(const QString& number) {
    QString digits;
    for (const QChar c : number) {
        if (c.isDigit()) {
            digits.append(c);
        }
    }
    return digits.right(10);
}

std::optional<Directory::Entry> Session::colleague(const QString& number) const {
    if (!m_directory) {
        return std::nullopt;
    }
    const QString key = numberKey(number);
    for (const auto& user : m_directory->users) {
        if (user.extension_ == number) {
            return user;
        }
        if (key.size() >= 6 && user.numbers) {
            for (const QString& own : *user.numbers) {
                if (numberKey(own) == key) {
                    return user;
                }
            }
        }
    }
    return std::nullopt;
}

std::optional<QString> Session::colleagueName(const QString& number) const {
    if (const auto user = colleague(number)) {
        return user->name;
    }
    if (m_directory) {
        for (const auto& group : m_directory->groups) {
            if (group.extension_ == number) {
                return group.name;
            }
        }
    }
    return std::nullopt;
}

// --- call history ---

QCoro::Task<> Session::loadHistory() {
    co_await m_history->load(m_api);
}

QCoro::Task<> Session::loadMoreHistory() {
    co_await m_history->loadMore(m_api);
}

QCoro::Task<> Session::reloadHistoryAfterCall() {
    QPointer<Session> self(this);
    co_await m_clock.sleep(historyReloadDelay, m_ending.get_token());
    if (!self || m_ending.stop_requested()) {
        co_return;
    }
    co_await loadHistory();
}

CallHistory::Owner Session::historyOwner() const {
    CallHistory::Owner owner;
    if (m_me) {
        owner.extension_ = m_me->extension_;
        owner.name = m_me->name;
    }
    // Before a device is provisioned there is no SIP user to recognise.
    if (m_phone && !m_phone->account().username.isEmpty()) {
        owner.usernames.insert(m_phone->account().username);
    }
    return owner;
}

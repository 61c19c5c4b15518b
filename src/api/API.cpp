#include "api/API.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRandomGenerator>
#include <QTextBoundaryFinder>
#include <QTimer>
#include <QUrlQuery>

#include <QCoro/QCoroNetworkReply>
#include <QCoro/QCoroSignal>

// One token refresh in flight, shared by every caller that needs a token
// while it runs.
class RefreshFlight : public QObject {
    Q_OBJECT
public:
    QCoro::Task<QString> wait() {
        if (!m_done) {
            co_await qCoro(this, &RefreshFlight::finished);
        }
        if (m_error) {
            std::rethrow_exception(m_error);
        }
        QString token = m_token;
        co_return token;
    }

    void finish(QString token, std::exception_ptr error) {
        m_token = std::move(token);
        m_error = std::move(error);
        m_done = true;
        emit finished();
    }

signals:
    void finished();

private:
    bool m_done = false;
    QString m_token;
    std::exception_ptr m_error;
};

namespace {

// Keeps no cookies: each request stands on its bearer token alone.
class NoCookies final : public QNetworkCookieJar {
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    QList<QNetworkCookie> cookiesForUrl(const QUrl&) const override { return {}; }
    bool setCookiesFromUrl(const QList<QNetworkCookie>&, const QUrl&) override { return false; }
};

QString urlSafe(const QByteArray& bytes) {
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

// The first n user-perceived characters.
QString firstCharacters(const QString& text, int n) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (count < n && finder.toNextBoundary() != -1) {
        ++count;
    }
    if (count < n || finder.position() < 0) {
        return text;
    }
    return text.left(finder.position());
}

int statusOf(QNetworkReply* reply) {
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

// Invalid UTF-8 is replaced, as a person reading it would want.
QString repaired(const QByteArray& body) {
    return QString::fromUtf8(body);
}

} // namespace

QString API::Failure::text() const {
    switch (m_kind) {
    case Kind::http:
        return QStringLiteral("HTTP %1: %2").arg(m_status).arg(firstCharacters(m_payload, 200));
    case Kind::oauth:
        return QStringLiteral("OAuth: ") + m_payload;
    case Kind::signedOut:
        return QCoreApplication::translate("API", "Signed out. Please sign in again.");
    }
    return {};
}

QString API::describe(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const Failure& f) {
        return f.text();
    } catch (const TransportError& e) {
        return e.text();
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return tr("Something went wrong.");
    }
}

const char* API::Failure::what() const noexcept {
    m_what = text().toUtf8();
    return m_what.constData();
}

QByteArray API::Reply::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

std::shared_ptr<API> API::make(QUrl server, SecureStore& store, Clock& clock,
                               std::chrono::milliseconds timeout) {
    return std::shared_ptr<API>(new API(std::move(server), store, clock, timeout));
}

API::API(QUrl server, SecureStore& store, Clock& clock, std::chrono::milliseconds timeout)
    : m_server(std::move(server)), m_store(store), m_clock(clock), m_timeout(timeout),
      m_accessExpiry(QDateTime::fromMSecsSinceEpoch(0, Qt::UTC)) {
    m_network.setCookieJar(new NoCookies(&m_network));
}

API::~API() = default;

QString API::randomURLSafeString(int bytes) {
    QByteArray random(bytes, Qt::Uninitialized);
    for (int i = 0; i < bytes; i += 4) {
        const quint32 word = QRandomGenerator::system()->generate();
        for (int j = 0; j < 4 && i + j < bytes; ++j) {
            random[i + j] = char((word >> (8 * j)) & 0xff);
        }
    }
    return urlSafe(random);
}

QString API::challenge(const QString& verifier) {
    return urlSafe(QCryptographicHash::hash(verifier.toUtf8(), QCryptographicHash::Sha256));
}

QUrl API::urlOf(const QUrl& server, const QString& path) {
    QString base = server.toString(QUrl::FullyEncoded);
    if (!base.endsWith(u'/')) {
        base += u'/';
    }
    return QUrl(base).resolved(QUrl(path));
}

API::Authorization API::makeAuthorization(const QUrl& server) {
    Authorization authorization;
    authorization.verifier = randomURLSafeString(32);
    authorization.state = randomURLSafeString(16);
    QUrl url = urlOf(server, QStringLiteral("oauth/authorize"));
    QUrlQuery query;
    query.setQueryItems({
        {QStringLiteral("response_type"), QStringLiteral("code")},
        {QStringLiteral("client_id"), QString::fromLatin1(clientId)},
        {QStringLiteral("redirect_uri"), QString::fromLatin1(redirectUri)},
        {QStringLiteral("code_challenge"), challenge(authorization.verifier)},
        {QStringLiteral("code_challenge_method"), QStringLiteral("S256")},
        {QStringLiteral("state"), authorization.state},
    });
    url.setQuery(query);
    authorization.url = url;
    return authorization;
}

QByteArray API::formBody(const Form& form) {
    // Everything but the unreserved characters is encoded, "+" among them, so
    // that a form decoder cannot take a plus for a space.
    QByteArray body;
    for (const auto& [key, value] : form) {
        if (!body.isEmpty()) {
            body += '&';
        }
        body += QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value);
    }
    return body;
}

QString API::account() const {
    return m_server.toString(QUrl::FullyEncoded);
}

QCoro::Task<API::Reply> API::send(QNetworkRequest request, QByteArray method,
                                  std::optional<QByteArray> body) {
    request.setTransferTimeout(int(m_timeout.count()));
    QNetworkReply* reply = body ? m_network.sendCustomRequest(request, method, *body)
                                : m_network.sendCustomRequest(request, method);

    // The answer is taken as it arrives, so that no more than its cap is ever held.
    struct Reading {
        QByteArray body;
        bool tooLarge = false;
        bool errorCut = false;
        bool overdue = false;
    };
    auto reading = std::make_shared<Reading>();
    const auto take = [reply, reading] {
        const int status = statusOf(reply);
        const bool success = (status >= 200 && status <= 299) || status == 304;
        const qint64 cap = success ? maxBodyBytes : maxErrorBodyBytes;
        if (success && reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > cap) {
            reading->tooLarge = true;
            reply->abort();
            return;
        }
        reading->body += reply->read(std::max<qint64>(cap - reading->body.size(), 0));
        if (reply->bytesAvailable() > 0) {
            (success ? reading->tooLarge : reading->errorCut) = true;
            reply->abort();
        }
    };
    QObject::connect(reply, &QNetworkReply::readyRead, reply, take);
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, take);
    QTimer::singleShot(2 * m_timeout, reply, [reply, reading] {
        reading->overdue = true;
        reply->abort();
    });
    co_await reply;
    if (!reading->tooLarge && !reading->errorCut && !reading->overdue) {
        take();
    }
    reply->deleteLater();

    if (reading->tooLarge) {
        throw TransportError(
            QCoreApplication::translate("API", "The server's answer is larger than %1 MB.")
                .arg(maxBodyBytes / (1024 * 1024)));
    }
    if (reading->overdue) {
        throw TransportError(QCoreApplication::translate(
                                 "API", "The server did not finish answering within %1 seconds.")
                                 .arg(double(2 * m_timeout.count()) / 1000.0));
    }
    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isNull()) {
        // Nothing else here cancels a request, so a cancelled one ran out of time;
        // the library's own words for that ("Operation canceled") would mislead.
        const QString text =
            reply->error() == QNetworkReply::OperationCanceledError
                ? QCoreApplication::translate("API", "The server did not answer within %1 seconds.")
                      .arg(double(m_timeout.count()) / 1000.0)
                : reply->errorString();
        throw TransportError(text);
    }
    Reply result;
    result.status = statusOf(reply);
    result.body = std::move(reading->body);
    for (const auto& pair : reply->rawHeaderPairs()) {
        result.headers.append(pair);
    }
    co_return result;
}

QCoro::Task<API::Tokens> API::postToken(Form form) {
    auto self = shared_from_this();
    QNetworkRequest request(urlOf(m_server, QStringLiteral("oauth/token")));
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QByteArrayLiteral("application/x-www-form-urlencoded"));
    const Reply reply = co_await send(request, "POST", formBody(form));
    const int status = reply.status;
    const QByteArray& body = reply.body;
    if (status == 200) {
        co_return decode<Tokens>(body);
    }
    std::optional<QString> code;
    try {
        code = decode<OAuthError>(body).error;
    } catch (const wire::DecodeError&) {
    }
    if (code) {
        throw Failure::oauth(*code);
    }
    throw Failure::http(status, repaired(body));
}

QCoro::Task<> API::storeTokens(Tokens tokens) {
    auto self = shared_from_this();
    // The access token is usable at once; the refresh token is kept on the way.
    m_accessToken = tokens.access_token;
    m_accessExpiry = m_clock.now().addSecs(tokens.expires_in);
    co_await m_store.save(tokens.refresh_token, QString::fromLatin1(tokenService), account());
}

QCoro::Task<> API::exchangeCode(QString code, QString verifier) {
    auto self = shared_from_this();
    // Built before the wait: GCC 12 cannot keep a braced list across co_await.
    Form form;
    form.append({QStringLiteral("grant_type"), QStringLiteral("authorization_code")});
    form.append({QStringLiteral("client_id"), QString::fromLatin1(clientId)});
    form.append({QStringLiteral("redirect_uri"), QString::fromLatin1(redirectUri)});
    form.append({QStringLiteral("code"), code});
    form.append({QStringLiteral("code_verifier"), verifier});
    const Tokens tokens = co_await postToken(form);
    co_await storeTokens(tokens);
}

QCoro::Task<QString> API::refreshAccessToken() {
    auto self = shared_from_this();
    const auto refreshToken = co_await m_store.read(QString::fromLatin1(tokenService), account());
    if (!refreshToken) {
        throw Failure::signedOut();
    }
    ++m_refreshCount;
    Form form;
    form.append({QStringLiteral("grant_type"), QStringLiteral("refresh_token")});
    form.append({QStringLiteral("client_id"), QString::fromLatin1(clientId)});
    form.append({QStringLiteral("refresh_token"), *refreshToken});
    std::optional<Tokens> tokens;
    try {
        tokens = co_await postToken(form);
    } catch (const Failure& failure) {
        if (failure.kind() != Failure::Kind::oauth || failure.payload() != u"invalid_grant") {
            throw;
        }
    }
    if (!tokens) {
        // invalid_grant: the server no longer knows this sign-in.
        co_await m_store.remove(QString::fromLatin1(tokenService), account());
        throw Failure::signedOut();
    }
    co_await storeTokens(*tokens);
    QString token = *m_accessToken;
    co_return token;
}

QCoro::Task<QString> API::validAccessToken() {
    auto self = shared_from_this();
    if (m_accessToken && m_accessExpiry > m_clock.now().addSecs(expiryMarginS)) {
        QString token = *m_accessToken;
        co_return token;
    }
    if (m_refreshing) {
        auto flight = m_refreshing;
        co_return co_await flight->wait();
    }
    auto flight = std::make_shared<RefreshFlight>();
    m_refreshing = flight;
    QString token;
    std::exception_ptr error;
    try {
        token = co_await refreshAccessToken();
    } catch (...) {
        error = std::current_exception();
    }
    m_refreshing.reset();
    flight->finish(token, error);
    if (error) {
        std::rethrow_exception(error);
    }
    co_return token;
}

QCoro::Task<API::Reply> API::request(QString path, QByteArray method,
                                     std::optional<QByteArray> body, Headers headers,
                                     bool retried) {
    auto self = shared_from_this();
    QNetworkRequest request(urlOf(m_server, path));
    if (body) {
        request.setRawHeader("Content-Type", "application/json");
    }
    for (const auto& [name, value] : headers) {
        request.setRawHeader(name.toUtf8(), value.toUtf8());
    }
    const QString token = co_await validAccessToken();
    request.setRawHeader("Authorization", "Bearer " + token.toUtf8());

    Reply result = co_await send(request, method, body);

    if (result.status == 401 && !retried) {
        // Forces a refresh, once per call.
        m_accessToken.reset();
        co_return co_await this->request(path, method, body, headers, true);
    }
    if ((result.status >= 200 && result.status <= 299) || result.status == 304) {
        co_return result;
    }
    throw Failure::http(result.status, repaired(result.body));
}

QCoro::Task<API::LiveConnection> API::liveConnection() {
    auto self = shared_from_this();
    const QString token = co_await validAccessToken();
    QUrl url = urlOf(m_server, QStringLiteral("api/live"));
    url.setScheme(url.scheme() == u"https" ? QStringLiteral("wss") : QStringLiteral("ws"));
    co_return LiveConnection{url, token, m_accessExpiry};
}

QCoro::Task<bool> API::hasRefreshToken() {
    auto self = shared_from_this();
    const auto token = co_await m_store.read(QString::fromLatin1(tokenService), account());
    co_return token.has_value();
}

QCoro::Task<> API::clearTokens(bool revoke) {
    auto self = shared_from_this();
    const QString service = QString::fromLatin1(tokenService);
    if (revoke) {
        if (const auto refreshToken = co_await m_store.read(service, account())) {
            QNetworkRequest request(urlOf(m_server, QStringLiteral("oauth/revoke")));
            request.setHeader(QNetworkRequest::ContentTypeHeader,
                              QByteArrayLiteral("application/x-www-form-urlencoded"));
            Form form;
            form.append({QStringLiteral("token"), *refreshToken});
            form.append({QStringLiteral("client_id"), QString::fromLatin1(clientId)});
            try {
                co_await send(request, "POST", formBody(form));
            } catch (...) {
                // Whatever the server says, the tokens are forgotten here.
            }
        }
    }
    co_await m_store.remove(service, account());
    m_accessToken.reset();
}

#include "API.moc"

#pragma once

#include "api/Records.h"
#include "platform/Clock.h"
#include "platform/SecureStore.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPair>
#include <QString>
#include <QUrl>

#include <QCoro/QCoroTask>

#include <chrono>
#include <exception>
#include <memory>
#include <optional>

class RefreshFlight;

// The one gateway to the dashboard: browser sign-in with PKCE, tokens, and
// every REST request with a bearer token, refreshed and retried as needed. It
// knows nothing of screens or of the signed-in state: it fails with
// API::Failure (or TransportError, or wire::DecodeError) and its owner decides.
// One API exists per dashboard; choosing another replaces it. Operations keep
// the object alive while they run, so it is always made with API::make.
class API : public QObject, public std::enable_shared_from_this<API> {
    Q_OBJECT
public:
    using Tokens = ::Tokens;
    using OAuthError = ::OAuthError;

    // The error of every REST operation.
    class Failure : public std::exception {
    public:
        enum class Kind { http, oauth, signedOut };

        static Failure http(int status, QString body) {
            return {Kind::http, status, std::move(body)};
        }
        static Failure oauth(QString code) { return {Kind::oauth, 0, std::move(code)}; }
        static Failure signedOut() { return {Kind::signedOut, 0, {}}; }

        Kind kind() const { return m_kind; }
        int status() const { return m_status; }
        // The reply body of http; the OAuth error code of oauth.
        const QString& payload() const { return m_payload; }
        // The sentence for the user.
        QString text() const;
        const char* what() const noexcept override;

    private:
        Failure(Kind kind, int status, QString payload)
            : m_kind(kind), m_status(status), m_payload(std::move(payload)) {}

        Kind m_kind;
        int m_status;
        QString m_payload;
        mutable QByteArray m_what;
    };

    // A failure before any HTTP status: no network, refused, timed out, TLS.
    // Its text is the network library's own description.
    class TransportError : public std::exception {
    public:
        explicit TransportError(QString text) : m_text(std::move(text)), m_what(m_text.toUtf8()) {}
        const QString& text() const { return m_text; }
        const char* what() const noexcept override { return m_what.constData(); }

    private:
        QString m_text;
        QByteArray m_what;
    };

    // The sentence a failed operation shows to the user, whatever it failed with.
    static QString describe(std::exception_ptr failure);

    struct Authorization {
        QUrl url;
        QString verifier;
        QString state;
    };

    struct Reply {
        QByteArray body;
        int status = 0;
        QList<QPair<QByteArray, QByteArray>> headers;

        // The first header of that name, compared without case; empty when absent.
        QByteArray header(const QByteArray& name) const;
    };

    struct LiveConnection {
        QUrl url;
        QString token;
        QDateTime expiry;
    };

    using Headers = QList<QPair<QString, QString>>;
    using Form = QList<QPair<QString, QString>>;

    static constexpr char clientId[] = "rz-mobile";
    static constexpr char redirectUri[] = "rzmobile://oauth/callback";
    static constexpr char tokenService[] = "net.velnor.rz.oauth";
    static constexpr int expiryMarginS = 30;
    // A request fails when the server is silent this long, and when its whole
    // answer takes more than twice as long.
    static constexpr int requestTimeoutMs = 60'000;
    // The largest answer read; an error answer is read only as far as its text shows.
    static constexpr qint64 maxBodyBytes = 16 * 1024 * 1024;
    static constexpr qint64 maxErrorBodyBytes = 64 * 1024;

    static std::shared_ptr<API>
    make(QUrl server, SecureStore& store, Clock& clock = Clock::system(),
         std::chrono::milliseconds timeout = std::chrono::milliseconds(requestTimeoutMs));
    ~API() override;

    const QUrl& server() const { return m_server; }

    // The browser sign-in address with a fresh verifier and state; no I/O.
    static Authorization makeAuthorization(const QUrl& server);
    // n secure random bytes as URL-safe base64 without padding (32 → 43 characters).
    static QString randomURLSafeString(int bytes);
    // The S256 challenge of a verifier.
    static QString challenge(const QString& verifier);
    // A form body in which "+" can only mean a plus.
    static QByteArray formBody(const Form& form);
    // The address of a path under a base URL, keeping the base's own path.
    static QUrl urlOf(const QUrl& server, const QString& path);

    QCoro::Task<> exchangeCode(QString code, QString verifier);
    // A token that lives at least 30 more seconds; concurrent callers share one refresh.
    QCoro::Task<QString> validAccessToken();
    QCoro::Task<Reply> request(QString path, QByteArray method = "GET",
                               std::optional<QByteArray> body = std::nullopt, Headers headers = {},
                               bool retried = false);
    QCoro::Task<LiveConnection> liveConnection();
    QCoro::Task<bool> hasRefreshToken();
    // Forgets the tokens, first telling the server when revoke is true. Never fails.
    QCoro::Task<> clearTokens(bool revoke);

    // How many times the token endpoint was asked to refresh; for tests of the single flight.
    int refreshCount() const { return m_refreshCount; }

private:
    API(QUrl server, SecureStore& store, Clock& clock, std::chrono::milliseconds timeout);

    QString account() const;
    QCoro::Task<Tokens> postToken(Form form);
    QCoro::Task<> storeTokens(Tokens tokens);
    QCoro::Task<QString> refreshAccessToken();
    QCoro::Task<Reply> send(QNetworkRequest request, QByteArray method,
                            std::optional<QByteArray> body);

    const QUrl m_server;
    SecureStore& m_store;
    Clock& m_clock;
    const std::chrono::milliseconds m_timeout;
    std::optional<QString> m_accessToken;
    QDateTime m_accessExpiry;
    std::shared_ptr<RefreshFlight> m_refreshing;
    QNetworkAccessManager m_network;
    int m_refreshCount = 0;
};

#pragma once

#include "DevServer.h"

#include <QCryptographicHash>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QRandomGenerator>
#include <QTimer>
#include <QUrlQuery>
#include <QWebSocket>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <deque>
#include <functional>
#include <stdexcept>

// What the tests of rz-devserver share: a PKCE sign-in done the way a client
// does it, a small form encoder, and a websocket client that queues frames.
namespace kit {

using nlohmann::json;
using namespace std::chrono_literals;

inline QString urlSafe(const QByteArray& bytes) {
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

inline QString newVerifier() {
    QByteArray bytes(32, Qt::Uninitialized);
    for (auto& b : bytes) {
        b = char(QRandomGenerator::global()->bounded(256));
    }
    return urlSafe(bytes);
}

inline QString challengeOf(const QString& verifier) {
    return urlSafe(QCryptographicHash::hash(verifier.toUtf8(), QCryptographicHash::Sha256));
}

// A form body; "+" is escaped so that a form decoder does not read a space.
inline QByteArray form(const QList<QPair<QString, QString>>& fields) {
    QByteArray out;
    for (const auto& [key, value] : fields) {
        if (!out.isEmpty()) {
            out += '&';
        }
        out += QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value);
    }
    return out;
}

inline const QList<QPair<QByteArray, QByteArray>> formHeaders{
    {"Content-Type", "application/x-www-form-urlencoded"}};

inline QUrl authorizeUrl(const auto& server, const QString& challenge, const QString& state,
                         const QString& clientId = "rz-mobile",
                         const QString& redirect = "rzmobile://oauth/callback",
                         const QString& method = "S256") {
    QUrl url = server.url("oauth/authorize");
    url.setQuery(QString::fromLatin1(form({{"response_type", "code"},
                                           {"client_id", clientId},
                                           {"redirect_uri", redirect},
                                           {"code_challenge", challenge},
                                           {"code_challenge_method", method},
                                           {"state", state}})));
    return url;
}

// The query items of a redirect's Location.
inline QUrlQuery locationQuery(const HttpResult& result) {
    return QUrlQuery(QUrl(QString::fromUtf8(result.header("Location"))).query());
}

// The hidden request id of the sign-in page.
inline QString pageRequestId(const QByteArray& html) {
    const QByteArray marker = "name=\"request\" value=\"";
    const auto at = html.indexOf(marker);
    if (at < 0) {
        throw std::runtime_error("sign-in page without a request id");
    }
    const auto start = at + marker.size();
    return QString::fromUtf8(html.mid(start, html.indexOf('"', start) - start));
}

struct Tokens {
    QString access;
    QString refresh;
    int expiresIn = 0;
};

// Through the page: authorize, choose the user, allow. Gives the code.
inline QString authorizeCode(const auto& server, QNetworkAccessManager& network,
                             const QString& verifier, const QString& user = "u-001") {
    const auto page =
        httpRequest(network, "GET", authorizeUrl(server, challengeOf(verifier), "st"));
    if (page.status != 200) {
        throw std::runtime_error("sign-in page gave " + std::to_string(page.status));
    }
    const auto decision = httpRequest(
        network, "POST", server.url("oauth/authorize"),
        form({{"request", pageRequestId(page.body)}, {"user", user}, {"decision", "allow"}}),
        formHeaders);
    if (decision.status != 302) {
        throw std::runtime_error("decision gave " + std::to_string(decision.status));
    }
    return locationQuery(decision).queryItemValue("code", QUrl::FullyDecoded);
}

inline HttpResult exchange(const auto& server, QNetworkAccessManager& network, const QString& code,
                           const QString& verifier) {
    return httpRequest(network, "POST", server.url("oauth/token"),
                       form({{"grant_type", "authorization_code"},
                             {"client_id", "rz-mobile"},
                             {"redirect_uri", "rzmobile://oauth/callback"},
                             {"code", code},
                             {"code_verifier", verifier}}),
                       formHeaders);
}

inline Tokens tokensOf(const HttpResult& result) {
    const auto body = result.json();
    return {QString::fromStdString(body.at("access_token").get<std::string>()),
            QString::fromStdString(body.at("refresh_token").get<std::string>()),
            body.at("expires_in").get<int>()};
}

inline Tokens signIn(const auto& server, QNetworkAccessManager& network,
                     const QString& user = "u-001") {
    const auto verifier = newVerifier();
    const auto code = authorizeCode(server, network, verifier, user);
    const auto result = exchange(server, network, code, verifier);
    if (result.status != 200) {
        throw std::runtime_error("token exchange gave " + std::to_string(result.status));
    }
    return tokensOf(result);
}

inline HttpResult refresh(DevServer& server, QNetworkAccessManager& network,
                          const QString& refreshToken) {
    return httpRequest(network, "POST", server.url("oauth/token"),
                       form({{"grant_type", "refresh_token"},
                             {"client_id", "rz-mobile"},
                             {"refresh_token", refreshToken}}),
                       formHeaders);
}

inline QList<QPair<QByteArray, QByteArray>> bearer(const QString& token) {
    return {{"Authorization", "Bearer " + token.toLatin1()}};
}

inline QList<QPair<QByteArray, QByteArray>> bearerJson(const QString& token) {
    return {{"Authorization", "Bearer " + token.toLatin1()}, {"Content-Type", "application/json"}};
}

inline QByteArray dump(const json& value) {
    return QByteArray::fromStdString(value.dump());
}

// A websocket that keeps every frame it receives, in order.
class LiveClient {
public:
    LiveClient(const auto& server, const QString& token) {
        QObject::connect(&m_socket, &QWebSocket::textMessageReceived, [this](const QString& text) {
            m_frames.push_back(json::parse(text.toStdString(), nullptr, false));
            wake();
        });
        QObject::connect(&m_socket, &QWebSocket::connected, [this] {
            m_connected = true;
            wake();
        });
        QObject::connect(&m_socket, &QWebSocket::disconnected, [this] {
            m_closed = true;
            wake();
        });
        QUrl url = server.url("api/live");
        url.setScheme("ws");
        QNetworkRequest request(url);
        if (!token.isEmpty()) {
            request.setRawHeader("Authorization", "Bearer " + token.toLatin1());
        }
        m_socket.open(request);
    }

    bool waitConnected(std::chrono::milliseconds bound = 5s) {
        waitUntil([this] { return m_connected || m_closed; }, bound);
        return m_connected;
    }

    // Frames given to a socket that is still opening would be lost.
    void send(const json& frame) {
        if (!waitConnected()) {
            throw std::runtime_error("the websocket did not open");
        }
        m_socket.sendTextMessage(QString::fromStdString(frame.dump()));
    }

    void sub(const std::string& topic) { send(json{{"type", "sub"}, {"topic", topic}}); }

    // The next frame, or a failure of the test when none comes within the bound.
    json next(std::chrono::milliseconds bound = 5s) {
        waitUntil([this] { return !m_frames.empty() || m_closed; }, bound);
        if (m_frames.empty()) {
            throw std::runtime_error(m_closed ? "socket closed while waiting for a frame"
                                              : "no frame within the bound");
        }
        auto frame = m_frames.front();
        m_frames.pop_front();
        return frame;
    }

    // The next frame that is not a ping (pings are answered).
    json nextData(std::chrono::milliseconds bound = 5s) {
        while (true) {
            auto frame = next(bound);
            if (frame.value("type", "") == "ping") {
                send(json{{"type", "pong"}});
                continue;
            }
            return frame;
        }
    }

    bool waitClosed(std::chrono::milliseconds bound = 5s) {
        waitUntil([this] { return m_closed; }, bound);
        return m_closed;
    }

    bool hasFrames() const { return !m_frames.empty(); }
    QWebSocket& socket() { return m_socket; }

private:
    void wake() {
        if (m_loop) {
            m_loop->quit();
        }
    }

    void waitUntil(const std::function<bool()>& done, std::chrono::milliseconds bound) {
        QTimer timer;
        timer.setSingleShot(true);
        timer.start(bound);
        while (!done() && timer.isActive()) {
            QEventLoop loop;
            m_loop = &loop;
            QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
            loop.exec();
            m_loop = nullptr;
        }
    }

    QWebSocket m_socket;
    std::deque<json> m_frames;
    bool m_connected = false;
    bool m_closed = false;
    QEventLoop* m_loop = nullptr;
};

} // namespace kit

namespace kit {

// A server with one user signed in, and requests on that user's behalf.
struct SignedIn {
    explicit SignedIn(const QStringList& arguments = {}, const QString& user = "u-001")
        : server(arguments), tokens(signIn(server, network, user)) {}

    HttpResult get(const QString& path, QList<QPair<QByteArray, QByteArray>> headers = {}) {
        return httpRequest(network, "GET", server.url(path), {}, bearer(tokens.access) + headers);
    }
    HttpResult send(const QByteArray& method, const QString& path, const json& body) {
        return httpRequest(network, method, server.url(path), dump(body),
                           bearerJson(tokens.access));
    }
    HttpResult raw(const QByteArray& method, const QString& path, const QByteArray& body = {},
                   QList<QPair<QByteArray, QByteArray>> headers = {}) {
        return httpRequest(network, method, server.url(path), body,
                           bearer(tokens.access) + headers);
    }

    DevServer server;
    QNetworkAccessManager network;
    Tokens tokens;
};

} // namespace kit

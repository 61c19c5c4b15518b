#include "Server.h"

#include "OAuthLogic.h"
#include "PhoneSystem.h"

#include <QRandomGenerator>
#include <QTimer>
#include <QUrl>
#include <QUuid>
#include <QWebSocket>

#include <cstdio>

namespace rzdev {

namespace {

constexpr const char* clientId = "rz-mobile";
constexpr const char* redirectUri = "rzmobile://oauth/callback";
constexpr qint64 codeLifetimeMs = 60 * 1000;

QByteArray dump(const Json& json) {
    return QByteArray::fromStdString(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

HttpResponse jsonReply(int status, const Json& json) {
    return HttpResponse::bytes(status, dump(json), "application/json");
}

HttpResponse errorReply(int status, const std::string& code, const std::string& message) {
    return jsonReply(status, Json{{"error", code}, {"message", message}});
}

HttpResponse oauthError(const std::string& code, const std::string& description = {}) {
    Json body = Json{{"error", code}};
    if (!description.empty())
        body["error_description"] = description;
    auto reply = jsonReply(400, body);
    reply.addHeader("Cache-Control", "no-store");
    return reply;
}

// Parses a JSON object body; on failure `error` holds the answer to give.
std::optional<Json> objectBody(const HttpRequest& request, HttpResponse& error) {
    // As a web framework would: a body of another type is not read as JSON.
    if (!request.header("Content-Type").toLower().startsWith("application/json")) {
        error = errorReply(415, "unsupported_media_type", "send the body as application/json");
        return std::nullopt;
    }
    Json body = Json::parse(request.body.constData(),
                            request.body.constData() + request.body.size(), nullptr, false);
    if (body.is_discarded()) {
        error = errorReply(400, "bad_request", "malformed JSON body");
        return std::nullopt;
    }
    if (!body.is_object()) {
        error = errorReply(400, "bad_request", "the body must be a JSON object");
        return std::nullopt;
    }
    return body;
}

// Reads an optional boolean field; false when present with another type.
bool optionalBool(const Json& body, const char* key, std::optional<bool>& out) {
    if (!body.contains(key) || body[key].is_null())
        return true;
    if (!body[key].is_boolean())
        return false;
    out = body[key].get<bool>();
    return true;
}

std::string str(const Json& body, const char* key) {
    auto it = body.find(key);
    return it != body.end() && it->is_string() ? it->get<std::string>() : std::string();
}

QString htmlEscape(const std::string& text) {
    return QString::fromStdString(text).toHtmlEscaped();
}

// A forwarding target as the dashboard accepts it; empty message when valid.
std::string checkTarget(const Json& target) {
    if (!target.is_object() || !target.contains("type") || !target["type"].is_string()) {
        return "a target needs a \"type\"";
    }
    const auto type = target["type"].get<std::string>();
    if (type == "user" || type == "group" || type == "flow" || type == "voicemail") {
        if (!target.contains("id") || !target["id"].is_string()) {
            return "a " + type + " target needs an \"id\"";
        }
    } else if (type == "external") {
        if (!target.contains("number") || !target["number"].is_string()) {
            return "an external target needs a \"number\"";
        }
    } else if (type != "hangup") {
        return "unknown target type \"" + type + "\"";
    }
    return {};
}

Json normalTarget(const Json& target) {
    const auto type = target["type"].get<std::string>();
    Json out = Json{{"type", type}};
    if (type == "external")
        out["number"] = target["number"];
    else if (type != "hangup")
        out["id"] = target["id"];
    return out;
}

bool isForm(const HttpRequest& request) {
    return request.header("Content-Type").toLower().startsWith("application/x-www-form-urlencoded");
}

std::vector<std::string> splitPath(const QString& path) {
    std::vector<std::string> parts;
    for (const auto& part : path.split('/')) {
        parts.push_back(part.toStdString());
    }
    return parts;
}

} // namespace

std::optional<Edge> parseEdge(const QString& text) {
    const auto parts = text.split(':');
    if (parts.size() != 3)
        return std::nullopt;
    bool ok = false;
    const int port = parts[2].toInt(&ok);
    if (!ok || port <= 0 || port > 65535 || parts[0].isEmpty() || parts[1].isEmpty()) {
        return std::nullopt;
    }
    return Edge{parts[0].toStdString(), parts[1].toStdString(), port};
}

Server::Server(Config config, QObject* parent)
    : QObject(parent), m_config(std::move(config)), m_model(m_clock), m_router(m_model, {}) {
    m_edgesGiven = !m_config.edges.empty();
    if (m_config.edges.empty()) {
        m_config.edges.push_back({"tcp", "127.0.0.1", 5060});
    }
    m_model.loadDemo(m_config.directorySize);
    addRoutes();
    addControlRoutes();
    addPhoneRoutes();
    m_http.setHandler([this](const HttpRequest& r, Responder responder) { handle(r, responder); });
    m_http.setUpgradeHandler([this](const HttpRequest& r) { return upgrade(r); });
    connect(&m_http, &HttpServer::newWebSocket, this, &Server::adopt);
    m_expiryTimer = new QTimer(this);
    m_expiryTimer->setInterval(100);
    connect(m_expiryTimer, &QTimer::timeout, this, &Server::checkExpiry);
    m_expiryTimer->start();
}

Server::~Server() {
    for (auto& s : m_sockets) {
        s.ws->disconnect(this);
        s.ws->abort();
        s.ws->deleteLater();
    }
}

bool Server::start() {
    if (!m_config.autoApprove.isEmpty() && !findUser(m_config.autoApprove)) {
        std::fprintf(stderr, "rz-devserver: --auto-approve names no user: %s\n",
                     qPrintable(m_config.autoApprove));
        return false;
    }
    if (!m_http.listen(m_config.port)) {
        std::fprintf(stderr, "rz-devserver: cannot listen on 127.0.0.1:%u\n",
                     unsigned(m_config.port));
        return false;
    }
    if (m_config.phone && !startPhone()) {
        return false;
    }
    if (m_config.demo) {
        startDemoActivity();
    }
    return true;
}

// In the demo the company lives: colleagues change presence and callers come
// and go in the support queue, so that every screen has something to show.
void Server::startDemoActivity() {
    auto* timer = new QTimer(this);
    timer->setInterval(6000);
    connect(timer, &QTimer::timeout, this, &Server::demoTick);
    timer->start();
    if (m_phone) {
        // About once a minute a colleague rings Anna, when she has a phone and is free.
        auto* caller = new QTimer(this);
        caller->setInterval(60000);
        connect(caller, &QTimer::timeout, this, [this] { demoCall(); });
        caller->start();
    }
}

void Server::demoTick() {
    static const char* states[] = {"idle", "busy", "ringing", "idle", "offline", "busy"};
    auto& random = *QRandomGenerator::global();
    const auto count = std::min<size_t>(m_model.users.size(), 12);
    User& user = m_model.users[1 + random.bounded(int(count) - 1)];
    if (user.presence != "dnd") {
        user.presence = states[random.bounded(int(std::size(states)))];
        publishPresence(user);
    }
    Queue& queue = m_model.queues.front();
    if (queue.waiting.size() < 4 && random.bounded(2) == 0) {
        QueueWaiting w;
        w.callId = m_model.nextId("qc-");
        w.from = "+49151" + std::to_string(1000000 + random.bounded(8999999));
        w.position = int(queue.waiting.size()) + 1;
        w.sinceMs = m_clock.nowMs();
        queue.waiting.push_back(w);
    } else if (!queue.waiting.empty()) {
        queue.waiting.erase(queue.waiting.begin());
        for (size_t i = 0; i < queue.waiting.size(); ++i) {
            queue.waiting[i].position = int(i) + 1;
        }
    }
    publishBoard(queue);
}

void Server::add(const char* method, const char* pattern, bool bearer, Handler handler) {
    m_routes.push_back(
        {method, splitPath(QString::fromLatin1(pattern)), bearer, std::move(handler)});
}

void Server::record(const HttpRequest& request) {
    Json headers = Json::array();
    for (const auto& [key, value] : request.headers) {
        headers.push_back(Json::array({key.toStdString(), value.toStdString()}));
    }
    Json entry = Json::object();
    entry["method"] = request.method.toStdString();
    entry["path"] = request.path.toStdString();
    entry["query"] = request.queryText.toStdString();
    entry["headers"] = std::move(headers);
    const auto text = QString::fromUtf8(request.body);
    if (text.toUtf8() == request.body) {
        entry["body"] = request.body.toStdString();
    } else {
        entry["bodyBase64"] = request.body.toBase64().toStdString();
    }
    entry["bodySize"] = request.body.size();
    entry["at"] = m_clock.nowMs();
    m_requests.push_back(std::move(entry));
    // A long demo would otherwise keep every request forever.
    constexpr size_t keep = 5000;
    if (m_requests.size() > keep) {
        m_requests.erase(m_requests.begin(), m_requests.begin() + (m_requests.size() - keep));
    }
}

void Server::handle(const HttpRequest& request, Responder responder) {
    const bool control = request.path.startsWith(QLatin1String("_control/")) ||
                         request.path == QLatin1String("_control");
    if (control) {
        if (!request.peer.isLoopback()) {
            responder.send(errorReply(403, "forbidden", "the control interface is loopback only"));
            return;
        }
        // Waits, within a bound, until the phone system is ready.
        if (request.path == QLatin1String("_control/phone/ready") && m_phone &&
            !m_phone->isReady()) {
            m_readyWaiters.push_back(responder);
            auto sink = responder.sink;
            QTimer::singleShot(15000, this, [this, sink] {
                const auto before = m_readyWaiters.size();
                std::erase_if(m_readyWaiters, [&](const Responder& w) { return w.sink == sink; });
                if (m_readyWaiters.size() != before) {
                    Responder{sink}.send(
                        errorReply(503, "not_ready", "the phone system did not become ready"));
                }
            });
            return;
        }
        responder.send(dispatch(request));
        return;
    }
    record(request);
    if (m_config.demo) {
        // An access line per request, so that the demo shows what the client asks.
        auto sink = responder.sink;
        const auto line =
            request.method + " /" + request.path.toUtf8() +
            (request.queryText.isEmpty() ? QByteArray() : "?" + request.queryText.toUtf8());
        responder.sink = std::make_shared<std::function<void(const HttpResponse&)>>(
            [sink, line](const HttpResponse& response) {
                std::fprintf(stderr, "%s %d\n", line.constData(), response.status);
                Responder{sink}.send(response);
            });
    }
    for (auto& fault : m_faults) {
        if (fault.remaining <= 0)
            continue;
        if (!fault.method.isEmpty() && fault.method != request.method)
            continue;
        const bool matches = fault.path.endsWith('*')
                                 ? request.path.startsWith(fault.path.chopped(1))
                                 : request.path == fault.path;
        if (!matches)
            continue;
        --fault.remaining;
        const Fault f = fault;
        auto answer = [this, f, request]() {
            if (f.garbage) {
                return HttpResponse::bytes(f.status ? f.status : 200,
                                           QByteArray("\xff\xfe{\"not json", 11),
                                           "application/json");
            }
            if (f.status) {
                HttpResponse reply;
                reply.status = f.status;
                reply.body = f.body;
                if (!f.body.isEmpty()) {
                    reply.addHeader("Content-Type", f.body.startsWith('{') || f.body.startsWith('[')
                                                        ? "application/json"
                                                        : "text/plain");
                }
                return reply;
            }
            return dispatch(request);
        };
        if (f.delayMs > 0) {
            QTimer::singleShot(f.delayMs, this, [responder, answer] { responder.send(answer()); });
        } else {
            responder.send(answer());
        }
        return;
    }
    responder.send(dispatch(request));
}

HttpResponse Server::dispatch(const HttpRequest& request) {
    const auto parts = splitPath(request.path);
    QList<QByteArray> allowed;
    for (const auto& route : m_routes) {
        if (route.pattern.size() != parts.size())
            continue;
        Params params;
        bool matches = true;
        for (size_t i = 0; i < parts.size() && matches; ++i) {
            const auto& p = route.pattern[i];
            if (!p.empty() && p[0] == ':') {
                if (parts[i].empty())
                    matches = false;
                else
                    params[p.substr(1)] = parts[i];
            } else if (p != parts[i]) {
                matches = false;
            }
        }
        if (!matches)
            continue;
        if (route.method != request.method) {
            allowed.append(route.method);
            continue;
        }
        Context context;
        if (route.bearer) {
            const auto user = bearerUser(request);
            if (!user) {
                auto reply = errorReply(401, "invalid_token", "a valid bearer token is required");
                reply.addHeader("WWW-Authenticate", "Bearer realm=\"rz\", error=\"invalid_token\"");
                return reply;
            }
            context.userId = *user;
        }
        try {
            return route.handler(request, params, context);
        } catch (const std::exception& e) {
            return errorReply(500, "internal", e.what());
        }
    }
    if (!allowed.isEmpty()) {
        auto reply = errorReply(405, "method_not_allowed",
                                request.method.toStdString() + " is not allowed on /" +
                                    request.path.toStdString());
        reply.addHeader("Allow", allowed.join(", "));
        return reply;
    }
    return errorReply(404, "not_found", "no such path: /" + request.path.toStdString());
}

std::optional<std::string> Server::bearerUser(const HttpRequest& request, QString* tokenOut) {
    const auto header = request.header("Authorization");
    if (!header.startsWith("Bearer "))
        return std::nullopt;
    const auto token = QString::fromLatin1(header.mid(7).trimmed());
    const auto it = m_access.find(token);
    if (it == m_access.end() || it->second.revoked || it->second.expiresMs <= m_clock.nowMs()) {
        return std::nullopt;
    }
    if (tokenOut)
        *tokenOut = token;
    return it->second.userId;
}

User* Server::findUser(const QString& key) {
    const auto k = key.toStdString();
    for (auto& u : m_model.users) {
        if (u.id == k || u.extension == k || u.email == k)
            return &u;
    }
    return nullptr;
}

// ---------------------------------------------------------------- OAuth

HttpResponse Server::authorizePage(const HttpRequest& request) {
    const auto q = [&](const char* name) {
        return request.query.queryItemValue(QLatin1String(name), QUrl::FullyDecoded);
    };
    auto refuse = [](const QString& why) {
        return HttpResponse::bytes(
            400,
            ("<!doctype html><title>Sign-in refused</title><p>" + why.toHtmlEscaped() + "</p>\n")
                .toUtf8(),
            "text/html; charset=utf-8");
    };
    if (q("response_type") != QLatin1String("code"))
        return refuse("response_type must be code");
    if (q("client_id") != QLatin1String(clientId))
        return refuse("unknown client_id");
    if (q("redirect_uri") != QLatin1String(redirectUri))
        return refuse("redirect_uri not registered");
    if (q("code_challenge_method") != QLatin1String("S256")) {
        return refuse("code_challenge_method must be S256");
    }
    const auto challenge = q("code_challenge");
    if (challenge.size() < 43)
        return refuse("code_challenge missing or too short");
    const auto state = request.query.hasQueryItem("state") ? std::optional(q("state").toStdString())
                                                           : std::nullopt;
    const auto id = randomToken(12);
    m_pending[id] = {challenge.toStdString(), state};

    if (!m_config.autoApprove.isEmpty()) {
        HttpRequest decision;
        decision.body = "request=" + QUrl::toPercentEncoding(id) +
                        "&user=" + QUrl::toPercentEncoding(m_config.autoApprove) +
                        "&decision=allow";
        return authorizeDecision(decision);
    }
    QString html =
        QStringLiteral(
            "<!doctype html><html><head><meta charset=\"utf-8\"><title>Sign in to velnor RZ</title>"
            "</head><body><h1>Sign in to velnor RZ</h1><p>rz-mobile asks to use your account.</p>"
            "<form method=\"post\" action=\"/oauth/authorize\">"
            "<input type=\"hidden\" name=\"request\" value=\"%1\"><fieldset><legend>Demo "
            "users</legend>")
            .arg(id);
    bool first = true;
    for (const auto& u : m_model.users) {
        if (&u - &m_model.users[0] >= 12)
            break;
        html += QStringLiteral("<label><input type=\"radio\" name=\"user\" value=\"%1\"%2> %3 "
                               "(%4, %5)</label><br>")
                    .arg(htmlEscape(u.id), first ? QStringLiteral(" checked") : QString(),
                         htmlEscape(u.name), htmlEscape(u.extension), htmlEscape(u.email));
        first = false;
    }
    html += QStringLiteral(
        "</fieldset><button type=\"submit\" name=\"decision\" value=\"allow\">Allow</button> "
        "<button type=\"submit\" name=\"decision\" value=\"deny\">Deny</button></form>"
        "</body></html>\n");
    return HttpResponse::bytes(200, html.toUtf8(), "text/html; charset=utf-8");
}

HttpResponse Server::authorizeDecision(const HttpRequest& request) {
    const auto form = decodeForm(request.body);
    if (!form)
        return errorReply(400, "invalid_request", "malformed form body");
    const auto id = formValue(*form, "request").value_or(QString());
    const auto it = m_pending.find(id);
    if (it == m_pending.end()) {
        return errorReply(400, "invalid_request", "unknown or finished sign-in request");
    }
    const auto pending = it->second;
    m_pending.erase(it);
    QUrl target(QString::fromLatin1(redirectUri));
    QUrlQuery query;
    if (formValue(*form, "decision").value_or(QString()) != QLatin1String("allow")) {
        query.addQueryItem("error", "access_denied");
    } else {
        User* user = findUser(formValue(*form, "user").value_or(QString()));
        if (!user)
            return errorReply(400, "invalid_request", "unknown user");
        const auto code = randomToken(24);
        m_codes[code] = {user->id, pending.challenge, m_clock.nowMs() + codeLifetimeMs, false};
        query.addQueryItem("code", code);
    }
    if (pending.state) {
        query.addQueryItem("state", QString::fromStdString(*pending.state));
    }
    target.setQuery(query);
    HttpResponse reply;
    reply.status = 302;
    reply.addHeader("Location", target.toString(QUrl::FullyEncoded).toUtf8());
    reply.addHeader("Cache-Control", "no-store");
    return reply;
}

HttpResponse Server::issueTokens(const std::string& userId, const std::string& grant) {
    const auto access = randomToken(32);
    // Standard base64 on purpose: a refresh token with "+" and "/" shows whether
    // the client escapes its form bodies.
    QByteArray raw(30, Qt::Uninitialized);
    for (auto& b : raw)
        b = char(QRandomGenerator::system()->bounded(256));
    const auto refresh = QStringLiteral("rt+") + QString::fromLatin1(raw.toBase64());
    m_access[access] = {userId, m_clock.nowMs() + qint64(m_config.accessTtlS) * 1000, false, grant};
    m_refresh[refresh] = {userId, grant};
    auto reply = jsonReply(200, Json{{"access_token", access.toStdString()},
                                     {"token_type", "Bearer"},
                                     {"expires_in", m_config.accessTtlS},
                                     {"refresh_token", refresh.toStdString()}});
    reply.addHeader("Cache-Control", "no-store");
    return reply;
}

HttpResponse Server::token(const HttpRequest& request) {
    if (!isForm(request))
        return oauthError("invalid_request", "send a form body");
    const auto form = decodeForm(request.body);
    if (!form)
        return oauthError("invalid_request", "malformed form body");
    const auto field = [&](const char* name) { return formValue(*form, name); };
    const auto client = field("client_id");
    if (client && *client != QLatin1String(clientId))
        return oauthError("invalid_client");
    const auto grant = field("grant_type");
    if (!grant)
        return oauthError("invalid_request", "grant_type is missing");
    if (*grant == QLatin1String("authorization_code")) {
        if (!client)
            return oauthError("invalid_client", "client_id is missing");
        const auto code = field("code");
        const auto verifier = field("code_verifier");
        const auto redirect = field("redirect_uri");
        if (!code || !verifier || !redirect) {
            return oauthError("invalid_request",
                              "code, code_verifier and redirect_uri are required");
        }
        const auto it = m_codes.find(*code);
        if (it == m_codes.end())
            return oauthError("invalid_grant", "unknown code");
        if (it->second.used)
            return oauthError("invalid_grant", "code already used");
        it->second.used = true;
        if (it->second.expiresMs <= m_clock.nowMs())
            return oauthError("invalid_grant", "code expired");
        if (*redirect != QLatin1String(redirectUri)) {
            return oauthError("invalid_grant", "redirect_uri does not match");
        }
        if (!verifierMatches(*verifier, QString::fromStdString(it->second.challenge))) {
            return oauthError("invalid_grant", "code_verifier does not match the challenge");
        }
        return issueTokens(it->second.userId, m_model.nextId("grant-"));
    }
    if (*grant == QLatin1String("refresh_token")) {
        const auto refresh = field("refresh_token");
        if (!refresh)
            return oauthError("invalid_request", "refresh_token is missing");
        const auto it = m_refresh.find(*refresh);
        if (it == m_refresh.end())
            return oauthError("invalid_grant", "unknown or used refresh token");
        const auto next = it->second;
        m_refresh.erase(it); // rotation: a refresh token works once
        return issueTokens(next.userId, next.grant);
    }
    return oauthError("unsupported_grant_type");
}

HttpResponse Server::revoke(const HttpRequest& request) {
    if (!isForm(request))
        return oauthError("invalid_request", "send a form body");
    const auto form = decodeForm(request.body);
    if (!form)
        return oauthError("invalid_request", "malformed form body");
    const auto client = formValue(*form, "client_id");
    if (client && *client != QLatin1String(clientId))
        return oauthError("invalid_client");
    const auto token = formValue(*form, "token");
    if (!token)
        return oauthError("invalid_request", "token is missing");
    // A revoked refresh token takes the access tokens of its sign-in with it.
    if (auto it = m_refresh.find(*token); it != m_refresh.end()) {
        const auto grant = it->second.grant;
        m_refresh.erase(it);
        for (auto& [key, access] : m_access) {
            if (access.grant == grant)
                access.revoked = true;
        }
    }
    if (auto it = m_access.find(*token); it != m_access.end())
        it->second.revoked = true;
    return HttpResponse::empty(200);
}

// ---------------------------------------------------------------- REST

void Server::addRoutes() {
    add("GET", "oauth/authorize", false,
        [this](const HttpRequest& r, const Params&, Context&) { return authorizePage(r); });
    add("POST", "oauth/authorize", false,
        [this](const HttpRequest& r, const Params&, Context&) { return authorizeDecision(r); });
    add("POST", "oauth/token", false,
        [this](const HttpRequest& r, const Params&, Context&) { return token(r); });
    add("POST", "oauth/revoke", false,
        [this](const HttpRequest& r, const Params&, Context&) { return revoke(r); });

    add("GET", "api/me", true, [this](const HttpRequest&, const Params&, Context& c) {
        return jsonReply(200, m_model.meJson(*m_model.user(c.userId)));
    });

    add("PUT", "api/me/forwarding", true, [this](const HttpRequest& r, const Params&, Context& c) {
        HttpResponse error;
        const auto body = objectBody(r, error);
        if (!body)
            return error;
        Json rules = Json::object();
        for (const char* key : {"always", "busy", "noAnswer", "offline"}) {
            if (!body->contains(key)) {
                return errorReply(400, "bad_request",
                                  std::string("forwarding needs all four rules; \"") + key +
                                      "\" is missing (null clears a rule)");
            }
            const Json& rule = (*body)[key];
            if (rule.is_null()) {
                rules[key] = nullptr;
                continue;
            }
            if (std::string(key) == "noAnswer") {
                if (!rule.is_object() || !rule.contains("afterS") ||
                    !rule["afterS"].is_number_integer() || !rule.contains("target")) {
                    return errorReply(400, "bad_request",
                                      "noAnswer needs an integer \"afterS\" and a \"target\"");
                }
                if (auto why = checkTarget(rule["target"]); !why.empty()) {
                    return errorReply(400, "bad_request", "noAnswer: " + why);
                }
                rules[key] =
                    Json{{"afterS", rule["afterS"]}, {"target", normalTarget(rule["target"])}};
            } else {
                if (auto why = checkTarget(rule); !why.empty()) {
                    return errorReply(400, "bad_request", std::string(key) + ": " + why);
                }
                rules[key] = normalTarget(rule);
            }
        }
        m_model.user(c.userId)->forwarding = rules;
        return jsonReply(200, rules);
    });

    add("PATCH", "api/users/:user", true,
        [this](const HttpRequest& r, const Params& p, Context& c) {
            User* user = m_model.user(p.at("user"));
            if (!user)
                return errorReply(404, "not_found", "no such user");
            if (user->id != c.userId) {
                return errorReply(403, "forbidden", "you may change only your own do-not-disturb");
            }
            HttpResponse error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            if (!body->contains("dnd") || !(*body)["dnd"].is_boolean()) {
                return errorReply(400, "bad_request", "\"dnd\" must be a boolean");
            }
            user->dnd = (*body)["dnd"].get<bool>();
            const auto presence =
                *user->dnd ? "dnd" : (user->presence == "dnd" ? "idle" : user->presence);
            if (user->presence != presence) {
                user->presence = presence;
                publishPresence(*user);
            }
            return HttpResponse::empty(204);
        });

    add("GET", "api/directory", true, [this](const HttpRequest& r, const Params&, Context&) {
        const auto& tag = m_model.directoryETag();
        const auto wanted = r.header("If-None-Match");
        bool match = false;
        for (auto candidate : wanted.split(',')) {
            candidate = candidate.trimmed();
            if (candidate.startsWith("W/"))
                candidate = candidate.mid(2);
            if (candidate == "*" || candidate == tag)
                match = true;
        }
        HttpResponse reply;
        if (match) {
            reply.status = 304;
        } else {
            reply = HttpResponse::bytes(200, m_model.directoryBytes(), "application/json");
        }
        reply.addHeader("ETag", tag);
        reply.addHeader("Cache-Control", "no-cache");
        return reply;
    });

    add("GET", "media/avatars/:file", true, [this](const HttpRequest&, const Params& p, Context&) {
        auto file = QString::fromStdString(p.at("file"));
        if (!file.endsWith(QLatin1String(".jpg")))
            return errorReply(404, "not_found", "no such picture");
        User* user = m_model.user(file.chopped(4).toStdString());
        if (!user || user->avatarVersion == 0)
            return errorReply(404, "not_found", "no such picture");
        auto reply = HttpResponse::bytes(200, m_model.avatarJpeg(*user), "image/jpeg");
        reply.addHeader("Cache-Control", "private, max-age=86400");
        return reply;
    });

    add("PUT", "api/me/avatar", true, [this](const HttpRequest& r, const Params&, Context& c) {
        if (!r.header("Content-Type").startsWith("image/jpeg")) {
            return errorReply(415, "unsupported_media_type", "send the picture as image/jpeg");
        }
        if (!r.body.startsWith("\xff\xd8\xff")) {
            return errorReply(400, "bad_request", "the body is not a JPEG picture");
        }
        User* user = m_model.user(c.userId);
        user->avatarJpeg = r.body;
        // Versions never repeat, so that no client cache mistakes a new picture for an old one.
        user->avatarVersion = ++m_model.avatarSerial;
        m_model.directoryChanged();
        return jsonReply(200, Json{{"avatar", m_model.avatarRef(*user)}});
    });

    add("DELETE", "api/me/avatar", true, [this](const HttpRequest&, const Params&, Context& c) {
        User* user = m_model.user(c.userId);
        user->avatarVersion = 0;
        user->avatarJpeg.clear();
        m_model.directoryChanged();
        return HttpResponse::empty(204);
    });

    add("POST", "api/me/app-device", true, [this](const HttpRequest& r, const Params&, Context& c) {
        HttpResponse error;
        const auto body = objectBody(r, error);
        if (!body)
            return error;
        for (const char* key : {"installId", "name", "platform"}) {
            if (!body->contains(key) || !(*body)[key].is_string() ||
                (*body)[key].get<std::string>().empty()) {
                return errorReply(400, "bad_request",
                                  std::string("\"") + key + "\" must be a non-empty string");
            }
        }
        if (body->contains("model") && !(*body)["model"].is_string()) {
            return errorReply(400, "bad_request", "\"model\" must be a string");
        }
        const auto installId = str(*body, "installId");
        Device* device = nullptr;
        for (auto& d : m_model.devices) {
            if (d.userId == c.userId && d.installId == installId)
                device = &d;
        }
        User* user = m_model.user(c.userId);
        if (!device) {
            Device d;
            d.id = m_model.nextId("dev-");
            d.userId = c.userId;
            d.installId = installId;
            d.sipUsername = "acme." + user->extension + "." + d.id.substr(4);
            d.password = randomToken(18).toStdString();
            m_model.devices.push_back(d);
            device = &m_model.devices.back();
        }
        device->name = str(*body, "name");
        device->platform = str(*body, "platform");
        device->model = str(*body, "model");
        Json edges = Json::array();
        for (const auto& e : m_config.edges) {
            edges.push_back(Json{{"host", e.host}, {"port", e.port}, {"transport", e.transport}});
        }
        return jsonReply(200, Json{{"deviceId", device->id},
                                   {"name", device->name},
                                   {"sipUsername", device->sipUsername},
                                   {"password", device->password},
                                   {"realm", m_model.realm},
                                   {"srtp", false},
                                   {"edge", edges}});
    });

    add("DELETE", "api/devices/:device", true,
        [this](const HttpRequest&, const Params& p, Context& c) {
            auto& devices = m_model.devices;
            for (auto it = devices.begin(); it != devices.end(); ++it) {
                if (it->id == p.at("device")) {
                    if (it->userId != c.userId)
                        return errorReply(403, "forbidden", "not your device");
                    // Its bindings die with it: no call is routed to a device that is gone.
                    const std::string sipUser = it->sipUsername;
                    std::erase_if(m_registrations, [&](const auto& entry) {
                        return entry.second.sipUser == sipUser;
                    });
                    devices.erase(it);
                    return HttpResponse::empty(204);
                }
            }
            return errorReply(404, "not_found", "no such device");
        });

    add("GET", "api/voicemail-boxes/:box/messages", true,
        [this](const HttpRequest&, const Params& p, Context& c) {
            bool known = false;
            for (const auto& u : m_model.users)
                known = known || u.voicemailBoxId == p.at("box");
            if (!known)
                return errorReply(404, "not_found", "no such mailbox");
            if (m_model.user(c.userId)->voicemailBoxId != p.at("box")) {
                return errorReply(403, "forbidden", "not your mailbox");
            }
            Json list = Json::array();
            for (const auto& m : m_model.messages) {
                if (m.boxId == p.at("box"))
                    list.push_back(m_model.voicemailJson(m));
            }
            return jsonReply(200, list);
        });

    auto ownMessage = [this](const std::string& id, const std::string& userId,
                             HttpResponse& error) -> VoicemailMessage* {
        VoicemailMessage* m = m_model.voicemail(id);
        if (!m) {
            error = errorReply(404, "not_found", "no such message");
            return nullptr;
        }
        if (m_model.user(userId)->voicemailBoxId != m->boxId) {
            error = errorReply(403, "forbidden", "not your message");
            return nullptr;
        }
        return m;
    };

    add("PATCH", "api/voicemail-messages/:id", true,
        [this, ownMessage](const HttpRequest& r, const Params& p, Context& c) {
            HttpResponse error;
            VoicemailMessage* m = ownMessage(p.at("id"), c.userId, error);
            if (!m)
                return error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            if (!body->contains("read") || !(*body)["read"].is_boolean()) {
                return errorReply(400, "bad_request", "\"read\" must be a boolean");
            }
            if ((*body)["read"].get<bool>()) {
                if (!m->readMs)
                    m->readMs = m_clock.nowMs();
            } else {
                m->readMs.reset();
            }
            return HttpResponse::empty(204);
        });

    add("DELETE", "api/voicemail-messages/:id", true,
        [this, ownMessage](const HttpRequest&, const Params& p, Context& c) {
            HttpResponse error;
            VoicemailMessage* m = ownMessage(p.at("id"), c.userId, error);
            if (!m)
                return error;
            std::erase_if(m_model.messages, [&](const auto& x) { return x.id == p.at("id"); });
            return HttpResponse::empty(204);
        });

    add("GET", "api/voicemail-messages/:id/audio", true,
        [this, ownMessage](const HttpRequest&, const Params& p, Context& c) {
            HttpResponse error;
            VoicemailMessage* m = ownMessage(p.at("id"), c.userId, error);
            if (!m)
                return error;
            return HttpResponse::bytes(200, m_model.voicemailWav(*m), "audio/wav");
        });

    add("GET", "api/calls", true, [this](const HttpRequest& r, const Params&, Context& c) {
        int limit = 50;
        if (r.query.hasQueryItem("limit")) {
            bool ok = false;
            limit = r.query.queryItemValue("limit").toInt(&ok);
            if (!ok || limit < 1 || limit > 200) {
                return errorReply(400, "bad_request", "limit must be between 1 and 200");
            }
        }
        std::optional<qint64> before;
        if (r.query.hasQueryItem("before")) {
            const auto text = r.query.queryItemValue("before", QUrl::FullyDecoded).toStdString();
            before = parseIso(text);
            if (!before)
                return errorReply(400, "bad_request", "before must be an ISO 8601 time");
        }
        return jsonReply(200, m_model.callLogPage(c.userId, limit, before));
    });

    add("GET", "api/me/queues", true, [this](const HttpRequest&, const Params&, Context& c) {
        return jsonReply(200, m_model.membershipsJson(c.userId));
    });

    add("POST", "api/queues/:queue/agent", true,
        [this](const HttpRequest& r, const Params& p, Context& c) {
            Queue* queue = m_model.queue(p.at("queue"));
            if (!queue)
                return errorReply(404, "not_found", "no such queue");
            QueueAgent* agent = nullptr;
            for (auto& a : queue->agents) {
                if (a.userId == c.userId)
                    agent = &a;
            }
            if (!agent)
                return errorReply(403, "forbidden", "you are not an agent of this queue");
            HttpResponse error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            std::optional<bool> loggedIn, paused;
            if (!optionalBool(*body, "loggedIn", loggedIn) ||
                !optionalBool(*body, "paused", paused)) {
                return errorReply(400, "bad_request",
                                  "\"loggedIn\" and \"paused\" must be booleans");
            }
            if (loggedIn) {
                if (!*loggedIn)
                    agent->state = "logged_out";
                else if (agent->state == "logged_out")
                    agent->state = "available";
            }
            if (paused && agent->state != "logged_out") {
                if (*paused)
                    agent->state = "paused";
                else if (agent->state == "paused")
                    agent->state = "available";
            }
            publishBoard(*queue);
            return HttpResponse::empty(204);
        });

    auto ownCall = [this](const std::string& id, const std::string& userId,
                          HttpResponse& error) -> LiveCall* {
        LiveCall* call = m_model.call(id);
        if (!call || call->owner != userId) {
            error = errorReply(404, "not_found", "no such call");
            return nullptr;
        }
        return call;
    };

    add("POST", "api/calls/:call/recording", true,
        [this, ownCall](const HttpRequest& r, const Params& p, Context& c) {
            HttpResponse error;
            LiveCall* call = ownCall(p.at("call"), c.userId, error);
            if (!call)
                return error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            if (!body->contains("recording") || !(*body)["recording"].is_boolean()) {
                return errorReply(400, "bad_request", "\"recording\" must be a boolean");
            }
            if (m_model.user(c.userId)->recording == "never") {
                return jsonReply(
                    403, Json{{"statusMessage", "Recording is not allowed for your account"}});
            }
            call->call["recording"] = (*body)["recording"].get<bool>();
            publishCall(*call);
            return HttpResponse::empty(204);
        });

    add("POST", "api/calls/:call/merge", true,
        [this, ownCall](const HttpRequest& r, const Params& p, Context& c) {
            HttpResponse error;
            LiveCall* first = ownCall(p.at("call"), c.userId, error);
            if (!first)
                return error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            if (!body->contains("with") || !(*body)["with"].is_string()) {
                return errorReply(400, "bad_request", "\"with\" must be a call id");
            }
            const auto otherId = (*body)["with"].get<std::string>();
            if (otherId == p.at("call"))
                return errorReply(400, "bad_request", "a call cannot merge with itself");
            LiveCall* second = ownCall(otherId, c.userId, error);
            if (!second)
                return error;
            const auto now = m_clock.nowMs();
            const User* me = m_model.user(c.userId);
            Json conference = Json::object();
            const auto id = m_model.nextId("conf-");
            conference["id"] = id;
            conference["roomId"] = "room-" + id.substr(5);
            conference["hostUserId"] = c.userId;
            conference["locked"] = false;
            conference["startedAt"] = now;
            Json participants = Json::array();
            auto addParty = [&](const Json& party) {
                participants.push_back(Json{{"id", m_model.nextId("p-")},
                                            {"party", party},
                                            {"joinedAt", now},
                                            {"muted", false},
                                            {"talking", false}});
            };
            addParty(Json{{"number", me->extension}, {"name", me->name}, {"userId", me->id}});
            for (LiveCall* call : {first, second}) {
                const bool outgoing = call->call.value("direction", "") == "outbound";
                addParty(call->call.value(outgoing ? "to" : "from", Json{{"number", "unknown"}}));
            }
            conference["participants"] = std::move(participants);
            m_model.conferences.push_back(conference);
            for (const auto& callId : {p.at("call"), otherId}) {
                LiveCall* call = m_model.call(callId);
                call->call["conferenceId"] = id;
                publishCall(*call);
            }
            return jsonReply(200, Json{{"conferenceId", id}});
        });

    auto findConference = [this](const std::string& id, HttpResponse& error) -> Json* {
        Json* conference = m_model.conference(id);
        if (!conference)
            error = errorReply(404, "not_found", "no such conference");
        return conference;
    };

    add("POST", "api/conferences/:conf/participants", true,
        [this, findConference](const HttpRequest& r, const Params& p, Context&) {
            HttpResponse error;
            Json* conference = findConference(p.at("conf"), error);
            if (!conference)
                return error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            const Json target = body->value("target", Json());
            const auto type = str(target, "type");
            Json party;
            if (type == "user") {
                User* user = m_model.user(str(target, "id"));
                if (!user)
                    return errorReply(400, "bad_request", "a user target needs a known \"id\"");
                party =
                    Json{{"number", user->extension}, {"name", user->name}, {"userId", user->id}};
            } else if (type == "external") {
                if (str(target, "number").empty()) {
                    return errorReply(400, "bad_request", "an external target needs a \"number\"");
                }
                party = Json{{"number", str(target, "number")}};
            } else {
                return errorReply(400, "bad_request",
                                  "\"target\" must be of type user or external");
            }
            if ((*conference)["locked"].get<bool>()) {
                return errorReply(409, "conflict", "the conference is locked");
            }
            Json participant = Json{{"id", m_model.nextId("p-")},
                                    {"party", party},
                                    {"joinedAt", m_clock.nowMs()},
                                    {"muted", false},
                                    {"talking", false}};
            (*conference)["participants"].push_back(participant);
            publish("conference:" + p.at("conf"),
                    Json{{"op", "join"}, {"participant", participant}});
            return HttpResponse::empty(204);
        });

    auto findParticipant = [](Json& conference, const std::string& id) -> Json* {
        for (auto& participant : conference["participants"]) {
            if (participant.value("id", "") == id)
                return &participant;
        }
        return nullptr;
    };

    add("POST", "api/conferences/:conf/participants/:p/mute", true,
        [this, findConference, findParticipant](const HttpRequest& r, const Params& p, Context&) {
            HttpResponse error;
            Json* conference = findConference(p.at("conf"), error);
            if (!conference)
                return error;
            Json* participant = findParticipant(*conference, p.at("p"));
            if (!participant)
                return errorReply(404, "not_found", "no such participant");
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            if (!body->contains("muted") || !(*body)["muted"].is_boolean()) {
                return errorReply(400, "bad_request", "\"muted\" must be a boolean");
            }
            (*participant)["muted"] = (*body)["muted"];
            publish("conference:" + p.at("conf"),
                    Json{{"op", "mute"}, {"id", p.at("p")}, {"muted", (*body)["muted"]}});
            return HttpResponse::empty(204);
        });

    add("DELETE", "api/conferences/:conf/participants/:p", true,
        [this, findConference, findParticipant](const HttpRequest&, const Params& p, Context&) {
            HttpResponse error;
            Json* conference = findConference(p.at("conf"), error);
            if (!conference)
                return error;
            if (!findParticipant(*conference, p.at("p"))) {
                return errorReply(404, "not_found", "no such participant");
            }
            auto& list = (*conference)["participants"];
            for (auto it = list.begin(); it != list.end();) {
                it = it->value("id", "") == p.at("p") ? list.erase(it) : it + 1;
            }
            publish("conference:" + p.at("conf"), Json{{"op", "leave"}, {"id", p.at("p")}});
            return HttpResponse::empty(204);
        });

    add("PATCH", "api/conferences/:conf", true,
        [this, findConference](const HttpRequest& r, const Params& p, Context&) {
            HttpResponse error;
            Json* conference = findConference(p.at("conf"), error);
            if (!conference)
                return error;
            const auto body = objectBody(r, error);
            if (!body)
                return error;
            if (!body->contains("locked") || !(*body)["locked"].is_boolean()) {
                return errorReply(400, "bad_request", "\"locked\" must be a boolean");
            }
            (*conference)["locked"] = (*body)["locked"];
            publish("conference:" + p.at("conf"),
                    Json{{"op", "lock"}, {"locked", (*body)["locked"]}});
            return HttpResponse::empty(204);
        });

    add("DELETE", "api/conferences/:conf", true,
        [this, findConference](const HttpRequest&, const Params& p, Context&) {
            HttpResponse error;
            if (!findConference(p.at("conf"), error))
                return error;
            std::erase_if(m_model.conferences,
                          [&](const Json& c) { return c.value("id", "") == p.at("conf"); });
            publish("conference:" + p.at("conf"), Json{{"op", "end"}});
            for (auto& call : m_model.calls) {
                if (call.call.value("conferenceId", "") == p.at("conf")) {
                    call.call.erase("conferenceId");
                    publishCall(call);
                }
            }
            return HttpResponse::empty(204);
        });

    // The websocket lives here; a plain GET without the upgrade is refused.
    add("GET", "api/live", true, [](const HttpRequest&, const Params&, Context&) {
        return errorReply(400, "bad_request", "api/live is a websocket; send an upgrade request");
    });
}

// ---------------------------------------------------------------- Live

std::optional<HttpResponse> Server::upgrade(const HttpRequest& request) {
    if (request.path != QLatin1String("api/live")) {
        return errorReply(404, "not_found", "no websocket at /" + request.path.toStdString());
    }
    record(request);
    for (auto& fault : m_faults) {
        if (fault.remaining <= 0 || (!fault.method.isEmpty() && fault.method != "GET"))
            continue;
        const bool matches = fault.path.endsWith('*')
                                 ? request.path.startsWith(fault.path.chopped(1))
                                 : request.path == fault.path;
        if (!matches || !fault.status)
            continue;
        --fault.remaining;
        HttpResponse reply;
        reply.status = fault.status;
        reply.body = fault.body;
        return reply;
    }
    QString token;
    const auto user = bearerUser(request, &token);
    if (!user) {
        return errorReply(401, "invalid_token", "a valid bearer token is required");
    }
    m_handshakes[request.peerPort] = {*user, token, m_clock.nowMs()};
    return std::nullopt;
}

void Server::adopt(QWebSocket* ws) {
    const auto it = m_handshakes.find(ws->peerPort());
    if (it == m_handshakes.end() || !m_access.contains(it->second.token)) {
        ws->abort();
        ws->deleteLater();
        return;
    }
    LiveSocket& socket = m_sockets.emplace_back();
    socket.ws = ws;
    socket.userId = it->second.userId;
    socket.token = it->second.token;
    socket.expiresMs = m_access[socket.token].expiresMs;
    socket.silent = m_silentSockets;
    m_handshakes.erase(it);
    LiveSocket* s = &socket;
    ws->setParent(this);
    connect(ws, &QWebSocket::textMessageReceived, this,
            [this, s](const QString& text) { receive(s, text); });
    // The client's frames are text messages; a data message is a client mistake.
    connect(ws, &QWebSocket::binaryMessageReceived, this, [this, s](const QByteArray&) {
        send(s, Json{{"type", "error"}, {"code", "text_frames_only"}});
    });
    connect(ws, &QWebSocket::disconnected, this, [this, s] { forget(s); });
    s->pingTimer = new QTimer(ws);
    s->pingTimer->setInterval(std::max(10, int(m_config.pingIntervalS * 1000)));
    connect(s->pingTimer, &QTimer::timeout, this, [this, s] {
        if (s->silent)
            return;
        if (s->awaitingPong) {
            closeSocket(s, QWebSocketProtocol::CloseCodePolicyViolated, "no pong");
            return;
        }
        s->awaitingPong = true;
        ++s->pings;
        send(s, Json{{"type", "ping"}});
    });
    s->pingTimer->start();
}

void Server::forget(LiveSocket* socket) {
    for (auto it = m_sockets.begin(); it != m_sockets.end(); ++it) {
        if (&*it == socket) {
            it->pingTimer->stop();
            it->pingTimer->disconnect(this);
            it->ws->disconnect(this);
            it->ws->deleteLater();
            m_sockets.erase(it);
            return;
        }
    }
}

void Server::closeSocket(LiveSocket* socket, int code, const QString& reason) {
    socket->ws->close(QWebSocketProtocol::CloseCode(code), reason);
}

void Server::send(LiveSocket* socket, const Json& frame) {
    if (socket->silent)
        return;
    socket->ws->sendTextMessage(QString::fromUtf8(dump(frame)));
}

void Server::receive(LiveSocket* socket, const QString& text) {
    const auto bytes = text.toUtf8();
    Json frame = Json::parse(bytes.constData(), bytes.constData() + bytes.size(), nullptr, false);
    if (frame.is_discarded() || !frame.is_object() || !frame.contains("type") ||
        !frame["type"].is_string()) {
        send(socket, Json{{"type", "error"}, {"code", "bad_frame"}});
        return;
    }
    const auto type = frame["type"].get<std::string>();
    if (type == "pong") {
        socket->awaitingPong = false;
        ++socket->pongs;
    } else if (type == "sub" || type == "unsub") {
        if (!frame.contains("topic") || !frame["topic"].is_string()) {
            send(socket, Json{{"type", "error"}, {"code", "bad_frame"}});
            return;
        }
        const auto topic = frame["topic"].get<std::string>();
        if (type == "sub")
            subscribe(socket, topic);
        else
            socket->topics.erase(topic);
    } else if (type == "auth") {
        QString token = QString::fromStdString(str(frame, "token"));
        const auto it = m_access.find(token);
        if (it == m_access.end() || it->second.revoked || it->second.expiresMs <= m_clock.nowMs() ||
            it->second.userId != socket->userId) {
            send(socket, Json{{"type", "error"}, {"code", "invalid_token"}});
            return;
        }
        socket->token = token;
        socket->expiresMs = it->second.expiresMs;
    } else {
        send(socket, Json{{"type", "error"}, {"code", "unknown_type"}});
    }
}

void Server::subscribe(LiveSocket* socket, const std::string& topic) {
    std::optional<Json> data;
    auto rest = [&](const char* prefix) { return topic.substr(std::strlen(prefix)); };
    if (topic == "presence") {
        data = m_model.presenceSnapshot();
    } else if (topic == "calls:mine") {
        data = m_model.callsSnapshot(socket->userId);
    } else if (topic.starts_with("call:")) {
        if (LiveCall* call = m_model.call(rest("call:")); call && call->owner == socket->userId) {
            Json legs = Json::array();
            for (const auto& leg : call->legs)
                legs.push_back(leg);
            data = Json{{"call", call->call}, {"legs", legs}};
        }
    } else if (topic.starts_with("queue:")) {
        if (Queue* queue = m_model.queue(rest("queue:")))
            data = m_model.boardJson(*queue);
    } else if (topic.starts_with("conference:")) {
        if (Json* conference = m_model.conference(rest("conference:")))
            data = *conference;
    }
    if (!data) {
        socket->topics.erase(topic);
        send(socket, Json{{"type", "error"}, {"topic", topic}, {"code", "unknown_topic"}});
        return;
    }
    socket->topics.insert(topic);
    send(socket, Json{{"type", "snapshot"}, {"topic", topic}, {"data", *data}});
}

void Server::publish(const std::string& topic, const Json& data) {
    const Json frame = Json{{"type", "delta"}, {"topic", topic}, {"data", data}};
    for (auto& socket : m_sockets) {
        if (socket.topics.contains(topic))
            send(&socket, frame);
    }
}

void Server::publishMine(const std::string& userId, const Json& data) {
    const Json frame = Json{{"type", "delta"}, {"topic", "calls:mine"}, {"data", data}};
    for (auto& socket : m_sockets) {
        if (socket.userId == userId && socket.topics.contains("calls:mine"))
            send(&socket, frame);
    }
}

void Server::publishPresence(const User& user) {
    publish("presence", Json{{"userId", user.id}, {"state", user.presence}});
}

void Server::publishBoard(const Queue& queue) {
    publish("queue:" + queue.id, Json{{"op", "board"}, {"board", m_model.boardJson(queue)}});
}

void Server::publishCall(const LiveCall& call) {
    publishMine(call.owner, Json{{"op", "upsert"}, {"call", call.call}});
}

void Server::checkExpiry() {
    const auto now = m_clock.nowMs();
    // A handshake that the websocket server refused leaves its entry; a later
    // connection from the same port must not inherit it.
    std::erase_if(m_handshakes, [&](const auto& entry) { return entry.second.atMs < now - 10000; });
    std::vector<LiveSocket*> expired;
    for (auto& socket : m_sockets) {
        const auto it = m_access.find(socket.token);
        const bool revoked = it == m_access.end() || it->second.revoked;
        if (revoked || it->second.expiresMs <= now) {
            if (socket.ws->state() == QAbstractSocket::ConnectedState)
                expired.push_back(&socket);
        }
    }
    for (auto* socket : expired) {
        closeSocket(socket, QWebSocketProtocol::CloseCodePolicyViolated, "token expired");
    }
}

} // namespace rzdev

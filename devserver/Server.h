#pragma once

#include "CallRouter.h"
#include "HttpServer.h"
#include "Model.h"

#include <QObject>
#include <QString>

#include <list>
#include <map>
#include <memory>
#include <set>
#include <vector>

class QTimer;
class QWebSocket;

namespace rzdev {

class PhoneSystem;

struct Edge {
    std::string transport;
    std::string host;
    int port = 0;
};

struct Config {
    quint16 port = 8480;
    QString autoApprove; // a user id, extension or e-mail
    int accessTtlS = 3600;
    std::vector<Edge> edges;
    double pingIntervalS = 25;
    int directorySize = 12;
    bool demo = false;
    bool phone = false;       // run the phone system behind the SIP edge
    QString stateDir;         // the phone system's certificates, sounds, recordings
    int noAnswerS = 20;       // unanswered calls go to the mailbox after this
    int answerDelayMs = 5000; // the speaking colleague answers after two rings
};

// Parses "tcp:127.0.0.1:5070".
std::optional<Edge> parseEdge(const QString& text);

// The dashboard: authorization server, REST interface, live websocket and the
// control interface for tests, all over one loopback port.
class Server : public QObject {
    Q_OBJECT
public:
    explicit Server(Config config, QObject* parent = nullptr);
    ~Server() override;

    bool start();
    quint16 port() const { return m_http.port(); }

private:
    struct Params : std::map<std::string, std::string> {
        const std::string& at(const std::string& key) const { return find(key)->second; }
    };
    struct Context {
        std::string userId;
    };
    using Handler = std::function<HttpResponse(const HttpRequest&, const Params&, Context&)>;
    struct Route {
        QByteArray method;
        std::vector<std::string> pattern;
        bool bearer;
        Handler handler;
    };
    struct Fault {
        QByteArray method;
        QString path; // exact, or a prefix when it ends in "*"
        int remaining = 1;
        int status = 0;
        QByteArray body;
        int delayMs = 0;
        bool garbage = false;
    };
    // One sign-in: the access and refresh tokens that follow from one code.
    struct AccessToken {
        std::string userId;
        qint64 expiresMs = 0;
        bool revoked = false;
        std::string grant;
    };
    struct RefreshToken {
        std::string userId;
        std::string grant;
    };
    struct PendingAuthorization {
        std::string challenge;
        std::optional<std::string> state;
    };
    struct Code {
        std::string userId;
        std::string challenge;
        qint64 expiresMs = 0;
        bool used = false;
    };
    struct LiveSocket {
        QWebSocket* ws = nullptr;
        std::string userId;
        QString token;
        qint64 expiresMs = 0;
        std::set<std::string> topics;
        bool silent = false;
        bool awaitingPong = false;
        int pings = 0;
        int pongs = 0;
        QTimer* pingTimer = nullptr;
    };

    void addRoutes();
    void add(const char* method, const char* pattern, bool bearer, Handler handler);
    void handle(const HttpRequest& request, Responder responder);
    HttpResponse dispatch(const HttpRequest& request);
    std::optional<HttpResponse> upgrade(const HttpRequest& request);
    void record(const HttpRequest& request);
    std::optional<std::string> bearerUser(const HttpRequest& request, QString* token = nullptr);

    // Authorization server.
    HttpResponse authorizePage(const HttpRequest& request);
    HttpResponse authorizeDecision(const HttpRequest& request);
    HttpResponse token(const HttpRequest& request);
    HttpResponse revoke(const HttpRequest& request);
    HttpResponse issueTokens(const std::string& userId, const std::string& grant);
    User* findUser(const QString& key);

    // Live websocket.
    void adopt(QWebSocket* ws);
    void receive(LiveSocket* socket, const QString& text);
    void subscribe(LiveSocket* socket, const std::string& topic);
    void send(LiveSocket* socket, const Json& frame);
    void publish(const std::string& topic, const Json& data);
    void publishMine(const std::string& userId, const Json& data);
    void publishPresence(const User& user);
    void publishBoard(const Queue& queue);
    void publishCall(const LiveCall& call);
    void checkExpiry();
    void closeSocket(LiveSocket* socket, int code, const QString& reason);
    void forget(LiveSocket* socket);

    // Phone system: kamailio's questions and reports, and its control paths.
    bool startPhone();
    void addPhoneRoutes();
    void addPhoneFixtures();
    void applyCallChanges(const CallChanges& changes);
    void onColleagueEvent(const Json& event);
    void onRecorderEvent(const Json& event);
    void fileVoicemail(const std::string& sipCallId, int attempt);
    bool demoCall();
    void pollQuality();
    Json phoneJson() const;

    // Control interface.
    void addControlRoutes();
    void startDemoActivity();
    void demoTick();

    Config m_config;
    Clock m_clock;
    Model m_model;
    HttpServer m_http;
    std::vector<Route> m_routes;
    std::vector<Fault> m_faults;
    Json m_requests = Json::array();
    std::map<QString, AccessToken> m_access;
    std::map<QString, RefreshToken> m_refresh; // the refresh tokens not yet used
    std::map<QString, PendingAuthorization> m_pending;
    std::map<QString, Code> m_codes;
    std::list<LiveSocket> m_sockets;
    struct Handshake {
        std::string userId;
        QString token;
        qint64 atMs = 0;
    };
    std::map<quint16, Handshake> m_handshakes; // by the client's port, until the socket opens
    bool m_silentSockets = false;
    QTimer* m_expiryTimer = nullptr;

    struct Registration {
        std::string sipUser;
        std::string contact;
        std::string transport;
        std::string source;
        qint64 expiresMs = 0;
    };
    PhoneSystem* m_phone = nullptr;
    CallRouter m_router;
    std::map<std::string, Registration> m_registrations; // by contact
    std::vector<Responder> m_readyWaiters;
    std::set<QString> m_filedRecordings;
    bool m_edgesGiven = false;
};

} // namespace rzdev

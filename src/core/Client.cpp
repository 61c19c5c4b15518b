#include "Client.h"

#include "EngineKit.h"
#include "Log.h"
#include "Loop.h"
#include "SipText.h"

extern "C" struct ssl_ctx_st* tls_openssl_context(const struct tls* tls);

#include <netdb.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <condition_variable>
#include <cstring>
#include <string_view>
#include <strings.h>
#include <thread>

namespace core {

namespace {

constexpr std::uint32_t registerExpiry = 300; // refreshed at half of it, far below 900 s
constexpr std::uint64_t keepaliveMs = 25000;
constexpr std::uint64_t stopBoundMs = 3000;
// A registrar answers a REGISTER within milliseconds; one that has said
// nothing for this long has most likely lost the connection under it.
constexpr std::uint64_t registerAnswerBoundMs = 3000;
constexpr const char* caFileOption = "tls-ca-file";

// The address this machine uses to reach the server, for Contact and media:
// the source of a UDP socket connected there (nothing is sent).
bool sourceAddressFor(const sockaddr* server, socklen_t length, sa& local) {
    bool ok = false;
    const int fd = socket(server->sa_family, SOCK_DGRAM, 0);
    if (fd >= 0 && connect(fd, server, length) == 0) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
            ok = sa_set_sa(&local, reinterpret_cast<sockaddr*>(&address)) == 0;
            sa_set_port(&local, 0);
        }
    }
    if (fd >= 0) {
        close(fd);
    }
    return ok;
}

} // namespace

Client::Client(SipAccount account, std::shared_ptr<ClientDelegate> delegate, std::string host,
               std::uint16_t port, bool tls)
    : m_account(std::move(account)), m_delegate(std::move(delegate)), m_host(std::move(host)),
      m_port(port), m_tls(tls) {
    tmr_init(&m_registerTimer);
    tmr_init(&m_registerGuard);
    tmr_init(&m_stopTimer);
    tmr_init(&m_keepaliveTimer);
    m_domain = m_account.realm.empty() ? m_host : m_account.realm;
    const char* transport = m_tls ? "tls" : "tcp";
    m_serverUri = format("sip:%s:%u;transport=%s", hostForUri().c_str(), m_port, transport);
    m_route = m_serverUri;
    m_aor = format("sip:%s@%s", m_account.username.c_str(), m_domain.c_str());
}

std::string Client::serverName() const {
    return format("%s:%u", m_host.c_str(), m_port);
}

std::string Client::hostForUri() const {
    return m_host.find(':') != std::string::npos ? "[" + m_host + "]" : m_host;
}

std::string Client::uriFor(const std::string& user) const {
    return format("sip:%s@%s", user.c_str(), m_domain.c_str());
}

Client::~Client() {
    // Normally stop() has closed everything; a client dropped without it is
    // closed here, without the un-REGISTER.
    if (!Loop::instance().running()) {
        return;
    }
    Loop::instance().call([this] {
        if (!m_closed) {
            teardown();
        }
    });
}

void Client::report(RegistrationState state) {
    {
        std::lock_guard lock(m_stateLock);
        if (state.kind != RegistrationState::Kind::failed) {
            m_unreachable = false;
        }
        m_state = state;
    }
    if (m_lastReported == state) {
        return;
    }
    m_lastReported = state;
    info("registration: " + toString(state));
    if (!m_silenced && m_delegate) {
        m_delegate->registrationChanged(state);
    }
}

void Client::reportCall(const std::string& callId, const CallState& state) {
    info("call " + callId + ": " + toString(state));
    if (!m_silenced && m_delegate) {
        m_delegate->callStateChanged(callId, state);
    }
}

void Client::reportIncoming(const std::shared_ptr<Call>& call) {
    if (!m_silenced && m_delegate) {
        m_delegate->incomingCall(call);
    }
}

void Client::forget(const std::string& callId) {
    m_calls.erase(callId);
}

int Client::onAuth(char** user, char** password, const char*, void* arg) {
    auto* self = static_cast<Client*>(arg);
    int err = str_dup(user, self->m_account.username.c_str());
    err |= str_dup(password, self->m_account.password.c_str());
    return err;
}

int Client::onRegisterSend(sip_transp tp, const struct sa* src, const struct sa*, struct mbuf* mb,
                           void* arg) {
    auto* self = static_cast<Client*>(arg);
    // A connection that goes before the answer does is noticed by no one else:
    // the transaction would wait out its 32 s timer.
    if (!self->m_stopping) {
        tmr_start(&self->m_registerGuard, registerAnswerBoundMs, onRegisterGuard, self);
    }
    // The Contact names the address of the connection itself, so that the
    // registrar can send requests back over it.
    return mbuf_printf(mb, "Contact: <sip:%s@%J%s;ob>;expires=%u\r\n",
                       self->m_account.username.c_str(), src, sip_transp_param(tp),
                       self->m_sentExpiry);
}

void Client::sendRegister(std::uint32_t expires) {
    m_sentExpiry = expires;
    m_registerRequest = nullptr;
    const int err = sip_drequestf(&m_registerRequest, m_sip, true, "REGISTER", m_registerDialog, 0,
                                  m_registerAuth, onRegisterSend, onRegisterResponse, this,
                                  "Expires: %u\r\n"
                                  "Allow: INVITE,ACK,BYE,CANCEL,OPTIONS,NOTIFY,REFER\r\n"
                                  "Supported: outbound\r\n"
                                  "Content-Length: 0\r\n\r\n",
                                  expires);
    if (err) {
        registrationFailed(format("The server %s cannot be reached.", serverName().c_str()), true);
    }
}

void Client::registrationFailed(std::string reason, bool unreachable, std::uint64_t retryMs) {
    if (m_stopping) {
        return;
    }
    m_unreachable = unreachable;
    report(RegistrationState::failed(std::move(reason)));
    // Try again later by itself; reRegister tries at once. A server out of
    // reach is tried again soon, then less often, so that it is found again
    // quickly when it was a short outage.
    if (unreachable) {
        retryMs = nextRetryMs();
    } else {
        m_failuresInRow = 0;
    }
    info(format("registering again in %llu ms", static_cast<unsigned long long>(retryMs)));
    tmr_start(&m_registerTimer, retryMs, onRegisterTimer, this);
}

std::uint64_t Client::nextRetryMs() {
    constexpr std::uint64_t firstMs = 1000;
    constexpr std::uint64_t mostMs = 60000;
    const int doublings = std::min(m_failuresInRow, 6);
    ++m_failuresInRow;
    return std::min(firstMs << doublings, mostMs);
}

void Client::onRegisterGuard(void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (self->m_stopping || !self->m_sip) {
        return;
    }
    self->m_registerRequest = static_cast<struct sip_request*>(mem_deref(self->m_registerRequest));
    self->m_challenges = 0;
    if (++self->m_unansweredRegisters == 1) {
        // Once at once, for the connection that went away under the request.
        warn(format("no answer to the REGISTER from %s in %llu s; sending it again",
                    self->serverName().c_str(),
                    static_cast<unsigned long long>(registerAnswerBoundMs / 1000)));
        self->sendRegister(registerExpiry);
        return;
    }
    // A server that takes our packets and never answers is as good as gone.
    self->m_unansweredRegisters = 0;
    self->registrationFailed(format("The server %s does not answer.", self->serverName().c_str()),
                             true);
}

void Client::onRegisterResponse(int err, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<Client*>(arg);
    tmr_cancel(&self->m_registerGuard);
    self->m_unansweredRegisters = 0;
    if (self->m_stopping) {
        if (err || (msg && msg->scode >= 200 && msg->scode != 401 && msg->scode != 407)) {
            if (self->m_whenClosed) {
                Loop::instance().post(std::move(self->m_whenClosed));
                self->m_whenClosed = nullptr;
            }
        } else if (msg && (msg->scode == 401 || msg->scode == 407)) {
            if (sip_auth_authenticate(self->m_registerAuth, msg) == 0 && ++self->m_challenges < 3) {
                self->sendRegister(0);
            } else if (self->m_whenClosed) {
                Loop::instance().post(std::move(self->m_whenClosed));
                self->m_whenClosed = nullptr;
            }
        }
        return;
    }
    if (err) {
        if (self->m_certificateRejected) {
            self->registrationFailed("The server's TLS certificate is not trusted (" +
                                     self->m_certificateError + ").");
        } else {
            self->registrationFailed(
                format("The server %s cannot be reached.", self->serverName().c_str()), true);
        }
        warn(format("registration: transport error %d (%s)", err, strerror(err)));
        return;
    }
    if (msg->scode < 200) {
        return;
    }
    if (msg->scode < 300) {
        self->m_challenges = 0;
        self->m_failuresInRow = 0;
        std::uint32_t granted = registerExpiry;
        if (pl_isset(&msg->expires)) {
            granted = std::min(granted, std::max<std::uint32_t>(pl_u32(&msg->expires), 10));
        }
        // Renew at half the granted time, well before an idle connection is dropped.
        tmr_start(&self->m_registerTimer, std::uint64_t(granted) * 500, onRegisterTimer, self);
        // CRLF keep-alives on the registration's connection keep it (and any
        // NAT binding on the way) open for requests coming back.
        self->m_registrar = msg->src;
        self->m_registrarTransport = msg->tp;
        if (!tmr_isrunning(&self->m_keepaliveTimer)) {
            tmr_start(&self->m_keepaliveTimer, keepaliveMs, onKeepalive, self);
        }
        // Told when this connection closes, so that a cut one is replaced at once
        // rather than at the next refresh.
        self->m_connectionWatch =
            static_cast<struct sip_keepalive*>(mem_deref(self->m_connectionWatch));
        sip_keepalive_start(&self->m_connectionWatch, self->m_sip, msg, 0, onConnectionLost, self);
        self->report(RegistrationState::registered());
        return;
    }
    if ((msg->scode == 401 || msg->scode == 407) && self->m_challenges < 2) {
        ++self->m_challenges;
        if (sip_auth_authenticate(self->m_registerAuth, msg) == 0) {
            self->sendRegister(registerExpiry);
            return;
        }
    }
    self->m_challenges = 0;
    switch (msg->scode) {
    case 401:
    case 403:
    case 407:
        self->registrationFailed("Wrong user name or password.");
        break;
    case 404:
        self->registrationFailed("The server does not know the user " + self->m_account.username +
                                 ".");
        break;
    case 503: {
        // Busy for now: back after the time it names (within reason), or soon.
        std::uint32_t seconds = 5;
        if (const struct sip_hdr* retry = sip_msg_hdr(msg, SIP_HDR_RETRY_AFTER)) {
            seconds = std::clamp<std::uint32_t>(pl_u32(&retry->val), 1, 300);
        }
        self->registrationFailed(format("The server is busy; trying again in %u second%s.", seconds,
                                        seconds == 1 ? "" : "s"),
                                 false, std::uint64_t(seconds) * 1000);
        break;
    }
    default:
        self->registrationFailed(format("The server refused the registration (%u %s).", msg->scode,
                                        text(msg->reason).c_str()));
    }
}

void Client::onConnectionLost(int err, void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (self->m_stopping || !self->m_sip) {
        return;
    }
    if (err == EBADMSG || err == ENOENT || err == EPROTO) {
        // The SIP library closes a connection on a message it cannot parse.
        warn(format("the registrar sent a message that could not be read, so its connection to "
                    "%s was closed; registering again",
                    self->serverName().c_str()));
        // An answer to a call still waiting can only come on the connection
        // that carried its INVITE; the unreadable message was most likely it.
        auto calls = self->m_calls;
        for (auto& [id, call] : calls) {
            if (call->awaitingAnswer()) {
                call->ended(CallSession::unreadableAnswer);
            }
        }
    } else {
        warn(format("the connection to %s closed (%s); registering again",
                    self->serverName().c_str(), strerror(err)));
    }
    self->registerOnNewConnection();
}

void Client::dropUntrustedConnection(const std::string& why) {
    if (m_stopping || !m_sip) {
        return;
    }
    warn(format("the registrar sent a message that could not be read (%s), so its connection to "
                "%s was closed; registering again",
                why.c_str(), serverName().c_str()));
    // Flushing takes the transport down with its connections; the
    // registration opens it again. The connection's watch goes first: its
    // loss is already being dealt with.
    m_connectionWatch = static_cast<struct sip_keepalive*>(mem_deref(m_connectionWatch));
    sip_transp_flush(m_sip);
    m_transportOpen = false;
    registerOnNewConnection();
}

void Client::registerOnNewConnection() {
    // A second REGISTER sent now would take the first one's place while its
    // answer is on the way, and the registrar would see two.
    if (m_newConnectionPending) {
        return;
    }
    m_newConnectionPending = true;
    // The watch is spent; the next registration's answer starts a new one.
    Loop::instance().post([weak = weak_from_this()] {
        auto client = weak.lock();
        if (!client || client->m_stopping || !client->m_sip) {
            return;
        }
        client->m_newConnectionPending = false;
        client->m_connectionWatch =
            static_cast<struct sip_keepalive*>(mem_deref(client->m_connectionWatch));
        tmr_cancel(&client->m_registerTimer);
        client->m_challenges = 0;
        client->report(RegistrationState::registering());
        client->m_registerRequest =
            static_cast<struct sip_request*>(mem_deref(client->m_registerRequest));
        client->openTransportAndRegister();
    });
}

void Client::onRegisterTimer(void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (!self->m_stopping) {
        self->registerNow();
    }
}

void Client::onKeepalive(void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (self->m_stopping || !self->m_sip) {
        return;
    }
    // The registration's connection is the one to this peer address.
    struct mbuf* ping = mbuf_alloc(4);
    mbuf_write_str(ping, "\r\n\r\n");
    ping->pos = 0;
    const int err =
        sip_send(self->m_sip, nullptr, self->m_registrarTransport, &self->m_registrar, ping);
    mem_deref(ping);
    if (err) {
        warn(format("keep-alive failed (%s); registering again", strerror(err)));
        self->report(RegistrationState::registering());
        self->sendRegister(registerExpiry);
    }
    tmr_start(&self->m_keepaliveTimer, keepaliveMs, onKeepalive, self);
}

bool Client::onRequest(const struct sip_msg*, void*) {
    // Requests outside a dialog or session that nothing else took: left to the library.
    return false;
}

int Client::onCertificate(int ok, x509_store_ctx_st* store) {
    if (ok) {
        return ok;
    }
    auto* ssl =
        static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    if (ssl) {
        if (auto* self = static_cast<Client*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)))) {
            self->m_certificateRejected = true;
            self->m_certificateError =
                X509_verify_cert_error_string(X509_STORE_CTX_get_error(store));
        }
    }
    return 0;
}

void Client::onTrace(bool sent, enum sip_transp, const struct sa* src, const struct sa* dst,
                     const std::uint8_t* packet, size_t length, void* arg) {
    const std::string_view message(reinterpret_cast<const char*>(packet), length);
    if (logEnabled(LogLevel::trace)) {
        char from[64], to[64];
        sa_ntop(src, from, sizeof from);
        sa_ntop(dst, to, sizeof to);
        logLine(LogLevel::trace, format("%s %s:%u -> %s:%u\n", sent ? "sent" : "received", from,
                                        sa_port(src), to, sa_port(dst)) +
                                     withSecretsHidden(message));
    }
    auto* self = static_cast<Client*>(arg);
    if (!self || sent) {
        return;
    }
    // A refused re-INVITE reaches no handler of the library: it is seen here, so
    // that a hold or resume the far end turned down is reported at once.
    const std::optional<std::string> callId = refusedInviteCallId(message);
    if (callId) {
        Loop::instance().post([weak = self->weak_from_this(), id = *callId] {
            auto client = weak.lock();
            if (!client) {
                return;
            }
            const auto found = client->m_calls.find(id);
            if (found != client->m_calls.end()) {
                found->second->holdRefused();
            }
        });
    }
}

void Client::start() {
    if (m_startCalled.exchange(true)) {
        return;
    }
    // The caller does not wait: setting up and any failure of it arrive as
    // registration states, like everything after.
    Loop::instance().post([weak = weak_from_this()] {
        if (auto self = weak.lock()) {
            self->setUp();
        }
    });
}

void Client::setUp() {
    {
        m_started = true;
        int err = 0;
        std::array<sa, 4> servers{};
        std::uint32_t serverCount = servers.size();
        char domain[64] = "";
        if (dns_srv_get(domain, sizeof domain, servers.data(), &serverCount) || !serverCount) {
            serverCount = 1;
            sa_set_str(&servers[0], "127.0.0.1", 53);
        }
        err = dnsc_alloc(&m_dns, nullptr, servers.data(), serverCount);
        if (!err) {
            err = sip_alloc(&m_sip, m_dns, 32, 32, 32, "velnor-rz", onExit, this);
        }
        if (!err) {
            err = sip_listen(&m_listener, m_sip, true, onRequest, this);
        }
        if (!err) {
            sip_set_trace_handler(m_sip, onTrace);
        }
        if (!err && m_tls) {
            err = tls_alloc(&m_tlsContext, TLS_METHOD_SSLV23, nullptr, nullptr);
            if (!err) {
                SSL_CTX* context = tls_openssl_context(m_tlsContext);
                // The system's authorities through their hashed folder, read
                // lazily by issuer: loading the whole bundle up front costs
                // some 60 ms of CPU for every client.
                SSL_CTX_load_verify_dir(context, X509_get_default_cert_dir());
                if (m_account.optionPair && m_account.optionPair->first == caFileOption &&
                    !m_account.optionPair->second.empty()) {
                    const std::string& caFile = m_account.optionPair->second;
                    if (SSL_CTX_load_verify_file(context, caFile.c_str()) != 1) {
                        m_caFileError =
                            "The certificate authorities in " + caFile + " cannot be read.";
                        warn("cannot read the extra certificate authorities in " + caFile);
                    }
                }
                SSL_CTX_set_app_data(context, this);
                SSL_CTX_set_verify(context, SSL_VERIFY_PEER, onCertificate);
                X509_VERIFY_PARAM* param = SSL_CTX_get0_param(context);
                struct sa probe {};
                if (sa_set_str(&probe, m_host.c_str(), 0) == 0) {
                    X509_VERIFY_PARAM_set1_ip_asc(param, m_host.c_str());
                } else {
                    X509_VERIFY_PARAM_set1_host(param, m_host.c_str(), 0);
                }
            }
        }
        if (!err) {
            err = sipsess_listen(&m_sessions, m_sip, 32, onIncoming, this);
        }
        if (!err) {
            err = sipevent_listen(&m_events, m_sip, 32, 32, nullptr, nullptr);
        }
        if (!err) {
            err = sip_dialog_alloc(&m_registerDialog, m_serverUri.c_str(), m_aor.c_str(), nullptr,
                                   m_aor.c_str(), nullptr, 0);
        }
        if (!err) {
            err = sip_auth_alloc(&m_registerAuth, onAuth, this, false);
        }
        if (err || !m_caFileError.empty()) {
            report(RegistrationState::failed(
                err ? format("The SIP engine could not start (%s).", strerror(err))
                    : m_caFileError));
            teardown();
            return;
        }
        // A watch that cannot start costs only the quick move to a new
        // network; registration refreshes and the app's wake-ups still come.
        if (const int watchErr = m_networkWatch.start([this] { followNetwork(false); })) {
            warn(format("network changes are not watched (%s)", strerror(watchErr)));
        }
        info(format("registering %s at %s over %s", m_aor.c_str(), serverName().c_str(),
                    m_tls ? "TLS" : "TCP"));
        report(RegistrationState::registering());
        // With the server's name still being resolved, resolved() goes on from here.
        if (m_resolution == Resolution::done) {
            openTransportAndRegister();
        } else if (m_resolution == Resolution::failed) {
            registrationFailed(unreachableReason(), true);
        }
    }
}

std::string Client::unreachableReason() const {
    return format("The server %s cannot be reached.", serverName().c_str());
}

void Client::openTransportAndRegister() {
    if (!m_transportOpen) {
        const int err = m_tls ? sip_transp_add(m_sip, SIP_TRANSP_TLS, &m_localAddress, m_tlsContext)
                              : sip_transp_add(m_sip, SIP_TRANSP_TCP, &m_localAddress);
        if (err) {
            registrationFailed(format("The SIP engine could not start (%s).", strerror(err)));
            return;
        }
        m_transportOpen = true;
    }
    sendRegister(registerExpiry);
}

void Client::registerNow() {
    if (m_transportOpen) {
        sendRegister(registerExpiry);
    } else if (m_resolution != Resolution::pending) {
        // The name did not resolve last time: ask again.
        m_resolution = Resolution::pending;
        resolveInBackground();
    }
}

void Client::resolveInBackground() {
    // getaddrinfo blocks for as long as the name servers take: neither the
    // app's thread nor the loop may wait on it, so it gets a thread of its own.
    std::thread([weak = weak_from_this(), host = m_host, port = m_port] {
        addrinfo hints{};
        hints.ai_socktype = SOCK_DGRAM;
        addrinfo* found = nullptr;
        sa local{};
        sa server{};
        bool ok = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) == 0 &&
                  found && sourceAddressFor(found->ai_addr, found->ai_addrlen, local) &&
                  sa_set_sa(&server, found->ai_addr) == 0;
        if (found) {
            freeaddrinfo(found);
        }
        Loop::instance().post([weak, ok, local, server] {
            if (auto self = weak.lock()) {
                self->resolved(ok, local, server);
            }
        });
    }).detach();
}

void Client::resolved(bool ok, const sa& local, const sa& server) {
    // Once registered from somewhere, a new resolution is a move like any other.
    const bool settledBefore = sa_isset(&m_localAddress, SA_ADDR);
    m_resolution = ok ? Resolution::done : Resolution::failed;
    if (ok) {
        m_serverAddress = server;
        if (!settledBefore) {
            m_localAddress = local;
        }
    } else {
        warn("no way to the server " + serverName() + " for now");
    }
    if (!m_started || m_stopping) {
        return;
    }
    if (!ok) {
        registrationFailed(unreachableReason(), true);
    } else if (settledBefore) {
        followNetwork(true);
    } else {
        openTransportAndRegister();
    }
}

void Client::reRegister() {
    Loop::instance().post([weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self || !self->m_started || self->m_stopping || !self->m_sip) {
            return;
        }
        tmr_cancel(&self->m_registerTimer);
        self->m_challenges = 0;
        self->m_lastReported.reset();
        self->report(RegistrationState::registering());
        self->m_registerRequest =
            static_cast<struct sip_request*>(mem_deref(self->m_registerRequest));
        self->registerNow();
    });
}

void Client::networkChanged() {
    Loop::instance().post([weak = weak_from_this()] {
        if (auto self = weak.lock()) {
            self->followNetwork(true);
        }
    });
}

void Client::dropConnections() {
    if (m_transportOpen) {
        sip_transp_flush(m_sip);
        m_transportOpen = false;
    }
    m_connectionWatch = static_cast<struct sip_keepalive*>(mem_deref(m_connectionWatch));
    m_registerRequest = static_cast<struct sip_request*>(mem_deref(m_registerRequest));
    tmr_cancel(&m_registerGuard);
}

void Client::followNetwork(bool reconnect) {
    if (!m_started || m_stopping || !m_sip || m_resolution == Resolution::pending) {
        return;
    }
    if (m_resolution == Resolution::failed) {
        // The last try found no way to the server: look again now rather
        // than when the back-off runs out. resolved() comes back here.
        tmr_cancel(&m_registerTimer);
        registerNow();
        return;
    }
    sa local{};
    if (!sourceAddressFor(&m_serverAddress.u.sa, m_serverAddress.len, local)) {
        // No route to the server for now: the connection is as good as gone,
        // and the next change (or the retry) finds the new way.
        info(format("no route to %s for now", serverName().c_str()));
        if (m_transportOpen) {
            dropConnections();
            registrationFailed(unreachableReason(), true);
        }
        return;
    }
    const bool moved = !sa_cmp(&local, &m_localAddress, SA_ADDR);
    if (!moved && !reconnect && m_transportOpen) {
        return;
    }
    if (moved) {
        info(format("this machine now reaches %s from %s (was %s): registering again there",
                    serverName().c_str(), addressText(local).c_str(),
                    addressText(m_localAddress).c_str()));
    } else {
        info(format("registering again at %s on a new connection", serverName().c_str()));
    }
    m_localAddress = local;
    // Every connection from before goes: one from a vanished address is dead,
    // and after a suspend the server may have dropped it long ago.
    dropConnections();
    tmr_cancel(&m_registerTimer);
    m_unansweredRegisters = 0;
    m_challenges = 0;
    m_failuresInRow = 0;
    report(RegistrationState::registering());
    openTransportAndRegister();
    if (!m_transportOpen) {
        return;
    }
    // The calls follow over the new connection: the far end learns the new
    // Contact, and the new media address where the address moved.
    auto calls = m_calls;
    for (auto& [id, call] : calls) {
        call->moveTo(m_localAddress, moved);
    }
}

void Client::onExit(void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (self->m_whenClosed) {
        // Out of libre's stack first: what runs next may free the SIP stack.
        Loop::instance().post(std::move(self->m_whenClosed));
        self->m_whenClosed = nullptr;
    }
}

void Client::onStopTimer(void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (self->m_whenClosed) {
        // Out of libre's stack first: what runs next may free the SIP stack.
        Loop::instance().post(std::move(self->m_whenClosed));
        self->m_whenClosed = nullptr;
    }
}

void Client::stop() {
    if (!m_startCalled) {
        return;
    }
    if (Loop::instance().onLoop()) {
        // From a delegate callback: waiting here for the un-REGISTER would
        // block the very thread that must carry it, so close at once.
        if (!m_closed) {
            teardown();
        }
        return;
    }
    std::mutex lock;
    std::condition_variable doneSignal;
    bool done = false;
    auto finish = [&] {
        std::lock_guard guard(lock);
        done = true;
        doneSignal.notify_all();
    };
    Loop::instance().call([&] {
        if (m_closed || m_stopping) {
            finish();
            return;
        }
        m_silenced = true;
        m_stopping = true;
        info("stopping");
        // Hang up what is still up: BYE, CANCEL or a busy reply, as fits each call.
        auto calls = m_calls;
        for (auto& [id, call] : calls) {
            call->release();
        }
        m_calls.clear();
        tmr_cancel(&m_registerTimer);
        tmr_cancel(&m_registerGuard);
        tmr_cancel(&m_keepaliveTimer);
        tmr_start(&m_stopTimer, stopBoundMs, onStopTimer, this);
        auto closeSip = [this, finish] {
            // Then let the transactions still under way finish.
            m_whenClosed = [this, finish] {
                tmr_cancel(&m_stopTimer);
                teardown();
                finish();
            };
            sip_close(m_sip, false);
        };
        const bool wasRegistered = m_state.kind == RegistrationState::Kind::registered;
        if (wasRegistered && m_sip) {
            // The un-REGISTER's answer comes after those of anything sent
            // before it on the connection: then nothing is left to wait for.
            m_whenClosed = [this, finish] {
                tmr_cancel(&m_stopTimer);
                teardown();
                finish();
            };
            m_challenges = 0;
            m_registerRequest = static_cast<struct sip_request*>(mem_deref(m_registerRequest));
            sendRegister(0);
        } else if (m_sip) {
            closeSip();
        } else {
            teardown();
            finish();
        }
    });
    std::unique_lock guard(lock);
    doneSignal.wait(guard, [&] { return done; });
    std::lock_guard stateGuard(m_stateLock);
    m_state = RegistrationState::unregistered();
}

void Client::teardown() {
    m_networkWatch.stop();
    tmr_cancel(&m_registerTimer);
    tmr_cancel(&m_registerGuard);
    tmr_cancel(&m_stopTimer);
    m_silenced = true;
    m_stopping = true;
    auto calls = m_calls;
    for (auto& [id, call] : calls) {
        call->release();
    }
    m_calls.clear();
    m_whenClosed = nullptr;
    tmr_cancel(&m_keepaliveTimer);
    m_registerRequest = static_cast<struct sip_request*>(mem_deref(m_registerRequest));
    m_registerDialog = static_cast<struct sip_dialog*>(mem_deref(m_registerDialog));
    m_registerAuth = static_cast<struct sip_auth*>(mem_deref(m_registerAuth));
    m_connectionWatch = static_cast<struct sip_keepalive*>(mem_deref(m_connectionWatch));
    m_events = static_cast<struct sipevent_sock*>(mem_deref(m_events));
    m_sessions = static_cast<struct sipsess_sock*>(mem_deref(m_sessions));
    m_listener = static_cast<struct sip_lsnr*>(mem_deref(m_listener));
    if (m_sip) {
        sip_close(m_sip, true);
    }
    m_sip = static_cast<struct sip*>(mem_deref(m_sip));
    m_tlsContext = static_cast<struct tls*>(mem_deref(m_tlsContext));
    m_dns = static_cast<struct dnsc*>(mem_deref(m_dns));
    m_closed = true;
}

std::shared_ptr<Call> Client::placeCall(const std::string& number) {
    if (!isCallableNumber(number)) {
        throw CoreError(CoreError::Kind::message,
                        "\"" + number + "\" is not a number that can be called.");
    }
    {
        std::lock_guard lock(m_stateLock);
        if (m_state.kind == RegistrationState::Kind::failed && m_unreachable) {
            throw CoreError(CoreError::Kind::unreachable, serverName());
        }
    }
    return Loop::instance().call([&]() -> std::shared_ptr<Call> {
        if (!m_sip || m_stopping) {
            throw CoreError(CoreError::Kind::message, "The phone is not started.");
        }
        if (!m_transportOpen) {
            throw CoreError(CoreError::Kind::message,
                            "The phone is not connected to the server yet.");
        }
        auto call = std::make_shared<CallSession>(this, false, number, std::nullopt);
        const std::string target = uriFor(number);
        int err = call->prepareMedia(m_localAddress, m_tls);
        if (!err) {
            err = call->dial(target);
        }
        if (err) {
            call->release();
            throw CoreError(CoreError::Kind::unreachable, serverName(), strerror(err));
        }
        m_calls[call->callId()] = call;
        info("calling " + target + ", Call-ID " + call->callId());
        return call;
    });
}

void Client::onIncoming(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (self->m_stopping) {
        sip_treply(nullptr, self->m_sip, msg, 503, "Service Unavailable");
        return;
    }
    std::optional<std::string> name;
    if (pl_isset(&msg->from.dname)) {
        std::string display = text(msg->from.dname);
        if (display.size() >= 2 && display.front() == '"' && display.back() == '"') {
            display = display.substr(1, display.size() - 2);
        }
        if (!display.empty()) {
            name = display;
        }
    }
    // The SIP library reads a Content-Length that is no number as 0, and the
    // body then runs into the next message: the connection cannot be trusted
    // from here, so the offer is refused and the connection replaced.
    if (const struct sip_hdr* length = sip_msg_hdr(msg, SIP_HDR_CONTENT_LENGTH)) {
        const std::string digits = text(length->val);
        if (digits.empty() || !std::all_of(digits.begin(), digits.end(),
                                           [](unsigned char c) { return std::isdigit(c); })) {
            sip_treply(nullptr, self->m_sip, msg, 400, "Bad Request");
            self->dropUntrustedConnection(format("a Content-Length of \"%s\"", digits.c_str()));
            return;
        }
    }
    // The dialog answers to the Contact; an offer without a readable one cannot be answered.
    if (!hasAnswerableContact(msg)) {
        info("refusing call " + text(msg->callid) + ": its Contact cannot be read");
        sip_treply(nullptr, self->m_sip, msg, 400, "Bad Request");
        return;
    }
    auto call = std::make_shared<CallSession>(self, true, text(msg->from.uri.user), name);
    // SRTP when the caller offers it; a secure profile is answered in kind.
    const std::string body(reinterpret_cast<const char*>(mbuf_buf(msg->mb)),
                           mbuf_get_left(msg->mb));
    const bool secure = body.find("RTP/SAVP") != std::string::npos;
    if (self->m_tls && !secure) {
        // Signalling that arrived encrypted does not carry audio in the clear.
        info("refusing call " + text(msg->callid) + ": it offers unencrypted audio over TLS");
        sip_treply(nullptr, self->m_sip, msg, 488, "Not Acceptable Here");
        return;
    }
    const std::uint16_t refused = call->accept(msg, secure);
    if (refused) {
        call->release();
        sip_treply(nullptr, self->m_sip, msg, refused,
                   refused == 488 ? "Not Acceptable Here" : "Server Internal Error");
        return;
    }
    self->m_calls[call->callId()] = call;
    info("incoming call from " + call->remoteNumber() + ", Call-ID " + call->callId());
    self->reportIncoming(call);
}

namespace {} // namespace

std::shared_ptr<SipClient> SipClient::init(const SipAccount& account,
                                           std::shared_ptr<ClientDelegate> delegate) {
    const auto colon = account.server.rfind(':');
    if (account.server.empty() || colon == std::string::npos || colon == 0) {
        throw CoreError(CoreError::Kind::invalidSettings,
                        "the server \"" + account.server + "\" is not host:port");
    }
    std::string host = account.server.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    const std::string portText = account.server.substr(colon + 1);
    char* end = nullptr;
    const long port = std::strtol(portText.c_str(), &end, 10);
    if (portText.empty() || *end || port <= 0 || port > 65535) {
        throw CoreError(CoreError::Kind::invalidSettings,
                        "the port of \"" + account.server + "\" is not a number");
    }
    if (account.username.empty()) {
        throw CoreError(CoreError::Kind::invalidSettings, "the user name is empty");
    }
    // The SIP ports for TLS; anything else is plain TCP, unless optionFlag asks for TLS.
    const bool tls = port == 5061 || port == 443 || account.optionFlag;
    if (!Loop::instance().running()) {
        throw CoreError(CoreError::Kind::message, "The SIP engine could not start.");
    }
    auto client =
        std::make_shared<Client>(account, std::move(delegate), host, std::uint16_t(port), tls);
    sa literal{};
    if (sa_set_str(&literal, host.c_str(), std::uint16_t(port)) == 0) {
        // An address as it stands: no name server is asked.
        if (!sourceAddressFor(&literal.u.sa, literal.len, client->m_localAddress)) {
            throw CoreError(CoreError::Kind::unreachable, account.server, "no route to the host");
        }
        client->m_serverAddress = literal;
        client->m_resolution = Client::Resolution::done;
    } else {
        // Even starting a thread is left to the loop: init returns at once.
        Loop::instance().post([weak = std::weak_ptr<Client>(client)] {
            if (auto self = weak.lock()) {
                self->resolveInBackground();
            }
        });
    }
    info(format("SIP over %s to %s", tls ? "TLS" : "TCP", account.server.c_str()));
    return client;
}

} // namespace core

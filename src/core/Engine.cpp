// The SIP client and its calls on libre. Everything that touches a libre
// object runs on the loop thread (Loop.h); the app's threads only post work
// there, except for readAudio and writeAudio, which touch only the call's own
// locked media buffers.

#include "AudioCodec.h"
#include "Core.h"
#include "JitterBuffer.h"
#include "Log.h"
#include "Loop.h"
#include "SipText.h"

#include <re.h>

extern "C" struct ssl_ctx_st* tls_openssl_context(const struct tls* tls);

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <deque>
#include <map>
#include <mutex>
#include <string_view>

namespace core {

namespace {

constexpr std::uint32_t registerExpiry = 300; // refreshed at half of it, far below 900 s
constexpr std::uint64_t holdGuardMs = 4000;
constexpr std::uint64_t keepaliveMs = 25000;
constexpr std::uint64_t stopBoundMs = 3000;
constexpr const char* caFileVariable = "VELNOR_SIP_CA_FILE";
constexpr const char* caFileOption = "tls-ca-file";

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    char buffer[512];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return buffer;
}

void info(const std::string& text) {
    logLine(LogLevel::info, text);
}
void warn(const std::string& text) {
    logLine(LogLevel::warn, text);
}

std::string text(const pl& value) {
    return std::string(value.p ? value.p : "", value.p ? value.l : 0);
}

std::uint64_t nowMs() {
    return std::uint64_t(std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now().time_since_epoch())
                             .count());
}

// Nagle's delay would hold back a request sent right after a reply on the
// same connection by up to 40 ms.
void setNoDelay(const struct sip_msg* msg) {
    if (!msg) {
        return;
    }
    if (struct tcp_conn* conn = sip_msg_tcpconn(msg)) {
        const int on = 1;
        setsockopt(tcp_conn_fd(conn), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
}

const Codec codecTags[] = {Codec::pcmu, Codec::pcma, Codec::g722, Codec::opus};

void* tagOf(Codec codec) {
    return const_cast<Codec*>(&codecTags[int(codec)]);
}

} // namespace

class Client;

// ---------------------------------------------------------------------------
// One call.

class CallImpl final : public Call, public std::enable_shared_from_this<CallImpl> {
public:
    CallImpl(Client* client, bool incoming, std::string number, std::optional<std::string> name)
        : m_client(client), m_incoming(incoming), m_number(std::move(number)),
          m_name(std::move(name)) {
        tmr_init(&m_holdTimer);
        tmr_init(&m_dtmfTimer);
    }
    ~CallImpl() override = default;

    // Call, from the app's threads.
    void answer() override;
    void hangup() override;
    std::string sipCallId() const override { return m_callId; }
    std::vector<std::uint64_t> mediaCounters() const override {
        return {m_packetsIn.load(), m_packetsOut.load()};
    }
    CallStats stats() const override;
    std::vector<std::int16_t> readAudio() override;
    std::optional<std::string> remoteName() const override { return m_name; }
    std::string remoteNumber() const override { return m_number; }
    void writeAudio(const std::vector<std::int16_t>& frame) override;
    void sendDtmf(char digit) override;
    void setHold(bool hold) override;
    void transfer(const std::string& target) override;

    // The loop's side.
    int prepareMedia(const sa& localAddress, bool secure);
    void release();
    void ended(const std::string& reason);
    // False when the description is unreadable or has no codec in common.
    bool applyRemoteDescription(const struct mbuf* body, bool offer);

    static void onProgress(const struct sip_msg* msg, void* arg);
    static void onEstablished(const struct sip_msg* msg, void* arg);
    static int onAnswer(const struct sip_msg* msg, void* arg);
    static int onOffer(struct mbuf** descp, const struct sip_msg* msg, void* arg);
    static void onClosed(int err, const struct sip_msg* msg, void* arg);
    static void onRtp(const struct sa* src, const struct rtp_header* hdr, struct mbuf* mb,
                      void* arg);
    static void onRtcp(const struct sa* src, struct rtcp_msg* msg, void* arg);
    static void onHoldGuard(void* arg);
    void holdRefused();
    static void onDtmfTick(void* arg);
    static void onReferNotify(struct sip* sip, const struct sip_msg* msg, void* arg);
    static void onReferClosed(int err, const struct sip_msg* msg,
                              const struct sipevent_substate* substate, void* arg);
    static bool onSrtpSend(int* err, struct sa* dst, struct mbuf* mb, void* arg);
    static bool onSrtpReceive(struct sa* src, struct mbuf* mb, void* arg);
    static bool onSrtcpSend(int* err, struct sa* dst, struct mbuf* mb, void* arg);
    static bool onSrtcpReceive(struct sa* src, struct mbuf* mb, void* arg);

    void flushAudio();
    void report(CallState state);

    Client* m_client; // null once released
    bool m_incoming;
    std::string m_callId;
    std::string m_number;
    std::optional<std::string> m_name;

    // Loop thread only.
    struct sipsess* m_session = nullptr;
    struct sdp_session* m_sdp = nullptr;
    struct sdp_media* m_media = nullptr;
    struct rtp_sock* m_rtp = nullptr;
    struct telev* m_telev = nullptr;
    struct sipsub* m_refer = nullptr;
    struct udp_helper* m_srtpHelper = nullptr;
    struct udp_helper* m_srtcpHelper = nullptr;
    struct srtp* m_srtpSend = nullptr;
    struct srtp* m_srtpReceive = nullptr;
    struct srtp* m_srtcpSend = nullptr;
    struct srtp* m_srtcpReceive = nullptr;
    std::string m_localKey; // base64 of the SRTP master key and salt we offer
    bool m_secure = false;
    struct tmr m_holdTimer;
    struct tmr m_dtmfTimer;
    bool m_answered = false;
    bool m_established = false;
    bool m_ringingReported = false;
    bool m_over = false;
    bool m_held = false;        // the state the far end has agreed to
    bool m_holdPending = false; // a re-INVITE for hold or resume is out
    bool m_transferDone = false;
    struct sa m_remoteRtp {};
    bool m_haveRemote = false;
    int m_sendPt = -1;
    int m_eventPt = -1;
    std::array<int, 128> m_receiveCodec{};
    std::unique_ptr<AudioEncoder> m_encoder;
    std::uint32_t m_sendTimestamp = 0;
    bool m_marker = true;
    std::deque<char> m_dtmfQueue;
    int m_dtmfTicks = -1;
    std::uint32_t m_eventTimestamp = 0;

    // Statistics, cached on the loop when RTCP reports arrive.
    mutable std::mutex m_statsLock;
    std::optional<double> m_remoteLoss;
    std::optional<double> m_remoteJitterMs;
    std::optional<double> m_roundTripMs;
    std::atomic<std::uint64_t> m_packetsIn{0};
    std::atomic<std::uint64_t> m_packetsOut{0};

    // Received media: filled on the loop, drained on the render thread. The
    // lock is held only to move one packet in or out.
    mutable std::mutex m_receiveLock;
    JitterBuffer m_jitter;
    std::uint64_t m_lost = 0;
    double m_jitterMs = 0;
    // Render thread only.
    std::vector<std::int16_t> m_pcm;
    std::unique_ptr<AudioDecoder> m_decoder;
    int m_concealed = 0;

    // Microphone frames on their way to the loop.
    std::mutex m_sendLock;
    std::deque<std::vector<std::int16_t>> m_outgoing;
};

// ---------------------------------------------------------------------------
// The client of one account.

class Client final : public SipClient, public std::enable_shared_from_this<Client> {
public:
    Client(SipAccount account, std::shared_ptr<ClientDelegate> delegate, std::string host,
           std::uint16_t port, bool tls)
        : m_account(std::move(account)), m_delegate(std::move(delegate)), m_host(std::move(host)),
          m_port(port), m_tls(tls) {
        tmr_init(&m_registerTimer);
        tmr_init(&m_stopTimer);
        tmr_init(&m_keepaliveTimer);
        m_domain = m_account.realm.empty() ? m_host : m_account.realm;
        const char* transport = m_tls ? "tls" : "tcp";
        m_serverUri = format("sip:%s:%u;transport=%s", hostForUri().c_str(), m_port, transport);
        m_route = format("sip:%s:%u;transport=%s", hostForUri().c_str(), m_port, transport);
        m_aor = format("sip:%s@%s", m_account.username.c_str(), m_domain.c_str());
    }
    ~Client() override;

    std::shared_ptr<Call> placeCall(const std::string& number) override;
    void reRegister() override;
    void start() override;
    void stop() override;

    // Loop thread.
    void report(RegistrationState state);
    void reportCall(const std::string& callId, const CallState& state);
    void reportIncoming(const std::shared_ptr<Call>& call);
    void forget(CallImpl* call);
    void sendRegister(std::uint32_t expires);
    void registrationFailed(std::string reason, bool unreachable = false);
    void teardown();
    std::string serverName() const { return format("%s:%u", m_host.c_str(), m_port); }
    std::string hostForUri() const {
        return m_host.find(':') != std::string::npos ? "[" + m_host + "]" : m_host;
    }
    std::string uriFor(const std::string& user) const {
        return format("sip:%s@%s", user.c_str(), m_domain.c_str());
    }

    static int onAuth(char** user, char** password, const char* realm, void* arg);
    static int onRegisterSend(sip_transp tp, const struct sa* src, const struct sa* dst,
                              struct mbuf* mb, void* arg);
    static void onRegisterResponse(int err, const struct sip_msg* msg, void* arg);
    static void onRegisterTimer(void* arg);
    static void onKeepalive(void* arg);
    static bool onRequest(const struct sip_msg* msg, void* arg);
    static void onIncoming(const struct sip_msg* msg, void* arg);
    static void onExit(void* arg);
    static void onStopTimer(void* arg);
    static int onCertificate(int ok, X509_STORE_CTX* store);
    static void onTrace(bool sent, enum sip_transp tp, const struct sa* src, const struct sa* dst,
                        const std::uint8_t* packet, size_t length, void* arg);

    SipAccount m_account;
    std::shared_ptr<ClientDelegate> m_delegate;
    std::string m_host;
    std::uint16_t m_port;
    bool m_tls;
    std::string m_domain;
    std::string m_serverUri;
    std::string m_route;
    std::string m_aor;
    struct sa m_localAddress {};

    // Loop thread only.
    bool m_started = false;
    bool m_stopping = false;
    bool m_silenced = false; // after stop began, no callback reaches the app
    bool m_closed = false;
    struct dnsc* m_dns = nullptr;
    struct tls* m_tlsContext = nullptr;
    struct sip* m_sip = nullptr;
    struct sip_lsnr* m_listener = nullptr;
    struct sipsess_sock* m_sessions = nullptr;
    struct sipevent_sock* m_events = nullptr;
    struct sip_dialog* m_registerDialog = nullptr;
    struct sip_request* m_registerRequest = nullptr;
    struct sip_auth* m_registerAuth = nullptr;
    struct tmr m_keepaliveTimer;
    struct sa m_registrar {};
    enum sip_transp m_registrarTransport = SIP_TRANSP_TCP;
    struct tmr m_registerTimer;
    struct tmr m_stopTimer;
    std::uint32_t m_sentExpiry = 0;
    int m_challenges = 0;
    bool m_certificateRejected = false;
    std::string m_certificateError;
    std::optional<RegistrationState> m_lastReported;
    std::map<std::string, std::shared_ptr<CallImpl>> m_calls;
    std::function<void()> m_whenClosed;

    // Read on the app's thread for placeCall.
    std::mutex m_stateLock;
    RegistrationState m_state = RegistrationState::unregistered();
    // The last failure was that the server could not be reached.
    std::atomic<bool> m_unreachable{false};
};

// ---------------------------------------------------------------------------
// Client

Client::~Client() {
    // Normally stop() has closed everything; a client dropped without it is
    // closed here, without the un-REGISTER.
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

void Client::forget(CallImpl* call) {
    m_calls.erase(call->m_callId);
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

void Client::registrationFailed(std::string reason, bool unreachable) {
    if (m_stopping) {
        return;
    }
    m_unreachable = unreachable;
    report(RegistrationState::failed(std::move(reason)));
    // Try again later by itself; reRegister tries at once.
    tmr_start(&m_registerTimer, 60000, onRegisterTimer, this);
}

void Client::onRegisterResponse(int err, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<Client*>(arg);
    setNoDelay(msg);
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
    default:
        self->registrationFailed(format("The server refused the registration (%u %s).", msg->scode,
                                        text(msg->reason).c_str()));
    }
}

void Client::onRegisterTimer(void* arg) {
    auto* self = static_cast<Client*>(arg);
    if (!self->m_stopping) {
        self->sendRegister(registerExpiry);
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

bool Client::onRequest(const struct sip_msg* msg, void*) {
    setNoDelay(msg);
    return false;
}

int Client::onCertificate(int ok, X509_STORE_CTX* store) {
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
                                     std::string(message));
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
    Loop::instance().call([this] {
        if (m_started) {
            return;
        }
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
                SSL_CTX_set_default_verify_paths(context);
                std::string caFile;
                if (m_account.optionPair && m_account.optionPair->first == caFileOption) {
                    caFile = m_account.optionPair->second;
                } else if (const char* variable = getenv(caFileVariable)) {
                    caFile = variable;
                }
                if (!caFile.empty() &&
                    SSL_CTX_load_verify_locations(context, caFile.c_str(), nullptr) != 1) {
                    warn("cannot read the extra certificate authorities in " + caFile);
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
                err = sip_transp_add(m_sip, SIP_TRANSP_TLS, &m_localAddress, m_tlsContext);
            }
        } else if (!err) {
            err = sip_transp_add(m_sip, SIP_TRANSP_TCP, &m_localAddress);
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
        if (err) {
            teardown();
            throw CoreError(CoreError::Kind::message,
                            format("The SIP engine could not start (%s).", strerror(err)));
        }
        info(format("registering %s at %s over %s", m_aor.c_str(), serverName().c_str(),
                    m_tls ? "TLS" : "TCP"));
        report(RegistrationState::registering());
        sendRegister(registerExpiry);
    });
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
        self->sendRegister(registerExpiry);
    });
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
    if (!m_started) {
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
    tmr_cancel(&m_registerTimer);
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
        auto call = std::make_shared<CallImpl>(this, false, number, std::nullopt);
        int err = call->prepareMedia(m_localAddress, m_tls);
        struct mbuf* offer = nullptr;
        if (!err) {
            err = sdp_encode(&offer, call->m_sdp, true);
        }
        const std::string target = uriFor(number);
        const char* routes[] = {m_route.c_str()};
        if (!err) {
            err = sipsess_connect(&call->m_session, m_sessions, target.c_str(), nullptr,
                                  m_aor.c_str(), m_account.username.c_str(), routes, 1,
                                  "application/sdp", offer, onAuth, this, false, CallImpl::onOffer,
                                  CallImpl::onAnswer, CallImpl::onProgress, CallImpl::onEstablished,
                                  nullptr, nullptr, CallImpl::onClosed, call.get(),
                                  "Allow: INVITE,ACK,BYE,CANCEL,NOTIFY,REFER\r\n");
        }
        mem_deref(offer);
        if (err) {
            call->release();
            throw CoreError(CoreError::Kind::unreachable, serverName(), strerror(err));
        }
        call->m_callId = sip_dialog_callid(sipsess_dialog(call->m_session));
        m_calls[call->m_callId] = call;
        info("calling " + target + ", Call-ID " + call->m_callId);
        return call;
    });
}

void Client::onIncoming(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<Client*>(arg);
    setNoDelay(msg);
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
    auto call = std::make_shared<CallImpl>(self, true, text(msg->from.uri.user), name);
    call->m_callId = text(msg->callid);
    // SRTP when the caller offers it; a secure profile is answered in kind.
    const std::string body(reinterpret_cast<const char*>(mbuf_buf(msg->mb)),
                           mbuf_get_left(msg->mb));
    const bool secure = body.find("RTP/SAVP") != std::string::npos;
    int err = call->prepareMedia(self->m_localAddress, secure);
    if (!err && mbuf_get_left(msg->mb) > 0 && !call->applyRemoteDescription(msg->mb, true)) {
        call->release();
        sip_treply(nullptr, self->m_sip, msg, 488, "Not Acceptable Here");
        return;
    }
    if (!err) {
        err = sipsess_accept(&call->m_session, self->m_sessions, msg, 180, "Ringing",
                             self->m_account.username.c_str(), "application/sdp", nullptr, onAuth,
                             self, false, CallImpl::onOffer, CallImpl::onAnswer,
                             CallImpl::onEstablished, nullptr, nullptr, CallImpl::onClosed,
                             call.get(), "Allow: INVITE,ACK,BYE,CANCEL,NOTIFY,REFER\r\n");
    }
    if (err) {
        warn(format("an incoming call could not be accepted (%s)", strerror(err)));
        call->release();
        sip_treply(nullptr, self->m_sip, msg, 500, "Server Internal Error");
        return;
    }
    self->m_calls[call->m_callId] = call;
    info("incoming call from " + call->m_number + ", Call-ID " + call->m_callId);
    self->reportIncoming(call);
}

// ---------------------------------------------------------------------------
// CallImpl

int CallImpl::prepareMedia(const sa& localAddress, bool secure) {
    m_receiveCodec.fill(-1);
    RAND_bytes(reinterpret_cast<unsigned char*>(&m_sendTimestamp), sizeof m_sendTimestamp);
    m_secure = secure;
    sa address = localAddress;
    sa_set_port(&address, 0);
    int err = rtp_listen(&m_rtp, IPPROTO_UDP, &address, 20000, 40000, true, onRtp, onRtcp, this);
    if (!err) {
        err = sdp_session_alloc(&m_sdp, &address);
    }
    if (!err) {
        err = sdp_media_add(&m_media, m_sdp, "audio", sa_port(rtp_local(m_rtp)),
                            secure ? "RTP/SAVP" : "RTP/AVP");
    }
    if (!err) {
        // Offered best first; the far end's first supported one is used to send.
        err |= sdp_format_add(nullptr, m_media, false, "96", "opus", 48000, 2, nullptr, nullptr,
                              tagOf(Codec::opus), false, "minptime=10;useinbandfec=1");
        err |= sdp_format_add(nullptr, m_media, false, "9", "G722", 8000, 1, nullptr, nullptr,
                              tagOf(Codec::g722), false, nullptr);
        err |= sdp_format_add(nullptr, m_media, false, "0", "PCMU", 8000, 1, nullptr, nullptr,
                              tagOf(Codec::pcmu), false, nullptr);
        err |= sdp_format_add(nullptr, m_media, false, "8", "PCMA", 8000, 1, nullptr, nullptr,
                              tagOf(Codec::pcma), false, nullptr);
        err |= sdp_format_add(nullptr, m_media, false, "101", telev_rtpfmt, 8000, 1, nullptr,
                              nullptr, nullptr, false, "0-15");
        err |= sdp_media_set_lattr(m_media, true, "ptime", "20");
    }
    if (!err) {
        err = telev_alloc(&m_telev, 20);
    }
    if (!err && secure) {
        std::array<std::uint8_t, 30> key{};
        RAND_bytes(key.data(), int(key.size()));
        char encoded[64] = "";
        size_t length = sizeof encoded - 1;
        base64_encode(key.data(), key.size(), encoded, &length);
        encoded[length] = 0;
        m_localKey = encoded;
        err = sdp_media_set_lattr(m_media, true, "crypto", "1 AES_CM_128_HMAC_SHA1_80 inline:%s",
                                  m_localKey.c_str());
        if (!err) {
            err = srtp_alloc(&m_srtpSend, SRTP_AES_CM_128_HMAC_SHA1_80, key.data(), key.size(), 0);
        }
        if (!err) {
            err = srtp_alloc(&m_srtcpSend, SRTP_AES_CM_128_HMAC_SHA1_80, key.data(), key.size(), 0);
        }
        if (!err) {
            // Below the RTP layer: packets are encrypted last and decrypted first.
            err = udp_register_helper(&m_srtpHelper, static_cast<struct udp_sock*>(rtp_sock(m_rtp)),
                                      0, onSrtpSend, onSrtpReceive, this);
        }
        if (!err) {
            err =
                udp_register_helper(&m_srtcpHelper, static_cast<struct udp_sock*>(rtcp_sock(m_rtp)),
                                    0, onSrtcpSend, onSrtcpReceive, this);
        }
    }
    return err;
}

bool CallImpl::onSrtpSend(int* err, struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    if (self->m_srtpSend) {
        *err = self->m_srtpSend ? srtp_encrypt(self->m_srtpSend, mb) : 0;
    }
    return false;
}

bool CallImpl::onSrtcpSend(int* err, struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    *err = self->m_srtcpSend ? srtcp_encrypt(self->m_srtcpSend, mb) : 0;
    return false;
}

bool CallImpl::onSrtcpReceive(struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    return !self->m_srtcpReceive || srtcp_decrypt(self->m_srtcpReceive, mb) != 0;
}

bool CallImpl::onSrtpReceive(struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    if (!self->m_srtpReceive) {
        return true; // nothing arrives unencrypted on a secure call
    }
    return srtp_decrypt(self->m_srtpReceive, mb) != 0;
}

bool CallImpl::applyRemoteDescription(const struct mbuf* body, bool offer) {
    if (!body || mbuf_get_left(body) == 0) {
        return false;
    }
    // sdp_decode reads from the buffer's position; leave the message as it was.
    struct mbuf* copy = mbuf_alloc(mbuf_get_left(body));
    mbuf_write_mem(copy, mbuf_buf(body), mbuf_get_left(body));
    copy->pos = 0;
    const int err = sdp_decode(m_sdp, copy, offer);
    mem_deref(copy);
    if (err) {
        warn(format("call %s: unreadable session description (%s)", m_callId.c_str(),
                    strerror(err)));
        return false;
    }
    const struct sdp_format* send = sdp_media_rformat(m_media, nullptr);
    if (!send || !send->data || !sa_isset(sdp_media_raddr(m_media), SA_ALL)) {
        warn("call " + m_callId + ": no common codec");
        return false;
    }
    const Codec codec = *static_cast<const Codec*>(send->data);
    m_sendPt = send->pt;
    if (!m_encoder || m_encoder->codec() != codec) {
        m_encoder = std::make_unique<AudioEncoder>(codec);
    }
    const struct sdp_format* events = sdp_media_rformat(m_media, telev_rtpfmt);
    m_eventPt = events ? events->pt : -1;
    m_receiveCodec.fill(-1);
    const struct list* formats = sdp_media_format_lst(m_media, false);
    for (struct le* entry = list_head(formats); entry; entry = entry->next) {
        const auto* fmt = static_cast<const struct sdp_format*>(entry->data);
        if (fmt->sup && fmt->data && fmt->pt >= 0 && fmt->pt < 128) {
            m_receiveCodec[size_t(fmt->pt)] = int(*static_cast<const Codec*>(fmt->data));
        }
    }
    // Decoders for what was agreed: the remote payload types map to our codecs.
    m_remoteRtp = *sdp_media_raddr(m_media);
    if (!m_haveRemote) {
        struct sa rtcpPeer {};
        sdp_media_raddr_rtcp(m_media, &rtcpPeer);
        rtcp_start(m_rtp, "velnor-rz", &rtcpPeer);
    }
    m_haveRemote = true;
    if (m_secure) {
        const char* crypto = sdp_media_rattr(m_media, "crypto");
        pl tag{}, suite{}, key{};
        if (crypto &&
            re_regex(crypto, strlen(crypto), "[0-9]+ [^ ]+ inline:[^ |]+", &tag, &suite, &key) ==
                0 &&
            pl_strcmp(&suite, "AES_CM_128_HMAC_SHA1_80") == 0) {
            std::array<std::uint8_t, 64> raw{};
            size_t length = raw.size();
            if (base64_decode(key.p, key.l, raw.data(), &length) == 0 && length == 30 &&
                !m_srtpReceive) {
                // Separate contexts for RTP and RTCP: each keeps its own replay state.
                srtp_alloc(&m_srtpReceive, SRTP_AES_CM_128_HMAC_SHA1_80, raw.data(), length, 0);
                srtp_alloc(&m_srtcpReceive, SRTP_AES_CM_128_HMAC_SHA1_80, raw.data(), length, 0);
            }
        } else {
            warn("call " + m_callId + ": the far end offers no usable SRTP key");
        }
    }
    info(format(
        "call %s: sending %s (payload type %d) over %s to %s:%u, direction %s", m_callId.c_str(),
        codecName(codec), m_sendPt, m_secure ? "SRTP" : "RTP",
        [&] {
            char address[64];
            sa_ntop(&m_remoteRtp, address, sizeof address);
            return std::string(address);
        }()
            .c_str(),
        sa_port(&m_remoteRtp), sdp_dir_name(sdp_media_dir(m_media))));
    return true;
}

void CallImpl::report(CallState state) {
    if (m_client) {
        m_client->reportCall(m_callId, state);
    }
}

void CallImpl::ended(const std::string& reason) {
    if (m_over) {
        return;
    }
    m_over = true;
    Client* client = m_client;
    auto keep = shared_from_this();
    release();
    if (client) {
        client->reportCall(m_callId, CallState::ended(reason));
        client->forget(this);
    }
}

void CallImpl::release() {
    m_over = true;
    tmr_cancel(&m_holdTimer);
    tmr_cancel(&m_dtmfTimer);
    if (m_session && m_incoming && !m_answered) {
        sipsess_reject(m_session, 486, "Busy Here", nullptr);
    }
    m_refer = static_cast<struct sipsub*>(mem_deref(m_refer));
    m_session = static_cast<struct sipsess*>(mem_deref(m_session));
    // The socket frees its helpers itself.
    m_srtpHelper = nullptr;
    m_srtcpHelper = nullptr;
    m_rtp = static_cast<struct rtp_sock*>(mem_deref(m_rtp));
    m_srtpSend = static_cast<struct srtp*>(mem_deref(m_srtpSend));
    m_srtpReceive = static_cast<struct srtp*>(mem_deref(m_srtpReceive));
    m_srtcpSend = static_cast<struct srtp*>(mem_deref(m_srtcpSend));
    m_srtcpReceive = static_cast<struct srtp*>(mem_deref(m_srtcpReceive));
    m_media = nullptr;
    m_sdp = static_cast<struct sdp_session*>(mem_deref(m_sdp));
    m_telev = static_cast<struct telev*>(mem_deref(m_telev));
    m_encoder.reset();
    m_haveRemote = false;
    m_client = nullptr;
}

void CallImpl::onProgress(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    setNoDelay(msg);
    if (msg->scode == 183 && mbuf_get_left(msg->mb) > 0) {
        // Early media: the ringback or announcement is played as it comes.
        self->applyRemoteDescription(msg->mb, false);
    }
    if ((msg->scode == 180 || msg->scode == 183) && !self->m_ringingReported) {
        self->m_ringingReported = true;
        self->report(CallState::ringing());
    }
}

int CallImpl::onAnswer(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    setNoDelay(msg);
    self->applyRemoteDescription(msg->mb, false);
    if (self->m_holdPending) {
        // The answer to our hold or resume: the far end agreed.
        tmr_cancel(&self->m_holdTimer);
        self->m_holdPending = false;
        self->m_held = sdp_media_ldir(self->m_media) == SDP_SENDONLY;
        self->report(self->m_held ? CallState::held() : CallState::connected());
    }
    return 0;
}

int CallImpl::onOffer(struct mbuf** descp, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    setNoDelay(msg);
    self->applyRemoteDescription(msg->mb, true);
    return sdp_encode(descp, self->m_sdp, false);
}

void CallImpl::onEstablished(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    setNoDelay(msg);
    self->m_established = true;
    self->report(CallState::connected());
}

void CallImpl::onClosed(int err, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    std::string reason;
    if (msg && msg->scode >= 300) {
        reason = reasonForStatus(msg->scode, text(msg->reason));
    } else if (self->m_transferDone) {
        reason = "Transferred";
    } else if (err == ECONNRESET || !err) {
        reason = self->m_established ? "remote" : (self->m_incoming ? "Cancelled" : "remote");
    } else {
        reason = format("Unavailable (%s)", strerror(err));
    }
    info(format("call %s closed: %s", self->m_callId.c_str(), reason.c_str()));
    self->ended(reason);
}

void CallImpl::onRtp(const struct sa*, const struct rtp_header* hdr, struct mbuf* mb, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    self->m_packetsIn.fetch_add(1, std::memory_order_relaxed);
    if (hdr->pt >= 128 || int(hdr->pt) == self->m_eventPt) {
        return;
    }
    const int codec = self->m_receiveCodec[hdr->pt];
    if (codec < 0) {
        return;
    }
    MediaPacket packet;
    packet.seq = hdr->seq;
    packet.timestamp = hdr->ts;
    packet.codec = Codec(codec);
    packet.payload.assign(mbuf_buf(mb), mbuf_buf(mb) + mbuf_get_left(mb));
    const double arrival = double(nowMs());
    std::lock_guard lock(self->m_receiveLock);
    self->m_jitter.put(std::move(packet), arrival, rtpClockRate(Codec(codec)));
    self->m_jitterMs = self->m_jitter.jitterMs();
}

void CallImpl::onRtcp(const struct sa*, struct rtcp_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    const struct rtcp_rr* reports = nullptr;
    std::uint32_t count = msg->hdr.count;
    std::uint32_t sender = 0;
    if (msg->hdr.pt == RTCP_SR) {
        reports = msg->r.sr.rrv;
        sender = msg->r.sr.ssrc;
    } else if (msg->hdr.pt == RTCP_RR) {
        reports = msg->r.rr.rrv;
        sender = msg->r.rr.ssrc;
    } else {
        return;
    }
    // The far end's view of what we send: only readable here, as it arrives.
    const std::uint32_t ours = self->m_rtp ? rtp_sess_ssrc(self->m_rtp) : 0;
    for (std::uint32_t i = 0; reports && i < count; ++i) {
        if (reports[i].ssrc != ours) {
            continue;
        }
        std::lock_guard lock(self->m_statsLock);
        self->m_remoteLoss = double(reports[i].fraction) / 256.0;
        const std::uint32_t rate = self->m_encoder ? rtpClockRate(self->m_encoder->codec()) : 8000;
        self->m_remoteJitterMs = double(reports[i].jitter) * 1000.0 / double(rate);
        struct rtcp_stats stats {};
        if (self->m_rtp && rtcp_stats(self->m_rtp, sender, &stats) == 0 && stats.rtt) {
            self->m_roundTripMs = double(stats.rtt) / 1000.0;
        }
    }
}

CallStats CallImpl::stats() const {
    CallStats out;
    out.packetsReceived = m_packetsIn.load();
    {
        std::lock_guard lock(m_receiveLock);
        out.packetsLost = m_lost;
        out.jitterMs = m_jitterMs;
    }
    std::lock_guard lock(m_statsLock);
    out.remoteLoss = m_remoteLoss;
    out.remoteJitterMs = m_remoteJitterMs;
    out.roundTripMs = m_roundTripMs;
    return out;
}

std::vector<std::int16_t> CallImpl::readAudio() {
    std::vector<std::int16_t> frame;
    // Decode on this thread: only moving packets out needs the lock, and a
    // busy lock means this frame is concealed rather than waited for.
    while (int(m_pcm.size()) < frameSamples) {
        MediaPacket packet;
        JitterBuffer::Take taken = JitterBuffer::Take::empty;
        {
            std::unique_lock lock(m_receiveLock, std::try_to_lock);
            if (lock.owns_lock()) {
                taken = m_jitter.take(packet);
                if (taken == JitterBuffer::Take::lost) {
                    ++m_lost;
                }
            }
        }
        if (taken == JitterBuffer::Take::packet) {
            if (!m_decoder || m_decoder->codec() != packet.codec) {
                m_decoder = std::make_unique<AudioDecoder>(packet.codec);
            }
            m_decoder->decode(packet.payload, m_pcm);
            m_concealed = 0;
        } else if (m_decoder && m_concealed < 5) {
            // A gap, or nothing yet: bridge up to 100 ms, then fall silent.
            m_decoder->conceal(m_pcm);
            ++m_concealed;
            if (taken == JitterBuffer::Take::empty) {
                break;
            }
        } else {
            m_pcm.resize(m_pcm.size() + frameSamples, 0);
            break;
        }
    }
    const size_t count = std::min<size_t>(frameSamples, m_pcm.size());
    frame.assign(m_pcm.begin(), m_pcm.begin() + long(count));
    m_pcm.erase(m_pcm.begin(), m_pcm.begin() + long(count));
    frame.resize(frameSamples, 0);
    return frame;
}

void CallImpl::writeAudio(const std::vector<std::int16_t>& frame) {
    if (frame.empty()) {
        return;
    }
    {
        std::lock_guard lock(m_sendLock);
        if (m_outgoing.size() > 10) {
            m_outgoing.pop_front();
        }
        m_outgoing.push_back(frame);
    }
    Loop::instance().post([weak = weak_from_this()] {
        if (auto self = weak.lock()) {
            self->flushAudio();
        }
    });
}

void CallImpl::flushAudio() {
    for (;;) {
        std::vector<std::int16_t> frame;
        {
            std::lock_guard lock(m_sendLock);
            if (m_outgoing.empty()) {
                return;
            }
            frame = std::move(m_outgoing.front());
            m_outgoing.pop_front();
        }
        if (m_over || !m_rtp || !m_haveRemote || !m_encoder || m_sendPt < 0 ||
            !(sdp_media_dir(m_media) & SDP_SENDONLY) || m_dtmfTicks >= 0) {
            // Keep the clock moving so that the far end sees no jump when sending resumes.
            if (m_encoder) {
                m_sendTimestamp += rtpFrameTicks(m_encoder->codec());
            }
            continue;
        }
        const std::vector<std::uint8_t> payload =
            m_encoder->encode(frame.data(), int(frame.size()));
        if (payload.empty()) {
            continue;
        }
        struct mbuf* mb = mbuf_alloc(RTP_HEADER_SIZE + payload.size());
        mb->pos = RTP_HEADER_SIZE;
        mbuf_write_mem(mb, payload.data(), payload.size());
        mb->pos = RTP_HEADER_SIZE;
        if (rtp_send(m_rtp, &m_remoteRtp, false, m_marker, std::uint8_t(m_sendPt), m_sendTimestamp,
                     mb) == 0) {
            m_packetsOut.fetch_add(1, std::memory_order_relaxed);
        }
        mem_deref(mb);
        m_marker = false;
        m_sendTimestamp += rtpFrameTicks(m_encoder->codec()) * std::uint32_t(frame.size()) /
                           std::uint32_t(frameSamples);
    }
}

void CallImpl::answer() {
    Loop::instance().call([this] {
        if (!m_incoming || m_answered) {
            return;
        }
        if (m_over || !m_session) {
            throw CoreError(CoreError::Kind::message, "The call has already ended.");
        }
        struct mbuf* answer = nullptr;
        int err = sdp_encode(&answer, m_sdp, false);
        if (!err) {
            err = sipsess_answer(m_session, 200, "OK", answer, nullptr);
        }
        mem_deref(answer);
        if (err) {
            throw CoreError(CoreError::Kind::message,
                            format("The call could not be answered (%s).", strerror(err)));
        }
        m_answered = true;
    });
}

void CallImpl::hangup() {
    auto keep = shared_from_this();
    Loop::instance().call([this] {
        if (m_over || !m_client) {
            return;
        }
        // Releasing the session sends CANCEL before an answer and BYE after
        // it; an unanswered incoming call is refused as busy.
        ended("local");
    });
}

void CallImpl::sendDtmf(char digit) {
    const int code = telev_digit2code(std::toupper(static_cast<unsigned char>(digit)));
    if (code < 0) {
        throw CoreError(CoreError::Kind::message,
                        format("\"%c\" is not a key of the keypad.", digit));
    }
    Loop::instance().call([this, digit] {
        if (m_over || !m_haveRemote) {
            throw CoreError(CoreError::Kind::message, "The call is not connected.");
        }
        if (m_eventPt < 0) {
            throw CoreError(CoreError::Kind::message, "The far end takes no keypad tones.");
        }
        m_dtmfQueue.push_back(digit);
        if (!tmr_isrunning(&m_dtmfTimer)) {
            tmr_start(&m_dtmfTimer, 0, onDtmfTick, this);
        }
    });
}

// Each digit sounds for 100 ms, then its end is sent; events go out every 20 ms
// as RFC 4733 packets in place of the voice.
void CallImpl::onDtmfTick(void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    if (self->m_over || !self->m_rtp) {
        return;
    }
    if (self->m_dtmfTicks < 0) {
        if (self->m_dtmfQueue.empty()) {
            return;
        }
        const char digit = self->m_dtmfQueue.front();
        self->m_dtmfQueue.pop_front();
        telev_send(self->m_telev, telev_digit2code(std::toupper(static_cast<unsigned char>(digit))),
                   false);
        self->m_dtmfTicks = 0;
        // Every packet of one event carries the time stamp of its start.
        self->m_eventTimestamp = self->m_sendTimestamp;
        info(format("call %s: sending key %c", self->m_callId.c_str(), digit));
    }
    if (++self->m_dtmfTicks == 5) {
        telev_send(self->m_telev, 0, true);
    }
    struct mbuf* mb = mbuf_alloc(RTP_HEADER_SIZE + 16);
    mb->pos = RTP_HEADER_SIZE;
    mb->end = RTP_HEADER_SIZE;
    bool marker = false;
    const int err = telev_poll(self->m_telev, &marker, mb);
    if (!err) {
        mb->pos = RTP_HEADER_SIZE;
        if (rtp_send(self->m_rtp, &self->m_remoteRtp, false, marker, std::uint8_t(self->m_eventPt),
                     self->m_eventTimestamp, mb) == 0) {
            self->m_packetsOut.fetch_add(1, std::memory_order_relaxed);
        }
    } else if (self->m_dtmfTicks > 5) {
        // The end packets are out: the next digit, or the voice again.
        self->m_dtmfTicks = -1;
    }
    mem_deref(mb);
    if (self->m_dtmfTicks >= 0 || !self->m_dtmfQueue.empty()) {
        tmr_start(&self->m_dtmfTimer, 20, onDtmfTick, self);
    }
}

void CallImpl::setHold(bool hold) {
    Loop::instance().call([this, hold] {
        if (m_over || !m_session || !m_established) {
            throw CoreError(CoreError::Kind::message, "The call is not connected.");
        }
        if (m_holdPending) {
            throw CoreError(CoreError::Kind::message, "The call is already being held or resumed.");
        }
        if (hold == m_held) {
            report(m_held ? CallState::held() : CallState::connected());
            return;
        }
        sdp_media_set_ldir(m_media, hold ? SDP_SENDONLY : SDP_SENDRECV);
        struct mbuf* offer = nullptr;
        int err = sdp_encode(&offer, m_sdp, true);
        if (!err) {
            err = sipsess_modify(m_session, offer);
        }
        mem_deref(offer);
        if (err) {
            sdp_media_set_ldir(m_media, m_held ? SDP_SENDONLY : SDP_SENDRECV);
            throw CoreError(
                CoreError::Kind::message,
                format("The call could not be %s (%s).", hold ? "held" : "resumed", strerror(err)));
        }
        m_holdPending = true;
        // A refused re-INVITE gives no callback: the guard puts things back.
        tmr_start(&m_holdTimer, holdGuardMs, onHoldGuard, this);
    });
}

void CallImpl::holdRefused() {
    if (m_holdPending && !m_over) {
        tmr_cancel(&m_holdTimer);
        onHoldGuard(this);
    }
}

void CallImpl::onHoldGuard(void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    if (!self->m_holdPending || self->m_over) {
        return;
    }
    self->m_holdPending = false;
    warn("call " + self->m_callId + ": the far end did not agree to hold or resume");
    sdp_media_set_ldir(self->m_media, self->m_held ? SDP_SENDONLY : SDP_SENDRECV);
    self->report(self->m_held ? CallState::held() : CallState::connected());
}

void CallImpl::transfer(const std::string& target) {
    if (!isCallableNumber(target)) {
        throw CoreError(CoreError::Kind::message,
                        "\"" + target + "\" is not a number that calls can be transferred to.");
    }
    Loop::instance().call([this, target] {
        if (m_over || !m_session || !m_established || !m_client) {
            throw CoreError(CoreError::Kind::message, "The call is not connected.");
        }
        if (m_refer) {
            throw CoreError(CoreError::Kind::message, "A transfer of this call is under way.");
        }
        const std::string uri = m_client->uriFor(target);
        const int err =
            sipevent_drefer(&m_refer, m_client->m_events, sipsess_dialog(m_session),
                            m_client->m_account.username.c_str(), Client::onAuth, m_client, false,
                            onReferNotify, onReferClosed, this, "Refer-To: <%s>\r\n", uri.c_str());
        if (err) {
            throw CoreError(CoreError::Kind::message,
                            format("The transfer could not be started (%s).", strerror(err)));
        }
        info("call " + m_callId + ": transferring to " + uri);
        report(CallState::transferring());
    });
}

void CallImpl::onReferNotify(struct sip* sip, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    sip_reply(sip, msg, 200, "OK");
    struct pl version {
    }, status{}, phrase{};
    if (mbuf_get_left(msg->mb) == 0 ||
        re_regex(reinterpret_cast<const char*>(mbuf_buf(msg->mb)), mbuf_get_left(msg->mb),
                 "SIP/[0-9.]+ [0-9]+[ ]*[^\r\n]*", &version, &status, nullptr, &phrase)) {
        return;
    }
    const std::uint32_t code = pl_u32(&status);
    if (code < 200 || self->m_over) {
        return;
    }
    // The subscription is still in its own handler: let it go once that returned.
    struct sipsub* finished = self->m_refer;
    self->m_refer = nullptr;
    Loop::instance().post([finished] { mem_deref(finished); });
    if (code < 300) {
        self->m_transferDone = true;
        self->ended("Transferred");
    } else {
        self->report(CallState::transferFailed(reasonForStatus(std::uint16_t(code), text(phrase))));
    }
}

void CallImpl::onReferClosed(int err, const struct sip_msg* msg, const struct sipevent_substate*,
                             void* arg) {
    auto* self = static_cast<CallImpl*>(arg);
    self->m_refer = static_cast<struct sipsub*>(mem_deref(self->m_refer));
    if (self->m_over || self->m_transferDone) {
        return;
    }
    std::string reason = "The transfer failed.";
    if (msg && msg->scode >= 300) {
        reason = reasonForStatus(msg->scode, text(msg->reason));
    } else if (err) {
        reason = format("The transfer failed (%s).", strerror(err));
    }
    self->report(CallState::transferFailed(reason));
}

// ---------------------------------------------------------------------------
// Making a client.

namespace {

// The address this machine uses to reach the server, for Contact and media.
bool localAddressFor(const std::string& host, std::uint16_t port, sa& local) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) || !found) {
        return false;
    }
    bool ok = false;
    const int fd = socket(found->ai_family, SOCK_DGRAM, 0);
    if (fd >= 0 && connect(fd, found->ai_addr, found->ai_addrlen) == 0) {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
            ok = sa_set_sa(&local, reinterpret_cast<sockaddr*>(&address)) == 0;
            sa_set_port(&local, 0);
        }
    }
    if (fd >= 0) {
        close(fd);
    }
    freeaddrinfo(found);
    return ok;
}

} // namespace

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
    Loop::instance();
    auto client =
        std::make_shared<Client>(account, std::move(delegate), host, std::uint16_t(port), tls);
    if (!localAddressFor(host, std::uint16_t(port), client->m_localAddress)) {
        throw CoreError(CoreError::Kind::unreachable, account.server, "no address for the host");
    }
    info(format("SIP over %s to %s", tls ? "TLS" : "TCP", account.server.c_str()));
    return client;
}

} // namespace core

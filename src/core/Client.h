#pragma once

// The SIP client of one account: the transport (TCP, or TLS with the
// server's certificate checked), registration with its refresh and
// keep-alives, and the calls of the account. Its state belongs to the loop
// thread; the app's thread only posts work there.

#include "CallSession.h"
#include "Core.h"
#include "NetworkWatch.h"

#include <re.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

struct x509_store_ctx_st;

namespace core {

class Client final : public SipClient, public std::enable_shared_from_this<Client> {
public:
    Client(SipAccount account, std::shared_ptr<ClientDelegate> delegate, std::string host,
           std::uint16_t port, bool tls);
    ~Client() override;

    std::shared_ptr<Call> placeCall(const std::string& number) override;
    void reRegister() override;
    void networkChanged() override;
    void start() override;
    void stop() override;

    // Loop thread.
    void reportCall(const std::string& callId, const CallState& state);
    void forget(const std::string& callId);
    // A message on the registrar's connection could not be read where it
    // ended, so nothing after it on that connection can be trusted: the
    // connection is replaced and the registration made again on the new one.
    void dropUntrustedConnection(const std::string& why);
    std::string uriFor(const std::string& user) const;

    static int onAuth(char** user, char** password, const char* realm, void* arg);

    const SipAccount m_account;
    std::string m_route;
    std::string m_aor;
    struct sa m_localAddress {};
    struct sipsess_sock* m_sessions = nullptr;
    struct sipevent_sock* m_events = nullptr;

private:
    friend std::shared_ptr<SipClient> SipClient::init(const SipAccount&,
                                                      std::shared_ptr<ClientDelegate>);

    void report(RegistrationState state);
    void reportIncoming(const std::shared_ptr<Call>& call);
    void sendRegister(std::uint32_t expires);
    void registrationFailed(std::string reason, bool unreachable = false,
                            std::uint64_t retryMs = 60000);
    void teardown();
    // start()'s work on the loop: the SIP stack, TLS, then registration.
    void setUp();
    // The server's name is resolved on a thread of its own; the outcome
    // arrives on the loop through resolved().
    void resolveInBackground();
    void resolved(bool ok, const sa& local, const sa& server);
    void openTransportAndRegister();
    // Registers now, or first resolves the name again when that failed before.
    void registerNow();
    std::string unreachableReason() const;
    // After the network changed: finds the address the server is reached
    // from now. When it moved, or when reconnect asks for it (a resume, whose
    // connections may be dead without knowing it), registers on a new
    // connection and moves each call there with a re-INVITE.
    void followNetwork(bool reconnect);
    // How long to wait before trying an unreachable server again: doubling
    // from one second up to a minute.
    std::uint64_t nextRetryMs();
    // Closes the transport with its connections and forgets the REGISTER and
    // the watch that were on them.
    void dropConnections();
    void setUpTls();
    std::string serverName() const;
    std::string hostForUri() const;

    static int onRegisterSend(sip_transp tp, const struct sa* src, const struct sa* dst,
                              struct mbuf* mb, void* arg);
    static void onRegisterResponse(int err, const struct sip_msg* msg, void* arg);
    static void onRegisterTimer(void* arg);
    static void onRegisterGuard(void* arg);
    static void onConnectionLost(int err, void* arg);
    // Drops the registrar's connection state and registers again on a new one.
    void registerOnNewConnection();
    static void onKeepalive(void* arg);
    static bool onRequest(const struct sip_msg* msg, void* arg);
    static void onIncoming(const struct sip_msg* msg, void* arg);
    static void onExit(void* arg);
    static void onStopTimer(void* arg);
    static int onCertificate(int ok, x509_store_ctx_st* store);
    static void onTrace(bool sent, enum sip_transp tp, const struct sa* src, const struct sa* dst,
                        const std::uint8_t* packet, size_t length, void* arg);

    std::shared_ptr<ClientDelegate> m_delegate;
    std::string m_host;
    std::uint16_t m_port;
    bool m_tls;
    std::string m_domain;
    std::string m_serverUri;

    enum class Resolution { pending, done, failed };
    Resolution m_resolution = Resolution::pending;

    // Loop thread only.
    bool m_transportOpen = false;
    bool m_started = false;
    bool m_stopping = false;
    bool m_silenced = false; // after stop began, no callback reaches the app
    bool m_closed = false;
    struct dnsc* m_dns = nullptr;
    struct tls* m_tlsContext = nullptr;
    struct sip* m_sip = nullptr;
    struct sip_lsnr* m_listener = nullptr;
    struct sip_dialog* m_registerDialog = nullptr;
    struct sip_request* m_registerRequest = nullptr;
    struct sip_auth* m_registerAuth = nullptr;
    struct sip_keepalive* m_connectionWatch = nullptr; // on the registration's connection
    // A registration on a new connection is on its way: one lost connection
    // often tells twice (the message that could not be read, then the reset).
    bool m_newConnectionPending = false;
    struct tmr m_keepaliveTimer;
    struct sa m_registrar {};
    struct sa m_serverAddress {}; // where the server's name led, once resolved
    NetworkWatch m_networkWatch;
    int m_failuresInRow = 0; // unreachable in a row, for the back-off
    enum sip_transp m_registrarTransport = SIP_TRANSP_TCP;
    struct tmr m_registerTimer;
    struct tmr m_registerGuard; // a REGISTER sent and not yet answered
    int m_unansweredRegisters = 0;
    struct tmr m_stopTimer;
    std::uint32_t m_sentExpiry = 0;
    int m_challenges = 0;
    bool m_certificateRejected = false;
    std::string m_certificateError;
    std::string m_caFileError; // the extra authorities named in optionPair are unreadable
    std::optional<RegistrationState> m_lastReported;
    std::map<std::string, std::shared_ptr<CallSession>> m_calls;
    std::function<void()> m_whenClosed;

    // App's thread: start() was called.
    std::atomic<bool> m_startCalled{false};

    // Read on the app's thread for placeCall.
    std::mutex m_stateLock;
    RegistrationState m_state = RegistrationState::unregistered();
    // The last failure was that the server could not be reached.
    std::atomic<bool> m_unreachable{false};
};

} // namespace core

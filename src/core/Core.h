#pragma once

// The telephony engine's whole surface. Everything the app knows of SIP and
// media passes through these types; nothing of the libraries underneath is
// visible here.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace core {

// The account to register, given once to SipClient::init.
//
// Transport: SIP runs over TLS when the server's port is 5061 or 443 (or when
// optionFlag is set), over TCP otherwise. TLS checks the server's certificate
// and its host name or IP address against the system's authorities, plus the
// PEM file named by optionPair {"tls-ca-file", path} (a file that cannot be
// read fails the registration); a certificate that does not pass fails the
// registration. Calls over TLS use SRTP (SDES keys in the SDP).
struct SipAccount {
    std::string server; // the edge, "host:port"
    std::string realm;  // may be empty
    std::string username;
    std::string password;
    bool optionFlag = false; // TLS whatever the port; the app leaves it false
    std::optional<std::pair<std::string, std::string>> optionPair; // {"tls-ca-file", path}
    bool trailingFlag = false;                                     // unused

    bool operator==(const SipAccount&) const = default;
};

struct RegistrationState {
    enum class Kind { registered, failed, registering, unregistered };

    Kind kind = Kind::unregistered;
    std::string reason; // failed: the reason in words for a person

    static RegistrationState registered() { return {Kind::registered, {}}; }
    static RegistrationState failed(std::string why) { return {Kind::failed, std::move(why)}; }
    static RegistrationState registering() { return {Kind::registering, {}}; }
    static RegistrationState unregistered() { return {Kind::unregistered, {}}; }

    bool operator==(const RegistrationState&) const = default;
};

struct CallState {
    enum class Kind { transferFailed, ended, ringing, connected, held, transferring };

    Kind kind = Kind::ringing;
    std::string reason; // transferFailed and ended; "local" when this side ended the call

    static CallState transferFailed(std::string why) {
        return {Kind::transferFailed, std::move(why)};
    }
    static CallState ended(std::string why) { return {Kind::ended, std::move(why)}; }
    static CallState ringing() { return {Kind::ringing, {}}; }
    static CallState connected() { return {Kind::connected, {}}; }
    static CallState held() { return {Kind::held, {}}; }
    static CallState transferring() { return {Kind::transferring, {}}; }

    bool operator==(const CallState&) const = default;
};

// Printable forms, for logs: "registered", "failed(wrong password)", "ended(Busy)".
std::string toString(const RegistrationState& state);
std::string toString(const CallState& state);
std::ostream& operator<<(std::ostream& out, const RegistrationState& state);
std::ostream& operator<<(std::ostream& out, const CallState& state);

// What a failing operation of the engine throws.
class CoreError : public std::exception {
public:
    enum class Kind { invalidSettings, message, unreachable, noAnswer };

    CoreError(Kind kind, std::string text, std::string detail = {})
        : m_kind(kind), m_text(std::move(text)), m_detail(std::move(detail)) {}

    Kind kind() const { return m_kind; }
    // invalidSettings: what is wrong; message: a whole sentence;
    // unreachable: the server; noAnswer: the party.
    const std::string& text() const { return m_text; }
    const std::string& detail() const { return m_detail; }
    const char* what() const noexcept override { return m_text.c_str(); }

private:
    Kind m_kind;
    std::string m_text;
    std::string m_detail;
};

struct CallStats {
    std::uint64_t packetsReceived = 0;
    std::uint64_t packetsLost = 0;
    double jitterMs = 0;
    std::optional<double> remoteLoss; // 0.0 to 1.0, as the far end reports it
    std::optional<double> remoteJitterMs;
    std::optional<double> roundTripMs;

    bool operator==(const CallStats&) const = default;
};

// One call, made by the engine. It stays usable for as long as anyone holds
// it, also after it has ended: readAudio, writeAudio and hangup are then harmless.
// All operations but readAudio and writeAudio are called on the app's main thread.
class Call {
public:
    virtual ~Call() = default;

    virtual void answer() = 0;
    virtual void hangup() = 0;
    // The dialog's SIP Call-ID, there from the moment the call exists.
    virtual std::string sipCallId() const = 0;
    // [packets in, packets out, ...]; at least two elements.
    virtual std::vector<std::uint64_t> mediaCounters() const = 0;
    virtual CallStats stats() const = 0;
    // Received audio at 8000 Hz, normally 160 samples. Called on the real-time
    // render thread: never blocks, never empty, silence when nothing arrived.
    virtual std::vector<std::int16_t> readAudio() = 0;
    // The same into the caller's buffer, exactly count samples, for render
    // paths that must not touch the heap; the engine's calls neither allocate,
    // free nor lock here. The default copies what readAudio() gives.
    virtual void readAudioInto(std::int16_t* out, std::size_t count);
    virtual std::optional<std::string> remoteName() const = 0;
    virtual std::string remoteNumber() const = 0;
    // Microphone audio, exactly 160 samples at 8000 Hz, from the capture
    // thread, once per frame, in order.
    virtual void writeAudio(const std::vector<std::int16_t>& frame) = 0;
    virtual void sendDtmf(char digit) = 0;
    // The outcome arrives as held or connected through callStateChanged.
    virtual void setHold(bool hold) = 0;
    // Blind transfer; the outcome arrives as transferring, then ended or transferFailed.
    virtual void transfer(const std::string& target) = 0;
};

// Implemented by the app. Called on the engine's own thread, one call at a
// time, in the order events happened; each callback returns at once.
class ClientDelegate {
public:
    virtual ~ClientDelegate() = default;

    virtual void registrationChanged(RegistrationState state) = 0;
    virtual void incomingCall(std::shared_ptr<Call> call) = 0;
    virtual void callStateChanged(std::string sipCallId, CallState state) = 0;
};

// The signalling client of one account. Order of use: init, start, any number
// of placeCall and reRegister, stop. After stop no delegate callback arrives.
class SipClient {
public:
    virtual ~SipClient() = default;

    // Throws CoreError when the account cannot be used. Returns at once: a
    // server name is resolved in the background.
    static std::shared_ptr<SipClient> init(const SipAccount& account,
                                           std::shared_ptr<ClientDelegate> delegate);

    // Sends the INVITE at once; the call's progress arrives through the delegate.
    virtual std::shared_ptr<Call> placeCall(const std::string& number) = 0;
    virtual void reRegister() = 0;
    // The machine woke up or its network changed under the client: registers
    // again on a new connection, and moves each connected call to the address
    // the server is reached from now (a re-INVITE with the new Contact and
    // media address). The engine notices address and route changes by itself;
    // this is for what only the app hears of, such as a resume.
    virtual void networkChanged() = 0;
    // Begins registration without waiting; what follows, failures included,
    // arrives through registrationChanged.
    virtual void start() = 0;
    virtual void stop() = 0;
};

// Sets the engine's log filter: "target=level,..." with a bare level as the
// default for every target; the engine logs under the target "velnor_core".
void initLogging(const std::string& filter);

enum class LogLevel { off, error, warn, info, debug, trace };

// Where the engine's lines go once the filter lets them through: a time-stamped
// line on standard error until the app sets its own (an empty sink puts that
// back). Called on the engine's own threads, one line at a time; returns at once.
// Secrets (passwords, digest responses, SRTP keys) never reach it.
using LogSink = std::function<void(LogLevel level, const std::string& message)>;
void setLogSink(LogSink sink);

} // namespace core

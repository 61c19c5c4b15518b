#pragma once

// Real SIP peers on loopback for the engine's tests: kamailio as registrar and
// proxy (digest auth, TCP and TLS), baresip parties, sipp scenarios. Each runs
// on its own ports in a private folder, bounded in time, stopped by its PID.

#include "Services.h"
#include "core/Core.h"

#include <QStringList>
#include <QTcpSocket>

#include <QTemporaryDir>
#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

using namespace std::chrono_literals;

// Where kamailio and the baresip parties run: on loopback, unless a test puts
// them behind a network of its own (an address of theirs, and the command that
// starts a program there, such as "ip netns exec NAME").
struct LabNetwork {
    std::string host = "127.0.0.1";
    QStringList launcher;
    // Where the test reaches the parties' control ports, when that is not host.
    std::string control;

    const std::string& controlHost() const { return control.empty() ? host : control; }
};
LabNetwork& labNetwork();

// Certificates made for one test: a CA the test trusts, one it does not, and a
// server certificate for 127.0.0.1 from each.
struct TestCertificates {
    explicit TestCertificates(const QString& dir);
    QString trustedCa;
    QString serverCert; // from the trusted CA
    QString serverKey;
    QString strangerCert; // from the CA nobody trusts
    QString strangerKey;
    QString otherHostCert; // from the trusted CA, but for another host
    QString otherHostKey;
};

class Kamailio {
public:
    struct Options {
        bool strangerCertificate = false;  // serve TLS with the untrusted CA's certificate
        std::uint16_t sippPort = 0;        // "sipp..." numbers go to a sipp at this port
        bool otherHostCertificate = false; // serve TLS with a certificate for another host
    };
    Kamailio(const QString& dir, const TestCertificates& certs, Options options);
    ~Kamailio();

    std::uint16_t tcpPort() const { return m_tcpPort; }
    std::uint16_t tlsPort() const { return m_tlsPort; }
    std::string tcpServer() const { return labNetwork().host + ":" + std::to_string(m_tcpPort); }
    void stop() { m_process.stop(); }

    // Users and their passwords.
    static const std::map<std::string, std::string>& users();

private:
    std::uint16_t m_tcpPort;
    std::uint16_t m_tlsPort;
    ChildProcess m_process;
};

// One baresip user agent, registered at kamailio, controlled over its TCP
// control port; its events (as JSON lines) are collected.
class Baresip {
public:
    // tonePlayer answers on command; answeringPlayer plays the tone and answers at once.
    enum class Role { echo, tonePlayer, srtpEcho, answeringPlayer };
    Baresip(const QString& dir, const std::string& user, Role role, const Kamailio& kamailio,
            const QString& toneFile, const QString& caFile, const QByteArray& codecs = "pcmu,pcma");
    ~Baresip();

    void command(const std::string& name, const std::string& params = {});
    // Waits for an event whose JSON text contains every one of the pieces.
    std::string waitEvent(const std::vector<std::string>& pieces,
                          std::chrono::milliseconds bound = 10s);
    bool sawEvent(const std::vector<std::string>& pieces);
    std::string user() const { return m_user; }

private:
    void readEvents(std::chrono::milliseconds bound);

    std::string m_user;
    ChildProcess m_process;
    QTcpSocket m_control;
    QByteArray m_buffer;
    std::vector<std::string> m_events;
};

// A sine tone file for the playing party.
// The party plays it without conversion, so its rate and channels are the codec's.
QString writeToneFile(const QString& dir, int hz, int rate = 8000, int channels = 1);

// The plainest far end for sipp: rings, answers at once, takes the BYE; call
// after call.
const char* answeringScenario();

// Runs a sipp scenario to its end; gives its exit status (0: every step matched).
class Sipp {
public:
    Sipp(const QString& dir, const QString& scenarioXml, std::uint16_t port, int calls = 1);
    // remote: where a client scenario sends to; empty for a server scenario.
    // extra: more of sipp's options.
    void start(const std::string& remote = {}, const QStringList& extra = {});
    int waitExit(std::chrono::milliseconds bound = 30s);
    std::string output();

private:
    QString m_scenario;
    QString m_dir;
    std::uint16_t m_port;
    int m_calls;
    ChildProcess m_process;
};

// What the engine reports, kept in order; waits are bounded.
class Events : public core::ClientDelegate {
public:
    void registrationChanged(core::RegistrationState state) override;
    void incomingCall(std::shared_ptr<core::Call> call) override;
    void callStateChanged(std::string sipCallId, core::CallState state) override;

    core::RegistrationState
    waitRegistration(std::function<bool(const core::RegistrationState&)> wanted,
                     std::chrono::milliseconds bound = 10s);
    core::RegistrationState waitRegistered(std::chrono::milliseconds bound = 10s);
    core::RegistrationState waitFailed(std::chrono::milliseconds bound = 10s);
    core::CallState waitCall(const std::string& callId, core::CallState::Kind kind,
                             std::chrono::milliseconds bound = 10s);
    std::shared_ptr<core::Call> waitIncoming(std::chrono::milliseconds bound = 10s);

    std::vector<core::CallState> callStates(const std::string& callId);
    // Waits until the call has had at least count states; false when the bound passed.
    bool waitCallCount(const std::string& callId, size_t count,
                       std::chrono::milliseconds bound = 10s);
    std::vector<core::RegistrationState> registrations();
    int total();

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<core::RegistrationState> m_registrations;
    std::vector<std::pair<std::string, core::CallState>> m_calls;
    std::deque<std::shared_ptr<core::Call>> m_incoming;
    int m_total = 0;
};

// The engine's log lines, for as long as it lives.
struct LogLines {
    LogLines();
    ~LogLines();
    std::string all();
    // Waits, within the bound, until a line with this text was logged.
    bool waitFor(const std::string& piece, std::chrono::milliseconds bound = 10s);

    std::mutex lock;
    std::condition_variable changed;
    std::string text;
};

core::SipAccount accountFor(const std::string& server, const std::string& user,
                            const std::string& password);

// What a dashboard answers a device's provisioning, made for one of this
// kamailio's users: the reply a test has rz-devserver give when the device
// must register here rather than at rz-devserver's own phone system.
nlohmann::json labDevice(const Kamailio& kamailio, const std::string& user = "alice",
                         bool tls = false);

// Plays a tone into a call and records what comes back, frame by frame at the
// pace of real audio devices, on two threads as the app does.
class AudioLoop {
public:
    explicit AudioLoop(std::shared_ptr<core::Call> call, int toneHz = 0);
    ~AudioLoop();
    std::vector<std::int16_t> recorded();
    void stop();

private:
    std::shared_ptr<core::Call> m_call;
    std::atomic<bool> m_running{true};
    std::mutex m_lock;
    std::vector<std::int16_t> m_recorded;
    std::thread m_reader;
    std::thread m_writer;
};

// Goertzel power at a frequency, over samples at 8000 Hz.
double tonePower(const std::vector<std::int16_t>& samples, double hz);
// How far (dB) the power at hz stands over the strongest of the other test bins.
double toneMarginDb(const std::vector<std::int16_t>& samples, double hz);

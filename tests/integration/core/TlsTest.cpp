#include "SipLab.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <mutex>
#include <random>

#include <thread>

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

struct Lab {
    explicit Lab(bool stranger = false, bool otherHost = false)
        : kamailio(dir.path(), certs, {stranger, 0, otherHost}) {}
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    Kamailio kamailio;
    std::shared_ptr<Events> events = std::make_shared<Events>();

    core::SipAccount tlsAccount(const std::string& user) {
        auto account = accountFor("127.0.0.1:" + std::to_string(kamailio.tlsPort()), user,
                                  Kamailio::users().at(user));
        account.optionFlag = true;
        account.optionPair =
            std::make_pair(std::string("tls-ca-file"), certs.trustedCa.toStdString());
        return account;
    }
};

// A listener on a loopback address of its own (the whole of 127/8 is this
// machine), so that the standard ports can be used without meeting anyone.
class FirstBytes {
public:
    explicit FirstBytes(std::uint16_t port) {
        std::random_device random;
        m_host = "127." + std::to_string(100 + random() % 100) + "." +
                 std::to_string(random() % 250 + 1) + "." + std::to_string(random() % 250 + 1);
        m_fd = socket(AF_INET, SOCK_STREAM, 0);
        const int on = 1;
        setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        inet_pton(AF_INET, m_host.c_str(), &address.sin_addr);
        m_bound = bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                  ::listen(m_fd, 4) == 0;
        m_server = m_host + ":" + std::to_string(port);
    }
    ~FirstBytes() { close(m_fd); }
    bool bound() const { return m_bound; }
    const std::string& server() const { return m_server; }
    // The first bytes the first client sends, waiting for it within the bound.
    std::string read(std::chrono::milliseconds bound = 5s) {
        pollfd wait{m_fd, POLLIN, 0};
        if (poll(&wait, 1, int(bound.count())) != 1) {
            return {};
        }
        const int client = accept(m_fd, nullptr, nullptr);
        wait = {client, POLLIN, 0};
        std::string bytes;
        if (poll(&wait, 1, int(bound.count())) == 1) {
            char buffer[16];
            const ssize_t got = recv(client, buffer, sizeof buffer, 0);
            bytes.assign(buffer, size_t(std::max<ssize_t>(got, 0)));
        }
        close(client);
        return bytes;
    }

private:
    std::string m_host;
    std::string m_server;
    int m_fd = -1;
    bool m_bound = false;
};

} // namespace

TEST(Tls, Port5061MeansTlsWithoutTheFlagAndAnotherPortMeansTcp) {
    for (const std::uint16_t port :
         {std::uint16_t(5061), std::uint16_t(443), std::uint16_t(5060)}) {
        FirstBytes listener(port);
        ASSERT_TRUE(listener.bound()) << listener.server();
        auto events = std::make_shared<Events>();
        auto account = accountFor(listener.server(), "alice", "alice-secret");
        ASSERT_FALSE(account.optionFlag);
        auto client = core::SipClient::init(account, events);
        client->start();
        const std::string bytes = listener.read();
        ASSERT_GE(bytes.size(), 3u) << "port " << port;
        if (port == 5060) {
            EXPECT_EQ(bytes.substr(0, 3), "REG") << "port " << port;
        } else {
            // A TLS record of the handshake: content type 22, version 3.x.
            EXPECT_EQ(int(std::uint8_t(bytes[0])), 22) << "port " << port;
            EXPECT_EQ(int(std::uint8_t(bytes[1])), 3) << "port " << port;
        }
        client->stop();
    }
}

TEST(Tls, RegistersWhenTheServerCertificateIsTrusted) {
    Lab lab;
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    EXPECT_EQ(lab.events->waitRegistered(), core::RegistrationState::registered());
    client->stop();
}

TEST(Tls, ACertificateFromAnUntrustedAuthorityFailsTheRegistration) {
    Lab lab(true);
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    const auto state = lab.events->waitRegistered();
    ASSERT_EQ(state.kind, core::RegistrationState::Kind::failed);
    EXPECT_EQ(state.reason.rfind("The server's TLS certificate is not trusted", 0), 0u)
        << state.reason;
    client->stop();
}

TEST(Tls, WithoutTheTestAuthorityTheCertificateIsNotTrusted) {
    Lab lab;
    auto account = lab.tlsAccount("alice");
    account.optionPair.reset();
    auto client = core::SipClient::init(account, lab.events);
    client->start();
    const auto state = lab.events->waitRegistered();
    ASSERT_EQ(state.kind, core::RegistrationState::Kind::failed);
    EXPECT_NE(state.reason.find("not trusted"), std::string::npos) << state.reason;
    client->stop();
}

TEST(Tls, ACallToAnSrtpPartyCarriesAudioBothWays) {
    Lab lab;
    const QString tone = writeToneFile(lab.dir.path(), 1000);
    Baresip dave(lab.dir.path(), "dave", Baresip::Role::srtpEcho, lab.kamailio, tone,
                 lab.certs.trustedCa);
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    ASSERT_EQ(lab.events->waitRegistered(), core::RegistrationState::registered());
    auto call = client->placeCall("dave");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);
    std::this_thread::sleep_for(3s); // the length of the audio, not a wait for an event
    audio.stop();
    auto heard = audio.recorded();
    heard.erase(heard.begin(), heard.begin() + std::min<long>(long(heard.size()), 8000));
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0);
    call->hangup();
    client->stop();
}

TEST(Tls, AnIncomingSrtpCallIsAnsweredWithSrtp) {
    Lab lab;
    const QString tone = writeToneFile(lab.dir.path(), 1000);
    Baresip dave(lab.dir.path(), "dave", Baresip::Role::srtpEcho, lab.kamailio, tone,
                 lab.certs.trustedCa);
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    ASSERT_EQ(lab.events->waitRegistered(), core::RegistrationState::registered());
    dave.command("dial", "sip:alice@127.0.0.1");
    auto call = lab.events->waitIncoming();
    EXPECT_EQ(call->remoteNumber(), "dave");
    AudioLoop audio(call, 1000);
    call->answer();
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    std::this_thread::sleep_for(3s); // the length of the audio, not a wait for an event
    audio.stop();
    auto heard = audio.recorded();
    heard.erase(heard.begin(), heard.begin() + std::min<long>(long(heard.size()), 8000));
    EXPECT_GE(toneMarginDb(heard, 1000), 20.0);
    call->hangup();
    client->stop();
}

TEST(Tls, TheExtraAuthorityIsTakenFromTheAccountAndNotFromTheEnvironment) {
    Lab lab;
    auto account = lab.tlsAccount("alice");
    account.optionPair.reset();
    // The variable older builds read: it must make no difference now.
    setenv("VELNOR_SIP_CA_FILE", lab.certs.trustedCa.toUtf8().constData(), 1);
    auto client = core::SipClient::init(account, lab.events);
    client->start();
    const auto state = lab.events->waitRegistered();
    unsetenv("VELNOR_SIP_CA_FILE");
    ASSERT_EQ(state.kind, core::RegistrationState::Kind::failed);
    EXPECT_NE(state.reason.find("not trusted"), std::string::npos) << state.reason;
    client->stop();
}

TEST(Tls, AnUnreadableAuthorityFileFailsTheRegistrationWithASentence) {
    Lab lab;
    auto account = lab.tlsAccount("alice");
    const std::string missing = lab.dir.path().toStdString() + "/no-such-ca.pem";
    account.optionPair = std::make_pair(std::string("tls-ca-file"), missing);
    auto client = core::SipClient::init(account, lab.events);
    client->start();
    EXPECT_EQ(lab.events->waitRegistered(),
              core::RegistrationState::failed("The certificate authorities in " + missing +
                                              " cannot be read."));
    client->stop();
    // The engine goes on: the same account with a good file registers.
    auto events = std::make_shared<Events>();
    auto good = core::SipClient::init(lab.tlsAccount("alice"), events);
    good->start();
    EXPECT_EQ(events->waitRegistered(), core::RegistrationState::registered());
    good->stop();
}

TEST(Tls, ATrustedCertificateForAnotherHostFailsTheRegistration) {
    Lab lab(false, true);
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    const auto state = lab.events->waitRegistered();
    ASSERT_EQ(state.kind, core::RegistrationState::Kind::failed);
    EXPECT_EQ(state.reason.rfind("The server's TLS certificate is not trusted", 0), 0u)
        << state.reason;
    EXPECT_NE(state.reason.find("mismatch"), std::string::npos) << state.reason;
    client->stop();
}

TEST(Tls, ATraceOfASecureCallCarriesNeitherThePasswordNorTheKeys) {
    Lab lab;
    Baresip dave(lab.dir.path(), "dave", Baresip::Role::srtpEcho, lab.kamailio,
                 writeToneFile(lab.dir.path(), 1000), lab.certs.trustedCa);
    std::mutex lock;
    std::string trace;
    core::setLogSink([&](core::LogLevel, const std::string& message) {
        std::lock_guard guard(lock);
        trace += message + "\n";
    });
    core::initLogging("trace");
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    ASSERT_EQ(lab.events->waitRegistered(), core::RegistrationState::registered());
    auto call = client->placeCall("dave");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    call->hangup();
    lab.events->waitCall(call->sipCallId(), Kind::ended);
    client->stop();
    core::setLogSink({});
    core::initLogging("warn,velnor_core=info");

    std::lock_guard guard(lock);
    // The messages are all there, with their secrets masked...
    EXPECT_NE(trace.find("Authorization: <hidden>"), std::string::npos);
    EXPECT_NE(trace.find("Proxy-Authorization: <hidden>"), std::string::npos);
    EXPECT_NE(trace.find("a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:<hidden>"), std::string::npos);
    // ...and nothing of the secrets themselves.
    EXPECT_EQ(trace.find(Kamailio::users().at("alice")), std::string::npos);
    EXPECT_EQ(trace.find("response="), std::string::npos);
    // A key is 40 characters of base64 after "inline:"; none may follow one.
    for (size_t at = trace.find("inline:"); at != std::string::npos;
         at = trace.find("inline:", at + 1)) {
        size_t length = 0;
        const size_t start = at + 7;
        while (start + length < trace.size() &&
               (std::isalnum(static_cast<unsigned char>(trace[start + length])) ||
                trace[start + length] == '+' || trace[start + length] == '/')) {
            ++length;
        }
        EXPECT_LT(length, 20u) << "an SRTP key reached the log: " << trace.substr(at, 48);
    }
}

TEST(Tls, AnIncomingCallOverTlsThatOffersPlainRtpIsRefusedWith488) {
    Lab lab;
    Baresip bob(lab.dir.path(), "bob", Baresip::Role::tonePlayer, lab.kamailio,
                writeToneFile(lab.dir.path(), 1000), lab.certs.trustedCa);
    auto client = core::SipClient::init(lab.tlsAccount("alice"), lab.events);
    client->start();
    ASSERT_EQ(lab.events->waitRegistered(), core::RegistrationState::registered());
    bob.command("dial", "sip:alice@127.0.0.1");
    const std::string closed = bob.waitEvent({"CALL_CLOSED"});
    EXPECT_NE(closed.find("488"), std::string::npos) << closed;
    // The refusal came before any call was offered to the app.
    EXPECT_EQ(lab.events->total(), int(lab.events->registrations().size()));
    client->stop();
}

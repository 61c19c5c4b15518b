#include "SipLab.h"

#include <gtest/gtest.h>

#include <mutex>
#include <regex>

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

} // namespace

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
    const std::regex key("inline:[A-Za-z0-9+/]{20,}");
    EXPECT_FALSE(std::regex_search(trace, key)) << "an SRTP key reached the log";
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

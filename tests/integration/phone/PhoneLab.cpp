#include "PhoneLab.h"

#include <QTest>

#include <stdexcept>

namespace {

QStringList pulseScript() {
    // The microphone is a steady 1 kHz tone; what the call plays goes to a
    // null sink whose monitor the test records.
    return {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
            "load-module module-sine-source source_name=mic rate=48000 frequency=1000",
            "set-default-sink speaker", "set-default-source mic"};
}

QStringList devServerArguments(const Kamailio& kamailio, bool tls) {
    const QString edge = tls ? QStringLiteral("tls:127.0.0.1:%1").arg(kamailio.tlsPort())
                             : QStringLiteral("tcp:127.0.0.1:%1").arg(kamailio.tcpPort());
    return {"--auto-approve", "u-001", "--sip-edge", edge};
}

std::shared_ptr<AudioBackend> backend() {
    PulseBackend::Options options;
    // A steady tone is what noise suppression exists to remove.
    options.voice.noiseSuppression = false;
    return std::make_shared<PulseBackend>(options);
}

} // namespace

PhoneLab::PhoneLab(Options o)
    : pulse(pulseScript()), server(devServerArguments(kamailio, o.tls)), options(std::move(o)) {
    settings.setUrl("rz.server", server.url());
    if (options.tls) {
        settings.setText("sip.caFile", certs.trustedCa);
    }
    phone = std::make_unique<Phone>(settings, backend());
    phone->setCaFile(settings.text("sip.caFile"));
    session = std::make_unique<Session>(settings, secrets);
    session->setPhone(phone.get());
    Session* s = session.get();
    phone->colleagueName = [s](const QString& number) { return s->colleagueName(number); };
    useSigningInBrowser(*session);
}

void PhoneLab::signIn() {
    // rz-devserver hands out devices whose credentials only it knows; the
    // kamailio of this lab knows its own test users, so the server is made to
    // offer a device that is one of them.
    server.control("POST", "faults",
                   {{"method", "POST"},
                    {"path", "api/me/app-device"},
                    {"status", 200},
                    {"body", labDevice(kamailio, options.user, options.tls)}});
    session->signIn();
    QDeadlineTimer deadline(15000);
    while (!session->hasError() && !phone->client() && !deadline.hasExpired()) {
        QTest::qWait(10);
    }
    if (session->hasError()) {
        throw std::runtime_error("sign-in failed: " + session->errorText().toStdString());
    }
    if (!phone->client()) {
        throw std::runtime_error("the phone was not started after the sign-in");
    }
}

void PhoneLab::waitRegistered(std::chrono::milliseconds bound) {
    QDeadlineTimer deadline(bound);
    while (!phone->isRegistered() && !deadline.hasExpired()) {
        QTest::qWait(10);
    }
    if (!phone->isRegistered()) {
        throw std::runtime_error("not registered: " + phone->registrationText().toStdString());
    }
}

std::unique_ptr<Baresip> PhoneLab::party(const std::string& user, Baresip::Role role) {
    return std::make_unique<Baresip>(dir.path(), user, role, kamailio, tone, certs.trustedCa);
}

bool waitFor(const std::function<bool()>& condition, int boundMs) {
    QDeadlineTimer deadline(boundMs);
    while (!condition() && !deadline.hasExpired()) {
        QTest::qWait(10);
    }
    return condition();
}

std::optional<Status> status(Phone& phone) {
    return phone.activeCall() ? std::optional(phone.activeCall()->status) : std::nullopt;
}

std::vector<std::int16_t> PhoneLab::recordSpeaker(double seconds) {
    return recordSink(QStringLiteral("speaker.monitor"), seconds);
}

std::vector<std::int16_t> recordSink(const QString& source, double seconds) {
    // The phone's own events go on while the sink is heard.
    return PulseAudioServer::record(source, seconds, [] { QCoreApplication::processEvents(); });
}

bool partySaw(Baresip& party, const std::vector<std::string>& pieces, int boundMs) {
    return waitFor([&] { return party.sawEvent(pieces); }, boundMs);
}

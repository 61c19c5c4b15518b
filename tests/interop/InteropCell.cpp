#include "InteropCell.h"

#include "BaresipFarEnd.h"
#include "LinphoneFarEnd.h"
#include "Ports.h"
#include "SippFarEnd.h"
#include "ToneCheck.h"

#include <QTemporaryDir>

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <thread>

namespace interop {

namespace {

using Kind = core::CallState::Kind;
using Clock = std::chrono::steady_clock;

// A tone is found when it stands this far over every other test frequency.
constexpr double toneFoundDb = 20.0;

const Transport transports[] = {Transport::tcp, Transport::tls};
const Codec codecs[] = {Codec::pcmu, Codec::pcma, Codec::g722, Codec::opus};
const Peer peers[] = {Peer::baresip, Peer::linphonec, Peer::sipp};

// Audio runs in real time: this is the length of what is measured, not a wait for an event.
void playFor(std::chrono::milliseconds length) {
    std::this_thread::sleep_for(length);
}

// What the engine recorded from a sample on, leaving out the first half second.
std::vector<std::int16_t> since(AudioLoop& audio, size_t from) {
    auto recorded = audio.recorded();
    from = std::min(recorded.size(), from + 4000);
    return {recorded.begin() + long(from), recorded.end()};
}

std::string dbText(double margin) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dB", margin);
    return text;
}

// The engine heard what it should: the far end's own tone, or its own one back from an echo.
Check heardAtEngine(const std::vector<std::int16_t>& heard, const FarEnd& farEnd) {
    const bool echo = !farEnd.cannotPlayTone().empty();
    const int hz = echo ? engineToneHz : farEndToneHz;
    const double margin = toneMarginDb(heard, hz);
    const std::string what =
        std::to_string(hz) + " Hz " + (echo ? "(echoed) " : "") + "at " + dbText(margin);
    return margin >= toneFoundDb ? Check::passed(what) : Check::failed(what);
}

Check heardAtFarEnd(FarEnd& farEnd) {
    if (!farEnd.cannotRecord().empty()) {
        return Check::notApplicable(farEnd.cannotRecord());
    }
    const double margin = farEnd.heardToneMarginDb(engineToneHz);
    const std::string what = std::to_string(engineToneHz) + " Hz at " + dbText(margin);
    return margin >= toneFoundDb ? Check::passed(what) : Check::failed(what);
}

// Runs a step; what it throws fails the check instead of the cell.
void step(Check& check, const std::function<void()>& body) {
    try {
        body();
    } catch (const std::exception& error) {
        check = Check::failed(error.what());
    }
}

core::SipAccount accountOf(const Cell& cell, const Kamailio& kamailio,
                           const TestCertificates& certs) {
    if (cell.transport == Transport::tcp) {
        return accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice"));
    }
    auto account = accountFor("127.0.0.1:" + std::to_string(kamailio.tlsPort()), "alice",
                              Kamailio::users().at("alice"));
    account.optionFlag = true;
    account.optionPair = std::make_pair(std::string("tls-ca-file"), certs.trustedCa.toStdString());
    return account;
}

std::unique_ptr<FarEnd> farEndOf(const Cell& cell, const QString& dir, const Kamailio& kamailio,
                                 const TestCertificates& certs, std::uint16_t sippPort) {
    switch (cell.peer) {
    case Peer::baresip:
        return std::make_unique<BaresipFarEnd>(dir, "bob", kamailio, certs, cell.transport,
                                               cell.codec);
    case Peer::linphonec:
        return std::make_unique<LinphoneFarEnd>(dir, "bob", kamailio, certs, cell.transport,
                                                cell.codec);
    case Peer::sipp:
        return std::make_unique<SippFarEnd>(dir, sippPort, kamailio, cell.codec);
    }
    return nullptr;
}

struct Engine {
    std::shared_ptr<Events> events;
    std::shared_ptr<core::SipClient> client;
    LogLines& log;
};

// The engine's name of a codec in its log.
const char* loggedName(Codec codec) {
    switch (codec) {
    case Codec::pcmu:
        return "PCMU";
    case Codec::pcma:
        return "PCMA";
    case Codec::g722:
        return "G722";
    case Codec::opus:
        return "opus";
    }
    return "?";
}

// The call sends with the cell's codec: the engine logs what it agreed on.
void checkCodec(Engine& engine, const std::string& callId, Codec codec) {
    const std::string prefix = "call " + callId + ": sending ";
    if (!engine.log.waitFor(prefix, 5s)) {
        throw std::runtime_error("the engine logged no codec for the call");
    }
    const std::string all = engine.log.all();
    const auto at = all.rfind(prefix) + prefix.size();
    const std::string used = all.substr(at, all.find(' ', at) - at);
    if (used != loggedName(codec)) {
        throw std::runtime_error("the call sent " + used + ", not " + loggedName(codec));
    }
}

// The engine's call to the far end: tone both ways, digits, hold and resume.
void placeCall(Engine& engine, FarEnd& farEnd, const CellOptions& options, CellResult& result) {
    result.toneOut = result.dtmf = result.hold =
        Check::failed("not reached: the engine's call failed before");
    farEnd.expectCall(false);
    const auto started = Clock::now();
    auto call = engine.client->placeCall(farEnd.user());
    const std::string id = call->sipCallId();
    const auto state = engine.events->waitCall(id, Kind::connected, 15s);
    if (state.kind != Kind::connected) {
        throw std::runtime_error("the call did not connect: " + core::toString(state));
    }
    result.setupMs = std::chrono::duration<double, std::milli>(Clock::now() - started).count();
    AudioLoop audio(call, engineToneHz);
    farEnd.waitAnswered();
    playFor(2500ms);
    result.toneIn = heardAtEngine(since(audio, 0), farEnd);

    if (!farEnd.cannotReportDtmf().empty()) {
        result.dtmf = Check::notApplicable(farEnd.cannotReportDtmf());
    } else {
        step(result.dtmf, [&] {
            for (const char digit : {'5', '#', '9'}) {
                call->sendDtmf(digit);
                farEnd.waitDtmf(digit);
            }
            result.dtmf = Check::passed("5 # 9");
        });
    }

    bool holdSeen = false;
    step(result.hold, [&] {
        const size_t before = engine.events->callStates(id).size();
        call->setHold(true);
        if (!engine.events->waitCallCount(id, before + 1) ||
            engine.events->callStates(id)[before] != core::CallState::held()) {
            throw std::runtime_error("the engine did not report the call held");
        }
        farEnd.waitHeld();
        call->setHold(false);
        if (!engine.events->waitCallCount(id, before + 2) ||
            engine.events->callStates(id)[before + 1] != core::CallState::connected()) {
            throw std::runtime_error("the engine did not report the call resumed");
        }
        farEnd.waitResumed();
        const size_t resumed = audio.recorded().size();
        playFor(2000ms);
        const Check after = heardAtEngine(since(audio, resumed), farEnd);
        if (after.outcome != Check::Outcome::pass) {
            throw std::runtime_error("after the resume: " + after.detail);
        }
        holdSeen = true;
    });

    if (options.reportWait.count() > 0 && farEnd.cannotReport().empty()) {
        // The far end reports on its own schedule; poll as the statistics panel does.
        const auto deadline = Clock::now() + options.reportWait;
        auto stats = call->stats();
        while (!(stats.remoteLoss && stats.roundTripMs) && Clock::now() < deadline) {
            std::this_thread::sleep_for(250ms); // the pace of a bounded poll
            stats = call->stats();
        }
        if (stats.remoteLoss && stats.roundTripMs) {
            result.farEndReport = stats;
        } else {
            result.reportMissing =
                "no receiver report in " + std::to_string(options.reportWait.count() / 1000) + " s";
        }
    } else {
        result.reportMissing =
            farEnd.cannotReport().empty() ? "not waited for" : farEnd.cannotReport();
    }

    call->hangup();
    engine.events->waitCall(id, Kind::ended);
    audio.stop();
    // The far end's side of the call, its scenario's checks of the offers included.
    step(result.hold, [&] {
        farEnd.waitEnded();
        if (holdSeen) {
            result.hold = Check::passed("held and resumed at both ends, audio again after");
        }
    });
    step(result.toneOut, [&] { result.toneOut = heardAtFarEnd(farEnd); });
}

// The far end's call to the engine.
void takeCall(Engine& engine, FarEnd& farEnd, CellResult& result) {
    farEnd.dial("alice");
    auto call = engine.events->waitIncoming(15s);
    AudioLoop audio(call, engineToneHz);
    call->answer();
    const auto state = engine.events->waitCall(call->sipCallId(), Kind::connected, 15s);
    if (state.kind != Kind::connected) {
        throw std::runtime_error("the call did not connect: " + core::toString(state));
    }
    farEnd.waitAnswered();
    checkCodec(engine, call->sipCallId(), result.cell.codec);
    playFor(2500ms);
    const Check in = heardAtEngine(since(audio, 0), farEnd);
    call->hangup();
    engine.events->waitCall(call->sipCallId(), Kind::ended);
    audio.stop();
    farEnd.waitEnded();
    const Check out = heardAtFarEnd(farEnd);
    const std::string detail = "in: " + in.detail + "; out: " + out.detail;
    result.incoming = in.outcome == Check::Outcome::pass && out.outcome != Check::Outcome::fail
                          ? Check::passed(detail)
                          : Check::failed(detail);
}

// The engine's call to the far end, handed on to carol.
void handOn(Engine& engine, FarEnd& farEnd, BaresipFarEnd& carol, CellResult& result) {
    farEnd.expectCall(true);
    auto call = engine.client->placeCall(farEnd.user());
    const std::string id = call->sipCallId();
    if (engine.events->waitCall(id, Kind::connected, 15s).kind != Kind::connected) {
        throw std::runtime_error("the call did not connect");
    }
    farEnd.waitAnswered();
    carol.expectCall(false);
    call->transfer("carol");
    if (engine.events->waitCall(id, Kind::transferring).kind != Kind::transferring) {
        throw std::runtime_error("the engine did not report the transfer under way");
    }
    const auto end = engine.events->waitCall(id, Kind::transferFailed, 20s);
    if (end != core::CallState::ended("Transferred")) {
        throw std::runtime_error("the transfer ended as " + core::toString(end));
    }
    if (farEnd.referredCaller().empty()) {
        farEnd.waitEnded();
        result.transfer = Check::passed("REFER to carol taken, NOTIFY 200 reported");
    } else {
        carol.waitEstablishedFrom(farEnd.referredCaller());
        result.transfer = Check::passed("carol talks to " + farEnd.referredCaller());
    }
}

} // namespace

const char* transportName(Transport transport) {
    return transport == Transport::tcp ? "tcp" : "tls";
}

const char* codecName(Codec codec) {
    switch (codec) {
    case Codec::pcmu:
        return "pcmu";
    case Codec::pcma:
        return "pcma";
    case Codec::g722:
        return "g722";
    case Codec::opus:
        return "opus";
    }
    return "?";
}

const char* peerName(Peer peer) {
    switch (peer) {
    case Peer::baresip:
        return "baresip";
    case Peer::linphonec:
        return "linphonec";
    case Peer::sipp:
        return "sipp";
    }
    return "?";
}

const char* outcomeName(Check::Outcome outcome) {
    switch (outcome) {
    case Check::Outcome::pass:
        return "pass";
    case Check::Outcome::fail:
        return "fail";
    case Check::Outcome::notApplicable:
        return "n/a";
    }
    return "?";
}

std::string Cell::name() const {
    return std::string(peerName(peer)) + "_" + transportName(transport) + "_" + codecName(codec);
}

std::vector<Cell> allCells() {
    std::vector<Cell> cells;
    for (const Peer peer : peers) {
        for (const Transport transport : transports) {
            for (const Codec codec : codecs) {
                cells.push_back({peer, transport, codec});
            }
        }
    }
    return cells;
}

std::vector<Cell> representativeCells() {
    // Each stack over each transport it speaks, and with each codec, once.
    return {
        {Peer::baresip, Transport::tcp, Codec::pcmu},
        {Peer::baresip, Transport::tcp, Codec::g722},
        {Peer::baresip, Transport::tls, Codec::opus},
        {Peer::baresip, Transport::tls, Codec::pcma},
        {Peer::linphonec, Transport::tcp, Codec::pcma},
        {Peer::linphonec, Transport::tcp, Codec::opus},
        {Peer::linphonec, Transport::tls, Codec::pcmu},
        {Peer::linphonec, Transport::tls, Codec::g722},
        {Peer::sipp, Transport::tcp, Codec::pcmu},
        {Peer::sipp, Transport::tcp, Codec::pcma},
        {Peer::sipp, Transport::tcp, Codec::g722},
        {Peer::sipp, Transport::tcp, Codec::opus},
    };
}

std::string whyNotApplicable(const Cell& cell) {
    if (cell.peer == Peer::sipp && cell.transport == Transport::tls) {
        return "Debian's sipp is built without TLS and has no SRTP";
    }
    return {};
}

std::vector<std::pair<std::string, Check>> CellResult::checks() const {
    return {{"tone_in", toneIn}, {"tone_out", toneOut},  {"dtmf", dtmf},
            {"hold", hold},      {"incoming", incoming}, {"transfer", transfer}};
}

bool CellResult::passed() const {
    if (!notApplicable.empty()) {
        return false;
    }
    for (const auto& [name, check] : checks()) {
        if (check.outcome == Check::Outcome::fail) {
            return false;
        }
    }
    return true;
}

CellResult runCell(const Cell& cell, const CellOptions& options) {
    CellResult result;
    result.cell = cell;
    result.notApplicable = whyNotApplicable(cell);
    if (!result.notApplicable.empty()) {
        return result;
    }
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    const std::uint16_t sippPort = cell.peer == Peer::sipp ? freeLoopbackPort() : 0;
    Kamailio kamailio(dir.path(), certs, {false, sippPort, false});
    auto farEnd = farEndOf(cell, dir.path(), kamailio, certs, sippPort);

    LogLines log;
    Engine engine{std::make_shared<Events>(), nullptr, log};
    engine.client = core::SipClient::init(accountOf(cell, kamailio, certs), engine.events);
    engine.client->start();
    const auto registration = engine.events->waitRegistered();
    if (registration.kind != core::RegistrationState::Kind::registered) {
        const Check failed =
            Check::failed("the engine did not register: " + core::toString(registration));
        result.toneIn = result.toneOut = result.dtmf = result.hold = failed;
        result.incoming = result.transfer = failed;
        engine.client->stop();
        return result;
    }

    step(result.toneIn, [&] { placeCall(engine, *farEnd, options, result); });
    step(result.incoming, [&] { takeCall(engine, *farEnd, result); });
    if (!farEnd->cannotTransfer().empty()) {
        result.transfer = Check::notApplicable(farEnd->cannotTransfer());
    } else {
        step(result.transfer, [&] {
            BaresipFarEnd carol(dir.path(), "carol", kamailio, certs, cell.transport, cell.codec);
            handOn(engine, *farEnd, carol, result);
        });
    }
    engine.client->stop();
    return result;
}

} // namespace interop

#pragma once

// One cell of the interop matrix: the engine (the same SipClient the app
// runs) against one independent SIP stack, over one transport, with one
// codec, all through kamailio on loopback. A cell places a call to the far
// end (tone both ways, DTMF seen there, hold and resume), takes a call from
// it (tone both ways), and hands a call on by blind transfer.

#include "FarEnd.h"
#include "core/Core.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace interop {

enum class Peer { baresip, linphonec, sipp };

const char* peerName(Peer peer);

struct Cell {
    Peer peer = Peer::baresip;
    Transport transport = Transport::tcp;
    Codec codec = Codec::pcmu;

    // "baresip_tls_opus": a test's name.
    std::string name() const;
};

// Every peer, transport and codec.
std::vector<Cell> allCells();
// What `./run test` runs: for each peer, each transport and each codec once.
std::vector<Cell> representativeCells();
// Why the whole cell cannot be run; empty when it can.
std::string whyNotApplicable(const Cell& cell);

struct Check {
    enum class Outcome { pass, fail, notApplicable };
    Outcome outcome = Outcome::fail;
    std::string detail; // what was measured, why it failed, or why it does not apply

    static Check passed(std::string detail = {}) { return {Outcome::pass, std::move(detail)}; }
    static Check failed(std::string detail) { return {Outcome::fail, std::move(detail)}; }
    static Check notApplicable(std::string why) { return {Outcome::notApplicable, std::move(why)}; }
};

const char* outcomeName(Check::Outcome outcome);

struct CellResult {
    Cell cell;
    std::string notApplicable;     // the whole cell, with the reason
    Check toneIn;                  // on the engine's call: what the far end sent reached the engine
    Check toneOut;                 // on the engine's call: the engine's tone reached the far end
    Check dtmf;                    // digits sent by the engine, seen at the far end
    Check hold;                    // hold and resume, seen at both ends, and audio again after it
    Check incoming;                // the far end calls, the engine answers; tone both ways
    Check transfer;                // the engine refers the far end to a third party
    std::optional<double> setupMs; // placeCall to connected
    // The engine's figures once the far end's RTCP receiver report arrived.
    std::optional<core::CallStats> farEndReport;
    std::string reportMissing; // why there is none, when none was asked for or came

    // Every check, named, in the matrix's order.
    std::vector<std::pair<std::string, Check>> checks() const;
    // Runnable and no check failed.
    bool passed() const;
};

struct CellOptions {
    // How long the engine's call waits for the far end's RTCP receiver report
    // (for the MOS); nothing is waited for when zero.
    std::chrono::milliseconds reportWait{0};
};

CellResult runCell(const Cell& cell, const CellOptions& options = {});

} // namespace interop

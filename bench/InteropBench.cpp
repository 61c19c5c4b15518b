// The interop matrix: the engine against baresip, linphonec and sipp through
// kamailio, over TCP and over TLS with SRTP, with each codec the engine
// offers. One line per cell (peer, transport, codec: pass, fail or n/a with
// its reason, the call's setup time, and the MOS worked out from the far
// end's RTCP receiver reports of the engine's stream), then the summary as
// `name: value` lines.
//
// VELNOR_INTEROP_CELLS=baresip_tcp_pcmu,... runs only those cells.

#include "InteropCell.h"
#include "session/CallQuality.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using interop::Check;

// The far end's view of the engine's stream: half the round trip, the
// jitter buffer it needs (about twice the jitter it reports) and one frame
// as the delay, and the share it lost.
double mosOf(const core::CallStats& report) {
    const double delay =
        report.roundTripMs.value_or(0) / 2 + 2 * report.remoteJitterMs.value_or(0) + 20;
    return CallQuality::mosOfRating(CallQuality::rating(delay, report.remoteLoss.value_or(0)));
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

bool chosen(const interop::Cell& cell) {
    const char* only = std::getenv("VELNOR_INTEROP_CELLS");
    if (!only || !*only) {
        return true;
    }
    const std::string list = std::string(",") + only + ",";
    return list.find("," + cell.name() + ",") != std::string::npos;
}

} // namespace

int main() {
    int passed = 0, failed = 0, notApplicable = 0, total = 0;
    std::vector<double> setups;
    std::vector<double> scores;
    std::printf("%-10s %-4s %-5s %-5s %9s %5s  %s\n", "peer", "tran", "codec", "", "setup ms",
                "MOS", "tone in, tone out, dtmf, hold, incoming, transfer");
    for (const auto& cell : interop::allCells()) {
        if (!chosen(cell)) {
            continue;
        }
        ++total;
        interop::CellResult result;
        try {
            result = interop::runCell(cell, {std::chrono::seconds(20)});
        } catch (const std::exception& error) {
            // The cell's own lab (kamailio, a peer) did not come up.
            result.cell = cell;
            result.toneIn = Check::failed(error.what());
        }
        if (!result.notApplicable.empty()) {
            ++notApplicable;
            std::printf("%-10s %-4s %-5s n/a   %9s %5s  %s\n", interop::peerName(cell.peer),
                        interop::transportName(cell.transport), interop::codecName(cell.codec), "-",
                        "-", result.notApplicable.c_str());
            std::fflush(stdout);
            continue;
        }
        const bool ok = result.passed();
        (ok ? passed : failed) += 1;
        std::string outcomes;
        for (const auto& [name, check] : result.checks()) {
            outcomes +=
                std::string(outcomes.empty() ? "" : " ") + interop::outcomeName(check.outcome);
        }
        char setup[32] = "-";
        if (result.setupMs) {
            std::snprintf(setup, sizeof setup, "%.1f", *result.setupMs);
            setups.push_back(*result.setupMs);
        }
        char mos[32] = "-";
        if (result.farEndReport) {
            const double score = mosOf(*result.farEndReport);
            std::snprintf(mos, sizeof mos, "%.2f", score);
            scores.push_back(score);
        }
        std::printf("%-10s %-4s %-5s %-5s %9s %5s  %s\n", interop::peerName(cell.peer),
                    interop::transportName(cell.transport), interop::codecName(cell.codec),
                    ok ? "pass" : "fail", setup, mos, outcomes.c_str());
        // What did not pass, and what was not measured, is said under the line.
        for (const auto& [name, check] : result.checks()) {
            if (check.outcome != Check::Outcome::pass) {
                std::printf("    %s %s: %s\n", name.c_str(), interop::outcomeName(check.outcome),
                            check.detail.c_str());
            }
        }
        if (!result.farEndReport) {
            std::printf("    mos n/a: %s\n", result.reportMissing.c_str());
        }
        std::fflush(stdout);
    }
    std::printf("interop_cells_total: %d\n", total);
    std::printf("interop_cells_passed: %d\n", passed);
    std::printf("interop_cells_failed: %d\n", failed);
    std::printf("interop_cells_not_applicable: %d\n", notApplicable);
    std::printf("interop_setup_ms_p50: %.2f\n", median(setups));
    std::printf("interop_setup_ms_max: %.2f\n",
                setups.empty() ? 0.0 : *std::max_element(setups.begin(), setups.end()));
    std::printf("interop_mos_cells: %zu\n", scores.size());
    std::printf("interop_mos_min: %.2f\n",
                scores.empty() ? 0.0 : *std::min_element(scores.begin(), scores.end()));
    std::printf("interop_mos_p50: %.2f\n", median(scores));
    // The figures say what failed; the run of the other benchmarks goes on.
    return 0;
}

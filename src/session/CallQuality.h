#pragma once

#include "core/Core.h"
#include "live/LiveRecords.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// How a call sounds, worked out from the server's verdict and from the
// engine's own figures: the level the signal bars show, the worst leg the
// server measured, a listener's opinion score estimated on this side, and
// the lines of the statistics table.
namespace CallQuality {

using Level = live::Quality::Level;

// Too few packets say nothing about a call.
inline constexpr std::uint64_t fewestPackets = 51;

// The server's level when it gave one; otherwise the engine's loss and
// jitter, once enough packets arrived. Every comparison is strict.
std::optional<Level> level(const std::optional<Level>& server,
                           const std::optional<core::CallStats>& stats);
// Lost over expected, or none when no packet was expected at all.
std::optional<double> incomingLoss(const core::CallStats& stats);

// Of the legs with a quality, the one of lowest MOS (none counts as 5.0); the first of equals.
std::optional<live::Leg> worstLeg(const QList<live::Leg>& legs);

// The E-model's rating factor R (ITU-T G.107 in its simplified form, G.711
// without concealment) for a one-way delay in ms and a loss share of 0 to 1.
double rating(double oneWayDelayMs, double loss);
// R as a mean opinion score from 1.0 to 4.5.
double mosOfRating(double r);
// The score of the call from the engine's figures: loss and jitter as
// received, half the round trip plus the jitter buffer and one frame as the
// delay. None before enough packets arrived.
std::optional<double> localMos(const core::CallStats& stats);

// "Good connection", "Fair connection", "Poor connection", or "Measuring…" without a level.
QString levelText(const std::optional<Level>& level);
// "good", "fair", "poor", or empty.
QString levelName(const std::optional<Level>& level);

// The table's figures, in the user's locale: "2.5 % loss", "12 ms jitter",
// "40 ms", "1200 in · 1190 out"; "–" where a figure is missing.
QString lossText(const std::optional<double>& share);
QString jitterText(const std::optional<double>& ms);
QString roundTripText(const std::optional<double>& ms);
QString packetsText(const std::vector<std::int64_t>& counters);
// "MOS 4.1": one decimal.
QString mosText(double mos);

} // namespace CallQuality

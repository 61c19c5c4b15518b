#pragma once

#include "Model.h"

#include <optional>

namespace rzdev {

// The quality of what each side of a call sends, from rtpengine's answer to a
// "query": the side whose tag is the caller's From tag is the caller's leg.
struct LegQualities {
    std::optional<Json> caller; // Quality: level, mos, jitterMs, lossPct, rttMs
    std::optional<Json> callee;
};

LegQualities legQualities(const Json& query, const std::string& callerTag);

// "good" from a MOS of 4.0, "fair" from 3.6, else "poor".
std::string qualityLevel(double mos);

} // namespace rzdev

#include "RelayStats.h"

namespace rzdev {

std::string qualityLevel(double mos) {
    return mos >= 4.0 ? "good" : mos >= 3.6 ? "fair" : "poor";
}

namespace {

// The sender SSRC of a tag's first RTP stream.
std::optional<std::string> senderSsrc(const Json& tag) {
    if (!tag.contains("medias") || !tag["medias"].is_array())
        return std::nullopt;
    for (const auto& media : tag["medias"]) {
        if (!media.contains("streams") || !media["streams"].is_array())
            continue;
        for (const auto& stream : media["streams"]) {
            if (stream.contains("SSRC") && stream["SSRC"].is_number_integer() &&
                stream["SSRC"].get<qint64>() != 0)
                return std::to_string(stream["SSRC"].get<qint64>());
        }
    }
    return std::nullopt;
}

std::optional<Json> qualityOf(const Json& query, const std::optional<std::string>& ssrc) {
    if (!ssrc || !query.contains("SSRC") || !query["SSRC"].contains(*ssrc))
        return std::nullopt;
    const Json& stats = query["SSRC"][*ssrc];
    if (!stats.contains("average MOS") || !stats["average MOS"].is_object())
        return std::nullopt;
    const Json& average = stats["average MOS"];
    // rtpengine gives the MOS times ten, round trips in microseconds.
    const double mos = average.value("MOS", 0) / 10.0;
    if (mos <= 0)
        return std::nullopt;
    return Json{{"level", qualityLevel(mos)},
                {"mos", mos},
                {"jitterMs", double(average.value("jitter", 0))},
                {"lossPct", double(average.value("packet loss", 0))},
                {"rttMs", average.value("round-trip time", 0) / 1000.0}};
}

} // namespace

LegQualities legQualities(const Json& query, const std::string& callerTag) {
    LegQualities out;
    if (!query.is_object() || !query.contains("tags") || !query["tags"].is_object())
        return out;
    for (const auto& [tag, entry] : query["tags"].items()) {
        auto quality = qualityOf(query, senderSsrc(entry));
        if (tag == callerTag)
            out.caller = std::move(quality);
        else if (!out.callee)
            out.callee = std::move(quality);
    }
    return out;
}

} // namespace rzdev

#include "session/CallQuality.h"

#include <QCoreApplication>
#include <QLocale>

#include <algorithm>
#include <cmath>

namespace CallQuality {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("CallQuality", text);
}

// The figures of the simplified E-model: the basic rating of a clean line,
// and G.711's packet-loss robustness without concealment under random loss.
constexpr double basicRating = 93.2;
constexpr double lossRobustness = 4.3;
constexpr double frameMs = 20.0;
constexpr QChar dash(0x2013);

} // namespace

std::optional<double> incomingLoss(const core::CallStats& stats) {
    const std::uint64_t expected = stats.packetsReceived + stats.packetsLost;
    if (expected == 0) {
        return std::nullopt;
    }
    return double(stats.packetsLost) / double(expected);
}

std::optional<Level> level(const std::optional<Level>& server,
                           const std::optional<core::CallStats>& stats) {
    if (server) {
        return server;
    }
    if (!stats || stats->packetsReceived < fewestPackets) {
        return std::nullopt;
    }
    const double loss = incomingLoss(*stats).value_or(0.0);
    const double jitter = stats->jitterMs;
    if (loss > 0.05 || jitter > 60.0) {
        return Level::poor;
    }
    if (loss > 0.01 || jitter > 30.0) {
        return Level::fair;
    }
    return Level::good;
}

std::optional<live::Leg> worstLeg(const QList<live::Leg>& legs) {
    std::optional<live::Leg> worst;
    double lowest = 0;
    for (const auto& leg : legs) {
        if (!leg.quality) {
            continue;
        }
        const double mos = leg.quality->mos.value_or(5.0);
        if (!worst || mos < lowest) {
            worst = leg;
            lowest = mos;
        }
    }
    return worst;
}

double rating(double oneWayDelayMs, double loss) {
    const double d = std::max(0.0, oneWayDelayMs);
    // Delay costs a little up to about 177 ms, and much more beyond.
    double delayImpairment = 0.024 * d;
    if (d > 177.3) {
        delayImpairment += 0.11 * (d - 177.3);
    }
    const double lossPercent = std::clamp(loss, 0.0, 1.0) * 100.0;
    const double lossImpairment = 95.0 * lossPercent / (lossPercent + lossRobustness);
    return basicRating - delayImpairment - lossImpairment;
}

double mosOfRating(double r) {
    if (r <= 0) {
        return 1.0;
    }
    if (r >= 100) {
        return 4.5;
    }
    return 1.0 + 0.035 * r + 7.0e-6 * r * (r - 60.0) * (100.0 - r);
}

std::optional<double> localMos(const core::CallStats& stats) {
    if (stats.packetsReceived < fewestPackets) {
        return std::nullopt;
    }
    // The jitter buffer holds about twice the jitter.
    const double delay = stats.roundTripMs.value_or(0.0) / 2.0 + 2.0 * stats.jitterMs + frameMs;
    return mosOfRating(rating(delay, incomingLoss(stats).value_or(0.0)));
}

QString levelText(const std::optional<Level>& level) {
    if (!level) {
        return tr("Measuring…");
    }
    switch (*level) {
    case Level::good:
        return tr("Good connection");
    case Level::fair:
        return tr("Fair connection");
    case Level::poor:
        return tr("Poor connection");
    }
    return {};
}

QString levelName(const std::optional<Level>& level) {
    return level ? live::Quality::levelText(*level) : QString();
}

QString lossText(const std::optional<double>& share) {
    if (!share) {
        return QString(dash);
    }
    // At most one decimal: 2.5 stays, 3.0 reads 3.
    const double percent = std::round(*share * 1000.0) / 10.0;
    return QLocale().toString(percent, 'f', std::fmod(percent, 1.0) == 0.0 ? 0 : 1) + tr(" % loss");
}

QString jitterText(const std::optional<double>& ms) {
    if (!ms) {
        return QString(dash);
    }
    return QLocale().toString(std::llround(*ms)) + tr(" ms jitter");
}

QString roundTripText(const std::optional<double>& ms) {
    if (!ms) {
        return QString(dash);
    }
    return QLocale().toString(std::llround(*ms)) + tr(" ms");
}

QString packetsText(const std::vector<std::int64_t>& counters) {
    if (counters.size() < 2) {
        return {};
    }
    return QLocale().toString(qlonglong(counters[0])) + tr(" in · ") +
           QLocale().toString(qlonglong(counters[1])) + tr(" out");
}

QString mosText(double mos) {
    return QStringLiteral("MOS ") + QLocale().toString(mos, 'f', 1);
}

} // namespace CallQuality

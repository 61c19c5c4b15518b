#include "ToneCheck.h"

#include "audio/Wav.h"

#include <QFile>

#include <algorithm>
#include <cmath>

namespace interop {

namespace {

double power(const std::vector<float>& samples, double rate, double hz) {
    const double coefficient = 2 * std::cos(2 * M_PI * hz / rate);
    double s1 = 0, s2 = 0;
    for (const float sample : samples) {
        const double s0 = double(sample) + coefficient * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return s1 * s1 + s2 * s2 - coefficient * s1 * s2;
}

} // namespace

std::optional<Recording> readRecording(const QString& path, double minSeconds) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QByteArray bytes = file.readAll();
    auto wav = parseWav(
        std::span(reinterpret_cast<const unsigned char*>(bytes.constData()), size_t(bytes.size())));
    // Some recorders count their own header into the length of the samples,
    // so that it claims more than the file holds: take what is there.
    const auto data = bytes.indexOf("data", 12);
    if (!wav && data > 0 && data + 8 <= bytes.size()) {
        bytes.replace(data + 4, 4, QByteArray(4, char(0xff)));
        wav = parseWav(std::span(reinterpret_cast<const unsigned char*>(bytes.constData()),
                                 size_t(bytes.size())));
    }
    if (!wav || !wav->format.valid()) {
        return std::nullopt;
    }
    Recording recording;
    recording.rate = wav->format.sampleRate;
    const auto channels = size_t(wav->format.channels);
    for (size_t at = 0; at < wav->samples.size(); at += channels) {
        recording.samples.push_back(wav->samples[at]);
    }
    if (double(recording.samples.size()) < minSeconds * recording.rate) {
        return std::nullopt;
    }
    return recording;
}

double toneMarginDb(const Recording& recording, int hz) {
    const double wanted = power(recording.samples, recording.rate, hz);
    double strongestOther = 1e-12;
    for (const int other : {farEndToneHz, engineToneHz, 400, 500, 900, 1400, 1700, 2000, 2500}) {
        if (other != hz) {
            strongestOther =
                std::max(strongestOther, power(recording.samples, recording.rate, other));
        }
    }
    return 10 * std::log10(std::max(wanted, 1e-12) / strongestOther);
}

double toneMarginDb(const std::vector<std::int16_t>& samples, int hz) {
    Recording recording;
    recording.samples.reserve(samples.size());
    for (const std::int16_t sample : samples) {
        recording.samples.push_back(float(sample) / 32768.0f);
    }
    return toneMarginDb(recording, hz);
}

Recording middle(const Recording& recording, double fromSeconds, double leaveSeconds) {
    Recording part;
    part.rate = recording.rate;
    const auto from = std::min(recording.samples.size(), size_t(fromSeconds * recording.rate));
    const auto leave = size_t(leaveSeconds * recording.rate);
    const auto to = recording.samples.size() > from + leave ? recording.samples.size() - leave
                                                            : recording.samples.size();
    part.samples.assign(recording.samples.begin() + long(from),
                        recording.samples.begin() + long(to));
    return part;
}

} // namespace interop

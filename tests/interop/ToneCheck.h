#pragma once

// Finding a tone by its frequency in audio at any rate: what the engine
// played out, or a far end's recording of a call.

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace interop {

// The frequencies the matrix uses: what the far ends play, what the engine
// plays, and others that must stay quiet beside them.
inline constexpr int farEndToneHz = 700;
inline constexpr int engineToneHz = 1100;

struct Recording {
    double rate = 8000;
    std::vector<float> samples; // the first channel, -1.0 to 1.0
};

// The first channel of a WAV file; absent while the file is unreadable or
// holds less than minSeconds (a recorder still writing it, for one).
std::optional<Recording> readRecording(const QString& path, double minSeconds = 1.0);

// How far (dB) the power at hz stands over the strongest of a set of other
// frequencies (the engine's and the far ends' tones among them, except hz).
double toneMarginDb(const Recording& recording, int hz);
// The same over 16-bit samples at 8000 Hz, as the engine gives them.
double toneMarginDb(const std::vector<std::int16_t>& samples, int hz);

// The samples from fromSeconds on, leaving out the end (the call's setting up
// and its hanging up are not what is measured).
Recording middle(const Recording& recording, double fromSeconds, double leaveSeconds = 0.5);

} // namespace interop

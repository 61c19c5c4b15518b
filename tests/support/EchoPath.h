#pragma once

#include "audio/VoiceProcessor.h"

#include <vector>

// A synthetic echo path for measuring echo cancellation: far-end speech is
// played, comes back through a delayed, decaying room response into the
// microphone, and near-end speech joins it for a stretch of double-talk.
// Everything is at the wire's 8000 Hz; the processor works at its own rate.
struct EchoScene {
    static constexpr double rate = 8000.0;
    static constexpr double doubleTalkFrom = 6.0; // seconds
    std::vector<float> far;                       // as played
    std::vector<float> near; // the local talker alone, zero before doubleTalkFrom
    std::vector<float> echo; // the far end as the microphone hears it
};

struct EchoFigures {
    double erleEarlyDb = 0;  // 0.15 to 1 s
    double erleSecondDb = 0; // 1 to 2 s
    double erleSteadyDb = 0; // the last seconds before double-talk
    double nearChangeDb = 0; // the local talker's level through processing in double-talk
    double cpuMsPerSecond = 0;
    int reportedDelayMs = 0;
};

// Speech from espeak-ng at -20 dBFS; the echo path delays by `pathDelayMs` and
// decays over 300 ms at -6 dB. Throws when espeak-ng fails.
EchoScene makeEchoScene(int pathDelayMs = 150);

// Runs the scene through a voice processor made with `settings`, told that the
// devices add `deviceDelayMs`, in 20 ms blocks as a sound card would give them.
EchoFigures measureEcho(const EchoScene& scene, const VoiceSettings& settings,
                        int deviceDelayMs = 150);

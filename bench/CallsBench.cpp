// The figures of calls with the app's own process around them: hold, swap
// and transfer; an incoming call to its notification on a real notification
// server; and a voicemail's play to its first sound.
// Prints "name: value" lines; nothing here fails on time.

#include "IncomingNotificationFigures.h"
#include "TwoCallsFigures.h"
#include "VoicemailSoundBench.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstring>
#include <stdexcept>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        // --- voicemail: "bench_calls voicemail" measures that figure alone ---
        const bool voicemailOnly = argc > 1 && std::strcmp(argv[1], "voicemail") == 0;
        if (!voicemailOnly) {
            // --- two calls ---
            // First: the lab below keeps bus connections that end the process
            // once its private bus goes.
            twoCallsFigures();
        }
        voicemailFirstSoundFigures();
        // --- end of voicemail ---
        // Last: once its private bus goes, the desktop's bus library ends the
        // process with SIGTERM.
        if (!voicemailOnly) {
            incomingNotificationFigures();
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_calls: %s\n", e.what());
        return 1;
    }
    return 0;
}

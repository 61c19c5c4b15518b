// How soon a voicemail message is heard: a row's play pressed (the sound not
// yet fetched, as on a first press; the sound pipeline set up when the screen
// opened, voicemail_prepare_ms) to the first sample at the default sink of
// a private PulseAudio, heard on the sink's monitor. The baseline is paplay
// of the same file to the same sink, timed the same way. The monitor is read
// by parec with 20 ms of latency; the press is placed at the samples read so
// far, so both figures carry up to that much on top.

#include "VoicemailSoundBench.h"

#include "../tests/integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "PulseAudioServer.h"
#include "RunTask.h"
#include "Services.h"
#include "shell/VoicemailPlayer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

constexpr int rate = 8000;
constexpr int loud = 300;

// The sink's monitor, read as it comes.
class Monitor {
public:
    Monitor() {
        m_parec.start("parec", {"--device=speaker.monitor", "--rate=8000", "--channels=1",
                                "--format=s16le", "--raw", "--latency-msec=20"});
        // Running once the first samples arrive.
        if (!spinUntil([&] { return read() > 0; }, std::chrono::seconds(5))) {
            throw std::runtime_error("parec heard nothing from the monitor");
        }
    }

    // Samples read so far.
    qsizetype read() {
        m_parec.process().waitForReadyRead(1);
        m_bytes += m_parec.process().readAllStandardOutput();
        return m_bytes.size() / 2;
    }

    // The first loud sample at or after `from`, if any yet.
    std::optional<qsizetype> firstLoud(qsizetype from) {
        const auto* samples = reinterpret_cast<const std::int16_t*>(m_bytes.constData());
        for (qsizetype i = from; i < m_bytes.size() / 2; ++i) {
            if (std::abs(samples[i]) > loud) {
                return i;
            }
        }
        return std::nullopt;
    }

    // Milliseconds from the press to the first sound, or throws.
    double timeToSound(qsizetype pressed) {
        std::optional<qsizetype> heard;
        spinUntil(
            [&] {
                read();
                heard = firstLoud(pressed);
                return heard.has_value();
            },
            std::chrono::seconds(10));
        if (!heard) {
            throw std::runtime_error("no sound reached the sink");
        }
        return double(*heard - pressed) * 1000.0 / rate;
    }

private:
    ChildProcess m_parec;
    QByteArray m_bytes;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

void voicemailFirstSoundFigures() {
    TempHome home;
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "set-default-sink speaker"}};
    DevServer server({"--auto-approve", "u-001"});
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    settings.setUrl("rz.server", server.url());
    Session session(settings, secrets);
    useSigningInBrowser(session);
    session.signIn();
    if (!spinUntil([&] { return session.voicemailLoaded() || session.hasError(); },
                   std::chrono::seconds(10)) ||
        session.voicemail().isEmpty()) {
        throw std::runtime_error("the mailbox did not load");
    }
    VoicemailPlayer player;
    player.setSession(&session);
    // The voicemail screen opening, as the user goes there before any press.
    QElapsedTimer opening;
    opening.start();
    player.prepare();
    const double prepareMs = double(opening.nsecsElapsed()) / 1e6;

    std::vector<double> app;
    std::vector<double> baseline;
    for (const auto& message : session.voicemail()) {
        const QString path = Session::voicemailAudioPath(message.id);
        QFile::remove(path);
        {
            Monitor monitor;
            const qsizetype pressed = monitor.read();
            player.playMessage(message.id);
            app.push_back(monitor.timeToSound(pressed));
            player.stop();
        }
        // Quiet again before the baseline.
        spinUntil([] { return false; }, std::chrono::milliseconds(300));
        {
            Monitor monitor;
            const qsizetype pressed = monitor.read();
            ChildProcess paplay;
            paplay.start("paplay", {"--device=speaker", path});
            baseline.push_back(monitor.timeToSound(pressed));
            paplay.stop();
        }
        QFile::remove(path);
        spinUntil([] { return false; }, std::chrono::milliseconds(300));
    }
    std::printf("voicemail_first_sound_ms: %.0f\n", median(app));
    std::printf("voicemail_first_sound_max_ms: %.0f\n", *std::max_element(app.begin(), app.end()));
    std::printf("voicemail_first_sound_baseline_paplay_ms: %.0f\n", median(baseline));
    std::printf("voicemail_prepare_ms: %.0f\n", prepareMs);
}

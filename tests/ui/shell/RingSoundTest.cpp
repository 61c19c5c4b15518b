#include "shell/CanberraRinger.h"

#include "PulseAudioServer.h"
#include "Services.h"

#include <QDeadlineTimer>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

// The ring as the sound server plays it: a private PulseAudio whose default
// sink is a null sink, listened to on its monitor.
namespace {

class RingSound : public testing::Test {
protected:
    // RMS of 16-bit samples the speaker played over the given seconds.
    double speakerLevel(double seconds) {
        return PulseAudioServer::rms(PulseAudioServer::record("speaker.monitor", seconds));
    }

    bool streamPlaying() {
        return pulse.pactl({"list", "sink-inputs"}).contains("media.role = \"event\"");
    }

    TempHome home;
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "set-default-sink speaker"}};
};

} // namespace

TEST_F(RingSound, TheThemesRingIsHeard) {
    CanberraRinger ringer;
    // Quiet before, so that what is heard after is the ring.
    EXPECT_LT(speakerLevel(0.3), 50.0);
    ringer.ring();
    EXPECT_FALSE(ringer.usedFallback());
    EXPECT_GT(speakerLevel(1.0), 300.0);
}

TEST_F(RingSound, AThemeWithoutTheSoundRingsWithTheToneOfOurOwn) {
    CanberraRinger ringer("velnor-no-such-sound");
    ringer.ring();
    EXPECT_TRUE(ringer.usedFallback());
    EXPECT_GT(speakerLevel(0.8), 300.0);
}

TEST_F(RingSound, SilenceCutsARingThatIsStillPlaying) {
    CanberraRinger ringer;
    ringer.ring();
    QDeadlineTimer deadline(3000);
    while (!streamPlaying() && !deadline.hasExpired()) {
        QTest::qWait(10);
    }
    ASSERT_TRUE(streamPlaying());
    ringer.silence();
    deadline.setRemainingTime(2000);
    while (streamPlaying() && !deadline.hasExpired()) {
        QTest::qWait(10);
    }
    EXPECT_FALSE(streamPlaying());
}

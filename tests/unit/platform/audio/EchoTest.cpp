#include "EchoPath.h"

#include <gtest/gtest.h>

namespace {

VoiceSettings withoutGain(VoiceSettings settings) {
    // Gain control moves the local talker's level by itself; the echo figures leave it out.
    settings.gainControl = false;
    return settings;
}

} // namespace

TEST(EchoCancellation, TheEchoGoesDeepAndFastAndTheNearEndStaysInDoubleTalk) {
    const EchoScene scene = makeEchoScene(150);
    const EchoFigures tuned = measureEcho(scene, withoutGain(VoiceSettings::tuned()), 150);
    const EchoFigures plain =
        measureEcho(scene, withoutGain(VoiceSettings::libraryDefaults()), 150);
    RecordProperty("erle_steady_db", std::to_string(tuned.erleSteadyDb));
    EXPECT_GT(tuned.erleEarlyDb, 20.0);
    EXPECT_GT(tuned.erleSecondDb, 30.0);
    EXPECT_GT(tuned.erleSteadyDb, 35.0);
    // The local talker loses no more than 3 dB while the far end talks too.
    EXPECT_GE(tuned.nearChangeDb, -3.0);
    // Against the library's defaults: faster and as deep.
    EXPECT_GE(tuned.erleEarlyDb, plain.erleEarlyDb);
    EXPECT_GE(tuned.erleSecondDb, plain.erleSecondDb - 1.0);
    EXPECT_GT(tuned.erleSteadyDb, plain.erleSteadyDb - 1.0);
}

TEST(EchoCancellation, TheEchoStaysCancelledWhenTheDevicesLatencyIs40msOffEitherWay) {
    const EchoScene scene = makeEchoScene(150);
    const VoiceSettings settings = withoutGain(VoiceSettings::tuned());
    const EchoFigures early = measureEcho(scene, settings, 110);
    const EchoFigures late = measureEcho(scene, settings, 190);
    EXPECT_GE(early.erleSteadyDb, 25.0);
    EXPECT_GE(late.erleSteadyDb, 25.0);
}

TEST(EchoCancellation, TheCancellerIsToldWhereTheEchoWasFoundWhateverTheDevicesSay) {
    // The room's strongest path comes back 170 ms after the far end is fed
    // (its first sound at 150 ms), and the delay is told 20 ms early.
    const EchoScene scene = makeEchoScene(150);
    const VoiceSettings settings = withoutGain(VoiceSettings::tuned());
    for (int devicesMs : {0, 150, 400}) {
        SCOPED_TRACE(devicesMs);
        const EchoFigures figures = measureEcho(scene, settings, devicesMs);
        EXPECT_GE(figures.reportedDelayMs, 145);
        EXPECT_LE(figures.reportedDelayMs, 155);
        EXPECT_GE(figures.erleSteadyDb, 35.0);
    }
    // Without looking for it, what the devices say decides.
    VoiceSettings blind = settings;
    blind.trackEchoDelay = false;
    const EchoFigures right = measureEcho(scene, blind, 150);
    const EchoFigures none = measureEcho(scene, blind, 0);
    EXPECT_EQ(none.reportedDelayMs, 0);
    EXPECT_GT(right.erleSteadyDb, none.erleSteadyDb + 10.0);
}

TEST(EchoCancellation, WithNoFarEndTheNearEndPassesAlmostUntouched) {
    EchoScene scene = makeEchoScene(150);
    std::fill(scene.far.begin(), scene.far.end(), 0.0f);
    std::fill(scene.echo.begin(), scene.echo.end(), 0.0f);
    const EchoFigures figures = measureEcho(scene, withoutGain(VoiceSettings::tuned()), 150);
    EXPECT_GT(figures.nearChangeDb, -3.0); // noise suppression and the band edge take a little
    EXPECT_LT(figures.nearChangeDb, 1.0);
}

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
    // Moderate suppression ducks the near end more than the defaults' -4 dB; it
    // is what keeps a real room's echo down.
    EXPECT_GT(tuned.nearChangeDb, -6.0);
    // Against the library's defaults: faster and as deep.
    EXPECT_GE(tuned.erleEarlyDb, plain.erleEarlyDb);
    EXPECT_GE(tuned.erleSecondDb, plain.erleSecondDb - 1.0);
    EXPECT_GT(tuned.erleSteadyDb, plain.erleSteadyDb - 1.0);
}

TEST(EchoCancellation, TheEchoStaysCancelledWhenTheDelayToldIs40msOffEitherWay) {
    const EchoScene scene = makeEchoScene(150);
    const VoiceSettings settings = withoutGain(VoiceSettings::tuned());
    const EchoFigures early = measureEcho(scene, settings, 110);
    const EchoFigures late = measureEcho(scene, settings, 190);
    EXPECT_GE(early.erleSteadyDb, 25.0);
    EXPECT_GE(late.erleSteadyDb, 25.0);
}

TEST(EchoCancellation, TheReportedDelayDecides) {
    const EchoScene scene = makeEchoScene(150);
    const VoiceSettings settings = withoutGain(VoiceSettings::tuned());
    const EchoFigures right = measureEcho(scene, settings, 150);
    const EchoFigures none = measureEcho(scene, settings, 0);
    EXPECT_GE(right.reportedDelayMs, 140);
    EXPECT_LE(right.reportedDelayMs, 160);
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

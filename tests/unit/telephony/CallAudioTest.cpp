#include "CallAudioHelpers.h"

#include "audio/FileBackend.h"
#include "audio/NullBackend.h"

#include <gtest/gtest.h>

// Reaches the state shared with the audio threads, to set up what no public
// operation leaves behind.
struct CallAudioProbe {
    static void setSpeaker(CallAudio& audio, std::vector<std::int16_t> samples) {
        std::lock_guard guard(audio.m_lock);
        audio.m_state.speaker = std::move(samples);
    }
    static std::shared_ptr<core::Call> call(CallAudio& audio) {
        std::lock_guard guard(audio.m_lock);
        return audio.m_state.call;
    }
    static std::size_t micWaiting(CallAudio& audio) {
        std::lock_guard guard(audio.m_lock);
        return audio.m_state.mic.size();
    }
};

namespace {

using namespace std::chrono_literals;

const AudioError noVoice{-6, "the voice unit is busy"};

// A file backend stepped by hand, with voice processing refused, so that the
// tap sees the hardware's own format.
std::shared_ptr<FileBackend> plainBackend(const std::string& mic, std::uint32_t blockFrames = 0) {
    FileBackend::Options options;
    options.micPath = mic;
    options.blockFrames = blockFrames;
    options.voiceProcessingFailure = noVoice;
    return std::make_shared<FileBackend>(options);
}

bool settle(CallAudio& audio) {
    return waitUntil([&] { return !audio.busy(); }, 5s);
}

} // namespace

TEST(CallAudioCapture, A960FrameBlockAt48kHzGivesExactlyOneFrame) {
    EXPECT_EQ(CallAudio::captureCapacity(960, 48000.0), 176u);
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 1.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);

    ASSERT_TRUE(backend->pump(1));
    EXPECT_EQ(call->framesWritten(), 1u);
    EXPECT_EQ(CallAudioProbe::micWaiting(*audio), 0u);
    EXPECT_EQ(audio->micFrames(), 1);
    ASSERT_TRUE(backend->pump(4));
    EXPECT_EQ(call->framesWritten(), 5u);
    EXPECT_EQ(audio->micFrames(), 5);
    audio->stop();
}

TEST(CallAudioCapture, A441FrameBlockAt44100HzLeaves80SamplesWaiting) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {44100.0, 1}, 1.0), 441);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);

    ASSERT_TRUE(backend->pump(1));
    EXPECT_EQ(call->framesWritten(), 0u);
    EXPECT_EQ(CallAudioProbe::micWaiting(*audio), 80u);
    EXPECT_EQ(audio->micFrames(), 0);
    ASSERT_TRUE(backend->pump(1));
    EXPECT_EQ(call->framesWritten(), 1u);
    EXPECT_EQ(CallAudioProbe::micWaiting(*audio), 0u);
    EXPECT_EQ(audio->micFrames(), 1);
}

TEST(CallAudioCapture, FramesAreTheMicrophoneResampled) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 2}, 1.0, 500.0, 0.5f));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(backend->pump(10));
    auto frames = call->written();
    ASSERT_EQ(frames.size(), 10u);
    // A 500 Hz tone at half scale: after the filter settles, peaks near 16384.
    int peak = 0;
    for (std::size_t f = 2; f < frames.size(); ++f) {
        ASSERT_EQ(frames[f].size(), 160u);
        for (std::int16_t s : frames[f]) {
            peak = std::max(peak, std::abs(int(s)));
        }
    }
    EXPECT_GT(peak, 15000);
    EXPECT_LT(peak, 17500);
}

TEST(CallAudioCapture, MuteSendsZeroFramesWhileMicFramesGoOnCounting) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 1.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(backend->pump(3));
    audio->setMuted(true);
    ASSERT_TRUE(backend->pump(5));
    EXPECT_EQ(audio->micFrames(), 8);
    auto frames = call->written();
    ASSERT_EQ(frames.size(), 8u);
    EXPECT_FALSE(allZero(frames[2]));
    for (std::size_t i = 3; i < 8; ++i) {
        EXPECT_TRUE(allZero(frames[i])) << "frame " << i;
    }
    audio->setMuted(false);
    ASSERT_TRUE(backend->pump(1));
    EXPECT_FALSE(allZero(call->written().back()));
}

TEST(CallAudioCapture, StopKeepsTheMuteAndClearsTheCounters) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 1.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    audio->setMuted(true);
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(backend->pump(2));
    audio->stop();
    EXPECT_TRUE(audio->muted());
    EXPECT_EQ(audio->micFrames(), 0);
    EXPECT_EQ(audio->lastError(), std::nullopt);
    EXPECT_EQ(CallAudioProbe::call(*audio), nullptr);
    EXPECT_FALSE(backend->pump(1)); // the engine is gone
}

TEST(CallAudioRender, FullScaleSamplesMapExactly) {
    auto backend = plainBackend({});
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>(std::vector<std::int16_t>{-32768, 32767, 16384, 0});
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(backend->pull(4));
    auto played = backend->played();
    ASSERT_EQ(played.size(), 4u);
    EXPECT_EQ(played[0], -1.0f);
    EXPECT_EQ(played[1], 32767.0f / 32768.0f);
    EXPECT_NEAR(played[1], 0.999969, 1e-6);
    EXPECT_EQ(played[2], 0.5f);
    EXPECT_EQ(played[3], 0.0f);
}

TEST(CallAudioRender, TheRestOfAFrameIsPlayedByTheNextPull) {
    auto backend = plainBackend({});
    auto audio = CallAudio::make(backend);
    std::vector<std::int16_t> ramp(400);
    for (std::size_t i = 0; i < ramp.size(); ++i) {
        ramp[i] = std::int16_t(i + 1);
    }
    // Pulls of 100: the first reads a frame of 160 and keeps 60, the second
    // plays those 60 and reads one more frame for the other 40.
    auto call = std::make_shared<FakeCall>(ramp);
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(backend->pull(100));
    EXPECT_EQ(call->reads(), 1);
    ASSERT_TRUE(backend->pull(100));
    EXPECT_EQ(call->reads(), 2);
    auto played = backend->played();
    ASSERT_EQ(played.size(), 200u);
    for (std::size_t i = 0; i < 200; ++i) {
        ASSERT_EQ(played[i], float(i + 1) / 32768.0f) << i;
    }
}

TEST(CallAudioRender, WithNoCallTheRestPlaysThenSilence) {
    auto backend = plainBackend({});
    auto audio = CallAudio::make(backend);
    ASSERT_EQ(startAndWait(*audio, nullptr), std::nullopt);
    CallAudioProbe::setSpeaker(*audio, {1000, 2000, 3000});
    ASSERT_TRUE(backend->pull(160));
    auto played = backend->played();
    ASSERT_EQ(played.size(), 160u);
    EXPECT_EQ(played[0], 1000.0f / 32768.0f);
    EXPECT_EQ(played[1], 2000.0f / 32768.0f);
    EXPECT_EQ(played[2], 3000.0f / 32768.0f);
    for (std::size_t i = 3; i < 160; ++i) {
        ASSERT_EQ(played[i], 0.0f) << i;
    }
    ASSERT_TRUE(backend->pull(160));
    played = backend->played();
    for (std::size_t i = 160; i < 320; ++i) {
        ASSERT_EQ(played[i], 0.0f) << i;
    }
}

TEST(CallAudioSwitch, WhileStoppedGivesFalseAndAttachesNothing) {
    auto audio = CallAudio::make(plainBackend({}));
    auto call = std::make_shared<FakeCall>();
    EXPECT_FALSE(audio->switchTo(call));
    EXPECT_EQ(CallAudioProbe::call(*audio), nullptr);
}

TEST(CallAudioSwitch, WhileRunningMovesTheHardwareToTheOtherCall) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 1.0));
    auto audio = CallAudio::make(backend);
    auto first = std::make_shared<FakeCall>();
    auto second = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, first), std::nullopt);
    ASSERT_TRUE(backend->pump(2));
    EXPECT_TRUE(audio->switchTo(second));
    ASSERT_TRUE(backend->pump(3));
    EXPECT_EQ(first->framesWritten(), 2u);
    EXPECT_EQ(second->framesWritten(), 3u);
    EXPECT_EQ(audio->micFrames(), 5);     // the counters stay
    EXPECT_EQ(backend->enginesMade(), 2); // one refused voice processing; no third
}

TEST(CallAudioStart, WithoutVoiceProcessingTheCallHasSoundAndTheErrorSaysSo) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 1.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>(std::vector<std::int16_t>(160, 8192));
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    EXPECT_EQ(audio->lastError(),
              QString("no voice processing: voice processing: the voice unit is busy"));
    ASSERT_TRUE(backend->pump(5));
    EXPECT_EQ(call->framesWritten(), 5u);
    EXPECT_FALSE(allZero(call->written().back()));
    EXPECT_EQ(backend->played().at(10), 0.25f);

    backend->setBuiltInOutput(true);
    EXPECT_EQ(audio->audioWarning(), QString("Echo cancellation is off. Use headphones."));
    backend->setBuiltInOutput(false);
    EXPECT_EQ(audio->audioWarning(), std::nullopt);
}

TEST(CallAudioStart, WithVoiceProcessingFramesFlowAndNothingIsReported) {
    QTemporaryDir dir;
    FileBackend::Options options;
    options.micPath = toneWav(dir, "mic.wav", {48000.0, 2}, 1.0);
    auto backend = std::make_shared<FileBackend>(options);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    EXPECT_EQ(audio->lastError(), std::nullopt);
    EXPECT_EQ(audio->audioWarning(), std::nullopt);
    EXPECT_EQ(backend->enginesMade(), 1);
    ASSERT_TRUE(backend->pump(20));
    EXPECT_EQ(call->framesWritten(), 20u);
    EXPECT_FALSE(allZero(call->written().back()));
}

TEST(CallAudioStart, WithNoBackendStartFailsWithASentence) {
    auto audio = CallAudio::make(nullptr);
    auto call = std::make_shared<FakeCall>();
    auto error = startAndWait(*audio, call);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain, "CallAudio");
    EXPECT_EQ(error->description, "engine start: no audio backend");
    EXPECT_FALSE(audio->switchTo(call));
    audio->stop();
}

TEST(CallAudioStart, WhenTheEngineCannotStartEitherWayStartFails) {
    auto backend = std::make_shared<FileBackend>();
    backend->setStartFailure(AudioError{-3, "device busy"});
    auto audio = CallAudio::make(backend);
    auto error = startAndWait(*audio, std::make_shared<FakeCall>());
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->code, -3);
    EXPECT_EQ(error->description, "engine start: device busy");
    EXPECT_EQ(backend->enginesMade(), 2);
    EXPECT_FALSE(backend->pump(1));
    // A later start on working hardware succeeds.
    backend->setStartFailure(std::nullopt);
    EXPECT_EQ(startAndWait(*audio, std::make_shared<FakeCall>()), std::nullopt);
}

TEST(CallAudioStart, NoConverterForAFormatWithoutChannels) {
    FileBackend::Options options;
    options.hardware = AudioFormat{48000.0, 0};
    auto audio = CallAudio::make(std::make_shared<FileBackend>(options));
    auto error = startAndWait(*audio, std::make_shared<FakeCall>());
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->code, 1);
    EXPECT_EQ(error->description, "no converter for 48000 Hz, 0 ch, float32");
}

TEST(CallAudioWarning, OtherProblemsReadAsAudio) {
    auto backend = std::make_shared<FileBackend>();
    auto audio = CallAudio::make(backend);
    EXPECT_EQ(audio->audioWarning(), std::nullopt);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    backend->injectConfigurationChange(AudioFormat{0.0, 0});
    ASSERT_TRUE(waitUntil([&] { return audio->lastError().has_value(); }, 5s));
    EXPECT_EQ(audio->audioWarning(),
              QString("Audio: restart 1: no converter for 0 Hz, 0 ch, float32"));
}

TEST(CallAudioRestart, AChangeWithNoCallOnlyCounts) {
    auto backend = plainBackend({});
    auto audio = CallAudio::make(backend);
    ASSERT_EQ(startAndWait(*audio, nullptr), std::nullopt);
    const auto before = audio->lastError();
    // Hardware that no converter takes: a try that went past its first step would say so.
    backend->injectConfigurationChange(AudioFormat{0.0, 0});
    EXPECT_EQ(audio->restarts(), 1);
    ASSERT_TRUE(settle(*audio));
    EXPECT_EQ(audio->lastError(), before);
    EXPECT_EQ(audio->restarts(), 1);
}

TEST(CallAudioRestart, ANewHardwareFormatGetsANewConverterAndSoundGoesOn) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 2.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(backend->pump(2));
    backend->injectConfigurationChange(AudioFormat{44100.0, 2});
    EXPECT_EQ(audio->restarts(), 1);
    ASSERT_TRUE(settle(*audio));
    EXPECT_EQ(audio->lastError(), std::nullopt); // the try cleared the fallback's text
    ASSERT_TRUE(backend->pump(3));
    EXPECT_EQ(call->framesWritten(), 5u);
    EXPECT_FALSE(allZero(call->written().back()));
    EXPECT_EQ(backend->enginesMade(), 2); // the engine was not rebuilt
}

TEST(CallAudioRestart, ABlockTheConverterDoesNotTakeIsReportedAndLost) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 2.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    // The hardware changes and nobody is told: the tap's converter is stale.
    backend->changeHardwareQuietly(AudioFormat{32000.0, 1});
    ASSERT_TRUE(backend->pump(1));
    EXPECT_EQ(call->framesWritten(), 0u);
    EXPECT_EQ(audio->lastError(), QString("convert: the converter is for 48000 Hz, 1 ch, float32 "
                                          "in=32000 Hz, 1 ch, float32"));
    // The next block is tried as usual; after the change is told, sound is back.
    backend->injectConfigurationChange();
    ASSERT_TRUE(settle(*audio));
    EXPECT_EQ(audio->lastError(), std::nullopt);
    ASSERT_TRUE(backend->pump(1));
    EXPECT_EQ(call->framesWritten(), 1u);
}

TEST(CallAudioRestart, TenFailedTriesLeaveTheLastText) {
    auto backend = plainBackend({});
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    const auto started = std::chrono::steady_clock::now();
    backend->injectConfigurationChange(AudioFormat{0.0, 0});
    ASSERT_TRUE(waitUntil(
        [&] { return audio->lastError() && audio->lastError()->startsWith("restart 2:"); }, 5s));
    ASSERT_TRUE(settle(*audio));
    EXPECT_EQ(audio->lastError(), QString("restart 10: no converter for 0 Hz, 0 ch, float32"));
    EXPECT_EQ(audio->restarts(), 1);
    // 50 ms, then nine of 200 ms.
    EXPECT_GE(std::chrono::steady_clock::now() - started, 1850ms);
}

TEST(CallAudioRestart, EachChangeStartsAChainOfItsOwn) {
    QTemporaryDir dir;
    auto backend = plainBackend(toneWav(dir, "mic.wav", {48000.0, 1}, 2.0));
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    backend->injectConfigurationChange();
    backend->injectConfigurationChange();
    backend->injectConfigurationChange();
    EXPECT_EQ(audio->restarts(), 3);
    ASSERT_TRUE(settle(*audio));
    EXPECT_EQ(audio->lastError(), std::nullopt);
    ASSERT_TRUE(backend->pump(1));
    EXPECT_EQ(call->framesWritten(), 1u);
}

TEST(CallAudioNull, RealTimeThreadsCarryFramesBothWays) {
    NullBackend::Options options;
    options.toneHz = 400;
    auto audio = CallAudio::make(std::make_shared<NullBackend>(options));
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    EXPECT_EQ(audio->lastError(), std::nullopt);
    ASSERT_TRUE(call->waitForFrames(10, 3s));
    ASSERT_TRUE(waitUntil([&] { return call->reads() >= 10; }, 3s));
    audio->stop();
    const auto frames = call->written();
    bool sound = false;
    for (const auto& f : frames) {
        EXPECT_EQ(f.size(), 160u);
        sound = sound || !allZero(f);
    }
    EXPECT_TRUE(sound);
    // Stopped: nothing more arrives.
    const auto after = call->framesWritten();
    const auto reads = call->reads();
    EXPECT_FALSE(call->waitForFrames(after + 1, 100ms));
    EXPECT_EQ(call->reads(), reads);
}

TEST(CallAudioNull, SilenceStillMakesFrames) {
    auto audio = CallAudio::make(std::make_shared<NullBackend>());
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(call->waitForFrames(5, 3s));
    EXPECT_TRUE(allZero(call->written()[4]));
}

TEST(CallAudioStop, AfterTheCaptureFailedStopStillStopsPlaybackBeforeLettingGo) {
    FileBackend::Options options;
    options.realTime = true;
    auto backend = std::make_shared<FileBackend>(options);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return call->reads() >= 5; }, 5s));

    // The microphone's stream is gone and the engine says it is not running,
    // while playback still pulls from the call.
    ASSERT_TRUE(backend->loseCapture());
    const int reads = call->reads();
    ASSERT_TRUE(waitUntil([&] { return call->reads() >= reads + 3; }, 5s));

    audio->stop();
    EXPECT_EQ(backend->sourcesDetachedWhileRendering(), 0);
    EXPECT_EQ(CallAudioProbe::call(*audio), nullptr);
}

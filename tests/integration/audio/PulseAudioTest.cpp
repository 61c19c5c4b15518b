#include "EchoPath.h"
#include "FakeCall.h"
#include "PulseAudioServer.h"
#include "Waits.h"
#include "audio/PulseBackend.h"
#include "telephony/CallAudio.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <cmath>
#include <future>
#include <mutex>
#include <numbers>

#include <signal.h>

namespace {

using namespace std::chrono_literals;

// The power of one frequency in a stretch of mono samples.
double goertzel(const std::vector<float>& x, double hz, double rate) {
    const double w = 2.0 * std::numbers::pi * hz / rate;
    double s1 = 0, s2 = 0;
    for (float v : x) {
        double s0 = v + 2.0 * std::cos(w) * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    double power = s1 * s1 + s2 * s2 - 2.0 * std::cos(w) * s1 * s2;
    return power / (double(x.size()) * double(x.size()) / 4.0); // amplitude squared
}

QStringList speakerSink(const QString& name, const QString& formFactor, int rate = 48000,
                        int channels = 2) {
    return {"load-module module-null-sink sink_name=" + name + " rate=" + QString::number(rate) +
                " channels=" + QString::number(channels) +
                " norewinds=1 sink_properties=device.form_factor=" + formFactor,
            "set-default-sink " + name, "set-default-source " + name + ".monitor"};
}

// What a tap receives, for the test to look at.
struct Tap {
    std::mutex mutex;
    std::vector<float> mono;
    std::vector<std::chrono::steady_clock::time_point> arrivals;
    std::vector<std::uint32_t> sizes;
    AudioFormat format;

    AudioEngine::CaptureBlock block() {
        return [this](const float* samples, std::uint32_t frames, const AudioFormat& f) {
            std::lock_guard guard(mutex);
            format = f;
            sizes.push_back(frames);
            arrivals.push_back(std::chrono::steady_clock::now());
            for (std::uint32_t i = 0; i < frames; ++i) {
                mono.push_back(samples[std::size_t(i) * f.channels]);
            }
        };
    }
    std::size_t blocks() {
        std::lock_guard guard(mutex);
        return sizes.size();
    }
};

std::optional<CallAudio::Error> startAndWait(CallAudio& audio, std::shared_ptr<core::Call> call) {
    auto done = std::make_shared<std::promise<std::optional<CallAudio::Error>>>();
    auto result = done->get_future();
    audio.start(std::move(call), [done](auto error) { done->set_value(error); });
    if (result.wait_for(15s) != std::future_status::ready) {
        throw std::runtime_error("start did not complete");
    }
    return result.get();
}

std::vector<std::int16_t> tone8k(double hz, double seconds, double level) {
    std::vector<std::int16_t> out;
    for (int i = 0; i < int(seconds * 8000); ++i) {
        out.push_back(std::int16_t(level * 32767 * std::sin(2 * std::numbers::pi * hz * i / 8000)));
    }
    return out;
}

} // namespace

TEST(PulseAudioBackend, AToneThroughPlaybackComesBackOnTheSinksMonitor) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    // Whatever the engine's threads touch outlives the engine.
    std::atomic<std::uint64_t> position{0};
    Tap tap;
    PulseBackend backend;
    auto engine = backend.makeEngine();
    EXPECT_EQ(engine->inputFormat(), (AudioFormat{48000.0, 2}));
    engine->attachSource({8000.0, 1}, [&](float* out, std::uint32_t frames) {
        for (std::uint32_t i = 0; i < frames; ++i) {
            out[i] = 0.5f *
                     float(std::sin(2 * std::numbers::pi * 1000.0 * double(position + i) / 8000.0));
        }
        position += frames;
    });
    engine->installTap(960, tap.block());
    ASSERT_EQ(engine->start(), std::nullopt);
    EXPECT_TRUE(engine->isRunning());
    ASSERT_TRUE(waitUntil([&] { return tap.blocks() >= 75; }, 5s));
    engine->stop();
    std::lock_guard guard(tap.mutex);
    EXPECT_EQ(tap.format, (AudioFormat{48000.0, 2}));
    EXPECT_EQ(tap.sizes.front(), 960u);
    std::vector<float> last(tap.mono.end() - 24000, tap.mono.end());
    const double tone = goertzel(last, 1000.0, 48000.0);
    const double other = goertzel(last, 1500.0, 48000.0);
    EXPECT_NEAR(std::sqrt(tone), 0.5, 0.1);
    EXPECT_GT(10 * std::log10(tone / std::max(other, 1e-12)), 30.0);
}

TEST(PulseAudioBackend, CaptureDeliversBlocksAtThePaceOfRealTime) {
    PulseAudioServer server(speakerSink("speaker", "internal", 44100, 1));
    Tap tap;
    PulseBackend backend;
    auto engine = backend.makeEngine();
    engine->attachSource(
        {8000.0, 1}, [](float* out, std::uint32_t frames) { std::fill(out, out + frames, 0.0f); });
    engine->installTap(960, tap.block());
    ASSERT_EQ(engine->start(), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return tap.blocks() >= 110; }, 6s));
    engine->stop();
    std::lock_guard guard(tap.mutex);
    // Blocks of 20 ms at whatever the monitor gives, mono as the sink is.
    EXPECT_EQ(tap.format.channels, 1);
    for (auto size : tap.sizes) {
        ASSERT_EQ(size, std::uint32_t(tap.format.sampleRate / 50));
    }
    // 100 blocks of 20 ms after the first ten: two seconds of sound in about two seconds.
    const double seconds =
        std::chrono::duration<double>(tap.arrivals[109] - tap.arrivals[9]).count();
    EXPECT_GT(seconds, 1.7);
    EXPECT_LT(seconds, 2.3);
}

TEST(PulseAudioBackend, SinkAndDefaultChangesAreReported) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    // The observer and the tap outlive the engine, whose threads call them.
    std::atomic<int> changes{0};
    Tap tap;
    PulseBackend backend;
    auto engine = backend.makeEngine();
    engine->addChangeObserver([&] { ++changes; });
    engine->attachSource(
        {8000.0, 1}, [](float* out, std::uint32_t frames) { std::fill(out, out + frames, 0.0f); });
    engine->installTap(960, tap.block());
    ASSERT_EQ(engine->start(), std::nullopt);
    EXPECT_EQ(changes, 0);

    const int module =
        server.loadModule("module-null-sink", {"sink_name=headset", "norewinds=1",
                                               "sink_properties=device.form_factor=headset"});
    ASSERT_TRUE(waitUntil([&] { return changes >= 1; }, 3s));
    const int afterLoad = changes;
    EXPECT_EQ(afterLoad, 1); // the sink and its monitor make one report

    server.setDefaultSink("headset");
    ASSERT_TRUE(waitUntil([&] { return changes > afterLoad; }, 3s));
    const int afterDefault = changes;

    server.unloadModule(module);
    ASSERT_TRUE(waitUntil([&] { return changes > afterDefault; }, 3s));
}

TEST(PulseAudioBackend, TheSinksFormFactorSaysWhetherTheOutputIsBuiltIn) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    server.loadModule("module-null-sink", {"sink_name=headset", "norewinds=1",
                                           "sink_properties=device.form_factor=headset"});
    server.loadModule("module-null-sink", {"sink_name=plain", "norewinds=1"});
    PulseBackend backend;
    // The answer follows the server's events; each step below changes it.
    EXPECT_TRUE(waitUntil([&] { return backend.outputIsBuiltIn(); }, 3s));
    server.setDefaultSink("plain"); // no form factor and no ports: not known to be built in
    EXPECT_TRUE(waitUntil([&] { return !backend.outputIsBuiltIn(); }, 3s));
    server.setDefaultSink("speaker");
    EXPECT_TRUE(waitUntil([&] { return backend.outputIsBuiltIn(); }, 3s));
    server.setDefaultSink("headset");
    EXPECT_TRUE(waitUntil([&] { return !backend.outputIsBuiltIn(); }, 3s));
}

TEST(PulseAudioBackend,
     TheChosenCallOutputDecidesWhetherTheOutputIsBuiltInAndTheDefaultWhenItIsGone) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    const int headset =
        server.loadModule("module-null-sink", {"sink_name=headset", "norewinds=1",
                                               "sink_properties=device.form_factor=headset"});
    PulseBackend backend;
    ASSERT_TRUE(waitUntil([&] { return backend.outputIsBuiltIn(); }, 3s)); // the default
    backend.setDevices("headset", "");
    EXPECT_TRUE(waitUntil([&] { return !backend.outputIsBuiltIn(); }, 3s));
    // The headset unplugged: calls play on the default, the speaker, again.
    server.unloadModule(headset);
    EXPECT_TRUE(waitUntil([&] { return backend.outputIsBuiltIn(); }, 3s));
    // Plugged in again, the choice holds once more.
    server.loadModule("module-null-sink", {"sink_name=headset", "norewinds=1",
                                           "sink_properties=device.form_factor=headset"});
    EXPECT_TRUE(waitUntil([&] { return !backend.outputIsBuiltIn(); }, 3s));
    backend.setDevices("", "");
    EXPECT_TRUE(waitUntil([&] { return backend.outputIsBuiltIn(); }, 3s));
}

TEST(PulseAudioBackend, ReadingTheAudioWarningOpensNoConnectionToTheServer) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    PulseBackend::Options options;
    options.voiceProcessing = false; // so that the warning asks about the output
    auto backend = std::make_shared<PulseBackend>(options);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return backend->outputIsBuiltIn(); }, 3s));
    auto clients = [&] { return server.pactl({"list", "short", "clients"}).split('\n').size(); };
    const auto before = clients();
    // How long a read takes is the audio bench's main_thread_max_block_ms.
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(audio->audioWarning(), "Echo cancellation is off. Use headphones.");
    }
    EXPECT_EQ(clients(), before);
    audio->stop();
}

// The server's clients that this process holds, as the server lists them.
int clientsOfThisProcess(PulseAudioServer& server) {
    const QString pid = QString::number(QCoreApplication::applicationPid());
    int count = 0;
    for (const QString& line : server.pactl({"list", "clients"}).split('\n')) {
        if (line.trimmed() == "application.process.id = \"" + pid + "\"") {
            ++count;
        }
    }
    return count;
}

TEST(PulseAudioBackend, ACallCostsTheSoundServerOneClient) {
    QStringList script = speakerSink("speaker", "internal");
    script << "load-module module-sine-source source_name=mic rate=48000 frequency=440"
           << "set-default-source mic";
    PulseAudioServer server(script);
    auto backend = std::make_shared<PulseBackend>();
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>(tone8k(1000, 3.0, 0.3));
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    // Both ways running, and the output's form factor read: every part is in use.
    ASSERT_TRUE(call->waitForFrames(25, 5s));
    ASSERT_TRUE(waitUntil([&] { return call->reads() >= 25; }, 5s));
    ASSERT_TRUE(waitUntil([&] { return backend->outputIsBuiltIn(); }, 3s));
    EXPECT_EQ(clientsOfThisProcess(server), 1) << server.pactl({"list", "clients"}).toStdString();
    audio->stop();
}

TEST(PulseAudioBackend, AServerThatDoesNotAnswerFailsTheStartWithinTheBound) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    auto audio = CallAudio::make(std::make_shared<PulseBackend>());
    auto call = std::make_shared<FakeCall>();
    // The daemon is frozen: its socket still takes connections, nothing answers.
    ASSERT_EQ(::kill(pid_t(server.pid()), SIGSTOP), 0);
    const auto started = std::chrono::steady_clock::now();
    auto error = startAndWait(*audio, call);
    const auto took = std::chrono::steady_clock::now() - started;
    ::kill(pid_t(server.pid()), SIGCONT);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->description, "engine start: the sound server did not answer within 2 s");
    // One try with voice processing and one without, each bound to 2 s.
    EXPECT_LT(took, 5s);
    audio->stop();
}

TEST(PulseAudioBackend, AServerThatStopsAnsweringOnceConnectedFailsTheStartWithinTheBound) {
    PulseAudioServer server(speakerSink("speaker", "internal"));
    auto backend = std::make_shared<PulseBackend>();
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    // The backend's connection is up (the output has been looked at) before the daemon freezes.
    ASSERT_TRUE(waitUntil([&] { return backend->outputAnswers() >= 1; }, 5s));
    ASSERT_EQ(::kill(pid_t(server.pid()), SIGSTOP), 0);
    const auto started = std::chrono::steady_clock::now();
    auto error = startAndWait(*audio, call);
    const auto took = std::chrono::steady_clock::now() - started;
    ::kill(pid_t(server.pid()), SIGCONT);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->description, "engine start: the sound server did not answer within 2 s");
    EXPECT_LT(took, 5s);
    audio->stop();
}

TEST(PulseAudioBackend, WithNoServerAStartFailsWithTheReason) {
    QTemporaryDir dir;
    PulseBackend::Options options;
    options.server = "unix:" + dir.filePath("nothing-here").toStdString();
    auto backend = std::make_shared<PulseBackend>(options);
    EXPECT_FALSE(backend->outputIsBuiltIn());
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    auto error = startAndWait(*audio, call);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->description, "engine start: Connection refused");
    EXPECT_EQ(audio->audioWarning(), std::nullopt);
    audio->stop();
}

TEST(PulseAudioCall, ToneFromTheCallReachesTheSinkAndTheMicrophoneReachesTheCall) {
    QStringList script = speakerSink("speaker", "internal");
    script << "load-module module-sine-source source_name=mic rate=48000 frequency=440"
           << "set-default-source mic";
    PulseAudioServer server(script);
    PulseBackend::Options options;
    options.voice.noiseSuppression = false; // a steady tone is what it would remove
    auto backend = std::make_shared<PulseBackend>(options);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>(tone8k(1000, 8.0, 0.5));
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    EXPECT_EQ(audio->lastError(), std::nullopt);
    ASSERT_TRUE(call->waitForFrames(50, 5s));
    EXPECT_GE(audio->micFrames(), 50);
    auto frames = call->written();
    std::vector<float> last;
    for (std::size_t f = frames.size() - 25; f < frames.size(); ++f) {
        for (auto s : frames[f]) {
            last.push_back(float(s) / 32768.0f);
        }
    }
    EXPECT_GT(
        10 * std::log10(goertzel(last, 440, 8000) / std::max(goertzel(last, 1000, 8000), 1e-12)),
        20.0);
    EXPECT_TRUE(waitUntil([&] { return call->reads() >= 40; }, 5s));

    // The call's 1000 Hz tone, as the sink plays it: heard on its monitor.
    PulseBackend::Options earOptions;
    earOptions.source = "speaker.monitor";
    earOptions.voiceProcessing = false;
    Tap tap;
    PulseBackend earBackend(earOptions);
    auto ear = earBackend.makeEngine();
    ear->attachSource({8000.0, 1},
                      [](float* out, std::uint32_t frames) { std::fill(out, out + frames, 0.0f); });
    ear->installTap(960, tap.block());
    ASSERT_EQ(ear->start(), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return tap.blocks() >= 25; }, 5s));
    ear->stop();
    audio->stop();
    std::lock_guard guard(tap.mutex);
    std::vector<float> heard(tap.mono.end() - 24000, tap.mono.end());
    const double tone = goertzel(heard, 1000.0, tap.format.sampleRate);
    EXPECT_NEAR(std::sqrt(tone), 0.5, 0.1);
    EXPECT_GT(10 *
                  std::log10(tone / std::max(goertzel(heard, 440.0, tap.format.sampleRate), 1e-12)),
              20.0);
}

TEST(PulseAudioCall, ChangesRestartTheCaptureAndSoundGoesOn) {
    QStringList script = speakerSink("speaker", "internal");
    script << "load-module module-sine-source source_name=mic rate=48000 frequency=440"
           << "set-default-source mic";
    PulseAudioServer server(script);
    PulseBackend::Options options;
    options.voice.noiseSuppression = false;
    auto backend = std::make_shared<PulseBackend>(options);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(call->waitForFrames(10, 5s));

    // A headset comes: a new sink and a new microphone at another rate, made the defaults.
    server.loadModule("module-null-sink",
                      {"sink_name=headset", "rate=16000", "channels=1", "norewinds=1",
                       "sink_properties=device.form_factor=headset"});
    server.loadModule("module-sine-source",
                      {"source_name=headsetmic", "rate=16000", "frequency=600"});
    server.setDefaultSink("headset");
    server.setDefaultSource("headsetmic");
    ASSERT_TRUE(waitUntil([&] { return audio->restarts() >= 1; }, 3s));
    ASSERT_TRUE(waitUntil([&] { return !audio->busy(); }, 5s));
    EXPECT_EQ(audio->lastError(), std::nullopt);

    // The sink in use goes away.
    const int restarts = audio->restarts();
    const int speaker = server.pactl({"list", "short", "modules"})
                            .split('\n')
                            .filter("sink_name=speaker")
                            .first()
                            .section('\t', 0, 0)
                            .toInt();
    server.unloadModule(speaker);
    ASSERT_TRUE(waitUntil([&] { return audio->restarts() > restarts; }, 3s));
    ASSERT_TRUE(waitUntil([&] { return !audio->busy(); }, 5s));
    EXPECT_EQ(audio->lastError(), std::nullopt);

    // Sound goes on both ways, and the microphone is the new one.
    const auto frames = call->framesWritten();
    const int reads = call->reads();
    ASSERT_TRUE(call->waitForFrames(frames + 50, 5s));
    ASSERT_TRUE(waitUntil([&] { return call->reads() >= reads + 40; }, 5s));
    auto written = call->written();
    std::vector<float> last;
    for (std::size_t f = written.size() - 25; f < written.size(); ++f) {
        for (auto s : written[f]) {
            last.push_back(float(s) / 32768.0f);
        }
    }
    EXPECT_GT(goertzel(last, 600, 8000), 10 * goertzel(last, 440, 8000));
    audio->stop();
}

namespace {

// The energy of what the call was sent between two times, in seconds of frames.
double sentEnergy(const FakeCall& call, double from, double to) {
    auto frames = call.written();
    double sum = 0;
    for (std::size_t f = std::size_t(from * 50); f < std::size_t(to * 50) && f < frames.size();
         ++f) {
        for (auto s : frames[f]) {
            sum += double(s) * s;
        }
    }
    return sum;
}

// Plays far-end speech for `seconds` through a room where the speaker's sound
// comes back into the microphone, and gives the call that heard it.
std::shared_ptr<FakeCall> callThroughTheRoom(PulseAudioServer& server, bool voiceProcessing,
                                             const std::vector<std::int16_t>& far, double seconds) {
    (void)server;
    PulseBackend::Options options;
    options.voiceProcessing = voiceProcessing;
    options.voice.gainControl = false; // it would move the level the test compares
    // The streams' measured latencies miss the 30 ms the room's loopback adds:
    // the canceller is told them only until the echo has been found in the
    // microphone.
    auto backend = std::make_shared<PulseBackend>(options);
    auto audio = CallAudio::make(backend);
    auto call = std::make_shared<FakeCall>(far);
    if (startAndWait(*audio, call)) {
        throw std::runtime_error("start failed");
    }
    if (!call->waitForFrames(std::size_t(seconds * 50),
                             std::chrono::milliseconds(int(seconds * 1000) + 5000))) {
        throw std::runtime_error("the call heard too little");
    }
    audio->stop();
    // Each time the playback ran dry is a moment the echo's path could move.
    std::printf("playback underflows (voice processing %s): %d\n", voiceProcessing ? "on" : "off",
                backend->playbackUnderflows());
    return call;
}

} // namespace

TEST(PulseAudioCall, TheFarEndsEchoThroughARoomIsCancelled) {
    // The room is the loopback with its rate held: both ends run on one clock,
    // and a loopback that keeps adjusting its resampler makes a path that
    // moves on its own, as no room does.
    PulseAudioServer server(
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-null-sink sink_name=room rate=48000 channels=1 norewinds=1",
         "load-module module-loopback source=speaker.monitor sink=room latency_msec=30 "
         "adjust_time=0",
         "set-default-sink speaker", "set-default-source room.monitor"});
    const EchoScene scene = makeEchoScene(150);
    std::vector<std::int16_t> far;
    for (float v : scene.far) {
        far.push_back(std::int16_t(v * 32767.0f));
    }
    auto plain = callThroughTheRoom(server, false, far, 9.0);
    auto cancelled = callThroughTheRoom(server, true, far, 9.0);
    const double plainEnergy = sentEnergy(*plain, 4.0, 9.0);
    const double cancelledEnergy = sentEnergy(*cancelled, 4.0, 9.0);
    ASSERT_GT(plainEnergy, 0.0);
    const double erle = 10 * std::log10(plainEnergy / std::max(cancelledEnergy, 1.0));
    RecordProperty("erle_db", std::to_string(erle));
    // Both sides, so that a low figure tells whether the echo stayed or the room went quiet.
    std::printf("echo through the room: %.1f dB (energy %.3g without cancelling, %.3g with)\n",
                erle, plainEnergy, cancelledEnergy);
    // What calls need through a real server; without cancellation it is 0.
    EXPECT_GE(erle, 30.0);
}

TEST(PulseAudioCall, WhenTheSoundServerRestartsTheCallGetsSoundBack) {
    QStringList script = speakerSink("speaker", "internal");
    script << "load-module module-sine-source source_name=mic rate=48000 frequency=440"
           << "set-default-source mic";
    PulseAudioServer server(script);
    PulseBackend::Options options;
    options.voice.noiseSuppression = false;
    auto audio = CallAudio::make(std::make_shared<PulseBackend>(options));
    auto call = std::make_shared<FakeCall>();
    ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
    ASSERT_TRUE(call->waitForFrames(10, 5s));

    server.restart();
    ASSERT_TRUE(waitUntil([&] { return audio->restarts() >= 1; }, 3s));
    ASSERT_TRUE(waitUntil([&] { return !audio->busy(); }, 5s));
    EXPECT_EQ(audio->lastError(), std::nullopt);
    const auto frames = call->framesWritten();
    const int reads = call->reads();
    ASSERT_TRUE(call->waitForFrames(frames + 50, 5s));
    EXPECT_TRUE(waitUntil([&] { return call->reads() >= reads + 40; }, 5s));
    audio->stop();
}

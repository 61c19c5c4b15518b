// Call audio figures: latency through PulseAudio both ways and from one engine's
// microphone to another's speaker, echo cancellation on a synthetic echo path
// and through a looped-back room, allocations on the render thread, and how
// long the main thread is held; for the settings calls use, with the library's
// defaults as the baseline, measured in the same run.

#include "ClickListener.h"
#include "EchoPath.h"
#include "EngineCallAudio.h"
#include "PulseAudioServer.h"
#include "Waits.h"
#include "audio/PulseBackend.h"
#include "telephony/CallAudio.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <mutex>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

double ms(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

double median(std::vector<double> v) {
    if (v.empty()) {
        return -1;
    }
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// A call that plays a burst on demand and notes when a burst comes back.
class BenchCall : public core::Call {
public:
    void answer() override {}
    void hangup() override {}
    std::string sipCallId() const override { return "bench"; }
    std::vector<std::uint64_t> mediaCounters() const override { return {0, 0}; }
    core::CallStats stats() const override { return {}; }
    std::optional<std::string> remoteName() const override { return std::nullopt; }
    std::string remoteNumber() const override { return "bench"; }
    void sendDtmf(char) override {}
    void setHold(bool) override {}
    void transfer(const std::string&) override {}

    std::vector<std::int16_t> readAudio() override {
        std::vector<std::int16_t> out(160, 0);
        if (playBurst.exchange(false)) {
            for (std::size_t i = 0; i < out.size(); ++i) {
                out[i] = (i / 4) % 2 ? 16000 : -16000;
            }
            pulledAt = Clock::now();
        }
        return out;
    }
    void writeAudio(const std::vector<std::int16_t>& frame) override {
        if (!listening) {
            return;
        }
        for (std::size_t i = 0; i < frame.size(); ++i) {
            if (std::abs(int(frame[i])) > 3000) {
                // The burst began this far back from the end of the frame.
                heardAt = Clock::now() - std::chrono::microseconds((frame.size() - i) * 125);
                listening = false;
                heard = true;
                return;
            }
        }
    }

    std::atomic<bool> playBurst{false};
    std::atomic<bool> listening{false};
    std::atomic<bool> heard{false};
    Clock::time_point pulledAt;
    Clock::time_point heardAt;
};

// Latency both ways through the sound server. The instant a click is at a
// source (the microphone's stand-in) or reaches a sink's monitor (the ear's)
// is taken by a listener of our own in 2 ms fragments, on this process's
// clock: the helper's playback latency is not subtracted, as the server counts
// in it the time after the mix that a monitor never waits (and PipeWire's
// server reports it larger than what the click spends before the mix).
struct Latency {
    double mouthToWire = -1;
    double mouthDevice = -1;   // the source's own latency as the server reports it
    double mouthMeasured = -1; // the source to the wire, measured: stream, capture thread, call
    double wireToEar = -1;
};

Latency measureLatency(const VoiceSettings& settings) {
    PulseAudioServer server(
        {"load-module module-null-sink sink_name=ear rate=48000 channels=2 norewinds=1",
         "load-module module-null-sink sink_name=mouth rate=48000 channels=1 norewinds=1",
         "set-default-sink ear", "set-default-source mouth.monitor"});

    // The engine under test, through CallAudio as a call uses it.
    PulseBackend::Options options;
    options.voice = settings;
    auto audio = CallAudio::make(std::make_shared<PulseBackend>(options));
    auto call = std::make_shared<BenchCall>();
    std::promise<std::optional<CallAudio::Error>> started;
    audio->start(call, [&](auto error) { started.set_value(error); });
    if (auto error = started.get_future().get()) {
        std::fprintf(stderr, "start: %s\n", qPrintable(error->description));
        return {};
    }

    // A talker into the mouth, and listeners on both monitors.
    PulseBackend::Options mouthOptions;
    mouthOptions.sink = "mouth";
    mouthOptions.source = "mouth.monitor";
    PulseBackend mouthBackend(mouthOptions);
    auto mouth = mouthBackend.makeEngine();
    std::atomic<bool> speak{false};
    mouth->attachSource({8000.0, 1}, [&](float* out, std::uint32_t n) {
        std::fill(out, out + n, 0.0f);
        if (speak.exchange(false)) {
            for (std::uint32_t i = 0; i < std::min<std::uint32_t>(n, 160); ++i) {
                out[i] = (i / 4) % 2 ? 0.5f : -0.5f;
            }
        }
    });
    mouth->installTap(960, [](const float*, std::uint32_t, const AudioFormat&) {});
    ClickListener atMouth("mouth.monitor");
    ClickListener atEar("ear.monitor");
    if (mouth->start() || !atMouth.recording() || !atEar.recording()) {
        std::fprintf(stderr, "helper streams did not start\n");
        return {};
    }
    QThread::msleep(500); // let the streams' latencies settle before measuring

    std::vector<double> toEar, fromMouth, device, measured;
    for (int round = 0; round < 7; ++round) {
        atEar.arm();
        call->playBurst = true;
        if (atEar.waitHeard(2s)) {
            toEar.push_back(ms(atEar.heardAt() - call->pulledAt));
        }
        QThread::msleep(200);
        call->listening = true;
        call->heard = false;
        atMouth.arm();
        speak = true;
        if (atMouth.waitHeard(2s) && waitUntil([&] { return call->heard.load(); }, 2s)) {
            measured.push_back(ms(call->heardAt - atMouth.heardAt()));
            device.push_back(std::max(0.0, atMouth.sourceLatencyMs()));
            fromMouth.push_back(device.back() + measured.back());
        }
        call->listening = false;
        QThread::msleep(200);
    }
    audio->stop();
    mouth->stop();
    return {median(fromMouth), median(device), median(measured), median(toEar)};
}

// Far-end speech played through a room (the speaker's monitor looped back into
// the microphone) and what reaches the call, with or without voice processing.
// The loopback's rate is held, as in the room test.
double roomEnergy(const std::vector<std::int16_t>& far, const VoiceSettings& settings,
                  bool voiceProcessing) {
    PulseAudioServer server(
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-null-sink sink_name=room rate=48000 channels=1 norewinds=1",
         "load-module module-loopback source=speaker.monitor sink=room latency_msec=30 "
         "adjust_time=0",
         "set-default-sink speaker", "set-default-source room.monitor"});
    PulseBackend::Options options;
    options.voiceProcessing = voiceProcessing;
    options.voice = settings;
    auto audio = CallAudio::make(std::make_shared<PulseBackend>(options));
    struct Call : BenchCall {
        std::vector<std::int16_t> far;
        std::size_t at = 0;
        std::mutex mutex;
        std::vector<std::int16_t> heard;
        std::vector<std::int16_t> readAudio() override {
            std::vector<std::int16_t> out(160, 0);
            for (auto& s : out) {
                if (at < far.size()) {
                    s = far[at++];
                }
            }
            return out;
        }
        void writeAudio(const std::vector<std::int16_t>& frame) override {
            std::lock_guard guard(mutex);
            heard.insert(heard.end(), frame.begin(), frame.end());
        }
    };
    auto call = std::make_shared<Call>();
    call->far = far;
    std::promise<std::optional<CallAudio::Error>> started;
    audio->start(call, [&](auto error) { started.set_value(error); });
    if (started.get_future().get()) {
        return -1;
    }
    waitUntil(
        [&] {
            std::lock_guard guard(call->mutex);
            return call->heard.size() >= 9 * 8000;
        },
        20s);
    audio->stop();
    std::lock_guard guard(call->mutex);
    double sum = 0;
    for (std::size_t i = 4 * 8000; i < 9 * 8000 && i < call->heard.size(); ++i) {
        sum += double(call->heard[i]) * call->heard[i];
    }
    return sum;
}

// A call through PulseAudio with two device switches (a headset plugged in and
// made the default, then taken away), while the main thread reads what the
// statistics panel reads every 20 ms. Gives the longest single main-thread call.
struct MainThreadFigures {
    double maxBlockMs = -1; // start, the reads and mute, over the call
    double hangUpMs = -1;   // stop at the end, which waits for the queue
    int restarts = 0;
};

MainThreadFigures mainThreadBlock() {
    PulseAudioServer server(
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=2 norewinds=1 "
         "sink_properties=device.form_factor=internal",
         "load-module module-sine-source source_name=mic rate=48000 frequency=440",
         "set-default-sink speaker", "set-default-source mic"});
    auto audio = CallAudio::make(std::make_shared<PulseBackend>());
    auto call = std::make_shared<BenchCall>();
    double longest = 0;
    auto timed = [&](auto&& step) {
        const auto begun = Clock::now();
        step();
        longest = std::max(longest, ms(Clock::now() - begun));
    };
    std::promise<std::optional<CallAudio::Error>> started;
    timed([&] { audio->start(call, [&](auto error) { started.set_value(error); }); });
    if (started.get_future().get()) {
        return {};
    }
    // The switches happen beside the main thread, as a user plugging a headset would.
    std::atomic<bool> switching{true};
    std::thread plug([&] {
        QThread::msleep(1000);
        const int sink = server.loadModule(
            "module-null-sink", {"sink_name=headset", "rate=16000", "channels=1", "norewinds=1",
                                 "sink_properties=device.form_factor=headset"});
        const int mic = server.loadModule(
            "module-sine-source", {"source_name=headsetmic", "rate=16000", "frequency=600"});
        server.setDefaultSink("headset");
        server.setDefaultSource("headsetmic");
        QThread::msleep(1500);
        server.unloadModule(mic);
        server.unloadModule(sink);
        QThread::msleep(1500);
        switching = false;
    });
    std::optional<QString> sink;
    while (switching.load()) {
        timed([&] { sink = audio->audioWarning(); });
        timed([&] { (void)audio->micFrames(); });
        timed([&] { (void)audio->restarts(); });
        timed([&] { (void)audio->lastError(); });
        timed([&] { audio->setMuted(audio->muted()); });
        QThread::msleep(20);
    }
    plug.join();
    MainThreadFigures figures;
    figures.maxBlockMs = longest;
    figures.restarts = audio->restarts();
    const auto hangUp = Clock::now();
    audio->stop();
    figures.hangUpMs = ms(Clock::now() - hangUp);
    return figures;
}

void print(const char* name, double value) {
    std::printf("%s: %.2f\n", name, value);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    core::initLogging("error");

    const VoiceSettings tuned = VoiceSettings::tuned();
    const VoiceSettings baseline = VoiceSettings::libraryDefaults();

    if (argc > 1 && std::string(argv[1]) == "latency") {
        // The latency figures alone, through PulseAudio and PipeWire.
        for (const auto kind :
             {PulseAudioServer::Kind::pulseaudio, PulseAudioServer::Kind::pipewire}) {
            PulseAudioServer::use(kind);
            const char* suffix = kind == PulseAudioServer::Kind::pipewire ? "_pipewire" : "";
            const Latency figures = measureLatency(tuned);
            std::printf("mouth_to_wire_ms%s: %.2f\n", suffix, figures.mouthToWire);
            std::printf("mouth_to_wire_device_ms%s: %.2f\n", suffix, figures.mouthDevice);
            std::printf("mouth_to_wire_stream_and_pipeline_ms%s: %.2f\n", suffix,
                        figures.mouthMeasured);
            std::printf("wire_to_ear_ms%s: %.2f\n", suffix, figures.wireToEar);
        }
        PulseAudioServer::use(PulseAudioServer::Kind::pulseaudio);
        return 0;
    }

    // Latency, the microphone to the wire and the wire to the ear.
    const Latency latency = measureLatency(tuned);
    const Latency latencyBase = measureLatency(baseline);
    print("capture_latency_ms", latency.mouthToWire);
    print("playback_latency_ms", latency.wireToEar);
    print("capture_latency_device_ms", latency.mouthDevice);
    print("capture_latency_stream_and_pipeline_ms", latency.mouthMeasured);

    // Gain control would move the near end's level by itself; the echo figures leave it out.
    VoiceSettings echoTuned = tuned;
    echoTuned.gainControl = false;
    VoiceSettings echoBase = baseline;
    echoBase.gainControl = false;
    const EchoScene scene = makeEchoScene(150);
    const EchoFigures a = measureEcho(scene, echoTuned, 150);
    const EchoFigures b = measureEcho(scene, echoBase, 150);
    // With everything in calls, gain control included: CPU seconds per minute of call.
    const EchoFigures full = measureEcho(scene, tuned, 150);
    const EchoFigures fullBase = measureEcho(scene, baseline, 150);
    print("cpu_s_per_call_min_vp", full.cpuMsPerSecond * 60.0 / 1000.0);
    print("erle_db_steady", a.erleSteadyDb);
    print("erle_db_1s", a.erleSecondDb);
    print("doubletalk_near_change_db", a.nearChangeDb);

    // The same speech through PulseAudio and a looped-back room, the devices'
    // delay taken from the streams' measured latencies; without voice processing,
    // twice, so that the difference shows what the measurement itself wanders.
    std::vector<std::int16_t> far;
    for (float v : scene.far) {
        far.push_back(std::int16_t(v * 32767.0f));
    }
    const double open = roomEnergy(far, echoTuned, false);
    const double openAgain = roomEnergy(far, echoTuned, false);
    const double roomTuned = roomEnergy(far, echoTuned, true);
    const double roomBase = roomEnergy(far, echoBase, true);
    print("erle_db_vp_off", 10 * std::log10(open / std::max(openAgain, 1.0)));

    const EngineCallFigures engineCall = measureEngineCall(std::chrono::seconds(60));
    print("render_allocations", double(engineCall.renderAllocations));

    // The devices' latencies 40 ms off the true 150 ms, either way; the worse.
    const EchoFigures early = measureEcho(scene, echoTuned, 110);
    const EchoFigures late = measureEcho(scene, echoTuned, 190);
    print("erle_db_steady_delay_off_40ms", std::min(early.erleSteadyDb, late.erleSteadyDb));
    print("erle_db_pulse_room", 10 * std::log10(open / std::max(roomTuned, 1.0)));
    print("mouth_to_ear_ms", engineCall.mouthToEarMs);
    print("mouth_to_ear_capture_ms", engineCall.captureMs);
    print("mouth_to_ear_packetisation_and_jitter_buffer_ms", engineCall.wireMs);
    print("mouth_to_ear_render_ms", engineCall.renderMs);
    print("mouth_to_ear_clicks", engineCall.clicks);
    print("render_frees", double(engineCall.renderFrees));

    // The same through PipeWire's PulseAudio server.
    PulseAudioServer::use(PulseAudioServer::Kind::pipewire);
    const Latency latencyPipeWire = measureLatency(tuned);
    const double openPipeWire = roomEnergy(far, echoTuned, false);
    const double roomPipeWire = roomEnergy(far, echoTuned, true);
    PulseAudioServer::use(PulseAudioServer::Kind::pulseaudio);
    print("mouth_to_wire_ms_pipewire", latencyPipeWire.mouthToWire);
    print("mouth_to_wire_device_ms_pipewire", latencyPipeWire.mouthDevice);
    print("mouth_to_wire_stream_and_pipeline_ms_pipewire", latencyPipeWire.mouthMeasured);
    print("wire_to_ear_ms_pipewire", latencyPipeWire.wireToEar);
    print("erle_db_pulse_room_pipewire",
          10 * std::log10(openPipeWire / std::max(roomPipeWire, 1.0)));

    const MainThreadFigures mainThread = mainThreadBlock();
    print("main_thread_max_block_ms", mainThread.maxBlockMs);
    print("main_thread_hang_up_ms", mainThread.hangUpMs);
    print("main_thread_restarts_seen", mainThread.restarts);

    // The earlier names, and the baselines: the library's defaults.
    print("mouth_to_wire_ms", latency.mouthToWire);
    print("wire_to_ear_ms", latency.wireToEar);
    print("mouth_to_wire_ms_baseline", latencyBase.mouthToWire);
    print("wire_to_ear_ms_baseline", latencyBase.wireToEar);
    print("erle_db_0_15_to_1s", a.erleEarlyDb);
    print("erle_db_0_15_to_1s_baseline", b.erleEarlyDb);
    print("erle_db_1s_baseline", b.erleSecondDb);
    print("erle_db_steady_baseline", b.erleSteadyDb);
    print("doubletalk_near_change_db_baseline", b.nearChangeDb);
    print("cpu_s_per_call_min_vp_baseline", fullBase.cpuMsPerSecond * 60.0 / 1000.0);
    const EchoFigures earlyBase = measureEcho(scene, echoBase, 110);
    const EchoFigures lateBase = measureEcho(scene, echoBase, 190);
    print("erle_db_steady_delay_off_40ms_baseline",
          std::min(earlyBase.erleSteadyDb, lateBase.erleSteadyDb));
    print("erle_db_pulse_room_baseline", 10 * std::log10(open / std::max(roomBase, 1.0)));
    // What processing takes from the near end when there is no far end at all.
    EchoScene quiet = scene;
    std::fill(quiet.far.begin(), quiet.far.end(), 0.0f);
    std::fill(quiet.echo.begin(), quiet.echo.end(), 0.0f);
    print("near_end_change_no_far_end_db", measureEcho(quiet, echoTuned, 150).nearChangeDb);
    print("near_end_change_no_far_end_db_baseline", measureEcho(quiet, echoBase, 150).nearChangeDb);
    return 0;
}

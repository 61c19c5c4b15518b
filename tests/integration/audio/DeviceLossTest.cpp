#include "FakeCall.h"
#include "PulseAudioServer.h"
#include "Waits.h"
#include "audio/PulseBackend.h"
#include "telephony/CallAudio.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include <pulse/pulseaudio.h>

namespace {

using namespace std::chrono_literals;

constexpr int rounds = 50;

std::optional<CallAudio::Error> startAndWait(CallAudio& audio, std::shared_ptr<core::Call> call) {
    auto done = std::make_shared<std::promise<std::optional<CallAudio::Error>>>();
    auto result = done->get_future();
    audio.start(std::move(call), [done](auto error) { done->set_value(error); });
    if (result.wait_for(15s) != std::future_status::ready) {
        throw std::runtime_error("start did not complete");
    }
    return result.get();
}

// A call that has been hung up, and what its audio had done with it by then.
struct EndedCall {
    std::shared_ptr<FakeCall> call;
    int reads = 0;
    std::size_t frames = 0;
};

enum class Lost { microphone, speaker };

// Ends every record stream (or playback stream) on the server, as the server
// does to a stream whose device is gone and that it cannot move: pactl has no
// command for it, so this is libpulse's own call, on a main loop of its own.
void killStreams(PulseAudioServer& server, Lost lost) {
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "device loss test");
    auto iterateUntil = [&](const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline ||
                !PA_CONTEXT_IS_GOOD(pa_context_get_state(context))) {
                throw std::runtime_error("the sound server did not answer the test");
            }
            pa_mainloop_iterate(loop, 0, nullptr);
            std::this_thread::sleep_for(1ms);
        }
    };
    auto finish = [&] {
        pa_context_disconnect(context);
        pa_context_unref(context);
        pa_mainloop_free(loop);
    };
    try {
        pa_context_connect(context, server.address().toUtf8().constData(), PA_CONTEXT_NOAUTOSPAWN,
                           nullptr);
        iterateUntil([&] { return pa_context_get_state(context) == PA_CONTEXT_READY; });
        std::vector<std::uint32_t> streams;
        pa_operation* list = nullptr;
        if (lost == Lost::microphone) {
            list = pa_context_get_source_output_info_list(
                context,
                [](pa_context*, const pa_source_output_info* info, int eol, void* data) {
                    if (eol == 0 && info != nullptr) {
                        static_cast<std::vector<std::uint32_t>*>(data)->push_back(info->index);
                    }
                },
                &streams);
        } else {
            list = pa_context_get_sink_input_info_list(
                context,
                [](pa_context*, const pa_sink_input_info* info, int eol, void* data) {
                    if (eol == 0 && info != nullptr) {
                        static_cast<std::vector<std::uint32_t>*>(data)->push_back(info->index);
                    }
                },
                &streams);
        }
        iterateUntil([&] { return pa_operation_get_state(list) != PA_OPERATION_RUNNING; });
        pa_operation_unref(list);
        for (std::uint32_t index : streams) {
            pa_operation* kill =
                lost == Lost::microphone
                    ? pa_context_kill_source_output(context, index, nullptr, nullptr)
                    : pa_context_kill_sink_input(context, index, nullptr, nullptr);
            iterateUntil([&] { return pa_operation_get_state(kill) != PA_OPERATION_RUNNING; });
            pa_operation_unref(kill);
        }
    } catch (...) {
        finish();
        throw;
    }
    finish();
}

// Runs `rounds` calls on one server. In each a headset is plugged in and made
// the default, the call streams both ways, then the headset's microphone (or
// its speaker) goes away with the stream on it, and the call is hung up: at once in even rounds,
// after the restart has settled in odd ones. The engine is destroyed with the
// call audio each round, so a stream's callback running after the hang-up
// would touch freed memory, and an ended call that is still read or written
// shows it too.
void loseADeviceAndHangUp(Lost lost) {
    PulseAudioServer server(
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=2 norewinds=1",
         "load-module module-sine-source source_name=mic rate=48000 frequency=440",
         "set-default-sink speaker", "set-default-source mic"});
    std::vector<EndedCall> ended;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        int module = 0;
        if (lost == Lost::microphone) {
            module = server.loadModule("module-sine-source",
                                       {"source_name=headsetmic", "rate=16000", "frequency=600"});
            server.setDefaultSource("headsetmic");
        } else {
            module = server.loadModule(
                "module-null-sink", {"sink_name=headset", "rate=16000", "channels=1", "norewinds=1",
                                     "sink_properties=device.form_factor=headset"});
            server.setDefaultSink("headset");
        }
        PulseBackend::Options options;
        options.voice.noiseSuppression = false;
        auto audio = CallAudio::make(std::make_shared<PulseBackend>(options));
        auto call = std::make_shared<FakeCall>();
        ASSERT_EQ(startAndWait(*audio, call), std::nullopt);
        ASSERT_TRUE(call->waitForFrames(5, 5s));
        ASSERT_TRUE(waitUntil([&] { return call->reads() >= 5; }, 5s));

        // Every call ended so far stays untouched while this one runs.
        for (const EndedCall& e : ended) {
            ASSERT_EQ(e.call->reads(), e.reads);
            ASSERT_EQ(e.call->framesWritten(), e.frames);
        }

        server.unloadModule(module);
        // The server moves a stream whose device went to another one when it can;
        // a stream it cannot move fails. Ours fails here, as the other engine
        // stream goes on.
        killStreams(server, lost);
        if (round % 2 == 1) {
            ASSERT_TRUE(waitUntil([&] { return audio->restarts() >= 1; }, 3s));
            ASSERT_TRUE(waitUntil([&] { return !audio->busy(); }, 5s));
        }
        audio->stop();
        ended.push_back({call, call->reads(), call->framesWritten()});
        audio.reset();
    }
    // The last round's call, after the server has served another request.
    server.pactl({"info"});
    for (const EndedCall& e : ended) {
        EXPECT_EQ(e.call->reads(), e.reads);
        EXPECT_EQ(e.call->framesWritten(), e.frames);
    }
}

} // namespace

TEST(PulseAudioDeviceLoss, HangingUpAfterTheMicrophoneWentAwayStopsEveryStream) {
    loseADeviceAndHangUp(Lost::microphone);
}

TEST(PulseAudioDeviceLoss, HangingUpAfterTheSpeakerWentAwayStopsEveryStream) {
    loseADeviceAndHangUp(Lost::speaker);
}

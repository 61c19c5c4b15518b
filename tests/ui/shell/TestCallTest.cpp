#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "PulseAudioServer.h"
#include "Services.h"
#include "audio/Wav.h"
#include "shell/SettingsState.h"

#include <QTemporaryDir>

#include <cmath>
#include <numbers>

using namespace std::chrono_literals;
using Status = Phone::ActiveCall::Status;

// The settings window's test call, placed by the app on rz-devserver's real
// phone system (kamailio, rtpengine and the echo party). The microphone is a
// private PulseAudio's "room" sink, where the test plays short bursts of a
// 1 kHz tone as a person would speak; what the echo sends back is heard on
// the "speaker" sink.
namespace {

// Power of one frequency in samples (Goertzel).
double power(const std::vector<std::int16_t>& samples, double hz, double rate = 8000) {
    const double k = 2 * std::cos(2 * std::numbers::pi * hz / rate);
    double s1 = 0;
    double s2 = 0;
    for (const std::int16_t sample : samples) {
        const double s0 = sample + k * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return (s1 * s1 + s2 * s2 - k * s1 * s2) / double(samples.size());
}

// Bursts of 200 ms of tone with 200 ms of silence between, for `seconds`.
WavData bursts(double seconds) {
    constexpr double rate = 48000;
    WavData wav{{rate, 1}, {}};
    for (int i = 0; i < int(seconds * rate); ++i) {
        const bool on = (i / int(0.2 * rate)) % 2 == 0;
        wav.samples.push_back(on ? float(0.5 * std::sin(2 * std::numbers::pi * 1000 * i / rate))
                                 : 0.0f);
    }
    return wav;
}

class TestCall : public ScreenHost {
protected:
    TestCall() : server{{"--auto-approve", "u-001", "--phone", "--state", dir.path()}} {
        const auto ready = server.phoneReady();
        settings.setUrl("rz.server", server.url());
        settings.setText("sip.caFile", QString::fromStdString(ready.at("caFile")));
    }

    void signInAndRegister() {
        Session& session = app().session();
        useSigningInBrowser(session);
        session.signIn();
        ASSERT_TRUE(
            spinUntil([&] { return session.hasError() || app().phone().isRegistered(); }, 20s))
            << app().phone().registrationText().toStdString();
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
    }

    std::optional<Status> status() {
        const auto& call = app().phone().activeCall();
        return call ? std::optional<Status>(call->status) : std::nullopt;
    }

    TempHome home;
    QTemporaryDir dir;
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-null-sink sink_name=room rate=48000 channels=1 norewinds=1",
         "set-default-sink speaker", "set-default-source room.monitor"}};
    DevServer server;
};

} // namespace

TEST_F(TestCall, TheButtonCallsTheEchoTestAndWhatIsSaidComesBack) {
    signInAndRegister();
    hostWindow("SettingsWindow.qml");
    window->resize(560, 1500);
    ASSERT_TRUE(spinUntil([&] { return window->height() == 1500; }));
    QQuickItem* button = item("testCallButton");
    ASSERT_NE(button, nullptr);
    ASSERT_TRUE(spinUntil([&] { return button->isEnabled(); }));
    screenshot("settings-test-call");
    click(button);
    ASSERT_TRUE(app().phone().activeCall().has_value());
    EXPECT_EQ(app().phone().activeCall()->remote, SettingsState::echoExtension);
    ASSERT_TRUE(spinUntil([&] { return status() == Status::connected; }, 20s));
    EXPECT_FALSE(button->isEnabled());

    // Before anyone speaks the speaker is quiet.
    EXPECT_LT(PulseAudioServer::rms(PulseAudioServer::record("speaker.monitor", 0.5)), 100.0);
    const QString speech = dir.filePath("speech.wav");
    ASSERT_TRUE(writeWav(speech.toStdString(), bursts(6.0)));
    ChildProcess voice;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PULSE_SERVER", pulse.address());
    voice.start("paplay", {"--device=room", speech}, environment);
    // What comes back is the tone, well above anything else.
    const auto heard = PulseAudioServer::record("speaker.monitor", 3.0);
    ASSERT_GE(heard.size(), 16000u);
    EXPECT_GT(PulseAudioServer::rms(heard), 300.0);
    const double tone = power(heard, 1000);
    const double other = power(heard, 1500);
    EXPECT_GT(10 * std::log10(tone / std::max(other, 1e-9)), 20.0);

    app().phone().hangUpActive();
    ASSERT_TRUE(spinUntil([&] { return !status().has_value(); }, 10s));
    EXPECT_TRUE(spinUntil([&] { return button->isEnabled(); }));
}

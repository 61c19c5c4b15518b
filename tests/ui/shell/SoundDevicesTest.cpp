#include "EventLoopWait.h"
#include "FakeCall.h"
#include "PulseAudioServer.h"
#include "Services.h"
#include "shell/Application.h"
#include "telephony/CallAudio.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <numbers>

using namespace std::chrono_literals;

// The ringing device and the call's devices chosen apart, in the app as it
// runs, against a private PulseAudio with two null sinks: "speaker", the
// default, and "headset". What plays where is read from the server's own
// list of streams and heard on each sink's monitor.
namespace {

std::vector<std::int16_t> tone8k(double hz, double seconds, double level) {
    std::vector<std::int16_t> out;
    for (int i = 0; i < int(seconds * 8000); ++i) {
        out.push_back(std::int16_t(level * 32767 * std::sin(2 * std::numbers::pi * hz * i / 8000)));
    }
    return out;
}

// The ring is an event sound; the call's output is the engine's playback stream.
const QString ring = QStringLiteral("media.role = \"event\"");
const QString call = QStringLiteral("media.name = \"call playback\"");

QString sinkLine(const QString& name) {
    return "load-module module-null-sink sink_name=" + name + " rate=48000 channels=1 norewinds=1";
}

class SoundDevicesChosenApart : public testing::Test {
protected:
    void SetUp() override {
        application = std::make_unique<Application>(settings, secrets);
        ASSERT_TRUE(spinUntil([&] { return listed("headset"); }, 10s));
    }

    void TearDown() override {
        if (application) {
            application->phone().audio().stop();
        }
        application.reset();
    }

    SoundDeviceChoice& sound() { return *application->shellState().settingsState()->sound(); }

    bool listed(const QString& name) {
        for (const QVariant& row : sound().callOutputs()) {
            const QVariantMap map = row.toMap();
            if (map.value("name") == name && map.value("present").toBool()) {
                return true;
            }
        }
        return false;
    }

    // The sink (by name) each playing stream with that property is on.
    QStringList sinksOf(const QString& property) {
        QMap<QString, QString> sinkNames;
        for (const QString& line : pulse.pactl({"list", "short", "sinks"}).split('\n')) {
            const QStringList fields = line.split('\t');
            if (fields.size() > 1) {
                sinkNames.insert(fields[0], fields[1]);
            }
        }
        QStringList found;
        const QString all = pulse.pactl({"list", "sink-inputs"});
        for (const QString& block : all.split(QRegularExpression("\\n(?=Sink Input #)"))) {
            const auto sink = QRegularExpression("\\n\\s*Sink: (\\d+)").match(block);
            if (sink.hasMatch() && block.contains(property)) {
                found.append(sinkNames.value(sink.captured(1)));
            }
        }
        return found;
    }

    // The app's call audio, serving a tone as the far end's voice.
    void startCall() {
        auto done = std::make_shared<std::promise<std::optional<CallAudio::Error>>>();
        auto result = done->get_future();
        application->phone().audio().start(
            std::make_shared<FakeCall>(tone8k(1000, 30.0, 0.5)),
            [done](std::optional<CallAudio::Error> error) { done->set_value(std::move(error)); });
        ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
        const auto error = result.get();
        ASSERT_FALSE(error.has_value()) << error->description.toStdString();
    }

    double level(const QString& sink, double seconds = 1.0) {
        return PulseAudioServer::rms(PulseAudioServer::record(sink + ".monitor", seconds));
    }

    TempHome home;
    PulseAudioServer pulse{{sinkLine("speaker"), sinkLine("headset"), "set-default-sink speaker"}};
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    std::unique_ptr<Application> application;
};

} // namespace

TEST_F(SoundDevicesChosenApart, TheServersSinksAreListedByNameWithTheDefaultFirst) {
    const QVariantList rows = sound().ringOutputs();
    ASSERT_GE(rows.size(), 3);
    EXPECT_EQ(rows[0].toMap().value("name").toString(), QString());
    EXPECT_TRUE(rows[0].toMap().value("label").toString().startsWith("Follow the system default"));
    EXPECT_TRUE(listed("speaker"));
    // Monitors are no microphones.
    for (const QVariant& row : sound().callInputs()) {
        EXPECT_FALSE(row.toMap().value("name").toString().endsWith(".monitor"));
    }
}

TEST_F(SoundDevicesChosenApart, TheRingPlaysOnTheRingingDeviceWhileTheCallStaysOnTheFirst) {
    sound().setRingOutput("headset");
    EXPECT_EQ(application->ringer().device(), "headset");
    startCall();
    application->ringer().ring();
    ASSERT_TRUE(spinUntil([&] { return !sinksOf(ring).isEmpty(); }, 5s));
    EXPECT_EQ(sinksOf(ring), QStringList{"headset"});
    EXPECT_EQ(sinksOf(call), QStringList{"speaker"});
    EXPECT_GT(level("headset"), 300.0);
    EXPECT_GT(level("speaker"), 300.0);
    application->ringer().silence();
    application->phone().audio().stop();
    // With the call gone and the ring cut, the speaker is quiet again.
    ASSERT_TRUE(spinUntil([&] { return sinksOf(call).isEmpty(); }, 5s));
    EXPECT_LT(level("speaker", 0.5), 50.0);
}

TEST_F(SoundDevicesChosenApart,
       TheCallDeviceChosenApartCarriesTheCallWhileTheRingFollowsTheDefault) {
    sound().setCallOutput("headset");
    EXPECT_EQ(settings.text("audio.callOutput"), "headset");
    startCall();
    application->ringer().ring();
    ASSERT_TRUE(spinUntil([&] { return !sinksOf(ring).isEmpty(); }, 5s));
    EXPECT_EQ(sinksOf(ring), QStringList{"speaker"});
    EXPECT_EQ(sinksOf(call), QStringList{"headset"});
    EXPECT_GT(level("headset"), 300.0);
}

TEST_F(SoundDevicesChosenApart,
       AnUnpluggedCallDeviceIsReplacedByTheDefaultAndTakenAgainWhenItComesBack) {
    sound().setCallOutput("headset");
    const int headset = pulse.loadModule(
        "module-null-sink", {"sink_name=usbheadset", "rate=48000", "channels=1", "norewinds=1"});
    ASSERT_TRUE(spinUntil([&] { return listed("usbheadset"); }, 5s));
    sound().setCallOutput("usbheadset");
    pulse.unloadModule(headset);
    ASSERT_TRUE(spinUntil([&] { return !listed("usbheadset"); }, 5s));
    EXPECT_EQ(sound().effectiveCallOutput(), QString());
    EXPECT_EQ(sound().callOutput(), "usbheadset");
    EXPECT_EQ(settings.text("audio.callOutput"), "usbheadset");
    startCall();
    ASSERT_TRUE(spinUntil([&] { return !sinksOf(call).isEmpty(); }, 5s));
    EXPECT_EQ(sinksOf(call), QStringList{"speaker"});
    application->phone().audio().stop();
    ASSERT_TRUE(spinUntil([&] { return sinksOf(call).isEmpty(); }, 5s));

    pulse.loadModule("module-null-sink",
                     {"sink_name=usbheadset", "rate=48000", "channels=1", "norewinds=1"});
    ASSERT_TRUE(spinUntil([&] { return listed("usbheadset"); }, 5s));
    EXPECT_EQ(sound().effectiveCallOutput(), "usbheadset");
    startCall();
    ASSERT_TRUE(spinUntil([&] { return !sinksOf(call).isEmpty(); }, 5s));
    EXPECT_EQ(sinksOf(call), QStringList{"usbheadset"});
}

TEST_F(SoundDevicesChosenApart, AChoiceMadeBeforeAStartIsOpenedOnceTheServerListsIt) {
    sound().setRingOutput("headset");
    application.reset();
    application = std::make_unique<Application>(settings, secrets);
    EXPECT_EQ(sound().ringOutput(), "headset");
    ASSERT_TRUE(spinUntil([&] { return application->ringer().device() == "headset"; }, 5s));
}

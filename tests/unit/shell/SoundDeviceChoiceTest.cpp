#include "shell/SoundDeviceChoice.h"
#include "telephony/DeviceChoice.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using DeviceChoice::Device;
using DeviceChoice::Row;

namespace {

const QList<Device> outputs{{"alsa_output.pci.analog-stereo", "Built-in Audio Analog Stereo"},
                            {"bluez_sink.00_1B_66.a2dp", "Headset"}};

struct Applied {
    QString callOutput = "unset";
    QString callInput = "unset";
    QString ringOutput = "unset";
    int times = 0;
};

void wire(SoundDeviceChoice& choice, Applied& applied) {
    choice.setApply(
        [&applied](const QString& output, const QString& input) {
            applied.callOutput = output;
            applied.callInput = input;
            ++applied.times;
        },
        [&applied](const QString& output) { applied.ringOutput = output; });
}

} // namespace

TEST(DeviceChoice, NothingChosenFollowsTheDefault) {
    EXPECT_EQ(DeviceChoice::effective(QString(), outputs), QString());
}

TEST(DeviceChoice, AChosenDeviceThatIsThereIsOpened) {
    EXPECT_EQ(DeviceChoice::effective("bluez_sink.00_1B_66.a2dp", outputs),
              "bluez_sink.00_1B_66.a2dp");
}

TEST(DeviceChoice, AChosenDeviceThatIsAwayFollowsTheDefault) {
    EXPECT_EQ(DeviceChoice::effective("usb_headset", outputs), QString());
    EXPECT_EQ(DeviceChoice::effective("usb_headset", {}), QString());
}

TEST(DeviceChoice, TheMenuStartsWithTheDefaultNamedThenEachDeviceByItsDescription) {
    const auto rows = DeviceChoice::rows(outputs, "alsa_output.pci.analog-stereo", QString());
    ASSERT_EQ(rows.size(), 3);
    EXPECT_EQ(rows[0],
              (Row{QString(), "Follow the system default (Built-in Audio Analog Stereo)", true}));
    EXPECT_EQ(rows[1],
              (Row{"alsa_output.pci.analog-stereo", "Built-in Audio Analog Stereo", true}));
    EXPECT_EQ(rows[2], (Row{"bluez_sink.00_1B_66.a2dp", "Headset", true}));
}

TEST(DeviceChoice, AnUnknownDefaultIsNotNamed) {
    const auto rows = DeviceChoice::rows({}, QString(), QString());
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].label, "Follow the system default");
}

TEST(DeviceChoice, ADeviceWithoutADescriptionReadsAsItsName) {
    const auto rows = DeviceChoice::rows({{"null_sink", ""}}, "null_sink", QString());
    EXPECT_EQ(rows[0].label, "Follow the system default (null_sink)");
    EXPECT_EQ(rows[1].label, "null_sink");
}

TEST(DeviceChoice, AChosenDeviceThatIsAwayStaysInTheMenuMarked) {
    const auto rows = DeviceChoice::rows(outputs, QString(), "usb_headset");
    ASSERT_EQ(rows.size(), 4);
    EXPECT_EQ(rows[3], (Row{"usb_headset", "usb_headset (not connected)", false}));
}

TEST(SoundDeviceChoice, StartsFollowingTheDefaultEverywhere) {
    MemorySettingsStore settings;
    SoundDeviceChoice choice(settings);
    Applied applied;
    wire(choice, applied);
    EXPECT_EQ(choice.ringOutput(), QString());
    EXPECT_EQ(choice.callOutput(), QString());
    EXPECT_EQ(choice.callInput(), QString());
    EXPECT_EQ(applied.callOutput, QString());
    EXPECT_EQ(applied.callInput, QString());
    EXPECT_EQ(applied.ringOutput, QString());
    EXPECT_FALSE(choice.listed());
}

TEST(SoundDeviceChoice, RingAndCallAreChosenApartAndKeptByName) {
    MemorySettingsStore settings;
    Applied applied;
    {
        SoundDeviceChoice choice(settings);
        wire(choice, applied);
        choice.update(outputs, {{"mic", "Microphone"}}, outputs[0].name, "mic");
        QSignalSpy changed(&choice, &SoundDeviceChoice::devicesChanged);
        choice.setRingOutput(outputs[0].name);
        choice.setCallOutput(outputs[1].name);
        choice.setCallInput("mic");
        EXPECT_EQ(changed.count(), 3);
        EXPECT_EQ(applied.ringOutput, outputs[0].name);
        EXPECT_EQ(applied.callOutput, outputs[1].name);
        EXPECT_EQ(applied.callInput, "mic");
    }
    EXPECT_EQ(settings.text("audio.ringOutput"), outputs[0].name);
    EXPECT_EQ(settings.text("audio.callOutput"), outputs[1].name);
    EXPECT_EQ(settings.text("audio.callInput"), "mic");
    // At the next start the choice is read back, and opened once the device is listed.
    SoundDeviceChoice again(settings);
    Applied later;
    wire(again, later);
    EXPECT_EQ(again.callOutput(), outputs[1].name);
    EXPECT_EQ(later.callOutput, QString());
    again.update(outputs, {{"mic", "Microphone"}}, outputs[0].name, "mic");
    EXPECT_EQ(later.callOutput, outputs[1].name);
    EXPECT_EQ(later.ringOutput, outputs[0].name);
}

TEST(SoundDeviceChoice, ChoosingTheDefaultAgainForgetsTheName) {
    MemorySettingsStore settings;
    SoundDeviceChoice choice(settings);
    choice.setCallOutput("x");
    ASSERT_TRUE(settings.text("audio.callOutput").has_value());
    choice.setCallOutput(QString());
    EXPECT_FALSE(settings.text("audio.callOutput").has_value());
}

TEST(SoundDeviceChoice, ADeviceThatGoesIsReplacedByTheDefaultAndTakenAgainWhenItComesBack) {
    MemorySettingsStore settings;
    SoundDeviceChoice choice(settings);
    Applied applied;
    wire(choice, applied);
    choice.update(outputs, {}, outputs[0].name, QString());
    choice.setCallOutput(outputs[1].name);
    ASSERT_EQ(applied.callOutput, outputs[1].name);
    // The headset is unplugged.
    choice.update({outputs[0]}, {}, outputs[0].name, QString());
    EXPECT_EQ(applied.callOutput, QString());
    EXPECT_EQ(choice.callOutput(), outputs[1].name);
    EXPECT_EQ(settings.text("audio.callOutput"), outputs[1].name);
    EXPECT_EQ(choice.callOutputs().last().toMap().value("present"), false);
    // And plugged in again.
    choice.update(outputs, {}, outputs[0].name, QString());
    EXPECT_EQ(applied.callOutput, outputs[1].name);
    EXPECT_EQ(choice.callOutputs().last().toMap().value("present"), true);
}

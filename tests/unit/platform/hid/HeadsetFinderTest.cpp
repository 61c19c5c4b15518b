#include "hid/HeadsetFinder.h"
#include "hid/HidrawDevice.h"

#include "HeadsetDescriptors.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The finder over a tree laid out as sysfs and /dev are: one node is a
// headset dongle, one a keyboard, one has no descriptor at all. The nodes are
// FIFOs, which open for reading and writing as a hidraw node does.
namespace {

class Finder : public testing::Test {
protected:
    Finder() {
        node("hidraw0", headsets::keyboard);
        node("hidraw1", headsets::dectDongle);
        QDir().mkpath(dir.filePath("dev"));
        mkfifo(QFile::encodeName(dir.filePath("dev/hidraw2")).constData(), 0600);
    }

    void node(const QString& name, const std::vector<std::uint8_t>& descriptor) {
        QDir().mkpath(dir.filePath("sys/class/hidraw/" + name + "/device"));
        QFile file(dir.filePath("sys/class/hidraw/" + name + "/device/report_descriptor"));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(reinterpret_cast<const char*>(descriptor.data()), qint64(descriptor.size()));
        QDir().mkpath(dir.filePath("dev"));
        EXPECT_EQ(mkfifo(QFile::encodeName(dir.filePath("dev/" + name)).constData(), 0600), 0);
    }

    QTemporaryDir dir;
};

} // namespace

TEST_F(Finder, OnlyTheNodeWithAHookSwitchIsTakenAsAHeadset) {
    HeadsetFinder finder(dir.filePath("sys"), dir.filePath("dev"));
    QSignalSpy found(&finder, &HeadsetFinder::found);
    finder.start();
    ASSERT_EQ(found.count(), 1);
    std::unique_ptr<HidrawDevice> device(found.at(0).at(0).value<HidrawDevice*>());
    EXPECT_EQ(device->name(), "hidraw1");
}

TEST_F(Finder, TheFoundHeadsetsButtonsAreReadFromItsNode) {
    HeadsetFinder finder(dir.filePath("sys"), dir.filePath("dev"));
    QSignalSpy found(&finder, &HeadsetFinder::found);
    finder.start();
    ASSERT_EQ(found.count(), 1);
    std::unique_ptr<HidrawDevice> device(found.at(0).at(0).value<HidrawDevice*>());
    QSignalSpy pressed(device.get(), &HidrawDevice::pressed);
    const int headset =
        ::open(QFile::encodeName(dir.filePath("dev/hidraw1")).constData(), O_WRONLY | O_NONBLOCK);
    ASSERT_GE(headset, 0);
    const std::uint8_t hook[] = {0x02, 0x01, 0x00};
    ASSERT_EQ(::write(headset, hook, sizeof hook), 3);
    ASSERT_TRUE(pressed.wait(5000));
    EXPECT_EQ(pressed.at(0).at(0).value<hid::HeadsetButtons>().offHook, true);
    ::close(headset);
}

TEST_F(Finder, ADescriptorLargerThanAnyIsNoHeadset) {
    std::vector<std::uint8_t> huge = headsets::dectDongle;
    huge.resize(5000, 0x00);
    node("hidraw3", huge);
    HeadsetFinder finder(dir.filePath("sys"), dir.filePath("dev"));
    QSignalSpy found(&finder, &HeadsetFinder::found);
    finder.start();
    ASSERT_EQ(found.count(), 1);
    std::unique_ptr<HidrawDevice> device(found.at(0).at(0).value<HidrawDevice*>());
    EXPECT_EQ(device->name(), "hidraw1");
}

TEST_F(Finder, AHeadsetWhoseNodeCannotBeOpenedIsReportedWithASentence) {
    QFile::remove(dir.filePath("dev/hidraw1"));
    HeadsetFinder finder(dir.filePath("sys"), dir.filePath("dev"));
    QSignalSpy found(&finder, &HeadsetFinder::found);
    QSignalSpy refused(&finder, &HeadsetFinder::refused);
    finder.start();
    EXPECT_EQ(found.count(), 0);
    ASSERT_EQ(refused.count(), 1);
    EXPECT_TRUE(refused.at(0).at(0).toString().startsWith("The headset at "))
        << refused.at(0).at(0).toString().toStdString();
    EXPECT_TRUE(refused.at(0).at(0).toString().contains("cannot be opened"));
}

TEST_F(Finder, TheUdevRulesCheckTakesTheHeadsetAndLeavesTheKeyboard) {
    const auto check = [&](const QString& file) {
        QProcess program;
        program.start(VELNOR_HEADSET_CHECK, {file});
        EXPECT_TRUE(program.waitForFinished(10000));
        return program.exitCode();
    };
    EXPECT_EQ(check(dir.filePath("sys/class/hidraw/hidraw1/device/report_descriptor")), 0);
    EXPECT_EQ(check(dir.filePath("sys/class/hidraw/hidraw0/device/report_descriptor")), 1);
    EXPECT_EQ(check(dir.filePath("sys/class/hidraw/hidraw9/device/report_descriptor")), 1);
}

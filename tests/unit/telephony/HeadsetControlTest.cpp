#include "telephony/HeadsetControl.h"

#include "../platform/hid/HeadsetDescriptors.h"
#include "PhoneFixture.h"
#include "hid/HidrawDevice.h"

#include <QSignalSpy>
#include <QTest>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

// The headset's side is the far end of a socket pair standing in for its
// hidraw node: what the app writes there are its light reports, and what is
// written into it are the headset's button reports. Everything between, the
// device's reading and writing included, is the code a real node meets; only
// the descriptor read (an ioctl on a real node) is given.
namespace {

using Status = Phone::ActiveCall::Status;

class Headset : public PhoneFixture {
protected:
    Headset() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair), 0);
        headsetEnd = pair[1];
        device = new HidrawDevice(
            pair[0], "dongle", [](int) { return std::optional(headsets::dectDongle); }, &control);
        EXPECT_TRUE(device->start()) << device->error().toStdString();
        control.attach(device);
        registered();
    }
    ~Headset() override {
        if (headsetEnd >= 0) {
            ::close(headsetEnd);
        }
    }

    // The headset presses: report 2 with the given button bits.
    void press(std::uint8_t bits) {
        const std::uint8_t report[] = {0x02, bits, 0x00};
        ASSERT_EQ(::write(headsetEnd, report, sizeof report), ssize_t(sizeof report));
    }

    // The last light report the app wrote, waiting for one to come.
    std::vector<std::uint8_t> lightsWritten() {
        std::vector<std::uint8_t> last;
        EXPECT_TRUE(QTest::qWaitFor([&] {
            std::uint8_t buffer[64];
            for (ssize_t got; (got = ::read(headsetEnd, buffer, sizeof buffer)) > 0;) {
                last.assign(buffer, buffer + got);
            }
            return !last.empty();
        }));
        return last;
    }

    HeadsetControl control{phone};
    HidrawDevice* device = nullptr;
    int headsetEnd = -1;
};

} // namespace

TEST_F(Headset, ACallRingingLightsTheRingLight) {
    lightsWritten(); // all off at first
    incoming("in-1", "204");
    EXPECT_EQ(lightsWritten(), (std::vector<std::uint8_t>{0x02, 0x04, 0x00}));
}

TEST_F(Headset, TakingTheHeadsetOffHookAnswersTheRingingCall) {
    auto call = incoming("in-1", "204");
    press(0x01);
    ASSERT_TRUE(QTest::qWaitFor([&] { return call->answers == 1; }));
    phone.callStateChanged("in-1", core::CallState::connected());
    // Off-hook now, and the ring light out.
    EXPECT_EQ(lightsWritten(), (std::vector<std::uint8_t>{0x02, 0x01, 0x00}));
}

TEST_F(Headset, PuttingItBackOnHookHangsUpTheCall) {
    auto call = incoming("in-1", "204");
    press(0x01);
    ASSERT_TRUE(QTest::qWaitFor([&] { return call->answers == 1; }));
    phone.callStateChanged("in-1", core::CallState::connected());
    press(0x00);
    EXPECT_TRUE(QTest::qWaitFor([&] { return call->hangups == 1; }));
}

TEST_F(Headset, TheMuteButtonMutesAndUnmutesAndItsLightFollows) {
    dialled();
    phone.callStateChanged("out-1", core::CallState::connected());
    press(0x08);
    ASSERT_TRUE(QTest::qWaitFor([&] { return phone.activeCall()->muted; }));
    EXPECT_EQ(lightsWritten(), (std::vector<std::uint8_t>{0x02, 0x03, 0x00}));
    press(0x00); // the button let go
    press(0x08);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !phone.activeCall()->muted; }));
    EXPECT_EQ(lightsWritten(), (std::vector<std::uint8_t>{0x02, 0x01, 0x00}));
}

TEST_F(Headset, MutingInTheAppLightsTheHeadsetsMuteLight) {
    dialled();
    phone.callStateChanged("out-1", core::CallState::connected());
    phone.setActiveMuted(true);
    EXPECT_EQ(lightsWritten(), (std::vector<std::uint8_t>{0x02, 0x03, 0x00}));
}

TEST_F(Headset, AHeadsetUnpluggedDuringACallChangesNothingButItsLights) {
    auto call = incoming("in-1", "204");
    press(0x01);
    ASSERT_TRUE(QTest::qWaitFor([&] { return call->answers == 1; }));
    phone.callStateChanged("in-1", core::CallState::connected());
    QSignalSpy gone(device, &HidrawDevice::gone);
    ::close(std::exchange(headsetEnd, -1));
    ASSERT_TRUE(gone.wait(5000));
    EXPECT_TRUE(device->isGone());
    EXPECT_EQ(phone.activeCall()->status, Status::connected);
    EXPECT_EQ(call->hangups, 0);
    // The call goes on; muting it still works without the headset.
    phone.setActiveMuted(true);
    EXPECT_TRUE(phone.activeCall()->muted);
}

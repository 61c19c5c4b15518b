#include "PhoneLab.h"

#include "../../unit/platform/hid/HeadsetDescriptors.h"
#include "hid/HidrawDevice.h"
#include "telephony/HeadsetControl.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

// A headset's hook switch taking a real party's call, and the lights the app
// writes for it. These machines cannot make a virtual HID device (no uhid), so
// the headset's hidraw node is the far end of a socket pair: the device code
// reads and writes it as it does a real node; only the descriptor (an ioctl on
// a real node) is handed over, that of a DECT headset dongle.
namespace {

class HeadsetEnd {
public:
    HeadsetEnd() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair), 0);
        appSide = pair[0];
        m_fd = pair[1];
    }
    ~HeadsetEnd() { ::close(m_fd); }

    void press(std::uint8_t bits) {
        const std::uint8_t report[] = {0x02, bits, 0x00};
        EXPECT_EQ(::write(m_fd, report, sizeof report), ssize_t(sizeof report));
    }

    // Waits until the lights the app last wrote are these.
    bool lightsBecome(std::vector<std::uint8_t> wanted) {
        return waitFor([&] {
            std::uint8_t buffer[64];
            for (ssize_t got; (got = ::read(m_fd, buffer, sizeof buffer)) > 0;) {
                m_last.assign(buffer, buffer + got);
            }
            return m_last == wanted;
        });
    }

    int appSide = -1;

private:
    int m_fd = -1;
    std::vector<std::uint8_t> m_last;
};

} // namespace

TEST(HeadsetCall, TheHookSwitchAnswersAPartysCallAndHangsItUpWithTheLightsFollowing) {
    PhoneLab lab;
    auto carol = lab.party("carol", Baresip::Role::tonePlayer);
    lab.signIn();
    lab.waitRegistered();
    HeadsetEnd headset;
    HeadsetControl control(*lab.phone);
    auto* device = new HidrawDevice(
        headset.appSide, "dongle", [](int) { return std::optional(headsets::dectDongle); },
        &control);
    ASSERT_TRUE(device->start()) << device->error().toStdString();
    control.attach(device);
    EXPECT_TRUE(headset.lightsBecome({0x02, 0x00, 0x00}));

    carol->command("dial", "sip:alice@127.0.0.1");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::incoming; }));
    // Ring light on.
    EXPECT_TRUE(headset.lightsBecome({0x02, 0x04, 0x00}));

    // Off hook: the call is answered and the party hears it taken.
    headset.press(0x01);
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }));
    EXPECT_TRUE(partySaw(*carol, {"CALL_ESTABLISHED"}));
    EXPECT_TRUE(headset.lightsBecome({0x02, 0x01, 0x00}));

    // The mute button, pressed while off hook.
    headset.press(0x09);
    ASSERT_TRUE(waitFor([&] { return lab.phone->activeCall()->muted; }));
    EXPECT_TRUE(headset.lightsBecome({0x02, 0x03, 0x00}));

    // Back on hook: the call ends at the party too, and the lights go out.
    headset.press(0x00);
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    EXPECT_TRUE(partySaw(*carol, {"CALL_CLOSED"}));
    EXPECT_TRUE(headset.lightsBecome({0x02, 0x00, 0x00}));
}

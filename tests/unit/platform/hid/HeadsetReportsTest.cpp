#include "hid/HeadsetReports.h"
#include "hid/HidDescriptor.h"

#include "HeadsetDescriptors.h"

#include <gtest/gtest.h>

using namespace hid;

namespace {

HeadsetReports reportsOf(const std::vector<std::uint8_t>& bytes) {
    std::string error;
    auto descriptor = parse(bytes, &error);
    EXPECT_TRUE(descriptor) << error;
    auto reports = HeadsetReports::of(*descriptor);
    EXPECT_TRUE(reports);
    return *reports;
}

} // namespace

TEST(HidDescriptor, TheDongleReadsAsOnePhoneCollectionWithItsReportSizes) {
    const auto descriptor = parse(headsets::dectDongle);
    ASSERT_TRUE(descriptor);
    EXPECT_TRUE(descriptor->numberedReports);
    EXPECT_EQ(descriptor->applications, std::vector<std::uint32_t>{control::phone});
    EXPECT_EQ(descriptor->reportBytes(ReportKind::input, 2), 2u);
    EXPECT_EQ(descriptor->reportBytes(ReportKind::output, 2), 2u);
}

TEST(HidDescriptor, AButtonOnATelephonyUsageInAConsumerCollectionStillNamesItsPage) {
    const auto descriptor = parse(headsets::buttonsOnly);
    ASSERT_TRUE(descriptor);
    const auto hook =
        std::find_if(descriptor->fields.begin(), descriptor->fields.end(),
                     [](const Field& f) { return f.usages[0] == control::hookSwitch; });
    ASSERT_NE(hook, descriptor->fields.end());
    EXPECT_EQ(hook->bitOffset, 9u);
    EXPECT_FALSE(hook->relative);
    EXPECT_EQ(hook->application, usage(0x0c, 0x01));
}

TEST(HidDescriptor, AnItemRunningPastTheEndIsRefused) {
    std::vector<std::uint8_t> cut = headsets::dectDongle;
    cut.push_back(0x26); // Logical Maximum with two bytes that never come
    std::string error;
    EXPECT_FALSE(parse(cut, &error));
    EXPECT_EQ(error, "an item runs past the end");
}

TEST(HidDescriptor, ACollectionNeverClosedIsRefused) {
    std::vector<std::uint8_t> open = headsets::dectDongle;
    open.pop_back();
    std::string error;
    EXPECT_FALSE(parse(open, &error));
    EXPECT_EQ(error, "a collection never closed");
}

TEST(HidDescriptor, AReportCountBeyondAnyReportIsRefused) {
    const std::vector<std::uint8_t> huge = {0x05, 0x0b, 0x09, 0x20, 0x75, 0x20,
                                            0x96, 0xff, 0xff, 0x81, 0x02};
    std::string error;
    EXPECT_FALSE(parse(huge, &error));
    EXPECT_EQ(error, "a report larger than a HID report can be");
}

TEST(HidDescriptor, AUsageRangeBeyondAnyControlIsRefused) {
    const std::vector<std::uint8_t> range = {0x05, 0x0b, 0x19, 0x00, 0x2a, 0xff, 0xff,
                                             0x75, 0x08, 0x95, 0x01, 0x81, 0x00};
    std::string error;
    EXPECT_FALSE(parse(range, &error));
    EXPECT_EQ(error, "a usage range too large");
}

TEST(HidDescriptor, MoreControlsThanADeviceHasAreRefused) {
    // An array of 4096 possible usages, repeated in 32 one-byte slots, eight times:
    // each slot would carry the whole list.
    std::vector<std::uint8_t> many = {0x05, 0x0b, 0x19, 0x00, 0x2a, 0xff,
                                      0x0f, 0x75, 0x08, 0x95, 0x20};
    for (int i = 0; i < 8; ++i) {
        many.insert(many.end(), {0x19, 0x00, 0x2a, 0xff, 0x0f, 0x81, 0x00});
    }
    std::string error;
    EXPECT_FALSE(parse(many, &error));
    EXPECT_EQ(error, "more controls than a device has");
}

TEST(HeadsetReports, AKeyboardIsNoHeadset) {
    const auto descriptor = parse(headsets::keyboard);
    ASSERT_TRUE(descriptor);
    EXPECT_FALSE(HeadsetReports::of(*descriptor));
}

TEST(HeadsetReports, TheHookSwitchOfTheButtonsOnlyHeadsetReadsAsALevel) {
    const HeadsetReports reports = reportsOf(headsets::buttonsOnly);
    // Report 1: byte one the consumer keys, byte two Redial (bit 0), Hook (bit 1), Mute (bit 2).
    const std::vector<std::uint8_t> offHook = {0x01, 0x00, 0x02};
    HeadsetButtons expected;
    expected.offHook = true;
    EXPECT_EQ(reports.read(offHook), expected);
    const std::vector<std::uint8_t> onHook = {0x01, 0x00, 0x00};
    expected.offHook = false;
    EXPECT_EQ(reports.read(onHook), expected);
}

TEST(HeadsetReports, TheButtonsOnlyHeadsetsMuteIsAPress) {
    const HeadsetReports reports = reportsOf(headsets::buttonsOnly);
    const auto read = reports.read(std::vector<std::uint8_t>{0x01, 0x00, 0x06});
    ASSERT_TRUE(read);
    EXPECT_EQ(read->offHook, true);
    EXPECT_TRUE(read->mutePressed);
    EXPECT_FALSE(read->muted.has_value());
}

TEST(HeadsetReports, AVolumeKeyAloneSaysNothingOfTheCall) {
    const HeadsetReports reports = reportsOf(headsets::buttonsOnly);
    const auto read = reports.read(std::vector<std::uint8_t>{0x01, 0x01, 0x00});
    ASSERT_TRUE(read);
    EXPECT_EQ(read->offHook, false);
    EXPECT_FALSE(read->mutePressed);
    EXPECT_FALSE(read->flash);
    EXPECT_FALSE(read->redial);
}

TEST(HeadsetReports, AReportOfAnotherNumberIsNotTheCallControls) {
    const HeadsetReports reports = reportsOf(headsets::dectDongle);
    EXPECT_FALSE(reports.read(std::vector<std::uint8_t>{0x05, 0x01, 0x00}));
    EXPECT_FALSE(reports.read(std::vector<std::uint8_t>{}));
}

TEST(HeadsetReports, TheDonglesButtonsReadWithTheirMeaning) {
    const HeadsetReports reports = reportsOf(headsets::dectDongle);
    // Hook (bit 0), Phone Mute (bit 3), Flash (bit 4), Redial (bit 5).
    auto read = reports.read(std::vector<std::uint8_t>{0x02, 0x01, 0x00});
    ASSERT_TRUE(read);
    EXPECT_EQ(read->offHook, true);
    read = reports.read(std::vector<std::uint8_t>{0x02, 0x09, 0x00});
    EXPECT_TRUE(read->mutePressed);
    read = reports.read(std::vector<std::uint8_t>{0x02, 0x10, 0x00});
    EXPECT_TRUE(read->flash);
    EXPECT_EQ(read->offHook, false);
    read = reports.read(std::vector<std::uint8_t>{0x02, 0x20, 0x00});
    EXPECT_TRUE(read->redial);
}

TEST(HeadsetReports, TheDonglesLightsAreWrittenIntoItsOutputReport) {
    const HeadsetReports reports = reportsOf(headsets::dectDongle);
    EXPECT_TRUE(reports.hasLights());
    // Off-Hook bit 0, Mute bit 1, Ring bit 2, Hold bit 3.
    EXPECT_EQ(reports.write({}), (std::vector<std::vector<std::uint8_t>>{{0x02, 0x00, 0x00}}));
    EXPECT_EQ(reports.write({.offHook = true}),
              (std::vector<std::vector<std::uint8_t>>{{0x02, 0x01, 0x00}}));
    EXPECT_EQ(reports.write({.offHook = true, .mute = true}),
              (std::vector<std::vector<std::uint8_t>>{{0x02, 0x03, 0x00}}));
    EXPECT_EQ(reports.write({.ring = true}),
              (std::vector<std::vector<std::uint8_t>>{{0x02, 0x04, 0x00}}));
    EXPECT_EQ(reports.write({.offHook = true, .hold = true}),
              (std::vector<std::vector<std::uint8_t>>{{0x02, 0x09, 0x00}}));
}

TEST(HeadsetReports, AHeadsetWithoutLightsWritesNothing) {
    const HeadsetReports reports = reportsOf(headsets::buttonsOnly);
    EXPECT_FALSE(reports.hasLights());
    EXPECT_TRUE(reports.write({.offHook = true, .ring = true}).empty());
}

TEST(HeadsetReports, AButtonArrayNamesTheHookSwitchAsAPress) {
    // Telephony keys as an array of one 8-bit index over Hook Switch..Flash.
    const std::vector<std::uint8_t> array = {0x05, 0x0b, 0x09, 0x05, 0xa1, 0x01, 0x15,
                                             0x00, 0x25, 0x01, 0x19, 0x20, 0x29, 0x21,
                                             0x75, 0x08, 0x95, 0x01, 0x81, 0x00, 0xc0};
    const HeadsetReports reports = reportsOf(array);
    auto read = reports.read(std::vector<std::uint8_t>{0x00});
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->hookPressed);
    read = reports.read(std::vector<std::uint8_t>{0x01});
    EXPECT_FALSE(read->hookPressed);
    EXPECT_TRUE(read->flash);
}

#pragma once

#include "hid/HidDescriptor.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The call controls of a headset as its report descriptor lays them out:
// the buttons of the telephony page it sends, and the lights of the LED page
// it takes. The same meaning, whatever the maker put where.
namespace hid {

namespace page {
constexpr std::uint16_t led = 0x08;
constexpr std::uint16_t telephony = 0x0B;
} // namespace page

namespace control {
constexpr std::uint32_t headset = usage(page::telephony, 0x05);
constexpr std::uint32_t phone = usage(page::telephony, 0x01);
constexpr std::uint32_t hookSwitch = usage(page::telephony, 0x20);
constexpr std::uint32_t flash = usage(page::telephony, 0x21);
constexpr std::uint32_t redial = usage(page::telephony, 0x24);
constexpr std::uint32_t phoneMute = usage(page::telephony, 0x2F);
constexpr std::uint32_t muteLight = usage(page::led, 0x09);
constexpr std::uint32_t offHookLight = usage(page::led, 0x17);
constexpr std::uint32_t ringLight = usage(page::led, 0x18);
constexpr std::uint32_t holdLight = usage(page::led, 0x20);
} // namespace control

// What one input report says. A hook switch or mute button that reports a
// level gives it; one that reports presses (a relative control) says pressed.
struct HeadsetButtons {
    std::optional<bool> offHook;
    bool hookPressed = false;
    std::optional<bool> muted;
    bool mutePressed = false;
    bool flash = false;
    bool redial = false;

    bool operator==(const HeadsetButtons&) const = default;
};

struct HeadsetLights {
    bool offHook = false;
    bool ring = false;
    bool mute = false;
    bool hold = false;

    bool operator==(const HeadsetLights&) const = default;
};

class HeadsetReports {
public:
    // Nothing when the device has no hook switch to read: not a headset's call controls.
    static std::optional<HeadsetReports> of(Descriptor descriptor);

    // An input report as the device sends it (its id byte first when it numbers
    // its reports); nothing when it is no report of the call controls.
    std::optional<HeadsetButtons> read(std::span<const std::uint8_t> report) const;
    // The output reports that set the lights, each ready to write (id byte first
    // when numbered); empty when the device has none.
    std::vector<std::vector<std::uint8_t>> write(const HeadsetLights& lights) const;

    bool hasLights() const { return !m_lights.empty(); }

private:
    explicit HeadsetReports(Descriptor descriptor);
    const Field* inputFor(std::uint32_t control, std::uint8_t reportId) const;

    Descriptor m_descriptor;
    // The input fields of the telephony page, and the light fields.
    std::vector<Field> m_buttons;
    std::vector<Field> m_lights;
};

} // namespace hid

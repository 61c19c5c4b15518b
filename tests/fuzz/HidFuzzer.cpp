#include "hid/HeadsetReports.h"
#include "hid/HidDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <span>

// A report descriptor comes from whatever device is plugged in, and its
// reports after it: any bytes must read as a descriptor or as none, and every
// report must read and every light report be made within the descriptor's bounds.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    // The first byte says how much of the rest is the descriptor.
    const std::span<const std::uint8_t> bytes(data + 1, size - 1);
    const std::size_t split = std::min<std::size_t>(data[0] * 4, bytes.size());
    const auto descriptor = hid::parse(bytes.first(split));
    if (!descriptor) {
        return 0;
    }
    const auto reports = hid::HeadsetReports::of(*descriptor);
    if (!reports) {
        return 0;
    }
    reports->read(bytes.subspan(split));
    for (const auto& report : reports->write({true, true, true, true})) {
        if (report.size() > 4097) {
            __builtin_trap();
        }
    }
    return 0;
}

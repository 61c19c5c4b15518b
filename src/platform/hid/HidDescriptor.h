#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// A HID report descriptor read into the fields of its reports: where each
// control sits in which report, and what it means (its usage). Only what a
// host needs to read buttons and set lights; plain C++ so that the udev
// helper can use it too.
namespace hid {

enum class ReportKind { input, output, feature };

// Page in the high 16 bits, id in the low 16, as the usage tables write them.
constexpr std::uint32_t usage(std::uint16_t page, std::uint16_t id) {
    return (std::uint32_t(page) << 16) | id;
}

struct Field {
    ReportKind kind = ReportKind::input;
    // 0 where the device numbers no reports.
    std::uint8_t reportId = 0;
    // Bits from the start of the report's data (after the id byte).
    std::uint32_t bitOffset = 0;
    std::uint8_t bitSize = 0;
    // A variable field carries one control's value; an array field carries the
    // index of whichever of `usages` is active (logicalMinimum is the first).
    bool variable = true;
    // A relative control reports presses (1 once per press), not a level.
    bool relative = false;
    std::int32_t logicalMinimum = 0;
    std::int32_t logicalMaximum = 0;
    // The one usage of a variable field; every usage an array field may name.
    std::vector<std::uint32_t> usages;
    // The application collection the field belongs to, 0 outside any.
    std::uint32_t application = 0;
};

struct Descriptor {
    std::vector<Field> fields;
    bool numberedReports = false;
    // Every application collection, in order.
    std::vector<std::uint32_t> applications;
    // The length of each report in bits, padding included.
    struct ReportLength {
        ReportKind kind;
        std::uint8_t reportId;
        std::uint32_t bits;
    };
    std::vector<ReportLength> lengths;

    // The bytes of a report's data (without the id byte).
    std::size_t reportBytes(ReportKind kind, std::uint8_t reportId) const;
};

// Reads a descriptor; nothing when it is damaged (an item running past the
// end, a collection never closed, a report larger than a HID report can be).
std::optional<Descriptor> parse(std::span<const std::uint8_t> bytes, std::string* error = nullptr);

// A field's raw value in a report's data, sign-extended when its range is signed.
std::int32_t fieldValue(const Field& field, std::span<const std::uint8_t> data);
// Sets a field's value in a report's data.
void setFieldValue(const Field& field, std::span<std::uint8_t> data, std::int32_t value);

} // namespace hid

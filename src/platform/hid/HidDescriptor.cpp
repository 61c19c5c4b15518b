#include "hid/HidDescriptor.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace hid {
namespace {

// HID reports are at most this long on every bus we meet.
constexpr std::uint32_t largestReportBits = 4096 * 8;
// More usages than any real control lists; bounds a damaged Usage Maximum.
constexpr std::uint32_t largestUsageRange = 4096;
// More controls, and usages named by them all, than any real device has;
// bounds the memory a damaged descriptor can ask for.
constexpr std::size_t mostFields = 4096;
constexpr std::size_t mostUsagesInAll = 65536;

struct Globals {
    std::uint16_t usagePage = 0;
    std::int32_t logicalMinimum = 0;
    std::int32_t logicalMaximum = 0;
    std::uint32_t reportSize = 0;
    std::uint32_t reportCount = 0;
    std::uint8_t reportId = 0;
};

struct Locals {
    std::vector<std::uint32_t> usages;
    std::optional<std::uint32_t> minimum;
    std::optional<std::uint32_t> maximum;
};

std::uint32_t unsignedData(std::span<const std::uint8_t> data) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < data.size(); ++i) {
        value |= std::uint32_t(data[i]) << (8 * i);
    }
    return value;
}

std::int32_t signedData(std::span<const std::uint8_t> data) {
    const std::uint32_t value = unsignedData(data);
    switch (data.size()) {
    case 1:
        return std::int8_t(value);
    case 2:
        return std::int16_t(value);
    default:
        return std::int32_t(value);
    }
}

// A usage item of 1 or 2 bytes takes the current page; one of 4 names its own.
std::uint32_t fullUsage(std::uint32_t value, std::size_t size, std::uint16_t page) {
    return size == 4 ? value : usage(page, std::uint16_t(value));
}

bool fail(std::string* error, const char* why) {
    if (error) {
        *error = why;
    }
    return false;
}

} // namespace

std::size_t Descriptor::reportBytes(ReportKind kind, std::uint8_t reportId) const {
    for (const ReportLength& length : lengths) {
        if (length.kind == kind && length.reportId == reportId) {
            return (length.bits + 7) / 8;
        }
    }
    return 0;
}

std::optional<Descriptor> parse(std::span<const std::uint8_t> bytes, std::string* error) {
    Descriptor out;
    Globals globals;
    std::vector<Globals> pushed;
    Locals locals;
    // Open collections: the usage of each, with whether it is an application.
    std::vector<std::pair<std::uint32_t, bool>> collections;
    // The next free bit of each report.
    std::map<std::pair<ReportKind, std::uint8_t>, std::uint32_t> nextBit;
    std::size_t usagesInAll = 0;

    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::uint8_t prefix = bytes[at];
        if (prefix == 0xFE) {
            // A long item: its size is in the next byte; none is defined for hosts.
            if (at + 2 >= bytes.size() || at + 3 + bytes[at + 1] > bytes.size()) {
                fail(error, "a long item runs past the end");
                return std::nullopt;
            }
            at += 3 + bytes[at + 1];
            continue;
        }
        const std::size_t size = std::array<std::size_t, 4>{0, 1, 2, 4}[prefix & 0x03];
        if (at + 1 + size > bytes.size()) {
            fail(error, "an item runs past the end");
            return std::nullopt;
        }
        const std::span<const std::uint8_t> data = bytes.subspan(at + 1, size);
        const std::uint32_t value = unsignedData(data);
        const std::uint8_t type = (prefix >> 2) & 0x03;
        const std::uint8_t tag = prefix >> 4;
        at += 1 + size;

        if (type == 1) { // global
            switch (tag) {
            case 0x0:
                globals.usagePage = std::uint16_t(value);
                break;
            case 0x1:
                globals.logicalMinimum = signedData(data);
                break;
            case 0x2:
                globals.logicalMaximum = signedData(data);
                break;
            case 0x7:
                globals.reportSize = value;
                break;
            case 0x8:
                if (value == 0 || value > 0xFF) {
                    fail(error, "a report id out of range");
                    return std::nullopt;
                }
                globals.reportId = std::uint8_t(value);
                out.numberedReports = true;
                break;
            case 0x9:
                globals.reportCount = value;
                break;
            case 0xA:
                pushed.push_back(globals);
                break;
            case 0xB:
                if (pushed.empty()) {
                    fail(error, "a pop without a push");
                    return std::nullopt;
                }
                globals = pushed.back();
                pushed.pop_back();
                break;
            default:
                break; // physical extent, units: not needed here
            }
        } else if (type == 2) { // local
            switch (tag) {
            case 0x0:
                locals.usages.push_back(fullUsage(value, size, globals.usagePage));
                break;
            case 0x1:
                locals.minimum = fullUsage(value, size, globals.usagePage);
                break;
            case 0x2:
                locals.maximum = fullUsage(value, size, globals.usagePage);
                break;
            default:
                break;
            }
        } else if (type == 0) { // main
            if (tag == 0xA) {   // collection
                const std::uint32_t collectionUsage =
                    locals.usages.empty() ? 0 : locals.usages.front();
                const bool application = value == 0x01;
                collections.emplace_back(collectionUsage, application);
                if (application) {
                    out.applications.push_back(collectionUsage);
                }
            } else if (tag == 0xC) { // end collection
                if (collections.empty()) {
                    fail(error, "an end of collection with none open");
                    return std::nullopt;
                }
                collections.pop_back();
            } else if (tag == 0x8 || tag == 0x9 || tag == 0xB) { // input, output, feature
                const ReportKind kind = tag == 0x8   ? ReportKind::input
                                        : tag == 0x9 ? ReportKind::output
                                                     : ReportKind::feature;
                std::uint32_t& bit = nextBit[{kind, globals.reportId}];
                const std::uint64_t total = std::uint64_t(globals.reportSize) * globals.reportCount;
                if (globals.reportSize > 32 || bit + total > largestReportBits) {
                    fail(error, "a report larger than a HID report can be");
                    return std::nullopt;
                }
                std::vector<std::uint32_t> usages = locals.usages;
                if (locals.minimum && locals.maximum && *locals.maximum >= *locals.minimum) {
                    if (*locals.maximum - *locals.minimum >= largestUsageRange) {
                        fail(error, "a usage range too large");
                        return std::nullopt;
                    }
                    for (std::uint32_t u = *locals.minimum; u <= *locals.maximum; ++u) {
                        usages.push_back(u);
                    }
                }
                const bool constant = value & 0x01;
                const bool variable = value & 0x02;
                const bool relative = value & 0x04;
                std::uint32_t application = 0;
                for (auto it = collections.rbegin(); it != collections.rend(); ++it) {
                    if (it->second) {
                        application = it->first;
                        break;
                    }
                }
                if (!constant && !usages.empty()) {
                    const std::size_t perField = variable ? 1 : usages.size();
                    if (out.fields.size() + globals.reportCount > mostFields ||
                        usagesInAll + perField * globals.reportCount > mostUsagesInAll) {
                        fail(error, "more controls than a device has");
                        return std::nullopt;
                    }
                    usagesInAll += perField * globals.reportCount;
                    for (std::uint32_t i = 0; i < globals.reportCount; ++i) {
                        Field field;
                        field.kind = kind;
                        field.reportId = globals.reportId;
                        field.bitOffset = bit + i * globals.reportSize;
                        field.bitSize = std::uint8_t(globals.reportSize);
                        field.variable = variable;
                        field.relative = relative;
                        field.logicalMinimum = globals.logicalMinimum;
                        field.logicalMaximum = globals.logicalMaximum;
                        field.application = application;
                        if (variable) {
                            // Past the last usage, the last one repeats.
                            field.usages = {usages[std::min<std::size_t>(i, usages.size() - 1)]};
                        } else {
                            field.usages = usages;
                        }
                        out.fields.push_back(std::move(field));
                    }
                }
                bit += std::uint32_t(total);
            }
            locals = Locals{};
        }
    }
    if (!collections.empty()) {
        fail(error, "a collection never closed");
        return std::nullopt;
    }
    for (const auto& [report, bits] : nextBit) {
        out.lengths.push_back({report.first, report.second, bits});
    }
    return out;
}

std::int32_t fieldValue(const Field& field, std::span<const std::uint8_t> data) {
    std::uint32_t value = 0;
    for (std::uint32_t i = 0; i < field.bitSize; ++i) {
        const std::uint32_t bit = field.bitOffset + i;
        if (bit / 8 < data.size() && (data[bit / 8] >> (bit % 8)) & 1) {
            value |= 1u << i;
        }
    }
    if (field.logicalMinimum < 0 && field.bitSize > 0 && field.bitSize < 32 &&
        (value >> (field.bitSize - 1)) & 1) {
        value |= ~0u << field.bitSize;
    }
    return std::int32_t(value);
}

void setFieldValue(const Field& field, std::span<std::uint8_t> data, std::int32_t value) {
    for (std::uint32_t i = 0; i < field.bitSize; ++i) {
        const std::uint32_t bit = field.bitOffset + i;
        if (bit / 8 >= data.size()) {
            return;
        }
        const std::uint8_t mask = std::uint8_t(1u << (bit % 8));
        if ((std::uint32_t(value) >> i) & 1) {
            data[bit / 8] |= mask;
        } else {
            data[bit / 8] &= std::uint8_t(~mask);
        }
    }
}

} // namespace hid

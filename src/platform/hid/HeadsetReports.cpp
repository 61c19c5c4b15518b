#include "hid/HeadsetReports.h"

#include <algorithm>
#include <set>

namespace hid {
namespace {

bool names(const Field& field, std::uint32_t control) {
    return std::find(field.usages.begin(), field.usages.end(), control) != field.usages.end();
}

// Whether a field's value in the data says that control is active: a variable
// field by a non-zero value, an array field by naming the control.
bool active(const Field& field, std::span<const std::uint8_t> data, std::uint32_t control) {
    const std::int32_t value = fieldValue(field, data);
    if (field.variable) {
        return value != 0;
    }
    const std::int64_t index = std::int64_t(value) - field.logicalMinimum;
    return index >= 0 && index < std::int64_t(field.usages.size()) &&
           field.usages[std::size_t(index)] == control;
}

} // namespace

HeadsetReports::HeadsetReports(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {
    for (const Field& field : m_descriptor.fields) {
        const bool telephony = std::any_of(field.usages.begin(), field.usages.end(),
                                           [](auto u) { return (u >> 16) == page::telephony; });
        if (field.kind == ReportKind::input && telephony) {
            m_buttons.push_back(field);
        }
        const bool light =
            field.variable && field.usages.size() == 1 &&
            (field.usages[0] == control::muteLight || field.usages[0] == control::offHookLight ||
             field.usages[0] == control::ringLight || field.usages[0] == control::holdLight);
        if (field.kind == ReportKind::output && light) {
            m_lights.push_back(field);
        }
    }
}

std::optional<HeadsetReports> HeadsetReports::of(Descriptor descriptor) {
    HeadsetReports reports(std::move(descriptor));
    const bool hook = std::any_of(reports.m_buttons.begin(), reports.m_buttons.end(),
                                  [](const Field& f) { return names(f, control::hookSwitch); });
    if (!hook) {
        return std::nullopt;
    }
    return reports;
}

const Field* HeadsetReports::inputFor(std::uint32_t control, std::uint8_t reportId) const {
    for (const Field& field : m_buttons) {
        if (field.reportId == reportId && field.variable && names(field, control)) {
            return &field;
        }
    }
    return nullptr;
}

std::optional<HeadsetButtons> HeadsetReports::read(std::span<const std::uint8_t> report) const {
    std::uint8_t id = 0;
    std::span<const std::uint8_t> data = report;
    if (m_descriptor.numberedReports) {
        if (report.empty()) {
            return std::nullopt;
        }
        id = report[0];
        data = report.subspan(1);
    }
    bool ours = false;
    HeadsetButtons buttons;
    for (const Field& field : m_buttons) {
        if (field.reportId != id) {
            continue;
        }
        ours = true;
        const auto is = [&](std::uint32_t control) {
            return names(field, control) && active(field, data, control);
        };
        if (names(field, control::hookSwitch) && field.variable) {
            if (field.relative) {
                buttons.hookPressed = buttons.hookPressed || is(control::hookSwitch);
            } else {
                buttons.offHook = is(control::hookSwitch);
            }
        } else if (!field.variable && is(control::hookSwitch)) {
            // An array names a button while it is held: a press.
            buttons.hookPressed = true;
        }
        if (names(field, control::phoneMute) && field.variable) {
            if (field.relative) {
                buttons.mutePressed = buttons.mutePressed || is(control::phoneMute);
            } else {
                buttons.muted = is(control::phoneMute);
            }
        } else if (!field.variable && is(control::phoneMute)) {
            buttons.mutePressed = true;
        }
        buttons.flash = buttons.flash || is(control::flash);
        buttons.redial = buttons.redial || is(control::redial);
    }
    if (!ours) {
        return std::nullopt;
    }
    return buttons;
}

std::vector<std::vector<std::uint8_t>> HeadsetReports::write(const HeadsetLights& lights) const {
    std::set<std::uint8_t> ids;
    for (const Field& field : m_lights) {
        ids.insert(field.reportId);
    }
    std::vector<std::vector<std::uint8_t>> reports;
    for (std::uint8_t id : ids) {
        std::vector<std::uint8_t> data(m_descriptor.reportBytes(ReportKind::output, id), 0);
        for (const Field& field : m_lights) {
            if (field.reportId != id) {
                continue;
            }
            const std::uint32_t light = field.usages[0];
            const bool on = (light == control::muteLight && lights.mute) ||
                            (light == control::offHookLight && lights.offHook) ||
                            (light == control::ringLight && lights.ring) ||
                            (light == control::holdLight && lights.hold);
            // On is the top of the field's range (1 for the usual one-bit light).
            setFieldValue(field, data, on ? std::max(field.logicalMaximum, 1) : 0);
        }
        if (m_descriptor.numberedReports) {
            data.insert(data.begin(), id);
        }
        reports.push_back(std::move(data));
    }
    return reports;
}

} // namespace hid

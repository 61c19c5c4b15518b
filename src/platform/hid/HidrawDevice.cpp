#include "hid/HidrawDevice.h"

#include "Log.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <cstring>
#include <linux/hidraw.h>
#include <sys/ioctl.h>
#include <unistd.h>

std::optional<std::vector<std::uint8_t>> HidrawDevice::readDescriptor(int fd) {
    int size = 0;
    if (ioctl(fd, HIDIOCGRDESCSIZE, &size) < 0 || size <= 0 || size > HID_MAX_DESCRIPTOR_SIZE) {
        return std::nullopt;
    }
    hidraw_report_descriptor descriptor{};
    descriptor.size = std::uint32_t(size);
    if (ioctl(fd, HIDIOCGRDESC, &descriptor) < 0) {
        return std::nullopt;
    }
    return std::vector<std::uint8_t>(descriptor.value, descriptor.value + size);
}

HidrawDevice::HidrawDevice(int fd, QString name, DescriptorReader reader, QObject* parent)
    : QObject(parent), m_fd(fd), m_name(std::move(name)), m_reader(std::move(reader)) {}

HidrawDevice::~HidrawDevice() {
    close();
}

bool HidrawDevice::start() {
    const auto bytes = m_fd >= 0 ? m_reader(m_fd) : std::nullopt;
    if (!bytes) {
        m_error = QStringLiteral("%1: its report descriptor cannot be read").arg(m_name);
        return false;
    }
    std::string why;
    auto descriptor = hid::parse(*bytes, &why);
    if (!descriptor) {
        m_error = QStringLiteral("%1: its report descriptor is damaged (%2)")
                      .arg(m_name, QString::fromStdString(why));
        return false;
    }
    m_reports = hid::HeadsetReports::of(std::move(*descriptor));
    if (!m_reports) {
        m_error = QStringLiteral("%1: no call buttons").arg(m_name);
        return false;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &HidrawDevice::readReports);
    return true;
}

void HidrawDevice::readReports() {
    // Each read gives one whole report; as many as are waiting are taken.
    std::array<std::uint8_t, 4097> report{};
    for (;;) {
        const ssize_t got = ::read(m_fd, report.data(), report.size());
        if (got > 0) {
            if (const auto buttons = m_reports->read(std::span(report.data(), std::size_t(got)))) {
                emit pressed(*buttons);
            }
            if (m_fd < 0) {
                return; // a handler let the device go
            }
            continue;
        }
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        // End of file or an error: the headset went away.
        Log::info(Log::app, QStringLiteral("The headset %1 went away").arg(m_name));
        close();
        emit gone();
        return;
    }
}

void HidrawDevice::setLights(const hid::HeadsetLights& lights) {
    if (m_fd < 0 || !m_reports || m_lights == lights) {
        return;
    }
    m_lights = lights;
    for (const auto& report : m_reports->write(lights)) {
        if (::write(m_fd, report.data(), report.size()) < 0 && errno != EAGAIN) {
            Log::error(Log::app, QStringLiteral("The headset %1 took no lights: %2")
                                     .arg(m_name, QString::fromLocal8Bit(strerror(errno))));
            return;
        }
    }
}

void HidrawDevice::close() {
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier->deleteLater();
        m_notifier = nullptr;
    }
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

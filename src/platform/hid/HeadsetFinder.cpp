#include "hid/HeadsetFinder.h"

#include "Log.h"
#include "hid/HeadsetReports.h"
#include "hid/HidDescriptor.h"
#include "hid/HidrawDevice.h"

#include <QDir>
#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libudev.h>
#include <unistd.h>

namespace {

// A report descriptor is at most 4 kB; a sysfs file larger than that is none.
constexpr qint64 largestDescriptor = 4096;

} // namespace

HeadsetFinder::HeadsetFinder(QString sysRoot, QString devRoot, QObject* parent)
    : QObject(parent), m_sysRoot(std::move(sysRoot)), m_devRoot(std::move(devRoot)) {}

HeadsetFinder::~HeadsetFinder() {
    if (m_monitor) {
        udev_monitor_unref(m_monitor);
    }
    if (m_udev) {
        udev_unref(m_udev);
    }
}

bool HeadsetFinder::isHeadset(const QByteArray& descriptor) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(descriptor.constData());
    auto parsed = hid::parse(std::span(bytes, std::size_t(descriptor.size())));
    return parsed && hid::HeadsetReports::of(std::move(*parsed)).has_value();
}

void HeadsetFinder::start() {
    if (m_sysRoot == u"/sys") {
        // Hotplug: the kernel's events as udev has finished them (permissions set).
        m_udev = udev_new();
        m_monitor = m_udev ? udev_monitor_new_from_netlink(m_udev, "udev") : nullptr;
        if (m_monitor &&
            udev_monitor_filter_add_match_subsystem_devtype(m_monitor, "hidraw", nullptr) == 0 &&
            udev_monitor_enable_receiving(m_monitor) == 0) {
            m_notifier =
                new QSocketNotifier(udev_monitor_get_fd(m_monitor), QSocketNotifier::Read, this);
            connect(m_notifier, &QSocketNotifier::activated, this, &HeadsetFinder::onUdevEvent);
        } else {
            Log::info(Log::app, QStringLiteral("Headsets plugged in later will not be noticed: "
                                               "udev's events cannot be read"));
        }
    }
    const QDir nodes(m_sysRoot + QStringLiteral("/class/hidraw"));
    for (const QString& node : nodes.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        consider(node);
    }
}

void HeadsetFinder::onUdevEvent() {
    udev_device* device = udev_monitor_receive_device(m_monitor);
    if (!device) {
        return;
    }
    const char* action = udev_device_get_action(device);
    const char* name = udev_device_get_sysname(device);
    if (action && name) {
        const QString node = QString::fromLocal8Bit(name);
        if (qstrcmp(action, "add") == 0) {
            consider(node);
        } else if (qstrcmp(action, "remove") == 0) {
            // The device itself reports it gone; the name may come back.
            m_taken.remove(node);
        }
    }
    udev_device_unref(device);
}

void HeadsetFinder::consider(const QString& node) {
    if (m_taken.contains(node)) {
        return;
    }
    QFile file(QStringLiteral("%1/class/hidraw/%2/device/report_descriptor").arg(m_sysRoot, node));
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    const QByteArray descriptor = file.read(largestDescriptor + 1);
    if (descriptor.size() > largestDescriptor || !isHeadset(descriptor)) {
        return;
    }
    const QString path = m_devRoot + u'/' + node;
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        const QString reason =
            errno == EACCES
                ? QStringLiteral("The headset at %1 may not be opened by this user, so its call "
                                 "buttons do nothing; the udev rule that comes with velnor RZ "
                                 "gives the person at the computer access to it.")
                      .arg(path)
                : QStringLiteral("The headset at %1 cannot be opened (%2).")
                      .arg(path, QString::fromLocal8Bit(strerror(errno)));
        Log::info(Log::app, reason);
        emit refused(reason);
        return;
    }
    const std::vector<std::uint8_t> bytes(descriptor.begin(), descriptor.end());
    auto* device = new HidrawDevice(
        fd, node, [bytes](int) { return std::optional(bytes); }, nullptr);
    if (!device->start()) {
        Log::info(Log::app, device->error());
        delete device;
        return;
    }
    m_taken.insert(node);
    connect(device, &HidrawDevice::gone, this, [this, node] { m_taken.remove(node); });
    Log::info(Log::app, QStringLiteral("Headset found at %1").arg(path));
    emit found(device);
}

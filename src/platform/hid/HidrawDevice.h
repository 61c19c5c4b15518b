#pragma once

#include "hid/HeadsetReports.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

class QSocketNotifier;

// One headset's hidraw node, opened: its report descriptor read, its input
// reports turned into button presses, and its lights written. The node is
// read without blocking on the thread that owns the object; a node that
// errs or closes (the headset unplugged) is reported gone and never touched again.
class HidrawDevice : public QObject {
    Q_OBJECT
public:
    // How the descriptor of an open node is read; on a real node an ioctl.
    using DescriptorReader = std::function<std::optional<std::vector<std::uint8_t>>(int fd)>;
    static std::optional<std::vector<std::uint8_t>> readDescriptor(int fd);

    // Takes the descriptor `fd` (non-blocking, read and write) and closes it when done.
    HidrawDevice(int fd, QString name, DescriptorReader reader = readDescriptor,
                 QObject* parent = nullptr);
    ~HidrawDevice() override;

    // Reads the descriptor and starts reading reports; false (with error())
    // when it cannot be read or names no call controls.
    bool start();
    const QString& name() const { return m_name; }
    const QString& error() const { return m_error; }
    bool isGone() const { return m_fd < 0; }

    // Sets the lights; written only when they change (and once at first).
    void setLights(const hid::HeadsetLights& lights);

signals:
    void pressed(const hid::HeadsetButtons& buttons);
    void gone();

private:
    void readReports();
    void close();

    int m_fd;
    QString m_name;
    DescriptorReader m_reader;
    QString m_error;
    std::optional<hid::HeadsetReports> m_reports;
    std::optional<hid::HeadsetLights> m_lights;
    QSocketNotifier* m_notifier = nullptr;
};
Q_DECLARE_METATYPE(hid::HeadsetButtons)

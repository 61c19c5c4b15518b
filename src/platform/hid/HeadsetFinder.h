#pragma once

#include "hid/HidrawDevice.h"

#include <QObject>
#include <QSet>
#include <QString>

class QSocketNotifier;
struct udev;
struct udev_monitor;

// Finds the headsets among the hidraw nodes: every node whose report
// descriptor (read from sysfs, which anyone may read) has a hook switch, now
// and whenever one is plugged in. A node the user may not open is reported
// once with what to do about it.
class HeadsetFinder : public QObject {
    Q_OBJECT
public:
    // The roots are the system's; tests give a tree of their own (and no hotplug then).
    explicit HeadsetFinder(QString sysRoot = QStringLiteral("/sys"),
                           QString devRoot = QStringLiteral("/dev"), QObject* parent = nullptr);
    ~HeadsetFinder() override;

    // Looks at every node there is, and starts listening for new ones.
    void start();

    // Whether a report descriptor has a headset's call controls.
    static bool isHeadset(const QByteArray& descriptor);

signals:
    // A headset, opened and started; the receiver takes it.
    void found(HidrawDevice* device);
    // A headset that cannot be used, with the reason in a sentence.
    void refused(const QString& reason);

private:
    void consider(const QString& node);
    void onUdevEvent();

    QString m_sysRoot;
    QString m_devRoot;
    // Nodes already handed out, so that a repeated event does not open one twice.
    QSet<QString> m_taken;
    udev* m_udev = nullptr;
    udev_monitor* m_monitor = nullptr;
    QSocketNotifier* m_notifier = nullptr;
};

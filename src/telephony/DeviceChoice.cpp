#include "telephony/DeviceChoice.h"

#include <QCoreApplication>

namespace DeviceChoice {

namespace {

const Device* find(const QList<Device>& available, const QString& name) {
    for (const Device& device : available) {
        if (device.name == name) {
            return &device;
        }
    }
    return nullptr;
}

QString labelOf(const Device& device) {
    return device.description.isEmpty() ? device.name : device.description;
}

} // namespace

QString effective(const QString& chosen, const QList<Device>& available) {
    return !chosen.isEmpty() && find(available, chosen) ? chosen : QString();
}

QList<Row> rows(const QList<Device>& available, const QString& defaultName, const QString& chosen) {
    QList<Row> result;
    const Device* fallback = find(available, defaultName);
    result.append(
        {QString(),
         fallback ? QCoreApplication::translate("DeviceChoice", "Follow the system default (%1)")
                        .arg(labelOf(*fallback))
                  : QCoreApplication::translate("DeviceChoice", "Follow the system default"),
         true});
    for (const Device& device : available) {
        result.append({device.name, labelOf(device), true});
    }
    if (!chosen.isEmpty() && !find(available, chosen)) {
        result.append(
            {chosen, QCoreApplication::translate("DeviceChoice", "%1 (not connected)").arg(chosen),
             false});
    }
    return result;
}

} // namespace DeviceChoice

#pragma once

#include <QList>
#include <QString>

// The rule for a sound device the user chose by name: kept while it is
// away, followed by the system's default meanwhile, and taken again when a
// device of that name comes back.
namespace DeviceChoice {

struct Device {
    QString name;
    QString description;
};

// One line of a device menu; an empty name follows the system's default.
struct Row {
    QString name;
    QString label;
    bool present = true;

    bool operator==(const Row&) const = default;
};

// The device to open: the chosen one while it is there, else the default ("").
QString effective(const QString& chosen, const QList<Device>& available);

// "Follow the system default" first (naming the default when known), then
// each device by its description; a chosen device that is away stays in the
// list, marked, so that the choice reads as it was made.
QList<Row> rows(const QList<Device>& available, const QString& defaultName, const QString& chosen);

} // namespace DeviceChoice

#include "platform/Hardware.h"

#include <QFile>

namespace Hardware {

QString model(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    // The firmware string is short; anything past a line is not the name.
    return QString::fromUtf8(file.readLine(256)).trimmed();
}

} // namespace Hardware

#pragma once

#include <QString>

namespace Hardware {

inline constexpr char productNamePath[] = "/sys/class/dmi/id/product_name";

// The computer's model as its firmware names it ("ThinkPad X1 Carbon Gen 11"),
// or empty text when it cannot be read.
QString model(const QString& path = QString::fromLatin1(productNamePath));

} // namespace Hardware

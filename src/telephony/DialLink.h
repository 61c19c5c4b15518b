#pragma once

#include <QString>

#include <optional>

// The number a tel:, sip: or callto: link asks to call, as the desktop hands
// it over: the scheme, a "//" and any parameters go, a SIP address keeps its
// user part, and the visual separators people write into numbers (spaces,
// dashes, dots, brackets, slashes) are taken out. None for other schemes and
// for links that leave nothing to dial.
namespace DialLink {

bool isDialScheme(const QString& scheme);
// The scheme of a link's text, lower case; empty when it has none.
QString schemeOf(const QString& link);
// Works on the text as handed over: a "callto://+49-30-..." is no valid URL.
std::optional<QString> number(const QString& link);

} // namespace DialLink

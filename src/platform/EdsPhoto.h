#pragma once

// Include after <libebook/libebook.h>: GLib's headers must come before Qt's.

#include <QByteArray>

#include <optional>

// A contact's picture as bytes, whether the book keeps it inline or, for a
// large one, in a file beside the book; nothing when it has none or the file
// cannot be read.
std::optional<QByteArray> contactPhoto(EContact* contact);

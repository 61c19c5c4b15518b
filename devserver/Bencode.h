#pragma once

#include "Model.h"

#include <QByteArray>

#include <optional>

namespace rzdev {

// rtpengine's control protocol speaks bencode: dictionaries, lists, integers
// and byte strings. Strings come back as JSON strings, dictionaries as objects.
QByteArray bencode(const Json& value);
std::optional<Json> bdecode(const QByteArray& data);

} // namespace rzdev

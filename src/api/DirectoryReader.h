#pragma once

#include "Records.h"

#include <QByteArray>

#include <optional>

namespace wire {

// Reads a directory answer straight from its text, without building a
// document first: a company of ten thousand people is read in a few
// milliseconds instead of the best part of a tenth of a second. An answer it
// does not take as it stands (a wrong type, a missing key, text that is no
// JSON) is read again the thorough way, so that it fails with the same
// DecodeError as every other record.
Directory readDirectory(const QByteArray& body);
// The quick reading alone: nothing when the answer is not as expected.
std::optional<Directory> readDirectoryQuickly(const QByteArray& body);

} // namespace wire

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// The places on disk the app keeps things, and whole-file reads and writes.
namespace Files {

// $XDG_CACHE_HOME/velnor-rz (normally ~/.cache/velnor-rz), without a trailing slash.
// Not created here: writeAtomically creates what a file needs.
QString cachesDirectory();

// The system's temporary directory.
QString temporaryDirectory();

// Replaces the file at path with bytes, or leaves it as it was: the bytes go
// to a sibling that is then renamed over the file. Missing parent folders are
// made. False when anything failed.
bool writeAtomically(const QString& path, const QByteArray& bytes);

// The whole file, or none when it cannot be read.
std::optional<QByteArray> read(const QString& path);

} // namespace Files

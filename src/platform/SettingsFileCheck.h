#pragma once

#include <QByteArray>

// The settings library trusts the lengths inside a stored typed value
// ("@Variant(...)"): a few damaged bytes in rz.conf can make it ask for
// gigabytes, or nest deep enough to exhaust the stack, before anything of ours
// sees the value. So the file is looked over first, in bounded time and
// memory, and every value it would read that way and that is not exactly what
// this app writes there (a map of text to text) is taken out.
namespace SettingsFileCheck {

// A settings file larger than this is not read at all.
inline constexpr qint64 maxFileBytes = 16 * 1024 * 1024;

// The file's text without its damaged typed values; dropped counts the lines taken out.
QByteArray withoutDamagedValues(const QByteArray& file, int* dropped);

// True when the bytes of a stored typed value are a map of text to text,
// exactly as the settings library writes one.
bool isTextMap(const QByteArray& stream);

} // namespace SettingsFileCheck

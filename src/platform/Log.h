#pragma once

#include <QString>
#include <QStringView>
#include <QTime>

// The application's one log. Every line goes to the systemd journal under the
// identifier "net.velnor.rz" with its category as a field, and as one line to
// standard error for whoever started the app from a terminal.
namespace Log {

enum class Level { info, error };

// Categories in use. The set is small on purpose: it is what a person filters
// the journal by.
inline constexpr QStringView api = u"api";
inline constexpr QStringView call = u"call";
inline constexpr QStringView live = u"live";
inline constexpr QStringView phone = u"phone";
inline constexpr QStringView sip = u"sip";
inline constexpr QStringView app = u"app";
// --- directory: calls asked for from the desktop's launcher ---
inline constexpr QStringView launcher = u"launcher";

void write(QStringView category, QStringView message, Level level = Level::info);

inline void info(QStringView category, QStringView message) {
    write(category, message, Level::info);
}
inline void error(QStringView category, QStringView message) {
    write(category, message, Level::error);
}

// The standard-error line: "<time of day, ISO 8601 with milliseconds> [<category>] <message>\n".
QString line(QTime timeOfDay, QStringView category, QStringView message);

} // namespace Log

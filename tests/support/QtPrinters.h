#pragma once

// Lets test failures print Qt values as text rather than as bytes.

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QByteArray& bytes, std::ostream* out) {
    *out << '"' << bytes.toStdString() << '"';
}
inline void PrintTo(const QUrl& url, std::ostream* out) {
    *out << '<' << url.toString().toStdString() << '>';
}

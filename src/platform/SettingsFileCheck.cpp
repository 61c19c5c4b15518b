#include "platform/SettingsFileCheck.h"

#include <QList>
#include <QtEndian>

namespace SettingsFileCheck {

namespace {

// Type numbers of the library's stream format for typed values.
constexpr quint32 mapType = 8;
constexpr quint32 textType = 10;
constexpr quint32 nullText = 0xffffffff;

class Reader {
public:
    explicit Reader(const QByteArray& bytes) : m_bytes(bytes) {}

    bool number(quint32* value) {
        if (left() < 4) {
            return false;
        }
        *value = qFromBigEndian<quint32>(m_bytes.constData() + m_at);
        m_at += 4;
        return true;
    }
    bool text() {
        quint32 length = 0;
        if (!number(&length)) {
            return false;
        }
        if (length == nullText) {
            return true;
        }
        if (length % 2 != 0 || length > quint64(left())) {
            return false;
        }
        m_at += length;
        return true;
    }
    qsizetype left() const { return m_bytes.size() - m_at; }

private:
    const QByteArray& m_bytes;
    qsizetype m_at = 0;
};

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// A value's items as the settings library reads them: quotes hold commas,
// an unquoted comma separates items, and backslash escapes are decoded
// (named ones, octal, and \x with any number of hex digits). A decoded
// character above one byte cannot be part of a typed value's bytes; it is
// kept as a marker that spoils the stream.
QList<QByteArray> items(const QByteArray& value) {
    QList<QByteArray> result;
    QByteArray item;
    bool quoted = false;
    for (qsizetype i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        if (c == ',' && !quoted) {
            result.append(item.trimmed());
            item.clear();
            continue;
        }
        if (c != '\\' || i + 1 == value.size()) {
            item += c;
            continue;
        }
        const char e = value[++i];
        switch (e) {
        case 'a':
            item += '\a';
            break;
        case 'b':
            item += '\b';
            break;
        case 'f':
            item += '\f';
            break;
        case 'n':
            item += '\n';
            break;
        case 'r':
            item += '\r';
            break;
        case 't':
            item += '\t';
            break;
        case 'v':
            item += '\v';
            break;
        case 'x': {
            quint32 code = 0;
            while (i + 1 < value.size() && hexDigit(value[i + 1]) >= 0) {
                code = std::min<quint32>(code * 16 + quint32(hexDigit(value[++i])), 0x10000);
            }
            item += code > 0xff ? '\x80' : char(code);
            break;
        }
        default:
            if (e >= '0' && e <= '7') {
                quint32 code = quint32(e - '0');
                while (i + 1 < value.size() && value[i + 1] >= '0' && value[i + 1] <= '7') {
                    code = std::min<quint32>(code * 8 + quint32(value[++i] - '0'), 0x10000);
                }
                item += code > 0xff ? '\x80' : char(code);
            } else {
                item += e;
            }
        }
    }
    result.append(item.trimmed());
    return result;
}

// True when the value holds an item the library would decode as a stream,
// and that stream is not a map of text to text.
bool damagedValue(const QByteArray& value) {
    for (const QByteArray& item : items(value)) {
        if (item.startsWith("@DateTime(")) {
            return true;
        }
        if (item.startsWith("@Variant(") &&
            (!item.endsWith(')') || !isTextMap(item.mid(9, item.size() - 10)))) {
            return true;
        }
    }
    return false;
}

// The value after the key, read both whole and cut at an unquoted semicolon
// (where a comment may begin), so that no reading of it escapes the check.
bool damagedLine(const QByteArray& line) {
    const qsizetype equals = line.indexOf('=');
    // An "@" may also arrive escaped.
    if (equals < 0 || (!line.contains('@') && !line.contains('\\'))) {
        return false;
    }
    const QByteArray value = line.mid(equals + 1);
    if (damagedValue(value)) {
        return true;
    }
    bool quoted = false;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == '\\') {
            ++i;
        } else if (value[i] == '"') {
            quoted = !quoted;
        } else if (value[i] == ';' && !quoted) {
            return damagedValue(value.left(i));
        }
    }
    return false;
}

// An entry may go on over several lines, each but the last ending in a
// backslash, and a carriage return may end a line too: every way of cutting
// the entry into lines is checked.
bool damagedEntry(const QByteArray& entry) {
    QByteArray joined;
    for (const QByteArray& line : entry.split('\n')) {
        if (damagedLine(line)) {
            return true;
        }
        for (const QByteArray& piece : line.split('\r')) {
            if (damagedLine(piece)) {
                return true;
            }
        }
        QByteArray content = line;
        if (content.endsWith('\r')) {
            content.chop(1);
        }
        if (content.endsWith('\\')) {
            content.chop(1);
        }
        joined += content;
    }
    return damagedLine(joined);
}

} // namespace

bool isTextMap(const QByteArray& stream) {
    Reader reader(stream);
    quint32 type = 0;
    quint32 count = 0;
    if (!reader.number(&type) || type != mapType || !reader.number(&count)) {
        return false;
    }
    // Each entry takes at least twelve bytes: two text lengths and a type.
    if (count > quint64(reader.left()) / 12) {
        return false;
    }
    for (quint32 i = 0; i < count; ++i) {
        if (!reader.text() || !reader.number(&type) || type != textType || !reader.text()) {
            return false;
        }
    }
    return reader.left() == 0;
}

QByteArray withoutDamagedValues(const QByteArray& file, int* dropped) {
    *dropped = 0;
    QByteArray kept;
    kept.reserve(file.size());
    qsizetype start = 0;
    while (start < file.size()) {
        // One entry: lines up to one that does not end in a backslash.
        qsizetype end = start;
        for (;;) {
            const qsizetype newline = file.indexOf('\n', end);
            if (newline < 0) {
                end = file.size();
                break;
            }
            end = newline + 1;
            qsizetype last = newline - 1;
            if (last >= start && file[last] == '\r') {
                --last;
            }
            if (last < start || file[last] != '\\') {
                break;
            }
        }
        const QByteArray entry = file.mid(start, end - start);
        if (damagedEntry(entry)) {
            ++*dropped;
        } else {
            kept += entry;
        }
        start = end;
    }
    return kept;
}

} // namespace SettingsFileCheck

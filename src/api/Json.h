#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <optional>
#include <stdexcept>

// Strict reading of the dashboard's JSON: a required key that is missing or
// of the wrong JSON type fails the whole record; an optional key may be
// missing or null; unknown keys are ignored. Writers keep keys in the order
// they are added.
namespace wire {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

// What a record reader throws. The text names the key and what was wrong.
class DecodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses bytes into a JSON value; malformed text is a DecodeError.
Json parse(const QByteArray& bytes);

// The object itself, or a DecodeError when the value is not an object.
const Json& object(const Json& value, const char* what);
const Json& array(const Json& value, const char* what);

// Field readers. `required*` throw when the key is missing, null or of
// another type; `optional*` give none for missing and null, and throw for
// another type.
QString requiredText(const Json& object, const char* key);
std::optional<QString> optionalText(const Json& object, const char* key);
bool requiredBool(const Json& object, const char* key);
std::optional<bool> optionalBool(const Json& object, const char* key);
// Whole numbers only: 3 and 3.0 read as 3; 3.5, "3" and true do not.
qint64 requiredInteger(const Json& object, const char* key);
std::optional<qint64> optionalInteger(const Json& object, const char* key);
std::optional<double> optionalNumber(const Json& object, const char* key);
std::optional<QStringList> optionalTextList(const Json& object, const char* key);

// The value at the key when present and not null.
const Json* present(const Json& object, const char* key);
const Json& requiredValue(const Json& object, const char* key);

// Reads a list of records with a reader for one element.
template <typename T, typename Read> QList<T> list(const Json& value, const char* what, Read read) {
    QList<T> result;
    for (const Json& element : array(value, what)) {
        result.append(read(element));
    }
    return result;
}

std::string utf8(const QString& text);

// Serialises an ordered value to compact UTF-8 bytes.
QByteArray bytes(const OrderedJson& value);

} // namespace wire

#include "api/Json.h"

#include <cmath>
#include <limits>

namespace wire {
namespace {

[[noreturn]] void fail(const char* key, const char* expected) {
    throw DecodeError(std::string("key \"") + key + "\": expected " + expected);
}

QString text(const Json& value) {
    const auto& s = value.get_ref<const std::string&>();
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

std::optional<qint64> whole(const Json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned()) {
            const auto u = value.get<std::uint64_t>();
            if (u > std::uint64_t(std::numeric_limits<qint64>::max())) {
                return std::nullopt;
            }
            return qint64(u);
        }
        return value.get<std::int64_t>();
    }
    if (value.is_number_float()) {
        const double d = value.get<double>();
        // 2^63 itself does not fit; anything below it that is whole does.
        if (std::isfinite(d) && std::trunc(d) == d && d >= -9223372036854775808.0 &&
            d < 9223372036854775808.0) {
            return qint64(d);
        }
    }
    return std::nullopt;
}

} // namespace

Json parse(const QByteArray& bytes) {
    Json value = Json::parse(bytes.constBegin(), bytes.constEnd(), nullptr, false);
    if (value.is_discarded()) {
        throw DecodeError("the body is not valid JSON");
    }
    return value;
}

const Json& object(const Json& value, const char* what) {
    if (!value.is_object()) {
        throw DecodeError(std::string(what) + ": expected an object");
    }
    return value;
}

const Json& array(const Json& value, const char* what) {
    if (!value.is_array()) {
        throw DecodeError(std::string(what) + ": expected an array");
    }
    return value;
}

const Json* present(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return nullptr;
    }
    return &*found;
}

const Json& requiredValue(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        throw DecodeError(std::string("key \"") + key + "\" is missing");
    }
    return *value;
}

QString requiredText(const Json& object, const char* key) {
    const Json& value = requiredValue(object, key);
    if (!value.is_string()) {
        fail(key, "text");
    }
    return text(value);
}

std::optional<QString> optionalText(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_string()) {
        fail(key, "text");
    }
    return text(*value);
}

bool requiredBool(const Json& object, const char* key) {
    const Json& value = requiredValue(object, key);
    if (!value.is_boolean()) {
        fail(key, "true or false");
    }
    return value.get<bool>();
}

std::optional<bool> optionalBool(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_boolean()) {
        fail(key, "true or false");
    }
    return value->get<bool>();
}

qint64 requiredInteger(const Json& object, const char* key) {
    const auto number = whole(requiredValue(object, key));
    if (!number) {
        fail(key, "a whole number");
    }
    return *number;
}

std::optional<qint64> optionalInteger(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    const auto number = whole(*value);
    if (!number) {
        fail(key, "a whole number");
    }
    return number;
}

std::optional<double> optionalNumber(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_number()) {
        fail(key, "a number");
    }
    return value->get<double>();
}

std::optional<QStringList> optionalTextList(const Json& object, const char* key) {
    const Json* value = present(object, key);
    if (!value) {
        return std::nullopt;
    }
    if (!value->is_array()) {
        fail(key, "an array of text");
    }
    QStringList result;
    for (const Json& element : *value) {
        if (!element.is_string()) {
            fail(key, "an array of text");
        }
        result.append(text(element));
    }
    return result;
}

std::string utf8(const QString& text) {
    return text.toStdString();
}

QByteArray bytes(const OrderedJson& value) {
    // Replace, not throw, on text that is not valid UTF-8: our own QStrings always are.
    const std::string dumped = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return QByteArray(dumped.data(), qsizetype(dumped.size()));
}

} // namespace wire

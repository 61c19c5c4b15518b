#include "Bencode.h"

#include <map>

namespace rzdev {

QByteArray bencode(const Json& value) {
    if (value.is_number_integer())
        return 'i' + QByteArray::number(value.get<qint64>()) + 'e';
    if (value.is_string()) {
        const auto text = QByteArray::fromStdString(value.get<std::string>());
        return QByteArray::number(text.size()) + ':' + text;
    }
    if (value.is_array()) {
        QByteArray out = "l";
        for (const auto& item : value)
            out += bencode(item);
        return out + 'e';
    }
    if (value.is_object()) {
        // Keys in sorted order, as bencode wants them.
        std::map<std::string, const Json*> sorted;
        for (const auto& [key, item] : value.items())
            sorted[key] = &item;
        QByteArray out = "d";
        for (const auto& [key, item] : sorted)
            out += bencode(Json(key)) + bencode(*item);
        return out + 'e';
    }
    if (value.is_boolean())
        return bencode(Json(value.get<bool>() ? "yes" : "no"));
    return "0:";
}

namespace {

std::optional<Json> decodeAt(const QByteArray& data, qsizetype& at, int depth) {
    if (at >= data.size() || depth > 64)
        return std::nullopt;
    const char c = data[at];
    if (c == 'i') {
        const auto end = data.indexOf('e', at);
        if (end < 0)
            return std::nullopt;
        bool ok = false;
        const qint64 number = data.mid(at + 1, end - at - 1).toLongLong(&ok);
        if (!ok)
            return std::nullopt;
        at = end + 1;
        return Json(number);
    }
    if (c == 'l' || c == 'd') {
        ++at;
        Json out = c == 'l' ? Json::array() : Json::object();
        while (at < data.size() && data[at] != 'e') {
            if (c == 'l') {
                auto item = decodeAt(data, at, depth + 1);
                if (!item)
                    return std::nullopt;
                out.push_back(std::move(*item));
            } else {
                auto key = decodeAt(data, at, depth + 1);
                if (!key || !key->is_string())
                    return std::nullopt;
                auto item = decodeAt(data, at, depth + 1);
                if (!item)
                    return std::nullopt;
                out[key->get<std::string>()] = std::move(*item);
            }
        }
        if (at >= data.size())
            return std::nullopt;
        ++at;
        return out;
    }
    const auto colon = data.indexOf(':', at);
    if (colon < 0)
        return std::nullopt;
    bool ok = false;
    const qint64 length = data.mid(at, colon - at).toLongLong(&ok);
    if (!ok || length < 0 || colon + 1 + length > data.size())
        return std::nullopt;
    Json text(data.mid(colon + 1, length).toStdString());
    at = colon + 1 + length;
    return text;
}

} // namespace

std::optional<Json> bdecode(const QByteArray& data) {
    qsizetype at = 0;
    auto value = decodeAt(data, at, 0);
    if (!value || at != data.size())
        return std::nullopt;
    return value;
}

} // namespace rzdev

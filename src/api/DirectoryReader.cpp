#include "DirectoryReader.h"

#include "Json.h"

#include <simdjson.h>

#include <string_view>

namespace wire {

namespace {

namespace dom = simdjson::dom;
using Type = dom::element_type;

// Stops the quick reading; the thorough one then says what is wrong.
struct NotAsExpected {};

QString text(dom::element value) {
    const std::string_view s = value.get_string();
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

std::optional<QString> optionalText(dom::element value) {
    if (value.type() == Type::NULL_VALUE) {
        return std::nullopt;
    }
    if (value.type() != Type::STRING) {
        throw NotAsExpected{};
    }
    return text(value);
}

std::optional<QStringList> optionalTextList(dom::element value) {
    if (value.type() == Type::NULL_VALUE) {
        return std::nullopt;
    }
    if (value.type() != Type::ARRAY) {
        throw NotAsExpected{};
    }
    QStringList list;
    for (dom::element element : dom::array(value)) {
        if (element.type() != Type::STRING) {
            throw NotAsExpected{};
        }
        list.append(text(element));
    }
    return list;
}

std::optional<AvatarRef> optionalAvatar(dom::element value) {
    if (value.type() == Type::NULL_VALUE) {
        return std::nullopt;
    }
    if (value.type() != Type::OBJECT) {
        throw NotAsExpected{};
    }
    std::optional<QString> url;
    std::optional<QString> version;
    for (dom::key_value_pair field : dom::object(value)) {
        if (field.key == "url") {
            url = optionalText(field.value);
        } else if (field.key == "version") {
            version = optionalText(field.value);
        }
    }
    if (!url || !version) {
        throw NotAsExpected{};
    }
    return AvatarRef{*url, *version};
}

Directory::Entry readEntry(dom::element value) {
    if (value.type() != Type::OBJECT) {
        throw NotAsExpected{};
    }
    std::optional<QString> id;
    std::optional<QString> name;
    Directory::Entry entry;
    // The last of a repeated key counts, as with the thorough reader.
    for (dom::key_value_pair field : dom::object(value)) {
        if (field.key == "id") {
            id = optionalText(field.value);
        } else if (field.key == "name") {
            name = optionalText(field.value);
        } else if (field.key == "email") {
            entry.email = optionalText(field.value);
        } else if (field.key == "extension") {
            entry.extension_ = optionalText(field.value);
        } else if (field.key == "numbers") {
            entry.numbers = optionalTextList(field.value);
        } else if (field.key == "avatar") {
            entry.avatar = optionalAvatar(field.value);
        }
    }
    if (!id || !name) {
        throw NotAsExpected{};
    }
    entry.id = *id;
    entry.name = *name;
    return entry;
}

std::optional<QList<Directory::Entry>> readEntries(dom::element value) {
    if (value.type() == Type::NULL_VALUE) {
        return std::nullopt;
    }
    if (value.type() != Type::ARRAY) {
        throw NotAsExpected{};
    }
    const dom::array array(value);
    QList<Directory::Entry> entries;
    entries.reserve(qsizetype(array.size()));
    for (dom::element element : array) {
        entries.append(readEntry(element));
    }
    return entries;
}

Directory quickly(const QByteArray& body) {
    // The parser picks the fastest code this processor runs, at run time.
    dom::parser parser;
    const dom::element document = parser.parse(body.constData(), size_t(body.size()));
    if (document.type() != Type::OBJECT) {
        throw NotAsExpected{};
    }
    std::optional<QList<Directory::Entry>> users;
    std::optional<QList<Directory::Entry>> groups;
    std::optional<QList<Directory::Entry>> flows;
    for (dom::key_value_pair field : dom::object(document)) {
        if (field.key == "users") {
            users = readEntries(field.value);
        } else if (field.key == "groups") {
            groups = readEntries(field.value);
        } else if (field.key == "flows") {
            flows = readEntries(field.value);
        }
    }
    if (!users || !groups || !flows) {
        throw NotAsExpected{};
    }
    return {std::move(*users), std::move(*groups), std::move(*flows)};
}

} // namespace

std::optional<Directory> readDirectoryQuickly(const QByteArray& body) {
    try {
        return quickly(body);
    } catch (const NotAsExpected&) {
    } catch (const simdjson::simdjson_error&) {
    }
    return std::nullopt;
}

Directory readDirectory(const QByteArray& body) {
    if (auto directory = readDirectoryQuickly(body)) {
        return std::move(*directory);
    }
    return Directory::fromJson(parse(body));
}

} // namespace wire

template <> Directory decode<Directory>(const QByteArray& body) {
    return wire::readDirectory(body);
}

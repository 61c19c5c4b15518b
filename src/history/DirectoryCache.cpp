#include "history/DirectoryCache.h"

#include "history/SearchText.h"
#include "platform/Files.h"
#include "platform/Log.h"

#include <QFile>

#include <nlohmann/json.hpp>

QString DirectoryContact::subtitle() const {
    return kind + QStringLiteral(" · ") + id;
}

QString DirectoryCache::path() {
    return Files::cachesDirectory() + u'/' + QLatin1String(fileName);
}

QList<DirectoryContact> DirectoryCache::rows(const QList<Directory::Entry>& users,
                                             const QList<Directory::Entry>& groups,
                                             const QList<Directory::Entry>& flows) {
    QList<DirectoryContact> rows;
    rows.reserve(users.size() + groups.size() + flows.size());
    const auto add = [&rows](const QList<Directory::Entry>& entries, const char* kind) {
        for (const auto& entry : entries) {
            // Without an extension there is nothing to dial.
            if (entry.extension_) {
                rows.append({*entry.extension_, entry.name, QString::fromLatin1(kind)});
            }
        }
    };
    add(users, colleagueKind);
    add(groups, groupKind);
    add(flows, flowKind);
    return rows;
}

QByteArray DirectoryCache::encode(const QList<DirectoryContact>& contacts) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& contact : contacts) {
        nlohmann::ordered_json row;
        row["id"] = contact.id.toStdString();
        row["name"] = contact.name.toStdString();
        row["kind"] = contact.kind.toStdString();
        array.push_back(std::move(row));
    }
    return QByteArray::fromStdString(array.dump());
}

std::optional<QList<DirectoryContact>> DirectoryCache::decode(const QByteArray& bytes) {
    const auto json = nlohmann::json::parse(bytes.constBegin(), bytes.constEnd(), nullptr, false);
    if (json.is_discarded() || !json.is_array()) {
        return std::nullopt;
    }
    QList<DirectoryContact> contacts;
    contacts.reserve(qsizetype(json.size()));
    const auto text = [](const nlohmann::json& row, const char* key) -> std::optional<QString> {
        const auto it = row.find(key);
        if (it == row.end() || !it->is_string()) {
            return std::nullopt;
        }
        return QString::fromStdString(it->get_ref<const std::string&>());
    };
    for (const auto& row : json) {
        if (!row.is_object()) {
            return std::nullopt;
        }
        const auto id = text(row, "id");
        const auto name = text(row, "name");
        const auto kind = text(row, "kind");
        if (!id || !name || !kind) {
            return std::nullopt;
        }
        contacts.append({*id, *name, *kind});
    }
    return contacts;
}

void DirectoryCache::update(const QList<Directory::Entry>& users,
                            const QList<Directory::Entry>& groups,
                            const QList<Directory::Entry>& flows) {
    // A failed write is dropped: the launcher goes on with the older file.
    Files::writeAtomically(path(), encode(rows(users, groups, flows)));
}

QList<DirectoryContact> DirectoryCache::read() {
    const auto bytes = Files::read(path());
    if (!bytes) {
        return {};
    }
    return decode(*bytes).value_or(QList<DirectoryContact>());
}

void DirectoryCache::remove() {
    QFile::remove(path());
}

QList<DirectoryContact> DirectoryCache::entitiesFor(const QList<DirectoryContact>& rows,
                                                    const QStringList& ids) {
    QList<DirectoryContact> found;
    for (const auto& id : ids) {
        for (const auto& row : rows) {
            if (row.id == id) {
                found.append(row);
                break;
            }
        }
    }
    return found;
}

QList<DirectoryContact> DirectoryCache::entitiesMatching(const QList<DirectoryContact>& rows,
                                                         const QString& text) {
    const QString query = SearchText::fold(text);
    QList<DirectoryContact> found;
    for (const auto& row : rows) {
        if (row.id == text || (!query.isEmpty() && SearchText::fold(row.name).contains(query))) {
            found.append(row);
        }
    }
    return found;
}

QList<DirectoryContact> DirectoryCache::entitiesFor(const QStringList& ids) {
    return entitiesFor(read(), ids);
}

QList<DirectoryContact> DirectoryCache::entitiesMatching(const QString& text) {
    return entitiesMatching(read(), text);
}

QList<DirectoryContact> DirectoryCache::suggestedEntities() {
    return read();
}

std::function<void(const QString&)>& DirectoryCache::handler() {
    static std::function<void(const QString&)> dial;
    return dial;
}

void DirectoryCache::perform(const DirectoryContact& contact) {
    Log::info(Log::launcher, QStringLiteral("call %1 (%2)").arg(contact.name, contact.id));
    if (const auto& dial = handler()) {
        dial(contact.id);
    }
}

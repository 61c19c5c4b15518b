#include "contacts/ColleagueExport.h"

#include <QSet>

#include <vector>

namespace ColleagueExport {

std::pair<QString, QString> splitName(const QString& name) {
    const QStringList pieces = name.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (pieces.size() < 2) {
        return {name, QString()};
    }
    return {pieces.first(pieces.size() - 1).join(QLatin1Char(' ')), pieces.last()};
}

ContactStore::Fields fieldsFor(const ColleagueContacts::Colleague& colleague) {
    const QString fixed = QString::fromLatin1(ColleagueContacts::fixedText);
    ContactStore::Fields fields;
    std::tie(fields.givenName, fields.familyName) = splitName(colleague.name);
    fields.organization = fixed;
    for (const QString& number : colleague.numbers) {
        fields.phones.append({fixed, number});
    }
    // No address clears an older one; no picture keeps the older one.
    if (colleague.email) {
        fields.emails.append({QString::fromLatin1(ContactStore::workLabel), *colleague.email});
    }
    fields.image = colleague.image;
    return fields;
}

Result run(ContactStore& store, const QList<ColleagueContacts::Colleague>& colleagues,
           const ColleagueContacts::Map& oldMap) {
    const QString fixed = QString::fromLatin1(ColleagueContacts::fixedText);
    ColleagueContacts::Map newMap;
    std::vector<QString> addedIds; // directory ids of the contacts made, in order
    std::optional<QString> group;  // its id
    if (!colleagues.isEmpty()) {
        if (const auto groups = store.groups()) {
            for (const auto& candidate : *groups) {
                if (candidate.name == fixed) {
                    group = candidate.id;
                    break;
                }
            }
        }
        if (!group) {
            // Without a group the contacts are still made, only not grouped.
            if (const auto made = store.addGroup(fixed)) {
                group = made->id;
            }
        }
    }
    store.prefetch(oldMap.values());
    QSet<QString> present;
    for (const auto& colleague : colleagues) {
        present.insert(colleague.id);
        const auto known = oldMap.constFind(colleague.id);
        std::optional<ContactStore::Fields> before;
        if (known != oldMap.cend()) {
            before = store.fetch(*known);
        }
        if (before) {
            const ContactStore::Fields after = fieldsFor(colleague);
            ContactStore::Fields seen = *before;
            if (!after.image) {
                seen.image.reset();
            }
            // A contact that already reads as it should costs the book nothing.
            if (after != seen) {
                store.update(*known, after);
            }
            newMap.insert(colleague.id, *known);
        } else {
            // Never made, or deleted by the user since: made anew.
            store.add(fieldsFor(colleague), group);
            addedIds.push_back(colleague.id);
        }
    }
    for (auto it = oldMap.cbegin(); it != oldMap.cend(); ++it) {
        if (!present.contains(it.key()) && store.fetch(it.value())) {
            store.remove(it.value());
        }
    }
    const ContactStore::Saved saved = store.execute();
    if (saved.failure) {
        // New contacts are forgotten, and those of people who left are no
        // longer ours to remove.
        ColleagueContacts::Map kept;
        for (auto it = oldMap.cbegin(); it != oldMap.cend(); ++it) {
            if (present.contains(it.key())) {
                kept.insert(it.key(), it.value());
            }
        }
        return {kept, saved.failure};
    }
    for (size_t i = 0; i < addedIds.size() && i < size_t(saved.added.size()); ++i) {
        newMap.insert(addedIds[i], saved.added[qsizetype(i)]);
    }
    return {newMap, std::nullopt};
}

} // namespace ColleagueExport

#pragma once

#include "contacts/ColleagueContacts.h"
#include "platform/ContactStore.h"

#include <QList>
#include <QString>

#include <optional>
#include <utility>

// The export itself, run on a worker against a store of its own: the
// colleagues and the map of earlier exports in, the new map and the book's
// complaint, if any, out.
namespace ColleagueExport {

struct Result {
    ColleagueContacts::Map map;
    std::optional<QString> error;

    bool operator==(const Result&) const = default;
};

Result run(ContactStore& store, const QList<ColleagueContacts::Colleague>& colleagues,
           const ColleagueContacts::Map& oldMap);

// The given and family names: the last word of the name is the family name,
// all before it the given name; a name of one word is all given name.
std::pair<QString, QString> splitName(const QString& name);

// What the export writes into a colleague's contact; without a picture the
// contact keeps the one it has.
ContactStore::Fields fieldsFor(const ColleagueContacts::Colleague& colleague);

} // namespace ColleagueExport

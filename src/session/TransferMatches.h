#pragma once

#include "api/Records.h"

#include <QList>
#include <QString>

// The people and numbers the transfer sheet offers for what was typed:
// colleagues (not the user), ring groups and call flows that have an
// extension, matched by name or by the start of the extension, with a typed
// number first of all.
namespace TransferMatches {

struct Row {
    QString name;
    QString number;
    // The row made of the typed number itself.
    bool typed = false;
    bool operator==(const Row&) const = default;
};

QList<Row> of(const Directory& directory, const QString& ownId, const QString& query);
// The typed number, when the query holds nothing but digits, "+" and
// whitespace, and at least two of the first two.
std::optional<QString> typedNumber(const QString& query);
} // namespace TransferMatches

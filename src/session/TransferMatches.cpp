#include "session/TransferMatches.h"

#include "history/SearchText.h"

namespace TransferMatches {

std::optional<QString> typedNumber(const QString& query) {
    QString kept;
    int nonSpace = 0;
    for (const QChar c : query) {
        if (c.isSpace()) {
            continue;
        }
        ++nonSpace;
        if (c.isDigit() || c == u'+') {
            kept.append(c);
        }
    }
    if (kept.size() < 2 || kept.size() != nonSpace) {
        return std::nullopt;
    }
    return kept;
}

QList<Row> of(const Directory& directory, const QString& ownId, const QString& query) {
    QList<Row> rows;
    const QString trimmed = query.trimmed();
    if (const auto number = typedNumber(query)) {
        rows.append({*number, *number, true});
    }
    const QString needle = SearchText::fold(trimmed);
    const auto consider = [&](const Directory::Entry& entry) {
        if (!entry.extension_ || entry.extension_->isEmpty()) {
            return;
        }
        if (!trimmed.isEmpty() && !SearchText::fold(entry.name).contains(needle) &&
            !entry.extension_->startsWith(trimmed)) {
            return;
        }
        rows.append({entry.name, *entry.extension_, false});
    };
    for (const auto& user : directory.users) {
        if (user.id != ownId) {
            consider(user);
        }
    }
    for (const auto& group : directory.groups) {
        consider(group);
    }
    for (const auto& flow : directory.flows) {
        consider(flow);
    }
    return rows;
}

} // namespace TransferMatches

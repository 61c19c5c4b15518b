#include "history/LauncherQuery.h"

#include <QSet>

namespace LauncherQuery {

QList<DirectoryContact> search(const QList<DirectoryContact>& rows, const QStringList& terms) {
    QList<DirectoryContact> found = rows;
    bool any = false;
    for (const QString& term : terms) {
        const QString word = term.trimmed();
        if (word.isEmpty()) {
            continue;
        }
        any = true;
        found = DirectoryCache::entitiesMatching(found, word);
    }
    if (!any) {
        return {};
    }
    // One result per extension: what is dialled is the same.
    QSet<QString> seen;
    QList<DirectoryContact> unique;
    for (const auto& contact : found) {
        if (!seen.contains(contact.id)) {
            seen.insert(contact.id);
            unique.append(contact);
        }
    }
    return unique;
}

QList<DirectoryContact> narrow(const QList<DirectoryContact>& rows, const QStringList& previous,
                               const QStringList& terms) {
    const QSet<QString> before(previous.cbegin(), previous.cend());
    QList<DirectoryContact> kept;
    for (const auto& contact : search(rows, terms)) {
        if (before.contains(contact.id)) {
            kept.append(contact);
        }
    }
    return kept;
}

QStringList ids(const QList<DirectoryContact>& contacts) {
    QStringList out;
    out.reserve(contacts.size());
    for (const auto& contact : contacts) {
        out.append(contact.id);
    }
    return out;
}

QString description(const DirectoryContact& contact, const QString& presence) {
    QString text = contact.subtitle();
    if (!presence.isEmpty()) {
        text += QStringLiteral(" · ") + presence;
    }
    return text;
}

} // namespace LauncherQuery

#pragma once

#include "history/DirectoryCache.h"

#include <QList>
#include <QString>
#include <QStringList>

// What the desktop's launchers (GNOME Shell's search, KRunner) are answered
// from the directory file. A launcher splits what was typed into words; a
// contact is found when every word finds it by the file's own rule (its name
// holds the word, or its extension is the word).
namespace LauncherQuery {

// The contacts for the words, in file order, each extension once.
QList<DirectoryContact> search(const QList<DirectoryContact>& rows, const QStringList& terms);

// The same, narrowed to contacts found before (the launcher's next keystroke).
QList<DirectoryContact> narrow(const QList<DirectoryContact>& rows, const QStringList& previous,
                               const QStringList& terms);

// The ids of contacts.
QStringList ids(const QList<DirectoryContact>& contacts);

// The line under the name: "Colleague · 204", and the presence word when known
// ("Colleague · 204 · On a call").
QString description(const DirectoryContact& contact, const QString& presence);

} // namespace LauncherQuery

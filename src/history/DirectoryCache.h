#pragma once

#include "api/Records.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// One dialable entry of the company directory as the launcher sees it.
struct DirectoryContact {
    QString id; // the extension: what is dialled
    QString name;
    QString kind; // "Colleague", "Group" or "Call flow"

    // "Colleague · 204", the line under the name.
    QString subtitle() const;
    bool operator==(const DirectoryContact&) const = default;
};

// The small file of dialable directory entries, directory-contacts.json in
// the caches directory, which lets the desktop's launcher find and call a
// colleague before (or without) the main window loading the directory. It
// holds three short texts per entry and nothing else; every query reads the
// file again, so the process keeps no second copy of the directory.
class DirectoryCache {
public:
    using Stored = DirectoryContact;

    static constexpr char fileName[] = "directory-contacts.json";
    static constexpr char colleagueKind[] = "Colleague";
    static constexpr char groupKind[] = "Group";
    static constexpr char flowKind[] = "Call flow";

    DirectoryCache() = delete;

    static QString path();

    // Rewrites the file from a directory that has just arrived: users, then
    // groups, then flows, each in directory order, leaving out entries with
    // no extension. A failed write keeps the older file.
    static void update(const QList<Directory::Entry>& users, const QList<Directory::Entry>& groups,
                       const QList<Directory::Entry>& flows);
    // The rows of the file; empty when it is missing or unreadable.
    static QList<DirectoryContact> read();
    // At sign-out. A file that is not there is fine.
    static void remove();

    static QList<DirectoryContact> rows(const QList<Directory::Entry>& users,
                                        const QList<Directory::Entry>& groups,
                                        const QList<Directory::Entry>& flows);
    // The file's form: a JSON array of {"id", "name", "kind"} objects.
    static QByteArray encode(const QList<DirectoryContact>& contacts);
    // None unless the bytes are such an array, in every detail.
    static std::optional<QList<DirectoryContact>> decode(const QByteArray& bytes);

    // The launcher's three questions. For ids: the first row with each id, in
    // the order asked, unknown ids left out.
    static QList<DirectoryContact> entitiesFor(const QStringList& ids);
    // Rows whose name holds the text (SearchText) or whose id is the text, in file order.
    static QList<DirectoryContact> entitiesMatching(const QString& text);
    static QList<DirectoryContact> suggestedEntities();
    // The same, over rows already read.
    static QList<DirectoryContact> entitiesFor(const QList<DirectoryContact>& rows,
                                               const QStringList& ids);
    static QList<DirectoryContact> entitiesMatching(const QList<DirectoryContact>& rows,
                                                    const QString& text);

    // Where a chosen contact's extension goes: the phone's dial from outside
    // the app. Set once at start by the app; absent, a choice dials nothing.
    static std::function<void(const QString&)>& handler();
    // Logs the choice and hands the id to the handler.
    static void perform(const DirectoryContact& contact);
};

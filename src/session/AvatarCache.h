#pragma once

#include "api/Records.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>

#include <optional>

// Pictures on disk, one file per picture and version in the "avatars" folder
// of the caches directory, so that a changed picture is a new file. The
// folder is bounded: past the bound the pictures used least recently go
// (a read counts as a use), down to the bound.
class AvatarCache {
public:
    static constexpr qint64 defaultLimitBytes = 50 * 1024 * 1024;

    explicit AvatarCache(QString directory = defaultDirectory(),
                         qint64 limitBytes = defaultLimitBytes);

    static QString defaultDirectory();
    // The url with every character that is not a letter or a digit made "_",
    // then "-", the version and ".img": "/media/a.jpg" at "3" is "_media_a_jpg-3.img".
    static QString fileName(const AvatarRef& ref);

    const QString& directory() const { return m_directory; }
    QString pathOf(const AvatarRef& ref) const;

    // The kept picture, or none.
    std::optional<QByteArray> read(const AvatarRef& ref);
    // Replaces the file at once (a reader never sees half of it), then trims
    // the folder to the bound. False when the file could not be written.
    bool write(const AvatarRef& ref, const QByteArray& bytes);

    // What the folder's pictures take, as this cache knows it.
    qint64 bytesOnDisk();

private:
    struct Kept {
        qint64 size = 0;
        QDateTime used;
    };

    void loadIndex();
    QDateTime nextUse();
    void markUsed(const QString& name, const QString& path);
    void evict(const QString& keep);

    QString m_directory;
    qint64 m_limit;
    bool m_indexed = false;
    QHash<QString, Kept> m_files;
    qint64 m_total = 0;
    QDateTime m_lastUse;
};

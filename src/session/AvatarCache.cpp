#include "session/AvatarCache.h"

#include "platform/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <vector>

namespace {

constexpr char suffix[] = ".img";

} // namespace

AvatarCache::AvatarCache(QString directory, qint64 limitBytes)
    : m_directory(std::move(directory)), m_limit(limitBytes) {}

QString AvatarCache::defaultDirectory() {
    return Files::cachesDirectory() + QStringLiteral("/avatars");
}

QString AvatarCache::fileName(const AvatarRef& ref) {
    QString name;
    name.reserve(ref.url.size() + ref.version.size() + 5);
    for (const QChar c : ref.url) {
        name.append(c.isLetterOrNumber() ? c : QChar(u'_'));
    }
    name += u'-' + ref.version + QLatin1String(suffix);
    return name;
}

QString AvatarCache::pathOf(const AvatarRef& ref) const {
    return m_directory + u'/' + fileName(ref);
}

void AvatarCache::loadIndex() {
    if (m_indexed) {
        return;
    }
    m_indexed = true;
    const QDir dir(m_directory);
    const auto entries = dir.entryInfoList({QStringLiteral("*") + QLatin1String(suffix)},
                                           QDir::Files | QDir::NoDotAndDotDot);
    for (const QFileInfo& info : entries) {
        m_files.insert(info.fileName(), Kept{info.size(), info.lastModified()});
        m_total += info.size();
        m_lastUse = std::max(m_lastUse, info.lastModified());
    }
}

QDateTime AvatarCache::nextUse() {
    // Strictly later than the last use, so that two uses in one clock tick keep their order.
    QDateTime now = QDateTime::currentDateTimeUtc();
    if (m_lastUse.isValid() && now <= m_lastUse) {
        now = m_lastUse.addMSecs(1);
    }
    m_lastUse = now;
    return now;
}

void AvatarCache::markUsed(const QString& name, const QString& path) {
    const QDateTime use = nextUse();
    // The file's time is the use, so that the order survives a restart.
    QFile file(path);
    if (file.open(QIODevice::ReadWrite)) {
        file.setFileTime(use, QFileDevice::FileModificationTime);
    }
    if (auto it = m_files.find(name); it != m_files.end()) {
        it->used = use;
    }
}

std::optional<QByteArray> AvatarCache::read(const AvatarRef& ref) {
    const QString path = pathOf(ref);
    auto bytes = Files::read(path);
    loadIndex();
    const QString name = fileName(ref);
    if (!bytes) {
        // Gone behind our back (the system may clear caches): forget it.
        if (const auto it = m_files.find(name); it != m_files.end()) {
            m_total -= it->size;
            m_files.erase(it);
        }
        return std::nullopt;
    }
    if (!m_files.contains(name)) {
        m_files.insert(name, Kept{bytes->size(), {}});
        m_total += bytes->size();
    }
    markUsed(name, path);
    return bytes;
}

bool AvatarCache::write(const AvatarRef& ref, const QByteArray& bytes) {
    loadIndex();
    const QString path = pathOf(ref);
    if (!Files::writeAtomically(path, bytes)) {
        return false;
    }
    const QString name = fileName(ref);
    if (auto it = m_files.find(name); it != m_files.end()) {
        m_total -= it->size;
        it->size = bytes.size();
    } else {
        m_files.insert(name, Kept{bytes.size(), {}});
    }
    m_total += bytes.size();
    markUsed(name, path);
    evict(name);
    return true;
}

void AvatarCache::evict(const QString& keep) {
    if (m_total <= m_limit) {
        return;
    }
    std::vector<std::pair<QDateTime, QString>> byAge;
    byAge.reserve(size_t(m_files.size()));
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        if (it.key() != keep) {
            byAge.emplace_back(it->used, it.key());
        }
    }
    std::sort(byAge.begin(), byAge.end());
    for (const auto& [used, name] : byAge) {
        if (m_total <= m_limit) {
            break;
        }
        // A file that will not go is still counted, and the next write tries again.
        if (QFile::remove(m_directory + u'/' + name) || !QFile::exists(m_directory + u'/' + name)) {
            m_total -= m_files.value(name).size;
            m_files.remove(name);
        }
    }
}

qint64 AvatarCache::bytesOnDisk() {
    loadIndex();
    return m_total;
}

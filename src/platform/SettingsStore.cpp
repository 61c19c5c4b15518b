#include "platform/SettingsStore.h"

#include "platform/Log.h"
#include "platform/SettingsFileCheck.h"
#include "platform/SettingsWriter.h"

#include <QFile>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

namespace {

QString defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/velnor/rz.conf");
}

bool writeWhole(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}

} // namespace

std::optional<bool> SettingsStore::boolean(const QString& key) const {
    const QVariant value = raw(key);
    if (value.typeId() == QMetaType::Bool) {
        return value.toBool();
    }
    // An INI file gives every plain value back as text.
    if (value.typeId() == QMetaType::QString) {
        const QString word = value.toString();
        if (word == u"true") {
            return true;
        }
        if (word == u"false") {
            return false;
        }
    }
    return std::nullopt;
}

std::optional<QString> SettingsStore::text(const QString& key) const {
    const QVariant value = raw(key);
    if (value.typeId() != QMetaType::QString) {
        return std::nullopt;
    }
    return value.toString();
}

std::optional<QUrl> SettingsStore::url(const QString& key) const {
    const QVariant value = raw(key);
    if (value.typeId() == QMetaType::QUrl) {
        return value.toUrl();
    }
    if (value.typeId() != QMetaType::QString) {
        return std::nullopt;
    }
    const QUrl url(value.toString(), QUrl::StrictMode);
    if (!url.isValid() || url.isRelative()) {
        return std::nullopt;
    }
    return url;
}

std::optional<QByteArray> SettingsStore::data(const QString& key) const {
    const QVariant value = raw(key);
    if (value.typeId() != QMetaType::QByteArray) {
        return std::nullopt;
    }
    return value.toByteArray();
}

std::optional<SettingsStore::Dictionary> SettingsStore::dictionary(const QString& key) const {
    const QVariant value = raw(key);
    if (value.typeId() != QMetaType::QVariantMap) {
        return std::nullopt;
    }
    Dictionary result;
    const QVariantMap map = value.toMap();
    for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
        if (it.value().typeId() != QMetaType::QString) {
            return std::nullopt;
        }
        result.insert(it.key(), it.value().toString());
    }
    return result;
}

void SettingsStore::setBoolean(const QString& key, bool value) {
    store(key, value);
}

void SettingsStore::setText(const QString& key, const QString& value) {
    store(key, value);
}

void SettingsStore::setUrl(const QString& key, const QUrl& value) {
    store(key, value.toString(QUrl::FullyEncoded));
}

void SettingsStore::setData(const QString& key, const QByteArray& value) {
    store(key, value);
}

void SettingsStore::setDictionary(const QString& key, const Dictionary& value) {
    QVariantMap map;
    for (auto it = value.constBegin(); it != value.constEnd(); ++it) {
        map.insert(it.key(), it.value());
    }
    store(key, map);
}

void SettingsStore::remove(const QString& key) {
    erase(key);
}

IniSettingsStore::IniSettingsStore() : IniSettingsStore(defaultPath()) {}

IniSettingsStore::IniSettingsStore(const QString& path) : m_writer(SettingsWriter::shared()) {
    // What another store of this process wrote to the file comes first.
    m_writer->flush();
    m_path = checked(path);
    const QSettings file(m_path, QSettings::IniFormat);
    for (const QString& key : file.allKeys()) {
        m_values.insert(key, file.value(key));
    }
}

IniSettingsStore::~IniSettingsStore() {
    flush();
}

void IniSettingsStore::flush() {
    m_writer->flush();
}

QString IniSettingsStore::checked(const QString& path) {
    QFile file(path);
    if (!file.exists()) {
        return path;
    }
    const QString aside = path + QStringLiteral(".damaged");
    if (file.size() > SettingsFileCheck::maxFileBytes) {
        QFile::remove(aside);
        const bool moved = QFile::rename(path, aside);
        Log::error(Log::app, QStringLiteral("%1 is larger than %2 MB and was not read; %3")
                                 .arg(path)
                                 .arg(SettingsFileCheck::maxFileBytes / (1024 * 1024))
                                 .arg(moved ? QStringLiteral("it is kept as ") + aside
                                            : QStringLiteral("it could not be moved aside")));
        return path;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return path;
    }
    const QByteArray text = file.readAll();
    file.close();
    int dropped = 0;
    const QByteArray kept = SettingsFileCheck::withoutDamagedValues(text, &dropped);
    if (dropped == 0) {
        return path;
    }
    // The file as it was stays beside it, so that nothing a person wrote is lost.
    const bool saved = writeWhole(aside, text) && writeWhole(path, kept);
    Log::error(Log::app, QStringLiteral("%1 held %2 damaged value(s), left unread; %3")
                             .arg(path)
                             .arg(dropped)
                             .arg(saved ? QStringLiteral("the file as it was is kept as ") + aside
                                        : QStringLiteral("the file could not be rewritten")));
    return path;
}

QVariant IniSettingsStore::raw(const QString& key) const {
    return m_values.value(key);
}

void IniSettingsStore::store(const QString& key, const QVariant& value) {
    m_values.insert(key, value);
    m_writer->post(m_path, key, value);
}

void IniSettingsStore::erase(const QString& key) {
    m_values.remove(key);
    m_writer->post(m_path, key, std::nullopt);
}

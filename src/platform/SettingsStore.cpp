#include "platform/SettingsStore.h"

#include <QStandardPaths>

namespace {

QString defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/velnor/rz.conf");
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

IniSettingsStore::IniSettingsStore(const QString& path) : m_settings(path, QSettings::IniFormat) {}

QVariant IniSettingsStore::raw(const QString& key) const {
    return m_settings.value(key);
}

void IniSettingsStore::store(const QString& key, const QVariant& value) {
    m_settings.setValue(key, value);
    m_settings.sync();
}

void IniSettingsStore::erase(const QString& key) {
    m_settings.remove(key);
    m_settings.sync();
}

#pragma once

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <memory>
#include <optional>

// The user-defaults store: small typed values under dotted keys
// ("rz.server", "call.miniBar"). A missing value, or one of another type than
// asked for, reads as absent.
class SettingsStore {
public:
    using Dictionary = QMap<QString, QString>;

    virtual ~SettingsStore() = default;

    std::optional<bool> boolean(const QString& key) const;
    std::optional<QString> text(const QString& key) const;
    std::optional<QUrl> url(const QString& key) const;
    std::optional<QByteArray> data(const QString& key) const;
    std::optional<Dictionary> dictionary(const QString& key) const;

    void setBoolean(const QString& key, bool value);
    void setText(const QString& key, const QString& value);
    // Kept as the URL's plain text so that the file stays readable.
    void setUrl(const QString& key, const QUrl& value);
    void setData(const QString& key, const QByteArray& value);
    void setDictionary(const QString& key, const Dictionary& value);
    void remove(const QString& key);

protected:
    virtual QVariant raw(const QString& key) const = 0;
    virtual void store(const QString& key, const QVariant& value) = 0;
    virtual void erase(const QString& key) = 0;
};

class SettingsWriter;

// The real store: an INI file, by default $XDG_CONFIG_HOME/velnor/rz.conf,
// with every key under [General]. The file is read once; reads come from
// memory, and each write is handed at once to the process's settings writer,
// which puts it on disk within moments, in order, off the caller's thread.
class IniSettingsStore final : public SettingsStore {
public:
    IniSettingsStore();
    explicit IniSettingsStore(const QString& path);
    // Waits until every write is on disk.
    ~IniSettingsStore() override;

    QString path() const { return m_path; }
    // Returns once every write made so far is on disk: before another
    // process reads the file.
    void flush();

protected:
    QVariant raw(const QString& key) const override;
    void store(const QString& key, const QVariant& value) override;
    void erase(const QString& key) override;

private:
    // Takes damaged typed values out of the file before the settings library reads it.
    static QString checked(const QString& path);

    std::shared_ptr<SettingsWriter> m_writer;
    QString m_path;
    QHash<QString, QVariant> m_values;
};

// For unit tests of logic that keeps settings.
class MemorySettingsStore final : public SettingsStore {
protected:
    QVariant raw(const QString& key) const override { return m_values.value(key); }
    void store(const QString& key, const QVariant& value) override { m_values.insert(key, value); }
    void erase(const QString& key) override { m_values.remove(key); }

private:
    QHash<QString, QVariant> m_values;
};

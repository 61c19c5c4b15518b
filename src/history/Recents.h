#pragma once

#include "platform/Clock.h"
#include "platform/SettingsStore.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>

// What this computer remembers of the calls it handled, newest first. A call
// under way, or one that never reached the phone system, has no line on the
// server yet; this is where it shows from. The list is one JSON blob in the
// settings under "recents.v1", rewritten whole at every change.
class Recents : public QObject {
    Q_OBJECT
public:
    struct Entry {
        QUuid id;
        QString remote;
        std::optional<QString> name;
        bool incoming = false;
        QDateTime date;
        std::optional<double> duration; // seconds connected
        bool answered = false;
        std::optional<bool> inProgress; // only ever absent or true
        std::optional<QDateTime> connectedAt;
        std::optional<bool> interrupted; // the app ended while the call was alive
        std::optional<QString> failure;

        bool operator==(const Entry&) const = default;
    };

    static constexpr char storeKey[] = "recents.v1";
    static constexpr int capacity = 200;

    // Loads the stored list and marks the calls that were alive when the app
    // last ended as interrupted.
    explicit Recents(SettingsStore& settings, Clock& clock = Clock::system(),
                     QObject* parent = nullptr);

    const QList<Entry>& entries() const { return m_entries; }
    QString key() const { return QString::fromLatin1(storeKey); }

    void start(const QUuid& id, const QString& remote, const std::optional<QString>& name,
               bool incoming);
    void connected(const QUuid& id, const QDateTime& at);
    void finish(const QUuid& id, const std::optional<QString>& failure);

    // The stored form: a JSON array, dates as seconds since 2001-01-01 UTC.
    static QByteArray encode(const QList<Entry>& entries);
    // None when the bytes are not such an array, in every detail.
    static std::optional<QList<Entry>> decode(const QByteArray& bytes);

    static double referenceSeconds(const QDateTime& time);
    static QDateTime fromReferenceSeconds(double seconds);

signals:
    void entriesChanged();

private:
    void setEntries(QList<Entry> entries);
    void save();
    Entry* find(const QUuid& id);

    SettingsStore& m_settings;
    Clock& m_clock;
    QList<Entry> m_entries;
};

#pragma once

#include "api/Records.h"
#include "platform/ContactStore.h"
#include "platform/SettingsStore.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>
#include <optional>

// Copies the company directory into the desktop's address book, when the
// user wants it: one contact per colleague with a direct number, in a group of
// our own, brought up to date with every directory change in one batch.
// Only contacts it made itself are ever touched: it remembers them by the
// book's identifier and never searches the book. The state lives on the main
// thread; the book is written on a worker with a connection of its own.
class ColleagueContacts : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool enabled READ enabled NOTIFY enabledChanged)
    Q_PROPERTY(bool syncing READ syncing NOTIFY syncingChanged)
    Q_PROPERTY(QString lastError READ lastErrorText NOTIFY lastErrorChanged)
    Q_PROPERTY(bool hasLastError READ hasLastError NOTIFY lastErrorChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    // The line under the switch while it is on: "Updating…" or the count.
    Q_PROPERTY(QString statusLine READ statusLine NOTIFY statusLineChanged)
public:
    // One colleague as the export writes them.
    struct Colleague {
        QString id;
        QString name;
        std::optional<QString> email;
        QStringList numbers;               // never empty
        std::optional<QString> extension_; // carried, never written
        std::optional<QByteArray> image;

        bool operator==(const Colleague&) const = default;
    };

    // Directory id to the contact's identifier in the book.
    using Map = SettingsStore::Dictionary;
    using LoadImage = std::function<QCoro::Task<std::optional<QByteArray>>(AvatarRef)>;
    // Opens a store of its own for one piece of work; called on the worker.
    using OpenStore = std::function<std::unique_ptr<ContactStore>()>;

    // What the switch on the settings screen exports: the session's directory
    // users, the user's own id and the session's picture loader.
    struct Source {
        QList<Directory::Entry> users;
        std::optional<QString> ownId;
        LoadImage loadImage;
    };

    static constexpr char enabledKey[] = "colleagues.export";
    static constexpr char mapKey[] = "colleagues.export.map";
    // The group's name, the contacts' organization and their numbers' label.
    static constexpr char fixedText[] = "velnor RZ";

    ColleagueContacts(SettingsStore& settings, OpenStore openStore, QObject* parent = nullptr);

    bool enabled() const { return m_enabled; }
    bool syncing() const { return m_syncing; }
    const std::optional<QString>& lastError() const { return m_lastError; }
    QString lastErrorText() const { return m_lastError.value_or(QString()); }
    bool hasLastError() const { return m_lastError.has_value(); }
    int count() const { return m_count; }
    QString statusLine() const;

    // The switch. On asks the book for access first; without it the switch
    // stays off and lastError says why.
    QCoro::Task<> setEnabled(bool value, QList<Directory::Entry> users,
                             std::optional<QString> ownId, LoadImage loadImage);
    // Brings the book up to date with the directory. Does nothing while off,
    // and nothing while a sync runs: the next change picks it up.
    QCoro::Task<> sync(QList<Directory::Entry> users, std::optional<QString> ownId,
                       LoadImage loadImage);
    // Removes every contact made here.
    QCoro::Task<> removeAll();

    // The settings screen's switch, with what source() gives.
    Q_INVOKABLE void setEnabledFromScreen(bool value);
    std::function<Source()> source;

    // The colleagues of the directory that are exported, in its order: not
    // the user, and only those with a direct number. Pictures come later.
    static QList<Colleague> colleaguesOf(const QList<Directory::Entry>& users,
                                         const std::optional<QString>& ownId);

signals:
    void enabledChanged();
    void syncingChanged();
    void lastErrorChanged();
    void countChanged();
    void statusLineChanged();
    // A piece of work on the worker is over; its caller waits for its own.
    void workFinished(quint64 serial);

private:
    template <typename Result>
    QCoro::Task<Result> onWorker(std::function<Result(ContactStore&)> job);
    QCoro::Task<> exportAndStore(QList<Colleague> colleagues);
    Map storedMap() const;
    void setSyncing(bool syncing);
    void setLastError(std::optional<QString> error);
    void setCount(int count);

    SettingsStore& m_settings;
    OpenStore m_openStore;
    bool m_enabled = false;
    bool m_syncing = false;
    std::optional<QString> m_lastError;
    int m_count = 0;
    quint64 m_work = 0;
};

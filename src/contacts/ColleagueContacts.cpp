#include "contacts/ColleagueContacts.h"

#include "contacts/ColleagueExport.h"
#include "platform/Clock.h"
#include "platform/Log.h"

#include <QCoreApplication>
#include <QHash>
#include <QPointer>

#include <QCoro/QCoroSignal>

#include <thread>

#include <sys/resource.h>
#include <unistd.h>

ColleagueContacts::ColleagueContacts(SettingsStore& settings, OpenStore openStore, QObject* parent)
    : QObject(parent), m_settings(settings), m_openStore(std::move(openStore)),
      m_enabled(settings.boolean(QString::fromLatin1(enabledKey)).value_or(false)) {}

QString ColleagueContacts::statusLine() const {
    if (!m_enabled) {
        return {};
    }
    if (m_syncing) {
        return tr("Updating…");
    }
    return tr("%1 colleagues").arg(m_count);
}

QList<ColleagueContacts::Colleague>
ColleagueContacts::colleaguesOf(const QList<Directory::Entry>& users,
                                const std::optional<QString>& ownId) {
    QList<Colleague> colleagues;
    for (const auto& entry : users) {
        // The user is never exported, nor someone reachable only by extension.
        if ((ownId && entry.id == *ownId) || !entry.numbers || entry.numbers->isEmpty()) {
            continue;
        }
        colleagues.append(
            {entry.id, entry.name, entry.email, *entry.numbers, entry.extension_, std::nullopt});
    }
    return colleagues;
}

namespace {

// Starts the work on a thread of its own and posts its end to the main
// thread. Not a coroutine: this compiler's lambdas inside coroutines have
// been seen to capture a parameter's original rather than the frame's copy.
template <typename Result>
void startWorker(ColleagueContacts::OpenStore open, std::function<Result(ContactStore&)> job,
                 std::shared_ptr<std::optional<Result>> outcome, std::function<void()> finished) {
    std::thread([open, job, outcome, finished] {
        // Background work: the thread's nice value is its own on Linux, so the
        // book's work gives way to the main thread whenever both want a core.
        setpriority(PRIO_PROCESS, pid_t(gettid()), 10);
        {
            const std::unique_ptr<ContactStore> store = open();
            outcome->emplace(job(*store));
        }
        // The word comes back as an event posted to the main thread, so it
        // cannot arrive before the caller's wait is in place.
        QMetaObject::invokeMethod(QCoreApplication::instance(), finished, Qt::QueuedConnection);
    }).detach();
}

std::function<ColleagueExport::Result(ContactStore&)>
exportJob(const QList<ColleagueContacts::Colleague>& colleagues,
          const ColleagueContacts::Map& oldMap) {
    return [colleagues, oldMap](ContactStore& store) {
        return ColleagueExport::run(store, colleagues, oldMap);
    };
}

} // namespace

template <typename Result>
QCoro::Task<Result> ColleagueContacts::onWorker(std::function<Result(ContactStore&)> job) {
    auto outcome = std::make_shared<std::optional<Result>>();
    const quint64 serial = ++m_work;
    QPointer<ColleagueContacts> self(this);
    startWorker<Result>(m_openStore, job, outcome, [self, serial] {
        if (self) {
            emit self->workFinished(serial);
        }
    });
    while (co_await qCoro(this, &ColleagueContacts::workFinished) != serial) {
    }
    Result result = std::move(**outcome);
    co_return result;
}

QCoro::Task<> ColleagueContacts::setEnabled(bool value, QList<Directory::Entry> users,
                                            std::optional<QString> ownId, LoadImage loadImage) {
    if (value) {
        const auto access = co_await onWorker<ContactStore::Access>([](ContactStore& store) {
            if (store.access() == ContactStore::Access::notDetermined) {
                store.requestAccess();
            }
            return store.access();
        });
        if (access != ContactStore::Access::allowed) {
            // The switch falls back: nothing is stored.
            setLastError(tr("Allow access to contacts in Settings first."));
            co_return;
        }
    }
    if (value != m_enabled) {
        m_enabled = value;
        emit enabledChanged();
        emit statusLineChanged();
    }
    m_settings.setBoolean(QString::fromLatin1(enabledKey), value);
    if (value) {
        co_await sync(users, ownId, loadImage);
    } else {
        co_await removeAll();
    }
}

QCoro::Task<> ColleagueContacts::sync(QList<Directory::Entry> users, std::optional<QString> ownId,
                                      LoadImage loadImage) {
    if (!m_enabled || m_syncing) {
        co_return;
    }
    setSyncing(true);
    QList<Colleague> colleagues = colleaguesOf(users, ownId);
    QHash<QString, AvatarRef> avatars;
    for (const auto& entry : users) {
        if (entry.avatar) {
            avatars.insert(entry.id, *entry.avatar);
        }
    }
    // Pictures one after the other; the loader's caches make repeats cheap.
    // Pictures already in memory come back without a wait, so the loop gives
    // the event loop a turn now and then rather than hold it for a thousand.
    constexpr int perTurn = 100;
    int sinceTurn = 0;
    for (auto& colleague : colleagues) {
        if (++sinceTurn == perTurn) {
            sinceTurn = 0;
            co_await Clock::system().sleep(std::chrono::milliseconds(0));
        }
        const auto avatar = avatars.constFind(colleague.id);
        if (avatar != avatars.cend() && loadImage) {
            colleague.image = co_await loadImage(*avatar);
        }
    }
    co_await exportAndStore(std::move(colleagues));
    setSyncing(false);
}

QCoro::Task<> ColleagueContacts::removeAll() {
    co_await exportAndStore({});
}

QCoro::Task<> ColleagueContacts::exportAndStore(QList<Colleague> colleagues) {
    const Map oldMap = storedMap();
    const auto result = co_await onWorker<ColleagueExport::Result>(exportJob(colleagues, oldMap));
    m_settings.setDictionary(QString::fromLatin1(mapKey), result.map);
    setCount(int(result.map.size()));
    if (result.error) {
        Log::error(Log::app,
                   QStringLiteral("Colleagues could not be written to the address book: %1")
                       .arg(*result.error));
    }
    setLastError(result.error);
}

void ColleagueContacts::setEnabledFromScreen(bool value) {
    const Source given = source ? source() : Source{};
    setEnabled(value, given.users, given.ownId, given.loadImage);
}

ColleagueContacts::Map ColleagueContacts::storedMap() const {
    return m_settings.dictionary(QString::fromLatin1(mapKey)).value_or(Map{});
}

void ColleagueContacts::setSyncing(bool syncing) {
    if (syncing != m_syncing) {
        m_syncing = syncing;
        emit syncingChanged();
        emit statusLineChanged();
    }
}

void ColleagueContacts::setLastError(std::optional<QString> error) {
    if (error != m_lastError) {
        m_lastError = std::move(error);
        emit lastErrorChanged();
    }
}

void ColleagueContacts::setCount(int count) {
    if (count != m_count) {
        m_count = count;
        emit countChanged();
        emit statusLineChanged();
    }
}

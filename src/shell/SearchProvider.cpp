#include "shell/SearchProvider.h"

#include "history/LauncherQuery.h"
#include "platform/Log.h"
#include "session/Session.h"
#include "shell/LauncherPresence.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMetaType>

SearchProvider::SearchProvider(Session* session, QObject* parent)
    : QObject(parent), m_session(session) {
    qDBusRegisterMetaType<QList<QVariantMap>>();
}

bool SearchProvider::publish(QDBusConnection& bus) {
    if (!bus.registerObject(QString::fromLatin1(objectPath), this,
                            QDBusConnection::ExportAllSlots)) {
        Log::error(
            Log::app,
            QStringLiteral("Cannot export the search provider: %1").arg(bus.lastError().message()));
        return false;
    }
    return true;
}

// Each question reads the file again: the directory is not kept twice in memory.
QStringList SearchProvider::GetInitialResultSet(const QStringList& terms) {
    return LauncherQuery::ids(LauncherQuery::search(DirectoryCache::read(), terms));
}

QStringList SearchProvider::GetSubsearchResultSet(const QStringList& previousResults,
                                                  const QStringList& terms) {
    return LauncherQuery::ids(
        LauncherQuery::narrow(DirectoryCache::read(), previousResults, terms));
}

QList<QVariantMap> SearchProvider::GetResultMetas(const QStringList& identifiers) {
    QList<QVariantMap> metas;
    for (const auto& contact : DirectoryCache::entitiesFor(identifiers)) {
        metas.append({
            {QStringLiteral("id"), contact.id},
            {QStringLiteral("name"), contact.name},
            {QStringLiteral("description"),
             LauncherQuery::description(contact, launcherPresence(m_session, contact.id))},
            {QStringLiteral("gicon"), QStringLiteral("net.velnor.rz")},
            {QStringLiteral("clipboardText"), contact.id},
        });
    }
    return metas;
}

void SearchProvider::ActivateResult(const QString& identifier, const QStringList&, uint) {
    const auto found = DirectoryCache::entitiesFor(QStringList{identifier});
    if (!found.isEmpty()) {
        DirectoryCache::perform(found.first());
    }
}

void SearchProvider::LaunchSearch(const QStringList& terms, uint) {
    if (openSearch) {
        openSearch(terms.join(u' '));
    }
}

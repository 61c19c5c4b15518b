#include "shell/KRunnerPlugin.h"

#include "history/LauncherQuery.h"
#include "history/SearchText.h"
#include "platform/Log.h"
#include "session/Session.h"
#include "shell/LauncherPresence.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMetaType>

QDBusArgument& operator<<(QDBusArgument& argument, const RunnerMatch& match) {
    argument.beginStructure();
    argument << match.id << match.text << match.iconName << match.type << match.relevance
             << match.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, RunnerMatch& match) {
    argument.beginStructure();
    argument >> match.id >> match.text >> match.iconName >> match.type >> match.relevance >>
        match.properties;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const RunnerAction& action) {
    argument.beginStructure();
    argument << action.id << action.text << action.iconName;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, RunnerAction& action) {
    argument.beginStructure();
    argument >> action.id >> action.text >> action.iconName;
    argument.endStructure();
    return argument;
}

KRunnerPlugin::KRunnerPlugin(Session* session, QObject* parent)
    : QObject(parent), m_session(session) {
    qDBusRegisterMetaType<RunnerMatch>();
    qDBusRegisterMetaType<RunnerMatches>();
    qDBusRegisterMetaType<RunnerAction>();
    qDBusRegisterMetaType<RunnerActions>();
}

bool KRunnerPlugin::publish(QDBusConnection& bus) {
    if (!bus.registerObject(QString::fromLatin1(objectPath), this,
                            QDBusConnection::ExportAllSlots)) {
        Log::error(
            Log::app,
            QStringLiteral("Cannot export the KRunner plugin: %1").arg(bus.lastError().message()));
        return false;
    }
    return true;
}

RunnerActions KRunnerPlugin::Actions() {
    return {};
}

RunnerMatches KRunnerPlugin::Match(const QString& query) {
    // KRunner hands the whole line; its words each narrow the answer.
    const auto found =
        LauncherQuery::search(DirectoryCache::read(), query.split(u' ', Qt::SkipEmptyParts));
    const QString folded = SearchText::fold(query.trimmed());
    RunnerMatches matches;
    for (const auto& contact : found) {
        const bool exact =
            contact.id == query.trimmed() || SearchText::fold(contact.name) == folded;
        RunnerMatch match;
        match.id = contact.id;
        match.text = contact.name;
        match.iconName = QStringLiteral("net.velnor.rz");
        match.type = exact ? exactMatch : possibleMatch;
        match.relevance = exact ? 1.0 : 0.5;
        match.properties.insert(
            QStringLiteral("subtext"),
            LauncherQuery::description(contact, launcherPresence(m_session, contact.id)));
        matches.append(match);
    }
    return matches;
}

void KRunnerPlugin::Run(const QString& matchId, const QString&) {
    const auto found = DirectoryCache::entitiesFor(QStringList{matchId});
    if (!found.isEmpty()) {
        DirectoryCache::perform(found.first());
    }
}

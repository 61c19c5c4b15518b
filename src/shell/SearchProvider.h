#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantMap>
#include <functional>

class QDBusConnection;
class Session;

// GNOME Shell's search of the app: colleagues, groups and call flows of the
// directory file, found as a person types in the overview, and called when
// one is chosen. Served by the running app on its bus name, at
// /net/velnor/rz/SearchProvider (share/gnome-shell/search-providers).
class SearchProvider : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Shell.SearchProvider2")
public:
    static constexpr char objectPath[] = "/net/velnor/rz/SearchProvider";

    // The session gives presence to the results; without one they have none.
    explicit SearchProvider(Session* session, QObject* parent = nullptr);

    // Exports the object; false (and a log line) when it could not be.
    bool publish(QDBusConnection& bus);

    // When a search is opened in the app rather than a result called.
    std::function<void(const QString& query)> openSearch;

public slots:
    QStringList GetInitialResultSet(const QStringList& terms);
    QStringList GetSubsearchResultSet(const QStringList& previousResults, const QStringList& terms);
    QList<QVariantMap> GetResultMetas(const QStringList& identifiers);
    void ActivateResult(const QString& identifier, const QStringList& terms, uint timestamp);
    void LaunchSearch(const QStringList& terms, uint timestamp);

private:
    QPointer<Session> m_session;
};

#pragma once

#include <QDBusArgument>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

class QDBusConnection;
class Session;

// One answer to KRunner: (sssida{sv}).
struct RunnerMatch {
    QString id;
    QString text;
    QString iconName;
    int type = 0; // how sure: 100 exact, 30 possible
    double relevance = 0;
    QVariantMap properties; // "subtext": the line under the text
};
// An extra action KRunner may offer on a match: (sss). None are offered.
struct RunnerAction {
    QString id;
    QString text;
    QString iconName;
};
using RunnerMatches = QList<RunnerMatch>;
using RunnerActions = QList<RunnerAction>;
Q_DECLARE_METATYPE(RunnerMatch)
Q_DECLARE_METATYPE(RunnerAction)

QDBusArgument& operator<<(QDBusArgument& argument, const RunnerMatch& match);
const QDBusArgument& operator>>(const QDBusArgument& argument, RunnerMatch& match);
QDBusArgument& operator<<(QDBusArgument& argument, const RunnerAction& action);
const QDBusArgument& operator>>(const QDBusArgument& argument, RunnerAction& action);

// KRunner's search of the app (Plasma's launcher and overview): the same
// answers as GNOME Shell's, at /net/velnor/rz/runner (share/krunner/dbusplugins).
class KRunnerPlugin : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.krunner1")
public:
    static constexpr char objectPath[] = "/net/velnor/rz/runner";
    static constexpr int exactMatch = 100;
    static constexpr int possibleMatch = 30;

    explicit KRunnerPlugin(Session* session, QObject* parent = nullptr);

    bool publish(QDBusConnection& bus);

public slots:
    RunnerActions Actions();
    RunnerMatches Match(const QString& query);
    void Run(const QString& matchId, const QString& actionId);

private:
    QPointer<Session> m_session;
};

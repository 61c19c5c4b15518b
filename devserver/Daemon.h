#pragma once

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace rzdev {

// One program of the phone system, supervised: it runs in a process group of
// its own (so that stopping it also stops the workers it forks), dies with
// rz-devserver even when rz-devserver is killed, and keeps the tail of its
// output for error messages.
class Daemon : public QObject {
    Q_OBJECT
public:
    Daemon(QString name, QObject* parent = nullptr);
    ~Daemon() override;

    void start(const QString& program, const QStringList& arguments,
               const QString& workingDirectory = {});
    // The environment of the next start, in place of rz-devserver's own.
    void setEnvironment(const QProcessEnvironment& environment);
    // SIGTERM to the group, SIGKILL after the grace time.
    void stop(int graceMs = 1500);
    bool running() const { return m_process.state() != QProcess::NotRunning; }
    qint64 pid() const { return m_process.processId(); }
    QString name() const { return m_name; }
    QByteArray output() const { return m_output; }

signals:
    void exited(int code);
    void line(const QByteArray& text);

private:
    QString m_name;
    QProcess m_process;
    QByteArray m_output;
    QByteArray m_partial;
    bool m_stopping = false;
    bool m_echo = false;
};

} // namespace rzdev

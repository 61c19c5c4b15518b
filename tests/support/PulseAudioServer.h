#pragma once

#include "Services.h"

#include <QStringList>
#include <QTemporaryDir>

// A PulseAudio daemon of its own for one test: private runtime and home
// folders, no hardware, the null sinks and sources the test loads. This
// process is pointed at it through PULSE_SERVER while the object lives; the
// daemon is stopped by its PID when it goes.
class PulseAudioServer {
public:
    // `script` lines run after the native protocol is loaded, e.g.
    // "load-module module-null-sink sink_name=a rate=48000 channels=1 norewinds=1".
    explicit PulseAudioServer(const QStringList& script);
    ~PulseAudioServer();

    QString address() const { return m_address; }
    qint64 pid() const { return m_daemon.pid(); }

    // Stops the daemon by its PID and starts it again with the same script,
    // as when the sound server is restarted under a running call.
    void restart();

    // Runs pactl against this daemon; throws with its error output on failure.
    QString pactl(const QStringList& arguments);
    // Gives the module's index.
    int loadModule(const QString& name, const QStringList& arguments);
    void unloadModule(int index);
    void setDefaultSink(const QString& name) { pactl({"set-default-sink", name}); }
    void setDefaultSource(const QString& name) { pactl({"set-default-source", name}); }

private:
    void startDaemon();

    QTemporaryDir m_dir;
    QString m_script;
    QString m_address;
    QProcessEnvironment m_environment;
    ChildProcess m_daemon;
    QByteArray m_savedServer;
    bool m_hadServer = false;
};

#pragma once

#include "Services.h"

#include <QStringList>
#include <QTemporaryDir>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

// A PulseAudio daemon of its own for one test: private runtime and home
// folders, no hardware, the null sinks and sources the test loads. This
// process is pointed at it through PULSE_SERVER while the object lives; the
// daemon is stopped by its PID when it goes.
//
// The same server can be PipeWire instead (pipewire, wireplumber and
// pipewire-pulse on a private session bus), as most current desktops run it.
// The script's lines then go through pactl; a sine source, which
// pipewire-pulse does not have, is a pipe source that sox feeds the tone.
class PulseAudioServer {
public:
    enum class Kind { pulseaudio, pipewire };
    // Which server every PulseAudioServer of this program runs.
    static void use(Kind kind);
    static Kind kind();

    // `script` lines run after the native protocol is loaded, e.g.
    // "load-module module-null-sink sink_name=a rate=48000 channels=1 norewinds=1".
    explicit PulseAudioServer(const QStringList& script);
    ~PulseAudioServer();

    QString address() const { return m_address; }
    // The process that speaks the PulseAudio protocol: pulseaudio or pipewire-pulse.
    qint64 pid() const { return m_daemon.pid(); }

    // Stops the daemon by its PID and starts it again with the same script,
    // as when the sound server is restarted under a running call.
    void restart();

    // Runs pactl against this daemon; throws with its error output on failure.
    QString pactl(const QStringList& arguments);
    // Seconds of what a source (a sink's monitor) heard, at 8000 Hz mono;
    // `meanwhile` runs between reads, for a caller whose own events must go on.
    static std::vector<std::int16_t> record(const QString& source, double seconds,
                                            const std::function<void()>& meanwhile = {});
    // The loudness of samples, as their RMS.
    static double rms(const std::vector<std::int16_t>& samples);
    // Gives the module's index.
    int loadModule(const QString& name, const QStringList& arguments);
    void unloadModule(int index);
    // Return once the server reports the new default.
    void setDefaultSink(const QString& name);
    void setDefaultSource(const QString& name);

private:
    void startDaemon();
    void startPipeWire();
    void stopPipeWire();
    void runScript();
    int loadSineSource(const QStringList& arguments);
    void waitForDefault(const QString& query, const QString& name);
    // Waits until pactl succeeds against the server; throws after the bound.
    void waitForServer(ChildProcess& daemon);

    QTemporaryDir m_dir;
    QString m_script;
    QString m_address;
    QProcessEnvironment m_environment;
    ChildProcess m_daemon;
    QStringList m_lines;
    // PipeWire only.
    std::unique_ptr<PrivateBus> m_bus;
    ChildProcess m_pipewire;
    ChildProcess m_wireplumber;
    std::map<int, std::unique_ptr<ChildProcess>> m_toneFeeders; // by module index
    QByteArray m_savedServer;
    bool m_hadServer = false;
};

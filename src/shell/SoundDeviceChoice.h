#pragma once

#include "platform/SettingsStore.h"
#include "telephony/DeviceChoice.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>
#include <memory>
#include <string>

class PulseDeviceList;
struct SoundDevices;

// The ringing device, and the call's output and input, each chosen apart by
// the sound server's device name and kept in the settings; "follow the system
// default" (no name) unless the user chose. A chosen device that is away is
// replaced by the default until a device of that name comes back. The list
// comes from the sound server on a thread of its own; nothing here waits on it.
class SoundDeviceChoice : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool listed READ listed NOTIFY devicesChanged)
    Q_PROPERTY(QVariantList ringOutputs READ ringOutputs NOTIFY devicesChanged)
    Q_PROPERTY(QVariantList callOutputs READ callOutputs NOTIFY devicesChanged)
    Q_PROPERTY(QVariantList callInputs READ callInputs NOTIFY devicesChanged)
    Q_PROPERTY(QString ringOutput READ ringOutput WRITE setRingOutput NOTIFY devicesChanged)
    Q_PROPERTY(QString callOutput READ callOutput WRITE setCallOutput NOTIFY devicesChanged)
    Q_PROPERTY(QString callInput READ callInput WRITE setCallInput NOTIFY devicesChanged)
public:
    static constexpr char ringOutputKey[] = "audio.ringOutput";
    static constexpr char callOutputKey[] = "audio.callOutput";
    static constexpr char callInputKey[] = "audio.callInput";

    // Where the devices in use are set: the call's output and input, and the ring's output.
    using ApplyCall = std::function<void(const QString& output, const QString& input)>;
    using ApplyRing = std::function<void(const QString& output)>;

    explicit SoundDeviceChoice(SettingsStore& settings, QObject* parent = nullptr);
    ~SoundDeviceChoice() override;

    void setApply(ApplyCall call, ApplyRing ring);
    // Starts following the sound server (`server` empty: the usual one).
    void follow(const std::string& server = {});
    // A new list from the sound server.
    void update(const QList<DeviceChoice::Device>& outputs,
                const QList<DeviceChoice::Device>& inputs, const QString& defaultOutput,
                const QString& defaultInput);

    bool listed() const { return m_listed; }
    QVariantList ringOutputs() const;
    QVariantList callOutputs() const;
    QVariantList callInputs() const;

    // The chosen names; empty follows the system's default.
    QString ringOutput() const { return m_ringOutput; }
    QString callOutput() const { return m_callOutput; }
    QString callInput() const { return m_callInput; }
    void setRingOutput(const QString& name);
    void setCallOutput(const QString& name);
    void setCallInput(const QString& name);

    // The devices opened now; empty where the default is followed.
    QString effectiveRingOutput() const;
    QString effectiveCallOutput() const;
    QString effectiveCallInput() const;

signals:
    void devicesChanged();

private:
    void choose(QString& field, const char* key, const QString& name);
    void apply();

    SettingsStore& m_settings;
    ApplyCall m_applyCall;
    ApplyRing m_applyRing;
    std::unique_ptr<PulseDeviceList> m_list;
    bool m_listed = false;
    QList<DeviceChoice::Device> m_outputs;
    QList<DeviceChoice::Device> m_inputs;
    QString m_defaultOutput;
    QString m_defaultInput;
    QString m_ringOutput;
    QString m_callOutput;
    QString m_callInput;
};

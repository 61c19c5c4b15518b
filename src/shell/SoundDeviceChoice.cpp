#include "shell/SoundDeviceChoice.h"

#include "audio/PulseDeviceList.h"

#include <QVariantMap>

namespace {

QList<DeviceChoice::Device> devicesOf(const std::vector<SoundDevice>& list) {
    QList<DeviceChoice::Device> devices;
    for (const SoundDevice& device : list) {
        devices.append(
            {QString::fromStdString(device.name), QString::fromStdString(device.description)});
    }
    return devices;
}

QVariantList rowsOf(const QList<DeviceChoice::Device>& available, const QString& defaultName,
                    const QString& chosen) {
    QVariantList rows;
    for (const DeviceChoice::Row& row : DeviceChoice::rows(available, defaultName, chosen)) {
        rows.append(QVariantMap{{QStringLiteral("name"), row.name},
                                {QStringLiteral("label"), row.label},
                                {QStringLiteral("present"), row.present}});
    }
    return rows;
}

} // namespace

SoundDeviceChoice::SoundDeviceChoice(SettingsStore& settings, QObject* parent)
    : QObject(parent), m_settings(settings) {
    m_ringOutput = settings.text(QString::fromLatin1(ringOutputKey)).value_or(QString());
    m_callOutput = settings.text(QString::fromLatin1(callOutputKey)).value_or(QString());
    m_callInput = settings.text(QString::fromLatin1(callInputKey)).value_or(QString());
}

// The list's thread stops first, so no news arrives for a choice that is gone.
SoundDeviceChoice::~SoundDeviceChoice() {
    m_list.reset();
}

void SoundDeviceChoice::setApply(ApplyCall call, ApplyRing ring) {
    m_applyCall = std::move(call);
    m_applyRing = std::move(ring);
    apply();
}

void SoundDeviceChoice::follow(const std::string& server) {
    m_list = std::make_unique<PulseDeviceList>(
        server, "velnor RZ devices", [this](const SoundDevices& devices) {
            QList<DeviceChoice::Device> outputs = devicesOf(devices.outputs);
            QList<DeviceChoice::Device> inputs = devicesOf(devices.inputs);
            const QString defaultOutput = QString::fromStdString(devices.defaultOutput);
            const QString defaultInput = QString::fromStdString(devices.defaultInput);
            QMetaObject::invokeMethod(
                this,
                [this, outputs, inputs, defaultOutput, defaultInput] {
                    update(outputs, inputs, defaultOutput, defaultInput);
                },
                Qt::QueuedConnection);
        });
}

void SoundDeviceChoice::update(const QList<DeviceChoice::Device>& outputs,
                               const QList<DeviceChoice::Device>& inputs,
                               const QString& defaultOutput, const QString& defaultInput) {
    m_listed = true;
    m_outputs = outputs;
    m_inputs = inputs;
    m_defaultOutput = defaultOutput;
    m_defaultInput = defaultInput;
    apply();
    emit devicesChanged();
}

QVariantList SoundDeviceChoice::ringOutputs() const {
    return rowsOf(m_outputs, m_defaultOutput, m_ringOutput);
}

QVariantList SoundDeviceChoice::callOutputs() const {
    return rowsOf(m_outputs, m_defaultOutput, m_callOutput);
}

QVariantList SoundDeviceChoice::callInputs() const {
    return rowsOf(m_inputs, m_defaultInput, m_callInput);
}

void SoundDeviceChoice::setRingOutput(const QString& name) {
    choose(m_ringOutput, ringOutputKey, name);
}

void SoundDeviceChoice::setCallOutput(const QString& name) {
    choose(m_callOutput, callOutputKey, name);
}

void SoundDeviceChoice::setCallInput(const QString& name) {
    choose(m_callInput, callInputKey, name);
}

void SoundDeviceChoice::choose(QString& field, const char* key, const QString& name) {
    if (field == name) {
        return;
    }
    field = name;
    if (name.isEmpty()) {
        m_settings.remove(QString::fromLatin1(key));
    } else {
        m_settings.setText(QString::fromLatin1(key), name);
    }
    apply();
    emit devicesChanged();
}

QString SoundDeviceChoice::effectiveRingOutput() const {
    return DeviceChoice::effective(m_ringOutput, m_outputs);
}

QString SoundDeviceChoice::effectiveCallOutput() const {
    return DeviceChoice::effective(m_callOutput, m_outputs);
}

QString SoundDeviceChoice::effectiveCallInput() const {
    return DeviceChoice::effective(m_callInput, m_inputs);
}

void SoundDeviceChoice::apply() {
    if (m_applyCall) {
        m_applyCall(effectiveCallOutput(), effectiveCallInput());
    }
    if (m_applyRing) {
        m_applyRing(effectiveRingOutput());
    }
}

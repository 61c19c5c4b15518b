#include "shell/CanberraRinger.h"

#include "audio/Wav.h"
#include "platform/Log.h"

#include <QGuiApplication>

#include <canberra.h>

#include <cmath>
#include <numbers>

namespace {

// Every ring of a call shares this id, so that silence() cuts whichever plays.
constexpr uint32_t ringId = 1;

// Two short bursts of 440 + 480 Hz, the sound people know as a phone ringing.
WavData fallbackTone() {
    constexpr double rate = 16000;
    WavData tone{{rate, 1}, {}};
    const auto burst = [&](double seconds) {
        const int count = int(seconds * rate);
        for (int i = 0; i < count; ++i) {
            const double t = i / rate;
            const double fade = std::min({1.0, i / 160.0, (count - i) / 160.0});
            tone.samples.push_back(float(0.25 * fade *
                                         (std::sin(2 * std::numbers::pi * 440 * t) +
                                          std::sin(2 * std::numbers::pi * 480 * t))));
        }
    };
    const auto pause = [&](double seconds) {
        tone.samples.insert(tone.samples.end(), size_t(seconds * rate), 0.0f);
    };
    burst(0.4);
    pause(0.2);
    burst(0.4);
    return tone;
}

} // namespace

CanberraRinger::CanberraRinger(QString eventId) : m_eventId(std::move(eventId)) {
    const int created = ca_context_create(&m_context);
    if (created != CA_SUCCESS) {
        m_context = nullptr;
        Log::error(
            Log::call,
            QStringLiteral("No event sounds: %1").arg(QString::fromUtf8(ca_strerror(created))));
        return;
    }
    ca_context_change_props(m_context, CA_PROP_APPLICATION_NAME,
                            qPrintable(QGuiApplication::applicationDisplayName()),
                            CA_PROP_APPLICATION_ID, "net.velnor.rz", CA_PROP_APPLICATION_ICON_NAME,
                            "net.velnor.rz", nullptr);
}

CanberraRinger::~CanberraRinger() {
    if (m_context) {
        ca_context_destroy(m_context);
    }
}

void CanberraRinger::setDevice(const QString& name) {
    if (!m_context || name == m_device) {
        return;
    }
    // The sound server's sink name; canberra's PulseAudio driver opens its
    // streams there from the next sound on.
    const QByteArray device = name.toUtf8();
    const int changed =
        ca_context_change_device(m_context, name.isEmpty() ? nullptr : device.constData());
    if (changed != CA_SUCCESS) {
        Log::error(Log::call, QStringLiteral("The ringing device could not be set: %1")
                                  .arg(QString::fromUtf8(ca_strerror(changed))));
        return;
    }
    m_device = name;
}

void CanberraRinger::ring() {
    if (!m_context) {
        return;
    }
    const int played = ca_context_play(m_context, ringId, CA_PROP_EVENT_ID,
                                       m_eventId.toUtf8().constData(), CA_PROP_EVENT_DESCRIPTION,
                                       "Incoming call", CA_PROP_MEDIA_ROLE, "event", nullptr);
    m_usedFallback = false;
    if (played == CA_SUCCESS) {
        return;
    }
    if (played == CA_ERROR_NOTFOUND && playFallback()) {
        m_usedFallback = true;
        return;
    }
    Log::error(Log::call, QStringLiteral("The ring could not be played: %1")
                              .arg(QString::fromUtf8(ca_strerror(played))));
}

void CanberraRinger::silence() {
    if (m_context) {
        ca_context_cancel(m_context, ringId);
    }
}

bool CanberraRinger::playFallback() {
    if (m_fallbackFile.isEmpty() && m_dir.isValid()) {
        const QString file = m_dir.filePath(QStringLiteral("ring.wav"));
        if (writeWav(file.toStdString(), fallbackTone())) {
            m_fallbackFile = file;
        }
    }
    if (m_fallbackFile.isEmpty()) {
        return false;
    }
    return ca_context_play(m_context, ringId, CA_PROP_MEDIA_FILENAME,
                           m_fallbackFile.toUtf8().constData(), CA_PROP_EVENT_DESCRIPTION,
                           "Incoming call", CA_PROP_MEDIA_ROLE, "event", nullptr) == CA_SUCCESS;
}

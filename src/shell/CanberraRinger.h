#pragma once

#include "shell/CallRinger.h"

#include <QString>
#include <QTemporaryDir>

struct ca_context;

// The ring through the desktop's sound theme ("phone-incoming-call" of the
// freedesktop theme and its heirs), played by libcanberra into the sound
// server. Where the theme has no such sound, a tone of our own is played
// instead, so that a call is never silent for want of a file.
class CanberraRinger : public CallRinger {
public:
    static constexpr char themeSound[] = "phone-incoming-call";

    // `eventId` is the theme's sound to ask for; the default is the ring.
    explicit CanberraRinger(QString eventId = QString::fromLatin1(themeSound));
    ~CanberraRinger() override;
    CanberraRinger(const CanberraRinger&) = delete;
    CanberraRinger& operator=(const CanberraRinger&) = delete;

    void ring() override;
    void silence() override;

    // The sound server's output the ring plays on; empty follows the default
    // (or the desktop's own choice for event sounds).
    void setDevice(const QString& name);
    QString device() const { return m_device; }

    // Whether the last ring had to use the tone of our own.
    bool usedFallback() const { return m_usedFallback; }

private:
    bool playFallback();

    QString m_eventId;
    QString m_device;
    ca_context* m_context = nullptr;
    QTemporaryDir m_dir;
    QString m_fallbackFile;
    bool m_usedFallback = false;
};

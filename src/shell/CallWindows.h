#pragma once

#include "platform/Clock.h"
#include "platform/SettingsStore.h"
#include "shell/CallNotifier.h"
#include "shell/CallRinger.h"
#include "telephony/Phone.h"

#include <QObject>
#include <QTimer>
#include <QUuid>

#include <chrono>
#include <functional>
#include <optional>

class Live;

// Turns the presence of a call into what a person sees and hears: opens the
// call window when a call arrives, closes it when the last call is gone, and
// while a call is incoming rings every 2.5 seconds and shows the notification
// whose "Answer" and "Decline" act on the call. It also keeps the call
// window's two stored choices, the mini bar and the statistics.
class CallWindows : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool miniBar READ miniBar WRITE setMiniBar NOTIFY miniBarChanged)
    Q_PROPERTY(bool showStats READ showStats WRITE setShowStats NOTIFY showStatsChanged)
    Q_PROPERTY(bool ringing READ ringing NOTIFY ringingChanged)
    // The server says the call in front is being recorded.
    Q_PROPERTY(bool callRecorded READ callRecorded NOTIFY callRecordedChanged)
    // Whether this user may start a recording; the server action that would
    // say so is not part of the app yet, so it reads as false.
    Q_PROPERTY(bool canRecord READ canRecord CONSTANT)
    // The one-line state of the call in front; the timer counts while connected.
    Q_PROPERTY(QString statusLine READ statusLine NOTIFY statusLineChanged)
public:
    static constexpr char windowId[] = "call";
    static constexpr char miniBarKey[] = "call.miniBar";
    static constexpr char showStatsKey[] = "call.showStats";
    static constexpr std::chrono::milliseconds ringInterval{2500};

    CallWindows(Phone& phone, SettingsStore& settings, CallNotifier& notifier, CallRinger& ringer,
                Clock& clock = Clock::system(), QObject* parent = nullptr);

    // "Calling…", "Ringing…", "Incoming call", "Transferring…", "On hold", the
    // time since the call connected as minutes and two-digit seconds, or nothing.
    static QString statusLineOf(const Phone::ActiveCall& call, const QDateTime& now);

    // Set by the shell, which alone can make windows.
    std::function<void(const QString& id)> open;
    std::function<void(const QString& id)> dismiss;
    std::function<void()> openSettings;
    // Marks the call window as wanting attention (the taskbar's urgency).
    std::function<void()> requestAttention;
    // Brings the call window to the front; the token is the notification
    // server's xdg-activation token on Wayland, empty elsewhere.
    std::function<void(const QByteArray& activationToken)> activate;

    // Runs once: from then on every change of the phone's call is followed.
    void start();
    // Brings the window, the ring and the notification in line with the call.
    void sync();
    // Follows the server's view of the current call, for the record pill.
    void followLive(Live& live);

    bool started() const { return m_started; }
    const std::optional<QUuid>& shownCall() const { return m_shownCall; }
    bool ringing() const { return m_ringer.isActive(); }
    bool miniBar() const { return m_miniBar; }
    void setMiniBar(bool miniBar);
    bool showStats() const { return m_showStats; }
    void setShowStats(bool showStats);
    bool callRecorded() const { return m_callRecorded; }
    bool canRecord() const { return false; }
    QString statusLine() const;

public slots:
    // A notification action: "answer", "decline", or anything else (the default click).
    void handleAction(const QString& action, const QByteArray& activationToken = {});

signals:
    void miniBarChanged();
    void showStatsChanged();
    void ringingChanged();
    void callRecordedChanged();
    void statusLineChanged();

private:
    void ring(const Phone::ActiveCall& call);
    void stopRinging();
    void setCallRecorded(bool recorded);

    Phone& m_phone;
    SettingsStore& m_settings;
    CallNotifier& m_notifier;
    CallRinger& m_sound;
    Clock& m_clock;
    QTimer m_tick;
    bool m_started = false;
    std::optional<QUuid> m_shownCall;
    QTimer m_ringer;
    bool m_miniBar = false;
    bool m_showStats = false;
    bool m_callRecorded = false;
};

#pragma once

#include "contacts/ColleagueContacts.h"
#include "contacts/PhoneContacts.h"
#include "history/MissedCallWatch.h"
#include "platform/SecureStore.h"
#include "platform/SettingsStore.h"
#include "session/Session.h"
#include "shell/Appearance.h"
#include "shell/CallInhibitor.h"
#include "shell/CallWindows.h"
#include "shell/CanberraRinger.h"
#include "shell/DesktopNotifications.h"
#include "shell/MediaPause.h"
#include "shell/MissedCallNotifications.h"
#include "shell/ShellState.h"
#include "shell/SystemWakeups.h"
#include "telephony/Phone.h"

#include <QObject>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QUrl>

#include <QCoro/QCoroTask>

#include <memory>

class TrayIcon;
class HeadsetControl;
class HeadsetFinder;
class GlobalShortcuts;
class PulseBackend;

// The app's one long-lived value in the GUI process: it makes the stores and
// the session, loads the fonts, keeps the palette in step with the desktop,
// shows the main window and takes the links the desktop hands over.
class Application : public QObject {
    Q_OBJECT
public:
    // With the desktop's own stores: the settings file and the Secret Service.
    explicit Application(QObject* parent = nullptr);
    // With stores given by the caller, who keeps them alive.
    Application(SettingsStore& settings, SecureStore& secrets, QObject* parent = nullptr);
    ~Application() override;

    Session& session() { return *m_session; }
    Phone& phone() { return *m_phone; }
    PhoneContacts& contacts() { return *m_contacts; }
    // --- colleagues in contacts ---
    ColleagueContacts& colleagues() { return *m_colleagues; }
    // --- end of colleagues in contacts ---

    // Loads the main window; false (and a log line) when QML failed to load.
    bool showMainWindow();
    // Leaves the loading state: a kept sign-in is restored.
    void start();
    // A link from the desktop: the sign-in redirect, or a number to dial.
    void handleUrl(const QUrl& url);
    // The same from a link's text, as a second start or the bus hands it over.
    void handleLink(const QString& link);
    // Brings the main window to the front, for a second launch or a link.
    void raiseMainWindow();

    QQuickWindow* mainWindow() const;
    Appearance& appearance() { return m_appearance; }
    // The QML palette (the Theme singleton), once the main window has loaded;
    // its `dark` follows appearance().
    QObject* palette();

    // The application's identity (name, desktop file, icon) and its controls'
    // style; called before the QGuiApplication is made.
    static void describe();
    // The bundled IBM Plex Sans cuts; false when one of them did not load.
    static bool loadFonts();

    // --- Live updates ---
    // The phone's active call changed: live updates follow the server's view of it.
    void activeSipCallIdChanged(const std::optional<QString>& sipCallId);
    SystemWakeups& wakeups() { return m_wakeups; }
    // --- end of live updates ---
    // --- main window and tray ---
    ShellState& shellState() { return *m_shellState; }
    // The tray icon, present while it is up.
    TrayIcon* tray() const { return m_tray.get(); }
    // With the keep-running setting on, the app stays after its window
    // closes (in the tray where the desktop has one); off, it quits.
    void applyKeepInTray();
    // The settings window, made on first use; never a second one.
    void openSettings();
    QQuickWindow* settingsWindow() const { return m_settingsWindow.get(); }
    // --- end of main window and tray ---
    // The engine's log filter: RUST_LOG when set, even empty, else the default.
    static std::string coreLogFilter();
    static constexpr char caFileKey[] = "sip.caFile";

    // --- call windows ---
    CallWindows& callWindows() { return *m_callWindows; }
    DesktopNotifications& notifications() { return *m_notifications; }
    CanberraRinger& ringer() { return *m_ringer; }
    // The call window while a call is shown in it, else null.
    QQuickWindow* callWindow() const {
        return m_callWindow && m_callWindow->isVisible() ? m_callWindow.get() : nullptr;
    }
    // --- end of call windows ---
    // --- call history ---
    MissedCallNotifications& missedCallNotifications() { return *m_missedNotifications; }
    // --- end of call history ---

private:
    void init(SettingsStore& settings, SecureStore& secrets);
    // --- call windows ---
    void initCallWindows();
    void initHeadsets();
    void initGlobalShortcuts();
    void openCallWindow();
    void closeCallWindow();
    void activateCallWindow(const QByteArray& activationToken);
    // --- end of call windows ---
    // --- call history ---
    void initMissedCalls();
    // --- end of call history ---
    // --- colleagues in contacts ---
    void initColleagues();
    // --- end of colleagues in contacts ---
    // --- settings window ---
    void initSoundDevices();
    // --- end of settings window ---
    QCoro::Task<> run();

    std::unique_ptr<SettingsStore> m_ownSettings;
    std::unique_ptr<SecureStore> m_ownSecrets;
    SettingsStore* m_settings = nullptr;
    SecureStore* m_secrets = nullptr;
    // --- settings window: the call's devices are set on the backend ---
    std::shared_ptr<PulseBackend> m_pulse;
    // --- end of settings window ---
    std::unique_ptr<Phone> m_phone;
    std::unique_ptr<Session> m_session;
    std::unique_ptr<PhoneContacts> m_contacts;
    // --- colleagues in contacts ---
    std::unique_ptr<ColleagueContacts> m_colleagues;
    // --- end of colleagues in contacts ---
    // --- call windows ---
    std::unique_ptr<DesktopNotifications> m_notifications;
    std::unique_ptr<CanberraRinger> m_ringer;
    std::unique_ptr<CallWindows> m_callWindows;
    std::unique_ptr<CallInhibitor> m_inhibitor;
    std::unique_ptr<MediaPause> m_mediaPause;
    // --- end of call windows ---
    // --- headsets ---
    std::unique_ptr<HeadsetControl> m_headsetControl;
    std::unique_ptr<HeadsetFinder> m_headsets;
    // --- end of headsets ---
    std::unique_ptr<GlobalShortcuts> m_globalShortcuts;
    std::unique_ptr<ShellState> m_shellState;
    // --- call history ---
    std::unique_ptr<MissedCallWatch> m_missedWatch;
    std::unique_ptr<MissedCallNotifications> m_missedNotifications;
    // --- end of call history ---
    QQmlApplicationEngine m_engine;
    // Made in the engine, so they go before it.
    std::unique_ptr<QQuickWindow> m_callWindow;
    std::unique_ptr<TrayIcon> m_tray;
    std::unique_ptr<QQuickWindow> m_settingsWindow;
    Appearance m_appearance;
    SystemWakeups m_wakeups;
};

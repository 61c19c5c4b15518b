#include "shell/Application.h"

#include "audio/PulseBackend.h"
#include "core/Core.h"
#include "hid/HeadsetFinder.h"
#include "platform/Log.h"
#include "shell/GlobalShortcuts.h"
#include "shell/TrayIcon.h"
#include "telephony/DialLink.h"
#include "telephony/HeadsetControl.h"
// --- directory ---
#include "history/DirectoryCache.h"
#include "shell/AvatarImageProvider.h"

#include <QDBusConnection>
#include <QDesktopServices>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QIcon>
#include <QQmlComponent>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Velnor_ScreensPlugin)

namespace {

const char* const fontCuts[] = {"Regular", "Medium", "SemiBold", "Bold"};
const QUrl mainQml(QStringLiteral("qrc:/Velnor/Screens/Main.qml"));
const QUrl callQml(QStringLiteral("qrc:/Velnor/Screens/CallWindow.qml"));
const QUrl settingsQml(QStringLiteral("qrc:/Velnor/Screens/SettingsWindow.qml"));

} // namespace

Application::Application(QObject* parent)
    : QObject(parent), m_ownSettings(std::make_unique<IniSettingsStore>()),
      m_ownSecrets(std::make_unique<KeychainStore>()) {
    init(*m_ownSettings, *m_ownSecrets);
}

Application::Application(SettingsStore& settings, SecureStore& secrets, QObject* parent)
    : QObject(parent) {
    init(settings, secrets);
}

// Members go in reverse order, so the window is gone before the session it shows.
Application::~Application() = default;

void Application::init(SettingsStore& settings, SecureStore& secrets) {
    m_settings = &settings;
    m_secrets = &secrets;
    // The engine logs from the first moment, so that everything after is seen,
    // and its lines go where ours go: the journal and standard error.
    core::initLogging(coreLogFilter());
    core::setLogSink([](core::LogLevel level, const std::string& message) {
        Log::write(Log::sip, QString::fromStdString(message),
                   level <= core::LogLevel::warn ? Log::Level::error : Log::Level::info);
    });
    // The phone comes first: the session is given it, and nothing here touches the network.
    m_pulse = std::make_shared<PulseBackend>();
    m_phone = std::make_unique<Phone>(settings, m_pulse);
    m_phone->setCaFile(settings.text(QString::fromLatin1(caFileKey)));
    m_session = std::make_unique<Session>(settings, secrets);
    m_session->setPhone(m_phone.get());
    Session* session = m_session.get();
    m_contacts = std::make_unique<PhoneContacts>(std::make_shared<EdsAddressBook>());
    m_phone->colleagueName = [session](const QString& number) {
        return session->colleagueName(number);
    };
    PhoneContacts* contacts = m_contacts.get();
    m_phone->contactName = [contacts](const QString& number) { return contacts->name(number); };
    // --- server actions: a voicemail's caller named from the address book ---
    m_session->contactName = [contacts](const QString& number) { return contacts->name(number); };
    // --- end of server actions ---
    // --- call history ---
    // The list shows the server's line for a call once the server has written it.
    m_phone->onCallEnded = [session = QPointer<Session>(session)] {
        if (session) {
            session->reloadHistoryAfterCall();
        }
    };
    // --- end of call history ---
    m_session->setOpenBrowser([](const QUrl& url) { return QDesktopServices::openUrl(url); });
    // --- directory: a colleague chosen in the desktop's launcher is dialled, or
    // queued until the phone is registered ---
    Phone* phone = m_phone.get();
    DirectoryCache::handler() = [phone](const QString& id) { phone->dialOrQueue(id); };
    m_engine.addImportPath(QStringLiteral("qrc:/"));
    // --- directory: pictures for the lists ---
    m_engine.addImageProvider(QString::fromLatin1(AvatarImageProvider::name),
                              new AvatarImageProvider(*m_session));
    // --- main window and tray ---
    m_shellState = std::make_unique<ShellState>(settings, *m_phone, *m_session);
    connect(m_shellState.get(), &ShellState::mainWindowRequested, this, [this] {
        if (m_tray) {
            m_tray->hidePanel();
        }
        raiseMainWindow();
    });
    connect(m_shellState.get(), &ShellState::settingsRequested, this, &Application::openSettings);
    connect(m_shellState.get(), &ShellState::quitRequested, this, [] {
        Log::info(Log::app, QStringLiteral("Quitting on the user's request"));
        QCoreApplication::quit();
    });
    connect(m_shellState.get(), &ShellState::keepInTrayChanged, this,
            &Application::applyKeepInTray);
    QGuiApplication::setQuitOnLastWindowClosed(!m_shellState->keepInTray());
    // --- end of main window and tray ---
    // --- directory: the address book beneath the company ---
    m_shellState->bindContacts(*m_contacts);
    // After a resume or when the network returns, the live socket is replaced
    // at once rather than after the back-off.
    Live& live = m_session->live();
    // Live updates follow the server's view of the phone's active call.
    connect(m_phone.get(), &Phone::activeSipCallIdChanged, this,
            [this] { activeSipCallIdChanged(m_phone->activeSipCallId()); });
    connect(&m_wakeups, &SystemWakeups::resumed, &live, &Live::reconnectNow);
    connect(&m_wakeups, &SystemWakeups::networkUp, &live, &Live::reconnectNow);
    // The phone's connection likewise; calls move along with a re-INVITE.
    connect(&m_wakeups, &SystemWakeups::resumed, m_phone.get(), &Phone::networkChanged);
    connect(&m_wakeups, &SystemWakeups::networkUp, m_phone.get(), &Phone::networkChanged);
    m_wakeups.watchSleep(QDBusConnection::systemBus());
    m_wakeups.watchNetwork();
    initCallWindows();
    initHeadsets();
    initGlobalShortcuts();
    initMissedCalls();
    initColleagues();
    initSoundDevices();
    connect(&m_appearance, &Appearance::darkChanged, this, [this] {
        if (QObject* p = palette()) {
            p->setProperty("dark", m_appearance.dark());
        }
    });
}

// --- colleagues in contacts ---
void Application::initColleagues() {
    m_colleagues = std::make_unique<ColleagueContacts>(
        *m_settings, [] { return std::make_unique<EdsContactStore>(); });
    Session* session = m_session.get();
    // What the export takes: the directory's users, the user's own id, and the
    // session's pictures with their caches.
    m_colleagues->source = [session] {
        ColleagueContacts::Source source;
        if (session->directory()) {
            source.users = session->directory()->users;
        }
        if (session->me()) {
            source.ownId = session->me()->id;
        }
        source.loadImage = [session](AvatarRef ref) { return session->avatarData(ref); };
        return source;
    };
    // Every directory that arrives, the first after a launch too, brings the
    // address book up to date; an unchanged directory arrives as nothing.
    connect(session, &Session::directoryChanged, this, [this, session] {
        if (session->directory()) {
            const auto source = m_colleagues->source();
            m_colleagues->sync(source.users, source.ownId, source.loadImage);
        }
    });
}
// --- end of colleagues in contacts ---

void Application::activeSipCallIdChanged(const std::optional<QString>& sipCallId) {
    m_session->live().follow(sipCallId);
}

std::string Application::coreLogFilter() {
    if (qEnvironmentVariableIsSet("RUST_LOG")) {
        return qEnvironmentVariable("RUST_LOG").toStdString();
    }
    return "warn,velnor_core=info";
}

void Application::describe() {
    QGuiApplication::setApplicationName(QStringLiteral("velnor-rz"));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("velnor RZ"));
    QGuiApplication::setOrganizationName(QStringLiteral("velnor"));
    QGuiApplication::setApplicationVersion(QStringLiteral(VELNOR_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("net.velnor.rz"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/images/net.velnor.rz.svg")));
    // Fusion draws with the desktop's palette on GNOME and KDE alike; a
    // person's own choice of style still wins.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_STYLE")) {
        QQuickStyle::setStyle(QStringLiteral("Fusion"));
    }
    // Flat 2D screens draw as fast in software, and a process that lives in
    // the tray all day then holds a third of the memory: no GL driver (with
    // Mesa's LLVM) mapped in. QT_QUICK_BACKEND or QSG_RHI_BACKEND choose otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") &&
        qEnvironmentVariableIsEmpty("QSG_RHI_BACKEND")) {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    }
}

bool Application::loadFonts() {
    bool all = true;
    for (const char* cut : fontCuts) {
        const QString file = QStringLiteral(":/fonts/IBMPlexSans-%1.woff2").arg(cut);
        if (QFontDatabase::addApplicationFont(file) < 0) {
            Log::error(Log::app, QStringLiteral("Could not load the font %1").arg(file));
            all = false;
        }
    }
    return all;
}

QObject* Application::palette() {
    QQuickWindow* window = mainWindow();
    return window ? window->property("theme").value<QObject*>() : nullptr;
}

bool Application::showMainWindow() {
    m_engine.setInitialProperties(
        {{QStringLiteral("session"), QVariant::fromValue<QObject*>(m_session.get())},
         {QStringLiteral("phone"), QVariant::fromValue<QObject*>(m_phone.get())},
         {QStringLiteral("shell"), QVariant::fromValue<QObject*>(m_shellState.get())}});
    m_engine.load(mainQml);
    if (!mainWindow()) {
        Log::error(Log::app, QStringLiteral("The main window did not load"));
        return false;
    }
    // The palette exists once the module is loaded; set before the first frame.
    if (QObject* p = palette()) {
        p->setProperty("dark", m_appearance.dark());
    }
    // The call window opens from here on, also for a call already ringing.
    m_callWindows->start();
    connect(
        mainWindow(), &QQuickWindow::frameSwapped, this,
        [] { Log::info(Log::app, QStringLiteral("Main window shown")); }, Qt::SingleShotConnection);
    connect(mainWindow(), &QWindow::visibleChanged, this, [this](bool visible) {
        if (!visible && m_shellState->keepInTray()) {
            Log::info(Log::app, QStringLiteral("Main window closed; still running for calls"));
        }
    });
    applyKeepInTray();
    return true;
}

// --- main window and tray ---
void Application::applyKeepInTray() {
    const bool keep = m_shellState->keepInTray();
    QGuiApplication::setQuitOnLastWindowClosed(!keep);
    if (!keep) {
        m_tray.reset();
        m_shellState->setTrayShown(false);
        return;
    }
    if (!m_tray) {
        m_tray = std::make_unique<TrayIcon>(
            *m_phone, m_engine,
            QVariantMap{
                {QStringLiteral("session"), QVariant::fromValue<QObject*>(m_session.get())},
                {QStringLiteral("phone"), QVariant::fromValue<QObject*>(m_phone.get())},
                {QStringLiteral("shell"), QVariant::fromValue<QObject*>(m_shellState.get())}});
        connect(m_tray.get(), &TrayIcon::installedChanged, this,
                [this] { m_shellState->setTrayShown(m_tray && m_tray->installed()); });
        // --- call history ---
        m_tray->followMissedCalls(*m_shellState->recentsModel());
        // --- end of call history ---
    }
    // --- voicemail badge ---
    m_tray->setUnreadVoicemail(m_session->unreadVoicemailCount());
    connect(
        m_session.get(), &Session::voicemailChanged, m_tray.get(),
        [this] {
            if (m_tray) {
                m_tray->setUnreadVoicemail(m_session->unreadVoicemailCount());
            }
        },
        Qt::UniqueConnection);
    // --- end of voicemail badge ---
    // Where the desktop shows no tray the app still stays for calls; starting
    // it again shows the window. A tray that starts later takes the icon then.
    m_shellState->setTrayShown(m_tray->install());
}

void Application::openSettings() {
    if (m_tray) {
        m_tray->hidePanel();
    }
    if (!m_settingsWindow) {
        QQmlComponent component(&m_engine, settingsQml);
        std::unique_ptr<QObject> made(component.createWithInitialProperties(
            {{QStringLiteral("session"), QVariant::fromValue<QObject*>(m_session.get())},
             {QStringLiteral("phone"), QVariant::fromValue<QObject*>(m_phone.get())},
             {QStringLiteral("shell"), QVariant::fromValue<QObject*>(m_shellState.get())},
             {QStringLiteral("colleagues"), QVariant::fromValue<QObject*>(m_colleagues.get())}}));
        if (!qobject_cast<QQuickWindow*>(made.get())) {
            Log::error(Log::app, QStringLiteral("The settings window did not load: %1")
                                     .arg(component.errorString()));
            return;
        }
        m_settingsWindow.reset(static_cast<QQuickWindow*>(made.release()));
    }
    // The autostart entry may have been changed outside the app meanwhile.
    m_shellState->settingsState()->refreshOpenAtLogin();
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->requestActivate();
}
// --- end of main window and tray ---

QQuickWindow* Application::mainWindow() const {
    const auto roots = m_engine.rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

void Application::start() {
    run();
}

QCoro::Task<> Application::run() {
    // The stored SIP account first (its password is in the Secret Service),
    // so that a restored session can wake the phone with it.
    const Account account = co_await Account::load(*m_settings, *m_secrets);
    m_phone->setAccount(account);
    co_await m_contacts->refresh();
    co_await m_session->restore();
}

void Application::handleUrl(const QUrl& url) {
    const QString scheme = url.scheme();
    if (scheme == u"rzmobile") {
        Log::info(Log::app, QStringLiteral("Received a sign-in link"));
        raiseMainWindow();
        m_session->handleRedirect(url);
        return;
    }
    if (DialLink::isDialScheme(scheme)) {
        handleLink(url.toString());
        return;
    }
    Log::info(Log::app, QStringLiteral("Ignored a link of the scheme \"%1\"").arg(scheme));
}

void Application::handleLink(const QString& link) {
    const QString scheme = DialLink::schemeOf(link);
    if (!DialLink::isDialScheme(scheme)) {
        handleUrl(QUrl(link));
        return;
    }
    const auto number = DialLink::number(link);
    if (!number) {
        Log::info(Log::phone, QStringLiteral("A %1: link with nothing to dial").arg(scheme));
        return;
    }
    Log::info(Log::phone, QStringLiteral("Dialling %1 from a %2: link").arg(*number, scheme));
    raiseMainWindow();
    m_phone->dialOrQueue(*number);
}

void Application::raiseMainWindow() {
    QQuickWindow* window = mainWindow();
    if (!window) {
        return;
    }
    window->show();
    window->raise();
    window->requestActivate();
    // Where the desktop refuses focus to a window that did not ask for it,
    // this marks the window as wanting attention instead.
    window->alert(0);
}

// --- settings window ---

void Application::initSoundDevices() {
    SoundDeviceChoice* sound = m_shellState->settingsState()->sound();
    std::weak_ptr<PulseBackend> pulse = m_pulse;
    CanberraRinger* ringer = m_ringer.get();
    sound->setApply(
        [pulse](const QString& output, const QString& input) {
            if (const auto backend = pulse.lock()) {
                backend->setDevices(output.toStdString(), input.toStdString());
            }
        },
        [ringer](const QString& output) { ringer->setDevice(output); });
    sound->follow();
}

// --- end of settings window ---

// --- call windows ---

void Application::initCallWindows() {
    m_notifications = std::make_unique<DesktopNotifications>();
    m_ringer = std::make_unique<CanberraRinger>();
    m_callWindows =
        std::make_unique<CallWindows>(*m_phone, *m_settings, *m_notifications, *m_ringer);
    m_callWindows->open = [this](const QString&) { openCallWindow(); };
    m_callWindows->dismiss = [this](const QString&) { closeCallWindow(); };
    m_callWindows->requestAttention = [this] {
        if (m_callWindow) {
            m_callWindow->alert(0);
        }
    };
    m_callWindows->activate = [this](const QByteArray& token) { activateCallWindow(token); };
    m_callWindows->followLive(m_session->live());
    // During a call the screen stays on and the music waits.
    m_inhibitor = std::make_unique<CallInhibitor>(*m_phone, QDBusConnection::sessionBus(),
                                                  QDBusConnection::systemBus());
    m_mediaPause = std::make_unique<MediaPause>(*m_phone, QDBusConnection::sessionBus());
}

// --- headsets ---

void Application::initHeadsets() {
    m_headsetControl = std::make_unique<HeadsetControl>(*m_phone);
    m_headsets = std::make_unique<HeadsetFinder>();
    // The newest headset plugged in is the one in use; the control owns it.
    connect(m_headsets.get(), &HeadsetFinder::found, this, [this](HidrawDevice* device) {
        device->setParent(m_headsetControl.get());
        if (HidrawDevice* before = m_headsetControl->device()) {
            before->deleteLater();
        }
        m_headsetControl->attach(device);
        connect(device, &HidrawDevice::gone, device, &QObject::deleteLater);
    });
    m_headsets->start();
}

// --- end of headsets ---

// --- global shortcuts ---

void Application::initGlobalShortcuts() {
    m_globalShortcuts = std::make_unique<GlobalShortcuts>(*m_phone, QDBusConnection::sessionBus());
    connect(m_globalShortcuts.get(), &GlobalShortcuts::availableChanged, this,
            [this] { m_shellState->setGlobalShortcuts(m_globalShortcuts->available()); });
    m_globalShortcuts->start();
}

// --- end of global shortcuts ---

void Application::openCallWindow() {
    if (!m_callWindow) {
        QQmlComponent component(&m_engine, callQml);
        if (!component.isReady()) {
            Log::error(
                Log::app,
                QStringLiteral("The call window did not load: %1").arg(component.errorString()));
            return;
        }
        QObject* made = component.createWithInitialProperties(
            {{QStringLiteral("phone"), QVariant::fromValue<QObject*>(m_phone.get())},
             {QStringLiteral("session"), QVariant::fromValue<QObject*>(m_session.get())},
             {QStringLiteral("windows"), QVariant::fromValue<QObject*>(m_callWindows.get())},
             {QStringLiteral("shell"), QVariant::fromValue<QObject*>(m_shellState.get())}});
        m_callWindow.reset(qobject_cast<QQuickWindow*>(made));
        if (!m_callWindow) {
            delete made;
            Log::error(
                Log::app,
                QStringLiteral("The call window did not load: %1").arg(component.errorString()));
            return;
        }
        QMetaObject::invokeMethod(m_callWindow.get(), "placeAtTopTrailing");
    }
    m_callWindow->show();
    m_callWindow->raise();
    m_callWindow->requestActivate();
}

void Application::closeCallWindow() {
    // Hidden rather than destroyed: the next call opens it without building it
    // again, and its content is made anew for each call. Hiding never counts
    // as the last window closing, so the app does not quit with it.
    if (m_callWindow) {
        m_callWindow->hide();
    }
}

void Application::activateCallWindow(const QByteArray& activationToken) {
    if (!m_callWindow) {
        raiseMainWindow();
        return;
    }
    // On Wayland the platform plugin takes the notification server's token
    // from here for the next activation; elsewhere it is not looked at.
    if (!activationToken.isEmpty()) {
        qputenv("XDG_ACTIVATION_TOKEN", activationToken);
    }
    m_callWindow->show();
    m_callWindow->raise();
    m_callWindow->requestActivate();
}

// --- end of call windows ---

// --- call history ---

void Application::initMissedCalls() {
    m_missedWatch = std::make_unique<MissedCallWatch>(m_phone->recents());
    m_missedNotifications = std::make_unique<MissedCallNotifications>();
    connect(m_missedWatch.get(), &MissedCallWatch::missed, this,
            [this](const Recents::Entry& entry) {
                // Declined here: the person saw it and chose not to take it.
                if (m_phone->lastHungUpHere() == entry.id) {
                    return;
                }
                // The name the phone had, else the one the recents list would show.
                QString name = entry.name.value_or(QString());
                if (name.isEmpty()) {
                    if (const auto colleague = m_session->colleague(entry.remote)) {
                        name = colleague->name;
                    } else if (const auto contact = m_contacts->name(entry.remote)) {
                        name = *contact;
                    }
                }
                m_missedNotifications->post(entry.remote, name);
            });
    connect(m_missedNotifications.get(), &MissedCallNotifications::callBack, this,
            [this](const QString& number, const QByteArray& token) {
                if (!token.isEmpty()) {
                    qputenv("XDG_ACTIVATION_TOKEN", token);
                }
                Log::info(Log::phone,
                          QStringLiteral("Calling back from a missed-call notification"));
                m_phone->dialOrQueue(number);
            });
    connect(m_missedNotifications.get(), &MissedCallNotifications::showRequested, this,
            [this](const QByteArray& token) {
                if (!token.isEmpty()) {
                    qputenv("XDG_ACTIVATION_TOKEN", token);
                }
                m_shellState->setSection(QStringLiteral("recents"));
                raiseMainWindow();
            });
}

// --- end of call history ---

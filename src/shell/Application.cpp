#include "shell/Application.h"

#include "platform/Log.h"

#include <QDBusConnection>
#include <QDesktopServices>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QIcon>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Velnor_ScreensPlugin)

namespace {

const char* const fontCuts[] = {"Regular", "Medium", "SemiBold", "Bold"};
const QUrl mainQml(QStringLiteral("qrc:/Velnor/Screens/Main.qml"));

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
    m_session = std::make_unique<Session>(settings, secrets);
    m_session->setOpenBrowser([](const QUrl& url) { return QDesktopServices::openUrl(url); });
    m_engine.addImportPath(QStringLiteral("qrc:/"));
    // Live updates: after a resume or when the network returns, the socket is
    // replaced at once rather than after the back-off.
    Live& live = m_session->live();
    connect(&m_wakeups, &SystemWakeups::resumed, &live, &Live::reconnectNow);
    connect(&m_wakeups, &SystemWakeups::networkUp, &live, &Live::reconnectNow);
    m_wakeups.watchSleep(QDBusConnection::systemBus());
    m_wakeups.watchNetwork();
    connect(&m_appearance, &Appearance::darkChanged, this, [this] {
        if (QObject* p = palette()) {
            p->setProperty("dark", m_appearance.dark());
        }
    });
}

void Application::activeSipCallIdChanged(const std::optional<QString>& sipCallId) {
    m_session->live().follow(sipCallId);
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
        {{QStringLiteral("session"), QVariant::fromValue<QObject*>(m_session.get())}});
    m_engine.load(mainQml);
    if (!mainWindow()) {
        Log::error(Log::app, QStringLiteral("The main window did not load"));
        return false;
    }
    // The palette exists once the module is loaded; set before the first frame.
    if (QObject* p = palette()) {
        p->setProperty("dark", m_appearance.dark());
    }
    connect(
        mainWindow(), &QQuickWindow::frameSwapped, this,
        [] { Log::info(Log::app, QStringLiteral("Main window shown")); }, Qt::SingleShotConnection);
    return true;
}

QQuickWindow* Application::mainWindow() const {
    const auto roots = m_engine.rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

void Application::start() {
    m_session->restore();
}

void Application::handleUrl(const QUrl& url) {
    const QString scheme = url.scheme();
    if (scheme == u"rzmobile") {
        Log::info(Log::app, QStringLiteral("Received a sign-in link"));
        raiseMainWindow();
        m_session->handleRedirect(url);
        return;
    }
    if (scheme == u"tel" || scheme == u"sip" || scheme == u"callto") {
        Log::info(Log::phone, QStringLiteral("A %1: link arrived; dialling from links is not "
                                             "available yet")
                                  .arg(scheme));
        return;
    }
    Log::info(Log::app, QStringLiteral("Ignored a link of the scheme \"%1\"").arg(scheme));
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

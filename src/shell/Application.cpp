#include "shell/Application.h"

#include "platform/Log.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QIcon>
#include <QQuickWindow>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Velnor_ScreensPlugin)

namespace {

const char* const fontCuts[] = {"Regular", "Medium", "SemiBold", "Bold"};
const QUrl mainQml(QStringLiteral("qrc:/Velnor/Screens/Main.qml"));

} // namespace

Application::Application(QObject* parent) : QObject(parent) {
    m_engine.addImportPath(QStringLiteral("qrc:/"));
    connect(&m_appearance, &Appearance::darkChanged, this, [this] {
        if (QObject* p = palette()) {
            p->setProperty("dark", m_appearance.dark());
        }
    });
}

void Application::describe() {
    QGuiApplication::setApplicationName(QStringLiteral("velnor-rz"));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("velnor RZ"));
    QGuiApplication::setOrganizationName(QStringLiteral("velnor"));
    QGuiApplication::setApplicationVersion(QStringLiteral(VELNOR_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("net.velnor.rz"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/images/net.velnor.rz.svg")));
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

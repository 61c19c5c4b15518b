#include "platform/Log.h"
#include "shell/Application.h"
#include "shell/Automation.h"
#include "shell/SingleInstance.h"
#include "shell/Translations.h"
#include "shell/UnixSignals.h"
// --- directory ---
#include "shell/KRunnerPlugin.h"
#include "shell/SearchProvider.h"

#include <QApplication>
#include <QDBusConnection>
#include <QUrl>

#include <cstdio>

int main(int argc, char** argv) {
    Application::describe();
    // A widgets application only for the tray icon, which Qt keeps in that module.
    QApplication app(argc, argv);

    // Links come as arguments when the desktop opens one with this app.
    QStringList links = app.arguments().mid(1);
    links.removeIf([](const QString& argument) { return argument.startsWith(u'-'); });

    SingleInstance instance;
    if (instance.handOver(links)) {
        return 0;
    }
    if (instance.listen() == SingleInstance::Listen::ownedByAnother) {
        // Starting a second phone beside it would register this computer twice.
        fprintf(stderr,
                "velnor RZ is already running but did not answer in time; "
                "try again, or end the running app (it holds %s)\n",
                qPrintable(instance.lockPath()));
        return 1;
    }

    // The person's language before the first window or menu is made.
    Translations translations;
    translations.install();

    UnixSignals signals_;
    QObject::connect(&signals_, &UnixSignals::quitRequested, &app, [](int signal) {
        Log::info(Log::app, QStringLiteral("Quitting on signal %1").arg(signal));
        QCoreApplication::quit();
    });

    Application::loadFonts();
    Application application;
    if (!application.showMainWindow()) {
        return 1;
    }
    QObject::connect(&instance, &SingleInstance::activated, &application,
                     [&application](const QStringList& handed) {
                         application.raiseMainWindow();
                         for (const QString& link : handed) {
                             application.handleLink(link);
                         }
                     });
    // --- directory: the desktop's launchers search the directory file ---
    QDBusConnection bus = QDBusConnection::sessionBus();
    SearchProvider searchProvider(&application.session());
    searchProvider.openSearch = [&application](const QString& query) {
        application.shellState().setSection(QStringLiteral("directory"));
        application.session().directoryList()->setQuery(query);
        application.raiseMainWindow();
    };
    KRunnerPlugin runner(&application.session());
    if (bus.isConnected()) {
        searchProvider.publish(bus);
        runner.publish(bus);
    }
    // --- end of directory ---
    Automation automation(application);
    automation.publish();
    Log::info(Log::app, QStringLiteral("velnor RZ %1 started").arg(QStringLiteral(VELNOR_VERSION)));
    application.start();
    for (const QString& link : links) {
        application.handleLink(link);
    }
    const int status = app.exec();
    Log::info(Log::app, QStringLiteral("velnor RZ stopped"));
    return status;
}

#include "platform/Log.h"
#include "shell/Application.h"
#include "shell/UnixSignals.h"

#include <QGuiApplication>

int main(int argc, char** argv) {
    Application::describe();
    QGuiApplication app(argc, argv);
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
    Log::info(Log::app, QStringLiteral("velnor RZ %1 started").arg(QStringLiteral(VELNOR_VERSION)));
    const int status = app.exec();
    Log::info(Log::app, QStringLiteral("velnor RZ stopped"));
    return status;
}

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <cstdio>

// An empty 920 by 640 Qt Quick window that says when its first frame is out.
int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    QQmlApplicationEngine engine;
    engine.loadData("import QtQuick\nWindow { width: 920; height: 640; visible: true; "
                    "color: \"white\" }");
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    if (!window) {
        return 1;
    }
    QObject::connect(
        window, &QQuickWindow::frameSwapped, &app,
        [] {
            std::fputs("Main window shown\n", stderr);
            std::fflush(stderr);
        },
        Qt::SingleShotConnection);
    return app.exec();
}

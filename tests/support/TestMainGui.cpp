#include <QGuiApplication>
#include <QQuickStyle>

#include <QTemporaryDir>

#include <gtest/gtest.h>

// Screens are rendered offscreen: no display is needed, and the pixels are real.
int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    // --- call history ---
    // The app keeps its caches (calls.v1.json among them) under XDG_CACHE_HOME:
    // a test never reads or writes those of the person running it.
    QTemporaryDir caches;
    if (caches.isValid()) {
        qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
    }
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    QGuiApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

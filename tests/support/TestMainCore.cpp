#include <QCoreApplication>

#include <QTemporaryDir>

#include <gtest/gtest.h>

// Tests of logic run on a Qt event loop, as the app's main thread does.
int main(int argc, char** argv) {
    // --- call history ---
    // The app keeps its caches (calls.v1.json among them) under XDG_CACHE_HOME:
    // a test never reads or writes those of the person running it.
    QTemporaryDir caches;
    if (caches.isValid()) {
        qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
    }
    QCoreApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

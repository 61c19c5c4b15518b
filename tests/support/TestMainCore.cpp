#include <QCoreApplication>

#include <gtest/gtest.h>

// Tests of logic run on a Qt event loop, as the app's main thread does.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

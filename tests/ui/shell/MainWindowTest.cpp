#include "shell/Application.h"

#include <QDir>
#include <QFontDatabase>
#include <QFontInfo>
#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSet>

#include <gtest/gtest.h>

namespace {

// Grabs the window as it is drawn and keeps a copy for people to look at.
QImage screenshot(QQuickWindow* window, const QString& name) {
    QImage image = window->grabWindow();
    QDir().mkpath(VELNOR_SCREENSHOTS);
    image.save(QString(VELNOR_SCREENSHOTS) + "/" + name + ".png");
    return image;
}

int distinctColours(const QImage& image) {
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 2) {
        for (int x = 0; x < image.width(); x += 2) {
            colours.insert(image.pixel(x, y));
        }
    }
    return int(colours.size());
}

class MainWindow : public testing::Test {
protected:
    void show(bool dark) {
        ASSERT_TRUE(Application::loadFonts());
        ASSERT_TRUE(app.showMainWindow());
        window = app.mainWindow();
        ASSERT_NE(window, nullptr);
        QObject* palette = app.palette();
        ASSERT_NE(palette, nullptr);
        palette->setProperty("dark", dark);
    }

    Application app;
    QQuickWindow* window = nullptr;
};

} // namespace

TEST_F(MainWindow, IsTitledAndSizedAndDrawnOnTheLightWindowBackground) {
    show(false);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->title(), "velnor RZ");
    EXPECT_EQ(window->size(), QSize(920, 640));
    const QImage image = screenshot(window, "main-window-light");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(920, 640) * window->devicePixelRatio());
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#FFFFFF"));
    EXPECT_EQ(QColor(image.pixel(image.width() - 5, image.height() - 5)), QColor("#FFFFFF"));
    // The mark and the name are drawn: an empty window would have one colour.
    EXPECT_GT(distinctColours(image), 20);
}

TEST_F(MainWindow, FollowsTheDarkAppearance) {
    show(true);
    ASSERT_NE(window, nullptr);
    const QImage image = screenshot(window, "main-window-dark");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#151619"));
    EXPECT_GT(distinctColours(image), 20);
}

TEST_F(MainWindow, SwitchesAppearanceWhileOpen) {
    show(false);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(QColor(screenshot(window, "main-window-before-switch").pixel(4, 4)),
              QColor("#FFFFFF"));
    app.palette()->setProperty("dark", true);
    const QImage image = screenshot(window, "main-window-switched");
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#151619"));
}

TEST_F(MainWindow, TextIsSetInIbmPlexSans) {
    show(false);
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(QFontDatabase::families().contains("IBM Plex Sans"));
    const auto labels = window->findChildren<QQuickItem*>();
    bool found = false;
    for (QQuickItem* item : labels) {
        if (item->property("text").toString() == "velnor RZ") {
            const QFont font = item->property("font").value<QFont>();
            EXPECT_EQ(QFontInfo(font).family(), "IBM Plex Sans");
            found = true;
        }
    }
    EXPECT_TRUE(found);
}

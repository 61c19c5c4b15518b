#include "ScreenHost.h"
#include "shell/TrayIcon.h"

#include <QGuiApplication>

// The keep-running setting: with it on, closing the window leaves the app
// running for calls, in the tray where the desktop has one.
namespace {

class KeepRunning : public ScreenHost {};

} // namespace

TEST_F(KeepRunning, IsOnWhenAbsentSoTheAppOutlivesItsWindow) {
    EXPECT_TRUE(app().shellState().keepInTray());
    EXPECT_FALSE(QGuiApplication::quitOnLastWindowClosed());
}

TEST_F(KeepRunning, TurnedOffTheAppQuitsWithItsLastWindowAndTheChoiceIsKept) {
    app().shellState().setKeepInTray(false);
    EXPECT_TRUE(QGuiApplication::quitOnLastWindowClosed());
    EXPECT_EQ(settings.boolean("mac.menuBar"), false);
    restart();
    EXPECT_FALSE(app().shellState().keepInTray());
    EXPECT_TRUE(QGuiApplication::quitOnLastWindowClosed());
}

TEST_F(KeepRunning, WhereTheDesktopShowsNoTrayTheSettingsSaySo) {
    // Offscreen there is no tray at all, as on GNOME without an AppIndicator extension.
    ASSERT_TRUE(app().showMainWindow());
    ASSERT_NE(app().tray(), nullptr);
    EXPECT_FALSE(app().tray()->installed());
    EXPECT_FALSE(app().shellState().trayShown());
    app().openSettings();
    QQuickWindow* settingsWindow = app().settingsWindow();
    ASSERT_NE(settingsWindow, nullptr);
    auto* text = settingsWindow->findChild<QQuickItem*>("keepInTrayText");
    ASSERT_NE(text, nullptr);
    EXPECT_TRUE(text->property("text").toString().startsWith("This desktop shows no tray."));
    QDir().mkpath(VELNOR_SCREENSHOTS);
    settingsWindow->grabWindow().save(QString(VELNOR_SCREENSHOTS) + "/settings-no-tray.png");
    app().shellState().setKeepInTray(false);
    EXPECT_TRUE(text->property("text").toString().startsWith("Closing the window quits"));
}

#include "shell/Application.h"

#include <QDir>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

// The main window's one alert for the errors of the phone and the session.
namespace {

class ErrorAlert : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Application::loadFonts());
        ASSERT_TRUE(app.showMainWindow());
        window = app.mainWindow();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
    }

    QObject* alert() const { return window->findChild<QObject*>("errorAlert"); }
    bool shown() const { return alert()->property("visible").toBool(); }
    QString message() const {
        return window->findChild<QObject*>("errorMessage")->property("text").toString();
    }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app{settings, secrets};
    QQuickWindow* window = nullptr;
};

} // namespace

TEST_F(ErrorAlert, IsHiddenWithoutAnError) {
    ASSERT_NE(alert(), nullptr);
    EXPECT_FALSE(shown());
}

TEST_F(ErrorAlert, ShowsThePhonesErrorBeforeTheSessionsAndOkClearsBoth) {
    app.session().setError(QString("The server could not be reached."));
    app.phone().setLastError(QString("Not connected to the phone system."));
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown(); }, 2000));
    EXPECT_EQ(alert()->property("title").toString(), "Error");
    EXPECT_EQ(message(), "Not connected to the phone system.");
    // Let the opening transition finish before the picture.
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return alert()->property("opacity").toDouble() == 1.0; }, 2000))
        << alert()->property("opacity").toDouble();
    QDir().mkpath(VELNOR_SCREENSHOTS);
    window->grabWindow().save(QString(VELNOR_SCREENSHOTS) + "/error-alert.png");
    auto* ok = window->findChild<QQuickItem*>("errorOk");
    ASSERT_NE(ok, nullptr);
    const QPointF centre = ok->mapToScene(QPointF(ok->width() / 2, ok->height() / 2));
    QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    EXPECT_FALSE(app.phone().hasLastError());
    EXPECT_FALSE(app.session().hasError());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !shown(); }, 2000));
}

TEST_F(ErrorAlert, ASecondErrorOfOneObjectReplacesTheFirst) {
    app.session().setError(QString("First"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown(); }, 2000));
    app.session().setError(QString("Second"));
    EXPECT_EQ(message(), "Second");
    EXPECT_TRUE(shown());
}

TEST_F(ErrorAlert, ShowsTheSessionsErrorAloneWhenThePhoneHasNone) {
    app.session().setError(QString("Signed out by the server."));
    ASSERT_TRUE(QTest::qWaitFor([&] { return shown(); }, 2000));
    EXPECT_EQ(message(), "Signed out by the server.");
}

#include "shell/Application.h"

#include <QDir>
#include <QFontDatabase>
#include <QFontInfo>
#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSet>
#include <QTest>

#include <gtest/gtest.h>

// The main window as a person sees it, drawn offscreen: one test per state
// of the session, each grabbed to build/screenshots for people to look at.
namespace {

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
    void SetUp() override {
        ASSERT_TRUE(Application::loadFonts());
        app.session().setOpenBrowser([this](const QUrl& url) {
            opened.append(url);
            return true;
        });
    }

    void show(bool dark = false) {
        ASSERT_TRUE(app.showMainWindow());
        window = app.mainWindow();
        ASSERT_NE(window, nullptr);
        QObject* palette = app.palette();
        ASSERT_NE(palette, nullptr);
        palette->setProperty("dark", dark);
    }

    void signOut() { runRestore(); }

    // No stored sign-in: restore lands on the login screen.
    void runRestore() {
        app.start();
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return app.session().state() != Session::State::loading; }, 5000));
    }

    QQuickItem* item(const char* name) const { return window->findChild<QQuickItem*>(name); }

    QQuickItem* itemWithText(const QString& text) const {
        for (QQuickItem* candidate : window->findChildren<QQuickItem*>()) {
            if (candidate->property("text").toString() == text && candidate->isVisible()) {
                return candidate;
            }
        }
        return nullptr;
    }

    // A real click in the middle of an item.
    void click(QQuickItem* target) {
        ASSERT_NE(target, nullptr);
        const QPointF centre =
            target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app{settings, secrets};
    QQuickWindow* window = nullptr;
    QList<QUrl> opened;
};

} // namespace

TEST_F(MainWindow, IsTitledAndSizedAndWhileLoadingIsAPlainBackground) {
    show();
    EXPECT_EQ(window->title(), "velnor RZ");
    EXPECT_EQ(window->size(), QSize(920, 640));
    const QImage image = screenshot(window, "main-window-loading");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(920, 640) * window->devicePixelRatio());
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#FFFFFF"));
    EXPECT_EQ(distinctColours(image), 1);
}

TEST_F(MainWindow, SignedOutShowsTheLoginScreenCentredOnTheLightBackground) {
    show();
    signOut();
    ASSERT_EQ(app.session().state(), Session::State::signedOut);
    const QImage image = screenshot(window, "login-light");
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#FFFFFF"));
    EXPECT_GT(distinctColours(image), 20);
    for (const char* text : {"RZ · Phone system", "Sign in with velnor RZ", "Other server"}) {
        EXPECT_NE(itemWithText(QString::fromUtf8(text)), nullptr) << text;
    }
    QQuickItem* button = item("signInButton");
    ASSERT_NE(button, nullptr);
    const QRectF box = button->mapRectToScene(QRectF(0, 0, button->width(), button->height()));
    EXPECT_NEAR(box.center().x(), 460, 1.0);
    EXPECT_LE(box.width(), 420);
}

TEST_F(MainWindow, FollowsTheDarkAppearance) {
    show(true);
    signOut();
    const QImage image = screenshot(window, "login-dark");
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#151619"));
    EXPECT_GT(distinctColours(image), 20);
}

TEST_F(MainWindow, SwitchesAppearanceWhileOpen) {
    show(false);
    signOut();
    EXPECT_EQ(QColor(screenshot(window, "login-before-switch").pixel(4, 4)), QColor("#FFFFFF"));
    app.palette()->setProperty("dark", true);
    EXPECT_EQ(QColor(screenshot(window, "login-switched").pixel(4, 4)), QColor("#151619"));
}

TEST_F(MainWindow, ClickingSignInOpensTheBrowserAndWaits) {
    show();
    signOut();
    click(item("signInButton"));
    ASSERT_EQ(opened.size(), 1);
    EXPECT_EQ(opened[0].path(), "/oauth/authorize");
    EXPECT_EQ(app.session().state(), Session::State::signingIn);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return itemWithText("Continue in your browser.") != nullptr; }, 2000));
    screenshot(window, "login-signing-in");
    EXPECT_EQ(itemWithText("Sign in with velnor RZ"), nullptr);
    EXPECT_EQ(itemWithText("Other server"), nullptr);
    click(item("cancelButton"));
    EXPECT_EQ(app.session().state(), Session::State::signedOut);
}

TEST_F(MainWindow, ASignInFailureStandsAboveTheButton) {
    show();
    signOut();
    click(item("signInButton"));
    app.session().handleRedirect(QUrl("rzmobile://oauth/callback?code=x&state=wrong"));
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return app.session().state() == Session::State::signedOut; }, 2000))
        << app.session().stateName().toStdString();
    QQuickItem* error = item("loginError");
    ASSERT_NE(error, nullptr);
    EXPECT_TRUE(error->isVisible());
    EXPECT_EQ(error->property("text").toString(), "OAuth: state mismatch");
    screenshot(window, "login-error");
}

TEST_F(MainWindow, OtherServerOpensWithTheCurrentAddressAndSavesATrimmedOne) {
    show();
    signOut();
    click(item("otherServerButton"));
    auto* field = window->findChild<QObject*>("serverField");
    ASSERT_NE(field, nullptr);
    ASSERT_TRUE(QTest::qWaitFor([&] { return field->property("visible").toBool(); }, 2000));
    EXPECT_EQ(field->property("text").toString(), "https://rz.velnor.net/");
    screenshot(window, "login-server-prompt");
    field->setProperty("text", "  https://pbx.example.com/  ");
    QMetaObject::invokeMethod(window->findChild<QObject*>("serverPrompt"), "accept");
    EXPECT_EQ(app.session().server(), QUrl("https://pbx.example.com/"));
    EXPECT_EQ(settings.url("rz.server"), QUrl("https://pbx.example.com/"));
}

TEST_F(MainWindow, AnAddressWithoutASchemeIsDroppedAndThePromptCloses) {
    show();
    signOut();
    click(item("otherServerButton"));
    auto* prompt = window->findChild<QObject*>("serverPrompt");
    auto* field = window->findChild<QObject*>("serverField");
    ASSERT_NE(prompt, nullptr);
    field->setProperty("text", "pbx.example.com");
    QMetaObject::invokeMethod(prompt, "accept");
    EXPECT_EQ(app.session().server(), QUrl("https://rz.velnor.net/"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !prompt->property("visible").toBool(); }, 2000));
}

TEST_F(MainWindow, TextIsSetInIbmPlexSans) {
    show();
    signOut();
    EXPECT_TRUE(QFontDatabase::families().contains("IBM Plex Sans"));
    QQuickItem* label = itemWithText("RZ · Phone system");
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(QFontInfo(label->property("font").value<QFont>()).family(), "IBM Plex Sans");
}

#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"
#include "Services.h"
#include "StderrCapture.h"
#include "shell/AvatarImageProvider.h"
#include "shell/SettingsState.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>

using nlohmann::json;
using namespace std::chrono_literals;

// The settings window over the app's real session, signed in on rz-devserver
// as Anna (extension 201, with a picture), drawn offscreen. The autostart
// folder and the caches live in a home of the test's own.
namespace {

class SettingsWindow : public ScreenHost {
protected:
    SettingsWindow() : server{{"--auto-approve", "u-001"}} {
        settings.setUrl("rz.server", server.url());
    }

    void signIn() {
        Session& session = app().session();
        useSigningInBrowser(session);
        session.signIn();
        ASSERT_TRUE(spinUntil([&] { return session.me().has_value() || session.hasError(); }, 10s));
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
        ASSERT_TRUE(spinUntil([&] { return session.hasDirectory(); }, 10s));
    }

    SettingsState& state() { return *app().shellState().settingsState(); }

    // The settings window, tall enough that every row shows without scrolling.
    void showSettings(bool dark = false) {
        hostWindow("SettingsWindow.qml", dark);
        window->resize(560, 1500);
        QCoreApplication::processEvents();
        ASSERT_TRUE(spinUntil([&] { return window->height() == 1500; }));
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    QString textOf(const char* name) {
        QQuickItem* found = item(name);
        return found ? found->property("text").toString() : QString();
    }

    QString autostartPath() const { return home.configHome() + "/autostart/net.velnor.rz.desktop"; }

    bool deviceOnServer(const std::string& id) {
        const json devices = server.control("GET", "model")["devices"];
        for (const auto& entry : devices) {
            if (entry["id"] == id) {
                return true;
            }
        }
        std::cerr << "devices on the server: " << devices.dump() << "\n";
        return false;
    }

    json userOnServer(const std::string& id) {
        for (const auto& user : server.control("GET", "model")["users"]) {
            if (user["id"] == id) {
                return user;
            }
        }
        return nullptr;
    }

    // Made before the app, so that its autostart entry lands in this home.
    TempHome home;
    DevServer server;
};

// A photograph-like picture made by ImageMagick, not by Qt.
QString realPicture(const QTemporaryDir& dir, const char* geometry = "1600x1200") {
    const QString path = dir.filePath("photo.jpg");
    QProcess convert;
    convert.start("/usr/bin/convert",
                  {"-seed", "7", "-size", geometry, "plasma:fractal", "-quality", "92", path});
    if (!convert.waitForFinished(30000) || convert.exitCode() != 0) {
        ADD_FAILURE() << "convert failed: " << convert.readAllStandardError().toStdString();
    }
    return path;
}

} // namespace

TEST_F(SettingsWindow, ShowsTheUserStatusAndAppRowsInTheLight) {
    signIn();
    showSettings();
    ASSERT_TRUE(spinUntil([&] { return app().session().live().connected(); }, 10s));
    ASSERT_TRUE(spinUntil([&] { return !state().avatarImage().isEmpty(); }, 10s));
    EXPECT_TRUE(shows("userBlock"));
    EXPECT_EQ(textOf("extensionValue"), "201");
    EXPECT_TRUE(shows("changePictureButton"));
    EXPECT_TRUE(shows("removePictureButton"));
    EXPECT_TRUE(shows("dndSwitch"));
    EXPECT_TRUE(shows("forwardingRow"));
    EXPECT_NE(item("colleaguesSection"), nullptr);
    EXPECT_EQ(item("statusLive")->property("value").toString(), "Connected");
    EXPECT_EQ(item("statusSipUser")->property("value").toString(),
              app().phone().account().username);
    EXPECT_FALSE(app().phone().account().username.isEmpty());
    EXPECT_EQ(item("statusServer")->property("value").toString(), app().phone().account().server);
    EXPECT_TRUE(shows("keepInTraySwitch"));
    EXPECT_TRUE(shows("openAtLoginSwitch"));
    EXPECT_FALSE(shows("loginErrorText"));
    EXPECT_TRUE(shows("signOutButton"));
    EXPECT_FALSE(shows("settingsError"));
    screenshot("settings-light");
}

TEST_F(SettingsWindow, ShowsTheSameInTheDark) {
    signIn();
    showSettings(true);
    ASSERT_TRUE(spinUntil([&] { return !state().avatarImage().isEmpty(); }, 10s));
    EXPECT_TRUE(shows("userBlock"));
    screenshot("settings-dark");
}

TEST_F(SettingsWindow, LiveUpdatesReadNotConnectedWhileTheSocketIsDown) {
    signIn();
    app().session().live().stop();
    showSettings();
    EXPECT_EQ(item("statusLive")->property("value").toString(), "Not connected");
}

TEST_F(SettingsWindow, SignedOutTheUserBlockAndSignOutAreHidden) {
    showSettings();
    EXPECT_FALSE(shows("userBlock"));
    EXPECT_FALSE(shows("signOutButton"));
    EXPECT_TRUE(shows("openAtLoginSwitch"));
    screenshot("settings-signed-out");
}

TEST_F(SettingsWindow, OpenAtLoginWritesTheAutostartEntryAndRemovesIt) {
    showSettings();
    QQuickItem* toggle = item("openAtLoginSwitch");
    ASSERT_NE(toggle, nullptr);
    EXPECT_FALSE(toggle->property("checked").toBool());
    click(toggle);
    EXPECT_TRUE(QFile::exists(autostartPath()));
    EXPECT_TRUE(toggle->property("checked").toBool());
    QFile entry(autostartPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    EXPECT_TRUE(entry.readAll().contains(
        ("\nExec=" + QCoreApplication::applicationFilePath() + "\n").toUtf8()));
    click(toggle);
    EXPECT_FALSE(QFile::exists(autostartPath()));
    EXPECT_FALSE(toggle->property("checked").toBool());
}

TEST_F(SettingsWindow, AnEntryRemovedByHandShowsAsOffWhenTheWindowOpensAgain) {
    ASSERT_TRUE(app().showMainWindow());
    app().openSettings();
    QQuickWindow* settingsWindow = app().settingsWindow();
    ASSERT_NE(settingsWindow, nullptr);
    auto* toggle = settingsWindow->findChild<QQuickItem*>("openAtLoginSwitch");
    ASSERT_NE(toggle, nullptr);
    state().setOpenAtLogin(true);
    ASSERT_TRUE(QFile::exists(autostartPath()));
    EXPECT_TRUE(toggle->property("checked").toBool());
    settingsWindow->close();
    ASSERT_TRUE(QFile::remove(autostartPath()));
    app().openSettings();
    EXPECT_FALSE(state().openAtLogin());
    EXPECT_FALSE(toggle->property("checked").toBool());
}

TEST_F(SettingsWindow, AFailingAutostartShowsTheReasonAndTheSwitchReturnsToOff) {
    // A file where the autostart folder should be.
    QFile blocker(home.configHome() + "/autostart");
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    showSettings();
    QQuickItem* toggle = item("openAtLoginSwitch");
    click(toggle);
    EXPECT_FALSE(toggle->property("checked").toBool());
    EXPECT_TRUE(shows("loginErrorText"));
    EXPECT_TRUE(textOf("loginErrorText").startsWith("The autostart folder"))
        << textOf("loginErrorText").toStdString();
    screenshot("settings-autostart-refused");
    // Once the folder can be made, the line goes.
    ASSERT_TRUE(QFile::remove(home.configHome() + "/autostart"));
    click(toggle);
    EXPECT_TRUE(toggle->property("checked").toBool());
    EXPECT_FALSE(shows("loginErrorText"));
}

TEST_F(SettingsWindow, WithKeepRunningOffTheClosingTextSpeaksOfQuitting) {
    showSettings();
    QQuickItem* keep = item("keepInTraySwitch");
    ASSERT_TRUE(keep->property("checked").toBool());
    click(keep);
    EXPECT_FALSE(app().shellState().keepInTray());
    EXPECT_EQ(settings.boolean("mac.menuBar"), false);
    EXPECT_EQ(textOf("keepInTrayText"),
              "Closing the window quits velnor RZ; calls then only reach your other devices.");
}

TEST_F(SettingsWindow, AFileThatIsNoPictureIsRefusedWithASentence) {
    signIn();
    showSettings();
    QTemporaryDir dir;
    QFile text(dir.filePath("notes.jpg"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("these are words, not a picture");
    text.close();
    StderrCapture quiet;
    EXPECT_FALSE(state().openPicture(QUrl::fromLocalFile(text.fileName())));
    EXPECT_EQ(state().crop(), nullptr);
    EXPECT_EQ(app().session().errorText(), "This picture could not be opened.");
    EXPECT_TRUE(shows("settingsError"));
    EXPECT_EQ(textOf("settingsErrorText"), "This picture could not be opened.");
    screenshot("settings-picture-refused");
    click(item("settingsErrorDismiss"));
    EXPECT_FALSE(app().session().hasError());
}

TEST_F(SettingsWindow, AMissingFileIsRefusedWithTheSameSentence) {
    signIn();
    StderrCapture quiet;
    EXPECT_FALSE(state().openPicture(QUrl::fromLocalFile("/nonexistent/picture.png")));
    EXPECT_EQ(app().session().errorText(), "This picture could not be opened.");
}

TEST_F(SettingsWindow, APictureOver20MBIsRefusedBeforeItIsRead) {
    signIn();
    QTemporaryDir dir;
    // A real picture, padded past the limit (JPEG readers stop at the end mark).
    const QString path = realPicture(dir, "64x64");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::Append));
    ASSERT_TRUE(file.resize(SettingsState::largestPicture + 1));
    file.close();
    ASSERT_FALSE(QImageReader(path).read().isNull());
    StderrCapture quiet;
    EXPECT_FALSE(state().openPicture(QUrl::fromLocalFile(path)));
    EXPECT_EQ(state().crop(), nullptr);
    EXPECT_EQ(app().session().errorText(),
              "This picture is larger than 20 MB. Choose a smaller one, or make it smaller first.");
    // At the limit itself it opens.
    ASSERT_TRUE(file.resize(SettingsState::largestPicture));
    app().session().clearError();
    EXPECT_TRUE(state().openPicture(QUrl::fromLocalFile(path)));
    EXPECT_FALSE(app().session().hasError());
}

TEST_F(SettingsWindow, CancelInTheCropLeavesThePictureAsItWas) {
    signIn();
    showSettings();
    QTemporaryDir dir;
    ASSERT_TRUE(state().openPicture(QUrl::fromLocalFile(realPicture(dir))));
    ASSERT_TRUE(spinUntil([&] { return shows("avatarCropView"); }));
    const auto before = app().session().me()->avatar;
    click(item("cropCancelButton"));
    ASSERT_TRUE(spinUntil([&] { return state().crop() == nullptr; }));
    EXPECT_FALSE(state().uploading());
    EXPECT_EQ(app().session().me()->avatar, before);
}

TEST_F(SettingsWindow, ACroppedRealPictureIsUploadedAs512JpegAndServedBack) {
    signIn();
    for (const bool dark : {false, true}) {
        showSettings(dark);
        QTemporaryDir dir;
        ASSERT_TRUE(state().openPicture(QUrl::fromLocalFile(realPicture(dir))));
        ASSERT_TRUE(spinUntil([&] { return shows("avatarCropView"); }));
        AvatarCrop* crop = state().crop();
        ASSERT_NE(crop, nullptr);
        ASSERT_GT(crop->side(), 100);
        QQuickItem* picture = item("cropPicture");
        ASSERT_TRUE(spinUntil([&] { return picture->property("status").toInt() == 1; }, 10s));
        // A drag of the picture by the mouse moves it, within its limits.
        QQuickItem* area = item("cropArea");
        const QPoint from = centreOf(area);
        QTest::mousePress(window.get(), Qt::LeftButton, {}, from);
        for (int step = 1; step <= 10; ++step) {
            QTest::mouseMove(window.get(), from + QPoint(step * 8, 0));
        }
        QTest::mouseRelease(window.get(), Qt::LeftButton, {}, from + QPoint(80, 0));
        // 4:3 at scale 1: the picture may move sideways by a sixth of its shown width.
        EXPECT_GT(crop->offsetX(), 0);
        EXPECT_LE(crop->offsetX(), crop->maxX());
        EXPECT_DOUBLE_EQ(crop->offsetY(), 0);
        crop->zoomTo(2);
        screenshot(dark ? "avatar-crop-dark" : "avatar-crop-light");

        const QByteArray expected = crop->jpeg();
        QSignalSpy finished(&state(), &SettingsState::uploadFinished);
        const auto before = app().session().me()->avatar;
        click(item("cropUseButton"));
        EXPECT_EQ(state().crop(), nullptr);
        EXPECT_TRUE(state().uploading());
        ASSERT_TRUE(finished.wait(10000));
        EXPECT_FALSE(state().uploading());
        ASSERT_FALSE(app().session().hasError()) << app().session().errorText().toStdString();
        const auto avatar = app().session().me()->avatar;
        ASSERT_TRUE(avatar.has_value());
        EXPECT_NE(avatar, before);

        // The server's copy, read back over its own address.
        const auto served = runTask(app().session().api().request(avatar->url.mid(1)));
        EXPECT_EQ(served.body, expected);
        QBuffer buffer;
        buffer.setData(served.body);
        buffer.open(QIODevice::ReadOnly);
        const QImage image = QImageReader(&buffer, "jpeg").read();
        EXPECT_EQ(image.size(), QSize(512, 512));
        // The new picture shows at once.
        ASSERT_TRUE(spinUntil([&] {
            return state().avatarImage().toString().endsWith(AvatarImageProvider::keyOf(*avatar));
        }));
    }
}

TEST_F(SettingsWindow, RemovePictureTakesItOffTheServer) {
    signIn();
    showSettings();
    ASSERT_TRUE(shows("removePictureButton"));
    click(item("removePictureButton"));
    ASSERT_TRUE(spinUntil([&] { return !app().session().me()->avatar.has_value(); }, 10s));
    EXPECT_FALSE(shows("removePictureButton"));
    ASSERT_TRUE(spinUntil([&] { return state().avatarImage().isEmpty(); }));
    EXPECT_FALSE(userOnServer("u-001").contains("avatar"));
    screenshot("settings-no-picture");
}

TEST_F(SettingsWindow, SignOutAsksFirstAndCancelKeepsTheSession) {
    signIn();
    showSettings();
    click(item("signOutButton"));
    ASSERT_TRUE(spinUntil([&] { return shows("signOutDialog") || shows("signOutKeepButton"); }));
    EXPECT_TRUE(shows("signOutRemoveButton"));
    EXPECT_TRUE(shows("signOutKeepButton"));
    screenshot("settings-sign-out");
    click(item("signOutCancelButton"));
    ASSERT_TRUE(spinUntil([&] { return !shows("signOutKeepButton"); }));
    EXPECT_EQ(app().session().state(), Session::State::signedIn);
}

TEST_F(SettingsWindow, SignOutKeepingTheDeviceLeavesItOnTheServer) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return settings.text("rz.deviceId").has_value(); }, 10s));
    const std::string device = settings.text("rz.deviceId")->toStdString();
    ASSERT_TRUE(deviceOnServer(device));
    showSettings();
    click(item("signOutButton"));
    ASSERT_TRUE(spinUntil([&] { return shows("signOutKeepButton"); }));
    click(item("signOutKeepButton"));
    ASSERT_TRUE(
        spinUntil([&] { return app().session().state() == Session::State::signedOut; }, 10s));
    EXPECT_TRUE(deviceOnServer(device));
}

TEST_F(SettingsWindow, SignOutRemovingTheDeviceDeletesItOnTheServer) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return settings.text("rz.deviceId").has_value(); }, 10s));
    const std::string device = settings.text("rz.deviceId")->toStdString();
    ASSERT_TRUE(deviceOnServer(device));
    showSettings();
    click(item("signOutButton"));
    ASSERT_TRUE(spinUntil([&] { return shows("signOutRemoveButton"); }));
    click(item("signOutRemoveButton"));
    ASSERT_TRUE(
        spinUntil([&] { return app().session().state() == Session::State::signedOut; }, 10s));
    EXPECT_FALSE(deviceOnServer(device));
    EXPECT_FALSE(settings.text("rz.deviceId").has_value());
}

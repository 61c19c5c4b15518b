#include "AppHarness.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QRegularExpression>

// The app's windows as a screen reader reads them: the app's AT-SPI tree on
// a private accessibility bus, walked by pyatspi.
namespace {

class AccessibilityTree : public AppHarness {
protected:
    void TearDown() override {
        app.stop();
        QDBusConnection::disconnectFromBus("a11y-test");
    }

    // The app with its accessibility tree on the bus, signed in to rz-devserver.
    void startSignedIn() {
        a11yBus.start("/usr/libexec/at-spi-bus-launcher", {"--launch-immediately"}, environment());
        bus.waitForName("org.a11y.Bus");
        QProcessEnvironment env = environment();
        env.insert("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
        app.start(VELNOR_APP_PATH, {}, env);
        app.process().setReadChannel(QProcess::StandardError);
        waitForLine("started");
        bus.waitForName("net.velnor.rz");
        QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), "a11y-test");
        connection.call(QDBusMessage::createMethodCall("net.velnor.rz", "/net/velnor/rz",
                                                       "net.velnor.rz.App", "SignIn"),
                        QDBus::Block, 10000);
        waitForLine("Signed in to");
    }

    // Each showing focusable element and button as "role<TAB>name", and the
    // count of unnamed ones last; of one window when `window` names it.
    QStringList readTree(const QString& window = {}) {
        QProcess reader;
        reader.setProcessEnvironment(environment());
        QStringList arguments{VELNOR_A11Y_SCRIPT, "velnor-rz"};
        if (!window.isEmpty()) {
            arguments.append(window);
        }
        reader.start("/usr/bin/python3", arguments);
        if (!reader.waitForFinished(60000)) {
            reader.kill();
            reader.waitForFinished();
            return {};
        }
        std::printf("%s", reader.readAllStandardError().constData());
        const QStringList tree =
            QString::fromUtf8(reader.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        for (const QString& line : tree) {
            std::printf("a11y: %s\n", qPrintable(line));
        }
        return tree;
    }

    // Performs the default action of the showing element of that name, over AT-SPI.
    bool press(const QString& name) {
        QProcess tool;
        tool.setProcessEnvironment(environment());
        tool.start("/usr/bin/python3", {VELNOR_A11Y_ACTION, "velnor-rz", "press", name, "20"});
        if (!tool.waitForFinished(30000)) {
            tool.kill();
            tool.waitForFinished();
        }
        std::printf("a11y press %s: %s%s", qPrintable(name),
                    tool.readAllStandardOutput().constData(),
                    tool.readAllStandardError().constData());
        return tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
    }

    static void expectNamed(const QStringList& tree, std::initializer_list<const char*> names) {
        const QString all = tree.join('\n');
        for (const char* name : names) {
            EXPECT_TRUE(all.contains(QString("\t") + name)) << name;
        }
    }

    ChildProcess a11yBus;
};

} // namespace

TEST_F(AccessibilityTree, EveryControlOfTheMainWindowOnTheKeypadIsNamed) {
    QFile config(home.configHome() + "/velnor/rz.conf");
    ASSERT_TRUE(config.open(QIODevice::Append));
    config.write("section=keypad\n");
    config.close();
    startSignedIn();

    const QStringList tree = readTree();
    ASSERT_FALSE(tree.isEmpty());
    EXPECT_EQ(tree.last(), "unnamed: 0");
    expectNamed(tree, {"Recents", "Directory", "Keypad", "Voicemail", "Settings", "2 ABC", "Star",
                       "Hash", "Call"});
}

TEST_F(AccessibilityTree, EveryControlOfTheTrayPanelIsNamed) {
    startSignedIn();
    // A StatusNotifierItem tray with its own watcher, as KDE and GNOME's AppIndicator have.
    ChildProcess tray;
    QProcessEnvironment trayEnvironment = environment();
    trayEnvironment.insert("NO_AT_BRIDGE", "1");
    tray.start("gtk-sni-tray-standalone", {"--watcher", "--top", "--end", "--size", "28"},
               trayEnvironment);
    waitForLine("Tray icon shown");
    // The main window closed, so that only the panel shows.
    QProcess search;
    search.setProcessEnvironment(environment());
    search.start("xdotool", {"search", "--sync", "--onlyvisible", "--name", "^velnor RZ$"});
    ASSERT_TRUE(search.waitForFinished(15000));
    const QString mainWindow = QString::fromUtf8(search.readAllStandardOutput()).trimmed();
    ASSERT_FALSE(mainWindow.isEmpty());
    ASSERT_EQ(xdotool({"windowfocus", "--sync", mainWindow}), 0);
    ASSERT_EQ(xdotool({"key", "ctrl+w"}), 0);
    waitForLine("Main window closed; still running for calls");

    // The tray's click on the icon at the top right, as its watcher delivers it.
    QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), "a11y-test");
    QDBusMessage items =
        QDBusMessage::createMethodCall("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                                       "org.freedesktop.DBus.Properties", "Get");
    items << QString("org.kde.StatusNotifierWatcher") << QString("RegisteredStatusNotifierItems");
    const QDBusMessage held = connection.call(items, QDBus::Block, 5000);
    ASSERT_EQ(held.type(), QDBusMessage::ReplyMessage) << held.errorMessage().toStdString();
    const QStringList registered =
        held.arguments().value(0).value<QDBusVariant>().variant().toStringList();
    ASSERT_EQ(registered.size(), 1) << registered.join(' ').toStdString();
    QDBusMessage activate = QDBusMessage::createMethodCall(
        registered.first(), "/StatusNotifierItem", "org.kde.StatusNotifierItem", "Activate");
    activate << 1267 << 14;
    const QDBusMessage activated = connection.call(activate, QDBus::Block, 5000);
    ASSERT_EQ(activated.type(), QDBusMessage::ReplyMessage)
        << activated.errorMessage().toStdString();

    const QStringList tree = readTree("velnor RZ");
    ASSERT_FALSE(tree.isEmpty());
    EXPECT_EQ(tree.last(), "unnamed: 0");
    expectNamed(tree, {"Number or extension", "Call", "Do not disturb"});
}

TEST_F(AccessibilityTree, EveryControlOfTheSettingsWindowIsNamed) {
    startSignedIn();
    // Opened from the sidebar as a screen reader's user opens it.
    ASSERT_TRUE(press("Settings"));

    const QStringList tree = readTree("Settings");
    ASSERT_FALSE(tree.isEmpty());
    EXPECT_EQ(tree.last(), "unnamed: 0");
    expectNamed(tree, {"Do not disturb", "Ringing device", "Call speaker", "Call microphone"});
}

TEST_F(AccessibilityTree, EveryControlOfEachSectionIsNamed) {
    startSignedIn();
    // Each section chosen in the sidebar as a screen reader's user chooses
    // it, and read once its own list shows.
    for (const char* section : {"Recents", "Directory", "Voicemail", "Queues"}) {
        // A section's name carries its badge ("Voicemail, 3").
        const QStringList sidebar = readTree("velnor RZ");
        const QStringList entries =
            sidebar.filter(QRegularExpression(QString("^list item\t%1(, \\d+)?$").arg(section)));
        ASSERT_EQ(entries.size(), 1) << section;
        ASSERT_TRUE(press(entries.first().section('\t', 1))) << section;
        const QString own = QString("scroll bar\t") + section;
        QStringList tree;
        QDeadlineTimer deadline(30000);
        while (!deadline.hasExpired() && !tree.contains(own)) {
            tree = readTree("velnor RZ");
        }
        ASSERT_TRUE(tree.contains(own)) << section;
        EXPECT_EQ(tree.last(), "unnamed: 0") << section;
    }
}

#include "AppHarness.h"

#include <QDBusConnection>
#include <QDBusMessage>

// The main window as a screen reader reads it: the app's AT-SPI tree on a
// private accessibility bus, walked by pyatspi.
namespace {

class AccessibilityTree : public AppHarness {
protected:
    void TearDown() override {
        app.stop();
        QDBusConnection::disconnectFromBus("a11y-test");
    }

    // Each focusable element and button as "role<TAB>name", and the count of unnamed ones.
    QStringList readTree() {
        QProcess reader;
        reader.setProcessEnvironment(environment());
        reader.start("/usr/bin/python3", {VELNOR_A11Y_SCRIPT, "velnor-rz"});
        if (!reader.waitForFinished(60000)) {
            reader.kill();
            reader.waitForFinished();
            return {};
        }
        std::printf("%s", reader.readAllStandardError().constData());
        return QString::fromUtf8(reader.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }
};

} // namespace

TEST_F(AccessibilityTree, EveryControlOfTheMainWindowOnTheKeypadIsNamed) {
    QFile config(home.configHome() + "/velnor/rz.conf");
    ASSERT_TRUE(config.open(QIODevice::Append));
    config.write("section=keypad\n");
    config.close();
    ChildProcess a11yBus;
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

    const QStringList tree = readTree();
    for (const QString& line : tree) {
        std::printf("a11y: %s\n", qPrintable(line));
    }
    ASSERT_FALSE(tree.isEmpty());
    EXPECT_EQ(tree.last(), "unnamed: 0");
    const QString all = tree.join('\n');
    for (const char* name : {"Recents", "Directory", "Keypad", "Voicemail", "Settings", "2 ABC",
                             "Star", "Hash", "Call"}) {
        EXPECT_TRUE(all.contains(QString("\t") + name)) << name;
    }
}

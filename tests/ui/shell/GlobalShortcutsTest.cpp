#include "shell/GlobalShortcuts.h"

#include "../../unit/telephony/FakeCore.h"
#include "ManualClock.h"
#include "Services.h"
#include "audio/NullBackend.h"
#include "telephony/Phone.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// Answer, hang up and mute from anywhere, through the global shortcuts
// portal. Debian 12's portal is older than that interface, so a small stand-in
// that speaks the published interface plays the desktop here
// (global_shortcuts_portal.py); it also plays the person pressing the keys.
namespace {

using core::CallState;
using core::RegistrationState;

class Shortcuts : public testing::Test {
protected:
    Shortcuts() {
        phone.setClientFactory(
            [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
                client = std::make_shared<FakeClient>(account, std::move(d));
                return client;
            });
        phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
        phone.start();
        phone.registrationChanged(RegistrationState::registered());
    }

    void startPortal() {
        portal.start("/usr/bin/python3", {VELNOR_SHORTCUTS_PORTAL, dir.filePath("portal.log")});
        bus.waitForName("org.freedesktop.portal.Desktop");
    }

    void press(const QString& id) {
        QDBusMessage message = QDBusMessage::createMethodCall("org.freedesktop.portal.Desktop",
                                                              "/org/freedesktop/portal/desktop",
                                                              "net.velnor.test.Keys", "Press");
        message << id;
        connection.call(message, QDBus::Block, 5000);
    }

    QString logged() {
        QFile log(dir.filePath("portal.log"));
        return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
    }

    QTemporaryDir dir;
    PrivateBus bus;
    ChildProcess portal;
    QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), "shortcuts");
    MemorySettingsStore settings;
    ManualClock clock;
    Phone phone{settings, std::make_shared<NullBackend>(), clock};
    std::shared_ptr<FakeClient> client;
};

} // namespace

TEST_F(Shortcuts, TheThreeShortcutsAreBoundWithTheirDescriptions) {
    startPortal();
    GlobalShortcuts shortcuts(phone, connection);
    QSignalSpy available(&shortcuts, &GlobalShortcuts::availableChanged);
    shortcuts.start();
    ASSERT_TRUE(available.wait(5000));
    EXPECT_TRUE(shortcuts.available());
    EXPECT_TRUE(logged().contains("bound answer: Answer the ringing call"))
        << logged().toStdString();
    EXPECT_TRUE(logged().contains("bound hang-up: Hang up"));
    EXPECT_TRUE(logged().contains("bound mute: Mute or unmute the call"));
}

TEST_F(Shortcuts, TheAnswerShortcutAnswersTheRingingCall) {
    startPortal();
    GlobalShortcuts shortcuts(phone, connection);
    QSignalSpy available(&shortcuts, &GlobalShortcuts::availableChanged);
    shortcuts.start();
    ASSERT_TRUE(available.wait(5000));
    auto call = std::make_shared<FakeCoreCall>("in-1", "204");
    phone.incomingCall(call);
    press("answer");
    EXPECT_TRUE(QTest::qWaitFor([&] { return call->answers == 1; }, 5000));
}

TEST_F(Shortcuts, TheMuteShortcutMutesAndTheHangUpShortcutEndsTheCall) {
    startPortal();
    GlobalShortcuts shortcuts(phone, connection);
    QSignalSpy available(&shortcuts, &GlobalShortcuts::availableChanged);
    shortcuts.start();
    ASSERT_TRUE(available.wait(5000));
    phone.dial("204");
    phone.callStateChanged("out-1", CallState::connected());
    press("mute");
    ASSERT_TRUE(QTest::qWaitFor([&] { return phone.activeCall()->muted; }, 5000));
    press("hang-up");
    EXPECT_TRUE(QTest::qWaitFor([&] { return client->placed.front()->hangups == 1; }, 5000));
}

TEST_F(Shortcuts, WithoutThePortalNoShortcutIsBoundAndNothingWaits) {
    GlobalShortcuts shortcuts(phone, connection);
    QSignalSpy settled(&shortcuts, &GlobalShortcuts::settled);
    shortcuts.start();
    ASSERT_TRUE(settled.wait(5000));
    EXPECT_FALSE(shortcuts.available());
}

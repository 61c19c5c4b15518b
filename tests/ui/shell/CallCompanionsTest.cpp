#include "shell/CallInhibitor.h"

#include "../../unit/telephony/FakeCore.h"
#include "ManualClock.h"
#include "Services.h"
#include "audio/NullBackend.h"
#include "telephony/Phone.h"

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// The screen saver and idle sleep held off during a call, on a private session
// bus. logind is a part of systemd and runs only under it, and the desktops'
// screen-saver inhibition services (the session managers' own, or the one
// beside xscreensaver) need logind or a whole session, so neither can run on
// a machine without systemd as its first process. Both are played here by a
// small process that speaks their interfaces and writes down every call it
// gets, so that what the app asks and lets go is checked. The media players
// are real ones (MediaPauseTest).
namespace {

using core::CallState;
using core::RegistrationState;

const char* const servicesScript = R"PY(
import os, sys
import dbus, dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
log = open(sys.argv[1], "a", buffering=1)

class ScreenSaver(dbus.service.Object):
    def __init__(self):
        self.busname = dbus.service.BusName("org.freedesktop.ScreenSaver", bus)
        dbus.service.Object.__init__(self, self.busname, "/org/freedesktop/ScreenSaver")

    @dbus.service.method("org.freedesktop.ScreenSaver", in_signature="ss", out_signature="u")
    def Inhibit(self, who, why):
        log.write("Inhibit %s: %s\n" % (who, why))
        return 42

    @dbus.service.method("org.freedesktop.ScreenSaver", in_signature="u")
    def UnInhibit(self, cookie):
        log.write("UnInhibit %d\n" % cookie)

class Logind(dbus.service.Object):
    def __init__(self):
        self.busname = dbus.service.BusName("org.freedesktop.login1", bus)
        dbus.service.Object.__init__(self, self.busname, "/org/freedesktop/login1")

    @dbus.service.method("org.freedesktop.login1.Manager", in_signature="ssss", out_signature="h")
    def Inhibit(self, what, who, why, mode):
        log.write("Lock %s %s\n" % (what, mode))
        readable, writable = os.pipe()
        def closed(source, condition):
            log.write("Lock released\n")
            os.close(readable)
            return False
        GLib.io_add_watch(readable, GLib.IO_HUP | GLib.IO_IN, closed)
        handed = dbus.types.UnixFd(writable)
        os.close(writable)
        return handed

saver = ScreenSaver()
logind = Logind()
log.write("ready\n")
GLib.MainLoop().run()
)PY";

class CallCompanions : public testing::Test {
protected:
    CallCompanions() {
        // The name the services are told, as the app sets it.
        QGuiApplication::setApplicationDisplayName("velnor RZ");
        QFile script(dir.filePath("services.py"));
        EXPECT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(servicesScript);
        script.close();
        services.start("/usr/bin/python3", {script.fileName(), logFile()});
        bus.waitForName("org.freedesktop.login1");
        phone.setClientFactory(
            [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
                client = std::make_shared<FakeClient>(account, std::move(d));
                return client;
            });
        phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
        phone.start();
        phone.registrationChanged(RegistrationState::registered());
    }

    QString logFile() const { return dir.filePath("calls.log"); }

    QStringList logged() {
        QFile log(logFile());
        if (!log.open(QIODevice::ReadOnly)) {
            return {};
        }
        return QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts);
    }

    bool waitForLogged(const QString& line, int boundMs = 5000) {
        QDeadlineTimer deadline(boundMs);
        while (!logged().contains(line)) {
            if (deadline.hasExpired()) {
                return false;
            }
            QTest::qWait(10);
        }
        return true;
    }

    QTemporaryDir dir;
    PrivateBus bus;
    ChildProcess services;
    QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), "companions");
    MemorySettingsStore settings;
    ManualClock clock;
    Phone phone{settings, std::make_shared<NullBackend>(), clock};
    std::shared_ptr<FakeClient> client;
};

} // namespace

TEST_F(CallCompanions, ACallHoldsOffTheScreenSaverAndIdleSleepUntilItEnds) {
    // logind is on the system bus in the app; here both are the private bus.
    CallInhibitor inhibitor(phone, connection, connection);
    EXPECT_FALSE(inhibitor.screenSaverInhibited());
    phone.incomingCall(std::make_shared<FakeCoreCall>("in-1", "204"));
    ASSERT_TRUE(waitForLogged("Inhibit velnor RZ: A call is in progress"))
        << logged().join('\n').toStdString();
    EXPECT_TRUE(waitForLogged("Lock idle block"));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return inhibitor.screenSaverInhibited() && inhibitor.idleInhibited(); }, 5000));
    EXPECT_FALSE(logged().contains("Lock released"));
    phone.callStateChanged("in-1", CallState::ended("cancelled"));
    EXPECT_TRUE(waitForLogged("UnInhibit 42"));
    EXPECT_TRUE(waitForLogged("Lock released"));
    EXPECT_FALSE(inhibitor.screenSaverInhibited());
    EXPECT_FALSE(inhibitor.idleInhibited());
}

TEST_F(CallCompanions, ACallThatEndsBeforeTheInhibitionIsGrantedLetsItGoAtOnce) {
    CallInhibitor inhibitor(phone, connection, connection);
    phone.dial("204");
    phone.hangUpActive();
    EXPECT_TRUE(waitForLogged("UnInhibit 42")) << logged().join('\n').toStdString();
    EXPECT_TRUE(waitForLogged("Lock released"));
    EXPECT_FALSE(inhibitor.screenSaverInhibited());
}

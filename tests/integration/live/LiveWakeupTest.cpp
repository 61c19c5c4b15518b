#include "LiveServerKit.h"

#include "shell/SystemWakeups.h"

#include "Services.h"

#include <QDBusConnection>
#include <QDBusMessage>

// After a suspend or a network change the socket is likely dead while still
// looking open. A fake logind on a private bus and reachability changes
// handed to the watcher make Live reconnect at once.
namespace {

class LiveWakeup : public LiveServer {
protected:
    LiveWakeup()
        : logind(QDBusConnection::connectToBus(bus.address(), QStringLiteral("fake-logind"))),
          app(QDBusConnection::connectToBus(bus.address(), QStringLiteral("app"))) {
        if (!logind.registerService(QStringLiteral("org.freedesktop.login1"))) {
            throw std::runtime_error("the fake logind could not take its name");
        }
        if (!wakeups.watchSleep(app)) {
            throw std::runtime_error("cannot listen to the fake logind");
        }
        QObject::connect(&wakeups, &SystemWakeups::resumed, &live, &Live::reconnectNow);
        QObject::connect(&wakeups, &SystemWakeups::networkUp, &live, &Live::reconnectNow);
    }
    ~LiveWakeup() override {
        QDBusConnection::disconnectFromBus(QStringLiteral("fake-logind"));
        QDBusConnection::disconnectFromBus(QStringLiteral("app"));
    }

    void prepareForSleep(bool sleeping) {
        auto signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                                 QStringLiteral("org.freedesktop.login1.Manager"),
                                                 QStringLiteral("PrepareForSleep"));
        signal << sleeping;
        ASSERT_TRUE(logind.send(signal));
    }

    // A second socket, the first one gone, with every topic subscribed again.
    bool replaced(std::chrono::milliseconds bound) {
        return spinUntil(
            [&] {
                const auto list = sockets();
                return list.size() == 1 && list[0]["topics"].size() == 2 && attempts == 2;
            },
            bound);
    }

    PrivateBus bus;
    QDBusConnection logind;
    QDBusConnection app;
    SystemWakeups wakeups;
};

} // namespace

TEST_F(LiveWakeup, AResumeDuringTheBackOffReconnectsWithinASecond) {
    live.start();
    ASSERT_TRUE(subscribed(always));
    drop(true);
    ASSERT_TRUE(spinUntil([&] { return live.waiting(); }));
    // The clock is not moved: only the resume can end this wait.
    prepareForSleep(false);
    EXPECT_TRUE(replaced(1s));
}

TEST_F(LiveWakeup, AResumeReplacesAnOpenSocketAndKeepsTheStateUntilTheSnapshot) {
    live.start();
    ASSERT_TRUE(spinUntil([&] { return live.presence().size() == 12; }));
    prepareForSleep(false);
    ASSERT_TRUE(replaced(1s));
    EXPECT_EQ(live.presence().size(), 12);
    ASSERT_TRUE(spinUntil([&] { return live.connected(); }));
}

TEST_F(LiveWakeup, GoingToSleepChangesNothing) {
    live.start();
    ASSERT_TRUE(subscribed(always));
    prepareForSleep(true);
    // A resume after it is what shows that the signal got through, in order.
    prepareForSleep(false);
    ASSERT_TRUE(replaced(1s));
    EXPECT_FALSE(spinUntil([&] { return attempts > 2; }, 300ms));
}

TEST_F(LiveWakeup, TheNetworkComingBackReconnectsWithinASecond) {
    live.start();
    ASSERT_TRUE(subscribed(always));
    drop(false);
    ASSERT_TRUE(spinUntil([&] { return live.waiting(); }));
    wakeups.reachabilityChanged(QNetworkInformation::Reachability::Disconnected);
    EXPECT_FALSE(spinUntil([&] { return attempts > 1; }, 100ms));
    wakeups.reachabilityChanged(QNetworkInformation::Reachability::Online);
    EXPECT_TRUE(replaced(1s));
}

TEST_F(LiveWakeup, StayingOnlineIsNoReasonToReconnect) {
    wakeups.reachabilityChanged(QNetworkInformation::Reachability::Online);
    live.start();
    ASSERT_TRUE(subscribed(always));
    wakeups.reachabilityChanged(QNetworkInformation::Reachability::Online);
    EXPECT_FALSE(spinUntil([&] { return attempts > 1; }, 300ms));
}

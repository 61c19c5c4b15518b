#include "IncomingNotificationFigures.h"

#include "../tests/ui/shell/CallLab.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QTime>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// The time of day at the start of one of the app's standard-error lines, in ms.
std::optional<int> stamp(const QByteArray& line) {
    const QTime time = QTime::fromString(QString::fromLatin1(line.left(12)), "HH:mm:ss.zzz");
    return time.isValid() ? std::optional<int>(time.msecsSinceStartOfDay()) : std::nullopt;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double notifyRoundTrip() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusMessage notify = QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                                         "/org/freedesktop/Notifications",
                                                         "org.freedesktop.Notifications", "Notify");
    notify << QString("bench") << uint(0) << QString() << QString("Bench") << QString("Round trip")
           << QStringList{"answer", "Answer"} << QVariantMap{} << int(0);
    QElapsedTimer timer;
    timer.start();
    const QDBusMessage reply = bus.call(notify);
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    if (reply.type() != QDBusMessage::ReplyMessage) {
        throw std::runtime_error("the notification server did not answer");
    }
    bus.call(QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                            "/org/freedesktop/Notifications",
                                            "org.freedesktop.Notifications", "CloseNotification")
             << reply.arguments().value(0));
    return ms;
}

} // namespace

void incomingNotificationFigures() {
    constexpr int calls = 10;
    CallLab lab;
    if (!lab.startApp(VELNOR_APP_PATH)) {
        throw std::runtime_error("the app did not register");
    }
    auto carol = std::make_unique<Baresip>(lab.dir.path(), "carol", Baresip::Role::echo,
                                           lab.kamailio, lab.tone, lab.certs.trustedCa);
    // To the Notify call leaving the app, and to the server's answer being read.
    std::vector<double> delays;
    std::vector<double> confirmed;
    for (int i = 0; i < calls; ++i) {
        carol->command("dial", "sip:alice@127.0.0.1");
        std::optional<int> invite;
        std::optional<int> posted;
        std::optional<int> shown;
        while (!shown) {
            const QByteArray line = lab.app.readLine(std::chrono::seconds(20));
            if (line.contains("incoming call from")) {
                invite = stamp(line);
            } else if (invite && line.contains("Incoming-call notification posted")) {
                posted = stamp(line);
            } else if (invite && line.contains("Incoming-call notification shown")) {
                shown = stamp(line);
            }
        }
        if (!invite || !posted || !shown) {
            throw std::runtime_error("a call's lines had no time");
        }
        delays.push_back(double(*posted - *invite));
        confirmed.push_back(double(*shown - *invite));
        carol->command("hangup");
        if (!lab.waitFor([&] { return lab.callStatus().isEmpty(); }, 10000)) {
            throw std::runtime_error("a call did not end");
        }
        // --- call history ---
        // A caller who gives up leaves a missed-call notification; the next
        // call starts with none on screen.
        while (!lab.app.readLine(std::chrono::seconds(20))
                    .contains("Missed-call notification shown")) {
        }
        lab.run("dunstctl", {"close-all"});
        if (!lab.waitFor([&] { return lab.notificationsShown() == 0; }, 10000)) {
            throw std::runtime_error("the notifications did not close");
        }
        // --- end of call history ---
    }
    std::vector<double> baseline;
    for (int i = 0; i < calls; ++i) {
        baseline.push_back(notifyRoundTrip());
    }
    std::printf("incoming_to_notification_ms: %.0f\n", median(delays));
    std::printf("incoming_to_notification_ms_max: %.0f\n",
                *std::max_element(delays.begin(), delays.end()));
    std::printf("incoming_to_notification_confirmed_ms: %.0f\n", median(confirmed));
    std::printf("incoming_to_notification_confirmed_ms_max: %.0f\n",
                *std::max_element(confirmed.begin(), confirmed.end()));
    std::printf("notify_round_trip_ms_baseline: %.1f\n", median(baseline));
}

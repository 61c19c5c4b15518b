#pragma once

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>

// Runs the event loop until the condition holds or the bound passes.
inline bool spinUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds bound = std::chrono::seconds(5)) {
    if (condition()) {
        return true;
    }
    QDeadlineTimer deadline(bound);
    QEventLoop loop;
    QTimer tick;
    tick.setInterval(2);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        if (condition() || deadline.hasExpired()) {
            loop.quit();
        }
    });
    tick.start();
    loop.exec();
    return condition();
}

#include "platform/Clock.h"

#include <QCoro/QCoroTask>

#include <QTimer>

#include <coroutine>

namespace {

struct TimeoutAwaiter {
    QTimer* timer;
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> waiting) {
        QObject::connect(timer, &QTimer::timeout, timer, [waiting] { waiting.resume(); },
                         Qt::SingleShotConnection);
    }
    void await_resume() const noexcept {}
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }

    QCoro::Task<> sleep(std::chrono::milliseconds duration) override {
        // A precise timer: a coarse one may fire 5 % late, which a 1 s back-off would feel.
        QTimer timer;
        timer.setTimerType(Qt::PreciseTimer);
        timer.setSingleShot(true);
        timer.start(duration);
        // Awaited through a slot without arguments: Qt hands a timer's
        // private signal tag over as no object at all, which an awaiter
        // that takes the signal's arguments would bind to.
        co_await TimeoutAwaiter{&timer};
    }
};

} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

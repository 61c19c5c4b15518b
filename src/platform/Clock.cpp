#include "platform/Clock.h"

#include "platform/Resumption.h"

#include <QCoro/QCoroTask>

#include <QTimer>

#include <coroutine>

namespace {

// Its members are pointers into the sleeping frame: GCC 12 destroys a member
// of an aggregate awaiter once too often when the awaiter is a temporary.
struct TimeoutAwaiter {
    QTimer* timer;
    Resumption* resumption;
    const std::stop_token* stop;

    bool await_ready() const noexcept { return stop->stop_requested(); }
    bool await_suspend(std::coroutine_handle<> waiting) {
        if (!resumption->arm(waiting, *stop)) {
            return false;
        }
        // Awaited through a slot without arguments: Qt hands a timer's
        // private signal tag over as no object at all, which an awaiter
        // that takes the signal's arguments would bind to.
        QObject::connect(timer, &QTimer::timeout, timer, [r = resumption] { r->resumeNow(); },
                         Qt::SingleShotConnection);
        return true;
    }
    void await_resume() const noexcept {}
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }

    QCoro::Task<> sleep(std::chrono::milliseconds duration, std::stop_token stop) override {
        // A precise timer: a coarse one may fire 5 % late, which a 1 s back-off would feel.
        QTimer timer;
        timer.setTimerType(Qt::PreciseTimer);
        timer.setSingleShot(true);
        timer.start(duration);
        Resumption resumption;
        co_await TimeoutAwaiter{&timer, &resumption, &stop};
    }
};

} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

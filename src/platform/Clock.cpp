#include "platform/Clock.h"

#include <QCoro/QCoroSignal>
#include <QCoro/QCoroTimer>

#include <QTimer>

namespace {

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }

    QCoro::Task<> sleep(std::chrono::milliseconds duration) override {
        // A precise timer: a coarse one may fire 5 % late, which a 1 s back-off would feel.
        QTimer timer;
        timer.setTimerType(Qt::PreciseTimer);
        timer.setSingleShot(true);
        timer.start(duration);
        co_await qCoro(&timer, &QTimer::timeout);
    }
};

} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

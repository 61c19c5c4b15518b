#include "platform/Clock.h"

#include <QCoro/QCoroTimer>

namespace {

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }

    QCoro::Task<> sleep(std::chrono::milliseconds duration) override {
        co_await QCoro::sleepFor(duration);
    }
};

} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

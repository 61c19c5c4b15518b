#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <QCoro/QCoroTask>

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

// Runs a coroutine on the Qt event loop until it finishes, and gives its value
// or rethrows its exception. A task that does not finish within the bound
// throws TaskTimeout, which fails the test that ran it.
struct TaskTimeout : std::runtime_error {
    using std::runtime_error::runtime_error;
};

namespace detail {

template <typename T> struct TaskOutcome {
    std::conditional_t<std::is_void_v<T>, bool, std::optional<T>> value{};
    std::exception_ptr error;
    bool done = false;
    QEventLoop* loop = nullptr;
};

// Holds the outcome by shared pointer: after a time-out the task may still
// finish later, and must then find its outcome alive and no loop to quit.
template <typename T>
QCoro::Task<> drive(QCoro::Task<T> task, std::shared_ptr<TaskOutcome<T>> outcome) {
    try {
        if constexpr (std::is_void_v<T>) {
            co_await std::move(task);
            outcome->value = true;
        } else {
            outcome->value.emplace(co_await std::move(task));
        }
    } catch (...) {
        outcome->error = std::current_exception();
    }
    outcome->done = true;
    if (outcome->loop) {
        outcome->loop->quit();
    }
}

} // namespace detail

template <typename T>
T runTask(QCoro::Task<T> task, std::chrono::milliseconds bound = std::chrono::seconds(10)) {
    auto outcome = std::make_shared<detail::TaskOutcome<T>>();
    QEventLoop loop;
    outcome->loop = &loop;
    detail::drive(std::move(task), outcome);
    if (!outcome->done) {
        QTimer timer;
        timer.setSingleShot(true);
        QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
        timer.start(bound);
        loop.exec();
    }
    outcome->loop = nullptr;
    if (!outcome->done) {
        throw TaskTimeout("task did not finish within " + std::to_string(bound.count()) + " ms");
    }
    if (outcome->error) {
        std::rethrow_exception(outcome->error);
    }
    if constexpr (!std::is_void_v<T>) {
        return std::move(*outcome->value);
    }
}

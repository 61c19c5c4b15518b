#pragma once

#include <chrono>
#include <functional>
#include <thread>

// Waits until `condition` holds, looking every few milliseconds, for at most
// `bound`. For state that other threads change without a signal to wait on.
inline bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

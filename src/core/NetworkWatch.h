#pragma once

// Tells the engine when this machine's addresses or routes change: an
// interface going down or up, an address added or removed, a new default
// route. Reads the kernel's routing notifications on the loop thread and
// reports once a burst of them has settled, since one change (a cable
// unplugged, a Wi-Fi roam) arrives as several messages in a row.

#include <re.h>

#include <functional>

namespace core {

class NetworkWatch {
public:
    NetworkWatch() { tmr_init(&m_settle); }
    ~NetworkWatch();
    NetworkWatch(const NetworkWatch&) = delete;
    NetworkWatch& operator=(const NetworkWatch&) = delete;

    // Loop thread. Returns 0, or the error that kept the watch from starting.
    int start(std::function<void()> changed);
    void stop();

    // The quiet time that ends a burst of notifications.
    static constexpr std::uint64_t settleMs = 250;

private:
    static void onReadable(int flags, void* arg);
    static void onSettled(void* arg);

    int m_socket = -1;
    struct tmr m_settle;
    std::function<void()> m_changed;
};

} // namespace core

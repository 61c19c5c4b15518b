#pragma once

#include <cstdint>

// A loopback port that is free for both TCP and UDP right now, and not handed
// out before by this process, so that each service of a test gets its own.
std::uint16_t freeLoopbackPort();

// A loopback TCP port held bound but not listening for as long as the object
// lives: connecting to it is refused, and nobody else can take it meanwhile.
class RefusingPort {
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;
    std::uint16_t port() const { return m_port; }

private:
    int m_fd = -1;
    std::uint16_t m_port = 0;
};

#include "Ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <random>
#include <set>
#include <stdexcept>

namespace {

bool bindable(int type, std::uint16_t port) {
    const int fd = socket(AF_INET, type, 0);
    if (fd < 0) {
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool ok = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return ok;
}

} // namespace

std::uint16_t freeLoopbackPort() {
    // Ports come from 10000-19999: below the engine's media ports (20000 and up)
    // and the kernel's ephemeral ones (32768 and up), which an outgoing
    // connection of any process may take between our check and the bind.
    // Each process starts at a random place, so parallel tests rarely meet.
    constexpr int first = 10000;
    constexpr int count = 10000;
    static std::mutex lock;
    static std::set<std::uint16_t> given;
    static int next = int(std::random_device{}() % count);
    std::lock_guard guard(lock);
    for (int attempt = 0; attempt < count; ++attempt) {
        const auto port = std::uint16_t(first + next);
        next = (next + 2) % count;
        // Media may use the port after, as RTP and RTCP do; and baresip listens
        // for TLS on the port after its SIP port.
        const auto after = std::uint16_t(port + 1);
        if (given.count(port) || !bindable(SOCK_STREAM, port) || !bindable(SOCK_DGRAM, port) ||
            !bindable(SOCK_DGRAM, after) || !bindable(SOCK_STREAM, after)) {
            continue;
        }
        given.insert(port);
        return port;
    }
    throw std::runtime_error("no free loopback port");
}

RefusingPort::RefusingPort() {
    m_fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("cannot hold a loopback port");
    }
    m_port = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

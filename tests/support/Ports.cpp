#include "Ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
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
    static std::mutex lock;
    static std::set<std::uint16_t> given;
    std::lock_guard guard(lock);
    for (int attempt = 0; attempt < 200; ++attempt) {
        // Let the kernel choose, then check that UDP has it free too.
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t length = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        close(fd);
        const std::uint16_t port = ntohs(address.sin_port);
        // Keep clear of the range the engine uses for media.
        if (port >= 20000 && port <= 40001) {
            continue;
        }
        if (given.count(port) || !bindable(SOCK_STREAM, port) || !bindable(SOCK_DGRAM, port) ||
            !bindable(SOCK_DGRAM, std::uint16_t(port + 1))) {
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

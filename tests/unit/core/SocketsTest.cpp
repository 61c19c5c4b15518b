#include "core/Sockets.h"
#include "core/Loop.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using core::Loop;

namespace {

// A loopback listener on a free port.
struct Listener {
    Listener() {
        fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(fd, 4);
        socklen_t length = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        port = address.sin_port;
    }
    ~Listener() { close(fd); }
    int fd = -1;
    in_port_t port = 0;
};

int connectedSocket(in_port_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = port;
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

} // namespace

TEST(Sockets, ATcpConnectionMadeOnTheEngineThreadHasNoDelayFromTheStart) {
    Listener listener;
    const bool noDelay = Loop::instance().call([&] {
        const int fd = connectedSocket(listener.port);
        const bool on = core::hasNoDelay(fd);
        close(fd);
        return on;
    });
    EXPECT_TRUE(noDelay);
}

TEST(Sockets, AConnectionAcceptedOnAnEngineListenerHasNoDelay) {
    const int listening = Loop::instance().call([] {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(fd, 4);
        return fd;
    });
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listening, reinterpret_cast<sockaddr*>(&address), &length);
    const int client = connectedSocket(address.sin_port);
    const int accepted = accept(listening, nullptr, nullptr);
    ASSERT_GE(accepted, 0);
    EXPECT_TRUE(core::hasNoDelay(accepted));
    close(accepted);
    close(client);
    close(listening);
}

TEST(Sockets, ConnectionsOfOtherThreadsAreLeftAsTheyAre) {
    Loop::instance();
    Listener listener;
    const int fd = connectedSocket(listener.port);
    EXPECT_FALSE(core::hasNoDelay(fd));
    close(fd);
}

#include "Sockets.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace core {

namespace {

thread_local bool engineThread = false;

bool isTcp(int fd) {
    int protocol = 0;
    socklen_t length = sizeof protocol;
    return getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &length) == 0 &&
           protocol == IPPROTO_TCP;
}

template <typename F> F next(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

} // namespace

void markEngineThread() {
    engineThread = true;
}

bool setNoDelay(int fd) {
    if (!isTcp(fd)) {
        return false;
    }
    const int on = 1;
    return setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0;
}

bool hasNoDelay(int fd) {
    int on = 0;
    socklen_t length = sizeof on;
    return getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, &length) == 0 && on != 0;
}

} // namespace core

// Stand in for the C library's connect() and listen(): on the engine's thread
// they set TCP_NODELAY first; on every other thread they only pass through.
extern "C" int connect(int fd, const struct sockaddr* address, socklen_t length) {
    using Connect = int (*)(int, const struct sockaddr*, socklen_t);
    static const Connect real = core::next<Connect>("connect");
    if (core::engineThread) {
        core::setNoDelay(fd);
    }
    return real(fd, address, length);
}

extern "C" int listen(int fd, int backlog) noexcept {
    using Listen = int (*)(int, int);
    static const Listen real = core::next<Listen>("listen");
    if (core::engineThread) {
        core::setNoDelay(fd);
    }
    return real(fd, backlog);
}

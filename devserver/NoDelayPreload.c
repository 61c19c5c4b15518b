// Preloaded into the phone system's baresip parties: TCP_NODELAY on every TCP
// socket they connect or listen on (accepted ones inherit it).
//
// Their SIP library never sets the option, so on its TCP connection to the
// proxy a request written right after a reply (a REFER's NOTIFY after the
// 202, an INVITE after the ACK of a challenge) waited for the proxy's delayed
// ACK, about 40 ms each time, which a desk phone on the network would not.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

static void noDelay(int fd) {
    int protocol = 0;
    socklen_t length = sizeof protocol;
    if (getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &length) == 0 &&
        protocol == IPPROTO_TCP) {
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
}

int connect(int fd, const struct sockaddr* address, socklen_t length) {
    static int (*real)(int, const struct sockaddr*, socklen_t);
    if (!real) {
        real = (int (*)(int, const struct sockaddr*, socklen_t))dlsym(RTLD_NEXT, "connect");
    }
    noDelay(fd);
    return real(fd, address, length);
}

int listen(int fd, int backlog) {
    static int (*real)(int, int);
    if (!real) {
        real = (int (*)(int, int))dlsym(RTLD_NEXT, "listen");
    }
    noDelay(fd);
    return real(fd, backlog);
}

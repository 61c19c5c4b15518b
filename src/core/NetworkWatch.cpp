#include "NetworkWatch.h"

#include "EngineKit.h"
#include "Log.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace core {

NetworkWatch::~NetworkWatch() {
    stop();
}

int NetworkWatch::start(std::function<void()> changed) {
    stop();
    m_socket = socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (m_socket < 0) {
        return errno;
    }
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE |
                      RTMGRP_IPV6_ROUTE;
    if (bind(m_socket, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        const int err = errno;
        stop();
        return err;
    }
    const int err = fd_listen(m_socket, FD_READ, onReadable, this);
    if (err) {
        stop();
        return err;
    }
    m_changed = std::move(changed);
    return 0;
}

void NetworkWatch::stop() {
    tmr_cancel(&m_settle);
    if (m_socket >= 0) {
        fd_close(m_socket);
        close(m_socket);
        m_socket = -1;
    }
    m_changed = nullptr;
}

void NetworkWatch::onReadable(int, void* arg) {
    auto* self = static_cast<NetworkWatch*>(arg);
    // What changed is found out afresh when the burst is over, so the
    // messages themselves are only drained here.
    std::array<char, 8192> buffer{};
    bool relevant = false;
    for (;;) {
        const ssize_t length = recv(self->m_socket, buffer.data(), buffer.size(), 0);
        if (length < 0) {
            if (errno == ENOBUFS) {
                // The kernel dropped notifications: something changed for sure.
                relevant = true;
                continue;
            }
            break;
        }
        if (length == 0) {
            break;
        }
        auto remaining = static_cast<unsigned int>(length);
        for (auto* header = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(header, remaining);
             header = NLMSG_NEXT(header, remaining)) {
            switch (header->nlmsg_type) {
            case RTM_NEWLINK:
            case RTM_DELLINK:
            case RTM_NEWADDR:
            case RTM_DELADDR:
            case RTM_NEWROUTE:
            case RTM_DELROUTE:
                relevant = true;
                break;
            default:
                break;
            }
        }
    }
    if (relevant) {
        tmr_start(&self->m_settle, settleMs, onSettled, self);
    }
}

void NetworkWatch::onSettled(void* arg) {
    auto* self = static_cast<NetworkWatch*>(arg);
    if (self->m_changed) {
        self->m_changed();
    }
}

} // namespace core

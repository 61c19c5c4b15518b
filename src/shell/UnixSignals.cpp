#include "shell/UnixSignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int pipeEnds[2] = {-1, -1};

void onSignal(int signal) {
    // Only async-signal-safe work here: hand the number to the event loop.
    const unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] auto written = ::write(pipeEnds[0], &number, 1);
}

} // namespace

UnixSignals::UnixSignals(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pipeEnds) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(pipeEnds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        unsigned char number = 0;
        if (::read(pipeEnds[1], &number, 1) == 1) {
            emit quitRequested(number);
        }
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

UnixSignals::~UnixSignals() {
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::signal(signal, SIG_DFL);
    }
}

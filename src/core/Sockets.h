#pragma once

// TCP_NODELAY on every TCP socket the engine opens, from the moment it exists.
//
// SIP over TCP is a stream of small writes: a request right after a reply, a
// REGISTER right after the last TLS handshake record. With Nagle's algorithm
// on, such a write waits for the ACK of the previous one, and the peer's
// delayed ACK makes that about 40 ms. libre opens its sockets inside its own
// calls and offers no hook for options, so the engine's thread is marked and
// connect() and listen() set the option for TCP sockets made on it (accepted
// sockets inherit it from their listener).

namespace core {

// Called once by the loop thread as it starts.
void markEngineThread();

// Sets TCP_NODELAY on one socket; false when it is not a TCP socket.
bool setNoDelay(int fd);

// Whether a socket has TCP_NODELAY set.
bool hasNoDelay(int fd);

} // namespace core

#pragma once

#include <cstdint>

// A loopback port that is free for both TCP and UDP right now, and not handed
// out before by this process, so that each service of a test gets its own.
std::uint16_t freeLoopbackPort();

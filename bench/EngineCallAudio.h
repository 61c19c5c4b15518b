#pragma once

#include <chrono>

// Two instances of the SIP engine in a call through kamailio on loopback, each
// with call audio on the null backend at the pace of real time.
struct EngineCallFigures {
    long renderAllocations = -1; // on the render threads, over the span
    long renderFrees = -1;
    double mouthToEarMs = -1; // a click into A's capture until it leaves B's render
    double captureMs = -1;    // into A's capture until A's call audio hands it to the engine
    double wireMs = -1;       // packetisation, the network and B's jitter buffer, together
    double renderMs = -1;     // B's engine gives it until it leaves B's render block
    int clicks = 0;
};

// Clicks every few hundred ms for `span`, while allocations on the render
// threads are counted.
EngineCallFigures measureEngineCall(std::chrono::seconds span);

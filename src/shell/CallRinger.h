#pragma once

// One ring of the incoming-call sound. CallWindows repeats it on its own
// timer; `silence` cuts a ring that is still playing.
class CallRinger {
public:
    virtual ~CallRinger() = default;

    virtual void ring() = 0;
    virtual void silence() = 0;
};

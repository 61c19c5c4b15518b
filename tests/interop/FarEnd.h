#pragma once

// One independent SIP stack at the far end of the engine's calls, registered
// at the same kamailio. Each stack is driven through what it offers a person
// or a script (a control socket, its console, a scenario file); every wait is
// bounded and throws std::runtime_error with what the stack said when the
// bound passes.

#include <chrono>
#include <string>

namespace interop {

using namespace std::chrono_literals;

enum class Transport { tcp, tls };
enum class Codec { pcmu, pcma, g722, opus };

const char* transportName(Transport transport);
const char* codecName(Codec codec);

class FarEnd {
public:
    virtual ~FarEnd() = default;

    // The stack's name in the matrix ("baresip") and the SIP user it registered as.
    virtual std::string name() const = 0;
    virtual std::string user() const = 0;

    // Why the stack cannot take part in a check; empty when it can.
    // It plays a tone of its own (otherwise it echoes what it receives).
    virtual std::string cannotPlayTone() const { return {}; }
    // It tells which audio it received, so that a tone can be looked for there.
    virtual std::string cannotRecord() const { return {}; }
    virtual std::string cannotReportDtmf() const { return {}; }
    virtual std::string cannotTransfer() const { return {}; }
    // It sends RTCP receiver reports of its own, from which the call's MOS is worked out.
    virtual std::string cannotReport() const { return {}; }

    // The next call from the engine is answered. transfer: the engine will
    // refer the call elsewhere rather than hold it.
    virtual void expectCall(bool transfer) = 0;
    // Calls the engine's user.
    virtual void dial(const std::string& user) = 0;
    // The call is up on the stack's side.
    virtual void waitAnswered(std::chrono::milliseconds bound = 15s) = 0;
    virtual void waitDtmf(char digit, std::chrono::milliseconds bound = 10s) = 0;
    // The engine's hold and resume reached the stack.
    virtual void waitHeld(std::chrono::milliseconds bound = 10s) = 0;
    virtual void waitResumed(std::chrono::milliseconds bound = 10s) = 0;
    virtual void waitEnded(std::chrono::milliseconds bound = 10s) = 0;
    // After the call ended: how far (dB) the tone at hz stood over the other
    // test frequencies in what the stack received during the call.
    virtual double heardToneMarginDb(int hz, std::chrono::milliseconds bound = 10s) = 0;
    // The stack placed the call it was referred to and that call is up at
    // the target's side (the target checks that).
    virtual std::string referredCaller() const { return user(); }
};

} // namespace interop

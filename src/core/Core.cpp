#include "Core.h"

#include <algorithm>

namespace core {

std::string toString(const RegistrationState& state) {
    switch (state.kind) {
    case RegistrationState::Kind::registered:
        return "registered";
    case RegistrationState::Kind::failed:
        return "failed(" + state.reason + ")";
    case RegistrationState::Kind::registering:
        return "registering";
    case RegistrationState::Kind::unregistered:
        return "unregistered";
    }
    return "unknown";
}

std::string toString(const CallState& state) {
    switch (state.kind) {
    case CallState::Kind::transferFailed:
        return "transferFailed(" + state.reason + ")";
    case CallState::Kind::ended:
        return "ended(" + state.reason + ")";
    case CallState::Kind::ringing:
        return "ringing";
    case CallState::Kind::connected:
        return "connected";
    case CallState::Kind::held:
        return "held";
    case CallState::Kind::transferring:
        return "transferring";
    }
    return "unknown";
}

void Call::readAudioInto(std::int16_t* out, std::size_t count) {
    std::size_t written = 0;
    while (written < count) {
        const std::vector<std::int16_t> frame = readAudio();
        if (frame.empty()) {
            std::fill(out + written, out + count, 0);
            return;
        }
        const std::size_t taken = std::min(frame.size(), count - written);
        std::copy_n(frame.begin(), taken, out + written);
        written += taken;
    }
}

std::ostream& operator<<(std::ostream& out, const RegistrationState& state) {
    return out << toString(state);
}

std::ostream& operator<<(std::ostream& out, const CallState& state) {
    return out << toString(state);
}

} // namespace core

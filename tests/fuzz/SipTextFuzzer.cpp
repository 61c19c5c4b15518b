#include "core/SipText.h"

#include <cstddef>
#include <cstdint>

// Whole SIP messages from the network and the numbers a person types.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto callId = core::refusedInviteCallId(text)) {
        // A Call-ID is read out of the message, never made up.
        if (callId->empty() || text.find(*callId) == std::string_view::npos) {
            __builtin_trap();
        }
    }
    (void)core::isCallableNumber(std::string(text));
    const std::uint16_t status = size >= 2 ? std::uint16_t(data[0] | data[1] << 8) : 0;
    (void)core::reasonForStatus(status, std::string(text));
    return 0;
}

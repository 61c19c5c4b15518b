#pragma once

// Small readings and wordings of SIP text, kept apart from the library so
// that they can be tested on their own.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace core {

// The words a person reads for a final failure status of a call.
std::string reasonForStatus(std::uint16_t status, const std::string& phrase);

// Whether a number or SIP user can be dialled as it stands.
bool isCallableNumber(const std::string& number);

// The Call-ID of a final failure to an INVITE, from a whole received message;
// nothing for anything else (authentication challenges included, which the
// library answers by itself).
std::optional<std::string> refusedInviteCallId(std::string_view message);

// A whole SIP message as it may be written to a log: the values of
// Authorization and Proxy-Authorization and the keys of a=crypto lines are
// replaced by "<hidden>"; everything else stays as it was.
std::string withSecretsHidden(std::string_view message);

} // namespace core

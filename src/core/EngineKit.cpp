#include "EngineKit.h"

#include "Log.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <strings.h>

namespace core {

std::string format(const char* fmt, ...) {
    char buffer[512];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return buffer;
}

void info(const std::string& text) {
    logLine(LogLevel::info, text);
}

void warn(const std::string& text) {
    logLine(LogLevel::warn, text);
}

std::string text(const pl& value) {
    return std::string(value.p ? value.p : "", value.p ? value.l : 0);
}

std::uint64_t nowMs() {
    return std::uint64_t(std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now().time_since_epoch())
                             .count());
}

std::string addressText(const sa& address) {
    char host[64] = "";
    sa_ntop(&address, host, sizeof host);
    return format("%s:%u", host, sa_port(&address));
}

bool hasAnswerableContact(const struct sip_msg* msg) {
    const struct sip_hdr* contact = sip_msg_hdr(msg, SIP_HDR_CONTACT);
    if (!contact) {
        return false;
    }
    // The reader is lenient: it takes "<sip:user@" as a host named "user@",
    // and an address whose bracket never closes as one that does.
    const std::string value = text(contact->val);
    const auto opened = std::count(value.begin(), value.end(), '<');
    if (opened > 1 || opened != std::count(value.begin(), value.end(), '>')) {
        return false;
    }
    struct sip_addr address;
    if (sip_addr_decode(&address, &contact->val)) {
        return false;
    }
    const std::string scheme = text(address.uri.scheme);
    if (strcasecmp(scheme.c_str(), "sip") != 0 && strcasecmp(scheme.c_str(), "sips") != 0) {
        return false;
    }
    const std::string host = text(address.uri.host);
    return !host.empty() && std::all_of(host.begin(), host.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '.' || c == '-' || c == ':' || c == '[' || c == ']';
    });
}

} // namespace core

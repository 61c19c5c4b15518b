#include "EngineKit.h"

#include "Log.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>

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

} // namespace core

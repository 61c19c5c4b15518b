#pragma once

// The engine's own log: a target=level filter read once at start, and one
// function that hands a line to the sink (standard error unless the app set
// one) when the filter lets it through.

#include "Core.h"

#include <map>
#include <optional>
#include <string>

namespace core {

// "warn,velnor_core=info": a bare level is the default for every target; a
// target matches itself and anything under it ("velnor_core::sip").
class LogFilter {
public:
    static LogFilter parse(const std::string& text);

    bool enabled(const std::string& target, LogLevel level) const;
    LogLevel defaultLevel() const { return m_default; }
    std::optional<LogLevel> levelOf(const std::string& target) const;

private:
    LogLevel m_default = LogLevel::error;
    std::map<std::string, LogLevel> m_targets;
};

inline constexpr const char* logTarget = "velnor_core";

bool logEnabled(LogLevel level);
void logLine(LogLevel level, const std::string& message);

} // namespace core

#include "Log.h"

#include "Core.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>

namespace core {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

std::optional<LogLevel> levelNamed(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    if (name == "off")
        return LogLevel::off;
    if (name == "error")
        return LogLevel::error;
    if (name == "warn")
        return LogLevel::warn;
    if (name == "info")
        return LogLevel::info;
    if (name == "debug")
        return LogLevel::debug;
    if (name == "trace")
        return LogLevel::trace;
    return std::nullopt;
}

const char* levelName(LogLevel level) {
    switch (level) {
    case LogLevel::off:
        return "OFF";
    case LogLevel::error:
        return "ERROR";
    case LogLevel::warn:
        return "WARN";
    case LogLevel::info:
        return "INFO";
    case LogLevel::debug:
        return "DEBUG";
    case LogLevel::trace:
        return "TRACE";
    }
    return "?";
}

std::mutex filterLock;

// Made on first use, so that a filter set during static start-up is kept.
LogFilter& activeFilter() {
    static LogFilter filter = LogFilter::parse("warn,velnor_core=info");
    return filter;
}

// The app's sink; none means standard error.
std::shared_ptr<const LogSink>& activeSink() {
    static std::shared_ptr<const LogSink> sink;
    return sink;
}

} // namespace

LogFilter LogFilter::parse(const std::string& text) {
    LogFilter filter;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos) {
            comma = text.size();
        }
        const std::string part = trimmed(text.substr(start, comma - start));
        start = comma + 1;
        if (part.empty()) {
            continue;
        }
        const auto equals = part.find('=');
        if (equals == std::string::npos) {
            // A bare word is either a level for everything or a target at full detail.
            if (auto level = levelNamed(part)) {
                filter.m_default = *level;
            } else {
                filter.m_targets[part] = LogLevel::trace;
            }
            continue;
        }
        const std::string target = trimmed(part.substr(0, equals));
        const auto level = levelNamed(trimmed(part.substr(equals + 1)));
        if (!target.empty() && level) {
            filter.m_targets[target] = *level;
        }
    }
    return filter;
}

std::optional<LogLevel> LogFilter::levelOf(const std::string& target) const {
    // The longest target that is the name itself or a module above it wins.
    std::optional<LogLevel> found;
    size_t foundLength = 0;
    for (const auto& [name, level] : m_targets) {
        const bool matches = target == name || (target.size() > name.size() &&
                                                target.compare(0, name.size(), name) == 0 &&
                                                target.compare(name.size(), 2, "::") == 0);
        if (matches && name.size() >= foundLength) {
            found = level;
            foundLength = name.size();
        }
    }
    return found;
}

bool LogFilter::enabled(const std::string& target, LogLevel level) const {
    if (level == LogLevel::off) {
        return false;
    }
    const LogLevel limit = levelOf(target).value_or(m_default);
    return int(level) <= int(limit);
}

void initLogging(const std::string& filter) {
    std::lock_guard lock(filterLock);
    activeFilter() = LogFilter::parse(filter);
}

bool logEnabled(LogLevel level) {
    std::lock_guard lock(filterLock);
    return activeFilter().enabled(logTarget, level);
}

void setLogSink(LogSink sink) {
    auto shared = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
    std::lock_guard lock(filterLock);
    activeSink() = std::move(shared);
}

void logLine(LogLevel level, const std::string& message) {
    if (!logEnabled(level)) {
        return;
    }
    std::shared_ptr<const LogSink> sink;
    {
        std::lock_guard lock(filterLock);
        sink = activeSink();
    }
    if (sink) {
        (*sink)(level, message);
        return;
    }
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &parts);
    std::fprintf(stderr, "%s.%03dZ %s %s: %s\n", stamp, int(millis), levelName(level), logTarget,
                 message.c_str());
}

} // namespace core

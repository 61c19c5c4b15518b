#include "core/Log.h"
#include "core/Loop.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <vector>

using core::LogFilter;
using core::LogLevel;

TEST(LogFilter, TheAppsDefaultShowsInfoOfTheEngineAndOnlyWarningsOfOthers) {
    const auto filter = LogFilter::parse("warn,velnor_core=info");
    EXPECT_TRUE(filter.enabled("velnor_core", LogLevel::info));
    EXPECT_FALSE(filter.enabled("velnor_core", LogLevel::debug));
    EXPECT_TRUE(filter.enabled("other", LogLevel::warn));
    EXPECT_FALSE(filter.enabled("other", LogLevel::info));
}

TEST(LogFilter, ABareLevelIsTheDefaultForEveryTarget) {
    const auto filter = LogFilter::parse("debug");
    EXPECT_EQ(filter.defaultLevel(), LogLevel::debug);
    EXPECT_TRUE(filter.enabled("velnor_core", LogLevel::debug));
    EXPECT_FALSE(filter.enabled("velnor_core", LogLevel::trace));
}

TEST(LogFilter, ATargetCoversTheModulesUnderItButNotALongerName) {
    const auto filter = LogFilter::parse("error,velnor_core=trace");
    EXPECT_TRUE(filter.enabled("velnor_core::sip", LogLevel::trace));
    EXPECT_FALSE(filter.enabled("velnor_core_extra", LogLevel::warn));
}

TEST(LogFilter, TheLongestMatchingTargetWins) {
    const auto filter = LogFilter::parse("velnor_core=info,velnor_core::sip=off");
    EXPECT_FALSE(filter.enabled("velnor_core::sip", LogLevel::error));
    EXPECT_TRUE(filter.enabled("velnor_core::media", LogLevel::info));
}

TEST(LogFilter, AnEmptyFilterLeavesOnlyErrors) {
    const auto filter = LogFilter::parse("");
    EXPECT_TRUE(filter.enabled("velnor_core", LogLevel::error));
    EXPECT_FALSE(filter.enabled("velnor_core", LogLevel::warn));
}

TEST(LogFilter, OffSilencesATarget) {
    const auto filter = LogFilter::parse("info,velnor_core=off");
    EXPECT_FALSE(filter.enabled("velnor_core", LogLevel::error));
    EXPECT_TRUE(filter.enabled("x", LogLevel::info));
}

TEST(LogFilter, SpacesCaseAndUnknownLevelsAreTolerated) {
    const auto filter = LogFilter::parse(" WARN , velnor_core = Debug , other=loud");
    EXPECT_EQ(filter.defaultLevel(), LogLevel::warn);
    EXPECT_EQ(filter.levelOf("velnor_core"), LogLevel::debug);
    EXPECT_FALSE(filter.levelOf("other").has_value());
}

TEST(LogFilter, ABareTargetNameShowsEverythingOfIt) {
    const auto filter = LogFilter::parse("velnor_core");
    EXPECT_TRUE(filter.enabled("velnor_core", LogLevel::trace));
    EXPECT_FALSE(filter.enabled("other", LogLevel::warn));
}

TEST(LogSink, AnEngineLineReachesTheSinkTheAppSet) {
    std::mutex lock;
    std::vector<std::pair<LogLevel, std::string>> lines;
    core::setLogSink([&](LogLevel level, const std::string& message) {
        std::lock_guard guard(lock);
        lines.emplace_back(level, message);
    });
    core::initLogging("warn,velnor_core=info");
    // A line of the engine's own thread: a loop whose library does not start says so.
    {
        core::Loop failed([] { return ENOMEM; });
    }
    core::logLine(LogLevel::debug, "below the filter");
    core::setLogSink({});
    std::lock_guard guard(lock);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].first, LogLevel::error);
    EXPECT_EQ(lines[0].second, "the SIP library did not start");
}

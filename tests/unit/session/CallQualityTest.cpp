#include "session/CallQuality.h"

#include <QLocale>

#include <gtest/gtest.h>

// The level of a call at the edges of its rules, the worst leg, the opinion
// score estimated here, and how the table writes its figures.
namespace {

using CallQuality::Level;

core::CallStats stats(std::uint64_t received, std::uint64_t lost, double jitterMs = 0) {
    core::CallStats s;
    s.packetsReceived = received;
    s.packetsLost = lost;
    s.jitterMs = jitterMs;
    return s;
}

live::Leg leg(const char* id, std::optional<double> mos, bool quality = true) {
    live::Leg l;
    l.id = id;
    if (quality) {
        live::Quality q;
        q.mos = mos;
        l.quality = q;
    }
    return l;
}

class CallQualityTest : public testing::Test {
protected:
    CallQualityTest() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }
    ~CallQualityTest() override { QLocale::setDefault(QLocale::c()); }
};

} // namespace

TEST_F(CallQualityTest, NoStatsGiveNoLevel) {
    EXPECT_EQ(CallQuality::level(std::nullopt, std::nullopt), std::nullopt);
}

TEST_F(CallQualityTest, FiftyPacketsAreTooFewAndFiftyOneAreEnough) {
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(50, 0)), std::nullopt);
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(51, 0)), Level::good);
}

TEST_F(CallQualityTest, TheServersLevelWinsOverABadLocalFigure) {
    EXPECT_EQ(CallQuality::level(Level::good, stats(1000, 500, 200)), Level::good);
    EXPECT_EQ(CallQuality::level(Level::poor, std::nullopt), Level::poor);
    EXPECT_EQ(CallQuality::level(Level::fair, stats(10, 0)), Level::fair);
}

TEST_F(CallQualityTest, ExactlyOnePercentLossIsGoodAndAboveItFair) {
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(990, 10)), Level::good);
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(989, 11)), Level::fair);
}

TEST_F(CallQualityTest, ExactlyFivePercentLossIsNotPoor) {
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(950, 50)), Level::fair);
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(949, 51)), Level::poor);
}

TEST_F(CallQualityTest, ExactlyThirtyMillisecondsOfJitterIsNotFair) {
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(100, 0, 30.0)), Level::good);
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(100, 0, 30.01)), Level::fair);
}

TEST_F(CallQualityTest, ExactlySixtyMillisecondsOfJitterIsFairAndAboveItPoor) {
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(100, 0, 60.0)), Level::fair);
    EXPECT_EQ(CallQuality::level(std::nullopt, stats(100, 0, 60.01)), Level::poor);
}

TEST_F(CallQualityTest, TheWorstLegIsTheLowestMosWithAMissingOneCountingAsFive) {
    EXPECT_EQ(CallQuality::worstLeg({}), std::nullopt);
    EXPECT_EQ(CallQuality::worstLeg({leg("a", 3.0, false)}), std::nullopt);
    EXPECT_EQ(CallQuality::worstLeg({leg("a", std::nullopt), leg("b", 4.9)})->id, "b");
    EXPECT_EQ(CallQuality::worstLeg({leg("a", 5.0), leg("b", std::nullopt)})->id, "a");
    EXPECT_EQ(CallQuality::worstLeg({leg("a", 3.5), leg("b", 3.5), leg("c", 4.0)})->id, "a");
    EXPECT_EQ(CallQuality::worstLeg({leg("a", 4.0, false), leg("b", 4.2), leg("c", 3.1)})->id, "c");
}

TEST_F(CallQualityTest, AClearShortLineRatesAboutFourPointFour) {
    // No loss and 20 ms of delay: R = 93.2 - 0.48, the ceiling of narrowband speech.
    EXPECT_NEAR(CallQuality::rating(20, 0), 92.72, 0.001);
    EXPECT_NEAR(CallQuality::mosOfRating(CallQuality::rating(20, 0)), 4.40, 0.01);
    EXPECT_NEAR(*CallQuality::localMos(stats(500, 0)), 4.40, 0.01);
}

TEST_F(CallQualityTest, LossAndDelayLowerTheScore) {
    // 2 % random loss on G.711 without concealment costs about 30 points of R.
    EXPECT_NEAR(CallQuality::rating(0, 0.02), 93.2 - 95.0 * 2 / 6.3, 0.001);
    // Beyond 177.3 ms each millisecond costs 0.11 more.
    EXPECT_NEAR(CallQuality::rating(277.3, 0), 93.2 - 0.024 * 277.3 - 11.0, 0.001);
    core::CallStats lossy = stats(950, 50, 40);
    lossy.roundTripMs = 200;
    const double mos = *CallQuality::localMos(lossy);
    EXPECT_LT(mos, 2.6);
    EXPECT_GT(mos, 1.0);
}

TEST_F(CallQualityTest, TheScoreStaysBetweenOneAndFourAndAHalf) {
    EXPECT_EQ(CallQuality::mosOfRating(-10), 1.0);
    EXPECT_EQ(CallQuality::mosOfRating(0), 1.0);
    EXPECT_EQ(CallQuality::mosOfRating(100), 4.5);
    EXPECT_EQ(CallQuality::mosOfRating(120), 4.5);
    EXPECT_NEAR(CallQuality::mosOfRating(50), 1.0 + 1.75 + 7e-6 * 50 * -10 * 50, 1e-9);
}

TEST_F(CallQualityTest, NoLocalScoreBeforeFiftyOnePackets) {
    EXPECT_EQ(CallQuality::localMos(stats(50, 0)), std::nullopt);
    EXPECT_TRUE(CallQuality::localMos(stats(51, 0)));
}

TEST_F(CallQualityTest, TheLevelsWords) {
    EXPECT_EQ(CallQuality::levelText(std::nullopt), "Measuring…");
    EXPECT_EQ(CallQuality::levelText(Level::good), "Good connection");
    EXPECT_EQ(CallQuality::levelText(Level::fair), "Fair connection");
    EXPECT_EQ(CallQuality::levelText(Level::poor), "Poor connection");
    EXPECT_EQ(CallQuality::levelName(Level::poor), "poor");
    EXPECT_EQ(CallQuality::levelName(std::nullopt), "");
}

TEST_F(CallQualityTest, WithNoPacketsAtAllTheIncomingLossIsADashNotZero) {
    EXPECT_EQ(CallQuality::incomingLoss(stats(0, 0)), std::nullopt);
    EXPECT_EQ(CallQuality::lossText(CallQuality::incomingLoss(stats(0, 0))), "–");
    EXPECT_EQ(CallQuality::lossText(CallQuality::incomingLoss(stats(10, 0))), "0 % loss");
}

TEST_F(CallQualityTest, FiguresAreWrittenWithAtMostOneDecimalInTheUsersLocale) {
    EXPECT_EQ(CallQuality::lossText(0.025), "2.5 % loss");
    EXPECT_EQ(CallQuality::lossText(0.03), "3 % loss");
    EXPECT_EQ(CallQuality::lossText(0.01234), "1.2 % loss");
    EXPECT_EQ(CallQuality::jitterText(12.5), "13 ms jitter");
    EXPECT_EQ(CallQuality::jitterText(std::nullopt), "–");
    EXPECT_EQ(CallQuality::roundTripText(39.4), "39 ms");
    EXPECT_EQ(CallQuality::roundTripText(std::nullopt), "–");
    EXPECT_EQ(CallQuality::packetsText({1200, 1190, 3, 0}), "1,200 in · 1,190 out");
    EXPECT_EQ(CallQuality::mosText(4.06), "MOS 4.1");
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(CallQuality::lossText(0.025), "2,5 % loss");
    EXPECT_EQ(CallQuality::mosText(3.44), "MOS 3,4");
}

#include "telephony/DialLink.h"

#include <gtest/gtest.h>

// What a link from the desktop dials.

TEST(DialLink, ATelLinkLosesItsSchemeAndItsVisualSeparators) {
    EXPECT_EQ(DialLink::number(QStringLiteral("tel:+49 (30) 1234-567")), "+49301234567");
    EXPECT_EQ(DialLink::number(QStringLiteral("tel:+49%20(30)%201234-567")), "+49301234567");
    EXPECT_EQ(DialLink::number(QStringLiteral("tel:030.123.45/67")), "0301234567");
}

TEST(DialLink, ParametersOfATelLinkAreDropped) {
    EXPECT_EQ(DialLink::number(QStringLiteral("tel:7042;phone-context=example.com")), "7042");
}

TEST(DialLink, ASipLinkDialsItsUserPart) {
    EXPECT_EQ(DialLink::number(QStringLiteral("sip:204@pbx.example.com")), "204");
    EXPECT_EQ(DialLink::number(QStringLiteral("sip:+4930123@pbx;transport=tcp")), "+4930123");
    EXPECT_EQ(DialLink::number(QStringLiteral("SIP:205")), "205");
}

TEST(DialLink, ACalltoLinkMayCarrySlashes) {
    EXPECT_EQ(DialLink::number(QStringLiteral("callto://+49-30-1234567")), "+49301234567");
    EXPECT_EQ(DialLink::number(QStringLiteral("callto:204")), "204");
}

TEST(DialLink, StarAndHashStay) {
    EXPECT_EQ(DialLink::number(QStringLiteral("tel:*21%23")), "*21#");
}

TEST(DialLink, AHashMayComeAsItIs) {
    EXPECT_EQ(DialLink::number(QStringLiteral("tel:*21#")), "*21#");
}

TEST(DialLink, OtherSchemesAndEmptyLinksGiveNothing) {
    EXPECT_FALSE(DialLink::number(QStringLiteral("204")));
    EXPECT_FALSE(DialLink::number(QStringLiteral("rzmobile://oauth/callback?code=1")));
    EXPECT_FALSE(DialLink::number(QStringLiteral("https://example.com/204")));
    EXPECT_FALSE(DialLink::number(QStringLiteral("tel:")));
    EXPECT_FALSE(DialLink::number(QStringLiteral("tel:-- ()")));
}

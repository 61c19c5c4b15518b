#include "OAuthLogic.h"

#include <gtest/gtest.h>

using namespace rzdev;

TEST(DevServerForm, APlusDecodesAsASpaceAndPercentTwoBAsAPlus) {
    const auto form = decodeForm("token=a+b%2Bc&client_id=rz-mobile");
    ASSERT_TRUE(form);
    EXPECT_EQ(formValue(*form, "token"), QString("a b+c"));
    EXPECT_EQ(formValue(*form, "client_id"), QString("rz-mobile"));
}

TEST(DevServerForm, UrlEncodedUtf8AndEmptyValuesDecode) {
    const auto form = decodeForm("name=M%C3%BCller&empty=&bare");
    ASSERT_TRUE(form);
    EXPECT_EQ(formValue(*form, "name"), QString::fromUtf8("Müller"));
    EXPECT_EQ(formValue(*form, "empty"), QString(""));
    EXPECT_EQ(formValue(*form, "bare"), QString(""));
    EXPECT_FALSE(formValue(*form, "missing"));
}

TEST(DevServerForm, ABrokenEscapeFailsTheWholeForm) {
    EXPECT_FALSE(decodeForm("a=%zz"));
    EXPECT_FALSE(decodeForm("a=%4"));
    EXPECT_FALSE(decodeForm("a=ok&b=%"));
}

TEST(DevServerForm, TheFirstOfTwoFieldsWins) {
    const auto form = decodeForm("a=1&a=2");
    ASSERT_TRUE(form);
    EXPECT_EQ(formValue(*form, "a"), QString("1"));
}

TEST(DevServerPkce, TheS256ChallengeOfTheKnownVerifier) {
    // The worked example of RFC 7636, appendix B.
    EXPECT_EQ(s256Challenge("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
              "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
    EXPECT_TRUE(verifierMatches("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk",
                                "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"));
}

TEST(DevServerPkce, AVerifierOfTheWrongShapeNeverMatches) {
    const QString shortOne = "abc";
    EXPECT_FALSE(verifierMatches(shortOne, s256Challenge(shortOne)));
    const QString spaced = QString(43, 'a').replace(5, 1, ' ');
    EXPECT_FALSE(verifierMatches(spaced, s256Challenge(spaced)));
    const QString longOne(129, 'a');
    EXPECT_FALSE(verifierMatches(longOne, s256Challenge(longOne)));
    EXPECT_FALSE(verifierMatches(QString(43, 'a'), s256Challenge(QString(43, 'b'))));
}

TEST(DevServerPkce, RandomTokensAreUrlSafeAndDiffer) {
    const auto a = randomToken(32), b = randomToken(32);
    EXPECT_EQ(a.size(), 43);
    EXPECT_NE(a, b);
    for (const QChar c : a) {
        EXPECT_TRUE(c.isLetterOrNumber() || c == '-' || c == '_') << int(c.unicode());
    }
}

#include "telephony/KeypadInput.h"

#include <gtest/gtest.h>

// What the keypad takes from the keyboard and the clipboard.

TEST(KeypadInput, PastingAFormattedNumberKeepsDigitsAndThePlus) {
    EXPECT_EQ(KeypadInput::cleanPasted("+41 (44) 123-45-67"), "+41441234567");
}

TEST(KeypadInput, PastingKeepsStarAndHashInOrder) {
    EXPECT_EQ(KeypadInput::cleanPasted("*72# 204"), "*72#204");
}

TEST(KeypadInput, PastingTextWithoutDigitsGivesNothing) {
    EXPECT_EQ(KeypadInput::cleanPasted("call me maybe"), "");
}

TEST(KeypadInput, DigitsOfOtherScriptsBecomeTheirPlainDigits) {
    EXPECT_EQ(KeypadInput::cleanPasted(QString::fromUtf8("\xd9\xa2\xd9\xa0\xd9\xa4")), "204");
}

TEST(KeypadInput, OnlyTheKeypadsCharactersAreKeys) {
    for (QChar key : QStringLiteral("0123456789*#+")) {
        EXPECT_TRUE(KeypadInput::isKey(key)) << key.toLatin1();
    }
    for (QChar other : QStringLiteral("a-( .")) {
        EXPECT_FALSE(KeypadInput::isKey(other)) << other.toLatin1();
    }
}

TEST(KeypadInput, DialsOnlyANumberWhileRegistered) {
    EXPECT_TRUE(KeypadInput::canDial("204", true));
    EXPECT_FALSE(KeypadInput::canDial("204", false));
    EXPECT_FALSE(KeypadInput::canDial("", true));
}

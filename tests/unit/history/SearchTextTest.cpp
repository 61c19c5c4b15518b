#include "history/SearchText.h"

#include <gtest/gtest.h>

// What a person types finds the name however it is written.

TEST(SearchText, PlainLettersMatchWithoutCase) {
    EXPECT_TRUE(SearchText::contains("Anna Berger", "berg"));
    EXPECT_TRUE(SearchText::contains("Anna Berger", "ANNA"));
    EXPECT_FALSE(SearchText::contains("Anna Berger", "bergen"));
}

TEST(SearchText, MullerFindsMuellerWrittenWithAnUmlaut) {
    EXPECT_TRUE(SearchText::contains("Jonas Müller", "muller"));
    EXPECT_TRUE(SearchText::contains("Jonas Müller", "MULLER"));
    EXPECT_TRUE(SearchText::contains("Jonas Müller", "Müller"));
}

TEST(SearchText, AQueryWithAccentsFindsTheNameWithout) {
    EXPECT_TRUE(SearchText::contains("Chloe Martin", "Chloé"));
    EXPECT_TRUE(SearchText::contains("Zoë", "zoe"));
}

TEST(SearchText, AccentsAsOneCharacterOrAsLetterAndMarkAreTheSame) {
    const QString composed = QString::fromUtf8("Ren\u00e9");
    const QString decomposed = QString::fromUtf8("Rene\u0301");
    EXPECT_TRUE(SearchText::contains(composed, decomposed));
    EXPECT_TRUE(SearchText::contains(decomposed, "rené"));
}

TEST(SearchText, TurkishDottedAndDotlessIMatchEveryI) {
    EXPECT_TRUE(SearchText::contains("Işık Yılmaz", "isik"));
    EXPECT_TRUE(SearchText::contains("Işık Yılmaz", "ISIK"));
    EXPECT_TRUE(SearchText::contains("Işık Yılmaz", "yılmaz"));
    EXPECT_TRUE(SearchText::contains("İpek Demir", "ipek"));
    EXPECT_TRUE(SearchText::contains("İpek Demir", "IPEK"));
    EXPECT_TRUE(SearchText::contains("ipek demir", "İPEK"));
    EXPECT_TRUE(SearchText::contains("Ilkay", "ılkay"));
}

TEST(SearchText, LettersWithTheirMarkBuiltInFoldToThePlainLetter) {
    EXPECT_TRUE(SearchText::contains("Łukasz Wróbel", "lukasz wrobel"));
    EXPECT_TRUE(SearchText::contains("Søren Østergaard", "soren oster"));
    EXPECT_TRUE(SearchText::contains("Đorđe", "dorde"));
    EXPECT_TRUE(SearchText::contains("Jana Groß", "gross"));
}

TEST(SearchText, ChineseNamesMatchByAnyPartAsWritten) {
    EXPECT_TRUE(SearchText::contains("王小明", "小明"));
    EXPECT_TRUE(SearchText::contains("王小明", "王"));
    EXPECT_FALSE(SearchText::contains("王小明", "李"));
}

TEST(SearchText, JapaneseVoicingMarksStayPartOfTheWord) {
    EXPECT_TRUE(SearchText::contains("ガルシア", "ガル"));
    // か and が are different sounds.
    EXPECT_FALSE(SearchText::contains("ガルシア", "カル"));
}

TEST(SearchText, KoreanSyllablesMatchWholeAndAsTyped) {
    EXPECT_TRUE(SearchText::contains("김민준", "민준"));
    EXPECT_FALSE(SearchText::contains("김민준", "박"));
}

TEST(SearchText, FullWidthLettersAndDigitsMatchTheirPlainForm) {
    EXPECT_TRUE(SearchText::contains("ＡＢＣ Trading", "abc"));
    EXPECT_TRUE(SearchText::contains("Room ２０４", "204"));
}

TEST(SearchText, AnEmptyQueryIsHeldByEveryText) {
    EXPECT_TRUE(SearchText::contains("Anna", ""));
    EXPECT_TRUE(SearchText::contains("", ""));
    EXPECT_FALSE(SearchText::contains("", "a"));
}

TEST(SearchText, FoldingTwiceChangesNothing) {
    for (const QString& name : {QString("Işık"), QString("Müller"), QString("Groß"),
                                QString("王小明"), QString("ガルシア"), QString("İpek")}) {
        const QString once = SearchText::fold(name);
        EXPECT_EQ(SearchText::fold(once), once) << name.toStdString();
    }
}

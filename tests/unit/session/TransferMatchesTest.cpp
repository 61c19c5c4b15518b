#include "session/TransferMatches.h"

#include <gtest/gtest.h>

// What the transfer sheet lists for what was typed.
namespace {

using TransferMatches::Row;

Directory::Entry entry(const char* id, const char* name, std::optional<QString> extension) {
    Directory::Entry e;
    e.id = id;
    e.name = QString::fromUtf8(name);
    e.extension_ = std::move(extension);
    return e;
}

Directory directory() {
    Directory d;
    d.users = {entry("u-1", "Anna Berger", "201"), entry("u-2", "Zoë Åberg", "202"),
               entry("u-3", "No Extension", std::nullopt), entry("u-4", "Bo Lind", "2100")};
    d.groups = {entry("g-1", "Sales", "600")};
    d.flows = {entry("f-1", "Main line", "700"), entry("f-2", "Empty", "")};
    return d;
}

QStringList names(const QList<Row>& rows) {
    QStringList out;
    for (const auto& row : rows) {
        out << row.name;
    }
    return out;
}

} // namespace

TEST(TransferMatches, AnEmptyQueryListsEveryoneWithAnExtensionButTheUserUsersFirst) {
    EXPECT_EQ(names(TransferMatches::of(directory(), "u-1", "  ")),
              (QStringList{"Zoë Åberg", "Bo Lind", "Sales", "Main line"}));
}

TEST(TransferMatches, ANameMatchesIgnoringCaseAndAccents) {
    EXPECT_EQ(names(TransferMatches::of(directory(), "u-1", "zoe")), QStringList{"Zoë Åberg"});
    EXPECT_EQ(names(TransferMatches::of(directory(), "u-1", " ABERG ")), QStringList{"Zoë Åberg"});
    EXPECT_EQ(names(TransferMatches::of(directory(), "u-1", "lin")),
              (QStringList{"Bo Lind", "Main line"}));
}

TEST(TransferMatches, ANameMatchesByTheDirectorysOwnSearchRuleForMarkedLetters) {
    Directory d;
    d.users = {entry("u-5", "Ayşe Işık", "210"), entry("u-6", "Łukasz Øster", "211"),
               entry("u-7", "Jürgen Straße", "212")};
    EXPECT_EQ(names(TransferMatches::of(d, "u-1", "isik")), QStringList{"Ayşe Işık"});
    EXPECT_EQ(names(TransferMatches::of(d, "u-1", "lukasz oster")), QStringList{"Łukasz Øster"});
    EXPECT_EQ(names(TransferMatches::of(d, "u-1", "strasse")), QStringList{"Jürgen Straße"});
}

TEST(TransferMatches, AnExtensionMatchesByItsStart) {
    const auto rows = TransferMatches::of(directory(), "u-9", "21");
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0], (Row{"21", "21", true}));
    EXPECT_EQ(rows[1], (Row{"Bo Lind", "2100", false}));
    // Nobody's extension starts with 00: only the typed row.
    EXPECT_EQ(TransferMatches::of(directory(), "u-9", "00").size(), 1);
}

TEST(TransferMatches, ATypedNumberComesFirstAsItsOwnRow) {
    const auto rows = TransferMatches::of(directory(), "u-1", "20");
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0], (Row{"20", "20", true}));
    EXPECT_EQ(rows[1], (Row{QString::fromUtf8("Zoë Åberg"), "202", false}));
}

TEST(TransferMatches, AnEmptyDirectoryWithANumberTypedHasOnlyThatRow) {
    const auto rows = TransferMatches::of(Directory{}, "u-1", "+49 30 1234");
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0], (Row{"+49301234", "+49301234", true}));
}

TEST(TransferMatches, OnlyDigitsPlusAndSpacesMakeANumberOfAtLeastTwo) {
    EXPECT_EQ(TransferMatches::typedNumber("+4 9"), "+49");
    EXPECT_EQ(TransferMatches::typedNumber("7"), std::nullopt);
    EXPECT_EQ(TransferMatches::typedNumber("12a"), std::nullopt);
    EXPECT_EQ(TransferMatches::typedNumber("(030) 12"), std::nullopt);
    EXPECT_EQ(TransferMatches::typedNumber(""), std::nullopt);
}

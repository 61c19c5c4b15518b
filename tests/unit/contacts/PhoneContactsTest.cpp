#include "contacts/PhoneContacts.h"

#include "RunTask.h"
#include "StderrCapture.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// Naming numbers from the address book: the number key, the first-wins map
// and what a book that cannot be read leaves. The reading of the real book is
// in the integration suite.
namespace {

class MemoryBook final : public AddressBook {
public:
    Read read() override { return next; }
    Read next;
};

AddressBook::Contact contact(const char* id, const char* fullName, const char* givenName,
                             QStringList numbers) {
    return {id, fullName, givenName, std::move(numbers), std::nullopt};
}

class PhoneContactsTest : public testing::Test {
protected:
    void load(std::vector<AddressBook::Contact> contacts) {
        book->next = {std::move(contacts), std::nullopt};
        runTask(contacts_.refresh());
    }

    std::shared_ptr<MemoryBook> book = std::make_shared<MemoryBook>();
    PhoneContacts contacts_{book};
};

} // namespace

TEST(PhoneContactsKey, InternationalAndNationalFormsMeetInTheirLastTenDigits) {
    EXPECT_EQ(PhoneContacts::numberKey("+49 (30) 123 4567"), "9301234567");
    EXPECT_EQ(PhoneContacts::numberKey("+49 (30) 123 4567"),
              PhoneContacts::numberKey("0049-30-1234567"));
}

TEST(PhoneContactsKey, ANumberOfTenDigitsOrFewerIsJustItsDigits) {
    EXPECT_EQ(PhoneContacts::numberKey("030 1234567"), "0301234567");
    EXPECT_EQ(PhoneContacts::numberKey("204"), "204");
    EXPECT_EQ(PhoneContacts::numberKey("+1 (555) 000-1111"), "5550001111");
}

TEST_F(PhoneContactsTest, CreatedItReadsNothingAndIsEmpty) {
    PhoneContacts fresh(book);
    EXPECT_FALSE(fresh.authorized());
    EXPECT_TRUE(fresh.people().isEmpty());
}

TEST_F(PhoneContactsTest, PlusBracketsAndDashesAllFindTheSamePerson) {
    load({contact("1", "Dana Roth", "Dana", {"+49 (30) 123 4567"})});
    EXPECT_EQ(contacts_.name("0049-30-1234567"), "Dana Roth");
    EXPECT_EQ(contacts_.name("+4930 1234567"), "Dana Roth");
}

TEST_F(PhoneContactsTest, AnExtensionNeverMatchesEvenIfAContactHasIt) {
    load({contact("1", "Front desk", "Front", {"204"})});
    EXPECT_EQ(contacts_.people().size(), 1);
    EXPECT_FALSE(contacts_.person("204"));
}

TEST_F(PhoneContactsTest, SixDigitsCanMatchAndFiveCannot) {
    load({contact("1", "Six", "Six", {"123456"}), contact("2", "Five", "Five", {"12345"})});
    EXPECT_EQ(contacts_.name("123456"), "Six");
    EXPECT_FALSE(contacts_.person("12345"));
}

TEST_F(PhoneContactsTest, OfTwoContactsSharingANumberTheFirstByGivenNameIsShown) {
    load({contact("2", "Zoe Quinn", "Zoe", {"030 1234567"}),
          contact("1", "Anna Berg", "Anna", {"(030) 123-4567"})});
    EXPECT_EQ(contacts_.name("0301234567"), "Anna Berg");
    EXPECT_EQ(contacts_.people().front().name, "Anna Berg");
}

TEST_F(PhoneContactsTest, AContactWithoutANumberIsLeftOut) {
    load({contact("1", "No Phone", "No", {}), contact("2", "Some One", "Some", {"0301234567"})});
    ASSERT_EQ(contacts_.people().size(), 1);
    EXPECT_EQ(contacts_.people().front().id, "2");
}

TEST_F(PhoneContactsTest, AContactWithoutANameShowsItsFirstNumber) {
    load({contact("1", "", "", {"+49 30 1234567", "0171 7654321"})});
    EXPECT_EQ(contacts_.name("+49301234567"), "+49 30 1234567");
}

TEST_F(PhoneContactsTest, AContactWithSeveralNumbersIsFoundByEach) {
    load({contact("1", "Dana Roth", "Dana", {"+49 30 1234567", "0171 7654321"})});
    EXPECT_EQ(contacts_.name("01717654321"), "Dana Roth");
    EXPECT_EQ(contacts_.name("0049301234567"), "Dana Roth");
}

TEST_F(PhoneContactsTest, ABookThatCanNoLongerBeReadEmptiesEverythingAndSaysSoOnce) {
    load({contact("1", "Dana Roth", "Dana", {"+49 30 1234567"})});
    EXPECT_TRUE(contacts_.authorized());
    EXPECT_TRUE(contacts_.person("+49301234567"));
    QSignalSpy spy(&contacts_, &PhoneContacts::peopleChanged);
    book->next = {{}, QStringLiteral("The name is not activatable")};
    StderrCapture capture;
    runTask(contacts_.refresh());
    runTask(contacts_.refresh());
    const QByteArray log = capture.take();
    EXPECT_FALSE(contacts_.authorized());
    EXPECT_TRUE(contacts_.people().isEmpty());
    EXPECT_FALSE(contacts_.person("+49301234567"));
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(log.count("The address book cannot be read"), 1);
}

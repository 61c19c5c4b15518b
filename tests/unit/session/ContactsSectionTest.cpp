#include "session/ContactsFilter.h"
#include "session/ContactsModel.h"
#include "session/DirectoryFilter.h"
#include "session/DirectoryModel.h"

#include "RunTask.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// The Contacts section of the directory screen: the address book's people
// under the search, their rows, and the prompt while the book is closed.
namespace {

class MemoryBook final : public AddressBook {
public:
    Read read() override { return next; }
    Read next;
};

AddressBook::Contact card(const char* id, const char* name, QStringList numbers,
                          std::optional<QByteArray> thumbnail = std::nullopt) {
    return {id, name, name, std::move(numbers), std::move(thumbnail)};
}

constexpr char jpegStart[] = "\xff\xd8\xff\xe0\x00\x10JFIF\x00 a face";
const QByteArray jpeg(jpegStart, sizeof jpegStart - 1);

class ContactsSection : public testing::Test {
protected:
    ContactsSection() {
        model.bind(&contacts);
        filter.setContactsModel(&model);
    }

    void open(std::vector<AddressBook::Contact> cards) {
        book->next = {std::move(cards), std::nullopt};
        runTask(contacts.refresh());
    }

    void closed() {
        book->next = {{},
                      QString("The name org.gnome.evolution.dataserver.Sources5 was not "
                              "provided by any .service files")};
        runTask(contacts.refresh());
    }

    QStringList names() const {
        QStringList out;
        for (int r = 0; r < filter.rowCount(); ++r) {
            out.append(filter.index(r, 0).data(ContactsModel::NameRole).toString());
        }
        return out;
    }

    QVariant role(const QString& name, int role) const {
        for (int r = 0; r < filter.rowCount(); ++r) {
            if (filter.index(r, 0).data(ContactsModel::NameRole).toString() == name) {
                return filter.index(r, 0).data(role);
            }
        }
        return {};
    }

    std::shared_ptr<MemoryBook> book = std::make_shared<MemoryBook>();
    PhoneContacts contacts{book};
    ContactsModel model;
    ContactsFilter filter;
};

} // namespace

TEST_F(ContactsSection, WithNothingTypedEveryPersonShowsInTheBooksOrder) {
    open({card("2", "Zoe Quinn", {"030 1234567"}), card("1", "Anna Berg", {"+49 30 7654321"})});
    EXPECT_EQ(names(), QStringList({"Anna Berg", "Zoe Quinn"}));
    EXPECT_TRUE(filter.sectionShown());
    EXPECT_FALSE(filter.promptShown());
}

TEST_F(ContactsSection, ANameIsFoundIgnoringCaseAndAccents) {
    open({card("1", "Jürgen Müller", {"+49 89 1112223"}), card("2", "Anna Berg", {"0301234567"})});
    filter.setQuery("muller");
    EXPECT_EQ(names(), QStringList({"Jürgen Müller"}));
    filter.setQuery("JÜRG");
    EXPECT_EQ(names(), QStringList({"Jürgen Müller"}));
}

TEST_F(ContactsSection, AQueryWithSpacesAroundItBehavesAsTheWordAlone) {
    open({card("1", "Anna Berg", {"0301234567"}), card("2", "Zoe Quinn", {"0307654321"})});
    filter.setQuery("  anna ");
    EXPECT_EQ(names(), QStringList({"Anna Berg"}));
}

TEST_F(ContactsSection, TwoDigitsFindNobodyByNumber) {
    open({card("1", "Anna Berg", {"+49 30 1234567"})});
    filter.setQuery("12");
    EXPECT_TRUE(names().isEmpty());
    EXPECT_FALSE(filter.sectionShown());
}

TEST_F(ContactsSection, ThreeDigitsFindThePersonWhoseNumberHoldsThem) {
    open({card("1", "Anna Berg", {"+49 30 1234567"}), card("2", "Zoe Quinn", {"0307654321"})});
    filter.setQuery("123");
    EXPECT_EQ(names(), QStringList({"Anna Berg"}));
}

TEST_F(ContactsSection, PlusAndSpacesInTheQuerySearchItsDigitsOnly) {
    open({card("1", "Anna Berg", {"+49 30 1234567"}), card("2", "Zoe Quinn", {"030 4567123"}),
          card("3", "Max Roth", {"0049 (30) 555-1"})});
    filter.setQuery("+49 30");
    // "4930" is in Anna's and Max's digits, not in Zoe's national form.
    EXPECT_EQ(names(), QStringList({"Anna Berg", "Max Roth"}));
}

TEST_F(ContactsSection, APersonIsFoundByAnyOfTheirNumbers) {
    open({card("1", "Anna Berg", {"+49 30 1234567", "+49 170 9998887"})});
    filter.setQuery("99988");
    EXPECT_EQ(names(), QStringList({"Anna Berg"}));
}

TEST_F(ContactsSection, LettersThatMatchNoNameFindNobodyEvenWithDigitsInTheBook) {
    open({card("1", "Anna Berg", {"+49 30 1234567"})});
    filter.setQuery("zed");
    EXPECT_TRUE(names().isEmpty());
    EXPECT_FALSE(filter.sectionShown());
}

TEST_F(ContactsSection, OneNumberIsTheSubtitleAndIsDialledDirectly) {
    open({card("1", "Anna Berg", {"+49 30 1234567"})});
    EXPECT_EQ(role("Anna Berg", ContactsModel::SubtitleRole).toString(), "+49 30 1234567");
    EXPECT_EQ(role("Anna Berg", ContactsModel::DirectNumberRole).toString(), "+49 30 1234567");
}

TEST_F(ContactsSection, SeveralNumbersShowTheFirstAndHowManyMoreAndAreOfferedToChoose) {
    open({card("1", "Anna Berg", {"+49 30 1234567", "+49 170 9998887", "0301112223"})});
    EXPECT_EQ(role("Anna Berg", ContactsModel::SubtitleRole).toString(), "+49 30 1234567 +2");
    EXPECT_EQ(role("Anna Berg", ContactsModel::DirectNumberRole).toString(), "");
    EXPECT_EQ(role("Anna Berg", ContactsModel::NumbersRole).toStringList(),
              QStringList({"+49 30 1234567", "+49 170 9998887", "0301112223"}));
}

TEST_F(ContactsSection, AThumbnailIsShownFromItsBytesAndNoneLeavesTheMonogram) {
    open({card("1", "Anna Berg", {"0301234567"}, jpeg), card("2", "Zoe Quinn", {"0307654321"})});
    EXPECT_EQ(role("Anna Berg", ContactsModel::ThumbnailRole).toString(),
              "data:image/jpeg;base64," + QString::fromLatin1(jpeg.toBase64()));
    EXPECT_EQ(role("Zoe Quinn", ContactsModel::ThumbnailRole).toString(), "");
}

TEST_F(ContactsSection, AClosedBookWithNothingTypedShowsOnlyThePrompt) {
    closed();
    EXPECT_FALSE(filter.authorized());
    EXPECT_TRUE(filter.promptShown());
    EXPECT_TRUE(filter.sectionShown());
    EXPECT_EQ(filter.count(), 0);
    // Spaces alone are nothing typed.
    filter.setQuery("   ");
    EXPECT_TRUE(filter.promptShown());
}

TEST_F(ContactsSection, AClosedBookWithAQueryHasNoSectionAndNoPrompt) {
    closed();
    filter.setQuery("anna");
    EXPECT_FALSE(filter.promptShown());
    EXPECT_FALSE(filter.sectionShown());
}

TEST_F(ContactsSection, ABookThatClosesLaterEmptiesTheSectionIntoThePrompt) {
    open({card("1", "Anna Berg", {"0301234567"})});
    QSignalSpy shown(&filter, &ContactsFilter::shownChanged);
    closed();
    EXPECT_TRUE(names().isEmpty());
    EXPECT_TRUE(filter.promptShown());
    EXPECT_FALSE(shown.isEmpty());
}

TEST_F(ContactsSection, ThePromptAsksTheBookAgainAndItsPeopleThenShow) {
    closed();
    ASSERT_TRUE(filter.promptShown());
    book->next = {{card("1", "Anna Berg", {"0301234567"})}, std::nullopt};
    QSignalSpy people(&contacts, &PhoneContacts::peopleChanged);
    filter.requestAccess();
    ASSERT_TRUE(people.wait(5000));
    EXPECT_TRUE(filter.authorized());
    EXPECT_FALSE(filter.promptShown());
    EXPECT_EQ(names(), QStringList({"Anna Berg"}));
}

TEST_F(ContactsSection, NoResultsIsSaidForTheCompanyEvenWhenAContactMatches) {
    open({card("1", "Zora Lind", {"0301234567"})});
    Directory company;
    Directory::Entry ben;
    ben.id = "u2";
    ben.name = "Ben Okafor";
    ben.extension_ = "202";
    company.users = {ben};
    DirectoryModel directory;
    directory.setDirectory(company, {});
    DirectoryFilter people;
    people.setDirectoryModel(&directory);
    people.setQuery("zora");
    filter.setQuery("zora");
    EXPECT_TRUE(people.noResults());
    EXPECT_EQ(names(), QStringList({"Zora Lind"}));
    // Ben is found, and the section of contacts is left out of it.
    people.setQuery("ben");
    filter.setQuery("ben");
    EXPECT_FALSE(people.noResults());
    EXPECT_FALSE(filter.sectionShown());
}

#include "contacts/ColleagueContacts.h"
#include "contacts/ColleagueExport.h"
#include "platform/Clock.h"

#include "MemoryContactStore.h"
#include "RunTask.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// Colleagues copied into the address book: which directory entries become
// contacts, what a contact holds, what survives an update, the switch and its
// permission, and what a refused save leaves. The book is an in-memory one;
// Evolution Data Server's is in the integration suite.
namespace {

using Colleague = ColleagueContacts::Colleague;

Directory::Entry user(const QString& id, const QString& name, QStringList numbers,
                      std::optional<QString> email = std::nullopt,
                      std::optional<AvatarRef> avatar = std::nullopt) {
    Directory::Entry entry;
    entry.id = id;
    entry.name = name;
    entry.email = std::move(email);
    entry.numbers = std::move(numbers);
    entry.avatar = std::move(avatar);
    return entry;
}

class ColleagueContactsTest : public testing::Test {
protected:
    ColleagueContactsTest() {
        settings.setBoolean("colleagues.export", true);
        colleagues = make();
    }

    std::unique_ptr<ColleagueContacts> make() {
        return std::make_unique<ColleagueContacts>(
            settings, [book = book] { return std::make_unique<MemoryContactStore>(book); });
    }
    void sync(const QList<Directory::Entry>& users, std::optional<QString> ownId = "me") {
        runTask(colleagues->sync(users, std::move(ownId), loader()));
    }
    // Pictures by URL; counts the loads and notes any that overlap.
    ColleagueContacts::LoadImage loader() {
        return [this](AvatarRef ref) -> QCoro::Task<std::optional<QByteArray>> {
            ++loading;
            overlapped = overlapped || loading > 1;
            loads.append(ref.url);
            // A turn of the event loop for each picture.
            co_await Clock::system().sleep(std::chrono::milliseconds(1));
            --loading;
            if (!pictures.contains(ref.url)) {
                co_return std::nullopt;
            }
            co_return pictures.value(ref.url);
        };
    }
    ColleagueContacts::Map map() { return settings.dictionary("colleagues.export.map").value(); }
    MemoryBook::Contact contactOf(const QString& directoryId) {
        const auto found = book->find(map().value(directoryId));
        EXPECT_TRUE(found) << directoryId.toStdString();
        return found.value_or(MemoryBook::Contact{});
    }

    MemorySettingsStore settings;
    std::shared_ptr<MemoryBook> book = std::make_shared<MemoryBook>();
    std::unique_ptr<ColleagueContacts> colleagues;
    QHash<QString, QByteArray> pictures;
    QStringList loads;
    int loading = 0;
    bool overlapped = false;
};

} // namespace

TEST(ColleagueExportNames, ThreePiecesGiveTwoGivenNamesAndTheFamilyName) {
    EXPECT_EQ(ColleagueExport::splitName("Anna Maria Schmidt"),
              std::make_pair(QString("Anna Maria"), QString("Schmidt")));
}

TEST(ColleagueExportNames, OneNameIsAllGivenNameWithAnEmptyFamilyName) {
    EXPECT_EQ(ColleagueExport::splitName("Geinagle"),
              std::make_pair(QString("Geinagle"), QString()));
}

TEST(ColleagueExportNames, BlanksAroundAndBetweenTheNamesAreDropped) {
    EXPECT_EQ(ColleagueExport::splitName("  Anna   Schmidt "),
              std::make_pair(QString("Anna"), QString("Schmidt")));
}

TEST_F(ColleagueContactsTest, EachColleagueWithADirectNumberBecomesOneContactInTheGroup) {
    sync({user("u1", "Anna Maria Schmidt", {"+49 30 1111", "+49 171 2222"}, "anna@velnor.test"),
          user("u2", "Geinagle", {"+49 30 3333"})});
    ASSERT_EQ(book->size(), 2u);
    ASSERT_EQ(book->groups.size(), 1);
    EXPECT_EQ(book->groups.first().name, "velnor RZ");
    const auto anna = contactOf("u1");
    EXPECT_EQ(anna.fields.givenName, "Anna Maria");
    EXPECT_EQ(anna.fields.familyName, "Schmidt");
    EXPECT_EQ(anna.fields.organization, "velnor RZ");
    const QList<ContactStore::Labelled> phones{{"velnor RZ", "+49 30 1111"},
                                               {"velnor RZ", "+49 171 2222"}};
    EXPECT_EQ(anna.fields.phones, phones);
    const QList<ContactStore::Labelled> emails{{"work", "anna@velnor.test"}};
    EXPECT_EQ(anna.fields.emails, emails);
    EXPECT_EQ(anna.groupIds, QStringList{book->groups.first().id});
    EXPECT_EQ(contactOf("u2").fields.familyName, "");
    EXPECT_EQ(colleagues->count(), 2);
    EXPECT_FALSE(colleagues->lastError());
    EXPECT_FALSE(colleagues->syncing());
}

TEST_F(ColleagueContactsTest, TheExtensionIsCarriedButNeverWritten) {
    auto entry = user("u1", "Anna Berg", {"+49 30 1111"});
    entry.extension_ = "204";
    const auto exported = ColleagueContacts::colleaguesOf({entry}, std::nullopt);
    ASSERT_EQ(exported.size(), 1);
    EXPECT_EQ(exported.first().extension_, "204");
    sync({entry});
    const QList<ContactStore::Labelled> phones{{"velnor RZ", "+49 30 1111"}};
    EXPECT_EQ(contactOf("u1").fields.phones, phones);
}

TEST_F(ColleagueContactsTest, SomeoneReachableOnlyByExtensionIsNotExported) {
    auto onlyExtension = user("u1", "Front Desk", {});
    onlyExtension.extension_ = "100";
    auto noNumbers = user("u2", "Back Office", {});
    noNumbers.numbers.reset();
    sync({onlyExtension, noNumbers, user("u3", "Dana Roth", {"+49 30 5555"})});
    EXPECT_EQ(book->size(), 1u);
    EXPECT_EQ(map().keys(), QStringList{"u3"});
}

TEST_F(ColleagueContactsTest, TheUsersOwnEntryNeverAppearsInTheBook) {
    sync({user("me", "Own Self", {"+49 30 0000"}), user("u1", "Anna Berg", {"+49 30 1111"})}, "me");
    EXPECT_EQ(book->size(), 1u);
    EXPECT_TRUE(book->named("Own").empty());
    EXPECT_FALSE(map().contains("me"));
}

TEST_F(ColleagueContactsTest, ADirectoryWithoutNumbersSeeksNoGroupAndDeletesEarlierContacts) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"}), user("u2", "Dana Roth", {"+49 30 2222"})});
    ASSERT_EQ(book->size(), 2u);
    book->failGroupListing = true; // a search for the group would show as a listing
    book->groups.clear();
    sync({user("u1", "Anna Berg", {}), user("u3", "Only Ext", {})});
    EXPECT_EQ(book->size(), 0u);
    EXPECT_TRUE(book->groups.isEmpty());
    EXPECT_TRUE(map().isEmpty());
    EXPECT_EQ(colleagues->count(), 0);
}

TEST_F(ColleagueContactsTest, AColleagueWhoLeftHasTheirContactDeletedAndAHandMadeOneStays) {
    const QString own = book->addByHand("Mum", {"+49 171 9999"});
    sync({user("u1", "Anna Berg", {"+49 30 1111"}), user("u2", "Dana Roth", {"+49 30 2222"})});
    const QString danaId = map().value("u2");
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    EXPECT_FALSE(book->find(danaId));
    EXPECT_TRUE(book->find(own));
    EXPECT_EQ(map().keys(), QStringList{"u1"});
    EXPECT_EQ(book->size(), 2u);
}

TEST_F(ColleagueContactsTest, AContactsNoteAddedByTheUserSurvivesAnUpdate) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    const QString id = map().value("u1");
    book->edit(id, [](MemoryBook::Contact& contact) { contact.note = "Likes tea"; });
    sync({user("u1", "Anna Berg-Roth", {"+49 30 1112"})});
    const auto contact = book->find(id).value();
    EXPECT_EQ(contact.note, "Likes tea");
    EXPECT_EQ(contact.fields.givenName, "Anna");
    EXPECT_EQ(contact.fields.familyName, "Berg-Roth");
    EXPECT_EQ(map().value("u1"), id);
}

TEST_F(ColleagueContactsTest, AFieldTheUserEditedByHandIsWrittenBackAtTheNextSync) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    const QString id = map().value("u1");
    book->edit(id, [](MemoryBook::Contact& contact) {
        contact.fields.organization = "Elsewhere";
        contact.fields.phones.append(ContactStore::Labelled{"mobile", "+49 171 0000"});
    });
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    const auto contact = book->find(id).value();
    EXPECT_EQ(contact.fields.organization, "velnor RZ");
    const QList<ContactStore::Labelled> phones{{"velnor RZ", "+49 30 1111"}};
    EXPECT_EQ(contact.fields.phones, phones);
}

TEST_F(ColleagueContactsTest, AColleagueWhoDropsTheirEmailLosesItFromTheContact) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"}, "anna@velnor.test")});
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    EXPECT_TRUE(contactOf("u1").fields.emails.isEmpty());
}

TEST_F(ColleagueContactsTest, AColleagueWhoDropsTheirAvatarKeepsTheOldPicture) {
    pictures.insert("/media/anna.jpg", "JPEG-ANNA");
    sync({user("u1", "Anna Berg", {"+49 30 1111"}, std::nullopt,
               AvatarRef{"/media/anna.jpg", "1"})});
    EXPECT_EQ(contactOf("u1").fields.image, QByteArray("JPEG-ANNA"));
    sync({user("u1", "Anna Berg", {"+49 30 2222"})});
    EXPECT_EQ(contactOf("u1").fields.image, QByteArray("JPEG-ANNA"));
    const QList<ContactStore::Labelled> phones{{"velnor RZ", "+49 30 2222"}};
    EXPECT_EQ(contactOf("u1").fields.phones, phones);
}

TEST_F(ColleagueContactsTest, PicturesAreLoadedOneAfterTheOtherInDirectoryOrder) {
    pictures.insert("/a.jpg", "A");
    pictures.insert("/c.jpg", "C");
    sync({user("u1", "Anna Berg", {"1"}, std::nullopt, AvatarRef{"/a.jpg", "1"}),
          user("u2", "Ben Cole", {"2"}),
          user("u3", "Cleo Dahl", {"3"}, std::nullopt, AvatarRef{"/c.jpg", "1"}),
          user("u4", "Failed Pic", {"4"}, std::nullopt, AvatarRef{"/gone.jpg", "1"})});
    EXPECT_EQ(loads, (QStringList{"/a.jpg", "/c.jpg", "/gone.jpg"}));
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(contactOf("u3").fields.image, QByteArray("C"));
    EXPECT_FALSE(contactOf("u2").fields.image);
    EXPECT_FALSE(contactOf("u4").fields.image);
}

TEST_F(ColleagueContactsTest, AContactDeletedByTheUserIsMadeAnewAtTheNextSync) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    const QString first = map().value("u1");
    book->erase(first);
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    EXPECT_EQ(book->size(), 1u);
    EXPECT_NE(map().value("u1"), first);
    EXPECT_EQ(contactOf("u1").fields.givenName, "Anna");
}

TEST_F(ColleagueContactsTest, AnUnchangedDirectoryWritesNothingToTheBook) {
    const QList<Directory::Entry> users{user("u1", "Anna Berg", {"+49 30 1111"}, "a@velnor.test"),
                                        user("u2", "Dana Roth", {"+49 30 2222"})};
    sync(users);
    sync(users);
    EXPECT_EQ(book->updates, 0);
    sync({users[0], user("u2", "Dana Roth", {"+49 30 2223"})});
    EXPECT_EQ(book->updates, 1);
}

TEST_F(ColleagueContactsTest, TurningOffAndOnAgainMakesNewContactsAndFindsTheOldGroupByName) {
    const QList<Directory::Entry> users{user("u1", "Anna Berg", {"+49 30 1111"})};
    sync(users);
    const QString first = map().value("u1");
    const QString group = book->groups.first().id;
    const QString own = book->addByHand("Mum", {"+49 171 9999"});
    runTask(colleagues->setEnabled(false, users, "me", loader()));
    EXPECT_FALSE(colleagues->enabled());
    EXPECT_EQ(settings.boolean("colleagues.export"), false);
    EXPECT_EQ(book->size(), 1u);
    EXPECT_TRUE(book->find(own));
    EXPECT_TRUE(map().isEmpty());
    EXPECT_EQ(colleagues->count(), 0);
    // The group stays behind, empty.
    EXPECT_EQ(book->groups.size(), 1);
    runTask(colleagues->setEnabled(true, users, "me", loader()));
    EXPECT_TRUE(colleagues->enabled());
    EXPECT_NE(map().value("u1"), first);
    EXPECT_EQ(book->groups.size(), 1);
    EXPECT_EQ(contactOf("u1").groupIds, QStringList{group});
}

TEST_F(ColleagueContactsTest, OfTwoGroupsWithTheSameNameTheFirstInTheStoresOrderIsUsed) {
    book->groups = {{"g-other", "Family"}, {"g-first", "velnor RZ"}, {"g-second", "velnor RZ"}};
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    EXPECT_EQ(contactOf("u1").groupIds, QStringList{"g-first"});
    EXPECT_EQ(book->groups.size(), 3);
}

TEST_F(ColleagueContactsTest, AGroupThatCannotBeMadeLeavesTheContactsUngroupedWithoutAMessage) {
    book->failGroupMaking = true;
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    EXPECT_EQ(book->size(), 1u);
    EXPECT_TRUE(contactOf("u1").groupIds.isEmpty());
    EXPECT_FALSE(colleagues->lastError());
}

TEST_F(ColleagueContactsTest, AGroupListThatFailsCountsAsNotFoundAndTheGroupIsMade) {
    book->failGroupListing = true;
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    ASSERT_EQ(book->groups.size(), 1);
    EXPECT_EQ(contactOf("u1").groupIds, QStringList{book->groups.first().id});
}

TEST_F(ColleagueContactsTest, ARefusedSaveKeepsTheOldMapForPresentColleaguesAndSaysWhy) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"}), user("u2", "Dana Roth", {"+49 30 2222"})});
    const auto before = map();
    book->failSave = "The address book is read-only.";
    sync({user("u1", "Anna Berg", {"+49 30 1112"}), user("u3", "New Person", {"+49 30 3333"})});
    // Dana left: her contact stays in the book as an orphan; the new one is forgotten.
    EXPECT_EQ(map(), (ColleagueContacts::Map{{"u1", before.value("u1")}}));
    EXPECT_EQ(colleagues->lastError(), "The address book is read-only.");
    EXPECT_TRUE(colleagues->enabled());
    EXPECT_EQ(colleagues->count(), 1);
    EXPECT_EQ(book->size(), 2u);
    book->failSave.reset();
    sync({user("u1", "Anna Berg", {"+49 30 1112"}), user("u3", "New Person", {"+49 30 3333"})});
    EXPECT_FALSE(colleagues->lastError());
    EXPECT_EQ(colleagues->count(), 2);
    EXPECT_TRUE(book->find(before.value("u2"))); // never touched again
}

TEST_F(ColleagueContactsTest, ARefusedSaveWhenTurningOffStillForgetsEveryContact) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    book->failSave = "The address book went away.";
    runTask(colleagues->removeAll());
    EXPECT_TRUE(map().isEmpty());
    EXPECT_EQ(colleagues->count(), 0);
    EXPECT_EQ(colleagues->lastError(), "The address book went away.");
}

TEST_F(ColleagueContactsTest, WithoutPermissionSwitchingOnChangesNothingButTheError) {
    settings.remove("colleagues.export");
    colleagues = make();
    book->access = ContactStore::Access::denied;
    QSignalSpy enabledChanged(colleagues.get(), &ColleagueContacts::enabledChanged);
    runTask(
        colleagues->setEnabled(true, {user("u1", "Anna Berg", {"+49 30 1111"})}, "me", loader()));
    EXPECT_FALSE(colleagues->enabled());
    EXPECT_EQ(enabledChanged.count(), 0);
    EXPECT_EQ(colleagues->lastError(), "Allow access to contacts in Settings first.");
    EXPECT_FALSE(settings.boolean("colleagues.export"));
    EXPECT_FALSE(settings.dictionary("colleagues.export.map"));
    EXPECT_EQ(book->size(), 0u);
    EXPECT_EQ(book->accessRequests, 0); // denied before: not asked again
}

TEST_F(ColleagueContactsTest, NeverAskedTheUserIsAskedOnceAndTheExportFollows) {
    settings.remove("colleagues.export");
    colleagues = make();
    book->access = ContactStore::Access::notDetermined;
    runTask(
        colleagues->setEnabled(true, {user("u1", "Anna Berg", {"+49 30 1111"})}, "me", loader()));
    EXPECT_EQ(book->accessRequests, 1);
    EXPECT_TRUE(colleagues->enabled());
    EXPECT_EQ(settings.boolean("colleagues.export"), true);
    EXPECT_EQ(book->size(), 1u);
}

TEST_F(ColleagueContactsTest, AskedAndRefusedTheSwitchFallsBack) {
    settings.remove("colleagues.export");
    colleagues = make();
    book->access = ContactStore::Access::notDetermined;
    book->answer = ContactStore::Access::denied;
    runTask(colleagues->setEnabled(true, {}, "me", loader()));
    EXPECT_EQ(book->accessRequests, 1);
    EXPECT_FALSE(colleagues->enabled());
    EXPECT_EQ(colleagues->lastError(), "Allow access to contacts in Settings first.");
}

TEST_F(ColleagueContactsTest, TurningOffAsksNoPermission) {
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    book->access = ContactStore::Access::notDetermined;
    runTask(colleagues->setEnabled(false, {}, "me", loader()));
    EXPECT_EQ(book->accessRequests, 0);
    EXPECT_FALSE(colleagues->enabled());
    EXPECT_EQ(book->size(), 0u);
}

TEST_F(ColleagueContactsTest, WhileOffSyncDoesNothing) {
    settings.setBoolean("colleagues.export", false);
    colleagues = make();
    sync({user("u1", "Anna Berg", {"+49 30 1111"})});
    EXPECT_EQ(book->size(), 0u);
    EXPECT_EQ(book->saves, 0);
    EXPECT_FALSE(settings.dictionary("colleagues.export.map"));
}

TEST_F(ColleagueContactsTest, ADirectoryChangeDuringSyncingHasNoEffectUntilTheNextTrigger) {
    book->hold();
    QSignalSpy syncing(colleagues.get(), &ColleagueContacts::syncingChanged);
    auto first = colleagues->sync({user("u1", "Anna Berg", {"+49 30 1111"})}, "me", loader());
    EXPECT_TRUE(colleagues->syncing());
    EXPECT_EQ(colleagues->statusLine(), "Updating…");
    auto second = colleagues->sync(
        {user("u1", "Anna Berg", {"+49 30 1111"}), user("u2", "Dana Roth", {"+49 30 2222"})}, "me",
        loader());
    runTask(std::move(second)); // returns at once
    book->release();
    runTask(std::move(first));
    EXPECT_EQ(book->size(), 1u);
    EXPECT_EQ(book->saves, 1);
    EXPECT_EQ(syncing.count(), 2);
    sync({user("u1", "Anna Berg", {"+49 30 1111"}), user("u2", "Dana Roth", {"+49 30 2222"})});
    EXPECT_EQ(book->size(), 2u);
}

TEST_F(ColleagueContactsTest, TheCountStartsAtZeroAtLaunchAndFollowsTheMapAfterASync) {
    sync({user("u1", "Anna Berg", {"1"}), user("u2", "Ben Cole", {"2"})});
    colleagues = make(); // a new launch
    EXPECT_EQ(colleagues->count(), 0);
    EXPECT_TRUE(colleagues->enabled());
    EXPECT_EQ(colleagues->statusLine(), "0 colleagues");
    sync({user("u1", "Anna Berg", {"1"}), user("u2", "Ben Cole", {"2"})});
    EXPECT_EQ(colleagues->count(), 2);
    EXPECT_EQ(colleagues->statusLine(), "2 colleagues");
    EXPECT_EQ(book->size(), 2u);
}

TEST_F(ColleagueContactsTest, TheStatusLineIsEmptyWhileOff) {
    settings.setBoolean("colleagues.export", false);
    colleagues = make();
    EXPECT_EQ(colleagues->statusLine(), "");
}

TEST_F(ColleagueContactsTest, AStoredMapHoldingANonTextValueCountsAsEmpty) {
    // A settings file edited by hand: one value of the map is a number.
    class RawSettings final : public SettingsStore {
    public:
        void put(const QString& key, const QVariant& value) { m_values.insert(key, value); }

    protected:
        QVariant raw(const QString& key) const override { return m_values.value(key); }
        void store(const QString& key, const QVariant& value) override { put(key, value); }
        void erase(const QString& key) override { m_values.remove(key); }

    private:
        QHash<QString, QVariant> m_values;
    } raw;
    const QString own = book->addByHand("Mum", {"+49 171 9999"});
    raw.setBoolean("colleagues.export", true);
    raw.put("colleagues.export.map", QVariantMap{{"u1", own}, {"u2", 42}});
    ColleagueContacts fresh(raw,
                            [book = book] { return std::make_unique<MemoryContactStore>(book); });
    runTask(fresh.sync({user("u3", "Dana Roth", {"+49 30 2222"})}, "me", loader()));
    // Nothing of the damaged map is trusted, so the contact it names is never touched.
    EXPECT_TRUE(book->find(own));
    EXPECT_EQ(book->size(), 2u);
    EXPECT_EQ(raw.dictionary("colleagues.export.map")->keys(), QStringList{"u3"});
}

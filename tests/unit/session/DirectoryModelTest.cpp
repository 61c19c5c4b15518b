#include "session/DirectoryModel.h"
#include "session/DirectoryFilter.h"

#include "live/LiveModels.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// The directory screen's list: sections, the search, the order and presence.
namespace {

Directory::Entry entry(const QString& id, const QString& name,
                       std::optional<QString> extension = std::nullopt,
                       std::optional<QString> email = std::nullopt) {
    Directory::Entry e;
    e.id = id;
    e.name = name;
    e.extension_ = std::move(extension);
    e.email = std::move(email);
    return e;
}

Directory company() {
    Directory d;
    d.users = {entry("u1", "Anna Berger", "201", "anna@acme.example"),
               entry("u2", "Zoe Quinn", "204", "zoe@acme.example"),
               entry("u3", "Ärger Ahmed", "120", "aerger@acme.example"),
               entry("u4", "Jonas Müller", "205", "jonas@acme.example"),
               entry("u5", "Noor Visitor", std::nullopt, "noor@acme.example")};
    d.groups = {entry("g1", "Support", "601"), entry("g2", "Sales", "600")};
    d.flows = {entry("f1", "Main line", "700")};
    return d;
}

class DirectoryList : public testing::Test {
protected:
    DirectoryList() {
        model.setPresenceModel(&presence);
        filter.setDirectoryModel(&model);
    }

    QStringList names() const {
        QStringList out;
        for (int r = 0; r < filter.rowCount(); ++r) {
            out.append(filter.index(r, 0).data(DirectoryModel::NameRole).toString());
        }
        return out;
    }

    QVariant role(const QString& name, int role) const {
        for (int r = 0; r < filter.rowCount(); ++r) {
            if (filter.index(r, 0).data(DirectoryModel::NameRole).toString() == name) {
                return filter.index(r, 0).data(role);
            }
        }
        return {};
    }

    PresenceModel presence;
    DirectoryModel model;
    DirectoryFilter filter;
};

} // namespace

TEST_F(DirectoryList, PeopleGroupsAndFlowsComeInThatOrderEachSortedByName) {
    model.setDirectory(company(), "u1");
    EXPECT_EQ(names(), QStringList({"Ärger Ahmed", "Jonas Müller", "Noor Visitor", "Zoe Quinn",
                                    "Sales", "Support", "Main line"}));
    EXPECT_EQ(role("Sales", DirectoryModel::SectionRole).toString(), "Groups");
    EXPECT_EQ(role("Main line", DirectoryModel::SectionRole).toString(), "Call flows");
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::SectionRole).toString(), "People");
}

TEST_F(DirectoryList, TheSignedInUserIsLeftOutOfPeople) {
    model.setDirectory(company(), "u1");
    EXPECT_FALSE(names().contains("Anna Berger"));
}

TEST_F(DirectoryList, WithoutAKnownUserNobodyIsLeftOut) {
    model.setDirectory(company(), "");
    EXPECT_TRUE(names().contains("Anna Berger"));
    EXPECT_EQ(names().size(), 8);
}

TEST_F(DirectoryList, NoDirectoryIsNoRows) {
    model.setDirectory(std::nullopt, "u1");
    EXPECT_EQ(filter.rowCount(), 0);
    EXPECT_FALSE(filter.noResults());
}

TEST_F(DirectoryList, AColleagueWithoutAnExtensionIsShownAndCannotBeCalled) {
    model.setDirectory(company(), "u1");
    EXPECT_EQ(role("Noor Visitor", DirectoryModel::DialableRole), false);
    EXPECT_EQ(role("Noor Visitor", DirectoryModel::ExtensionRole).toString(), "");
    EXPECT_EQ(role("Noor Visitor", DirectoryModel::AccessibleHintRole).toString(), "");
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::DialableRole), true);
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::AccessibleHintRole).toString(), "Calls Zoe Quinn");
}

TEST_F(DirectoryList, AQueryOfDigitsKeepsExtensionsThatBeginWithIt) {
    model.setDirectory(company(), "u1");
    filter.setQuery("20");
    // 204 and 205 begin with 20; 120 only holds it.
    EXPECT_EQ(names(), QStringList({"Jonas Müller", "Zoe Quinn"}));
}

TEST_F(DirectoryList, AnExtensionInsideANameStillMatchesByName) {
    auto d = company();
    d.users.append(entry("u6", "Desk 120", "800"));
    model.setDirectory(d, "u1");
    filter.setQuery("120");
    EXPECT_EQ(names(), QStringList({"Ärger Ahmed", "Desk 120"}));
}

TEST_F(DirectoryList, SpacesAroundTheQueryDoNotCount) {
    model.setDirectory(company(), "");
    filter.setQuery("  anna ");
    EXPECT_EQ(names(), QStringList({"Anna Berger"}));
}

TEST_F(DirectoryList, MullerFindsMueller) {
    model.setDirectory(company(), "u1");
    filter.setQuery("muller");
    EXPECT_EQ(names(), QStringList({"Jonas Müller"}));
}

TEST_F(DirectoryList, GroupsAndFlowsAreFilteredByTheSameRule) {
    model.setDirectory(company(), "u1");
    filter.setQuery("s");
    EXPECT_EQ(names(), QStringList({"Jonas Müller", "Noor Visitor", "Sales", "Support"}));
    filter.setQuery("70");
    EXPECT_EQ(names(), QStringList({"Main line"}));
}

TEST_F(DirectoryList, AQueryThatNothingHoldsSaysSo) {
    model.setDirectory(company(), "u1");
    QSignalSpy counted(&filter, &DirectoryFilter::countChanged);
    filter.setQuery("xyz");
    EXPECT_TRUE(filter.noResults());
    EXPECT_GE(counted.count(), 1);
    filter.setQuery("");
    EXPECT_FALSE(filter.noResults());
    EXPECT_EQ(filter.count(), 7);
}

TEST_F(DirectoryList, ANewDirectoryKeepsTheQuery) {
    model.setDirectory(company(), "u1");
    filter.setQuery("zoe");
    auto d = company();
    d.users.append(entry("u7", "Zoey Park", "209"));
    model.setDirectory(d, "u1");
    EXPECT_EQ(names(), QStringList({"Zoe Quinn", "Zoey Park"}));
}

TEST_F(DirectoryList, ThePresenceTextStandsInForTheAddress) {
    model.setDirectory(company(), "u1");
    presence.reset({{"u2", live::Presence::busy}, {"u4", live::Presence::dnd}});
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::SubtitleRole).toString(), "On a call");
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::PresenceRole).toString(), "busy");
    EXPECT_EQ(role("Jonas Müller", DirectoryModel::SubtitleRole).toString(), "Do not disturb");
    // No presence known: no dot, and the address.
    EXPECT_EQ(role("Ärger Ahmed", DirectoryModel::PresenceRole).toString(), "");
    EXPECT_EQ(role("Ärger Ahmed", DirectoryModel::SubtitleRole).toString(), "aerger@acme.example");
}

TEST_F(DirectoryList, AnOfflineOrIdleColleagueShowsTheAddressWithTheDot) {
    model.setDirectory(company(), "u1");
    presence.reset({{"u2", live::Presence::offline}, {"u4", live::Presence::idle}});
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::SubtitleRole).toString(), "zoe@acme.example");
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::PresenceRole).toString(), "offline");
    EXPECT_EQ(role("Jonas Müller", DirectoryModel::SubtitleRole).toString(), "jonas@acme.example");
    EXPECT_EQ(role("Jonas Müller", DirectoryModel::PresenceRole).toString(), "idle");
}

TEST_F(DirectoryList, ARingingColleagueSaysRinging) {
    model.setDirectory(company(), "u1");
    presence.reset({{"u2", live::Presence::ringing}});
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::SubtitleRole).toString(), "Ringing");
}

TEST_F(DirectoryList, APresenceChangeTellsOnlyThatColleaguesRow) {
    model.setDirectory(company(), "u1");
    presence.reset({{"u2", live::Presence::idle}, {"u4", live::Presence::idle}});
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    presence.set("u2", live::Presence::busy);
    ASSERT_EQ(changed.count(), 1);
    const auto from = changed[0][0].value<QModelIndex>();
    const auto to = changed[0][1].value<QModelIndex>();
    EXPECT_EQ(from, to);
    EXPECT_EQ(from.data(DirectoryModel::EntryIdRole).toString(), "u2");
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::SubtitleRole).toString(), "On a call");
}

TEST_F(DirectoryList, GroupsHaveNoPresenceEvenWithAnEqualId) {
    model.setDirectory(company(), "u1");
    presence.reset({{"g1", live::Presence::busy}});
    EXPECT_EQ(role("Support", DirectoryModel::PresenceRole).toString(), "");
}

TEST_F(DirectoryList, APictureIsShownFromTheLookupAndItsArrivalTellsTheRow) {
    auto d = company();
    d.users[1].avatar = AvatarRef{"/media/z.jpg", "2"};
    bool arrived = false;
    QList<AvatarRef> asked;
    model.setAvatarLookup([&](const AvatarRef& ref) {
        asked.append(ref);
        return arrived ? QString("image://avatars/z") : QString();
    });
    model.setDirectory(d, "u1");
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::AvatarRole).toString(), "");
    EXPECT_EQ(asked, QList<AvatarRef>({AvatarRef{"/media/z.jpg", "2"}}));
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    arrived = true;
    model.avatarArrived("/media/z.jpg", "2");
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(role("Zoe Quinn", DirectoryModel::AvatarRole).toString(), "image://avatars/z");
    // A row without a picture asks for none.
    EXPECT_EQ(role("Sales", DirectoryModel::AvatarRole).toString(), "");
}

TEST(DirectoryFilterRule, AnEmptyQueryKeepsEverything) {
    EXPECT_TRUE(DirectoryFilter::matches("anna", "", "", ""));
}

TEST(DirectoryFilterRule, AnExtensionMustBeginWithTheQuery) {
    EXPECT_TRUE(DirectoryFilter::matches("x", "204", "20", "20"));
    EXPECT_FALSE(DirectoryFilter::matches("x", "120", "20", "20"));
    EXPECT_FALSE(DirectoryFilter::matches("x", "", "20", "20"));
}

TEST(DirectoryAvatarKey, AKeyNamesItsPictureBackWhateverTheUrlHolds) {
    for (const AvatarRef& ref :
         {AvatarRef{"/media/avatars/u-002.jpg", "3"},
          AvatarRef{"https://cdn.example.com/a b/ü.jpg?x=1&y=2", "v.7"}, AvatarRef{"", ""}}) {
        const QString key = DirectoryModel::avatarKey(ref);
        EXPECT_FALSE(key.contains('/'));
        EXPECT_EQ(DirectoryModel::avatarRefOf(key), ref);
    }
}

TEST(DirectoryAvatarKey, AKeyNotMadeHereNamesNoPicture) {
    EXPECT_FALSE(DirectoryModel::avatarRefOf("no-dot"));
    EXPECT_FALSE(DirectoryModel::avatarRefOf("a.b.c"));
    EXPECT_FALSE(DirectoryModel::avatarRefOf("***.***"));
}

#include "session/ConferenceModel.h"

#include "session/Session.h"

#include "platform/SecureStore.h"
#include "platform/SettingsStore.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// The conference's tiles: their order, who is host, who may be muted or
// removed, and that a talking or mute change touches one tile. The requests
// themselves are tried against rz-devserver in the integration suite.
namespace {

Me anna() {
    Me me;
    me.id = "u-001";
    me.name = "Anna Berger";
    return me;
}

live::Participant participant(const QString& id, std::optional<QString> joinedAt,
                              std::optional<QString> userId = std::nullopt,
                              std::optional<QString> name = std::nullopt) {
    live::Participant p;
    p.id = id;
    p.party.number = "n-" + id;
    p.party.name = name;
    p.party.userId = userId;
    if (joinedAt) {
        p.joinedAt = live::Stamp{*joinedAt};
    }
    return p;
}

live::Conference conference(QList<live::Participant> participants,
                            std::optional<QString> host = QString("u-001")) {
    live::Conference c;
    c.id = "cf-1";
    c.hostUserId = host;
    c.participants = std::move(participants);
    return c;
}

QStringList ids(const QList<live::Participant>& participants) {
    QStringList out;
    for (const auto& p : participants) {
        out.append(p.id);
    }
    return out;
}

class ConferenceModelTest : public testing::Test {
protected:
    QString role(int row, ConferenceModel::Role r) {
        return model.data(model.index(row), r).toString();
    }
    bool flag(int row, ConferenceModel::Role r) { return model.data(model.index(row), r).toBool(); }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Session session{settings, secrets};
    ConferenceModel model{session};
};

} // namespace

TEST(ConferenceOrder, TheUsersOwnTileComesFirstThenByJoiningTime) {
    const auto rows = ConferenceModel::ordered(
        {participant("b", "1731000000300.0"), participant("a", "1731000000100.0"),
         participant("me", "1731000000900.0", QString("u-001")),
         participant("c", "1731000000200.0")},
        anna());
    EXPECT_EQ(ids(rows), QStringList({"me", "a", "c", "b"}));
}

TEST(ConferenceOrder, ParticipantsWithoutJoiningTimeComeAheadOfAllButTheUser) {
    const auto rows = ConferenceModel::ordered(
        {participant("a", "1731000000100.0"), participant("none", std::nullopt),
         participant("me", "1731000000900.0", QString("u-001"))},
        anna());
    EXPECT_EQ(ids(rows), QStringList({"me", "none", "a"}));
}

TEST(ConferenceOrder, JoiningTimesCompareAsTextAndEqualsKeepTheirOrder) {
    // "900.0" sorts after "1000.0" as text, though it is the smaller number.
    const auto rows = ConferenceModel::ordered(
        {participant("late", "900.0"), participant("x", "1000.0"), participant("y", "1000.0")},
        anna());
    EXPECT_EQ(ids(rows), QStringList({"x", "y", "late"}));
}

TEST(ConferenceOrder, WithoutMeNobodyComesFirstByBeingTheUser) {
    const auto rows = ConferenceModel::ordered(
        {participant("b", "2"), participant("me", "3", QString("u-001")), participant("a", "1")},
        std::nullopt);
    EXPECT_EQ(ids(rows), QStringList({"a", "b", "me"}));
}

TEST(ConferenceHost, TheHostIsTheUserNamedByTheConference) {
    EXPECT_TRUE(ConferenceModel::isHost(anna(), conference({})));
    EXPECT_FALSE(ConferenceModel::isHost(anna(), conference({}, QString("u-002"))));
    EXPECT_FALSE(ConferenceModel::isHost(anna(), conference({}, std::nullopt)));
    EXPECT_FALSE(ConferenceModel::isHost(std::nullopt, conference({})));
    EXPECT_FALSE(ConferenceModel::isHost(anna(), std::nullopt));
}

TEST(ConferenceTiles, ATileIsNamedYouThenByNameThenByNumber) {
    EXPECT_EQ(
        ConferenceModel::tileName(participant("a", "1", QString("u-001"), QString("Anna")), true),
        "You");
    EXPECT_EQ(ConferenceModel::tileName(participant("b", "1", std::nullopt, QString("Ben")), false),
              "Ben");
    EXPECT_EQ(ConferenceModel::tileName(participant("c", "1"), false), "n-c");
}

TEST_F(ConferenceModelTest, TheHostMayManageEveryoneButThemselves) {
    model.show(conference({participant("me", "5", QString("u-001")), participant("ben", "1"),
                           participant("emma", "2", QString("u-005"), QString("Emma"))}),
               anna());
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_TRUE(model.isHost());
    EXPECT_EQ(role(0, ConferenceModel::NameRole), "You");
    EXPECT_EQ(role(0, ConferenceModel::AvatarNameRole), "n-me");
    EXPECT_TRUE(flag(0, ConferenceModel::IsMeRole));
    EXPECT_FALSE(flag(0, ConferenceModel::ManageableRole));
    // A participant without a user id counts as another's.
    EXPECT_TRUE(flag(1, ConferenceModel::ManageableRole));
    EXPECT_TRUE(flag(2, ConferenceModel::ManageableRole));
    EXPECT_EQ(model.title(), "Conference · 3");
}

TEST_F(ConferenceModelTest, WithoutAHostNobodyMayManageAnyone) {
    model.show(conference({participant("me", "5", QString("u-001")), participant("ben", "1")},
                          std::nullopt),
               anna());
    EXPECT_FALSE(model.isHost());
    EXPECT_FALSE(flag(0, ConferenceModel::ManageableRole));
    EXPECT_FALSE(flag(1, ConferenceModel::ManageableRole));
}

TEST_F(ConferenceModelTest, AGuestMayManageNobody) {
    model.show(conference({participant("me", "5", QString("u-001")), participant("ben", "1")},
                          QString("u-002")),
               anna());
    EXPECT_FALSE(model.isHost());
    EXPECT_FALSE(flag(1, ConferenceModel::ManageableRole));
}

TEST_F(ConferenceModelTest, TalkingAndMuteChangeOnlyTheirTile) {
    auto ben = participant("ben", "1");
    auto emma = participant("emma", "2");
    model.show(conference({ben, emma}), anna());
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    emma.talking = true;
    model.show(conference({ben, emma}), anna());
    ben.muted = true;
    model.show(conference({ben, emma}), anna());
    EXPECT_EQ(reset.count(), 0);
    ASSERT_EQ(changed.count(), 2);
    EXPECT_EQ(changed[0][0].toModelIndex().row(), 1);
    EXPECT_EQ(changed[1][0].toModelIndex().row(), 0);
    EXPECT_TRUE(flag(1, ConferenceModel::TalkingRole));
    EXPECT_TRUE(flag(0, ConferenceModel::MutedRole));
}

TEST_F(ConferenceModelTest, ARepeatedJoinMovesThePersonInTheListButNotTheirTile) {
    const auto ben = participant("ben", "1");
    const auto emma = participant("emma", "2");
    model.show(conference({ben, emma}), anna());
    // The live state appends a participant who joins again at the end.
    model.show(conference({emma, ben}), anna());
    EXPECT_EQ(ids(model.participants()), QStringList({"ben", "emma"}));
}

TEST_F(ConferenceModelTest, LockAndEndShowInTheHead) {
    QSignalSpy changed(&model, &ConferenceModel::conferenceChanged);
    auto c = conference({participant("ben", "1")});
    model.show(c, anna());
    EXPECT_TRUE(model.active());
    EXPECT_FALSE(model.locked());
    c.locked = true;
    model.show(c, anna());
    EXPECT_TRUE(model.locked());
    model.show(std::nullopt, anna());
    EXPECT_FALSE(model.active());
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_EQ(changed.count(), 3);
}

TEST_F(ConferenceModelTest, AColleaguesPictureComesFromTheDirectoryByUserId) {
    model.setAvatarLookup([](const QString& userId) {
        return userId == "u-005" ? QString("image://avatars/emma") : QString();
    });
    model.show(conference({participant("emma", "2", QString("u-005"), QString("Emma")),
                           participant("ext", "3")}),
               anna());
    EXPECT_EQ(role(0, ConferenceModel::AvatarRole), "image://avatars/emma");
    EXPECT_EQ(role(1, ConferenceModel::AvatarRole), "");
    // The monogram is the party's, also where the tile reads "You".
    EXPECT_EQ(role(0, ConferenceModel::AvatarNameRole), "Emma");
    EXPECT_EQ(role(1, ConferenceModel::AvatarNameRole), "n-ext");
}

TEST_F(ConferenceModelTest, ActionsWithoutAConferenceAskNothingAndFailNothing) {
    model.setMuted("p-1", true);
    model.remove("p-1");
    model.setLocked(true);
    model.end();
    model.add("203");
    EXPECT_FALSE(session.hasError());
}

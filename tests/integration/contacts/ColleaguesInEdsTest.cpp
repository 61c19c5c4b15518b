#include "contacts/ColleagueContacts.h"
#include "session/Session.h"

#include "../session/BrowserKit.h"
#include "DevServer.h"
#include "EdsLab.h"
#include "RunTask.h"
#include "Services.h"

#include <QDeadlineTimer>
#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;

// Colleagues of rz-devserver's directory written into Evolution Data Server's
// system address book on a private bus, and read back with EDS's own export
// tool in a process of its own.
namespace {

// One vCard of the export, the fields these tests look at.
struct Card {
    QString uid;
    QString fullName;
    QString names; // N: family;given;...
    QString organization;
    QString categories;
    QString note;
    QStringList phones;
    QStringList emails;
    bool photo = false;
};

QList<Card> parse(const QByteArray& vcards) {
    // Folded lines continue with a blank at the start of the next line.
    QString text = QString::fromUtf8(vcards);
    text.replace("\r\n", "\n").replace("\n ", "");
    QList<Card> cards;
    Card card;
    for (const QString& line : text.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon < 0) {
            continue;
        }
        const QString head = line.left(colon);
        const QString name = head.section(';', 0, 0).toUpper();
        const QString value = line.mid(colon + 1);
        if (line == "BEGIN:VCARD") {
            card = Card{};
        } else if (line == "END:VCARD") {
            cards.append(card);
        } else if (name == "UID") {
            card.uid = value;
        } else if (name == "FN") {
            card.fullName = value;
        } else if (name == "N") {
            card.names = value;
        } else if (name == "ORG") {
            card.organization = value.section(';', 0, 0);
        } else if (name == "CATEGORIES") {
            card.categories = value;
        } else if (name == "NOTE") {
            card.note = value;
        } else if (name == "TEL") {
            card.phones.append(head.section(';', 1) + "|" + value);
        } else if (name == "EMAIL") {
            card.emails.append(head.section(';', 1) + "|" + value);
        } else if (name == "PHOTO") {
            card.photo = true;
        }
    }
    return cards;
}

class ColleaguesInEds : public testing::Test {
protected:
    ColleaguesInEds() {
        useSigningInBrowser(session);
        session.signIn();
        QDeadlineTimer deadline(15000);
        while ((!session.directory() || !session.me()) && !deadline.hasExpired()) {
            QTest::qWait(20);
        }
    }

    QList<Card> colleagueCards() {
        QList<Card> found;
        for (const Card& card : parse(eds.readVCards())) {
            if (card.categories.split(',').contains("velnor RZ")) {
                found.append(card);
            }
        }
        return found;
    }
    static const Card* named(const QList<Card>& cards, const QString& fullName) {
        for (const Card& card : cards) {
            if (card.fullName == fullName) {
                return &card;
            }
        }
        return nullptr;
    }
    ColleagueContacts::LoadImage loader() {
        return [this](AvatarRef ref) { return session.avatarData(std::move(ref)); };
    }
    void setEnabled(bool value) {
        runTask(
            colleagues.setEnabled(value, session.directory()->users, session.me()->id, loader()),
            std::chrono::seconds(60));
    }
    void sync() {
        runTask(colleagues.sync(session.directory()->users, session.me()->id, loader()),
                std::chrono::seconds(60));
    }
    void changeDirectory(const QByteArray& method, const QString& path, const json& body) {
        server.control(method, path, body);
        runTask(session.refreshDirectory(), std::chrono::seconds(20));
    }
    // The session reads its server when it is made.
    static MemorySettingsStore pointedAt(const DevServer& server) {
        MemorySettingsStore settings;
        settings.setUrl("rz.server", server.url());
        return settings;
    }
    int serverUsers() { return int(server.control("GET", "model")["users"].size()); }

    TempHome home;
    PrivateBus bus;
    EdsLab eds{bus};
    DevServer server{{"--auto-approve", "u-001"}};
    MemorySettingsStore settings = pointedAt(server);
    MemorySecureStore secrets;
    Session session{settings, secrets};
    ColleagueContacts colleagues{settings, [] { return std::make_unique<EdsContactStore>(); }};
};

} // namespace

TEST_F(ColleaguesInEds, SwitchedOnEveryColleagueButTheUserIsInTheBookInTheGroup) {
    ASSERT_TRUE(session.directory());
    ASSERT_TRUE(session.me());
    setEnabled(true);
    EXPECT_FALSE(colleagues.lastError()) << colleagues.lastErrorText().toStdString();
    const auto cards = colleagueCards();
    // The server's company, the signed-in user left out.
    EXPECT_EQ(cards.size(), serverUsers() - 1);
    EXPECT_EQ(colleagues.count(), serverUsers() - 1);
    EXPECT_FALSE(named(cards, session.me()->name));
    const Card* ben = named(cards, "Ben Okafor");
    ASSERT_TRUE(ben) << "no contact for Ben";
    EXPECT_EQ(ben->names.section(';', 0, 1), "Okafor;Ben");
    EXPECT_EQ(ben->organization, "velnor RZ");
    ASSERT_FALSE(ben->phones.isEmpty());
    // The book quotes a parameter's value that holds a blank.
    EXPECT_TRUE(QString(ben->phones.first()).remove('"').contains("X-LABEL=velnor RZ"))
        << ben->phones.first().toStdString();
    EXPECT_TRUE(ben->phones.first().endsWith("|+4930555202"));
    ASSERT_EQ(ben->emails.size(), 1);
    EXPECT_TRUE(ben->emails.first().contains("WORK"));
    // Pictures come from the server; the one colleague without a picture has none.
    int withPhoto = 0;
    for (const Card& card : cards) {
        withPhoto += card.photo ? 1 : 0;
    }
    EXPECT_EQ(withPhoto, cards.size() - 1);
    EXPECT_EQ(settings.dictionary("colleagues.export.map")->size(), cards.size());
}

TEST_F(ColleaguesInEds, ADirectoryChangeOnTheServerUpdatesAddsAndRemovesContacts) {
    setEnabled(true);
    const auto before = colleagueCards();
    const Card* ben = named(before, "Ben Okafor");
    ASSERT_TRUE(ben);
    const QString benId = ben->uid;
    changeDirectory("PATCH", "users/u-002", {{"name", "Benjamin Okafor-Noll"}});
    changeDirectory("POST", "users",
                    {{"id", "u-new"}, {"name", "Nora Neu"}, {"numbers", {"+49 30 999 000"}}});
    changeDirectory("POST", "users", {{"id", "u-ext"}, {"name", "Only Extension"}});
    changeDirectory("DELETE", "users/u-003", nullptr);
    sync();
    EXPECT_FALSE(colleagues.lastError()) << colleagues.lastErrorText().toStdString();
    const auto after = colleagueCards();
    EXPECT_EQ(after.size(), before.size());
    const Card* renamed = named(after, "Benjamin Okafor-Noll");
    ASSERT_TRUE(renamed);
    EXPECT_EQ(renamed->uid, benId);
    EXPECT_EQ(renamed->names.section(';', 0, 1), "Okafor-Noll;Benjamin");
    EXPECT_TRUE(named(after, "Nora Neu"));
    EXPECT_FALSE(named(after, "Only Extension"));
    EXPECT_FALSE(named(after, "Ben Okafor"));
    for (const Card& card : before) {
        if (card.fullName.startsWith("Chlo")) {
            EXPECT_FALSE(named(after, card.fullName)) << "u-003 left the company";
        }
    }
}

TEST_F(ColleaguesInEds, TurningOffRemovesExactlyTheContactsMadeWhileAHandMadeOneStays) {
    const QStringList handMade = eds.add({{"Mum", "Mum", {"+49 171 9999999"}}});
    setEnabled(true);
    ASSERT_EQ(parse(eds.readVCards()).size(), serverUsers());
    setEnabled(false);
    EXPECT_FALSE(colleagues.lastError()) << colleagues.lastErrorText().toStdString();
    const auto left = parse(eds.readVCards());
    ASSERT_EQ(left.size(), 1);
    EXPECT_EQ(left.first().uid, handMade.first());
    EXPECT_EQ(left.first().fullName, "Mum");
    EXPECT_EQ(colleagues.count(), 0);
    EXPECT_TRUE(settings.dictionary("colleagues.export.map")->isEmpty());
    EXPECT_EQ(settings.boolean("colleagues.export"), false);
}

TEST_F(ColleaguesInEds, ANoteTheUserAddedSurvivesAndAContactTheyDeletedIsMadeAnew) {
    setEnabled(true);
    const auto cards = colleagueCards();
    const Card* ben = named(cards, "Ben Okafor");
    const Card* chloe = named(cards, QString::fromUtf8("Chloé Martin"));
    ASSERT_TRUE(ben);
    ASSERT_TRUE(chloe);
    eds.setNote(ben->uid, "Call after ten");
    eds.remove(chloe->uid);
    changeDirectory("PATCH", "users/u-002", {{"email", "ben.h@acme.example"}});
    sync();
    const auto after = colleagueCards();
    const Card* updated = named(after, "Ben Okafor");
    ASSERT_TRUE(updated);
    EXPECT_EQ(updated->note, "Call after ten");
    ASSERT_EQ(updated->emails.size(), 1);
    EXPECT_TRUE(updated->emails.first().endsWith("|ben.h@acme.example"));
    const Card* remade = named(after, QString::fromUtf8("Chloé Martin"));
    ASSERT_TRUE(remade);
    EXPECT_NE(remade->uid, chloe->uid);
    EXPECT_EQ(after.size(), cards.size());
}

TEST(ColleaguesWithoutEds, SwitchingOnWithoutTheAddressBookServiceAsksToAllowAccess) {
    TempHome home;
    PrivateBus bus; // nothing runs on it
    MemorySettingsStore settings;
    ColleagueContacts colleagues(settings, [] { return std::make_unique<EdsContactStore>(); });
    Directory::Entry anna;
    anna.id = "u-2";
    anna.name = "Anna Berg";
    anna.numbers = QStringList{"+49 30 1111"};
    runTask(colleagues.setEnabled(true, {anna}, "u-1", {}), std::chrono::seconds(30));
    EXPECT_FALSE(colleagues.enabled());
    EXPECT_EQ(colleagues.lastError(), "Allow access to contacts in Settings first.");
    EXPECT_FALSE(settings.boolean("colleagues.export"));
}

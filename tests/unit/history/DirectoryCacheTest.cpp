#include "history/DirectoryCache.h"

#include "platform/Files.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The launcher's file of dialable entries and the three questions asked of it.
namespace {

Directory::Entry entry(const QString& id, const QString& name,
                       std::optional<QString> extension = std::nullopt) {
    Directory::Entry e;
    e.id = id;
    e.name = name;
    e.extension_ = std::move(extension);
    e.email = id + "@example.com";
    return e;
}

class DirectoryCacheTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(caches.isValid());
        qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
        DirectoryCache::handler() = nullptr;
    }
    void TearDown() override { DirectoryCache::handler() = nullptr; }

    void writeCompany() {
        DirectoryCache::update({entry("u1", "Anna Berger", "201"), entry("u2", "Ben Okafor", "202"),
                                entry("u3", "Jonas Müller", "204"), entry("u4", "Noor", {})},
                               {entry("g1", "Sales", "600"), entry("g2", "Room 2045", "204")},
                               {entry("f1", "Main line", "700")});
    }

    QStringList names(const QList<DirectoryContact>& contacts) {
        QStringList out;
        for (const auto& c : contacts) {
            out.append(c.name);
        }
        return out;
    }

    QTemporaryDir caches;
};

} // namespace

TEST_F(DirectoryCacheTest, TheFileSitsInTheCachesDirectory) {
    EXPECT_EQ(DirectoryCache::path(), caches.path() + "/velnor-rz/directory-contacts.json");
}

TEST_F(DirectoryCacheTest, UsersThenGroupsThenFlowsAreWrittenAsAPlainArrayInKeyOrder) {
    writeCompany();
    const auto bytes = Files::read(DirectoryCache::path());
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->startsWith(R"([{"id":"201","name":"Anna Berger","kind":"Colleague"},)"))
        << bytes->toStdString();
    const auto rows = DirectoryCache::read();
    ASSERT_EQ(rows.size(), 6);
    EXPECT_EQ(rows[0], (DirectoryContact{"201", "Anna Berger", "Colleague"}));
    EXPECT_EQ(rows[3], (DirectoryContact{"600", "Sales", "Group"}));
    EXPECT_EQ(rows[5], (DirectoryContact{"700", "Main line", "Call flow"}));
}

TEST_F(DirectoryCacheTest, AUserWithNoExtensionIsNotInTheFile) {
    writeCompany();
    EXPECT_FALSE(names(DirectoryCache::read()).contains("Noor"));
}

TEST_F(DirectoryCacheTest, AGroupAndAUserWithOneExtensionAreBothStoredAndTheUserIsFound) {
    writeCompany();
    const auto rows = DirectoryCache::read();
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(), [](auto& r) { return r.id == "204"; }), 2);
    const auto found = DirectoryCache::entitiesFor(QStringList{"204"});
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found[0].name, "Jonas Müller");
}

TEST_F(DirectoryCacheTest, IdsAreAnsweredInTheOrderAskedAndUnknownOnesLeftOut) {
    writeCompany();
    const auto found = DirectoryCache::entitiesFor(QStringList{"700", "999", "201"});
    EXPECT_EQ(names(found), QStringList({"Main line", "Anna Berger"}));
}

TEST_F(DirectoryCacheTest, ANumberFindsTheEqualIdAndNamesHoldingIt) {
    writeCompany();
    EXPECT_EQ(names(DirectoryCache::entitiesMatching("204")),
              QStringList({"Jonas Müller", "Room 2045"}));
}

TEST_F(DirectoryCacheTest, APartOfAnIdFindsOnlyNames) {
    writeCompany();
    EXPECT_EQ(names(DirectoryCache::entitiesMatching("20")), QStringList({"Room 2045"}));
}

TEST_F(DirectoryCacheTest, MullerFindsMuller) {
    writeCompany();
    EXPECT_EQ(names(DirectoryCache::entitiesMatching("muller")), QStringList({"Jonas Müller"}));
}

TEST_F(DirectoryCacheTest, TheSuggestionsAreTheWholeFileInOrder) {
    writeCompany();
    EXPECT_EQ(DirectoryCache::suggestedEntities(), DirectoryCache::read());
    EXPECT_EQ(DirectoryCache::suggestedEntities().size(), 6);
}

TEST_F(DirectoryCacheTest, AfterRemovalEveryQueryIsEmpty) {
    writeCompany();
    DirectoryCache::remove();
    EXPECT_FALSE(QFile::exists(DirectoryCache::path()));
    EXPECT_TRUE(DirectoryCache::suggestedEntities().isEmpty());
    EXPECT_TRUE(DirectoryCache::entitiesMatching("anna").isEmpty());
    EXPECT_TRUE(DirectoryCache::entitiesFor(QStringList{"201"}).isEmpty());
}

TEST_F(DirectoryCacheTest, RemovingAMissingFileIsQuiet) {
    DirectoryCache::remove();
    EXPECT_TRUE(DirectoryCache::read().isEmpty());
}

TEST_F(DirectoryCacheTest, AnEmptyOrMalformedFileReadsAsNoRows) {
    for (const QByteArray& bytes :
         {QByteArray(), QByteArray("{"), QByteArray("{}"), QByteArray(R"([{"id":"1"}])"),
          QByteArray(R"([{"id":1,"name":"A","kind":"Group"}])"), QByteArray("[1]")}) {
        ASSERT_TRUE(Files::writeAtomically(DirectoryCache::path(), bytes));
        EXPECT_TRUE(DirectoryCache::suggestedEntities().isEmpty()) << bytes.toStdString();
        EXPECT_TRUE(DirectoryCache::entitiesMatching("a").isEmpty());
    }
}

TEST_F(DirectoryCacheTest, ADecodedFileEncodesBackToTheSameBytes) {
    writeCompany();
    const auto bytes = Files::read(DirectoryCache::path());
    const auto rows = DirectoryCache::decode(*bytes);
    ASSERT_TRUE(rows);
    EXPECT_EQ(DirectoryCache::encode(*rows), *bytes);
}

TEST_F(DirectoryCacheTest, PerformHandsTheExtensionToTheDialHook) {
    QStringList dialled;
    DirectoryCache::handler() = [&dialled](const QString& id) { dialled.append(id); };
    DirectoryCache::perform({"204", "Jonas Müller", "Colleague"});
    EXPECT_EQ(dialled, QStringList({"204"}));
}

TEST_F(DirectoryCacheTest, PerformWithoutAHookReturnsQuietly) {
    // An empty hook would throw if it were called.
    EXPECT_NO_THROW(DirectoryCache::perform({"204", "Jonas Müller", "Colleague"}));
}

TEST(DirectoryContact, TheSubtitleIsKindAndExtension) {
    EXPECT_EQ((DirectoryContact{"204", "Jonas", "Colleague"}).subtitle(), "Colleague · 204");
}

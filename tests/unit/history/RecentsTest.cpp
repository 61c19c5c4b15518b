#include "history/Recents.h"

#include "ManualClock.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// The recents store: its rules, its stored bytes and its repair at start.
namespace {

// Counts the writes that reach the settings.
class CountingSettings final : public SettingsStore {
public:
    int writes = 0;

protected:
    QVariant raw(const QString& key) const override { return m_values.value(key); }
    void store(const QString& key, const QVariant& value) override {
        ++writes;
        m_values.insert(key, value);
    }
    void erase(const QString& key) override { m_values.remove(key); }

private:
    QHash<QString, QVariant> m_values;
};

QUuid uuid(int n) {
    return QUuid(QStringLiteral("00000000-0000-4000-8000-%1").arg(n, 12, 10, QChar('0')));
}

class RecentsTest : public testing::Test {
protected:
    CountingSettings settings;
    ManualClock clock; // 2026-11-22 09:00 UTC
};

} // namespace

TEST_F(RecentsTest, StartPutsAnInProgressEntryFirst) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", QStringLiteral("Bo"), false);
    clock.advance(std::chrono::seconds(1));
    recents.start(uuid(2), "301", std::nullopt, true);
    ASSERT_EQ(recents.entries().size(), 2);
    const auto& first = recents.entries()[0];
    EXPECT_EQ(first.id, uuid(2));
    EXPECT_EQ(first.remote, "301");
    EXPECT_TRUE(first.incoming);
    EXPECT_EQ(first.date, clock.now());
    EXPECT_EQ(first.inProgress, true);
    EXPECT_FALSE(first.answered);
    EXPECT_FALSE(first.duration);
    EXPECT_FALSE(first.connectedAt);
    EXPECT_FALSE(first.interrupted);
    EXPECT_FALSE(first.failure);
    EXPECT_EQ(recents.entries()[1].name, "Bo");
}

TEST_F(RecentsTest, WithTwoHundredEntriesAStartDropsTheOldest) {
    Recents recents(settings, clock);
    for (int i = 0; i < 200; ++i) {
        recents.start(uuid(i), QString::number(i), std::nullopt, false);
    }
    ASSERT_EQ(recents.entries().size(), 200);
    EXPECT_EQ(recents.entries().back().id, uuid(0));
    recents.start(uuid(200), "200", std::nullopt, false);
    EXPECT_EQ(recents.entries().size(), 200);
    EXPECT_EQ(recents.entries().front().id, uuid(200));
    EXPECT_EQ(recents.entries().back().id, uuid(1));
}

TEST_F(RecentsTest, AStartWithAKnownIdMovesTheCallToTheFrontAfresh) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", std::nullopt, false);
    recents.connected(uuid(1), clock.now());
    clock.advance(std::chrono::seconds(5));
    recents.start(uuid(2), "205", std::nullopt, false);
    clock.advance(std::chrono::seconds(5));
    recents.start(uuid(1), "206", std::nullopt, false);
    ASSERT_EQ(recents.entries().size(), 2);
    EXPECT_EQ(recents.entries()[0].id, uuid(1));
    EXPECT_EQ(recents.entries()[0].remote, "206");
    EXPECT_EQ(recents.entries()[0].date, clock.now());
    EXPECT_FALSE(recents.entries()[0].answered);
    EXPECT_EQ(recents.entries()[1].id, uuid(2));
}

TEST_F(RecentsTest, ConnectedOrFinishWithAnUnknownIdChangesAndStoresNothing) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", std::nullopt, false);
    const int writes = settings.writes;
    const auto before = recents.entries();
    QSignalSpy spy(&recents, &Recents::entriesChanged);
    recents.connected(uuid(9), clock.now());
    recents.finish(uuid(9), QStringLiteral("Busy"));
    EXPECT_EQ(settings.writes, writes);
    EXPECT_EQ(recents.entries(), before);
    EXPECT_EQ(spy.count(), 0);
}

TEST_F(RecentsTest, FinishOfACallThatNeverConnectedLeavesNoDuration) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", std::nullopt, false);
    clock.advance(std::chrono::seconds(30));
    recents.finish(uuid(1), QStringLiteral("Busy Here"));
    const auto& entry = recents.entries()[0];
    EXPECT_FALSE(entry.duration);
    EXPECT_FALSE(entry.inProgress);
    EXPECT_EQ(entry.failure, "Busy Here");
}

TEST_F(RecentsTest, DurationIsMeasuredFromConnectedAtNotFromTheStart) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", std::nullopt, false);
    clock.advance(std::chrono::seconds(12));
    recents.connected(uuid(1), clock.now());
    clock.advance(std::chrono::milliseconds(65250));
    recents.finish(uuid(1), std::nullopt);
    const auto& entry = recents.entries()[0];
    EXPECT_TRUE(entry.answered);
    EXPECT_EQ(entry.duration, 65.25);
    EXPECT_FALSE(entry.failure);
}

TEST_F(RecentsTest, FinishWithoutAFailureClearsAnEarlierOne) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", std::nullopt, false);
    recents.finish(uuid(1), QStringLiteral("Busy"));
    recents.finish(uuid(1), std::nullopt);
    EXPECT_FALSE(recents.entries()[0].failure);
}

TEST_F(RecentsTest, AfterARelaunchACallInProgressIsInterruptedAndSavedOnce) {
    {
        Recents recents(settings, clock);
        recents.start(uuid(1), "204", std::nullopt, false);
        recents.connected(uuid(1), clock.now());
        recents.start(uuid(2), "205", std::nullopt, false);
        recents.finish(uuid(2), std::nullopt);
    }
    const int writes = settings.writes;
    Recents relaunched(settings, clock);
    EXPECT_EQ(settings.writes, writes + 1);
    const auto& cut = relaunched.entries()[1];
    EXPECT_FALSE(cut.inProgress);
    EXPECT_EQ(cut.interrupted, true);
    EXPECT_TRUE(cut.answered);
    EXPECT_TRUE(cut.connectedAt);
    EXPECT_FALSE(cut.duration);
    EXPECT_FALSE(relaunched.entries()[0].interrupted);

    Recents again(settings, clock);
    EXPECT_EQ(settings.writes, writes + 1);
    EXPECT_EQ(again.entries(), relaunched.entries());
}

TEST_F(RecentsTest, ABlobOfAnotherShapeReadsAsEmptyAndStaysUntilTheNextStart) {
    const QByteArray other = R"({"calls":[{"id":"x"}]})";
    settings.setData("recents.v1", other);
    Recents recents(settings, clock);
    EXPECT_TRUE(recents.entries().isEmpty());
    EXPECT_EQ(settings.data("recents.v1"), other);
    recents.start(uuid(1), "204", std::nullopt, false);
    EXPECT_EQ(recents.entries().size(), 1);
    EXPECT_EQ(Recents::decode(*settings.data("recents.v1"))->size(), 1);
}

TEST_F(RecentsTest, AnEntryWithAWrongTypeSpoilsTheWholeBlob) {
    settings.setData("recents.v1",
                     R"([{"id":"00000000-0000-4000-8000-000000000001","remote":"204",)"
                     R"("incoming":false,"date":1,"answered":"no"}])");
    Recents recents(settings, clock);
    EXPECT_TRUE(recents.entries().isEmpty());
}

TEST_F(RecentsTest, TheStoredBytesKeepTheFormatOfTheFirstWriter) {
    Recents recents(settings, clock);
    const QUuid id("{6f1c2b0e-8a8e-4b8a-9d7c-2f4e7a1b3c5d}");
    recents.start(id, "+49 30/1234", QStringLiteral("Bo"), false);
    recents.connected(id, clock.now().addMSecs(1500));
    clock.advance(std::chrono::milliseconds(11500));
    recents.finish(id, std::nullopt);
    // 2026-11-22 09:00 UTC is 817030800 seconds after 2001-01-01.
    EXPECT_EQ(*settings.data("recents.v1"),
              QByteArray(R"([{"id":"6F1C2B0E-8A8E-4B8A-9D7C-2F4E7A1B3C5D","remote":"+49 30\/1234",)"
                         R"("name":"Bo","incoming":false,"date":817030800,"duration":10,)"
                         R"("answered":true,"connectedAt":817030801.5}])"));
}

TEST_F(RecentsTest, ReadsWhatTheFirstWriterWrote) {
    settings.setData("recents.v1",
                     R"([{"id":"6F1C2B0E-8A8E-4B8A-9D7C-2F4E7A1B3C5D","remote":"204",)"
                     R"("incoming":true,"date":785432100.25,"answered":false,)"
                     R"("interrupted":true,"failure":"Busy"}])");
    Recents recents(settings, clock);
    ASSERT_EQ(recents.entries().size(), 1);
    const auto& entry = recents.entries()[0];
    EXPECT_EQ(entry.id, QUuid("{6f1c2b0e-8a8e-4b8a-9d7c-2f4e7a1b3c5d}"));
    EXPECT_EQ(entry.date, QDateTime(QDate(2025, 11, 21), QTime(15, 35, 0, 250), Qt::UTC));
    EXPECT_EQ(entry.interrupted, true);
    EXPECT_EQ(entry.failure, "Busy");
    EXPECT_FALSE(entry.name);
}

TEST_F(RecentsTest, TheEntriesOfAnEarlierUserStay) {
    // Nothing in the store knows of users: a new sign-in finds the old list.
    {
        Recents recents(settings, clock);
        recents.start(uuid(1), "204", std::nullopt, false);
        recents.finish(uuid(1), std::nullopt);
    }
    Recents later(settings, clock);
    EXPECT_EQ(later.entries().size(), 1);
}

TEST_F(RecentsTest, SettingAnEqualListDoesNotNotify) {
    Recents recents(settings, clock);
    recents.start(uuid(1), "204", std::nullopt, false);
    recents.finish(uuid(1), std::nullopt);
    QSignalSpy spy(&recents, &Recents::entriesChanged);
    recents.finish(uuid(1), std::nullopt);
    EXPECT_EQ(spy.count(), 0);
}

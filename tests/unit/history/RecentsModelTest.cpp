#include "history/RecentsModel.h"

#include "ManualClock.h"
#include "RunTask.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The recents list model over a call log served from memory and a real
// Recents store: rows change in place, never by a reset.
namespace {

using Row = CallHistory::Row;

Row row(int n, int minutesAgo, const QString& from = "+4930123456") {
    Row r;
    r.callUuid = QStringLiteral("call-%1").arg(n);
    r.from = from;
    r.to = QStringLiteral("201");
    r.direction = QStringLiteral("inbound");
    r.startAt = QDateTime(QDate(2026, 11, 22), QTime(9, 0), Qt::UTC)
                    .addSecs(-60 * minutesAgo)
                    .toString(Qt::ISODateWithMs);
    return r;
}

QByteArray page(const QList<Row>& rows) {
    wire::OrderedJson calls = wire::OrderedJson::array();
    for (const Row& r : rows) {
        calls.push_back(r.toJson());
    }
    wire::OrderedJson body = wire::OrderedJson::object();
    body["calls"] = calls;
    return wire::bytes(body);
}

QCoro::Task<QByteArray> answer(QByteArray body) {
    co_return body;
}

QCoro::Task<QByteArray> refuse() {
    throw API::TransportError(QStringLiteral("Connection refused"));
    co_return QByteArray();
}

CallHistory::Fetch serving(QByteArray body) {
    return [body](QString) { return answer(body); };
}

CallHistory::Fetch failing() {
    return [](QString) { return refuse(); };
}

class RecentsModelTest : public testing::Test {
protected:
    RecentsModelTest()
        : history(dir.filePath("calls.v1.json")), recents(settings, clock),
          model(history, recents, settings, clock), tester(&model) {
        settings.setText(RecentsModel::lastSeenKey, "2026-11-22T08:00:00Z");
    }

    QStringList ids() const {
        QStringList list;
        for (const auto& line : model.lines()) {
            list.append(line.item.id);
        }
        return list;
    }

    QTemporaryDir dir;
    MemorySettingsStore settings;
    ManualClock clock; // 2026-11-22 09:00 UTC
    CallHistory history;
    Recents recents;
    RecentsModel model;
    QAbstractItemModelTester tester;
};

QUuid uuid(int n) {
    return QUuid(QStringLiteral("00000000-0000-4000-8000-%1").arg(n, 12, 10, QChar('0')));
}

QString local(int n) {
    return uuid(n).toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

TEST_F(RecentsModelTest, ANewCallIsInsertedOnTopWithoutAReset) {
    runTask(history.load(serving(page({row(1, 10), row(2, 20)}))));
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QSignalSpy inserts(&model, &QAbstractItemModel::rowsInserted);
    recents.start(uuid(1), "204", std::nullopt, false);
    EXPECT_EQ(ids(), (QStringList{local(1), "call-1", "call-2"}));
    EXPECT_EQ(resets.size(), 0);
    ASSERT_EQ(inserts.size(), 1);
    EXPECT_EQ(inserts[0][1].toInt(), 0);
    EXPECT_EQ(inserts[0][2].toInt(), 0);
    EXPECT_EQ(model.data(model.index(0), RecentsModel::SubtitleRole), "In progress");
}

TEST_F(RecentsModelTest, TheServersLineReplacesTheLocalOneWhenTheReloadComes) {
    runTask(history.load(serving(page({row(1, 10)}))));
    recents.start(uuid(1), "204", std::nullopt, false);
    clock.advance(std::chrono::seconds(30));
    recents.finish(uuid(1), std::nullopt);
    // Finished and the server has rows: the local line goes.
    EXPECT_EQ(ids(), QStringList{"call-1"});
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QSignalSpy removals(&model, &QAbstractItemModel::rowsRemoved);
    runTask(history.load(serving(page({row(9, 0, "201"), row(1, 10)}))));
    EXPECT_EQ(ids(), (QStringList{"call-9", "call-1"}));
    EXPECT_EQ(resets.size(), 0);
    EXPECT_EQ(removals.size(), 0);
}

TEST_F(RecentsModelTest, AFurtherPageIsAppendedAtTheEndOnly) {
    QList<Row> first;
    for (int n = 0; n < 50; ++n) {
        first.append(row(n, n));
    }
    runTask(history.load(serving(page(first))));
    QSignalSpy inserts(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    runTask(history.loadMore(serving(page({row(50, 50), row(51, 51)}))));
    ASSERT_EQ(model.rowCount(), 52);
    ASSERT_EQ(inserts.size(), 1);
    EXPECT_EQ(inserts[0][1].toInt(), 50);
    EXPECT_EQ(inserts[0][2].toInt(), 51);
    EXPECT_EQ(changes.size(), 0);
}

TEST_F(RecentsModelTest, ANameLearntLaterUpdatesTheRowInPlace) {
    runTask(history.load(serving(page({row(1, 10, "205")}))));
    EXPECT_EQ(model.data(model.index(0), RecentsModel::TitleRole), "205");
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    model.colleagueName = [](const QString& n) -> std::optional<QString> {
        return n == u"205" ? std::optional<QString>("Emma Lindqvist") : std::nullopt;
    };
    model.rebuild();
    EXPECT_EQ(model.data(model.index(0), RecentsModel::TitleRole), "Emma Lindqvist");
    EXPECT_EQ(model.data(model.index(0), RecentsModel::SubtitleRole), "205 · Missed");
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(RecentsModelTest, TheColleaguesNameComesBeforeTheContactsAndTheCallsOwnBeforeBoth) {
    Row named = row(2, 5, "+4930555205");
    named.fromName = QStringLiteral("Front desk");
    runTask(history.load(serving(page({named, row(1, 10, "+4930555205")}))));
    model.colleagueName = [](const QString&) { return std::optional<QString>("Emma"); };
    model.contactName = [](const QString&) { return std::optional<QString>("Paula"); };
    model.rebuild();
    EXPECT_EQ(model.lines()[0].title, "Front desk");
    EXPECT_EQ(model.lines()[1].title, "Emma");
    model.colleagueName = nullptr;
    model.rebuild();
    EXPECT_EQ(model.lines()[1].title, "Paula");
}

TEST_F(RecentsModelTest, ARowMovesWhenACallIsSortedElsewhere) {
    runTask(history.load(serving(page({row(1, 10), row(2, 20), row(3, 30)}))));
    QSignalSpy moves(&model, &QAbstractItemModel::rowsMoved);
    runTask(history.load(serving(page({row(3, 5), row(1, 10), row(2, 20)}))));
    EXPECT_EQ(ids(), (QStringList{"call-3", "call-1", "call-2"}));
    EXPECT_EQ(moves.size(), 1);
}

TEST_F(RecentsModelTest, AllRowsGoWhenTheLogIsCleared) {
    runTask(history.load(serving(page({row(1, 10), row(2, 20)}))));
    history.clear();
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_EQ(model.view(), "skeleton");
}

TEST_F(RecentsModelTest, APageThatRepeatsACallStillGivesRowsOfTheirOwn) {
    runTask(history.load(serving(page({row(1, 10), row(1, 10), row(2, 20)}))));
    EXPECT_EQ(model.rowCount(), 3);
    runTask(history.load(serving(page({row(1, 10), row(2, 20)}))));
    EXPECT_EQ(ids(), (QStringList{"call-1", "call-2"}));
}

// --- the loading ladder ---

TEST(RecentsModelView, NothingYetShowsTheSkeletonAndAFailureWithNothingShowsTheError) {
    EXPECT_EQ(RecentsModel::viewOf(true, false, false, false), "skeleton");
    EXPECT_EQ(RecentsModel::viewOf(true, false, false, true), "skeleton");
    EXPECT_EQ(RecentsModel::viewOf(true, false, true, false), "error");
}

TEST(RecentsModelView, ARetryAfterAFailureShowsTheSkeletonNotTheError) {
    EXPECT_EQ(RecentsModel::viewOf(true, false, true, true), "skeleton");
}

TEST(RecentsModelView, LoadedAndEmptyIsTheEmptyStateAndAnyLineIsTheList) {
    EXPECT_EQ(RecentsModel::viewOf(true, true, false, false), "empty");
    EXPECT_EQ(RecentsModel::viewOf(true, true, true, false), "empty");
    EXPECT_EQ(RecentsModel::viewOf(false, false, true, false), "list");
    EXPECT_EQ(RecentsModel::viewOf(false, true, false, true), "list");
}

TEST_F(RecentsModelTest, CachedRowsAndAFailedRefreshStandUnderTheStaleBanner) {
    runTask(history.load(serving(page({row(1, 10)}))));
    EXPECT_FALSE(model.stale());
    QSignalSpy views(&model, &RecentsModel::viewChanged);
    runTask(history.load(failing()));
    EXPECT_EQ(model.view(), "list");
    EXPECT_TRUE(model.stale());
    EXPECT_EQ(model.errorText(), "Connection refused");
    EXPECT_GE(views.size(), 1);
}

TEST_F(RecentsModelTest, AFailureWithNothingToShowIsTheErrorView) {
    runTask(history.load(failing()));
    EXPECT_EQ(model.view(), "error");
}

TEST_F(RecentsModelTest, AnEmptyFirstPageIsTheEmptyState) {
    runTask(history.load(serving(page({}))));
    EXPECT_EQ(model.view(), "empty");
}

// --- what rows ask for ---

TEST_F(RecentsModelTest, OnlyTheLastRowComingIntoViewAsksForMore) {
    runTask(history.load(serving(page({row(1, 10), row(2, 20), row(3, 30)}))));
    int asked = 0;
    model.loadMore = [&] { ++asked; };
    model.rowShown(0);
    model.rowShown(1);
    EXPECT_EQ(asked, 0);
    model.rowShown(2);
    EXPECT_EQ(asked, 1);
}

TEST_F(RecentsModelTest, CallingBackDialsTheRowsNumber) {
    runTask(history.load(serving(page({row(1, 10, "+4930123456"), row(2, 20, "205")}))));
    QStringList dialled;
    model.call = [&](const QString& number) { dialled.append(number); };
    model.callBack(1);
    model.callBack(7);
    EXPECT_EQ(dialled, QStringList{"205"});
}

// --- missed calls not yet seen ---

TEST_F(RecentsModelTest, MissedCallsAfterTheLastLookAreCountedUntilTheListIsSeen) {
    // Seen at 08:00: a missed call at 08:50 counts, one at 07:00 does not,
    // nor an answered one.
    Row answered = row(3, 5);
    answered.mine = Row::Mine{QStringLiteral("callee"), true};
    RecentsModel fresh(history, recents, settings, clock);
    runTask(history.load(serving(page({answered, row(1, 10), row(2, 120)}))));
    EXPECT_EQ(fresh.missedCount(), 1);
    QSignalSpy counts(&fresh, &RecentsModel::missedCountChanged);
    fresh.markSeen();
    EXPECT_EQ(fresh.missedCount(), 0);
    EXPECT_EQ(counts.size(), 1);
    EXPECT_EQ(settings.text(RecentsModel::lastSeenKey), "2026-11-22T09:00:00Z");
}

TEST_F(RecentsModelTest, AMissedCallOnThisComputerCountsOnceTheServersLineArrives) {
    RecentsModel fresh(history, recents, settings, clock);
    runTask(history.load(serving(page({row(1, 120)}))));
    clock.advance(std::chrono::minutes(1));
    recents.start(uuid(5), "+4930123456", std::nullopt, true);
    EXPECT_EQ(fresh.missedCount(), 0); // still ringing
    recents.finish(uuid(5), std::nullopt);
    // Finished and the server has rows: it waits for the server's line.
    runTask(history.load(serving(page({row(6, -1), row(1, 120)}))));
    EXPECT_EQ(fresh.missedCount(), 1);
}

TEST_F(RecentsModelTest, TheFirstRunCountsNothingOfThePast) {
    MemorySettingsStore empty;
    RecentsModel first(history, recents, empty, clock);
    runTask(history.load(serving(page({row(1, 10), row(2, 20)}))));
    EXPECT_EQ(first.missedCount(), 0);
    EXPECT_EQ(empty.text(RecentsModel::lastSeenKey), "2026-11-22T09:00:00Z");
}

#include "history/CallHistory.h"

#include "EventLoopWait.h"
#include "RunTask.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <QCoro/QCoroSignal>

#include <gtest/gtest.h>

// The call log's paging, its cache file and the merge with the local recents,
// over pages served from memory. Against rz-devserver: the integration suite.
namespace {

using Row = CallHistory::Row;
using Item = CallHistory::Item;

Row row(int n, const QString& startAt, const QString& from = "+4930123456",
        const QString& to = "201") {
    Row r;
    r.callUuid = QStringLiteral("call-%1").arg(n);
    r.from = from;
    r.to = to;
    r.direction = QStringLiteral("inbound");
    r.startAt = startAt;
    return r;
}

// Row n starts n minutes before 2026-11-22 12:00 UTC: the higher n, the older.
Row olderRow(int n) {
    const QDateTime at = QDateTime(QDate(2026, 11, 22), QTime(12, 0), Qt::UTC).addSecs(-60 * n);
    return row(n, at.toString(Qt::ISODateWithMs));
}

QList<Row> rowsFrom(int first, int count) {
    QList<Row> rows;
    for (int n = first; n < first + count; ++n) {
        rows.append(olderRow(n));
    }
    return rows;
}

QByteArray pageBody(const QList<Row>& rows) {
    wire::OrderedJson calls = wire::OrderedJson::array();
    for (const Row& r : rows) {
        calls.push_back(r.toJson());
    }
    wire::OrderedJson page = wire::OrderedJson::object();
    page["calls"] = calls;
    return wire::bytes(page);
}

// Opens when told; a fetch waiting on it stays suspended until then.
class Gate : public QObject {
    Q_OBJECT
signals:
    void opened();
};

// Serves the pages in turn and records every path asked for.
struct PageServer {
    QList<QByteArray> answers;
    QStringList paths;
    Gate* gate = nullptr;
    std::optional<QString> failWith;

    static QCoro::Task<QByteArray> serve(PageServer* server, QString path) {
        server->paths.append(path);
        if (server->gate) {
            co_await qCoro(server->gate, &Gate::opened);
        }
        if (server->failWith) {
            throw API::TransportError(*server->failWith);
        }
        if (server->answers.isEmpty()) {
            throw API::Failure::http(500, QStringLiteral("no page"));
        }
        co_return server->answers.takeFirst();
    }

    CallHistory::Fetch fetch() {
        return [this](QString path) { return serve(this, std::move(path)); };
    }
};

Recents::Entry entry(int n, const QDateTime& date) {
    Recents::Entry e;
    e.id = QUuid(QStringLiteral("00000000-0000-4000-8000-%1").arg(n, 12, 10, QChar('0')));
    e.remote = QStringLiteral("30%1").arg(n);
    e.date = date;
    return e;
}

CallHistory::Owner anna() {
    CallHistory::Owner owner;
    owner.extension_ = QStringLiteral("201");
    owner.usernames = {QStringLiteral("u001.d7.x1")};
    owner.name = QStringLiteral("Anna Berger");
    return owner;
}

class CallHistoryTest : public testing::Test {
protected:
    QString cachePath() const { return dir.filePath("cache/calls.v1.json"); }

    void writeCache(const QByteArray& bytes) {
        QDir().mkpath(dir.filePath("cache"));
        QFile file(cachePath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    QByteArray cacheBytes() const {
        QFile file(cachePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir dir;
    PageServer server;
};

} // namespace

// --- the cache file ---

TEST_F(CallHistoryTest, WithoutACacheFileItStartsEmptyAndNotLoaded) {
    CallHistory history(cachePath());
    EXPECT_TRUE(history.rows().isEmpty());
    EXPECT_FALSE(history.hasLoaded());
    EXPECT_FALSE(history.loading());
    EXPECT_FALSE(history.reachedEnd());
    EXPECT_FALSE(history.lastError());
}

TEST_F(CallHistoryTest, TheCachedFirstPageShowsAtStartAsLoaded) {
    const QList<Row> rows = rowsFrom(0, 3);
    writeCache(CallHistory::encodeRows(rows));
    CallHistory history(cachePath());
    EXPECT_EQ(history.rows(), rows);
    EXPECT_TRUE(history.hasLoaded());
}

TEST_F(CallHistoryTest, TheCacheIsAPlainArrayOfRowsUnderTheirWireNames) {
    Row r = olderRow(1);
    r.answerAt = QStringLiteral("2026-11-22T11:59:05.000Z");
    r.mine = Row::Mine{QStringLiteral("callee"), true};
    EXPECT_EQ(CallHistory::encodeRows({r}),
              R"([{"callUuid":"call-1","from":"+4930123456","to":"201","direction":"inbound",)"
              R"("startAt":"2026-11-22T11:59:00.000Z","answerAt":"2026-11-22T11:59:05.000Z",)"
              R"("mine":{"role":"callee","answeredByMe":true}}])");
}

TEST_F(CallHistoryTest, ACorruptCacheReadsAsEmptyAndIsReplacedOnTheNextWrite) {
    writeCache(R"([{"callUuid":"x","from":1}])");
    CallHistory history(cachePath());
    EXPECT_TRUE(history.rows().isEmpty());
    EXPECT_FALSE(history.hasLoaded());
    server.answers = {pageBody(rowsFrom(0, 2))};
    runTask(history.load(server.fetch()));
    EXPECT_EQ(CallHistory::decodeRows(cacheBytes()), rowsFrom(0, 2));
    CallHistory again(cachePath());
    EXPECT_EQ(again.rows(), rowsFrom(0, 2));
}

TEST_F(CallHistoryTest, CacheBytesThatAreNotJsonOrNotAListReadAsEmpty) {
    for (const QByteArray& bytes : {QByteArray("not json"), QByteArray(R"({"calls":[]})"),
                                    QByteArray(""), QByteArray("[1,2]")}) {
        writeCache(bytes);
        CallHistory history(cachePath());
        EXPECT_TRUE(history.rows().isEmpty()) << bytes.toStdString();
        EXPECT_FALSE(history.hasLoaded()) << bytes.toStdString();
    }
}

TEST_F(CallHistoryTest, OnlyTheFirstPageIsCached) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 50)), pageBody(rowsFrom(50, 10))};
    runTask(history.load(server.fetch()));
    runTask(history.loadMore(server.fetch()));
    EXPECT_EQ(history.rows().size(), 60);
    EXPECT_EQ(CallHistory::decodeRows(cacheBytes())->size(), 50);
}

TEST_F(CallHistoryTest, ACacheThatCannotBeWrittenLeavesTheRowsShown) {
    // The cache's folder is a file, so the write fails.
    QFile blocker(dir.filePath("cache"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 2))};
    runTask(history.load(server.fetch()));
    EXPECT_EQ(history.rows(), rowsFrom(0, 2));
    EXPECT_FALSE(history.lastError());
}

// --- paging ---

TEST_F(CallHistoryTest, TheFirstPageAsksForFiftyOfMineWithoutACursor) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 3))};
    runTask(history.load(server.fetch()));
    EXPECT_EQ(server.paths, QStringList{"api/calls?mine=1&limit=50"});
    EXPECT_EQ(history.rows(), rowsFrom(0, 3));
    EXPECT_TRUE(history.hasLoaded());
    EXPECT_TRUE(history.reachedEnd());
    EXPECT_FALSE(history.loading());
}

TEST_F(CallHistoryTest, APageOfExactlyFiftyLeavesTheEndOpenAndAnEmptyNextPageClosesIt) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 50)), pageBody({})};
    runTask(history.load(server.fetch()));
    EXPECT_FALSE(history.reachedEnd());
    runTask(history.loadMore(server.fetch()));
    EXPECT_TRUE(history.reachedEnd());
    EXPECT_EQ(history.rows().size(), 50);
}

TEST_F(CallHistoryTest, LoadMoreSendsTheLastRowsStartExactlyAsTheServerWroteIt) {
    CallHistory history(cachePath());
    QList<Row> first = rowsFrom(0, 50);
    first.last().startAt = QStringLiteral("2026-01-02T03:04:05.678Z");
    server.answers = {pageBody(first), pageBody({})};
    runTask(history.load(server.fetch()));
    runTask(history.loadMore(server.fetch()));
    ASSERT_EQ(server.paths.size(), 2);
    EXPECT_EQ(server.paths[1],
              "api/calls?mine=1&limit=50&before=2026%2D01%2D02T03%3A04%3A05%2E678Z");
}

TEST_F(CallHistoryTest, TheCursorKeepsOnlyAsciiLettersAndDigits) {
    EXPECT_EQ(CallHistory::encodeBefore("2026-01-02T03:04:05.678Z"),
              "2026%2D01%2D02T03%3A04%3A05%2E678Z");
    EXPECT_EQ(CallHistory::encodeBefore("a+b/ü~_"), "a%2Bb%2F%C3%BC%7E%5F");
}

TEST_F(CallHistoryTest, ACursorThatEncodesToNothingLeavesThePathAsItWas) {
    EXPECT_EQ(CallHistory::pagePath(QString()), "api/calls?mine=1&limit=50");
}

TEST_F(CallHistoryTest, LoadMoreAfterTheEndSendsNothing) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 3))};
    runTask(history.load(server.fetch()));
    ASSERT_TRUE(history.reachedEnd());
    runTask(history.loadMore(server.fetch()));
    EXPECT_EQ(server.paths.size(), 1);
}

TEST_F(CallHistoryTest, LoadMoreWithNoRowsSendsNothing) {
    CallHistory history(cachePath());
    runTask(history.loadMore(server.fetch()));
    EXPECT_TRUE(server.paths.isEmpty());
    EXPECT_FALSE(history.loading());
}

TEST_F(CallHistoryTest, ARowOnTwoPagesIsListedOnceInItsFirstPlace) {
    CallHistory history(cachePath());
    QList<Row> second = rowsFrom(50, 5);
    second.insert(2, olderRow(10)); // already on the first page
    server.answers = {pageBody(rowsFrom(0, 50)), pageBody(second)};
    runTask(history.load(server.fetch()));
    runTask(history.loadMore(server.fetch()));
    ASSERT_EQ(history.rows().size(), 55);
    EXPECT_EQ(history.rows()[10].callUuid, "call-10");
    QSet<QString> ids;
    for (const Row& r : history.rows()) {
        ids.insert(r.callUuid);
    }
    EXPECT_EQ(ids.size(), 55);
    EXPECT_EQ(history.rows()[50].callUuid, "call-50");
    EXPECT_EQ(history.rows()[54].callUuid, "call-54");
}

TEST_F(CallHistoryTest, ARefreshReplacesEverythingAndReopensTheEnd) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 50)), pageBody(rowsFrom(50, 3)),
                      pageBody(rowsFrom(100, 50))};
    runTask(history.load(server.fetch()));
    runTask(history.loadMore(server.fetch()));
    ASSERT_TRUE(history.reachedEnd());
    runTask(history.load(server.fetch()));
    EXPECT_EQ(history.rows(), rowsFrom(100, 50));
    EXPECT_FALSE(history.reachedEnd());
}

TEST_F(CallHistoryTest, ALoadDuringAnotherIsDroppedNotQueued) {
    CallHistory history(cachePath());
    Gate gate;
    server.gate = &gate;
    server.answers = {pageBody(rowsFrom(0, 3)), pageBody(rowsFrom(10, 3))};
    QSignalSpy loadingChanges(&history, &CallHistory::loadingChanged);
    auto first = history.load(server.fetch());
    ASSERT_TRUE(history.loading());
    auto second = history.load(server.fetch());
    EXPECT_EQ(server.paths.size(), 1);
    emit gate.opened();
    ASSERT_TRUE(spinUntil([&] { return !history.loading(); }));
    EXPECT_EQ(history.rows(), rowsFrom(0, 3));
    EXPECT_EQ(server.paths.size(), 1);
    EXPECT_EQ(loadingChanges.size(), 2);
}

TEST_F(CallHistoryTest, AFailedFetchKeepsEverythingAndOnlySetsTheError) {
    writeCache(CallHistory::encodeRows(rowsFrom(0, 50)));
    CallHistory history(cachePath());
    const QByteArray cached = cacheBytes();
    server.failWith = QStringLiteral("Connection refused");
    runTask(history.load(server.fetch()));
    EXPECT_EQ(history.lastError(), "Connection refused");
    EXPECT_EQ(history.rows(), rowsFrom(0, 50));
    EXPECT_TRUE(history.hasLoaded());
    EXPECT_FALSE(history.reachedEnd());
    EXPECT_FALSE(history.loading());
    EXPECT_EQ(cacheBytes(), cached);
}

TEST_F(CallHistoryTest, AnHttpFailureShowsItsSentenceAndABodyThatIsNotAPageTooFails) {
    CallHistory history(cachePath());
    server.answers = {QByteArray(R"({"calls":"nope"})")};
    runTask(history.load(server.fetch()));
    ASSERT_TRUE(history.lastError());
    EXPECT_FALSE(history.lastError()->isEmpty());
    EXPECT_FALSE(history.hasLoaded());
    runTask(history.load(server.fetch())); // no page left: a 500
    EXPECT_EQ(history.lastError(), API::Failure::http(500, "no page").text());
}

TEST_F(CallHistoryTest, ASuccessAfterAFailureClearsTheError) {
    CallHistory history(cachePath());
    server.failWith = QStringLiteral("Host unreachable");
    runTask(history.load(server.fetch()));
    ASSERT_TRUE(history.lastError());
    server.failWith.reset();
    server.answers = {pageBody(rowsFrom(0, 1))};
    runTask(history.load(server.fetch()));
    EXPECT_FALSE(history.lastError());
}

TEST_F(CallHistoryTest, ClearForgetsRowsAndFileButKeepsTheEndAndTheError) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 3))};
    runTask(history.load(server.fetch()));
    server.failWith = QStringLiteral("Down");
    runTask(history.load(server.fetch()));
    ASSERT_TRUE(QFile::exists(cachePath()));
    history.clear();
    EXPECT_TRUE(history.rows().isEmpty());
    EXPECT_FALSE(history.hasLoaded());
    EXPECT_FALSE(QFile::exists(cachePath()));
    EXPECT_TRUE(history.reachedEnd());
    EXPECT_EQ(history.lastError(), "Down");
}

// --- time stamps ---

TEST(CallHistoryStamps, WithAndWithoutFractionalSecondsBothRead) {
    const QDateTime expected(QDate(2026, 1, 2), QTime(3, 4, 5, 678), Qt::UTC);
    EXPECT_EQ(CallHistory::readStamp("2026-01-02T03:04:05.678Z"), expected);
    EXPECT_EQ(CallHistory::readStamp("2026-01-02T03:04:05Z"),
              QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC));
    EXPECT_EQ(CallHistory::readStamp("2026-01-02T04:04:05.678+01:00"), expected);
}

TEST(CallHistoryStamps, TextThatIsNoTimeReadsAsAbsent) {
    for (const char* text : {"garbage", "", "2026-01-02", "2026-01-02T03:04:05",
                             "2026-13-02T03:04:05Z", "2026-01-02T03:04:05.Z"}) {
        EXPECT_FALSE(CallHistory::readStamp(QString::fromLatin1(text))) << text;
    }
}

TEST_F(CallHistoryTest, AnUnreadableStartSinksToTheBottomOfTheList) {
    writeCache(CallHistory::encodeRows(
        {row(1, "garbage"), row(2, "2026-11-20T10:00:00Z"), row(3, "2026-11-21T10:00:00.5Z")}));
    CallHistory history(cachePath());
    const auto items = history.items(anna(), {});
    ASSERT_EQ(items.size(), 3);
    EXPECT_EQ(items[0].id, "call-3");
    EXPECT_EQ(items[1].id, "call-2");
    EXPECT_EQ(items[2].id, "call-1");
    EXPECT_EQ(items[2].date, CallHistory::distantPast());
}

// --- one row as a line ---

TEST(CallHistoryItem, ACallFromTheOwnersExtensionIsOutgoingWhateverTheDirection) {
    Row r = row(1, "2026-11-22T10:00:00Z", "201", "+4930123456");
    r.direction = QStringLiteral("inbound");
    const Item item = CallHistory::item(r, anna());
    EXPECT_FALSE(item.incoming);
    EXPECT_EQ(item.remote, "+4930123456");
}

TEST(CallHistoryItem, AnotherDeviceOfTheOwnerCountsAsTheOwner) {
    CallHistory::Owner owner;
    owner.usernames = {QStringLiteral("a.b.c1")};
    const Row r = row(1, "2026-11-22T10:00:00Z", "a.b.c2", "204");
    EXPECT_TRUE(owner.isOwner("a.b.c2", std::nullopt));
    EXPECT_FALSE(CallHistory::item(r, owner).incoming);
    EXPECT_FALSE(owner.isOwner("a.x.c2", std::nullopt));
}

TEST(CallHistoryItem, AUsernameNotOfThreePiecesMustPrefixTheNumberWhole) {
    CallHistory::Owner owner;
    owner.usernames = {QStringLiteral("anna")};
    EXPECT_TRUE(owner.isOwner("anna", std::nullopt));
    EXPECT_TRUE(owner.isOwner("anna2", std::nullopt));
    EXPECT_FALSE(owner.isOwner("ann", std::nullopt));
}

TEST(CallHistoryItem, TheOwnersNameMakesAPartyTheOwnerOnlyWhenBothArePresent) {
    const CallHistory::Owner owner = anna();
    EXPECT_TRUE(owner.isOwner("999", QStringLiteral("Anna Berger")));
    EXPECT_FALSE(owner.isOwner("999", std::nullopt));
    CallHistory::Owner nameless;
    EXPECT_FALSE(nameless.isOwner("999", QStringLiteral("Anna Berger")));
}

TEST(CallHistoryItem, MineDecidesTheDirectionOfAStrangersCall) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "600");
    r.direction = QStringLiteral("outbound");
    r.mine = Row::Mine{QStringLiteral("callee"), true};
    EXPECT_TRUE(CallHistory::item(r, anna()).incoming);
    r.mine = Row::Mine{QStringLiteral("caller"), false};
    EXPECT_FALSE(CallHistory::item(r, anna()).incoming);
}

TEST(CallHistoryItem, WithoutMineTheDirectionDecidesAndAnyOtherDirectionIsIncoming) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "600");
    r.direction = QStringLiteral("inbound");
    EXPECT_TRUE(CallHistory::item(r, anna()).incoming);
    r.direction = QStringLiteral("outbound");
    EXPECT_FALSE(CallHistory::item(r, anna()).incoming);
    EXPECT_EQ(CallHistory::item(r, anna()).remote, "600");
    r.direction = QStringLiteral("internal");
    EXPECT_TRUE(CallHistory::item(r, anna()).incoming);
    EXPECT_EQ(CallHistory::item(r, anna()).remote, "+4930123456");
}

TEST(CallHistoryItem, TheRemoteAndNameAreTheOtherPartys) {
    Row r = row(1, "2026-11-22T10:00:00Z", "201", "204");
    r.fromName = QStringLiteral("Anna Berger");
    r.toName = QStringLiteral("David");
    const Item out = CallHistory::item(r, anna());
    EXPECT_EQ(out.remote, "204");
    EXPECT_EQ(out.name, "David");
    Row in = row(2, "2026-11-22T10:00:00Z", "204", "201");
    in.fromName = QStringLiteral("David");
    const Item incoming = CallHistory::item(in, anna());
    EXPECT_EQ(incoming.remote, "204");
    EXPECT_EQ(incoming.name, "David");
    EXPECT_EQ(incoming.id, "call-2");
}

TEST(CallHistoryItem, AnsweredByAColleagueIsAnsweredElsewhereAndNotAnswered) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "600");
    r.answerAt = QStringLiteral("2026-11-22T10:00:05Z");
    r.endAt = QStringLiteral("2026-11-22T10:01:05Z");
    r.answeredBy = QStringLiteral("u-003");
    r.mine = Row::Mine{QStringLiteral("callee"), false};
    const Item item = CallHistory::item(r, anna());
    EXPECT_TRUE(item.answeredElsewhere);
    EXPECT_FALSE(item.answered);
}

TEST(CallHistoryItem, AnsweredByWithoutMineIsNotAnsweredElsewhere) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "600");
    r.answerAt = QStringLiteral("2026-11-22T10:00:05Z");
    r.endAt = QStringLiteral("2026-11-22T10:01:05Z");
    r.answeredBy = QStringLiteral("u-003");
    const Item item = CallHistory::item(r, anna());
    EXPECT_FALSE(item.answeredElsewhere);
    EXPECT_TRUE(item.answered);
    EXPECT_EQ(item.duration, 60.0);
}

TEST(CallHistoryItem, AnOutgoingCallAnsweredButNotEndedIsAnsweredWithNoDuration) {
    Row r = row(1, "2026-11-22T10:00:00Z", "201", "204");
    r.answerAt = QStringLiteral("2026-11-22T10:00:05Z");
    const Item item = CallHistory::item(r, anna());
    EXPECT_TRUE(item.answered);
    EXPECT_FALSE(item.duration);
}

TEST(CallHistoryItem, AnOutgoingCallStampedTwiceAlikeOrNotAtAllIsNotAnswered) {
    Row r = row(1, "2026-11-22T10:00:00Z", "201", "204");
    EXPECT_FALSE(CallHistory::item(r, anna()).answered);
    r.answerAt = QStringLiteral("2026-11-22T10:00:05.000Z");
    r.endAt = QStringLiteral("2026-11-22T10:00:05Z");
    const Item item = CallHistory::item(r, anna());
    EXPECT_FALSE(item.answered);
    EXPECT_EQ(item.duration, 0.0);
}

TEST(CallHistoryItem, ADurationRunningBackwardsIsKeptAsTheServerSaidIt) {
    Row r = row(1, "2026-11-22T10:00:00Z", "201", "204");
    r.answerAt = QStringLiteral("2026-11-22T10:00:10Z");
    r.endAt = QStringLiteral("2026-11-22T10:00:05Z");
    EXPECT_EQ(CallHistory::item(r, anna()).duration, -5.0);
}

TEST(CallHistoryItem, AnIncomingCallWithoutMineThatReachedTheMailboxIsNotAnswered) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "201");
    r.answerAt = QStringLiteral("2026-11-22T10:00:25Z");
    r.endAt = QStringLiteral("2026-11-22T10:00:45Z");
    r.voicemail = true;
    const Item item = CallHistory::item(r, anna());
    EXPECT_TRUE(item.voicemail);
    EXPECT_FALSE(item.answered);
    EXPECT_EQ(item.duration, 20.0);
}

TEST(CallHistoryItem, AnIncomingCallWithMineIsAnsweredExactlyWhenIAnsweredIt) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "201");
    r.mine = Row::Mine{QStringLiteral("callee"), true};
    EXPECT_TRUE(CallHistory::item(r, anna()).answered);
    r.mine->answeredByMe = false;
    r.answerAt = QStringLiteral("2026-11-22T10:00:05Z");
    r.endAt = QStringLiteral("2026-11-22T10:00:45Z");
    EXPECT_FALSE(CallHistory::item(r, anna()).answered);
}

TEST(CallHistoryItem, AServerLineIsNeverInProgressNorFailedAndTheResultIsNotRead) {
    Row r = row(1, "2026-11-22T10:00:00Z", "+4930123456", "201");
    r.result = QStringLiteral("answered");
    const Item item = CallHistory::item(r, anna());
    EXPECT_FALSE(item.inProgress);
    EXPECT_FALSE(item.failure);
    EXPECT_FALSE(item.answered);
    EXPECT_FALSE(item.voicemail);
}

// --- the merge ---

TEST_F(CallHistoryTest, WithNoRowsEveryLocalEntryShowsFinishedOnesToo) {
    CallHistory history(cachePath());
    const QDateTime at(QDate(2026, 11, 22), QTime(10, 0), Qt::UTC);
    Recents::Entry done = entry(1, at);
    done.answered = true;
    done.duration = 42;
    Recents::Entry alive = entry(2, at.addSecs(60));
    alive.inProgress = true;
    const auto items = history.items(anna(), {alive, done});
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].id, "00000000-0000-4000-8000-000000000002");
    EXPECT_TRUE(items[0].inProgress);
    EXPECT_EQ(items[1].duration, 42.0);
    EXPECT_TRUE(items[1].answered);
    EXPECT_FALSE(items[1].voicemail);
    EXPECT_FALSE(items[1].answeredElsewhere);
}

TEST_F(CallHistoryTest, TheFirstRowHidesEveryLocalEntryButFailedAndLiveOnes) {
    CallHistory history(cachePath());
    server.answers = {pageBody({row(1, "2026-11-22T09:00:00Z")})};
    runTask(history.load(server.fetch()));
    const QDateTime at(QDate(2026, 11, 22), QTime(10, 0), Qt::UTC);
    Recents::Entry done = entry(1, at);
    Recents::Entry failed = entry(2, at.addSecs(-7200));
    failed.failure = QStringLiteral("Busy Here");
    Recents::Entry alive = entry(3, at.addSecs(60));
    alive.inProgress = true;
    Recents::Entry interrupted = entry(4, at.addSecs(30));
    interrupted.interrupted = true;
    const auto items = history.items(anna(), {alive, interrupted, done, failed});
    ASSERT_EQ(items.size(), 3);
    EXPECT_TRUE(items[0].inProgress);
    EXPECT_EQ(items[1].id, "call-1");
    // The failed call stands at its own time among the server's lines.
    EXPECT_EQ(items[2].failure, "Busy Here");
    EXPECT_FALSE(items[2].inProgress);
}

TEST_F(CallHistoryTest, AtEqualTimesTheServersLinesStayAheadAndEachSourceKeepsItsOrder) {
    CallHistory history(cachePath());
    server.answers = {pageBody({row(1, "2026-11-22T10:00:00Z"), row(2, "2026-11-22T10:00:00Z")})};
    runTask(history.load(server.fetch()));
    const QDateTime at(QDate(2026, 11, 22), QTime(10, 0), Qt::UTC);
    Recents::Entry a = entry(1, at);
    a.failure = QStringLiteral("x");
    Recents::Entry b = entry(2, at);
    b.inProgress = true;
    const auto items = history.items(anna(), {a, b});
    ASSERT_EQ(items.size(), 4);
    EXPECT_EQ(items[0].id, "call-1");
    EXPECT_EQ(items[1].id, "call-2");
    EXPECT_EQ(items[2].id, "00000000-0000-4000-8000-000000000001");
    EXPECT_EQ(items[3].id, "00000000-0000-4000-8000-000000000002");
}

TEST_F(CallHistoryTest, ALocalEntryTheServerNeverReportsStaysWhileItFailedOrLives) {
    CallHistory history(cachePath());
    server.answers = {pageBody(rowsFrom(0, 3)), pageBody(rowsFrom(0, 4))};
    runTask(history.load(server.fetch()));
    Recents::Entry failed = entry(9, QDateTime(QDate(2026, 11, 22), QTime(11, 30), Qt::UTC));
    failed.failure = QStringLiteral("Not connected to the phone system.");
    runTask(history.load(server.fetch()));
    const auto items = history.items(anna(), {failed});
    ASSERT_EQ(items.size(), 5);
    int local = 0;
    for (const Item& item : items) {
        local += item.failure ? 1 : 0;
    }
    EXPECT_EQ(local, 1);
}

TEST_F(CallHistoryTest, ALiveCallTheServerAlreadyListsShowsTwice) {
    CallHistory history(cachePath());
    server.answers = {pageBody({row(1, "2026-11-22T10:00:00Z", "+4930123456")})};
    runTask(history.load(server.fetch()));
    Recents::Entry alive = entry(1, QDateTime(QDate(2026, 11, 22), QTime(10, 0, 1), Qt::UTC));
    alive.remote = QStringLiteral("+4930123456");
    alive.inProgress = true;
    EXPECT_EQ(history.items(anna(), {alive}).size(), 2);
}

#include "CallHistoryTest.moc"

#include "session/QueueCard.h"

#include "session/QueuesModel.h"
#include "session/Session.h"

#include "ManualClock.h"
#include "platform/SecureStore.h"
#include "platform/SettingsStore.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

// What a queue's card says: the summary line, the waiting calls in their
// order with their timers, the agents' chips, and the model the screen reads.
namespace {

const QDateTime now = QDateTime(QDate(2026, 11, 22), QTime(9, 0), Qt::UTC);

QString msAgo(qint64 seconds) {
    return QString::number(now.toMSecsSinceEpoch() - seconds * 1000) + ".0";
}

live::QueueBoard::Waiting waiting(const QString& id, std::optional<QString> since,
                                  std::optional<qint64> position = std::nullopt,
                                  const QString& state = "waiting") {
    live::QueueBoard::Waiting call;
    call.callId = id;
    call.from = live::Named{"caller " + id};
    call.position = position;
    if (since) {
        call.since = live::Stamp{*since};
    }
    call.state = state;
    return call;
}

live::QueueBoard::Agent agent(const QString& userId, const QString& name, const QString& state) {
    live::QueueBoard::Agent a;
    a.userId = userId;
    a.name = name;
    a.state = state;
    return a;
}

QueueCard card(std::optional<qint64> restWaiting, std::optional<live::QueueBoard> board) {
    QueueCard c;
    c.queue.id = "q-1";
    c.queue.name = "Support";
    c.queue.waiting = restWaiting;
    c.board = std::move(board);
    return c;
}

live::QueueBoard board(QList<live::QueueBoard::Waiting> calls,
                       QList<live::QueueBoard::Agent> agents = {}) {
    live::QueueBoard b;
    b.id = "q-1";
    b.name = "Board's own name";
    b.waiting = std::move(calls);
    b.agents = std::move(agents);
    return b;
}

} // namespace

// --- summary line ---

TEST(QueueCardSummary, ABoardWithNobodyWaitingSaysSo) {
    EXPECT_EQ(card(4, board({})).summary(now), "Nobody waiting");
}

TEST(QueueCardSummary, TheLongestWaitIsFromTheEarliestUsableTime) {
    const auto c = card(std::nullopt, board({waiting("a", msAgo(40)), waiting("b", msAgo(187)),
                                             waiting("c", std::nullopt)}));
    EXPECT_EQ(c.summary(now), "3 waiting · longest 3:07");
}

TEST(QueueCardSummary, MinutesAreUnpaddedAndUnlimited) {
    EXPECT_EQ(card(0, board({waiting("a", msAgo(75 * 60))})).summary(now),
              "1 waiting · longest 75:00");
    EXPECT_EQ(QueueCard::minutesAndSeconds(7), "0:07");
}

TEST(QueueCardSummary, AStampThatIsNotMillisecondsIsLeftOutOfLongest) {
    const auto c =
        card(0, board({waiting("a", QString("2026-11-22T08:58:00Z")), waiting("b", msAgo(65))}));
    EXPECT_EQ(c.summary(now), "2 waiting · longest 1:05");
}

TEST(QueueCardSummary, WithoutAnyUsableTimeThereIsNoLongestPart) {
    const auto c = card(0, board({waiting("a", QString("soon")), waiting("b", std::nullopt),
                                  waiting("c", QString(" 1731000000000"))}));
    EXPECT_EQ(c.summary(now), "3 waiting");
}

TEST(QueueCardSummary, WithoutABoardTheQueueListsFiguresSpeak) {
    EXPECT_EQ(card(std::nullopt, std::nullopt).summary(now), "Nobody waiting");
    EXPECT_EQ(card(0, std::nullopt).summary(now), "Nobody waiting");
    EXPECT_EQ(card(-2, std::nullopt).summary(now), "Nobody waiting");
    EXPECT_EQ(card(5, std::nullopt).summary(now), "5 waiting");
}

TEST(QueueCardSummary, ACallWaitingSinceTheFutureHasWaitedNoTime) {
    const auto c = card(0, board({waiting("a", msAgo(-30))}));
    EXPECT_EQ(c.summary(now), "1 waiting · longest 0:00");
}

// --- the waiting panel ---

TEST(QueueCardWaiting, CallsAreSortedByPositionAndNumberedByTheirPlace) {
    const auto rows = card(0, board({waiting("c", msAgo(1), 3), waiting("a", msAgo(1), 1),
                                     waiting("b", msAgo(1), 2)}))
                          .waitingRows();
    ASSERT_EQ(rows.size(), 3);
    EXPECT_EQ(rows[0].caller, "caller a");
    EXPECT_EQ(rows[1].caller, "caller b");
    EXPECT_EQ(rows[2].caller, "caller c");
    EXPECT_EQ(rows[0].place, 1);
    EXPECT_EQ(rows[2].place, 3);
}

TEST(QueueCardWaiting, AMissingPositionCountsAsZero) {
    const auto rows =
        card(0, board({waiting("b", msAgo(1), 1), waiting("a", msAgo(1))})).waitingRows();
    EXPECT_EQ(rows[0].caller, "caller a");
    EXPECT_EQ(rows[0].place, 1);
}

TEST(QueueCardWaiting, TwoCallsWithoutPositionKeepTheBoardsOrder) {
    const auto rows = card(0, board({waiting("second", msAgo(1)), waiting("first", msAgo(1)),
                                     waiting("third", msAgo(1))}))
                          .waitingRows();
    EXPECT_EQ(rows[0].caller, "caller second");
    EXPECT_EQ(rows[1].caller, "caller first");
    EXPECT_EQ(rows[2].caller, "caller third");
}

TEST(QueueCardWaiting, ACallerWithoutANameIsUnknown) {
    auto call = waiting("a", msAgo(1));
    call.from.reset();
    EXPECT_EQ(card(0, board({call})).waitingRows()[0].caller, "Unknown caller");
}

TEST(QueueCardWaiting, TheAgentShowsOnlyOnceTheCallIsNoLongerOffered) {
    auto offered = waiting("a", msAgo(1), 1, "offering");
    offered.agent = live::Named{"Emma"};
    auto taken = waiting("b", msAgo(1), 2, "connected");
    taken.agent = live::Named{"Ben"};
    auto nobody = waiting("c", msAgo(1), 3, "connected");
    const auto rows = card(0, board({offered, taken, nobody})).waitingRows();
    EXPECT_EQ(rows[0].agent, "");
    EXPECT_EQ(rows[1].agent, "Ben");
    EXPECT_EQ(rows[2].agent, "");
}

TEST(QueueCardWaiting, AStampThatIsNotMillisecondsGivesARowWithoutATimer) {
    const auto rows =
        card(0, board({waiting("a", QString("yesterday"), 1), waiting("b", msAgo(3), 2)}))
            .waitingRows();
    EXPECT_FALSE(rows[0].since);
    ASSERT_TRUE(rows[1].since);
    EXPECT_EQ(QueueCard::secondsBetween(*rows[1].since, now), 3);
}

TEST(QueueCardWaiting, TheRunningTimerShowsHoursWhenThereAreAny) {
    EXPECT_EQ(QueueCard::runningText(42), "0:42");
    EXPECT_EQ(QueueCard::runningText(59 * 60 + 59), "59:59");
    EXPECT_EQ(QueueCard::runningText(3600 + 2 * 60 + 5), "1:02:05");
    EXPECT_EQ(QueueCard::runningText(-5), "0:00");
}

TEST(QueueCardWaiting, WithoutABoardThereIsNoPanel) {
    EXPECT_TRUE(card(3, std::nullopt).waitingRows().isEmpty());
}

// --- agents ---

TEST(QueueCardAgents, ChipsFollowTheBoardsOrderAndTheUserIsYou) {
    const auto chips =
        card(0, board({}, {agent("u-2", "Ben", "on_call"), agent("u-1", "Anna", "available")}))
            .agentChips("u-1");
    ASSERT_EQ(chips.size(), 2);
    EXPECT_EQ(chips[0].name, "Ben");
    EXPECT_EQ(chips[0].label, "On a call");
    EXPECT_EQ(chips[1].name, "You");
    EXPECT_EQ(chips[1].label, "Available");
}

TEST(QueueCardAgents, WithoutABoardThereAreNoChips) {
    EXPECT_TRUE(card(0, std::nullopt).agentChips("u-1").isEmpty());
}

TEST(QueueCardAgents, EachStateHasItsLabelAndTone) {
    using Tone = QueueCard::Tone;
    const std::vector<std::tuple<QString, QString, Tone>> states{
        {"available", "Available", Tone::positive}, {"ringing", "Ringing", Tone::orange},
        {"on_call", "On a call", Tone::danger},     {"wrap_up", "Wrap-up", Tone::danger},
        {"paused", "Paused", Tone::purple},         {"unreachable", "Unreachable", Tone::quiet},
        {"logged_out", "Logged out", Tone::quiet}};
    for (const auto& [state, label, tone] : states) {
        EXPECT_EQ(QueueCard::stateLabel(state), label) << state.toStdString();
        EXPECT_EQ(QueueCard::stateTone(state), tone) << state.toStdString();
    }
}

TEST(QueueCardAgents, AnUnknownStateReadsLoggedOut) {
    EXPECT_EQ(QueueCard::stateLabel("lunch"), "Logged out");
    EXPECT_EQ(QueueCard::stateTone("lunch"), QueueCard::Tone::quiet);
    EXPECT_EQ(QueueCard::stateLabel(""), "Logged out");
}

// --- the model ---

namespace {

class QueuesModelTest : public testing::Test {
protected:
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    ManualClock clock{now};
    Session session{settings, secrets, clock};
    QueuesModel model{session, clock};
};

QueueCard timedCard(const QString& id) {
    QueueCard c = card(0, board({waiting("a", msAgo(10))}));
    c.queue.id = id;
    return c;
}

} // namespace

TEST_F(QueuesModelTest, NothingIsLoadedBeforeTheQueuesAnswer) {
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_FALSE(model.loaded());
    model.setCards({timedCard("q-1")}, "u-1");
    EXPECT_TRUE(model.loaded());
    EXPECT_EQ(model.rowCount(), 1);
}

TEST_F(QueuesModelTest, ABoardChangeTouchesOnlyItsOwnCard) {
    model.setCards({timedCard("q-1"), timedCard("q-2")}, "u-1");
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    auto second = timedCard("q-2");
    second.board->waiting.append(waiting("b", msAgo(3)));
    model.setCards({timedCard("q-1"), second}, "u-1");
    EXPECT_EQ(reset.count(), 0);
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed[0][0].toModelIndex().row(), 1);
    EXPECT_EQ(model.data(model.index(1), QueuesModel::SummaryRole).toString(),
              "2 waiting · longest 0:10");
}

TEST_F(QueuesModelTest, TheCardShowsTheFlagsItIsGiven) {
    auto c = timedCard("q-1");
    c.flags = {true, true};
    model.setCards({c}, "u-1");
    EXPECT_TRUE(model.data(model.index(0), QueuesModel::LoggedInRole).toBool());
    EXPECT_TRUE(model.data(model.index(0), QueuesModel::PausedRole).toBool());
    EXPECT_EQ(model.data(model.index(0), QueuesModel::NameRole).toString(), "Support");
}

TEST_F(QueuesModelTest, TheClockTicksOnlyWhileWatchedAndSomethingHasATime) {
    model.setCards({timedCard("q-1")}, "u-1");
    EXPECT_FALSE(model.timerActive());
    model.setTicking(true);
    EXPECT_TRUE(model.timerActive());
    // A board with nobody timed stops it.
    model.setCards({card(0, board({waiting("a", QString("later"))}))}, "u-1");
    EXPECT_FALSE(model.timerActive());
    model.setCards({timedCard("q-1")}, "u-1");
    EXPECT_TRUE(model.timerActive());
    model.setTicking(false);
    EXPECT_FALSE(model.timerActive());
}

TEST_F(QueuesModelTest, OneTickMovesEveryTimerButNotTheSummary) {
    model.setCards({timedCard("q-1"), timedCard("q-2")}, "u-1");
    model.setTicking(true);
    const auto rows = model.data(model.index(0), QueuesModel::WaitingRole).toList();
    ASSERT_EQ(rows.size(), 1);
    const qint64 since = rows[0].toMap()["sinceMs"].toLongLong();
    EXPECT_EQ(model.waitingText(since, model.nowMs()), "0:10");
    QSignalSpy ticks(&model, &QueuesModel::nowChanged);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    clock.advance(5s);
    model.tick();
    EXPECT_EQ(ticks.count(), 1);
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(model.waitingText(since, model.nowMs()), "0:15");
}

TEST_F(QueuesModelTest, WaitingRowsAndChipsReachTheScreen) {
    auto c = card(0, board({waiting("a", QString("x"), 2), waiting("b", msAgo(20), 1)},
                           {agent("u-1", "Anna", "paused"), agent("u-9", "Zoe", "lunch")}));
    model.setCards({c}, "u-1");
    const auto rows = model.data(model.index(0), QueuesModel::WaitingRole).toList();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0].toMap()["caller"].toString(), "caller b");
    EXPECT_TRUE(rows[0].toMap()["timed"].toBool());
    EXPECT_FALSE(rows[1].toMap()["timed"].toBool());
    EXPECT_EQ(rows[1].toMap()["place"].toInt(), 2);
    const auto chips = model.data(model.index(0), QueuesModel::AgentsRole).toList();
    ASSERT_EQ(chips.size(), 2);
    EXPECT_EQ(chips[0].toMap()["name"].toString(), "You");
    EXPECT_EQ(chips[0].toMap()["tone"].toString(), "purple");
    EXPECT_EQ(chips[1].toMap()["label"].toString(), "Logged out");
    EXPECT_EQ(chips[1].toMap()["tone"].toString(), "quiet");
}

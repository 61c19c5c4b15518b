#include "../session/BrowserKit.h"
#include "DevServer.h"
#include "RunTask.h"
#include "Services.h"
#include "session/Session.h"

#include <QFile>
#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;

// The call log against rz-devserver: Anna's rows page in to the end, and the
// first page comes back from the cache when the server is gone.
namespace {

class CallHistoryServer : public testing::Test {
protected:
    CallHistoryServer() { settings.setUrl("rz.server", server.url()); }

    std::unique_ptr<Session> make() {
        auto session = std::make_unique<Session>(settings, secrets);
        useSigningInBrowser(*session);
        return session;
    }

    // Signs in; entering loads the first page of the log.
    void signIn(Session& session) {
        session.signIn();
        QTRY_VERIFY_WITH_TIMEOUT((session.history().hasLoaded() && !session.history().loading()) ||
                                     session.hasError(),
                                 10000);
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
    }

    int callRequests() {
        int count = 0;
        for (const json& request : server.control("GET", "requests")) {
            count += request["path"] == "/api/calls" || request["path"] == "api/calls" ? 1 : 0;
        }
        return count;
    }

    TempHome home;
    DevServer server{{"--auto-approve", "u-001"}};
    MemorySettingsStore settings;
    MemorySecureStore secrets;
};

} // namespace

TEST_F(CallHistoryServer, SigningInShowsTheNewestFiftyCallsAndCachesThem) {
    auto session = make();
    signIn(*session);
    const CallHistory& history = session->history();
    ASSERT_EQ(history.rows().size(), 50);
    EXPECT_FALSE(history.reachedEnd());
    EXPECT_FALSE(history.lastError());
    EXPECT_EQ(history.rows().first().callUuid, "c0ffee00-0000-4000-8000-000000900000");
    QFile file(history.cachePath());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const auto cached = CallHistory::decodeRows(file.readAll());
    ASSERT_TRUE(cached);
    EXPECT_EQ(*cached, history.rows());
    EXPECT_EQ(history.cachePath(), home.cacheHome() + "/velnor-rz/calls.v1.json");
}

TEST_F(CallHistoryServer, PagingToTheEndListsEveryCallOnceNewestFirst) {
    auto session = make();
    signIn(*session);
    const CallHistory& history = session->history();
    int pages = 1;
    while (!history.reachedEnd() && pages < 20) {
        runTask(session->loadMoreHistory());
        ASSERT_FALSE(history.lastError()) << history.lastError()->toStdString();
        ++pages;
    }
    ASSERT_TRUE(history.reachedEnd());
    const std::size_t total = server.control("GET", "model").at("callLogRows");
    EXPECT_EQ(total, 320u);
    ASSERT_EQ(std::size_t(history.rows().size()), total);
    EXPECT_EQ(pages, 7); // six full pages, then twenty rows
    QSet<QString> ids;
    for (const auto& row : history.rows()) {
        ids.insert(row.callUuid);
    }
    EXPECT_EQ(std::size_t(ids.size()), total);
    // The server numbers its rows newest first: none missing, none out of order.
    for (int i = 0; i < history.rows().size(); ++i) {
        EXPECT_EQ(history.rows()[i].callUuid,
                  QStringLiteral("c0ffee00-0000-4000-8000-%1").arg(900000 - i, 12, 10, QChar('0')));
    }
    // Every line of the merged list reads a start time, so none sinks to the bottom.
    const auto items = history.items(session->historyOwner(), {});
    for (const auto& item : items) {
        EXPECT_NE(item.date, CallHistory::distantPast()) << item.id.toStdString();
    }
    EXPECT_EQ(callRequests(), pages);
}

TEST_F(CallHistoryServer, ARestartWithTheServerDownShowsTheCachedListAndTheError) {
    QList<CallHistory::Row> seen;
    {
        auto session = make();
        signIn(*session);
        seen = session->history().rows();
    }
    server.process().stop();
    auto later = make();
    // Before anything is asked of the network, the cached page is there.
    EXPECT_EQ(later->history().rows(), seen);
    EXPECT_TRUE(later->history().hasLoaded());
    runTask(later->loadHistory());
    EXPECT_EQ(later->history().rows(), seen);
    ASSERT_TRUE(later->history().lastError());
    EXPECT_FALSE(later->history().lastError()->isEmpty());
    EXPECT_FALSE(later->history().loading());
}

TEST_F(CallHistoryServer, AServerErrorKeepsTheRowsAndTheNextLoadClearsIt) {
    auto session = make();
    signIn(*session);
    const auto rows = session->history().rows();
    server.control("POST", "faults", {{"path", "api/calls"}, {"status", 503}});
    runTask(session->loadHistory());
    ASSERT_TRUE(session->history().lastError());
    EXPECT_EQ(session->history().rows(), rows);
    runTask(session->loadHistory());
    EXPECT_FALSE(session->history().lastError());
    EXPECT_EQ(session->history().rows(), rows);
}

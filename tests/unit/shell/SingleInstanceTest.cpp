#include "shell/SingleInstance.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <future>

namespace {

class SingleInstanceTest : public testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.path() + "/app.sock";
};

// Runs a blocking hand-over on another thread while this one serves the running app.
std::future<bool> handOverInBackground(const QString& path, QStringList links, int timeoutMs) {
    return std::async(std::launch::async, [path, links, timeoutMs] {
        SingleInstance launcher(path);
        return launcher.handOver(links, timeoutMs);
    });
}

bool serveUntil(std::future<bool>& result, int boundMs = 10000) {
    QElapsedTimer timer;
    timer.start();
    while (result.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
        if (timer.elapsed() > boundMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

} // namespace

TEST_F(SingleInstanceTest, TheFirstLaunchBecomesTheRunningAppAndTakesLaterLinks) {
    SingleInstance running(path);
    ASSERT_EQ(running.listen(), SingleInstance::Listen::listening);
    QSignalSpy activated(&running, &SingleInstance::activated);
    auto result = handOverInBackground(path, {"tel:+4930123456", "rzmobile://x"}, 5000);
    ASSERT_TRUE(serveUntil(result));
    EXPECT_TRUE(result.get());
    ASSERT_EQ(activated.count(), 1);
    EXPECT_EQ(activated.at(0).at(0).toStringList(),
              (QStringList{"tel:+4930123456", "rzmobile://x"}));
}

TEST_F(SingleInstanceTest, ASocketLeftByAnAppThatEndedIsReplaced) {
    {
        QLocalServer leftOver;
        ASSERT_TRUE(leftOver.listen(path));
        // A killed app leaves its socket file behind, with nobody listening.
        leftOver.setSocketOptions(QLocalServer::UserAccessOption);
    }
    QFile stale(path);
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    SingleInstance next(path);
    EXPECT_FALSE(next.handOver({}, 500));
    EXPECT_EQ(next.listen(), SingleInstance::Listen::listening);
}

TEST_F(SingleInstanceTest, ALiveAppThatDoesNotAnswerKeepsItsSocket) {
    SingleInstance running(path);
    ASSERT_EQ(running.listen(), SingleInstance::Listen::listening);

    // The running app is busy: this thread serves no events while the second launch tries.
    SingleInstance second(path);
    EXPECT_FALSE(second.handOver({"tel:1"}, 300));
    EXPECT_EQ(second.listen(), SingleInstance::Listen::ownedByAnother);
    EXPECT_TRUE(QFile::exists(path));

    // The connection the second launch gave up on is dropped; a later one still arrives.
    QSignalSpy activated(&running, &SingleInstance::activated);
    auto result = handOverInBackground(path, {"tel:2"}, 5000);
    ASSERT_TRUE(serveUntil(result));
    EXPECT_TRUE(result.get());
    // The launch that gave up is not served late: only the later link arrives.
    ASSERT_EQ(activated.count(), 1);
    EXPECT_EQ(activated.at(0).at(0).toStringList(), QStringList{"tel:2"});
}

TEST_F(SingleInstanceTest, TheLockGoesWithTheRunningApp) {
    {
        SingleInstance running(path);
        ASSERT_EQ(running.listen(), SingleInstance::Listen::listening);
    }
    SingleInstance next(path);
    EXPECT_EQ(next.listen(), SingleInstance::Listen::listening);
}

TEST_F(SingleInstanceTest, AMessageKeepsOnlyItsTextLinks) {
    EXPECT_EQ(SingleInstance::readMessage(R"(["tel:1", 2, null, {"a":1}, "sip:b@c"])"),
              (QStringList{"tel:1", "sip:b@c"}));
    EXPECT_TRUE(SingleInstance::readMessage("not json").isEmpty());
    EXPECT_TRUE(SingleInstance::readMessage(R"({"links":["tel:1"]})").isEmpty());
    EXPECT_TRUE(SingleInstance::readMessage(QByteArray(70 * 1024, '[')).isEmpty());
}

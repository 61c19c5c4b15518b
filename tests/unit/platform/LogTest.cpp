#include "platform/Log.h"

#include "StderrCapture.h"

#include <QRegularExpression>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

TEST(LogLine, IsTimeOfDayWithMillisecondsThenCategoryInBracketsThenMessage) {
    EXPECT_EQ(Log::line(QTime(9, 5, 7, 42), u"api", u"GET api/me → 200"),
              QString::fromUtf8("09:05:07.042 [api] GET api/me → 200\n"));
}

TEST(LogLine, KeepsMidnightAndTheLastMillisecondOfTheDay) {
    EXPECT_EQ(Log::line(QTime(0, 0), u"sip", u"x"), "00:00:00.000 [sip] x\n");
    EXPECT_EQ(Log::line(QTime(23, 59, 59, 999), u"live", u"y"), "23:59:59.999 [live] y\n");
}

TEST(LogLine, AnEmptyMessageStillEndsTheLine) {
    EXPECT_EQ(Log::line(QTime(12, 0), u"phone", u""), "12:00:00.000 [phone] \n");
}

TEST(LogLine, IsIso8601TimeOfDay) {
    const QString line = Log::line(QTime::currentTime(), u"call", u"m");
    EXPECT_TRUE(
        QRegularExpression(R"(^\d\d:\d\d:\d\d\.\d\d\d \[call\] m\n$)").match(line).hasMatch())
        << line.toStdString();
}

TEST(LogWrite, PutsOneWholeLinePerMessageOnStandardError) {
    StderrCapture capture;
    Log::error(Log::phone, u"Registration failed: wrong password");
    const QByteArray written = capture.take();
    EXPECT_TRUE(QRegularExpression(
                    R"(^\d\d:\d\d:\d\d\.\d\d\d \[phone\] Registration failed: wrong password\n$)")
                    .match(QString::fromUtf8(written))
                    .hasMatch())
        << written.toStdString();
}

TEST(LogWrite, LinesFromManyThreadsAtOnceStayWhole) {
    StderrCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i) {
                Log::info(i % 2 ? Log::api : Log::live,
                          QStringLiteral("thread %1 line %2").arg(t).arg(i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const QStringList lines = QString::fromUtf8(capture.take()).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 200);
    const QRegularExpression whole(R"(^\d\d:\d\d:\d\d\.\d\d\d \[(api|live)\] thread \d line \d+$)");
    for (const QString& line : lines) {
        EXPECT_TRUE(whole.match(line).hasMatch()) << line.toStdString();
    }
}

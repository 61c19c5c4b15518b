#include "../../integration/phone/TwoCallsLab.h"

#include "session/CallStatistics.h"
#include "QmlWindow.h"
#include "shell/Application.h"

#include <QDir>

#include <gtest/gtest.h>

// The statistics panel over a real call whose media the phone system spoils:
// rz-devserver drops a fifth of the echo test's packets each way, and the
// panel, fed by the engine's own figures and the server's, reads "Poor
// connection". Drawn offscreen and grabbed to build/screenshots.
TEST(PoorConnection, TheStatisticsPanelOfALossyCallReadsPoorConnection) {
    ASSERT_TRUE(Application::loadFonts());
    TwoCallsLab lab;
    lab.signInAndRegister();
    lab.server.control("POST", "phone/loss", {{"percent", 20}, {"jitterMs", 40}});
    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }, 15000));

    QmlWindow host;
    const QString error =
        host.show(" property QtObject stats\n width: 320; height: 180\n"
                  " CallStatsPanel { x: 12; y: 12; width: 296; stats: w.stats }",
                  {{"stats", QVariant::fromValue<QObject*>(lab.session->callStatistics())}});
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    QQuickItem* level = host.named(QStringLiteral("statsLevel"));
    ASSERT_NE(level, nullptr);

    // The panel refreshes itself once a second; enough packets must pass first.
    EXPECT_TRUE(
        waitFor([&] { return level->property("text").toString() == "Poor connection"; }, 20000))
        << level->property("text").toString().toStdString();
    const auto* stats = lab.session->callStatistics();
    EXPECT_EQ(stats->levelName(), "poor");
    EXPECT_NE(stats->incomingLoss(), QString::fromUtf8("–"));
    QDir().mkpath(VELNOR_SCREENSHOTS);
    host.window->grabWindow().save(QString(VELNOR_SCREENSHOTS) + "/stats-poor-real-light.png");
    lab.phone->hangUpActive();
}

#include "../../integration/phone/TwoCallsLab.h"

#include "session/CallStatistics.h"
#include "shell/Application.h"

#include <QDir>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

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

    QQmlEngine engine;
    engine.addImportPath(QStringLiteral("qrc:/"));
    QQmlComponent component(&engine);
    component.setData("import QtQuick\nimport Velnor.Screens\n"
                      "Window {\n id: w\n property QtObject stats\n width: 320; height: 180\n"
                      " color: Theme.windowBackground\n"
                      " CallStatsPanel { x: 12; y: 12; width: 296; stats: w.stats }\n}\n",
                      QUrl(QStringLiteral("qrc:/test/PoorConnection.qml")));
    ASSERT_TRUE(component.isReady()) << component.errorString().toStdString();
    std::unique_ptr<QQuickWindow> window(
        qobject_cast<QQuickWindow*>(component.createWithInitialProperties(
            {{"stats", QVariant::fromValue<QObject*>(lab.session->callStatistics())}})));
    ASSERT_NE(window, nullptr) << component.errorString().toStdString();
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    std::function<QQuickItem*(QQuickItem*)> find = [&](QQuickItem* node) -> QQuickItem* {
        if (node->objectName() == QLatin1String("statsLevel")) {
            return node;
        }
        for (QQuickItem* child : node->childItems()) {
            if (QQuickItem* found = find(child)) {
                return found;
            }
        }
        return nullptr;
    };
    QQuickItem* level = find(window->contentItem());
    ASSERT_NE(level, nullptr);

    // The panel refreshes itself once a second; enough packets must pass first.
    EXPECT_TRUE(
        waitFor([&] { return level->property("text").toString() == "Poor connection"; }, 20000))
        << level->property("text").toString().toStdString();
    const auto* stats = lab.session->callStatistics();
    EXPECT_EQ(stats->levelName(), "poor");
    EXPECT_NE(stats->incomingLoss(), QString::fromUtf8("–"));
    QDir().mkpath(VELNOR_SCREENSHOTS);
    window->grabWindow().save(QString(VELNOR_SCREENSHOTS) + "/stats-poor-real-light.png");
    lab.phone->hangUpActive();
}

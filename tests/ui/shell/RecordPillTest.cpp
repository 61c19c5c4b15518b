#include "shell/Application.h"

#include <QAccessible>
#include <QDir>
#include <QImage>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

// The record pill on its own, drawn offscreen in each of its states.
namespace {

class RecordPillTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Application::loadFonts());
        engine.addImportPath("qrc:/");
        QQmlComponent component(&engine);
        component.setData(
            "import QtQuick\nimport Velnor.Screens\n"
            "Window { width: 160; height: 48; color: Theme.windowBackground\n"
            "  property alias pill: pill\n"
            "  RecordPill { id: pill; objectName: \"pill\"; anchors.centerIn: parent }\n"
            "}\n",
            QUrl("qrc:/RecordPillTest.qml"));
        window.reset(qobject_cast<QQuickWindow*>(component.create()));
        ASSERT_NE(window, nullptr) << component.errorString().toStdString();
        pill = window->findChild<QQuickItem*>("pill");
        ASSERT_NE(pill, nullptr);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    void set(bool canRecord, bool recording) {
        pill->setProperty("canRecord", canRecord);
        pill->setProperty("recording", recording);
    }

    QString label() {
        auto* text = pill->findChild<QQuickItem*>("recordPillLabel");
        return text ? text->property("text").toString() : QString();
    }

    QString accessibleName() {
        QAccessibleInterface* node = QAccessible::queryAccessibleInterface(pill);
        return node ? node->text(QAccessible::Name) : QString();
    }

    void screenshot(const QString& name) {
        QDir().mkpath(VELNOR_SCREENSHOTS);
        window->grabWindow().save(QString(VELNOR_SCREENSHOTS) + "/" + name + ".png");
    }

    QQmlEngine engine;
    std::unique_ptr<QQuickWindow> window;
    QQuickItem* pill = nullptr;
};

} // namespace

TEST_F(RecordPillTest, AUserWhoMayNotRecordSeesNoPillWhileTheCallIsNotRecorded) {
    set(false, false);
    EXPECT_FALSE(pill->isVisible());
}

TEST_F(RecordPillTest, ACallTheServerRecordsAnywayShowsRecordingAndPressingAsksToStop) {
    set(false, true);
    EXPECT_TRUE(pill->isVisible());
    EXPECT_EQ(label(), "Recording");
    EXPECT_EQ(accessibleName(), "Recording, stop");
    QSignalSpy asked(pill, SIGNAL(recordingRequested(bool)));
    const QPointF centre = pill->mapToScene(QPointF(pill->width() / 2, pill->height() / 2));
    QTest::mouseClick(window.get(), Qt::LeftButton, {}, centre.toPoint());
    ASSERT_EQ(asked.size(), 1);
    EXPECT_FALSE(asked[0][0].toBool());
    // Nothing changes until the server says so.
    EXPECT_EQ(label(), "Recording");
    screenshot("record-pill-recording-light");
}

TEST_F(RecordPillTest, AUserWhoMayRecordSeesRecordOnAPaleCapsule) {
    set(true, false);
    EXPECT_TRUE(pill->isVisible());
    EXPECT_EQ(label(), "Record");
    EXPECT_EQ(accessibleName(), "Record this call");
    screenshot("record-pill-record-light");
}

#include "ScreenHost.h"

// The row kit and the loading views that every list screen draws with.
namespace {

const QByteArray gallery = R"(
    Column {
        anchors.fill: parent
        property int calls: 0
        objectName: "gallery"
        StaleBanner { objectName: "stale"; width: parent.width; onRetry: parent.calls += 100 }
        RowSectionHeader { x: 16; title: "People" }
        CallableRow {
            objectName: "callable"
            width: parent.width
            onCall: parent.calls += 1
            ListRow {
                title: "Anna Berger"
                subtitle: "Extension 201"
                subtitleIcon: "phone.arrow.down.left"
                subtitleIconLabel: "Incoming"
                leading: Component { Avatar { name: "Anna Berger"; shell: w.shell } }
                trailing: Component { RowDate { date: new Date(); shell: w.shell } }
            }
        }
        CallableRow {
            objectName: "uncallable"
            width: parent.width
            callEnabled: false
            onCall: parent.calls += 10
            ListRow {
                title: "   "
                subtitle: "Offline"
                leading: Component { Avatar { name: "   "; shell: w.shell } }
                trailing: Component { PresenceDot { presence: "busy" } }
            }
        }
        ListRow {
            width: parent.width
            title: "Support line"
            emphasized: true
            leading: Component { RowIcon { systemName: "person.3.sequence" } }
            trailing: Component { ExtensionPill { text: "500" } }
        }
        Row {
            width: parent.width
            height: 260
            LoadErrorView {
                width: parent.width / 2
                height: parent.height
                message: "The server could not be reached."
            }
            SkeletonList { width: parent.width / 2; rows: 4 }
        }
    }
)";

class RowKit : public ScreenHost {
protected:
    int calls() const { return item("gallery")->property("calls").toInt(); }
    void doubleClick(QQuickItem* target) {
        QTest::mouseDClick(window.get(), Qt::LeftButton, {}, centreOf(target) - QPoint(100, 0));
    }
};

} // namespace

TEST_F(RowKit, DrawsRowsAvatarsAndTheLoadingViewsInLightAndDark) {
    host(gallery, false, QSize(720, 560));
    EXPECT_NE(itemWithText("Offline. Showing saved data, tap to retry"), nullptr);
    EXPECT_NE(itemWithText("Could not load"), nullptr);
    EXPECT_NE(itemWithText("Try again"), nullptr);
    EXPECT_NE(itemWithText("AB"), nullptr);
    EXPECT_NE(itemWithText("#"), nullptr);
    screenshot("row-kit-light");
    window->property("theme").value<QObject*>()->setProperty("dark", true);
    screenshot("row-kit-dark");
}

TEST_F(RowKit, AnEnabledRowCallsFromItsButtonAndOnADoubleClick) {
    host(gallery, false, QSize(720, 560));
    QQuickItem* row = item("callable");
    QQuickItem* button = nullptr;
    for (QQuickItem* candidate : itemsNamed(row, "rowCallButton")) {
        button = candidate;
    }
    ASSERT_NE(button, nullptr);
    EXPECT_TRUE(button->isVisible());
    EXPECT_EQ(accessibleName(button), "Call");
    click(button);
    EXPECT_EQ(calls(), 1);
    doubleClick(row);
    EXPECT_EQ(calls(), 2);
}

TEST_F(RowKit, ADisabledRowHasNoCallButtonAndDoesNothingOnADoubleClick) {
    host(gallery, false, QSize(720, 560));
    QQuickItem* row = item("uncallable");
    for (QQuickItem* candidate : itemsNamed(row, "rowCallButton")) {
        EXPECT_FALSE(candidate->isVisible());
    }
    doubleClick(row);
    QTest::mouseClick(window.get(), Qt::RightButton, {}, centreOf(row));
    EXPECT_EQ(calls(), 0);
}

TEST_F(RowKit, TheStaleBannerRetriesOnATap) {
    host(gallery, false, QSize(720, 560));
    click(item("stale"));
    EXPECT_EQ(calls(), 100);
}

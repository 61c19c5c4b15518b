#include "ScreenHost.h"

#include "../../unit/telephony/FakeCore.h"
#include "core/Core.h"

#include <QUuid>

// The tray icon's panel: a compact phone for use without the main window.
namespace {

class TrayPanel : public ScreenHost {
protected:
    void addRecent(const QString& number, const QString& name, bool incoming) {
        const QUuid id = QUuid::createUuid();
        app().phone().recents().start(id, number, name, incoming);
        app().phone().recents().finish(id, std::nullopt);
    }
    QStringList dialled() const {
        QStringList numbers;
        for (const auto& entry : application->phone().recents().entries()) {
            numbers.append(entry.remote);
        }
        return numbers;
    }
};

} // namespace

TEST_F(TrayPanel, SignedOutSaysSoAndOffersTheNumberFieldAndTheMenuRows) {
    hostWindow("TrayPanel.qml");
    EXPECT_TRUE(item("trayNotSignedIn")->isVisible());
    EXPECT_FALSE(item("trayHeader")->isVisible());
    EXPECT_FALSE(item("trayCallRow")->isVisible());
    EXPECT_EQ(item("trayNumber")->property("placeholderText").toString(), "Number or extension");
    for (const char* row : {"Open velnor RZ", "Settings", "Quit velnor RZ", "Do not disturb"}) {
        EXPECT_NE(itemWithText(row), nullptr) << row;
    }
    EXPECT_NE(itemWithText("Ctrl+Q"), nullptr);
    EXPECT_FALSE(item("trayCall")->isEnabled());
    screenshot("tray-panel-signed-out-light");
}

TEST_F(TrayPanel, ListsTheLocalRecentsNewestFirstAndDialsOneOnAClick) {
    addRecent("202", "Ben Ortiz", true);
    addRecent("999", "Echo test", false);
    hostWindow("TrayPanel.qml", true);
    EXPECT_NE(itemWithText("Recent"), nullptr);
    QQuickItem* echo = itemWithText("Echo test");
    ASSERT_NE(echo, nullptr);
    EXPECT_NE(itemWithText("Ben Ortiz"), nullptr);
    EXPECT_LT(echo->mapToScene(QPointF()).y(),
              itemWithText("Ben Ortiz")->mapToScene(QPointF()).y());
    screenshot("tray-panel-recents-dark");
    app().phone().registrationChanged(core::RegistrationState::registered());
    click(echo);
    // No phone system is behind this phone: the dial leaves a failed line.
    EXPECT_EQ(dialled().value(0), "999");
}

TEST_F(TrayPanel, ReturnDialsTheTrimmedNumberOnlyWhileRegisteredAndClearsTheField) {
    hostWindow("TrayPanel.qml");
    QQuickItem* field = item("trayNumber");
    field->forceActiveFocus();
    typeText("  204 ");
    EXPECT_FALSE(item("trayCall")->isEnabled());
    QTest::keyClick(window.get(), Qt::Key_Return);
    EXPECT_TRUE(dialled().isEmpty());
    app().phone().registrationChanged(core::RegistrationState::registered());
    EXPECT_TRUE(item("trayCall")->isEnabled());
    QTest::keyClick(window.get(), Qt::Key_Return);
    EXPECT_EQ(dialled().value(0), "204");
    EXPECT_EQ(field->property("text").toString(), "");
}

TEST_F(TrayPanel, OpenVelnorRzAsksForTheMainWindow) {
    hostWindow("TrayPanel.qml");
    int asked = 0;
    QObject::connect(&app().shellState(), &ShellState::mainWindowRequested, [&] { ++asked; });
    click(item("trayOpen"));
    EXPECT_EQ(asked, 1);
}

TEST_F(TrayPanel, AnIncomingCallShowsTheCallerWithDeclineAndAnswerAndAnswerTakesIt) {
    auto call = std::make_shared<FakeCoreCall>("sip-1", "205", "Emma Roth");
    app().phone().incomingCall(call);
    hostWindow("TrayPanel.qml");
    EXPECT_TRUE(item("trayCallRow")->isVisible());
    EXPECT_NE(itemWithText("Emma Roth"), nullptr);
    EXPECT_NE(itemWithText("Incoming call"), nullptr);
    EXPECT_TRUE(item("trayDecline")->isVisible());
    EXPECT_TRUE(item("trayAnswer")->isVisible());
    EXPECT_FALSE(item("trayMute")->isVisible());
    EXPECT_FALSE(item("trayNumber")->isVisible());
    EXPECT_EQ(accessibleName(item("trayShowCall")), "Show the call");
    screenshot("tray-panel-incoming-light");
    click(item("trayAnswer"));
    EXPECT_EQ(call->answers, 1);
}

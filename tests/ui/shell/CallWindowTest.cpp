#include "shell/Application.h"

#include "../../unit/telephony/FakeCore.h"

#include <QAccessible>
#include <QDir>
#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

// The call window as a person sees and drives it, drawn offscreen over a fake
// engine: each state grabbed to build/screenshots, and its buttons pressed.
namespace {

using core::CallState;
using core::RegistrationState;

class CallWindowTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Application::loadFonts());
        app.phone().setClientFactory(
            [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
                client = std::make_shared<FakeClient>(account, std::move(d));
                return client;
            });
        app.phone().setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
        app.phone().start();
        app.phone().registrationChanged(RegistrationState::registered());
    }

    void show(bool dark = false) {
        ASSERT_TRUE(app.showMainWindow());
        app.palette()->setProperty("dark", dark);
    }

    std::shared_ptr<FakeCoreCall> incoming(std::optional<std::string> name = "Anna Berger") {
        auto call = std::make_shared<FakeCoreCall>("in-1", "+4930123456", std::move(name));
        app.phone().incomingCall(call);
        return call;
    }

    std::shared_ptr<FakeCoreCall> connected() {
        app.phone().dial("204");
        app.phone().callStateChanged(client->placed.back()->sipCallId(), CallState::connected());
        return client->placed.back();
    }

    QQuickWindow* window() {
        QQuickWindow* shown = app.callWindow();
        if (shown) {
            // Layout settles on the next frame.
            if (!QTest::qWaitForWindowExposed(shown, 2000)) {
                ADD_FAILURE() << "The call window was not shown";
            }
            shown->grabWindow();
        }
        return shown;
    }

    // By object name, through the visual tree too: a Repeater's keys are not
    // QObject children of what shows them.
    QQuickItem* item(const char* name) {
        if (!window()) {
            return nullptr;
        }
        if (auto* found = window()->findChild<QQuickItem*>(name)) {
            return found;
        }
        std::function<QQuickItem*(QQuickItem*)> search = [&](QQuickItem* node) -> QQuickItem* {
            if (node->objectName() == QLatin1String(name)) {
                return node;
            }
            for (QQuickItem* child : node->childItems()) {
                if (QQuickItem* found = search(child)) {
                    return found;
                }
            }
            return nullptr;
        };
        return search(window()->contentItem());
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    void click(const char* name) {
        QQuickItem* target = item(name);
        ASSERT_NE(target, nullptr) << name;
        ASSERT_TRUE(target->isVisible()) << name;
        const QPointF centre =
            target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(window(), Qt::LeftButton, {}, centre.toPoint());
    }

    QImage screenshot(const QString& name) {
        // The window follows its content's size; the new size reaches the
        // scene through the platform's resize, which comes as an event.
        QQuickItem* root = window()->contentItem();
        EXPECT_TRUE(QTest::qWaitFor([&] {
            return root->width() == window()->width() && root->height() == window()->height();
        }));
        QImage image = window()->grabWindow();
        QDir().mkpath(VELNOR_SCREENSHOTS);
        image.save(QString(VELNOR_SCREENSHOTS) + "/" + name + ".png");
        return image;
    }

    QString text(const char* name) {
        QQuickItem* found = item(name);
        return found ? found->property("text").toString() : QString();
    }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app{settings, secrets};
    std::shared_ptr<FakeClient> client;
};

} // namespace

TEST_F(CallWindowTest, AnIncomingCallOpensTheWindowTitledCallWithAnswerAndDecline) {
    show();
    EXPECT_EQ(app.callWindow(), nullptr);
    incoming();
    ASSERT_NE(window(), nullptr);
    EXPECT_EQ(window()->title(), "Call");
    EXPECT_TRUE(window()->flags() & Qt::FramelessWindowHint);
    EXPECT_FALSE(window()->flags() & Qt::WindowStaysOnTopHint);
    EXPECT_EQ(text("callName"), "Anna Berger");
    EXPECT_EQ(text("callNumber"), "+4930123456");
    EXPECT_EQ(text("callStatus"), "Incoming call");
    EXPECT_TRUE(shows("answerButton"));
    EXPECT_TRUE(shows("declineButton"));
    EXPECT_FALSE(shows("muteButton"));
    EXPECT_FALSE(shows("endButton"));
    screenshot("call-incoming-light");
}

TEST_F(CallWindowTest, TheIncomingCallInTheDark) {
    show(true);
    incoming();
    ASSERT_NE(window(), nullptr);
    const QImage image = screenshot("call-incoming-dark");
    EXPECT_EQ(QColor(image.pixel(image.width() / 2, 4)), QColor("#151619"));
}

TEST_F(CallWindowTest, AnsweringOnTheScreenConnectsAndShowsTheControls) {
    show();
    auto call = incoming();
    click("answerButton");
    EXPECT_EQ(call->answers, 1);
    app.phone().callStateChanged("in-1", CallState::connected());
    EXPECT_FALSE(app.callWindows().ringing());
    EXPECT_TRUE(shows("muteButton"));
    EXPECT_TRUE(shows("keypadButton"));
    EXPECT_TRUE(shows("endButton"));
    EXPECT_FALSE(shows("answerButton"));
    EXPECT_EQ(text("callStatus"), "0:00");
    screenshot("call-connected-light");
}

TEST_F(CallWindowTest, DecliningOnTheScreenEndsTheCallAndClosesTheWindow) {
    show();
    auto call = incoming();
    click("declineButton");
    EXPECT_EQ(call->hangups, 1);
    EXPECT_EQ(app.callWindow(), nullptr);
}

TEST_F(CallWindowTest, AnUnnamedCallerShowsTheNumberOnce) {
    show();
    incoming(std::nullopt);
    EXPECT_EQ(text("callName"), "+4930123456");
    EXPECT_FALSE(shows("callNumber"));
}

TEST_F(CallWindowTest, AnOutgoingCallShowsCallingThenTheTimer) {
    show();
    app.phone().dial("204");
    ASSERT_NE(window(), nullptr);
    EXPECT_EQ(text("callStatus"), "Calling…");
    EXPECT_EQ(text("callName"), "204");
    EXPECT_TRUE(shows("endButton"));
    screenshot("call-outgoing-light");
    app.phone().callStateChanged(client->placed.back()->sipCallId(), CallState::ringing());
    EXPECT_EQ(text("callStatus"), "Ringing…");
    app.phone().callStateChanged(client->placed.back()->sipCallId(), CallState::connected());
    EXPECT_EQ(text("callStatus"), "0:00");
    // The timer moves by itself.
    ASSERT_TRUE(QTest::qWaitFor([&] { return text("callStatus") == QString("0:01"); }, 2500))
        << text("callStatus").toStdString();
}

TEST_F(CallWindowTest, MuteIsDrawnActiveAndUnmutesAgain) {
    show();
    connected();
    click("muteButtonCircle");
    EXPECT_TRUE(app.phone().activeCall()->muted);
    EXPECT_TRUE(item("muteButton")->property("active").toBool());
    screenshot("call-muted-light");
    click("muteButtonCircle");
    EXPECT_FALSE(app.phone().activeCall()->muted);
}

TEST_F(CallWindowTest, TheKeypadSendsClickedAndTypedDigitsAndShowsThem) {
    show();
    auto call = connected();
    EXPECT_FALSE(shows("inCallKeypad"));
    click("keypadButtonCircle");
    ASSERT_TRUE(shows("inCallKeypad"));
    click("inCallKey1");
    click("inCallKey#");
    QTest::keyClick(window(), Qt::Key_5, Qt::NoModifier);
    QTest::keyClick(window(), Qt::Key_Asterisk, Qt::NoModifier);
    // Letters are not keys of the keypad.
    QTest::keyClick(window(), Qt::Key_A, Qt::NoModifier);
    EXPECT_EQ(call->digits, "1#5*");
    EXPECT_EQ(text("dialedDigits"), "1#5*");
    screenshot("call-keypad-light");
}

TEST_F(CallWindowTest, TheKeypadInTheDark) {
    show(true);
    connected();
    click("keypadButtonCircle");
    click("inCallKey7");
    screenshot("call-keypad-dark");
    EXPECT_EQ(text("dialedDigits"), "7");
}

TEST_F(CallWindowTest, ACallIsAnsweredMutedHeldAndEndedFromTheKeyboardAlone) {
    show();
    auto call = incoming();
    QTest::keySequence(window(), QKeySequence("Ctrl+Shift+A"));
    EXPECT_EQ(call->answers, 1);
    app.phone().callStateChanged("in-1", CallState::connected());
    QTest::keySequence(window(), QKeySequence("Ctrl+Shift+M"));
    EXPECT_TRUE(app.phone().activeCall()->muted);
    QTest::keySequence(window(), QKeySequence("Ctrl+Shift+K"));
    EXPECT_TRUE(shows("inCallKeypad"));
    QTest::keySequence(window(), QKeySequence("Ctrl+Shift+H"));
    EXPECT_EQ(call->holds, std::vector<bool>({true}));
    QTest::keySequence(window(), QKeySequence("Ctrl+Shift+E"));
    EXPECT_EQ(call->hangups, 1);
    EXPECT_EQ(app.callWindow(), nullptr);
}

TEST_F(CallWindowTest, EachButtonsToolTipNamesItsKeys) {
    show();
    incoming();
    EXPECT_EQ(item("answerButton")->property("toolTip").toString(), "Answer (Ctrl+Shift+A)");
    EXPECT_EQ(item("declineButton")->property("toolTip").toString(), "Decline (Ctrl+Shift+E)");
    app.phone().callStateChanged("in-1", CallState::connected());
    EXPECT_EQ(item("muteButton")->property("toolTip").toString(), "Mute (Ctrl+Shift+M)");
    EXPECT_EQ(item("keypadButton")->property("toolTip").toString(), "Keypad (Ctrl+Shift+K)");
    EXPECT_EQ(item("holdButton")->property("toolTip").toString(), "Hold (Ctrl+Shift+H)");
    EXPECT_EQ(item("transferButton")->property("toolTip").toString(), "Transfer (Ctrl+Shift+T)");
    EXPECT_EQ(item("addCallButton")->property("toolTip").toString(), "Add call (Ctrl+Shift+N)");
    EXPECT_EQ(item("endButton")->property("toolTip").toString(), "End (Ctrl+Shift+E)");
}

TEST_F(CallWindowTest, EndHangsUpAndTheWindowGoes) {
    show();
    auto call = connected();
    click("endButtonCircle");
    EXPECT_EQ(call->hangups, 1);
    EXPECT_EQ(app.callWindow(), nullptr);
    EXPECT_FALSE(app.phone().activeCall().has_value());
}

TEST_F(CallWindowTest, TheWindowsSizeFollowsItsContent) {
    show();
    connected();
    const QSize closed = window()->size();
    click("keypadButtonCircle");
    ASSERT_TRUE(QTest::qWaitFor([&] { return window()->height() > closed.height() + 100; }, 2000));
    QQuickItem* content = window()->contentItem()->childItems().value(0);
    ASSERT_NE(content, nullptr);
}

TEST_F(CallWindowTest, TheMiniBarFloatsAboveOtherWindowsAndIsKept) {
    show();
    connected();
    click("miniBarButtonCircle");
    EXPECT_TRUE(app.callWindows().miniBar());
    EXPECT_EQ(settings.boolean("call.miniBar"), true);
    EXPECT_TRUE(app.phone().callMinimized());
    EXPECT_TRUE(window()->flags() & Qt::WindowStaysOnTopHint);
    EXPECT_TRUE(shows("miniEndButton"));
    EXPECT_LE(window()->height(), 64);
    screenshot("call-minibar-light");
    click("fullControlsButtonCircle");
    EXPECT_FALSE(app.callWindows().miniBar());
    EXPECT_FALSE(window()->flags() & Qt::WindowStaysOnTopHint);
    EXPECT_TRUE(shows("endButton"));
}

TEST_F(CallWindowTest, TheMiniBarInTheDarkWhileACallComesIn) {
    settings.setBoolean("call.miniBar", true);
    Application again{settings, secrets};
    ASSERT_TRUE(again.showMainWindow());
    again.palette()->setProperty("dark", true);
    again.phone().setClientFactory(
        [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
            client = std::make_shared<FakeClient>(account, std::move(d));
            return client;
        });
    again.phone().setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
    again.phone().start();
    again.phone().registrationChanged(RegistrationState::registered());
    again.phone().incomingCall(std::make_shared<FakeCoreCall>("in-9", "205", "Ben Ode"));
    QQuickWindow* shown = again.callWindow();
    ASSERT_NE(shown, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(shown, 2000));
    shown->grabWindow();
    auto* answer = shown->findChild<QQuickItem*>("miniAnswerButton");
    ASSERT_NE(answer, nullptr);
    EXPECT_TRUE(answer->isVisible());
    QImage image = shown->grabWindow();
    QDir().mkpath(VELNOR_SCREENSHOTS);
    image.save(QString(VELNOR_SCREENSHOTS) + "/call-minibar-incoming-dark.png");
}

TEST_F(CallWindowTest, EveryButtonOfTheCallWindowHasAnAccessibleName) {
    show();
    connected();
    click("keypadButtonCircle");
    int buttons = 0;
    std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
        if (!node || node->state().invisible) {
            return;
        }
        if (node->role() == QAccessible::Button) {
            ++buttons;
            EXPECT_FALSE(node->text(QAccessible::Name).isEmpty())
                << node->object()->objectName().toStdString();
        }
        for (int i = 0; i < node->childCount(); ++i) {
            walk(node->child(i));
        }
    };
    walk(QAccessible::queryAccessibleInterface(window()));
    // Mute, keypad, end, mini bar and the twelve keys.
    EXPECT_GE(buttons, 16);
}

TEST_F(CallWindowTest, TheNextCallOpensTheSameWindowWithAFreshScreen) {
    show();
    connected();
    QQuickWindow* first = window();
    click("keypadButtonCircle");
    click("inCallKey1");
    click("endButtonCircle");
    EXPECT_EQ(app.callWindow(), nullptr);
    app.phone().dial("205");
    ASSERT_NE(window(), nullptr);
    EXPECT_EQ(window(), first);
    EXPECT_EQ(text("callName"), "205");
    EXPECT_FALSE(shows("inCallKeypad"));
    EXPECT_EQ(text("dialedDigits"), "");
}

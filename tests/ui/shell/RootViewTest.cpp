#include "ScreenHost.h"

#include <QQmlContext>
#include <QQmlProperty>

#include "EventLoopWait.h"
#include "core/Core.h"

// The signed-in main window: the sidebar and its sections, the chosen
// section kept for the next start, the badges, the registration badge.
namespace {

const QByteArray rootView = "RootView { objectName: \"root\"; anchors.fill: parent; focus: true;"
                            " session: w.session; phone: w.phone; shell: w.shell }";

class Root : public ScreenHost {
protected:
    QStringList sidebarRows() const {
        QStringList rows;
        QList<QQuickItem*> found;
        for (QQuickItem* candidate : allItems()) {
            if (candidate->objectName().startsWith("section_") && candidate->isVisible()) {
                found.append(candidate);
            }
        }
        std::sort(found.begin(), found.end(), [](QQuickItem* a, QQuickItem* b) {
            return a->mapToScene(QPointF()).y() < b->mapToScene(QPointF()).y();
        });
        for (QQuickItem* row : found) {
            rows.append(row->objectName().mid(8));
        }
        return rows;
    }

    QStringList highlightedRows() const {
        QStringList rows;
        for (QQuickItem* candidate : allItems()) {
            if (candidate->objectName().startsWith("section_") &&
                candidate->property("highlighted").toBool()) {
                rows.append(candidate->objectName().mid(8));
            }
        }
        return rows;
    }
};

} // namespace

TEST_F(Root, TheSidebarListsTheSectionsInOrderAndQueuesOnlyForAnAgent) {
    host(rootView);
    EXPECT_EQ(sidebarRows(), QStringList({"recents", "directory", "keypad", "voicemail"}));
    for (const char* label : {"Recents", "Directory", "Keypad", "Voicemail", "Settings"}) {
        EXPECT_NE(itemWithText(label), nullptr) << label;
    }
}

TEST_F(Root, RecentsIsChosenAtFirstAndShowsTheRecentsScreen) {
    host(rootView);
    EXPECT_EQ(highlightedRows(), QStringList({"recents"}));
    // Nobody is signed in here, so the call log cannot load and says so.
    ASSERT_NE(item("recentsView"), nullptr);
    EXPECT_TRUE(item("recentsView")->isVisible());
    EXPECT_TRUE(spinUntil([&] { return itemWithText("Could not load") != nullptr; }));
    EXPECT_EQ(QColor(screenshot("main-recents-light").pixel(600, 20)), QColor("#FFFFFF"));
}

TEST_F(Root, FollowsTheDarkAppearance) {
    host(rootView, true);
    const QImage image = screenshot("main-recents-dark");
    EXPECT_EQ(QColor(image.pixel(600, 20)), QColor("#151619"));
    EXPECT_EQ(QColor(image.pixel(4, 300)), QColor("#2A2B30"));
}

TEST_F(Root, ChoosingARowShowsItsSectionAndKeepsItForTheNextStart) {
    host(rootView);
    click(item("section_voicemail"));
    EXPECT_EQ(app().shellState().section(), "voicemail");
    EXPECT_EQ(highlightedRows(), QStringList({"voicemail"}));
    // The voicemail screen, waiting for a mailbox that no sign-in has brought.
    EXPECT_NE(item("voicemailView"), nullptr);
    EXPECT_TRUE(item("voicemailSkeleton")->isVisible());
    EXPECT_EQ(settings.text("section"), "voicemail");
    restart();
    host(rootView);
    EXPECT_EQ(highlightedRows(), QStringList({"voicemail"}));
    EXPECT_NE(item("voicemailView"), nullptr);
}

TEST_F(Root, CtrlAndANumberChoosesTheSectionInTheSidebarsOrderAndTheToolTipSaysSo) {
    host(rootView);
    QTest::keySequence(window.get(), QKeySequence("Ctrl+2"));
    EXPECT_EQ(app().shellState().section(), "directory");
    QTest::keySequence(window.get(), QKeySequence("Ctrl+4"));
    EXPECT_EQ(app().shellState().section(), "voicemail");
    QTest::keySequence(window.get(), QKeySequence("Ctrl+1"));
    EXPECT_EQ(app().shellState().section(), "recents");
    QQuickItem* keypad = item("section_keypad");
    ASSERT_NE(keypad, nullptr);
    EXPECT_EQ(QQmlProperty(keypad, "ToolTip.text", qmlContext(keypad)).read().toString(),
              "Keypad (Ctrl+3)");
}

TEST_F(Root, EachSectionIsDrawnInLightAndDark) {
    for (bool dark : {false, true}) {
        for (const char* section : {"directory", "keypad", "voicemail"}) {
            settings.setText("section", section);
            restart();
            host(rootView, dark);
            EXPECT_EQ(highlightedRows(), QStringList({section}));
            screenshot(QString("main-%1-%2").arg(section, dark ? "dark" : "light"));
        }
    }
}

TEST_F(Root, AStoredQueuesSectionForAUserWithoutQueuesShowsItsContentWithNoRowSelected) {
    settings.setText("section", "queues");
    restart();
    host(rootView);
    EXPECT_FALSE(sidebarRows().contains("queues"));
    EXPECT_TRUE(highlightedRows().isEmpty());
    // The screen asks for the queues as it appears; nobody signed in has any.
    EXPECT_TRUE(spinUntil([&] { return itemWithText("No queues") != nullptr; }));
    screenshot("main-queues-stored-light");
}

TEST_F(Root, AStoredSectionThatIsNoSectionOpensRecents) {
    settings.setText("section", "contacts");
    restart();
    host(rootView);
    EXPECT_EQ(app().shellState().section(), "recents");
    EXPECT_EQ(highlightedRows(), QStringList({"recents"}));
}

TEST_F(Root, AVoicemailCountOfZeroShowsNoBadge) {
    host(rootView);
    ASSERT_EQ(app().shellState().voicemailBadge(), 0);
    QQuickItem* badge = item("badge_voicemail");
    ASSERT_NE(badge, nullptr);
    EXPECT_FALSE(badge->isVisible());
}

TEST_F(Root, TheRegistrationBadgeSaysTheStateInWordsAndNeverTheFailure) {
    host(rootView);
    QQuickItem* word = item("registrationWord");
    ASSERT_NE(word, nullptr);
    EXPECT_EQ(word->property("text").toString(), "Not set up");
    app().phone().registrationChanged(core::RegistrationState::registering());
    EXPECT_EQ(word->property("text").toString(), "Connecting…");
    app().phone().registrationChanged(core::RegistrationState::registered());
    EXPECT_EQ(word->property("text").toString(), "Online");
    EXPECT_EQ(item("registrationDot")->property("color").value<QColor>(), QColor("#16A34A"));
    screenshot("registration-online");
    app().phone().registrationChanged(core::RegistrationState::failed("403 Forbidden"));
    EXPECT_EQ(word->property("text").toString(), "Offline");
    EXPECT_EQ(item("registrationDot")->property("color").value<QColor>(), QColor("#E7000B"));
    EXPECT_EQ(itemWithText("403 Forbidden"), nullptr);
    EXPECT_EQ(accessibleName(item("registrationBadge")), "Offline");
}

TEST_F(Root, SettingsInTheSidebarOpensOneSettingsWindow) {
    host(rootView);
    click(item("settingsButton"));
    QQuickWindow* settingsWindow = app().settingsWindow();
    ASSERT_NE(settingsWindow, nullptr);
    EXPECT_TRUE(settingsWindow->isVisible());
    EXPECT_EQ(settingsWindow->title(), "Settings");
    EXPECT_GE(settingsWindow->minimumWidth(), 460);
    EXPECT_GE(settingsWindow->minimumHeight(), 480);
    app().openSettings();
    EXPECT_EQ(app().settingsWindow(), settingsWindow);
}

TEST_F(Root, EveryFocusableControlHasAnAccessibleName) {
    host(rootView);
    int focusable = 0;
    for (QQuickItem* candidate : allItems()) {
        if (!candidate->isVisible() || !candidate->activeFocusOnTab()) {
            continue;
        }
        ++focusable;
        EXPECT_FALSE(accessibleName(candidate).isEmpty())
            << candidate->metaObject()->className() << " " << candidate->objectName().toStdString();
    }
    EXPECT_GE(focusable, 5);
}

TEST_F(Root, TheKeypadSectionTakesTheKeyboardAtOnce) {
    settings.setText("section", "keypad");
    restart();
    host(rootView);
    typeText("204");
    QQuickItem* keypad = item("keypadView");
    ASSERT_NE(keypad, nullptr);
    EXPECT_EQ(keypad->property("number").toString(), "204")
        << window->activeFocusItem()->metaObject()->className();
}

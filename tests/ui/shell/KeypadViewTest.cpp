#include "ScreenHost.h"

#include "core/Core.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMimeData>

// The keypad section: keys clicked and typed, paste, delete, and dialling.
namespace {

const QByteArray keypadView = "KeypadView { objectName: \"keypad\"; anchors.fill: parent;"
                              " focus: true; phone: w.phone; shell: w.shell }";

class Keypad : public ScreenHost {
protected:
    void SetUp() override {
        ScreenHost::SetUp();
        host(keypadView);
        view = item("keypad");
        ASSERT_NE(view, nullptr);
        ASSERT_TRUE(view->hasActiveFocus());
    }

    QString number() const { return view->property("number").toString(); }
    void setNumber(const QString& text) { view->setProperty("number", text); }
    void registered() { app().phone().registrationChanged(core::RegistrationState::registered()); }
    // The numbers the phone was asked to dial: each leaves a line in the
    // recents, here failed since no phone system is behind this phone.
    QStringList dialled() const {
        QStringList numbers;
        for (const auto& entry : application->phone().recents().entries()) {
            numbers.prepend(entry.remote);
        }
        return numbers;
    }

    QQuickItem* view = nullptr;
};

} // namespace

TEST_F(Keypad, ClickedKeysAppendTheirDigits) {
    for (const char* key : {"key2", "key0", "key4", "key*", "key#"}) {
        click(item(key));
    }
    EXPECT_EQ(number(), "204*#");
    EXPECT_EQ(item("keypadNumber")->property("text").toString(), "204*#");
    screenshot("keypad-number-light");
}

TEST_F(Keypad, TypedKeysAppendAndOtherCharactersAreIgnored) {
    typeText("+41 (44) 12a#*");
    EXPECT_EQ(number(), "+414412#*");
}

TEST_F(Keypad, KeyRepeatOfAHeldOneAppendsRepeatedly) {
    QKeyEvent first(QEvent::KeyPress, Qt::Key_1, Qt::NoModifier, "1", false);
    QGuiApplication::sendEvent(window.get(), &first);
    for (int i = 0; i < 3; ++i) {
        QKeyEvent repeat(QEvent::KeyPress, Qt::Key_1, Qt::NoModifier, "1", true);
        QGuiApplication::sendEvent(window.get(), &repeat);
    }
    EXPECT_EQ(number(), "1111");
}

TEST_F(Keypad, DeleteOnAnEmptyNumberDoesNothing) {
    QTest::keyClick(window.get(), Qt::Key_Backspace);
    EXPECT_EQ(number(), "");
    EXPECT_FALSE(item("keypadDelete")->isEnabled());
    EXPECT_EQ(item("keypadDelete")->opacity(), 0.0);
}

TEST_F(Keypad, BackspaceAndTheDeleteButtonRemoveTheLastCharacter) {
    setNumber("2045");
    QTest::keyClick(window.get(), Qt::Key_Backspace);
    EXPECT_EQ(number(), "204");
    QTest::keyClick(window.get(), Qt::Key_Delete);
    EXPECT_EQ(number(), "20");
    click(item("keypadDelete"));
    EXPECT_EQ(number(), "2");
}

TEST_F(Keypad, HoldingDeleteForHalfASecondClearsTheNumber) {
    setNumber("2045");
    QQuickItem* remove = item("keypadDelete");
    QTest::mousePress(window.get(), Qt::LeftButton, {}, centreOf(remove));
    ASSERT_TRUE(QTest::qWaitFor([&] { return number() == QString(); }, 2000)) << number().toStdString();
    QTest::mouseRelease(window.get(), Qt::LeftButton, {}, centreOf(remove));
    EXPECT_EQ(number(), "");
}

TEST_F(Keypad, HoldingZeroTypesAPlusAndNotAZero) {
    QQuickItem* zero = item("key0");
    QTest::mousePress(window.get(), Qt::LeftButton, {}, centreOf(zero));
    ASSERT_TRUE(QTest::qWaitFor([&] { return number() == QString("+"); }, 3000)) << number().toStdString();
    QTest::mouseRelease(window.get(), Qt::LeftButton, {}, centreOf(zero));
    EXPECT_EQ(number(), "+");
}

TEST_F(Keypad, PastingAFormattedNumberAppendsItsDigits) {
    QGuiApplication::clipboard()->setText("+41 (44) 123-45-67");
    setNumber("00");
    QTest::keySequence(window.get(), QKeySequence::Paste);
    EXPECT_EQ(number(), "00+41441234567");
}

TEST_F(Keypad, PastingWithNoTextOnTheClipboardAddsNothing) {
    auto* data = new QMimeData;
    data->setData("image/png", QByteArray("\x89PNG", 4));
    QGuiApplication::clipboard()->setMimeData(data);
    setNumber("20");
    QTest::keySequence(window.get(), QKeySequence::Paste);
    EXPECT_EQ(number(), "20");
}

TEST_F(Keypad, ReturnWhileNotRegisteredDoesNothingAndTheNumberStays) {
    setNumber("204");
    QTest::keyClick(window.get(), Qt::Key_Return);
    EXPECT_EQ(number(), "204");
    EXPECT_TRUE(dialled().isEmpty());
    EXPECT_FALSE(item("keypadCall")->isEnabled());
}

TEST_F(Keypad, ReturnWhileRegisteredDialsTheNumberAndKeepsIt) {
    registered();
    typeText("204");
    QTest::keyClick(window.get(), Qt::Key_Return);
    EXPECT_EQ(dialled(), QStringList({"204"}));
    EXPECT_EQ(number(), "204");
}

TEST_F(Keypad, TheCallButtonIsEnabledOnlyWithANumberWhileRegisteredAndDials) {
    registered();
    EXPECT_FALSE(item("keypadCall")->isEnabled());
    setNumber("999");
    EXPECT_TRUE(item("keypadCall")->isEnabled());
    screenshot("keypad-ready-light");
    click(item("keypadCall"));
    EXPECT_EQ(dialled(), QStringList({"999"}));
    EXPECT_EQ(number(), "999");
}

TEST_F(Keypad, TheNumberIsNamedForScreenReaders) {
    EXPECT_EQ(accessibleName(item("keypadNumber")), "No number entered");
    setNumber("204");
    EXPECT_EQ(accessibleName(item("keypadNumber")), "204");
    EXPECT_EQ(accessibleName(item("key2")), "2 ABC");
    EXPECT_EQ(accessibleName(item("key*")), "Star");
    EXPECT_EQ(accessibleName(item("keypadCall")), "Call");
    EXPECT_EQ(accessibleName(item("keypadDelete")), "Delete");
}

TEST_F(Keypad, TabWalksTheKeysInReadingOrderAndSpacePressesOne) {
    QStringList order;
    for (int i = 0; i < 13; ++i) {
        QTest::keyClick(window.get(), Qt::Key_Tab);
        QQuickItem* focused = window->activeFocusItem();
        ASSERT_NE(focused, nullptr);
        order.append(focused->objectName());
    }
    EXPECT_EQ(order.mid(0, 12), QStringList({"key1", "key2", "key3", "key4", "key5", "key6", "key7",
                                             "key8", "key9", "key*", "key0", "key#"}));
    // The call button waits for a number; Tab goes round to the first key.
    EXPECT_EQ(order.at(12), "key1");
    QTest::keyClick(window.get(), Qt::Key_Space);
    EXPECT_EQ(number(), "1");
    // Digits typed while a key has the focus still reach the number.
    typeText("23");
    EXPECT_EQ(number(), "123");
}

TEST_F(Keypad, IsDrawnInTheDarkAppearance) {
    window->property("theme").value<QObject*>()->setProperty("dark", true);
    setNumber("+4930");
    const QImage image = screenshot("keypad-number-dark");
    EXPECT_EQ(QColor(image.pixel(4, 4)), QColor("#151619"));
}

#include "DirectoryScreen.h"

#include "../../integration/contacts/EdsLab.h"
#include "RunTask.h"
#include "Services.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>

// The Contacts section of the directory screen over Evolution Data Server on
// a private bus: the people of the address book beneath the company, called
// from their rows, found by name or number, and the prompt while the book
// does not run.
namespace {

// A real JPEG, as a contacts app keeps a face.
QByteArray face() {
    QImage image(96, 96, QImage::Format_RGB32);
    image.fill(QColor("#2E7D6B"));
    QPainter painter(&image);
    painter.setBrush(QColor("#F4C95D"));
    painter.drawEllipse(QRect(24, 16, 48, 48));
    painter.end();
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG", 90);
    return bytes;
}

class DirectoryContacts : public DirectoryScreen {
protected:
    void SetUp() override {
        // GIO's dconf backend would hold a bus connection of its own.
        qputenv("GSETTINGS_BACKEND", "memory");
        DirectoryScreen::SetUp();
    }

    // The book, as the app reads it when it starts.
    void readBook() { runTask(app().contacts().refresh(), std::chrono::seconds(20)); }

    void startBook() {
        eds = std::make_unique<EdsLab>(bus);
        const auto ids = eds->add(
            {{"Paula Steiner", "Paula", {"+49 170 555 0123"}},
             {"Jonas Weber", "Jonas", {"+49 30 1234567", "+49 171 2223334", "089 765432"}}});
        eds->setPhoto(ids.at(0), face());
    }

    // The directory shown and scrolled to its end, where the contacts are.
    void showContacts(bool dark = false) {
        host(directoryView, dark, QSize(920, 760));
        ASSERT_TRUE(
            spinUntil([&] { return shows("directoryList"); }, std::chrono::milliseconds(10000)));
        QMetaObject::invokeMethod(item("directoryList"), "positionViewAtEnd");
    }

    QQuickItem* contactRow(const QString& name) {
        for (QQuickItem* candidate : allItems()) {
            if (candidate->objectName() == QLatin1String("contactRow") &&
                candidate->property("name").toString() == name && candidate->isVisible()) {
                return candidate;
            }
        }
        return nullptr;
    }

    QObject* chooser() { return window->findChild<QObject*>("contactNumbers"); }

    // The chooser's number buttons as they stand now, in order.
    QList<QQuickItem*> numberButtons() {
        QList<QQuickItem*> buttons;
        for (QQuickItem* candidate : allItems()) {
            if (candidate->objectName() == QLatin1String("contactNumber") &&
                candidate->isVisible()) {
                buttons.append(candidate);
            }
        }
        return buttons;
    }

    // Whether an image under the item has finished loading its picture.
    static bool showsPicture(QQuickItem* under) {
        QList<QQuickItem*> pending{under};
        while (!pending.isEmpty()) {
            QQuickItem* next = pending.takeFirst();
            if (QByteArray(next->metaObject()->className()).startsWith("QQuickImage") &&
                next->property("status").toInt() == 1 && next->isVisible()) {
                return true;
            }
            pending += next->childItems();
        }
        return false;
    }

    TempHome home;
    PrivateBus bus;
    std::unique_ptr<EdsLab> eds;
};

} // namespace

TEST_F(DirectoryContacts, ThePeopleOfTheAddressBookShowBeneathTheCompanyWithNumberAndPicture) {
    startBook();
    readBook();
    signIn();
    for (const bool dark : {false, true}) {
        showContacts(dark);
        ASSERT_TRUE(spinUntil([&] { return contactRow("Paula Steiner") != nullptr; },
                              std::chrono::milliseconds(10000)));
        EXPECT_TRUE(shows("contactsSection"));
        EXPECT_NE(itemWithText("Contacts"), nullptr);
        EXPECT_FALSE(shows("contactsPrompt"));
        EXPECT_EQ(contactRow("Paula Steiner")->property("subtitle").toString(), "+49 170 555 0123");
        EXPECT_EQ(contactRow("Jonas Weber")->property("subtitle").toString(), "+49 30 1234567 +2");
        // Below the company's last section, the call flows.
        EXPECT_GT(contactRow("Paula Steiner")->mapToScene({0, 0}).y(),
                  itemWithText("After hours")->mapToScene({0, 0}).y());
        ASSERT_TRUE(spinUntil([&] { return showsPicture(contactRow("Paula Steiner")); },
                              std::chrono::milliseconds(5000)));
        EXPECT_FALSE(showsPicture(contactRow("Jonas Weber")));
        screenshot(dark ? "directory-contacts-dark" : "directory-contacts-light");
    }
}

TEST_F(DirectoryContacts, AContactWithOneNumberIsDialledFromItsRow) {
    startBook();
    readBook();
    signIn();
    showContacts();
    ASSERT_TRUE(spinUntil([&] { return contactRow("Paula Steiner") != nullptr; },
                          std::chrono::milliseconds(10000)));
    click(itemsNamed(contactRow("Paula Steiner"), "rowCallButton").value(0));
    EXPECT_EQ(app().phone().pendingDial(), QString("+49 170 555 0123"));
    EXPECT_FALSE(chooser()->property("opened").toBool());
}

TEST_F(DirectoryContacts, SeveralNumbersRaiseAChooserTitledWithTheNameThatCancelsOrDials) {
    startBook();
    readBook();
    signIn();
    for (const bool dark : {false, true}) {
        showContacts(dark);
        ASSERT_TRUE(spinUntil([&] { return contactRow("Jonas Weber") != nullptr; },
                              std::chrono::milliseconds(10000)));
        click(itemsNamed(contactRow("Jonas Weber"), "rowCallButton").value(0));
        ASSERT_TRUE(spinUntil([&] { return chooser()->property("opened").toBool(); },
                              std::chrono::milliseconds(5000)));
        EXPECT_EQ(chooser()->property("title").toString(), "Jonas Weber");
        ASSERT_TRUE(spinUntil([&] { return numberButtons().size() == 3; },
                              std::chrono::milliseconds(5000)));
        QStringList offered;
        for (QQuickItem* button : numberButtons()) {
            offered.append(button->property("text").toString());
        }
        EXPECT_EQ(offered, QStringList({"+49 30 1234567", "+49 171 2223334", "089 765432"}));
        screenshot(dark ? "directory-contact-numbers-dark" : "directory-contact-numbers-light");
        click(itemWithText("Cancel"));
        ASSERT_TRUE(spinUntil([&] { return !chooser()->property("visible").toBool(); },
                              std::chrono::milliseconds(5000)));
        EXPECT_FALSE(app().phone().pendingDial().has_value());
    }
    click(itemsNamed(contactRow("Jonas Weber"), "rowCallButton").value(0));
    ASSERT_TRUE(spinUntil([&] { return chooser()->property("opened").toBool(); },
                          std::chrono::milliseconds(5000)));
    // The buttons of the cancelled chooser go, those of this one stay.
    ASSERT_TRUE(
        spinUntil([&] { return numberButtons().size() == 3; }, std::chrono::milliseconds(5000)));
    ASSERT_EQ(numberButtons().at(1)->property("text").toString(), "+49 171 2223334");
    // Pressed as a screen reader presses it.
    QAccessibleInterface* pressed = QAccessible::queryAccessibleInterface(numberButtons().at(1));
    ASSERT_TRUE(pressed && pressed->actionInterface());
    pressed->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(app().phone().pendingDial(), QString("+49 171 2223334"));
    ASSERT_TRUE(spinUntil([&] { return !chooser()->property("visible").toBool(); },
                          std::chrono::milliseconds(5000)));
}

TEST_F(DirectoryContacts, DigitsOfANumberFindAContactWhileTheCompanySaysItHasNoResults) {
    startBook();
    readBook();
    signIn();
    showContacts();
    search("555 01");
    ASSERT_TRUE(spinUntil([&] { return contactRow("Paula Steiner") != nullptr; },
                          std::chrono::milliseconds(5000)));
    EXPECT_EQ(contactRow("Jonas Weber"), nullptr);
    EXPECT_TRUE(shows("directoryNoResults"));
    EXPECT_NE(itemWithText("No results for “555 01”"), nullptr);
    screenshot("directory-contacts-search-light");
    // Two digits are too few to search the numbers.
    search("12");
    ASSERT_TRUE(
        spinUntil([&] { return !shows("contactsSection"); }, std::chrono::milliseconds(5000)));
    EXPECT_EQ(contactRow("Jonas Weber"), nullptr);
    EXPECT_TRUE(shows("directoryNoResults"));
}

TEST_F(DirectoryContacts, WithoutTheAddressBookThePromptAsksItToStartAndItsPeopleThenShow) {
    readBook();
    ASSERT_FALSE(app().contacts().authorized());
    signIn();
    for (const bool dark : {false, true}) {
        showContacts(dark);
        ASSERT_TRUE(
            spinUntil([&] { return shows("contactsPrompt"); }, std::chrono::milliseconds(5000)));
        EXPECT_NE(itemWithText("Show contacts"), nullptr);
        EXPECT_NE(itemWithText("Names and photos stay on this computer."), nullptr);
        screenshot(dark ? "directory-contacts-prompt-dark" : "directory-contacts-prompt-light");
    }
    // A query takes the section away, prompt and all.
    search("ben");
    ASSERT_TRUE(
        spinUntil([&] { return !shows("contactsSection"); }, std::chrono::milliseconds(5000)));
    EXPECT_FALSE(shows("contactsPrompt"));
    search("");
    QMetaObject::invokeMethod(item("directoryList"), "positionViewAtEnd");
    ASSERT_TRUE(
        spinUntil([&] { return shows("contactsPrompt"); }, std::chrono::milliseconds(5000)));
    startBook();
    click(item("contactsPrompt"));
    ASSERT_TRUE(spinUntil([&] { return contactRow("Paula Steiner") != nullptr; },
                          std::chrono::milliseconds(20000)));
    EXPECT_TRUE(app().contacts().authorized());
    EXPECT_FALSE(shows("contactsPrompt"));
}

#include "ScreenHost.h"

#include "../../integration/contacts/EdsLab.h"
#include "RunTask.h"
#include "Services.h"

#include <QSignalSpy>

#include <QCoro/QCoroSignal>

// The settings row that copies colleagues into the address book, over the
// app's own ColleagueContacts and Evolution Data Server on a private bus:
// off, updating, the count, and the sentence when the book cannot be opened,
// in light and dark.
namespace {

const QString footer = "Adds colleagues with a direct number to your contacts (group \"velnor "
                       "RZ\"). Turning it off removes them again.";

Directory::Entry colleague(const QString& id, const QString& name, const QString& number,
                           bool picture) {
    Directory::Entry entry;
    entry.id = id;
    entry.name = name;
    entry.numbers = QStringList{number};
    if (picture) {
        entry.avatar = AvatarRef{"/media/" + id + ".jpg", "1"};
    }
    return entry;
}

// Opened by the test when it has seen what it wanted to see.
class Gate : public QObject {
    Q_OBJECT
signals:
    void opened();
};

// A picture that arrives only when the gate opens, so that the export can be
// seen while it runs.
QCoro::Task<std::optional<QByteArray>> pictureAfter(Gate* gate) {
    co_await qCoro(gate, &Gate::opened);
    co_return QByteArray("\xff\xd8\xff\xe0 a picture", 14);
}

class ColleaguesRow : public ScreenHost {
protected:
    // The row alone, in a window as wide as the settings window.
    void showRow(bool dark) {
        host("property QtObject colleagues: null\n"
             "Loader { x: 24; y: 24; width: 472; active: w.colleagues !== null\n"
             "  sourceComponent: ColleaguesToggle { colleagues: w.colleagues } }",
             dark, QSize(520, 200));
        window->setProperty("colleagues", QVariant::fromValue<QObject*>(&app().colleagues()));
        ASSERT_TRUE(QTest::qWaitFor([&] { return item("colleaguesSwitch") != nullptr; }, 5000));
    }
    void setDark(bool dark) {
        window->property("theme").value<QObject*>()->setProperty("dark", dark);
    }
    bool switchOn() { return item("colleaguesSwitch")->property("checked").toBool(); }
    QQuickItem* status() { return item("colleaguesStatus"); }
    QQuickItem* error() { return item("colleaguesError"); }

    TempHome home;
    PrivateBus bus;
};

class ColleaguesRowWithBook : public ColleaguesRow {
protected:
    EdsLab eds{bus};
};

} // namespace

TEST_F(ColleaguesRowWithBook, OffItShowsTheSwitchAndTheFooterOnly) {
    for (const bool dark : {false, true}) {
        showRow(dark);
        EXPECT_FALSE(switchOn());
        EXPECT_FALSE(status()->isVisible());
        EXPECT_FALSE(error()->isVisible());
        EXPECT_EQ(item("colleaguesFooter")->property("text").toString(), footer);
        EXPECT_NE(itemWithText("Colleagues in Contacts"), nullptr);
        EXPECT_EQ(accessibleName(item("colleaguesSwitch")), "Colleagues in Contacts");
        screenshot(dark ? "colleagues-off-dark" : "colleagues-off-light");
    }
}

TEST_F(ColleaguesRowWithBook, WhileExportingItSaysUpdatingAndThenCountsTheColleagues) {
    showRow(false);
    Gate gate;
    const QList<Directory::Entry> users{colleague("u-1", "Own Self", "+49 30 1000", false),
                                        colleague("u-2", "Anna Berg", "+49 30 2000", true),
                                        colleague("u-3", "Dana Roth", "+49 30 3000", false)};
    auto switching = app().colleagues().setEnabled(
        true, users, QString("u-1"), [&gate](AvatarRef) { return pictureAfter(&gate); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return app().colleagues().syncing(); }, 20000));
    EXPECT_TRUE(switchOn());
    EXPECT_TRUE(status()->isVisible());
    EXPECT_EQ(status()->property("text").toString(), "Updating…");
    screenshot("colleagues-updating-light");
    setDark(true);
    screenshot("colleagues-updating-dark");
    QMetaObject::invokeMethod(&gate, &Gate::opened, Qt::QueuedConnection);
    runTask(std::move(switching), std::chrono::seconds(30));
    EXPECT_FALSE(app().colleagues().syncing());
    EXPECT_EQ(status()->property("text").toString(), "2 colleagues");
    EXPECT_FALSE(error()->isVisible());
    screenshot("colleagues-count-dark");
    setDark(false);
    screenshot("colleagues-count-light");
    // What the row counts is what the book holds.
    EXPECT_EQ(QString::fromUtf8(eds.readVCards()).count("CATEGORIES:velnor RZ"), 2);
}

TEST_F(ColleaguesRow, SwitchedOnWithoutTheAddressBookTheToggleStaysOffWithTheSentenceBelowIt) {
    // The settings window as the app opens it, on a bus where no address book runs.
    app().openSettings();
    QQuickWindow* settingsWindow = app().settingsWindow();
    ASSERT_NE(settingsWindow, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(settingsWindow));
    auto* toggle = settingsWindow->findChild<QQuickItem*>("colleaguesSwitch");
    ASSERT_NE(toggle, nullptr);
    QSignalSpy errors(&app().colleagues(), &ColleagueContacts::lastErrorChanged);
    QTest::mouseClick(
        settingsWindow, Qt::LeftButton, {},
        toggle->mapToScene(QPointF(toggle->width() / 2, toggle->height() / 2)).toPoint());
    ASSERT_TRUE(errors.wait(30000));
    auto* sentence = settingsWindow->findChild<QQuickItem*>("colleaguesError");
    ASSERT_NE(sentence, nullptr);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !toggle->property("checked").toBool(); }, 5000));
    EXPECT_TRUE(sentence->isVisible());
    EXPECT_EQ(sentence->property("text").toString(), "Allow access to contacts in Settings first.");
    EXPECT_FALSE(app().colleagues().enabled());
    EXPECT_FALSE(settings.boolean("colleagues.export"));
    QDir().mkpath(VELNOR_SCREENSHOTS);
    settingsWindow->grabWindow().save(QString(VELNOR_SCREENSHOTS) +
                                      "/settings-colleagues-error.png");
    for (const bool dark : {false, true}) {
        showRow(dark);
        EXPECT_FALSE(switchOn());
        EXPECT_TRUE(error()->isVisible());
        EXPECT_EQ(error()->property("text").toString(),
                  "Allow access to contacts in Settings first.");
        screenshot(dark ? "colleagues-error-dark" : "colleagues-error-light");
    }
}

#include "ColleaguesToggleTest.moc"

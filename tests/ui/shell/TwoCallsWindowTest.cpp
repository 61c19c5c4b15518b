#include "shell/Application.h"

#include "../../unit/telephony/FakeCore.h"
#include "session/CallStatistics.h"
#include "shell/CallWindows.h"

#include <QDir>
#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

// The call window with two calls and with its statistics, drawn offscreen
// over a fake engine: the held-call strip, Hold and Resume, the transfer
// sheet for both its purposes, the mini bar's swap, and the statistics panel
// in each of its states; light and dark grabbed to build/screenshots.
namespace {

using core::CallState;
using core::RegistrationState;

Directory::Entry person(const char* id, const char* name, const char* extension) {
    Directory::Entry e;
    e.id = id;
    e.name = QString::fromUtf8(name);
    e.extension_ = QString::fromLatin1(extension);
    return e;
}

class TwoCallsWindowTest : public testing::Test {
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
        Directory directory;
        directory.users = {person("u-2", "Zoë Åberg", "202"), person("u-6", "Frank Weber", "206")};
        directory.groups = {person("g-1", "Sales", "600")};
        app.session().setDirectory(directory);
    }

    void show(bool dark = false) {
        ASSERT_TRUE(app.showMainWindow());
        app.palette()->setProperty("dark", dark);
    }

    std::shared_ptr<FakeCoreCall> connected(const QString& number = "204") {
        app.phone().dial(number);
        auto call = client->placed.back();
        app.phone().callStateChanged(call->sipCallId(), CallState::connected());
        return call;
    }

    // Frank on hold behind a connected call to 204.
    std::pair<std::shared_ptr<FakeCoreCall>, std::shared_ptr<FakeCoreCall>> twoCalls() {
        auto first = connected("206");
        app.phone().dial("204");
        app.phone().callStateChanged(first->sipCallId(), CallState::held());
        auto second = client->placed.back();
        app.phone().callStateChanged(second->sipCallId(), CallState::connected());
        return {first, second};
    }

    QQuickWindow* window() {
        QQuickWindow* shown = app.callWindow();
        if (shown) {
            if (!QTest::qWaitForWindowExposed(shown, 2000)) {
                ADD_FAILURE() << "The call window was not shown";
            }
            shown->grabWindow();
        }
        return shown;
    }

    QQuickItem* item(const char* name, QQuickItem* within = nullptr) {
        if (!window()) {
            return nullptr;
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
        return search(within ? within : window()->contentItem());
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    bool enabled(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isEnabled();
    }

    void click(const char* name, QQuickItem* within = nullptr) {
        QQuickItem* target = item(name, within);
        ASSERT_NE(target, nullptr) << name;
        ASSERT_TRUE(target->isVisible()) << name;
        const QPointF centre =
            target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(window(), Qt::LeftButton, {}, centre.toPoint());
    }

    QImage screenshot(const QString& name) {
        QImage image = window()->grabWindow();
        QDir().mkpath(VELNOR_SCREENSHOTS);
        image.save(QString(VELNOR_SCREENSHOTS) + "/" + name + ".png");
        return image;
    }

    QString text(const char* name) {
        QQuickItem* found = item(name);
        return found ? found->property("text").toString() : QString();
    }

    // The rows the sheet lists now: {name, number, typed}.
    QVariantList sheetRows() {
        QQuickItem* sheet = item("transferSheet");
        return sheet ? sheet->property("rows").toList() : QVariantList();
    }

    void typeIntoSearch(const QString& typed) {
        click("sheetSearch");
        for (const QChar c : typed) {
            QTest::keyClick(window(), c.toLatin1());
        }
    }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app{settings, secrets};
    std::shared_ptr<FakeClient> client;
};

} // namespace

// Hold.

TEST_F(TwoCallsWindowTest, HoldIsOfferedOnlyOnceTheCallIsConnected) {
    show();
    app.phone().dial("204");
    EXPECT_TRUE(shows("holdButton"));
    EXPECT_FALSE(enabled("holdButton"));
    EXPECT_FALSE(enabled("transferButton"));
    EXPECT_FALSE(enabled("addCallButton"));
    app.phone().callStateChanged("out-1", CallState::connected());
    EXPECT_TRUE(enabled("holdButton"));
    EXPECT_TRUE(enabled("transferButton"));
    EXPECT_TRUE(enabled("addCallButton"));
}

TEST_F(TwoCallsWindowTest, HoldAsksTheEngineAndTheHeldCallReadsOnHoldWithResume) {
    show();
    auto call = connected();
    click("holdButtonCircle");
    EXPECT_EQ(call->holds, std::vector<bool>{true});
    app.phone().callStateChanged(call->sipCallId(), CallState::held());
    EXPECT_EQ(text("callStatus"), "On hold");
    EXPECT_EQ(item("holdButton")->property("title").toString(), "Resume");
    EXPECT_TRUE(item("holdButton")->property("active").toBool());
    screenshot("call-held-light");
    click("holdButtonCircle");
    EXPECT_EQ(call->holds, (std::vector<bool>{true, false}));
}

TEST_F(TwoCallsWindowTest, ATransferUnderWayReadsTransferring) {
    show();
    auto call = connected();
    app.phone().callStateChanged(call->sipCallId(), CallState::transferring());
    EXPECT_EQ(text("callStatus"), "Transferring…");
}

// The held-call strip.

TEST_F(TwoCallsWindowTest, TheHeldCallStandsInAStripAboveAndSwapBringsItForward) {
    show();
    auto [first, second] = twoCalls();
    EXPECT_TRUE(shows("heldCallStrip"));
    // 206 is Frank in the directory.
    EXPECT_EQ(text("heldName"), "Frank Weber");
    EXPECT_EQ(text("callName"), "204");
    // The server knows neither call here: nothing to merge.
    EXPECT_FALSE(shows("mergeButton"));
    EXPECT_FALSE(enabled("addCallButton"));
    screenshot("call-two-light");
    click("swapButtonCircle");
    EXPECT_EQ(text("callName"), "Frank Weber");
    EXPECT_EQ(text("heldName"), "204");
    EXPECT_EQ(second->holds, std::vector<bool>{true});
    EXPECT_EQ(first->holds, (std::vector<bool>{true, false}));
}

TEST_F(TwoCallsWindowTest, TwoCallsInTheDark) {
    show(true);
    twoCalls();
    ASSERT_NE(window(), nullptr);
    EXPECT_TRUE(shows("heldCallStrip"));
    const QImage image = screenshot("call-two-dark");
    EXPECT_EQ(QColor(image.pixel(image.width() / 2, 2)), QColor("#151619"));
}

TEST_F(TwoCallsWindowTest, AHeldCallWithNoNameShowsItsNumber) {
    show();
    twoCalls();
    app.phone().swap();
    EXPECT_EQ(text("heldName"), "204");
}

TEST_F(TwoCallsWindowTest, WhenTheHeldCallEndsTheStripGoes) {
    show();
    auto [first, second] = twoCalls();
    app.phone().callStateChanged(first->sipCallId(), CallState::ended("remote"));
    EXPECT_FALSE(shows("heldCallStrip"));
    EXPECT_TRUE(enabled("addCallButton"));
}

TEST_F(TwoCallsWindowTest, TheMiniBarSwapsTwoCalls) {
    show();
    app.callWindows().setMiniBar(true);
    connected("206");
    EXPECT_FALSE(shows("miniSwapButton"));
    app.phone().dial("204");
    app.phone().callStateChanged("out-2", CallState::connected());
    ASSERT_TRUE(shows("miniSwapButton"));
    screenshot("call-two-minibar-light");
    click("miniSwapButtonCircle");
    EXPECT_EQ(app.phone().activeCall()->remote, "206");
    app.callWindows().setMiniBar(false);
}

// The transfer sheet.

TEST_F(TwoCallsWindowTest, TransferOpensTheSheetInPlaceOfTheControls) {
    show();
    connected();
    click("transferButtonCircle");
    EXPECT_TRUE(shows("transferSheet"));
    EXPECT_FALSE(shows("callControls"));
    EXPECT_FALSE(shows("endButton"));
    EXPECT_EQ(text("sheetTitle"), "Transfer to");
    EXPECT_EQ(item("sheetSearch")->property("placeholderText").toString(), "Name or number");
    // Everyone with an extension, the user's own entry aside.
    EXPECT_EQ(sheetRows().size(), 3);
    screenshot("transfer-sheet-light");
    click("sheetCancel");
    EXPECT_FALSE(shows("transferSheet"));
    EXPECT_TRUE(shows("callControls"));
}

TEST_F(TwoCallsWindowTest, ANameTypedNarrowsTheListAndItsRowTransfers) {
    show(true);
    auto call = connected();
    click("transferButtonCircle");
    typeIntoSearch("zoe");
    const auto rows = sheetRows();
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].toMap().value("number").toString(), "202");
    screenshot("transfer-sheet-search-dark");
    QTest::keyClick(window(), Qt::Key_Return);
    EXPECT_EQ(call->transfers, std::vector<std::string>{"202"});
    EXPECT_FALSE(shows("transferSheet"));
}

TEST_F(TwoCallsWindowTest, ANumberFromTheSheetsKeypadIsItsOwnFirstRow) {
    show();
    auto call = connected();
    click("transferButtonCircle");
    click("sheetKeypadButtonCircle");
    EXPECT_TRUE(shows("sheetKeypad"));
    QQuickItem* keypad = item("sheetKeypad");
    ASSERT_NE(keypad, nullptr);
    click("inCallKey2", keypad);
    click("inCallKey0", keypad);
    EXPECT_EQ(item("transferSheet")->property("query").toString(), "20");
    const auto rows = sheetRows();
    ASSERT_EQ(rows.size(), 3);
    EXPECT_TRUE(rows[0].toMap().value("typed").toBool());
    EXPECT_EQ(rows[0].toMap().value("number").toString(), "20");
    EXPECT_EQ(rows[1].toMap().value("number").toString(), "202");
    EXPECT_EQ(rows[2].toMap().value("number").toString(), "206");
    // The keys wrote into the search: nothing reached the call as a tone.
    EXPECT_TRUE(call->digits.empty());
    screenshot("transfer-sheet-keypad-light");
}

TEST_F(TwoCallsWindowTest, AddCallDialsTheChoiceBesideTheHeldFirst) {
    show();
    auto first = connected("206");
    click("addCallButtonCircle");
    EXPECT_EQ(text("sheetTitle"), "Add call");
    typeIntoSearch("sales");
    ASSERT_EQ(sheetRows().size(), 1);
    screenshot("add-call-sheet-light");
    QTest::keyClick(window(), Qt::Key_Return);
    EXPECT_EQ(client->dialled.back(), "600");
    EXPECT_EQ(first->holds, std::vector<bool>{true});
    EXPECT_TRUE(shows("heldCallStrip"));
    EXPECT_EQ(text("callName"), "Sales");
}

// The statistics.

TEST_F(TwoCallsWindowTest, UntilEnoughPacketsArriveThePanelIsMeasuringAndTheToggleShowsAChart) {
    show();
    auto call = connected();
    call->callStats.packetsReceived = 50;
    app.session().callStatistics()->refresh();
    EXPECT_TRUE(shows("statsToggle"));
    EXPECT_EQ(item("statsToggle")->property("level").toString(), "");
    click("statsToggle");
    EXPECT_TRUE(app.callWindows().showStats());
    EXPECT_TRUE(shows("statsPanel"));
    EXPECT_EQ(text("statsLevel"), "Measuring…");
    screenshot("stats-measuring-light");
}

TEST_F(TwoCallsWindowTest, WithNoPacketsAtAllTheIncomingLossReadsADash) {
    show();
    connected();
    app.callWindows().setShowStats(true);
    app.session().callStatistics()->refresh();
    EXPECT_EQ(text("statsIncomingLoss"), "–");
}

TEST_F(TwoCallsWindowTest, HeavyLossShowsPoorConnectionWithBothScores) {
    show();
    auto call = connected();
    call->callStats.packetsReceived = 900;
    call->callStats.packetsLost = 100;
    call->callStats.jitterMs = 12;
    call->callStats.roundTripMs = 48;
    call->callStats.remoteLoss = 0.02;
    call->callStats.remoteJitterMs = 7.6;
    call->counters = {900, 1000};
    app.callWindows().setShowStats(true);
    app.session().callStatistics()->refresh();
    EXPECT_EQ(text("statsLevel"), "Poor connection");
    EXPECT_EQ(item("statsToggle")->property("level").toString(), "poor");
    EXPECT_EQ(text("statsIncomingLoss"), "10 % loss");
    EXPECT_TRUE(text("statsLocalMos").startsWith("Local MOS "));
    // The server has measured nothing here.
    EXPECT_FALSE(shows("statsServerMos"));
    screenshot("stats-poor-light");
    app.palette()->setProperty("dark", true);
    screenshot("stats-poor-dark");
}

TEST_F(TwoCallsWindowTest, TheStatisticsChoiceIsKeptForTheNextCall) {
    show();
    connected();
    click("statsToggle");
    EXPECT_EQ(settings.boolean("call.showStats"), true);
    click("statsToggle");
    EXPECT_EQ(settings.boolean("call.showStats"), false);
    EXPECT_FALSE(shows("statsPanel"));
}

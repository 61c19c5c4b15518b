#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"
#include "StderrCapture.h"
#include "shell/ForwardingDraft.h"

#include <QSignalSpy>

using nlohmann::json;
using namespace std::chrono_literals;

// The forwarding editor and the do-not-disturb switches over the app's real
// session, signed in on rz-devserver as Anna (busy to her mailbox, no answer
// to Sales after 20 s, offline to a mobile number).
namespace {

class ForwardingEditor : public ScreenHost {
protected:
    explicit ForwardingEditor(const char* user = "u-001") : server{{"--auto-approve", user}} {
        settings.setUrl("rz.server", server.url());
    }

    void signIn() {
        Session& session = app().session();
        useSigningInBrowser(session);
        session.signIn();
        ASSERT_TRUE(spinUntil([&] { return session.me().has_value() || session.hasError(); }, 10s));
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
        // Signing in reads the server's directory; the one below replaces it after.
        ASSERT_TRUE(spinUntil([&] { return session.hasDirectory(); }, 10s));
        Directory directory;
        Directory::Entry ben;
        ben.id = "u-002";
        ben.name = "Ben Ortiz";
        ben.extension_ = "202";
        Directory::Entry anna;
        anna.id = "u-001";
        anna.name = "Anna Berger";
        anna.extension_ = "201";
        Directory::Entry muller;
        muller.id = "u-009";
        muller.name = "Jonas Müller";
        muller.extension_ = "209";
        directory.users = {muller, ben, anna};
        Directory::Entry sales;
        sales.id = "g-sales";
        sales.name = "Sales";
        sales.extension_ = "600";
        directory.groups = {sales};
        Directory::Entry main;
        main.id = "f-main";
        main.name = "Main line";
        directory.flows = {main};
        session.setDirectory(directory);
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    DevServer server;
};

class ForwardingEditorWithoutMailbox : public ForwardingEditor {
protected:
    ForwardingEditorWithoutMailbox() : ForwardingEditor("u-003") {}
};

} // namespace

TEST_F(ForwardingEditor, TheDraftStartsAsTheUsersRulesAndReadsThem) {
    signIn();
    ForwardingDraft draft(app().session());
    EXPECT_EQ(draft.alwaysText(), "Off");
    EXPECT_EQ(draft.busyText(), "My voicemail");
    EXPECT_EQ(draft.noAnswerText(), "Sales");
    EXPECT_EQ(draft.offlineText(), "+491701234567");
    EXPECT_EQ(draft.afterS(), 20);
    EXPECT_TRUE(draft.hasMailbox());
}

TEST_F(ForwardingEditor, ChangingNothingLeavesSaveDisabled) {
    signIn();
    ForwardingDraft draft(app().session());
    EXPECT_FALSE(draft.changed());
    EXPECT_FALSE(draft.canSave());
    draft.toHangUp("always");
    EXPECT_TRUE(draft.canSave());
    draft.turnOff("always");
    EXPECT_FALSE(draft.canSave());
}

TEST_F(ForwardingEditor, NotAnsweredForTheFirstTimeRingsFor20SecondsAndAgainAfterOff) {
    signIn();
    ForwardingDraft draft(app().session());
    draft.setAfterS(45);
    EXPECT_EQ(draft.afterS(), 45);
    // Another target keeps the time.
    draft.toHangUp("noAnswer");
    EXPECT_EQ(draft.afterS(), 45);
    draft.turnOff("noAnswer");
    EXPECT_FALSE(draft.hasNoAnswer());
    draft.toMailbox("noAnswer");
    EXPECT_TRUE(draft.hasNoAnswer());
    EXPECT_EQ(draft.afterS(), 20);
}

TEST_F(ForwardingEditor, TheRingingTimeStopsAt5AndAt300InStepsOf5) {
    signIn();
    ForwardingDraft draft(app().session());
    draft.setAfterS(0);
    EXPECT_EQ(draft.afterS(), 5);
    draft.setAfterS(1000);
    EXPECT_EQ(draft.afterS(), 300);
    draft.setAfterS(37);
    EXPECT_EQ(draft.afterS(), 35);
}

TEST_F(ForwardingEditor, ATypedNumberKeepsDigitsAndPlusAndNoDigitsChangeNothing) {
    signIn();
    ForwardingDraft draft(app().session());
    EXPECT_TRUE(draft.toNumber("always", "0151 234-567"));
    EXPECT_EQ(draft.target("always"), Target::external("0151234567"));
    EXPECT_EQ(draft.numberOf("always"), "0151234567");
    EXPECT_FALSE(draft.toNumber("always", "abc"));
    EXPECT_EQ(draft.target("always"), Target::external("0151234567"));
    EXPECT_TRUE(draft.toNumber("busy", " +49 (30) 1234567"));
    EXPECT_EQ(draft.busyText(), "+49301234567");
}

TEST_F(ForwardingEditor, TargetsNotInTheDirectoryReadAsTheirKind) {
    signIn();
    ForwardingDraft draft(app().session());
    draft.toColleague("always", "u-gone", false);
    EXPECT_EQ(draft.alwaysText(), "Colleague");
    draft.toColleague("always", "g-gone", true);
    EXPECT_EQ(draft.alwaysText(), "Group");
    draft.setTarget("always", Target::flow("f-gone"));
    EXPECT_EQ(draft.alwaysText(), "Call flow");
    draft.setTarget("always", Target::flow("f-main"));
    EXPECT_EQ(draft.alwaysText(), "Main line");
    draft.toColleague("always", "u-002", false);
    EXPECT_EQ(draft.alwaysText(), "Ben Ortiz");
}

TEST_F(ForwardingEditorWithoutMailbox, NoMailboxNoEntryButAMailboxTargetStillReadsMyVoicemail) {
    signIn();
    ForwardingDraft draft(app().session());
    EXPECT_FALSE(draft.hasMailbox());
    draft.toMailbox("busy");
    EXPECT_FALSE(draft.target("busy").has_value());
    draft.setTarget("busy", Target::voicemail("box-old"));
    EXPECT_EQ(draft.busyText(), "My voicemail");
}

TEST_F(ForwardingEditor, ThePickerListsPeopleAndGroupsSortedWithoutMeOrFlows) {
    signIn();
    ForwardingDraft draft(app().session());
    QStringList names;
    for (const QVariant& row : draft.colleagues("")) {
        names.append(row.toMap().value("name").toString());
    }
    EXPECT_EQ(names, QStringList({"Ben Ortiz", "Jonas Müller", "Sales"}));
    const auto found = draft.colleagues("muller");
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found[0].toMap().value("id").toString(), "u-009");
    EXPECT_TRUE(draft.colleagues("600")[0].toMap().value("group").toBool());
}

TEST_F(ForwardingEditor, SavingSendsTheDraftAndTheUserHasTheServersRules) {
    signIn();
    ForwardingDraft draft(app().session());
    QSignalSpy saved(&draft, &ForwardingDraft::saved);
    draft.toColleague("always", "u-002", false);
    draft.save();
    EXPECT_TRUE(draft.saving());
    EXPECT_FALSE(draft.canSave());
    ASSERT_TRUE(saved.wait(5000));
    EXPECT_TRUE(saved.at(0).at(0).toBool());
    EXPECT_FALSE(draft.saving());
    EXPECT_EQ(app().session().me()->forwarding->always, Target::user("u-002"));
    EXPECT_EQ(app().shellState().forwardingSummary(), "All calls");
    EXPECT_FALSE(draft.changed());
}

TEST_F(ForwardingEditor, AFailedSaveKeepsTheDraftAndSaysWhy) {
    signIn();
    server.control("POST", "faults",
                   {{"method", "PUT"}, {"path", "api/me/forwarding"}, {"status", 500}});
    StderrCapture quiet;
    ForwardingDraft draft(app().session());
    QSignalSpy saved(&draft, &ForwardingDraft::saved);
    draft.toHangUp("always");
    draft.save();
    ASSERT_TRUE(saved.wait(5000));
    EXPECT_FALSE(saved.at(0).at(0).toBool());
    EXPECT_EQ(draft.target("always"), Target::hangup());
    EXPECT_TRUE(draft.canSave());
    EXPECT_TRUE(app().session().hasError());
    EXPECT_FALSE(app().session().me()->forwarding->always.has_value());
}

TEST(ForwardingSummary, ReadsAllCallsOffOrTheCountOfRules) {
    EXPECT_EQ(ShellState::forwardingSummaryOf(std::nullopt), "Off");
    EXPECT_EQ(ShellState::forwardingSummaryOf(Forwarding{}), "Off");
    Forwarding rules;
    rules.busy = Target::hangup();
    EXPECT_EQ(ShellState::forwardingSummaryOf(rules), "1 rules");
    rules.offline = Target::hangup();
    EXPECT_EQ(ShellState::forwardingSummaryOf(rules), "2 rules");
    rules.always = Target::hangup();
    rules.offline.reset();
    EXPECT_EQ(ShellState::forwardingSummaryOf(rules), "All calls");
}

TEST_F(ForwardingEditor, TheSettingsWindowOpensTheEditorFromItsForwardingRow) {
    signIn();
    hostWindow("SettingsWindow.qml");
    QQuickItem* summary = item("forwardingSummary");
    ASSERT_NE(summary, nullptr);
    EXPECT_EQ(summary->property("text").toString(), "3 rules");
    screenshot("settings-dnd-forwarding-light");
    click(item("forwardingRow"));
    ASSERT_TRUE(spinUntil([&] { return shows("forwardingView"); }));
    EXPECT_FALSE(item("forwardingSave")->isEnabled());
    EXPECT_TRUE(shows("ringFor"));
    EXPECT_EQ(item("ringFor")->property("value").toInt(), 20);
    screenshot("forwarding-editor-light");
    click(item("forwardingCancel"));
    ASSERT_TRUE(spinUntil([&] { return !shows("forwardingView"); }));
}

TEST_F(ForwardingEditor, TheEditorInTheDark) {
    signIn();
    hostWindow("SettingsWindow.qml", true);
    click(item("forwardingRow"));
    ASSERT_TRUE(spinUntil([&] { return shows("forwardingView"); }));
    screenshot("forwarding-editor-dark");
}

TEST_F(ForwardingEditor, TheSettingsSwitchSetsDoNotDisturbAtOnce) {
    signIn();
    hostWindow("SettingsWindow.qml", true);
    QQuickItem* dnd = item("dndSwitch");
    ASSERT_NE(dnd, nullptr);
    EXPECT_FALSE(dnd->property("checked").toBool());
    click(dnd);
    EXPECT_TRUE(app().session().dnd());
    EXPECT_TRUE(dnd->property("checked").toBool());
    screenshot("settings-dnd-on-dark");
    ASSERT_TRUE(spinUntil([&] {
        const json model = server.control("GET", "model");
        for (const auto& user : model["users"]) {
            if (user["id"] == "u-001") {
                return user.value("dnd", false);
            }
        }
        return false;
    }));
}

TEST_F(ForwardingEditor, TheTraySwitchTurnsBackWhenTheServerRefuses) {
    signIn();
    server.control("POST", "faults",
                   {{"method", "PATCH"}, {"path", "api/users/u-001"}, {"status", 500}});
    StderrCapture quiet;
    hostWindow("TrayPanel.qml");
    QQuickItem* dnd = item("trayDnd");
    ASSERT_NE(dnd, nullptr);
    ASSERT_TRUE(dnd->isEnabled());
    click(dnd);
    EXPECT_TRUE(dnd->property("checked").toBool());
    ASSERT_TRUE(spinUntil([&] { return app().session().hasError(); }));
    EXPECT_FALSE(app().session().dnd());
    EXPECT_FALSE(dnd->property("checked").toBool());
}

TEST_F(ForwardingEditor, ThePickerAndTheNumberAlertSetTheirRule) {
    signIn();
    for (const bool dark : {false, true}) {
        hostWindow("SettingsWindow.qml", dark);
        click(item("forwardingRow"));
        ASSERT_TRUE(spinUntil([&] { return shows("forwardingView"); }));
        QObject* view = window->findChild<QObject*>("forwardingView");
        ASSERT_NE(view, nullptr);
        auto* draft = qobject_cast<ForwardingDraft*>(view->property("draft").value<QObject*>());
        ASSERT_NE(draft, nullptr);

        QObject* picker = window->findChild<QObject*>("colleaguePicker");
        ASSERT_NE(picker, nullptr);
        QMetaObject::invokeMethod(picker, "openFor", Q_ARG(QVariant, QVariant("always")));
        ASSERT_TRUE(spinUntil([&] { return picker->property("opened").toBool(); }));
        screenshot(dark ? "forwarding-picker-dark" : "forwarding-picker-light");
        QQuickItem* ben = nullptr;
        ASSERT_TRUE(spinUntil([&] { return (ben = item("pick_u-002")) != nullptr; }));
        click(ben);
        ASSERT_TRUE(spinUntil([&] { return !picker->property("visible").toBool(); }));
        EXPECT_EQ(draft->alwaysText(), "Ben Ortiz");

        QObject* alert = window->findChild<QObject*>("numberDialog");
        ASSERT_NE(alert, nullptr);
        QMetaObject::invokeMethod(alert, "openFor", Q_ARG(QVariant, QVariant("offline")));
        QObject* field = window->findChild<QObject*>("numberField");
        ASSERT_NE(field, nullptr);
        // It starts from the number the rule has.
        EXPECT_EQ(field->property("text").toString(), "+491701234567");
        field->setProperty("text", "0151 234-567");
        screenshot(dark ? "forwarding-number-dark" : "forwarding-number-light");
        QMetaObject::invokeMethod(alert, "accept");
        EXPECT_EQ(draft->offlineText(), "0151234567");
        EXPECT_TRUE(item("forwardingSave")->isEnabled());
        window.reset();
    }
}

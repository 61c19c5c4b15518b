#include "ScreenHost.h"

#include "../../unit/telephony/FakeCore.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "StderrCapture.h"

#include <QQuickItem>

using nlohmann::json;
using namespace std::chrono_literals;

// The conference screen over the app's real session, signed in on
// rz-devserver as Anna, with a conference of her call that the server's
// control interface makes and changes; its tiles, the host's menus, light
// and dark.
namespace {

json party(const std::string& number, std::optional<std::string> name = std::nullopt,
           std::optional<std::string> userId = std::nullopt) {
    json p{{"number", number}};
    if (name) {
        p["name"] = *name;
    }
    if (userId) {
        p["userId"] = *userId;
    }
    return p;
}

json participant(const std::string& id, const json& party, std::optional<long long> joinedAt) {
    json p{{"id", id}, {"party", party}, {"muted", false}, {"talking", false}};
    if (joinedAt) {
        p["joinedAt"] = *joinedAt;
    }
    return p;
}

class ConferenceView : public ScreenHost {
protected:
    ConferenceView() : server{{"--auto-approve", "u-001"}} {
        settings.setUrl("rz.server", server.url());
    }

    void signIn() {
        Session& session = app().session();
        useSigningInBrowser(session);
        session.signIn();
        ASSERT_TRUE(spinUntil([&] { return session.me().has_value() || session.hasError(); }, 10s));
        ASSERT_TRUE(spinUntil([&] { return session.live().connected(); }, 10s));
    }

    // Anna's call "c-conf" in conference "cf-1", hosted by `host`; the SIP
    // call it is followed by is given when the phone has a call of its own.
    void joinConference(std::optional<std::string> host = std::string("u-001"),
                        std::optional<QString> sipCallId = std::nullopt) {
        Session& session = app().session();
        if (!sipCallId) {
            signIn();
            session.live().follow(QString("sip-conf"));
        }
        json conference{
            {"id", "cf-1"},
            {"locked", false},
            {"participants",
             json::array(
                 {participant("p-ext", party("+4930555123"), 1731000000300LL),
                  participant("p-me", party("201", "Anna Berger", "u-001"), 1731000000100LL),
                  participant("p-ben", party("202", "Ben Fischer", "u-002"), 1731000000200LL),
                  participant("p-late", party("+4940111", "Late Joiner"), std::nullopt)})}};
        if (host) {
            conference["hostUserId"] = *host;
        }
        server.control("POST", "conferences", {{"conference", conference}});
        json call{{"id", "c-conf"},
                  {"direction", "outbound"},
                  {"from", party("201", "Anna Berger", "u-001")},
                  {"to", party("202", "Ben Fischer", "u-002")},
                  {"state", "connected"},
                  {"conferenceId", "cf-1"},
                  {"myLegs",
                   json::array({{{"sipCallId", sipCallId.value_or("sip-conf").toStdString()}}})}};
        server.control("POST", "calls", {{"call", call}});
        ASSERT_TRUE(spinUntil([&] { return session.live().conference().has_value(); }, 10s));
    }

    void showScreen(bool dark = false) {
        host("Rectangle { anchors.fill: parent; color: Theme.windowBackground;\n"
             " ConferenceView { anchors.fill: parent; anchors.margins: 20;\n"
             "  conference: w.shell.conference; shell: w.shell } }",
             dark, QSize(360, 320));
    }

    QQuickItem* tile(const char* id) {
        return item((QByteArray("participantTile_") + id).constData());
    }

    QQuickItem* in(QQuickItem* under, const char* name) {
        return under ? itemsNamed(under, name).value(0) : nullptr;
    }

    json requestsTo(const std::string& method, const std::string& path) {
        json found = json::array();
        for (const auto& request : server.control("GET", "requests")) {
            if (request["method"] == method && request["path"] == path) {
                found.push_back(request);
            }
        }
        return found;
    }

    // Opens a tile's menu with a right click; null when it has none.
    QObject* openTileMenu(const char* id) {
        QQuickItem* t = tile(id);
        if (!t) {
            return nullptr;
        }
        QQuickItem* ring = in(t, "talkingRing");
        QTest::mouseClick(window.get(), Qt::RightButton, {}, centreOf(ring));
        QObject* menu = t->findChild<QObject*>("participantMenu");
        if (!menu || !spinUntil([&] { return menu->property("opened").toBool(); }, 1s)) {
            return nullptr;
        }
        return menu;
    }

    QQuickItem* menuItem(QObject* menu, const char* name) {
        for (QQuickItem* candidate : allItems()) {
            if (candidate->objectName() == QLatin1String(name) && candidate->isVisible()) {
                return candidate;
            }
        }
        // Popups stand in the window's overlay, which the scan above covers; the menu
        // may also keep its items under its content item.
        return menu ? menu->findChild<QQuickItem*>(name) : nullptr;
    }

    DevServer server;
};

} // namespace

TEST_F(ConferenceView, TheUserComesFirstThenEveryoneByJoiningTime) {
    joinConference();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return tile("p-late") != nullptr; }));
    QList<QQuickItem*> tiles;
    for (QQuickItem* candidate : allItems()) {
        if (candidate->objectName().startsWith("participantTile_")) {
            tiles.append(candidate);
        }
    }
    // In reading order: by row, then from the left.
    std::sort(tiles.begin(), tiles.end(), [](QQuickItem* a, QQuickItem* b) {
        const QPointF pa = a->mapToScene({0, 0});
        const QPointF pb = b->mapToScene({0, 0});
        return pa.y() != pb.y() ? pa.y() < pb.y() : pa.x() < pb.x();
    });
    QStringList order;
    for (QQuickItem* t : tiles) {
        order.append(t->objectName().mid(16));
    }
    EXPECT_EQ(order, QStringList({"p-me", "p-late", "p-ben", "p-ext"}));
    EXPECT_EQ(in(tile("p-me"), "participantName")->property("text").toString(), "You");
    EXPECT_EQ(in(tile("p-ext"), "participantName")->property("text").toString(), "+4930555123");
    EXPECT_EQ(item("conferenceTitle")->property("text").toString(), "Conference · 4");
    EXPECT_TRUE(item("conferenceOptions")->isVisible());
    EXPECT_FALSE(item("conferenceLocked")->isVisible());
    screenshot("conference-host-light");
}

TEST_F(ConferenceView, TalkingAndMutedShowLive) {
    joinConference();
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return tile("p-ben") != nullptr; }));
    EXPECT_EQ(in(tile("p-ben"), "talkingRing")->opacity(), 0);
    server.control("PATCH", "conferences/cf-1/participants/p-ben", {{"talking", true}});
    server.control("PATCH", "conferences/cf-1/participants/p-ext", {{"muted", true}});
    ASSERT_TRUE(spinUntil([&] { return in(tile("p-ben"), "talkingRing")->opacity() == 1; }, 3s));
    ASSERT_TRUE(spinUntil([&] { return in(tile("p-ext"), "mutedBadge")->isVisible(); }, 3s));
    EXPECT_FALSE(in(tile("p-ben"), "mutedBadge")->isVisible());
    EXPECT_EQ(accessibleName(tile("p-ext")), "+4930555123, Muted");
    server.control("PATCH", "conferences/cf-1", {{"locked", true}});
    ASSERT_TRUE(spinUntil([&] { return item("conferenceLocked")->isVisible(); }, 3s));
    screenshot("conference-talking-muted-locked-dark");
    showScreen(false);
    ASSERT_TRUE(spinUntil([&] { return in(tile("p-ben"), "talkingRing")->opacity() == 1; }, 3s));
    screenshot("conference-talking-muted-locked-light");
    server.control("PATCH", "conferences/cf-1/participants/p-ben", {{"talking", false}});
    ASSERT_TRUE(spinUntil([&] { return in(tile("p-ben"), "talkingRing")->opacity() == 0; }, 3s));
}

TEST_F(ConferenceView, TheHostMutesAndRemovesAnotherFromTheTilesMenu) {
    joinConference();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return tile("p-ben") != nullptr; }));
    QObject* menu = openTileMenu("p-ben");
    ASSERT_NE(menu, nullptr);
    QQuickItem* mute = menuItem(menu, "muteItem");
    ASSERT_NE(mute, nullptr);
    EXPECT_EQ(mute->property("text").toString(), "Mute");
    screenshot("conference-tile-menu-light");
    click(mute);
    ASSERT_TRUE(spinUntil([&] { return in(tile("p-ben"), "mutedBadge")->isVisible(); }, 5s));
    auto sent = requestsTo("POST", "api/conferences/cf-1/participants/p-ben/mute");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()), json({{"muted", true}}));

    menu = openTileMenu("p-ben");
    ASSERT_NE(menu, nullptr);
    EXPECT_EQ(menuItem(menu, "muteItem")->property("text").toString(), "Unmute");
    click(menuItem(menu, "removeItem"));
    ASSERT_TRUE(spinUntil([&] { return tile("p-ben") == nullptr; }, 5s));
    EXPECT_EQ(requestsTo("DELETE", "api/conferences/cf-1/participants/p-ben").size(), 1u);
    EXPECT_EQ(item("conferenceTitle")->property("text").toString(), "Conference · 3");
    EXPECT_FALSE(app().session().hasError());
}

TEST_F(ConferenceView, TheHostHasNoMenuOnTheirOwnTile) {
    joinConference();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return tile("p-me") != nullptr; }));
    EXPECT_EQ(openTileMenu("p-me"), nullptr);
}

TEST_F(ConferenceView, WithoutAHostNobodyHasMenus) {
    joinConference(std::nullopt);
    showScreen(true);
    ASSERT_TRUE(spinUntil([&] { return tile("p-ben") != nullptr; }));
    EXPECT_FALSE(item("conferenceOptions")->isVisible());
    EXPECT_EQ(openTileMenu("p-ben"), nullptr);
    EXPECT_EQ(openTileMenu("p-ext"), nullptr);
    screenshot("conference-guest-dark");
}

TEST_F(ConferenceView, TheHostLocksAndEndsFromTheOptionsMenu) {
    joinConference();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return item("conferenceOptions") != nullptr; }));
    click(item("conferenceOptions"));
    QObject* menu = item("conferenceOptions")->findChild<QObject*>("conferenceMenu");
    ASSERT_NE(menu, nullptr);
    ASSERT_TRUE(spinUntil([&] { return menu->property("opened").toBool(); }, 1s));
    QQuickItem* lock = menuItem(menu, "lockItem");
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(lock->property("text").toString(), "Lock");
    screenshot("conference-options-light");
    click(lock);
    ASSERT_TRUE(spinUntil([&] { return item("conferenceLocked")->isVisible(); }, 5s));
    auto sent = requestsTo("PATCH", "api/conferences/cf-1");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()), json({{"locked", true}}));

    click(item("conferenceOptions"));
    ASSERT_TRUE(spinUntil([&] { return menu->property("opened").toBool(); }, 1s));
    EXPECT_EQ(menuItem(menu, "lockItem")->property("text").toString(), "Unlock");
    click(menuItem(menu, "endItem"));
    ASSERT_TRUE(spinUntil([&] { return !app().session().live().conference().has_value(); }, 5s));
    EXPECT_EQ(requestsTo("DELETE", "api/conferences/cf-1").size(), 1u);
    EXPECT_FALSE(app().shellState().conferenceModel()->active());
}

TEST_F(ConferenceView, ARefusedActionSaysWhyAndTheTilesStayAsTheServerHasThem) {
    joinConference();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return tile("p-ben") != nullptr; }));
    server.control("POST", "faults",
                   {{"method", "POST"},
                    {"path", "api/conferences/cf-1/participants/p-ben/mute"},
                    {"status", 500},
                    {"body", "bridge busy"}});
    StderrCapture quiet;
    QObject* menu = openTileMenu("p-ben");
    ASSERT_NE(menu, nullptr);
    click(menuItem(menu, "muteItem"));
    ASSERT_TRUE(spinUntil([&] { return app().session().hasError(); }, 5s));
    EXPECT_EQ(app().session().errorText(), "HTTP 500: bridge busy");
    EXPECT_FALSE(in(tile("p-ben"), "mutedBadge")->isVisible());
}

TEST_F(ConferenceView, WhileTheSocketIsLostTheTilesStayAsTheyWere) {
    joinConference();
    showScreen();
    ASSERT_TRUE(spinUntil([&] { return tile("p-ben") != nullptr; }));
    server.control("POST", "faults", {{"path", "api/live"}, {"count", 1000}, {"status", 503}});
    StderrCapture quiet;
    server.control("POST", "live/drop", {{"closeFrame", false}});
    ASSERT_TRUE(spinUntil([&] { return !app().session().live().connected(); }, 5s));
    EXPECT_NE(tile("p-ben"), nullptr);
    EXPECT_EQ(item("conferenceTitle")->property("text").toString(), "Conference · 4");
}

TEST_F(ConferenceView, TheCallWindowCarriesTheConferenceAndItsAddSearchesForAColleague) {
    std::shared_ptr<FakeClient> client;
    app().phone().setClientFactory(
        [&client](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
            client = std::make_shared<FakeClient>(account, std::move(d));
            return client;
        });
    signIn();
    // The directory brings Chloé (203) to search for.
    ASSERT_TRUE(spinUntil([&] { return client && app().session().hasDirectory(); }, 10s));
    app().phone().registrationChanged(core::RegistrationState::registered());
    ASSERT_TRUE(app().showMainWindow());
    app().phone().dial("202");
    auto call = client->placed.back();
    app().phone().callStateChanged(call->sipCallId(), core::CallState::connected());
    joinConference(std::string("u-001"), QString::fromStdString(call->sipCallId()));
    ASSERT_TRUE(spinUntil([&] { return app().callWindow() != nullptr; }, 5s));
    QQuickWindow* callWindow = app().callWindow();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(callWindow));
    const auto find = [&](const char* name) -> QQuickItem* {
        QList<QQuickItem*> pending{callWindow->contentItem()};
        while (!pending.isEmpty()) {
            QQuickItem* next = pending.takeFirst();
            if (next->objectName() == QLatin1String(name) && next->isVisible()) {
                return next;
            }
            pending += next->childItems();
        }
        return nullptr;
    };
    const auto press = [&](QQuickItem* target) {
        ASSERT_NE(target, nullptr);
        QTest::mouseClick(callWindow, Qt::LeftButton, {}, centreOf(target));
    };
    ASSERT_TRUE(spinUntil([&] { return find("conferenceView") != nullptr; }, 5s));
    ASSERT_TRUE(spinUntil([&] { return find("participantTile_p-ben") != nullptr; }, 5s));
    QImage image = callWindow->grabWindow();
    QDir().mkpath(VELNOR_SCREENSHOTS);
    image.save(QString(VELNOR_SCREENSHOTS) + "/conference-call-window-light.png");

    QQuickItem* add = find("addCallButton");
    ASSERT_NE(add, nullptr);
    EXPECT_EQ(add->property("accessibleName").toString(), "Add participant");
    press(add);
    ASSERT_TRUE(spinUntil([&] { return find("transferSheet") != nullptr; }, 2s));
    EXPECT_EQ(find("sheetTitle")->property("text").toString(), "Add to conference");
    press(find("sheetSearch"));
    for (const char c : std::string("Chlo")) {
        QTest::keyClick(callWindow, c);
    }
    const QVariantList rows = find("transferSheet")->property("rows").toList();
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].toMap()["number"].toString(), "203");
    image = callWindow->grabWindow();
    image.save(QString(VELNOR_SCREENSHOTS) + "/conference-add-participant-light.png");
    QTest::keyClick(callWindow, Qt::Key_Return);
    ASSERT_TRUE(spinUntil([&] { return find("transferSheet") == nullptr; }, 2s));
    ASSERT_TRUE(spinUntil(
        [&] { return app().session().live().conference()->participants.size() == 5; }, 5s));
    const auto sent = requestsTo("POST", "api/conferences/cf-1/participants");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()),
              json({{"target", {{"type", "user"}, {"id", "u-003"}}}}));
    // Nothing was dialled beside the conference.
    EXPECT_EQ(client->placed.size(), 1u);
    EXPECT_FALSE(app().session().hasError()) << app().session().errorText().toStdString();
}

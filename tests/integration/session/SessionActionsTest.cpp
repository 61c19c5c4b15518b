#include "session/Session.h"

#include "BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"
#include "StderrCapture.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;
using namespace std::chrono_literals;

// The server actions of a signed-in session against rz-devserver: each
// request as the server receives it, each change made before the answer, and
// each rollback when the control interface makes the server fail.
namespace {

class SessionActions : public testing::Test {
protected:
    explicit SessionActions(const char* user = "u-001") : server{{"--auto-approve", user}} {
        settings.setUrl("rz.server", server.url());
        session = std::make_unique<Session>(settings, secrets);
        useSigningInBrowser(*session);
    }

    void signIn() {
        session->signIn();
        ASSERT_TRUE(
            spinUntil([&] { return session->me().has_value() || session->hasError(); }, 10s));
        ASSERT_FALSE(session->hasError()) << session->errorText().toStdString();
    }

    void fault(const json& spec) { server.control("POST", "faults", spec); }

    json modelUser(const std::string& id) {
        const json model = server.control("GET", "model");
        for (const auto& user : model["users"]) {
            if (user["id"] == id) {
                return user;
            }
        }
        return nullptr;
    }

    // The requests the server saw for a method and path, in order.
    json requestsTo(const std::string& method, const std::string& path) {
        json found = json::array();
        for (const auto& request : server.control("GET", "requests")) {
            if (request["method"] == method && request["path"] == path) {
                found.push_back(request);
            }
        }
        return found;
    }

    DevServer server;
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    std::unique_ptr<Session> session;
};

class SessionActionsWithoutDnd : public SessionActions {
protected:
    // A colleague whose account has never had the flag.
    SessionActionsWithoutDnd() : SessionActions("u-003") {}
};

class SessionActionsNeverRecording : public SessionActions {
protected:
    SessionActionsNeverRecording() : SessionActions("u-002") {}
};

json call(const std::string& id, const std::string& sipCallId,
          std::optional<std::string> conferenceId = std::nullopt) {
    json c{{"id", id},
           {"direction", "outbound"},
           {"from", {{"number", "201"}, {"name", "Anna Berger"}, {"userId", "u-001"}}},
           {"to", {{"number", "+4930123456"}}},
           {"state", "connected"},
           {"startedAt", 1731000000000},
           {"myLegs", json::array({{{"sipCallId", sipCallId}, {"deviceId", "dev-1"}}})}};
    if (conferenceId) {
        c["conferenceId"] = *conferenceId;
    }
    return c;
}

Target external(const QString& number) {
    return Target::external(number);
}

} // namespace

// --- forwarding ---

TEST_F(SessionActions, SavedForwardingIsWhatTheServerKeepsAndReadsBack) {
    signIn();
    Forwarding rules;
    rules.always = external("+4930999");
    rules.noAnswer = Forwarding::NoAnswer{25, Target::voicemail("box-201")};
    ASSERT_TRUE(runTask(session->saveForwarding(rules)));
    EXPECT_FALSE(session->hasError());
    ASSERT_TRUE(session->me()->forwarding);
    EXPECT_EQ(*session->me()->forwarding, rules);
    const json kept = modelUser("u-001")["forwarding"];
    EXPECT_EQ(kept["always"], json({{"type", "external"}, {"number", "+4930999"}}));
    EXPECT_TRUE(kept["busy"].is_null());
    EXPECT_EQ(kept["noAnswer"]["afterS"], 25);
    // A new session reads the same rules back from "api/me".
    Session again(settings, secrets);
    runTask(again.restore());
    ASSERT_TRUE(again.me() && again.me()->forwarding);
    EXPECT_EQ(*again.me()->forwarding, rules);
}

TEST_F(SessionActions, ForwardingTakesTheServersReplyNotWhatWasSent) {
    signIn();
    fault({{"method", "PUT"},
           {"path", "api/me/forwarding"},
           {"status", 200},
           {"body", R"({"always":null,"busy":{"type":"hangup"},"noAnswer":null,"offline":null})"}});
    Forwarding rules;
    rules.always = external("+4930999");
    ASSERT_TRUE(runTask(session->saveForwarding(rules)));
    Forwarding expected;
    expected.busy = Target::hangup();
    EXPECT_EQ(*session->me()->forwarding, expected);
}

TEST_F(SessionActions, AFailedForwardingSaveChangesNothingAndSaysWhy) {
    signIn();
    const auto before = session->me()->forwarding;
    fault({{"method", "PUT"}, {"path", "api/me/forwarding"}, {"status", 500}, {"body", "down"}});
    Forwarding rules;
    rules.always = external("+4930999");
    StderrCapture quiet;
    EXPECT_FALSE(runTask(session->saveForwarding(rules)));
    EXPECT_EQ(session->me()->forwarding, before);
    EXPECT_EQ(session->errorText(), "HTTP 500: down");
}

TEST_F(SessionActions, ForwardingWaitsForTheServerBeforeChangingAnything) {
    signIn();
    const auto before = session->me()->forwarding;
    fault({{"method", "PUT"}, {"path", "api/me/forwarding"}, {"delayMs", 300}});
    Forwarding rules;
    rules.busy = Target::hangup();
    auto task = session->saveForwarding(rules);
    EXPECT_EQ(session->me()->forwarding, before);
    EXPECT_TRUE(runTask(std::move(task)));
    EXPECT_EQ(*session->me()->forwarding, rules);
}

// --- do not disturb ---

TEST_F(SessionActions, DndShowsAtOnceAndReachesTheServer) {
    signIn();
    EXPECT_FALSE(session->dnd());
    fault({{"method", "PATCH"}, {"path", "api/users/u-001"}, {"delayMs", 300}});
    auto task = session->setDnd(true);
    // Before the server has answered.
    EXPECT_TRUE(session->dnd());
    runTask(std::move(task));
    EXPECT_TRUE(session->dnd());
    EXPECT_FALSE(session->hasError());
    EXPECT_EQ(modelUser("u-001")["dnd"], true);
    runTask(session->setDnd(false));
    EXPECT_EQ(modelUser("u-001")["dnd"], false);
    const auto sent = requestsTo("PATCH", "api/users/u-001");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()), json({{"dnd", true}}));
}

TEST_F(SessionActions, ARefusedDndTurnsTheFlagToTheOppositeAndSaysWhy) {
    signIn();
    runTask(session->setDnd(true));
    fault({{"method", "PATCH"}, {"path", "api/users/u-001"}, {"status", 503}, {"body", "busy"}});
    StderrCapture quiet;
    runTask(session->setDnd(true));
    EXPECT_FALSE(session->dnd());
    EXPECT_EQ(session->me()->dnd, false);
    EXPECT_EQ(session->errorText(), "HTTP 503: busy");
}

TEST_F(SessionActionsWithoutDnd, ARefusedDndOnAnAbsentFlagLeavesItFalse) {
    signIn();
    ASSERT_FALSE(session->me()->dnd.has_value());
    fault({{"method", "PATCH"}, {"path", "api/users/u-003"}, {"status", 500}});
    StderrCapture quiet;
    runTask(session->setDnd(true));
    ASSERT_TRUE(session->me()->dnd.has_value());
    EXPECT_FALSE(*session->me()->dnd);
    EXPECT_TRUE(session->hasError());
}

TEST_F(SessionActions, DndWithoutMeSendsNothing) {
    runTask(session->setDnd(true));
    EXPECT_FALSE(session->me());
    EXPECT_TRUE(requestsTo("PATCH", "api/users/u-001").empty());
}

// --- voicemail ---

TEST_F(SessionActions, SigningInLoadsTheMailbox) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    int inBox = 0;
    const json model = server.control("GET", "model");
    for (const auto& message : model["voicemail"]) {
        inBox += message["boxId"] == "box-201" ? 1 : 0;
    }
    ASSERT_GT(inBox, 0);
    EXPECT_EQ(session->voicemail().size(), inBox);
    EXPECT_FALSE(session->voicemailError());
    EXPECT_EQ(session->unreadVoicemailCount(), actions::unreadCount(session->voicemail()));
    EXPECT_GT(session->unreadVoicemailCount(), 0);
}

TEST_F(SessionActions, AFailedMailboxReadKeepsTheOldListAndItsOwnError) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    const auto before = session->voicemail();
    fault({{"path", "api/voicemail-boxes/box-201/messages"}, {"status", 500}, {"body", "oops"}});
    runTask(session->refreshVoicemail());
    EXPECT_EQ(session->voicemail(), before);
    EXPECT_EQ(session->voicemailErrorText(), "HTTP 500: oops");
    EXPECT_FALSE(session->hasError());
    EXPECT_TRUE(session->voicemailLoaded());
    // The next good read clears it.
    runTask(session->refreshVoicemail());
    EXPECT_FALSE(session->voicemailError());
}

TEST_F(SessionActions, ASignedOutMailboxReadEndsTheSession) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    server.control("POST", "tokens/revoke", json::object());
    server.control("POST", "tokens/expire", json::object());
    runTask(session->refreshVoicemail());
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_TRUE(session->voicemail().isEmpty());
    EXPECT_FALSE(session->me());
}

TEST_F(SessionActions, MarkingReadShowsAtOnceAndStaysWhenTheServerRefuses) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    QString unread;
    for (const auto& m : session->voicemail()) {
        if (!m.readAt) {
            unread = m.id;
            break;
        }
    }
    ASSERT_FALSE(unread.isEmpty());
    const int count = session->unreadVoicemailCount();
    fault({{"method", "PATCH"},
           {"path", ("api/voicemail-messages/" + unread).toStdString()},
           {"status", 500}});
    StderrCapture quiet;
    auto task = session->setRead(unread, true);
    EXPECT_EQ(session->unreadVoicemailCount(), count - 1);
    runTask(std::move(task));
    EXPECT_EQ(session->unreadVoicemailCount(), count - 1);
    EXPECT_TRUE(session->hasError());
    const auto message = std::find_if(session->voicemail().begin(), session->voicemail().end(),
                                      [&](const auto& m) { return m.id == unread; });
    ASSERT_TRUE(message->readAt);
    EXPECT_TRUE(QDateTime::fromString(*message->readAt, Qt::ISODate).isValid());
    EXPECT_TRUE(message->readAt->endsWith('Z'));
}

TEST_F(SessionActions, ReadAndUnreadReachTheServer) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    const QString id = session->voicemail().first().id;
    runTask(session->setRead(id, true));
    runTask(session->setRead(id, false));
    EXPECT_FALSE(session->voicemail().first().readAt);
    const auto sent = requestsTo("PATCH", ("api/voicemail-messages/" + id).toStdString());
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()), json({{"read", true}}));
    EXPECT_EQ(json::parse(sent[1]["body"].get<std::string>()), json({{"read", false}}));
    runTask(session->refreshVoicemail());
    EXPECT_FALSE(session->voicemail().first().readAt);
}

TEST_F(SessionActions, MarkingAMessageNotInTheListSendsNothing) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    runTask(session->setRead("vm-nowhere", true));
    EXPECT_TRUE(requestsTo("PATCH", "api/voicemail-messages/vm-nowhere").empty());
}

TEST_F(SessionActions, DeletingRemovesAtOnceAndTheServerForgetsIt) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    const QString id = session->voicemail().first().id;
    const auto before = session->voicemail().size();
    auto task = session->deleteVoicemail(id);
    EXPECT_EQ(session->voicemail().size(), before - 1);
    runTask(std::move(task));
    runTask(session->refreshVoicemail());
    EXPECT_EQ(session->voicemail().size(), before - 1);
    EXPECT_FALSE(session->hasError());
}

TEST_F(SessionActions, AFailedDeleteBringsTheMessageBack) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    const auto before = session->voicemail();
    const QString id = before.first().id;
    fault({{"method", "DELETE"},
           {"path", ("api/voicemail-messages/" + id).toStdString()},
           {"status", 500},
           {"body", "no"}});
    StderrCapture quiet;
    auto task = session->deleteVoicemail(id);
    EXPECT_EQ(session->voicemail().size(), before.size() - 1);
    runTask(std::move(task));
    EXPECT_EQ(session->voicemail(), before);
    EXPECT_EQ(session->errorText(), "HTTP 500: no");
}

TEST_F(SessionActions, AMessagesSoundIsFetchedOnceIntoTheTemporaryFolder) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    const QString id = session->voicemail().first().id;
    const QString expected = QDir(QDir::tempPath()).filePath("vm-" + id + ".audio");
    QFile::remove(expected);
    const QString path = runTask(session->voicemailAudio(id));
    EXPECT_EQ(path, expected);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.read(4) == "RIFF");
    EXPECT_EQ(runTask(session->voicemailAudio(id)), path);
    const auto audio = ("api/voicemail-messages/" + id + "/audio").toStdString();
    EXPECT_EQ(requestsTo("GET", audio).size(), 1u);
    QFile::remove(path);
}

TEST_F(SessionActions, AFailedSoundFetchGoesToTheCallerAndLeavesNoFile) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->voicemailLoaded(); }));
    const QString id = session->voicemail().first().id;
    QFile::remove(Session::voicemailAudioPath(id));
    fault({{"path", ("api/voicemail-messages/" + id + "/audio").toStdString()}, {"status", 404}});
    EXPECT_THROW(runTask(session->voicemailAudio(id)), API::Failure);
    EXPECT_FALSE(session->hasError());
    EXPECT_FALSE(QFile::exists(Session::voicemailAudioPath(id)));
}

// --- queues ---

TEST_F(SessionActions, SigningInReadsTheQueuesAndWatchesTheirBoards) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->queues().size() == 2; }));
    EXPECT_TRUE(session->live().topics().contains("queue:q-support"));
    EXPECT_TRUE(session->live().topics().contains("queue:q-sales"));
    ASSERT_TRUE(spinUntil([&] { return session->live().boards().size() == 2; }));
    EXPECT_EQ(session->queueWaitingTotal(), session->live().boards()["q-support"].waiting.size() +
                                                session->live().boards()["q-sales"].waiting.size());
}

TEST_F(SessionActions, AServerWithoutQueuesEmptiesThemAndWatchesNothingNew) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->queues().size() == 2; }));
    const auto topics = session->live().topics();
    fault({{"path", "api/me/queues"}, {"status", 404}});
    runTask(session->refreshQueues());
    EXPECT_TRUE(session->queues().isEmpty());
    EXPECT_EQ(session->live().topics(), topics);
    EXPECT_FALSE(session->hasError());
}

TEST_F(SessionActions, OtherQueueFailuresAreOnlyLogged) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->queues().size() == 2; }));
    const auto before = session->queues();
    fault({{"path", "api/me/queues"}, {"status", 500}, {"body", "x"}});
    StderrCapture log;
    runTask(session->refreshQueues());
    EXPECT_EQ(session->queues(), before);
    EXPECT_FALSE(session->hasError());
    const QByteArray logged = log.take();
    EXPECT_TRUE(logged.contains("[api] queues: HTTP 500: x")) << logged.toStdString();
}

TEST_F(SessionActions, LoggingOutOfAPausedQueueShowsBothFalseAndSendsOnlyLoggedIn) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->queues().size() == 2; }));
    runTask(session->setAgent("q-support", std::nullopt, true));
    ASSERT_TRUE(session->queues()[0].paused || session->queues()[1].paused);
    fault({{"method", "POST"}, {"path", "api/queues/q-support/agent"}, {"delayMs", 300}});
    auto task = session->setAgent("q-support", false, std::nullopt);
    for (const auto& q : session->queues()) {
        if (q.id == "q-support") {
            EXPECT_FALSE(q.loggedIn);
            EXPECT_FALSE(q.paused);
        }
    }
    runTask(std::move(task));
    const auto sent = requestsTo("POST", "api/queues/q-support/agent");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(json::parse(sent[1]["body"].get<std::string>()), json({{"loggedIn", false}}));
    ASSERT_TRUE(spinUntil([&] {
        const auto board = session->live().boards().value("q-support");
        for (const auto& agent : board.agents) {
            if (agent.userId == "u-001") {
                return agent.state == "logged_out";
            }
        }
        return false;
    }));
    for (const auto& q : session->queues()) {
        if (q.id == "q-support") {
            EXPECT_EQ(session->agentFlags(q), (AgentFlags{false, false}));
        }
    }
}

TEST_F(SessionActions, ARefusedAgentChangeReloadsTheServersTruth) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->queues().size() == 2; }));
    const auto before = session->queues();
    fault({{"method", "POST"}, {"path", "api/queues/q-sales/agent"}, {"status", 500}});
    StderrCapture quiet;
    runTask(session->setAgent("q-sales", false, std::nullopt));
    EXPECT_TRUE(session->hasError());
    EXPECT_EQ(session->queues(), before);
    EXPECT_EQ(requestsTo("GET", "api/me/queues").size(), 2u);
}

TEST_F(SessionActions, AnAgentChangeForAnUnknownQueueIsStillSent) {
    signIn();
    ASSERT_TRUE(spinUntil([&] { return session->queues().size() == 2; }));
    StderrCapture quiet;
    runTask(session->setAgent("q-gone", true, std::nullopt));
    EXPECT_EQ(requestsTo("POST", "api/queues/q-gone/agent").size(), 1u);
    EXPECT_EQ(session->errorText().left(8), "HTTP 404");
}

// --- recording ---

TEST_F(SessionActions, RecordingFollowsTheCallAndComesBackThroughLiveUpdates) {
    signIn();
    EXPECT_FALSE(session->canRecord());
    QSignalSpy changed(session.get(), &Session::canRecordChanged);
    session->live().follow(QString("sip-rec"));
    server.control("POST", "calls", {{"call", call("c-rec", "sip-rec")}});
    ASSERT_TRUE(spinUntil([&] { return session->live().currentCall().has_value(); }, 10s));
    EXPECT_TRUE(session->canRecord());
    EXPECT_GE(changed.count(), 1);
    runTask(session->setRecording(true));
    EXPECT_FALSE(session->hasError());
    ASSERT_TRUE(spinUntil([&] { return session->live().currentCall()->recording == true; }));
    runTask(session->setRecording(false));
    ASSERT_TRUE(spinUntil([&] { return session->live().currentCall()->recording == false; }));
}

TEST_F(SessionActions, RecordingWithoutACallSendsNothing) {
    signIn();
    runTask(session->setRecording(true));
    EXPECT_TRUE(server.control("GET", "requests").size() > 0);
    for (const auto& request : server.control("GET", "requests")) {
        EXPECT_EQ(request["path"].get<std::string>().find("/recording"), std::string::npos);
    }
}

TEST_F(SessionActionsNeverRecording, ARefusedRecordingShowsTheServersOwnSentence) {
    signIn();
    session->live().follow(QString("sip-rec"));
    server.control("POST", "calls", {{"call", call("c-rec", "sip-rec")}, {"owner", "u-002"}});
    ASSERT_TRUE(spinUntil([&] { return session->live().currentCall().has_value(); }, 10s));
    EXPECT_FALSE(session->canRecord());
    StderrCapture quiet;
    runTask(session->setRecording(true));
    EXPECT_EQ(session->errorText(), "Recording is not allowed for your account");
}

TEST_F(SessionActions, APlainTextRefusalOfRecordingShowsTheHttpText) {
    signIn();
    session->live().follow(QString("sip-rec"));
    server.control("POST", "calls", {{"call", call("c-rec", "sip-rec")}});
    ASSERT_TRUE(spinUntil([&] { return session->live().currentCall().has_value(); }, 10s));
    fault({{"path", "api/calls/c-rec/recording"}, {"status", 403}, {"body", "Forbidden"}});
    StderrCapture quiet;
    runTask(session->setRecording(true));
    EXPECT_EQ(session->errorText(), "HTTP 403: Forbidden");
    EXPECT_FALSE(session->live().currentCall()->recording.value_or(false));
}

// --- conference ---

class SessionConference : public SessionActions {
protected:
    void joinConference() {
        signIn();
        session->live().follow(QString("sip-conf"));
        server.control("POST", "conferences",
                       {{"conference",
                         {{"id", "cf-1"},
                          {"locked", false},
                          {"participants", json::array({{{"id", "p-1"},
                                                         {"party", {{"number", "202"}}},
                                                         {"muted", false},
                                                         {"talking", false}}})}}}});
        server.control("POST", "calls", {{"call", call("c-conf", "sip-conf", "cf-1")}});
        ASSERT_TRUE(spinUntil([&] { return session->live().conference().has_value(); }, 10s));
        // The directory is the session's; a test gives it as a refresh would.
        Directory directory;
        Directory::Entry chloe;
        chloe.id = "u-003";
        chloe.name = "Chloé";
        chloe.extension_ = "203";
        directory.users = {chloe};
        Directory::Entry sales;
        sales.id = "g-sales";
        sales.name = "Sales";
        sales.extension_ = "600";
        directory.groups = {sales};
        session->setDirectory(directory);
    }
};

TEST_F(SessionConference, EachOperationSendsItsRequestAndLiveUpdatesShowIt) {
    joinConference();
    runTask(session->addParticipant("203"));
    ASSERT_TRUE(spinUntil([&] { return session->live().conference()->participants.size() == 2; }));
    auto sent = requestsTo("POST", "api/conferences/cf-1/participants");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()),
              json({{"target", {{"type", "user"}, {"id", "u-003"}}}}));

    runTask(session->setMuted("p-1", true));
    ASSERT_TRUE(spinUntil([&] { return session->live().conference()->participants[0].muted; }));
    runTask(session->setLocked(true));
    ASSERT_TRUE(spinUntil([&] { return session->live().conference()->locked; }));
    runTask(session->removeParticipant("p-1"));
    ASSERT_TRUE(spinUntil([&] { return session->live().conference()->participants.size() == 1; }));
    runTask(session->endConference());
    ASSERT_TRUE(spinUntil([&] { return !session->live().conference().has_value(); }));
    EXPECT_FALSE(session->hasError()) << session->errorText().toStdString();
}

TEST_F(SessionConference, AGroupsExtensionIsAddedAsAnOutsideNumber) {
    joinConference();
    runTask(session->addParticipant("600"));
    const auto sent = requestsTo("POST", "api/conferences/cf-1/participants");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(json::parse(sent[0]["body"].get<std::string>()),
              json({{"target", {{"type", "external"}, {"number", "600"}}}}));
}

TEST_F(SessionConference, AFailureChangesNothingAndSaysWhy) {
    joinConference();
    runTask(session->setLocked(true));
    ASSERT_TRUE(spinUntil([&] { return session->live().conference()->locked; }));
    StderrCapture quiet;
    runTask(session->addParticipant("+4930123"));
    EXPECT_TRUE(session->errorText().startsWith("HTTP 409")) << session->errorText().toStdString();
    EXPECT_EQ(session->live().conference()->participants.size(), 1);
}

TEST_F(SessionActions, ConferenceOperationsWithoutAConferenceSendNothing) {
    signIn();
    runTask(session->addParticipant("203"));
    runTask(session->setMuted("p-1", true));
    runTask(session->removeParticipant("p-1"));
    runTask(session->setLocked(true));
    runTask(session->endConference());
    for (const auto& request : server.control("GET", "requests")) {
        EXPECT_EQ(request["path"].get<std::string>().find("conferences"), std::string::npos);
    }
}

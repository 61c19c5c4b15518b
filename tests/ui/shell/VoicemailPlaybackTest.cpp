#include "shell/VoicemailPlayer.h"

#include "../../integration/session/BrowserKit.h"
#include "../../unit/telephony/FakeCore.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "PulseAudioServer.h"
#include "RunTask.h"
#include "Services.h"
#include "StderrCapture.h"
#include "audio/NullBackend.h"

#include <QFile>
#include <QSignalSpy>

#include <gtest/gtest.h>

using nlohmann::json;
using namespace std::chrono_literals;

// Voicemail as a person meets it: messages on rz-devserver, the sound played
// by Qt Multimedia into a private PulseAudio whose default sink is a null
// sink, listened to on its monitor.
namespace {

class VoicemailPlayback : public testing::Test {
protected:
    explicit VoicemailPlayback(const QString& user = "u-001", QStringList arguments = {})
        : server(QStringList{"--auto-approve", user} + arguments) {
        settings.setUrl("rz.server", server.url());
        session = std::make_unique<Session>(settings, secrets);
        useSigningInBrowser(*session);
        player.setSession(session.get());
    }

    void signIn() {
        session->signIn();
        ASSERT_TRUE(
            spinUntil([&] { return session->voicemailLoaded() || session->hasError(); }, 10s));
        ASSERT_FALSE(session->hasError()) << session->errorText().toStdString();
    }

    // What the speaker played over the next seconds, the event loop running meanwhile.
    double speakerLevel(double seconds) {
        return PulseAudioServer::rms(PulseAudioServer::record(
            "speaker.monitor", seconds, [] { QCoreApplication::processEvents(); }));
    }

    json serverMessage(const QString& id) {
        const json model = server.control("GET", "model");
        for (const auto& m : model["voicemail"]) {
            if (m["id"] == id.toStdString()) {
                return m;
            }
        }
        return nullptr;
    }

    TempHome home;
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "set-default-sink speaker"}};
    DevServer server;
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    std::unique_ptr<Session> session;
    VoicemailPlayer player;
};

} // namespace

TEST_F(VoicemailPlayback, PlayingAMessageIsHeardMarksItReadAndEndsIdle) {
    signIn();
    const auto message = session->voicemail().first();
    ASSERT_FALSE(message.readAt);
    QFile::remove(Session::voicemailAudioPath(message.id));
    QSignalSpy started(&player, &VoicemailPlayer::started);
    player.playMessage(message.id);
    ASSERT_TRUE(spinUntil([&] { return started.count() == 1; }, 5s));
    EXPECT_EQ(player.currentText(), message.id);
    EXPECT_TRUE(player.playing());
    EXPECT_GT(speakerLevel(0.8), 300.0);
    EXPECT_TRUE(session->voicemail().first().readAt);
    EXPECT_TRUE(serverMessage(message.id).contains("readAt"));
    // Progress moves on while it plays.
    EXPECT_GT(player.elapsed(), 0.3);
    EXPECT_GT(player.progress(), 0.0);
    EXPECT_LT(player.progress(), 1.0);
    // To the end, then idle.
    ASSERT_TRUE(
        spinUntil([&] { return !player.current().has_value(); },
                  std::chrono::milliseconds(qint64(message.durationS.value_or(10) * 1000) + 5000)));
    EXPECT_FALSE(player.playing());
    EXPECT_EQ(player.progress(), 0.0);
    EXPECT_EQ(player.elapsed(), 0.0);
    EXPECT_LT(speakerLevel(0.4), 50.0);
    QFile::remove(Session::voicemailAudioPath(message.id));
}

TEST_F(VoicemailPlayback, PlayOnThePlayingMessagePausesAndAgainResumesWhereItWas) {
    signIn();
    const QString id = session->voicemail().first().id;
    QSignalSpy started(&player, &VoicemailPlayer::started);
    player.playMessage(id);
    ASSERT_TRUE(spinUntil([&] { return started.count() == 1; }, 5s));
    ASSERT_TRUE(spinUntil([&] { return player.elapsed() >= 0.6; }, 5s));
    player.playMessage(id);
    EXPECT_FALSE(player.playing());
    EXPECT_EQ(player.currentText(), id);
    spinUntil([] { return false; }, 300ms);
    const double pausedAt = player.elapsed();
    EXPECT_LT(speakerLevel(0.5), 50.0);
    EXPECT_EQ(player.elapsed(), pausedAt);
    player.playMessage(id);
    EXPECT_TRUE(player.playing());
    EXPECT_GT(speakerLevel(0.6), 300.0);
    EXPECT_GE(player.elapsed(), pausedAt);
    EXPECT_LT(player.elapsed(), pausedAt + 1.5);
    player.stop();
}

TEST_F(VoicemailPlayback, PlayingAnotherMessageStopsTheFirst) {
    signIn();
    const QString first = session->voicemail()[0].id;
    const QString second = session->voicemail()[1].id;
    QSignalSpy started(&player, &VoicemailPlayer::started);
    player.playMessage(first);
    ASSERT_TRUE(spinUntil([&] { return started.count() == 1; }, 5s));
    player.playMessage(second);
    ASSERT_TRUE(spinUntil([&] { return player.currentText() == second; }, 5s));
    ASSERT_TRUE(spinUntil([&] { return started.count() == 2; }, 5s));
    EXPECT_TRUE(player.playing());
    player.stop();
}

TEST_F(VoicemailPlayback, DeletingThePlayingMessageStopsTheSound) {
    signIn();
    const QString id = session->voicemail().first().id;
    const auto before = session->voicemail().size();
    QSignalSpy started(&player, &VoicemailPlayer::started);
    player.playMessage(id);
    ASSERT_TRUE(spinUntil([&] { return started.count() == 1; }, 5s));
    player.deleteMessage(id);
    EXPECT_FALSE(player.current().has_value());
    EXPECT_FALSE(player.playing());
    EXPECT_EQ(session->voicemail().size(), before - 1);
    EXPECT_LT(speakerLevel(0.5), 50.0);
    ASSERT_TRUE(spinUntil([&] { return serverMessage(id).is_null(); }));
}

TEST_F(VoicemailPlayback, ASoundThatCannotBeFetchedIsReportedAndNothingPlays) {
    signIn();
    const QString id = session->voicemail().first().id;
    QFile::remove(Session::voicemailAudioPath(id));
    server.control("POST", "faults",
                   {{"path", ("api/voicemail-messages/" + id + "/audio").toStdString()},
                    {"status", 500},
                    {"body", "gone"}});
    StderrCapture quiet;
    player.playMessage(id);
    ASSERT_TRUE(spinUntil([&] { return session->hasError(); }));
    EXPECT_EQ(session->errorText(), "HTTP 500: gone");
    EXPECT_FALSE(player.current().has_value());
    EXPECT_FALSE(session->voicemail().first().readAt);
}

TEST_F(VoicemailPlayback, DuringACallOnlyTheMessageAlreadyLoadedMayBeToggled) {
    signIn();
    // A phone over an engine of the test's own, so that a call can be made to come in.
    Phone phone(settings, std::make_shared<NullBackend>());
    phone.setClientFactory(
        [](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> delegate) {
            return std::make_shared<FakeClient>(account, std::move(delegate));
        });
    phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
    phone.start();
    phone.registrationChanged(core::RegistrationState::registered());
    player.setPhone(&phone);
    const QString first = session->voicemail()[0].id;
    const QString second = session->voicemail()[1].id;
    QSignalSpy started(&player, &VoicemailPlayer::started);
    player.playMessage(first);
    ASSERT_TRUE(spinUntil([&] { return started.count() == 1; }, 5s));
    phone.incomingCall(std::make_shared<FakeCoreCall>("sip-1", "204"));
    ASSERT_TRUE(phone.hasActiveCall());
    StderrCapture quiet;
    player.playMessage(second);
    EXPECT_EQ(session->errorText(), "Voicemail can be played after the call.");
    EXPECT_EQ(player.currentText(), first);
    // The message already loaded still pauses and goes on.
    player.playMessage(first);
    EXPECT_FALSE(player.playing());
    EXPECT_EQ(player.currentText(), first);
    player.playMessage(first);
    EXPECT_TRUE(player.playing());
    player.stop();
    player.setPhone(nullptr);
}

namespace {

// With the phone system, signed in as Ben: he has a mailbox and a desk phone
// that never answers, so his calls reach the mailbox only after the no-answer
// time (40 s here), unless he is not to be disturbed.
class VoicemailOnThePhoneSystem : public VoicemailPlayback {
protected:
    VoicemailOnThePhoneSystem() : VoicemailPlayback("u-002", {"--phone", "--no-answer-s", "40"}) {}

    void SetUp() override { server.phoneReady(); }
};

} // namespace

TEST_F(VoicemailOnThePhoneSystem, DndSendsAColleaguesCallStraightToVoicemailWhereItIsHeard) {
    signIn();
    runTask(session->setDnd(true));
    ASSERT_FALSE(session->hasError()) << session->errorText().toStdString();
    const auto before = session->voicemail().size();
    // Emma calls Ben, speaks, and hangs up long before his phone would give up ringing.
    server.control("POST", "phone/call",
                   {{"from", "u-005"}, {"to", "202"}, {"behaviour", {{"hangUpAfterMs", 7000}}}});
    ASSERT_TRUE(spinUntil(
        [&] {
            runTask(session->refreshVoicemail());
            return session->voicemail().size() > before;
        },
        25s));
    const auto message = session->voicemail().first();
    EXPECT_EQ(message.caller, "205");
    ASSERT_TRUE(message.durationS);
    EXPECT_GT(*message.durationS, 2.0);
    QFile::remove(Session::voicemailAudioPath(message.id));
    QSignalSpy started(&player, &VoicemailPlayer::started);
    player.playMessage(message.id);
    ASSERT_TRUE(spinUntil([&] { return started.count() == 1; }, 5s));
    EXPECT_GT(speakerLevel(*message.durationS), 300.0);
    ASSERT_TRUE(spinUntil([&] { return !player.current().has_value(); }, 10s));
    EXPECT_TRUE(serverMessage(message.id).contains("readAt"));
    runTask(session->deleteVoicemail(message.id));
    EXPECT_TRUE(serverMessage(message.id).is_null());
    EXPECT_FALSE(session->hasError());
    QFile::remove(Session::voicemailAudioPath(message.id));
}

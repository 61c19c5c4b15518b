#include "shell/MediaPause.h"

#include "../../unit/telephony/FakeCore.h"
#include "ManualClock.h"
#include "Services.h"
#include "audio/NullBackend.h"
#include "telephony/Phone.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

// Media players during a call, on a private session bus: two real players
// (mpv with its MPRIS script), one playing and one paused, as a user has them.
// The playing one is paused for the call and started again after it; the paused
// one is left alone both times.
namespace {

using core::RegistrationState;

class MediaPlayers : public testing::Test {
protected:
    MediaPlayers() {
        // A second of tone, looped: the players have something to play.
        const int made = QProcess::execute(
            "/usr/bin/sox", {"-n", "-r", "48000", "-c", "1", tone(), "synth", "1", "sine", "440"});
        EXPECT_EQ(made, 0);
        playing.start("/usr/bin/mpv", playerArguments(false));
        bus.waitForName(playingName);
        paused.start("/usr/bin/mpv", playerArguments(true));
        pausedName = QStringLiteral("org.mpris.MediaPlayer2.mpv.instance%1").arg(paused.pid());
        bus.waitForName(pausedName);
        EXPECT_TRUE(waitForStatus(playingName, "Playing"));
        EXPECT_TRUE(waitForStatus(pausedName, "Paused"));

        phone.setClientFactory(
            [this](const core::SipAccount& account, std::shared_ptr<core::ClientDelegate> d) {
                client = std::make_shared<FakeClient>(account, std::move(d));
                return client;
            });
        phone.setAccount({"127.0.0.1:5060", "rz.local", "ada", "secret", ""});
        phone.start();
        phone.registrationChanged(RegistrationState::registered());
    }

    QString tone() const { return dir.filePath("tone.wav"); }

    QStringList playerArguments(bool startPaused) const {
        // No user configuration; the MPRIS script named, no sound device needed.
        QStringList arguments{"--no-config",     "--script=/usr/lib/mpv-mpris/mpris.so",
                              "--ao=null",       "--vo=null",
                              "--loop-file=inf", "--no-terminal"};
        if (startPaused) {
            arguments << "--pause";
        }
        return arguments << tone();
    }

    QString status(const QString& player) {
        QDBusMessage get = QDBusMessage::createMethodCall(player, "/org/mpris/MediaPlayer2",
                                                          "org.freedesktop.DBus.Properties", "Get");
        get << QStringLiteral("org.mpris.MediaPlayer2.Player") << QStringLiteral("PlaybackStatus");
        const QDBusReply<QDBusVariant> reply = connection.call(get, QDBus::Block, 2000);
        return reply.isValid() ? reply.value().variant().toString() : reply.error().message();
    }

    bool waitForStatus(const QString& player, const QString& wanted, int boundMs = 5000) {
        QDeadlineTimer deadline(boundMs);
        while (status(player) != wanted) {
            if (deadline.hasExpired()) {
                return false;
            }
            QTest::qWait(20);
        }
        return true;
    }

    QTemporaryDir dir;
    PrivateBus bus;
    const QString playingName = QStringLiteral("org.mpris.MediaPlayer2.mpv");
    QString pausedName;
    ChildProcess playing;
    ChildProcess paused;
    QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), "players");
    MemorySettingsStore settings;
    ManualClock clock;
    Phone phone{settings, std::make_shared<NullBackend>(), clock};
    std::shared_ptr<FakeClient> client;
};

} // namespace

TEST_F(MediaPlayers, APlayingPlayerIsPausedForTheCallAndResumedAfter) {
    MediaPause pause(phone, connection);
    phone.dial("204");
    ASSERT_TRUE(waitForStatus(playingName, "Paused")) << status(playingName).toStdString();
    EXPECT_EQ(pause.paused(), QStringList{playingName});
    phone.hangUpActive();
    EXPECT_TRUE(waitForStatus(playingName, "Playing")) << status(playingName).toStdString();
    // The player that was already paused stays paused, and was never asked to play.
    EXPECT_EQ(status(pausedName), "Paused");
}

TEST_F(MediaPlayers, AnIncomingCallPausesTheMusicWhileItRings) {
    MediaPause pause(phone, connection);
    phone.incomingCall(std::make_shared<FakeCoreCall>("in-1", "204"));
    EXPECT_TRUE(waitForStatus(playingName, "Paused")) << status(playingName).toStdString();
    EXPECT_EQ(status(pausedName), "Paused");
}

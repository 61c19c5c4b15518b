#include "shell/VoicemailPlayer.h"

#include "session/Session.h"
#include "telephony/Phone.h"

#include <QAudioOutput>
#include <QFileInfo>
#include <QMediaPlayer>
#include <QUrl>

#include <algorithm>

#include <QCoro/QCoroTask>

VoicemailPlayer::VoicemailPlayer(QObject* parent) : QObject(parent) {
    m_timer.setInterval(tickMs);
    connect(&m_timer, &QTimer::timeout, this, &VoicemailPlayer::tick);
}

VoicemailPlayer::~VoicemailPlayer() = default;

// One player for the life of this object, made at the first message: a second
// message then starts without setting up the sound pipeline again.
void VoicemailPlayer::makePlayer() {
    if (m_player) {
        return;
    }
    m_output = std::make_unique<QAudioOutput>();
    m_player = std::make_unique<QMediaPlayer>();
    m_player->setAudioOutput(m_output.get());
    connect(m_player.get(), &QMediaPlayer::mediaStatusChanged, this,
            [this](QMediaPlayer::MediaStatus status) {
                if (m_current &&
                    (status == QMediaPlayer::EndOfMedia || status == QMediaPlayer::InvalidMedia)) {
                    // Finished, well or not: back to idle.
                    stop();
                }
            });
    connect(m_player.get(), &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error, const QString& text) {
                if (m_current) {
                    stop();
                    reportFailure(text);
                }
            });
    connect(m_player.get(), &QMediaPlayer::playbackStateChanged, this,
            [this](QMediaPlayer::PlaybackState state) {
                if (m_current) {
                    setPlaying(state == QMediaPlayer::PlayingState);
                }
            });
    connect(m_player.get(), &QMediaPlayer::positionChanged, this, [this](qint64 position) {
        if (m_current && !m_announced && position > 0) {
            m_announced = true;
            emit started();
        }
    });
}

bool VoicemailPlayer::play(const QString& path, const QString& id, QString* why) {
    stop();
    if (!QFileInfo(path).isReadable()) {
        if (why) {
            *why = tr("The voicemail's sound could not be read.");
        }
        return false;
    }
    makePlayer();
    m_announced = false;
    m_current = id;
    m_player->setSource(QUrl::fromLocalFile(path));
    m_player->play();
    emit currentChanged();
    setPlaying(true);
    m_timer.start();
    return true;
}

void VoicemailPlayer::toggle() {
    if (!m_player || !m_current) {
        return;
    }
    if (m_player->playbackState() == QMediaPlayer::PlayingState) {
        m_player->pause();
    } else {
        m_player->play();
    }
    setPlaying(m_player->playbackState() == QMediaPlayer::PlayingState);
}

void VoicemailPlayer::stop() {
    m_timer.stop();
    const bool hadCurrent = m_current.has_value();
    // Idle first, so that the player's own signals from here on find nothing playing.
    m_current.reset();
    if (m_player) {
        m_player->stop();
        m_player->setSource(QUrl());
    }
    if (hadCurrent) {
        emit currentChanged();
    }
    setPlaying(false);
    if (m_progress != 0 || m_elapsed != 0) {
        m_progress = 0;
        m_elapsed = 0;
        emit progressChanged();
    }
}

void VoicemailPlayer::seek(double fraction) {
    if (!m_player || !m_current || m_player->duration() <= 0) {
        return;
    }
    const double clamped = std::clamp(fraction, 0.0, 1.0);
    m_player->setPosition(qint64(clamped * double(m_player->duration())));
    tick();
}

void VoicemailPlayer::tick() {
    if (!m_player || !m_current) {
        return;
    }
    const double position = double(m_player->position()) / 1000.0;
    const double duration = double(m_player->duration()) / 1000.0;
    m_elapsed = position;
    m_progress = duration > 0 ? position / duration : 0;
    emit progressChanged();
}

void VoicemailPlayer::setPlaying(bool playing) {
    if (playing != m_playing) {
        m_playing = playing;
        emit playingChanged();
    }
}

void VoicemailPlayer::reportFailure(const QString& text) {
    if (m_session) {
        m_session->setError(text);
    }
}

namespace {

QCoro::Task<> fetchAndPlay(QPointer<VoicemailPlayer> self, QPointer<Session> session, QString id) {
    QString path;
    QString failure;
    try {
        path = co_await session->voicemailAudio(id);
    } catch (...) {
        failure = Session::failureText(std::current_exception());
    }
    if (!self || !session) {
        co_return;
    }
    if (!failure.isEmpty()) {
        session->setError(failure);
        co_return;
    }
    QString why;
    if (!self->play(path, id, &why)) {
        session->setError(why);
        co_return;
    }
    for (const auto& message : session->voicemail()) {
        if (message.id == id && !message.readAt) {
            co_await session->setRead(id, true);
            break;
        }
    }
}

} // namespace

void VoicemailPlayer::playMessage(const QString& id) {
    if (m_current == id) {
        toggle();
        return;
    }
    if (!m_session) {
        return;
    }
    if (m_phone && m_phone->hasActiveCall()) {
        // Nothing plays over a call.
        m_session->setError(tr("Voicemail can be played after the call."));
        return;
    }
    fetchAndPlay(this, m_session, id);
}

void VoicemailPlayer::deleteMessage(const QString& id) {
    if (m_current == id) {
        stop();
    }
    if (m_session) {
        m_session->deleteVoicemailFromScreen(id);
    }
}

QString VoicemailPlayer::durationText(double seconds) {
    const qint64 whole = seconds > 0 ? qint64(seconds + 0.5) : 0;
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

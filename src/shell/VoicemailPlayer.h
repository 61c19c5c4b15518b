#pragma once

#include "session/Session.h"
#include "telephony/Phone.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <memory>
#include <optional>

class QAudioOutput;
class QMediaPlayer;

// Plays one voicemail message at a time from its local file and publishes how
// far it has got, five times a second. It also carries the voicemail screen's
// row actions that involve more than one object: play (fetch the sound, play
// it, mark the message read), and delete (stop the sound first).
class VoicemailPlayer : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString current READ currentText NOTIFY currentChanged)
    Q_PROPERTY(bool playing READ playing NOTIFY playingChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(double elapsed READ elapsed NOTIFY progressChanged)
public:
    static constexpr int tickMs = 200;

    explicit VoicemailPlayer(QObject* parent = nullptr);
    ~VoicemailPlayer() override;

    // Where a row's play and delete go; the app gives them once.
    void setSession(Session* session) { m_session = session; }
    void setPhone(Phone* phone) { m_phone = phone; }

    const std::optional<QString>& current() const { return m_current; }
    QString currentText() const { return m_current.value_or(QString()); }
    bool playing() const { return m_playing; }
    double progress() const { return m_progress; }
    double elapsed() const { return m_elapsed; }

    // Sets up the sound pipeline (a few hundred ms, mostly the media backend's
    // first start), so that the first play does not wait for it.
    Q_INVOKABLE void prepare() { makePlayer(); }
    bool prepared() const { return m_player != nullptr; }

    // Starts a local file; false with the reason when it cannot be played.
    bool play(const QString& path, const QString& id, QString* why = nullptr);
    Q_INVOKABLE void toggle();
    Q_INVOKABLE void stop();
    // Moves the message being played to a fraction (0 to 1) of its length.
    Q_INVOKABLE void seek(double fraction);

    // A row's play button: toggles the message that is loaded, refuses during
    // a call, otherwise fetches the sound, plays it and marks it read.
    Q_INVOKABLE void playMessage(const QString& id);
    // A row's delete: the message's sound stops first.
    Q_INVOKABLE void deleteMessage(const QString& id);
    // The minute-and-second form of a duration: 0:07, 12:30.
    Q_INVOKABLE static QString durationText(double seconds);

signals:
    void currentChanged();
    void playingChanged();
    void progressChanged();
    // The first sound of a message has been handed to the sound server.
    void started();

private:
    void makePlayer();
    void tick();
    void setPlaying(bool playing);
    void reportFailure(const QString& text);

    std::optional<QString> m_current;
    bool m_playing = false;
    double m_progress = 0;
    double m_elapsed = 0;
    // The first sound of the present message has been announced.
    bool m_announced = false;
    std::unique_ptr<QMediaPlayer> m_player;
    std::unique_ptr<QAudioOutput> m_output;
    QTimer m_timer;
    QPointer<Session> m_session;
    QPointer<Phone> m_phone;
};

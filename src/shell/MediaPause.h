#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QStringList>

class Phone;

// Pauses the media players that are playing when a call begins (rings in or
// is dialled) and starts the same ones again when the last call ends, over
// MPRIS on the session bus. A player that does not answer is skipped.
class MediaPause : public QObject {
    Q_OBJECT
public:
    MediaPause(Phone& phone, const QDBusConnection& session, QObject* parent = nullptr);

    // The bus names of the players this paused and will resume.
    const QStringList& paused() const { return m_paused; }

signals:
    // A player was paused (true) or resumed (false).
    void acted(const QString& player, bool paused);

private:
    void update();
    void pausePlaying();
    void resumePaused();
    void call(const QString& player, const QString& method);

    Phone& m_phone;
    QDBusConnection m_bus;
    bool m_inCall = false;
    // Grows as players answer, so that a call ending before they all have
    // still resumes the ones that were paused.
    QStringList m_paused;
    int m_round = 0;
};

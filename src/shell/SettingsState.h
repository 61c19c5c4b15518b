#pragma once

#include "platform/AutostartEntry.h"
#include "shell/AvatarCrop.h"
#include "shell/SoundDeviceChoice.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

class Phone;
class Session;

// What the settings window reads beyond the session and the shell state:
// starting at login, the user's own picture and its crop, the connection
// lines, and the two ways of signing out.
class SettingsState : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool openAtLogin READ openAtLogin NOTIFY openAtLoginChanged)
    Q_PROPERTY(QString loginError READ loginError NOTIFY openAtLoginChanged)
    Q_PROPERTY(QString extension READ extension NOTIFY meChanged)
    Q_PROPERTY(bool hasAvatar READ hasAvatar NOTIFY meChanged)
    Q_PROPERTY(QUrl avatarImage READ avatarImage NOTIFY avatarImageChanged)
    Q_PROPERTY(bool uploading READ uploading NOTIFY uploadingChanged)
    Q_PROPERTY(AvatarCrop* crop READ crop NOTIFY cropChanged)
    Q_PROPERTY(QString sipUser READ sipUser NOTIFY accountChanged)
    Q_PROPERTY(QString sipServer READ sipServer NOTIFY accountChanged)
    Q_PROPERTY(QString liveStatus READ liveStatus NOTIFY liveChanged)
    Q_PROPERTY(SoundDeviceChoice* sound READ sound CONSTANT)
public:
    // Pictures larger than this are refused before they are decoded.
    static constexpr qint64 largestPicture = 20LL * 1024 * 1024;

    SettingsState(Phone& phone, Session& session, SettingsStore& settings,
                  std::unique_ptr<AutostartEntry> autostart, QObject* parent = nullptr);
    ~SettingsState() override;

    // Read back from the entry each time the window asks, so a change made
    // outside the app shows.
    bool openAtLogin() const { return m_openAtLogin; }
    QString loginError() const { return m_loginError; }
    Q_INVOKABLE void setOpenAtLogin(bool on);
    Q_INVOKABLE void refreshOpenAtLogin();

    QString extension() const;
    bool hasAvatar() const;
    // The picture's address for the image provider, once its bytes are at hand.
    QUrl avatarImage() const { return m_avatarImage; }
    bool uploading() const { return m_uploading; }

    // Asks the desktop's file chooser for a picture (through the portal where
    // the app runs in one); the chosen file goes to openPicture.
    Q_INVOKABLE void choosePicture();
    // Opens a picture for cropping; a picture that cannot be read or is too
    // large is refused with a sentence in the session's error.
    Q_INVOKABLE bool openPicture(const QUrl& file);
    AvatarCrop* crop() const { return m_crop.get(); }
    // "Use": the framed part is uploaded as the user's picture.
    Q_INVOKABLE void useCrop();
    Q_INVOKABLE void cancelCrop();
    Q_INVOKABLE void removePicture();

    // The phone system's echo test: what is said comes back, so the user
    // hears their microphone, speaker and connection at once.
    static constexpr char echoExtension[] = "999";
    Q_INVOKABLE void testCall();

    // The ringing device and the call's devices.
    SoundDeviceChoice* sound() { return &m_sound; }

    QString sipUser() const;
    QString sipServer() const;
    QString liveStatus() const;

    // Removing the device deletes it from the user's devices; keeping it
    // revokes the sign-in on the server and lets it sign in again as itself.
    Q_INVOKABLE void signOut(bool removeDevice);

signals:
    void openAtLoginChanged();
    void meChanged();
    void avatarImageChanged();
    void uploadingChanged();
    void cropChanged();
    void accountChanged();
    void liveChanged();
    // An upload finished, with or without success.
    void uploadFinished();

private:
    void loadAvatar();
    void setUploading(bool uploading);

    Phone& m_phone;
    QPointer<Session> m_session;
    std::unique_ptr<AutostartEntry> m_autostart;
    bool m_openAtLogin = false;
    QString m_loginError;
    QUrl m_avatarImage;
    bool m_uploading = false;
    std::unique_ptr<AvatarCrop> m_crop;
    SoundDeviceChoice m_sound;
};

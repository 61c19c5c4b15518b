#include "shell/SettingsState.h"

#include "session/Session.h"
#include "shell/AvatarImageProvider.h"
#include "telephony/Phone.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QImageReader>

#include <QCoro/QCoroTask>

namespace {

QCoro::Task<> fetchAvatar(QPointer<SettingsState> self, QPointer<Session> session, AvatarRef ref,
                          std::function<void(bool)> done) {
    const auto bytes = co_await session->avatarData(ref);
    if (self) {
        done(bytes.has_value());
    }
}

QCoro::Task<> upload(QPointer<SettingsState> self, QPointer<Session> session, QByteArray jpeg,
                     std::function<void()> done) {
    co_await session->uploadAvatar(jpeg);
    if (self) {
        done();
    }
}

} // namespace

SettingsState::SettingsState(Phone& phone, Session& session, SettingsStore& settings,
                             std::unique_ptr<AutostartEntry> autostart, QObject* parent)
    : QObject(parent), m_phone(phone), m_session(&session), m_autostart(std::move(autostart)),
      m_sound(settings) {
    m_openAtLogin = m_autostart->enabled();
    // Queued, so that an upload's bytes are in the session's memory before
    // the new reference is asked for.
    connect(&session, &Session::meChanged, this, &SettingsState::meChanged);
    connect(&session, &Session::meChanged, this, &SettingsState::loadAvatar, Qt::QueuedConnection);
    connect(&phone, &Phone::accountChanged, this, &SettingsState::accountChanged);
    connect(&session.live(), &Live::connectedChanged, this, &SettingsState::liveChanged);
    loadAvatar();
}

SettingsState::~SettingsState() = default;

void SettingsState::setOpenAtLogin(bool on) {
    const auto failure = m_autostart->setEnabled(on);
    m_loginError = failure.value_or(QString());
    // What the file says wins, so a refused change puts the switch back.
    m_openAtLogin = m_autostart->enabled();
    emit openAtLoginChanged();
}

void SettingsState::refreshOpenAtLogin() {
    const bool on = m_autostart->enabled();
    if (on != m_openAtLogin) {
        m_openAtLogin = on;
        emit openAtLoginChanged();
    }
}

QString SettingsState::extension() const {
    return m_session && m_session->me() ? m_session->me()->extension_.value_or(QString())
                                        : QString();
}

bool SettingsState::hasAvatar() const {
    return m_session && m_session->me() && m_session->me()->avatar.has_value();
}

void SettingsState::loadAvatar() {
    if (!hasAvatar()) {
        if (!m_avatarImage.isEmpty()) {
            m_avatarImage.clear();
            emit avatarImageChanged();
        }
        return;
    }
    const AvatarRef ref = *m_session->me()->avatar;
    const QUrl address(QStringLiteral("image://") + QString::fromLatin1(AvatarImageProvider::name) +
                       u'/' + AvatarImageProvider::keyOf(ref));
    if (address == m_avatarImage) {
        return;
    }
    fetchAvatar(this, m_session, ref, [this, ref, address](bool found) {
        // Another picture may have come meanwhile.
        if (!found || !hasAvatar() || *m_session->me()->avatar != ref) {
            return;
        }
        m_avatarImage = address;
        emit avatarImageChanged();
    });
}

void SettingsState::setUploading(bool uploading) {
    if (uploading != m_uploading) {
        m_uploading = uploading;
        emit uploadingChanged();
    }
}

void SettingsState::choosePicture() {
    auto* dialog = new QFileDialog(nullptr, tr("Change picture"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setMimeTypeFilters({QStringLiteral("image/jpeg"), QStringLiteral("image/png"),
                                QStringLiteral("image/webp"), QStringLiteral("image/gif"),
                                QStringLiteral("image/bmp"),
                                QStringLiteral("application/octet-stream")});
    connect(dialog, &QFileDialog::urlSelected, this, [this](const QUrl& url) { openPicture(url); });
    dialog->open();
}

bool SettingsState::openPicture(const QUrl& file) {
    if (!m_session) {
        return false;
    }
    const QString path = file.isLocalFile() ? file.toLocalFile() : file.toString();
    const QFileInfo info(path);
    if (info.isFile() && info.size() > largestPicture) {
        m_session->setError(tr(
            "This picture is larger than 20 MB. Choose a smaller one, or make it smaller first."));
        return false;
    }
    QImageReader reader(path);
    // The picture stands as the camera meant it, as the view shows it.
    reader.setAutoTransform(true);
    QImage image = reader.read();
    if (image.isNull() || image.width() < 1 || image.height() < 1) {
        m_session->setError(tr("This picture could not be opened."));
        return false;
    }
    m_crop = std::make_unique<AvatarCrop>(std::move(image),
                                          QUrl::fromLocalFile(info.absoluteFilePath()));
    emit cropChanged();
    return true;
}

void SettingsState::useCrop() {
    if (!m_crop) {
        return;
    }
    const QByteArray jpeg = m_crop->jpeg();
    m_crop.reset();
    emit cropChanged();
    if (jpeg.isEmpty() || !m_session) {
        return;
    }
    setUploading(true);
    upload(this, m_session, jpeg, [this] {
        setUploading(false);
        emit uploadFinished();
    });
}

void SettingsState::cancelCrop() {
    if (m_crop) {
        m_crop.reset();
        emit cropChanged();
    }
}

void SettingsState::removePicture() {
    if (m_session) {
        m_session->deleteAvatar();
    }
}

void SettingsState::testCall() {
    m_phone.dial(QString::fromLatin1(echoExtension));
}

QString SettingsState::sipUser() const {
    return m_phone.account().username;
}

QString SettingsState::sipServer() const {
    return m_phone.account().server;
}

QString SettingsState::liveStatus() const {
    return m_session && m_session->live().connected() ? tr("Connected") : tr("Not connected");
}

void SettingsState::signOut(bool removeDevice) {
    if (!m_session) {
        return;
    }
    if (removeDevice) {
        m_session->signOutFromScreen(true);
    } else {
        m_session->signOutKeepingDeviceFromScreen();
    }
}

#include "shell/AvatarImageProvider.h"

#include "session/Session.h"

#include <QImage>

AvatarImageProvider::AvatarImageProvider(Session& session)
    : QQuickImageProvider(QQuickImageProvider::Image), m_session(&session) {}

QString AvatarImageProvider::keyOf(const AvatarRef& ref) {
    return DirectoryModel::avatarKey(ref);
}

std::optional<AvatarRef> AvatarImageProvider::refOf(const QString& key) {
    return DirectoryModel::avatarRefOf(key);
}

QImage AvatarImageProvider::requestImage(const QString& id, QSize* size,
                                         const QSize& requestedSize) {
    QImage image;
    const auto ref = refOf(id);
    if (m_session && ref) {
        // Pictures of any format the image plugins read; the server sends JPEG.
        image = QImage::fromData(m_session->avatarImages().value(*ref));
    }
    if (!image.isNull() && requestedSize.isValid()) {
        image =
            image.scaled(requestedSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    }
    if (size) {
        *size = image.size();
    }
    return image;
}

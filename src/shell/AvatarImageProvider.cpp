#include "shell/AvatarImageProvider.h"

#include "session/Session.h"

#include <QImage>

namespace {

constexpr auto encoding = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;

} // namespace

AvatarImageProvider::AvatarImageProvider(Session& session)
    : QQuickImageProvider(QQuickImageProvider::Image), m_session(&session) {}

QString AvatarImageProvider::keyOf(const AvatarRef& ref) {
    return DirectoryModel::avatarKey(ref);
}

std::optional<AvatarRef> AvatarImageProvider::refOf(const QString& key) {
    const auto parts = key.split(u'.');
    if (parts.size() != 2) {
        return std::nullopt;
    }
    const auto url = QByteArray::fromBase64Encoding(parts[0].toLatin1(), encoding);
    const auto version = QByteArray::fromBase64Encoding(parts[1].toLatin1(), encoding);
    if (!url || !version) {
        return std::nullopt;
    }
    return AvatarRef{QString::fromUtf8(*url), QString::fromUtf8(*version)};
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

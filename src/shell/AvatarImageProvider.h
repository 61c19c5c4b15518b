#pragma once

#include "api/Records.h"

#include <QPointer>
#include <QQuickImageProvider>
#include <QString>

class Session;

// Pictures the session holds in memory, for QML: "image://avatars/" + key.
// Only pictures already at hand are served; the list asks the session for
// the rest and changes the row's address once one arrives.
class AvatarImageProvider : public QQuickImageProvider {
public:
    static constexpr char name[] = "avatars";

    explicit AvatarImageProvider(Session& session);

    // The key of a picture: url and version, each base64url, joined by ".".
    static QString keyOf(const AvatarRef& ref);
    static std::optional<AvatarRef> refOf(const QString& key);

    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;

private:
    QPointer<Session> m_session;
};

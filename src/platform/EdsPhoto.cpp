// GLib's headers name a struct member "signals", which Qt defines as a macro:
// they come first.
#include <libebook/libebook.h>

#include "platform/EdsPhoto.h"

#include <QFile>
#include <QUrl>

std::optional<QByteArray> contactPhoto(EContact* contact) {
    auto* photo = static_cast<EContactPhoto*>(e_contact_get(contact, E_CONTACT_PHOTO));
    if (!photo) {
        return std::nullopt;
    }
    std::optional<QByteArray> bytes;
    if (photo->type == E_CONTACT_PHOTO_TYPE_INLINED) {
        gsize length = 0;
        const guchar* data = e_contact_photo_get_inlined(photo, &length);
        if (data) {
            bytes = QByteArray(reinterpret_cast<const char*>(data), qsizetype(length));
        }
    } else if (const char* uri = e_contact_photo_get_uri(photo)) {
        QFile file(QUrl(QString::fromUtf8(uri)).toLocalFile());
        if (file.open(QIODevice::ReadOnly)) {
            bytes = file.readAll();
        }
    }
    e_contact_photo_free(photo);
    return bytes;
}

#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <optional>

// Pure pieces of the authorization server, kept apart so that they are tested
// without a socket.
namespace rzdev {

// application/x-www-form-urlencoded as any form decoder reads it: "+" is a
// space, then percent-decoding. Nothing when a percent escape is broken.
std::optional<QList<QPair<QString, QString>>> decodeForm(const QByteArray& body);

// The value of the first field with that name, if any.
std::optional<QString> formValue(const QList<QPair<QString, QString>>& form, const QString& name);

// base64url of SHA-256 over the verifier, without padding (RFC 7636 S256).
QString s256Challenge(const QString& verifier);

// A verifier is 43 to 128 characters of the unreserved set and must hash to
// the challenge.
bool verifierMatches(const QString& verifier, const QString& challenge);

// URL-safe random text of n bytes of entropy.
QString randomToken(int bytes);

} // namespace rzdev

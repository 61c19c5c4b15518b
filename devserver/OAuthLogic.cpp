#include "OAuthLogic.h"

#include <QCryptographicHash>
#include <QRandomGenerator>

namespace rzdev {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::optional<QString> decodeComponent(const QByteArray& raw) {
    QByteArray out;
    out.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (c == '+') {
            out += ' ';
        } else if (c == '%') {
            if (i + 2 >= raw.size()) {
                return std::nullopt;
            }
            const int high = hexValue(raw[i + 1]);
            const int low = hexValue(raw[i + 2]);
            if (high < 0 || low < 0) {
                return std::nullopt;
            }
            out += char(high * 16 + low);
            i += 2;
        } else {
            out += c;
        }
    }
    return QString::fromUtf8(out);
}

} // namespace

std::optional<QList<QPair<QString, QString>>> decodeForm(const QByteArray& body) {
    QList<QPair<QString, QString>> form;
    if (body.isEmpty()) {
        return form;
    }
    for (const auto& part : body.split('&')) {
        if (part.isEmpty()) {
            continue;
        }
        const auto equals = part.indexOf('=');
        const auto name = decodeComponent(equals < 0 ? part : part.left(equals));
        const auto value = decodeComponent(equals < 0 ? QByteArray() : part.mid(equals + 1));
        if (!name || !value) {
            return std::nullopt;
        }
        form.append({*name, *value});
    }
    return form;
}

std::optional<QString> formValue(const QList<QPair<QString, QString>>& form, const QString& name) {
    for (const auto& [key, value] : form) {
        if (key == name) {
            return value;
        }
    }
    return std::nullopt;
}

QString s256Challenge(const QString& verifier) {
    const auto digest = QCryptographicHash::hash(verifier.toUtf8(), QCryptographicHash::Sha256);
    return QString::fromLatin1(
        digest.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

bool verifierMatches(const QString& verifier, const QString& challenge) {
    if (verifier.size() < 43 || verifier.size() > 128) {
        return false;
    }
    for (const QChar c : verifier) {
        const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                                (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                                c == '~';
        if (!unreserved) {
            return false;
        }
    }
    return s256Challenge(verifier) == challenge;
}

QString randomToken(int bytes) {
    QByteArray raw(bytes, Qt::Uninitialized);
    for (auto& b : raw) {
        b = char(QRandomGenerator::system()->bounded(256));
    }
    return QString::fromLatin1(
        raw.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

} // namespace rzdev

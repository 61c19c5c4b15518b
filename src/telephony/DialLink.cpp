#include "telephony/DialLink.h"

#include <QRegularExpression>
#include <QUrl>

namespace DialLink {

bool isDialScheme(const QString& scheme) {
    const QString lower = scheme.toLower();
    return lower == u"tel" || lower == u"sip" || lower == u"callto";
}

QString schemeOf(const QString& link) {
    const qsizetype colon = link.indexOf(u':');
    return colon > 0 ? link.left(colon).trimmed().toLower() : QString();
}

std::optional<QString> number(const QString& link) {
    const QString scheme = schemeOf(link);
    if (!isDialScheme(scheme)) {
        return std::nullopt;
    }
    QString text = QUrl::fromPercentEncoding(link.mid(link.indexOf(u':') + 1).trimmed().toUtf8());
    while (text.startsWith(u'/')) {
        text.remove(0, 1);
    }
    // tel: parameters (";phone-context=..."), SIP URI parameters and headers.
    const qsizetype end = text.indexOf(QRegularExpression(QStringLiteral("[;?]")));
    if (end >= 0) {
        text.truncate(end);
    }
    const qsizetype at = text.indexOf(u'@');
    if (at >= 0) {
        text.truncate(at);
    }
    QString number;
    for (const QChar c : text) {
        if (c.isSpace() || c == u'-' || c == u'.' || c == u'(' || c == u')' || c == u'/') {
            continue;
        }
        number.append(c);
    }
    if (number.isEmpty()) {
        return std::nullopt;
    }
    return number;
}

} // namespace DialLink

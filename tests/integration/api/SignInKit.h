#pragma once

#include "DevServer.h"

#include <QNetworkAccessManager>
#include <QUrl>
#include <QUrlQuery>

#include <stdexcept>

// What the browser does in a sign-in against rz-devserver started with
// --auto-approve: it opens the authorize address and is sent on to the
// app's redirect address, which this returns.
inline QUrl browserSignIn(const QUrl& authorizeUrl) {
    QNetworkAccessManager network;
    const HttpResult answer = httpRequest(network, "GET", authorizeUrl);
    if (answer.status != 302) {
        throw std::runtime_error("authorize answered " + std::to_string(answer.status) + ": " +
                                 answer.body.toStdString());
    }
    return QUrl(QString::fromUtf8(answer.header("Location")));
}

inline QString queryItem(const QUrl& url, const char* name) {
    return QUrlQuery(url).queryItemValue(QString::fromLatin1(name), QUrl::FullyDecoded);
}

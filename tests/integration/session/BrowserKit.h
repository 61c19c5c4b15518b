#pragma once

#include "session/Session.h"

#include "../api/SignInKit.h"

// Gives the session a browser that signs in on rz-devserver (started with
// --auto-approve) and hands the redirect back, as the desktop does, on the
// next turn of the event loop.
inline void useSigningInBrowser(Session& session) {
    session.setOpenBrowser([&session](const QUrl& url) {
        const QUrl redirect = browserSignIn(url);
        QMetaObject::invokeMethod(
            &session, [&session, redirect] { session.handleRedirect(redirect); },
            Qt::QueuedConnection);
        return true;
    });
}

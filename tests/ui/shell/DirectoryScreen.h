#pragma once

#include "ScreenHost.h"

#include "../../integration/session/BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "shell/AvatarImageProvider.h"

#include <QTemporaryDir>

// The directory screen against rz-devserver, signed in as Anna, in a window
// of its own; grabbed to build/screenshots.

inline const QByteArray directoryView = R"(
    DirectoryView {
        objectName: "directoryView"
        anchors.fill: parent
        session: w.session
        phone: w.phone
        shell: w.shell
    }
)";

class DirectoryScreen : public ScreenHost {
protected:
    void SetUp() override {
        qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
        ScreenHost::SetUp();
        settings.setUrl("rz.server", server.url());
        restart();
        engine.addImageProvider(AvatarImageProvider::name,
                                new AvatarImageProvider(app().session()));
        useSigningInBrowser(app().session());
    }

    void TearDown() override {
        ScreenHost::TearDown();
        engine.removeImageProvider(AvatarImageProvider::name);
    }

    // Signed in, with enter() done as far as the directory read it starts.
    void signIn() {
        app().session().signIn();
        ASSERT_TRUE(spinUntil(
            [&] { return app().session().me().has_value() || app().session().hasError(); },
            std::chrono::milliseconds(10000)));
        ASSERT_FALSE(app().session().hasError()) << app().session().errorText().toStdString();
    }

    bool shows(const char* name) {
        QQuickItem* found = item(name);
        return found && found->isVisible();
    }

    // The delegates the list shows now, in order (pooled ones left out).
    QList<QQuickItem*> rows() {
        QList<QQuickItem*> shown;
        QQuickItem* list = item("directoryList");
        const int count = list ? list->property("count").toInt() : 0;
        for (int i = 0; i < count; ++i) {
            QQuickItem* delegate = nullptr;
            QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem*, delegate),
                                      Q_ARG(int, i));
            if (delegate) {
                shown.append(delegate);
            }
        }
        return shown;
    }

    QStringList rowNames() {
        QStringList names;
        for (QQuickItem* delegate : rows()) {
            names.append(delegate->property("name").toString());
        }
        return names;
    }

    QQuickItem* row(const QString& name) {
        for (QQuickItem* delegate : rows()) {
            if (delegate->property("name").toString() == name) {
                return delegate;
            }
        }
        return nullptr;
    }

    void search(const QString& text) { item("directorySearch")->setProperty("text", text); }

    QTemporaryDir caches;
    DevServer server{{"--auto-approve", "u-001"}};
};

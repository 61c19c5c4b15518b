#pragma once

#include "Services.h"

#include <QJsonObject>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <optional>

// A wlroots compositor (sway) of its own with no screen and no input
// devices, for a test that needs a real Wayland session: its own runtime
// folder and configuration, its windows read from its IPC tree. sway refuses
// to run as root, so under root it runs as the unprivileged user "nobody".
class HeadlessSway {
public:
    // `configuration`: lines added to the test's sway configuration.
    explicit HeadlessSway(const QString& configuration = {});
    ~HeadlessSway();
    HeadlessSway(const HeadlessSway&) = delete;
    HeadlessSway& operator=(const HeadlessSway&) = delete;

    // The Wayland socket as an absolute path, for WAYLAND_DISPLAY.
    QString waylandDisplay() const { return m_wayland; }
    // What a Wayland client of this compositor needs in its environment.
    QProcessEnvironment clientEnvironment(QProcessEnvironment environment) const;

    // The window the compositor has focused: its pid, app id and title.
    struct View {
        qint64 pid = 0;
        QString appId;
        QString title;
    };
    std::optional<View> focused();
    // Every window mapped now.
    QList<View> views();
    // Runs an IPC command such as "[pid=42] focus"; false when sway refused it.
    bool command(const QString& command);

private:
    QJsonObject tree();
    QByteArray message(const QStringList& arguments);

    QTemporaryDir m_dir;
    QString m_runtime;
    QString m_wayland;
    QString m_ipc;
    ChildProcess m_sway;
};

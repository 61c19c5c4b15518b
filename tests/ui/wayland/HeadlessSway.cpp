#include "HeadlessSway.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QThread>

#include <stdexcept>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The user sway runs as when the test runs as root.
constexpr uid_t unprivileged = 65534;

void collect(const QJsonObject& node, QList<QJsonObject>& into) {
    if (node.contains(QStringLiteral("pid"))) {
        into.append(node);
    }
    for (const char* children : {"nodes", "floating_nodes"}) {
        for (const QJsonValue& child : node.value(QLatin1String(children)).toArray()) {
            collect(child.toObject(), into);
        }
    }
}

HeadlessSway::View viewOf(const QJsonObject& node) {
    return {node.value(QStringLiteral("pid")).toInteger(),
            node.value(QStringLiteral("app_id")).toString(),
            node.value(QStringLiteral("name")).toString()};
}

} // namespace

HeadlessSway::HeadlessSway(const QString& configuration) {
    if (!m_dir.isValid()) {
        throw std::runtime_error("cannot make a folder for the compositor");
    }
    const bool root = ::geteuid() == 0;
    // The compositor's user must reach its runtime folder and configuration.
    ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
    m_runtime = m_dir.filePath("run");
    QDir().mkpath(m_runtime);
    ::chmod(QFile::encodeName(m_runtime).constData(), 0700);
    if (root &&
        ::chown(QFile::encodeName(m_runtime).constData(), unprivileged, unprivileged) != 0) {
        throw std::runtime_error("cannot hand the runtime folder to the compositor's user");
    }
    const QString config = m_dir.filePath("config");
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) {
        throw std::runtime_error("cannot write the compositor's configuration");
    }
    file.write("output HEADLESS-1 resolution 1280x800\nxwayland disable\n" +
               configuration.toUtf8() + "\n");
    file.close();
    ::chmod(QFile::encodeName(config).constData(), 0644);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", m_runtime);
    environment.insert("HOME", m_runtime);
    environment.insert("WLR_BACKENDS", "headless");
    environment.insert("WLR_LIBINPUT_NO_DEVICES", "1");
    environment.insert("WLR_RENDERER", "pixman");
    environment.remove("DISPLAY");
    environment.remove("WAYLAND_DISPLAY");
    environment.remove("DBUS_SESSION_BUS_ADDRESS");
    if (root) {
        // setpriv replaces itself with sway, so the pid is sway's.
        m_sway.start("setpriv",
                     {"--reuid=" + QString::number(unprivileged),
                      "--regid=" + QString::number(unprivileged), "--clear-groups", "sway", "-c",
                      config},
                     environment);
    } else {
        m_sway.start("sway", {"-c", config}, environment);
    }
    // Ready once both its sockets are there and its IPC answers.
    const QDeadlineTimer deadline(15000);
    while (m_ipc.isEmpty() || m_wayland.isEmpty() || message({"-t", "get_version"}).isEmpty()) {
        if (deadline.hasExpired() || !m_sway.running()) {
            const QString log = QString::fromUtf8(m_sway.process().readAllStandardError());
            m_sway.stop();
            throw std::runtime_error("sway did not start: " + log.toStdString());
        }
        const QDir run(m_runtime);
        const QStringList ipc = run.entryList({"sway-ipc.*.sock"}, QDir::System);
        const QStringList wayland = run.entryList({"wayland-*"}, QDir::System);
        if (!ipc.isEmpty()) {
            m_ipc = run.filePath(ipc.first());
        }
        for (const QString& name : wayland) {
            if (!name.endsWith(".lock")) {
                m_wayland = run.filePath(name);
            }
        }
        QThread::msleep(20);
    }
}

HeadlessSway::~HeadlessSway() {
    m_sway.stop();
}

QProcessEnvironment HeadlessSway::clientEnvironment(QProcessEnvironment environment) const {
    environment.insert("WAYLAND_DISPLAY", m_wayland);
    environment.insert("QT_QPA_PLATFORM", "wayland");
    environment.remove("DISPLAY");
    return environment;
}

QByteArray HeadlessSway::message(const QStringList& arguments) {
    if (m_ipc.isEmpty()) {
        return {};
    }
    QProcess swaymsg;
    swaymsg.start("swaymsg", QStringList{"-s", m_ipc, "-r"} + arguments);
    if (!swaymsg.waitForFinished(10000)) {
        swaymsg.kill();
        swaymsg.waitForFinished();
        return {};
    }
    return swaymsg.exitCode() == 0 ? swaymsg.readAllStandardOutput() : QByteArray();
}

QJsonObject HeadlessSway::tree() {
    return QJsonDocument::fromJson(message({"-t", "get_tree"})).object();
}

std::optional<HeadlessSway::View> HeadlessSway::focused() {
    QList<QJsonObject> nodes;
    collect(tree(), nodes);
    for (const QJsonObject& node : nodes) {
        if (node.value(QStringLiteral("focused")).toBool()) {
            return viewOf(node);
        }
    }
    return std::nullopt;
}

QList<HeadlessSway::View> HeadlessSway::views() {
    QList<QJsonObject> nodes;
    collect(tree(), nodes);
    QList<View> views;
    for (const QJsonObject& node : nodes) {
        views.append(viewOf(node));
    }
    return views;
}

bool HeadlessSway::command(const QString& command) {
    const QJsonArray results = QJsonDocument::fromJson(message({command})).array();
    if (results.isEmpty()) {
        return false;
    }
    for (const QJsonValue& result : results) {
        if (!result.toObject().value(QStringLiteral("success")).toBool()) {
            return false;
        }
    }
    return true;
}

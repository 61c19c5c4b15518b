#include "platform/AutostartEntry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

QString userEntryPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/") + QString::fromLatin1(AutostartEntry::fileName);
}

// Desktop entries quote an Exec argument that holds a space or a reserved sign.
QString execArgument(const QString& program) {
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool quote = false;
    for (const QChar c : program) {
        quote = quote || reserved.contains(c);
    }
    if (!quote) {
        return program;
    }
    QString escaped;
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\') {
            escaped += u'\\';
        }
        escaped += c;
    }
    return u'"' + escaped + u'"';
}

} // namespace

AutostartEntry::AutostartEntry(QString program)
    : m_path(userEntryPath()), m_program(std::move(program)) {}

AutostartEntry::AutostartEntry(QString path, QString program)
    : m_path(std::move(path)), m_program(std::move(program)) {}

bool AutostartEntry::enabled() const {
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return false;
    }
    // Only the main group counts; an action's Hidden key is another matter.
    bool inMain = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inMain = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inMain) {
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (equals > 0 && line.left(equals).trimmed() == QLatin1String("Hidden") &&
            line.mid(equals + 1).trimmed() == QLatin1String("true")) {
            return false;
        }
    }
    return true;
}

std::optional<QString> AutostartEntry::setEnabled(bool on) {
    if (!on) {
        QFile file(m_path);
        if (file.exists() && !file.remove()) {
            return QObject::tr("The autostart entry could not be removed: %1")
                .arg(file.errorString());
        }
        return std::nullopt;
    }
    const QFileInfo info(m_path);
    if (!QDir().mkpath(info.absolutePath())) {
        return QObject::tr("The autostart folder %1 could not be made.")
            .arg(QDir::toNativeSeparators(info.absolutePath()));
    }
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        return QObject::tr("The autostart entry could not be written: %1").arg(file.errorString());
    }
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=velnor RZ\n"
                                        "Comment=Calls reach this computer from login on\n"
                                        "Exec=%1\n"
                                        "Icon=net.velnor.rz\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(execArgument(m_program));
    file.write(text.toUtf8());
    if (!file.commit()) {
        return QObject::tr("The autostart entry could not be written: %1").arg(file.errorString());
    }
    return std::nullopt;
}

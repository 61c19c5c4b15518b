#pragma once

#include <QString>

#include <optional>

// The desktop's autostart entry for the app
// ($XDG_CONFIG_HOME/autostart/net.velnor.rz.desktop). Whether it is on is
// always read back from the file, so an entry removed or hidden by hand, or
// by the desktop's own settings, shows as off.
class AutostartEntry {
public:
    static constexpr char fileName[] = "net.velnor.rz.desktop";

    // The entry in the user's autostart folder, starting `program`.
    explicit AutostartEntry(QString program);
    // The entry at `path`, for tests.
    AutostartEntry(QString path, QString program);

    QString path() const { return m_path; }
    // The entry exists and does not say Hidden=true.
    bool enabled() const;
    // Writes or removes the entry; a failure is the sentence to show.
    std::optional<QString> setEnabled(bool on);

private:
    QString m_path;
    QString m_program;
};

#pragma once

#include <QObject>

#include <optional>

class QDBusVariant;

// Whether the desktop wants a dark look. GNOME and KDE both publish the
// choice through the desktop portal's "color-scheme" setting; where no portal
// answers, the application palette's window colour decides.
class Appearance : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool dark READ dark NOTIFY darkChanged)
public:
    explicit Appearance(QObject* parent = nullptr);

    bool dark() const { return m_dark; }

    // The portal's color-scheme: 1 prefers dark, 2 prefers light, 0 (or no
    // answer) has no preference and leaves it to the palette.
    static bool isDark(std::optional<uint> colorScheme, bool paletteIsDark);

signals:
    void darkChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private slots:
    void settingChanged(const QString& group, const QString& key, const QDBusVariant& value);

private:
    void askPortal();
    void update();

    std::optional<uint> m_colorScheme;
    bool m_dark = false;
};

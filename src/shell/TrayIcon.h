#pragma once

#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QRect>
#include <QVariantMap>

#include <memory>

class Phone;
class RecentsModel;
class QQmlEngine;
class QSystemTrayIcon;

// The app's icon in the desktop's tray (StatusNotifierItem, or XEmbed where
// that is what the desktop has) and the compact phone panel it opens. The
// icon carries the registration state in its picture and its tooltip.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    // The panel is made from `panelProperties` (session, phone, shell) on first use.
    TrayIcon(Phone& phone, QQmlEngine& engine, QVariantMap panelProperties,
             QObject* parent = nullptr);
    ~TrayIcon() override;

    // Puts the icon up; false where the desktop shows no tray (GNOME
    // without an AppIndicator extension) or no QApplication runs.
    bool install();
    // Takes the icon and the panel down.
    void remove();
    bool installed() const { return m_icon != nullptr; }

    // Opens the panel beside the icon, or closes it when it shows.
    void toggle();
    void hidePanel();
    QQuickWindow* panel() const { return m_panel; }

    // "velnor RZ", then the registration in words.
    static QString tooltip(const QString& registrationWord);

    // --- call history ---
    // Missed calls the user has not looked at yet, counted on a line of the tooltip.
    void setMissedCalls(int count);
    // Keeps the count in step with the recents list's.
    void followMissedCalls(RecentsModel& recents);
    int missedCalls() const { return m_missedCalls; }
    // "1 missed call", "3 missed calls"; empty for none.
    static QString missedLine(int count);
    // What the icon's tooltip says now; empty while the icon is not up.
    QString toolTip() const;
    // --- end of call history ---

signals:
    void installedChanged();

private:
    void refresh();
    QRect anchor() const;
    bool makePanel();

    Phone& m_phone;
    QQmlEngine& m_engine;
    QVariantMap m_panelProperties;
    std::unique_ptr<QSystemTrayIcon> m_icon;
    QPointer<QQuickWindow> m_panel;
    // --- call history ---
    int m_missedCalls = 0;
};

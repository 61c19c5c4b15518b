#pragma once

#include "telephony/Phone.h"

#include <QIcon>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QQuickWindow>
#include <QRect>
#include <QVariantMap>

#include <memory>

class Phone;
class RecentsModel;
class QQmlEngine;
class QSystemTrayIcon;
class StatusNotifierItem;

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

    // Puts the icon up and keeps it up: in a StatusNotifierItem tray
    // whenever one is there (also one that starts later), else in an XEmbed
    // tray. True when the icon shows at once; installedChanged tells of a tray
    // that takes it later or goes away. False where no QApplication runs.
    bool install();
    // Takes the icon and the panel down.
    void remove();
    // Whether a tray shows the icon now.
    bool installed() const;

    // Opens the panel beside the icon, or closes it when it shows.
    void toggle();
    void hidePanel();
    QQuickWindow* panel() const { return m_panel; }

    // "velnor RZ", then the registration in words.
    static QString tooltip(const QString& registrationWord);

    // --- voicemail badge ---
    // Unread messages, counted on the icon's top corner; 0 shows none.
    void setUnreadVoicemail(int count);
    int unreadVoicemail() const { return m_unreadVoicemail; }
    // The icon's picture for a registration and an unread count.
    static QIcon iconOf(Phone::Registration::Kind kind, int unreadVoicemail);
    // --- end of voicemail badge ---
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
    void followTrays();
    QRect anchor() const;
    bool makePanel();

    Phone& m_phone;
    QQmlEngine& m_engine;
    QVariantMap m_panelProperties;
    // The desktop's StatusNotifierItem tray, spoken to directly.
    std::unique_ptr<StatusNotifierItem> m_item;
    // The toolkit's icon, for an XEmbed tray when no StatusNotifierItem tray is there.
    std::unique_ptr<QSystemTrayIcon> m_icon;
    bool m_wasInstalled = false;
    // Where the tray's host said it was clicked.
    QPoint m_clickedAt;
    QPointer<QQuickWindow> m_panel;
    // --- voicemail badge ---
    int m_unreadVoicemail = 0;
    // --- end of voicemail badge ---
    // --- call history ---
    int m_missedCalls = 0;
    // What the tooltip says, in whichever tray shows it.
    QString m_toolTip;
};

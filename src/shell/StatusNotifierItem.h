#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QPoint>
#include <QString>

class QDBusServiceWatcher;

// One picture of an icon as the tray hosts take it: ARGB32, bytes in network order.
struct TrayPixmap {
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using TrayPixmaps = QList<TrayPixmap>;

// A tooltip as the hosts take it: an icon (unused here), a title and a description.
struct TrayToolTip {
    QString iconName;
    TrayPixmaps pixmaps;
    QString title;
    QString description;
};

Q_DECLARE_METATYPE(TrayPixmap)
Q_DECLARE_METATYPE(TrayPixmaps)
Q_DECLARE_METATYPE(TrayToolTip)

QDBusArgument& operator<<(QDBusArgument& out, const TrayPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& in, TrayPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& out, const TrayToolTip& tip);
const QDBusArgument& operator>>(const QDBusArgument& in, TrayToolTip& tip);

// The app's item in a StatusNotifierItem tray (KDE, GNOME with the
// AppIndicator extension, and the other desktops' SNI trays), spoken over the
// session bus by the app itself. The toolkit's own tray icon decides once, at
// its first use, whether such a tray exists; a tray that starts after the app
// (a login that starts the app before the panel) would never get the icon.
// This item follows the tray's watcher: it registers whenever one appears,
// and says when a host shows it.
class StatusNotifierItem : public QObject {
    Q_OBJECT
public:
    static constexpr char watcherService[] = "org.kde.StatusNotifierWatcher";

    explicit StatusNotifierItem(const QDBusConnection& bus, QObject* parent = nullptr);
    ~StatusNotifierItem() override;

    // Whether a watcher with a registered host holds this item now.
    bool shown() const { return m_shown; }

    void setIcon(const QIcon& icon);
    void setToolTip(const QString& title, const QString& description);

    // What the host reads; public for the bus adaptor.
    const TrayPixmaps& pixmaps() const { return m_pixmaps; }
    TrayToolTip toolTip() const;
    // The host's click, at the screen position it gives (0,0 when it gives none).
    void activate(const QPoint& at) { emit activated(at); }

signals:
    // The item became visible in a tray, or stopped being.
    void shownChanged();
    void activated(const QPoint& at);
    // For the adaptor: the host should read the icon or the tooltip again.
    void iconChanged();
    void toolTipChanged();

private:
    void registerWithWatcher();
    void setShown(bool shown);
    Q_SLOT void onHostRegistered();

    QDBusConnection m_bus;
    QString m_service;
    QDBusServiceWatcher* m_watcher = nullptr;
    TrayPixmaps m_pixmaps;
    QString m_title;
    QString m_description;
    bool m_shown = false;
};

#include "shell/StatusNotifierItem.h"

#include "platform/Log.h"

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QImage>

#include <atomic>

namespace {

const QString itemPath = QStringLiteral("/StatusNotifierItem");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

// The hosts draw whichever size fits their bar; these cover the usual ones.
constexpr int sizes[] = {16, 22, 24, 32, 48, 64};

TrayPixmap toTrayPixmap(const QImage& picture) {
    const QImage image = picture.convertToFormat(QImage::Format_ARGB32);
    TrayPixmap out{image.width(), image.height(), {}};
    out.argb.resize(qsizetype(image.width()) * image.height() * 4);
    char* byte = out.argb.data();
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = line[x];
            *byte++ = char(qAlpha(pixel));
            *byte++ = char(qRed(pixel));
            *byte++ = char(qGreen(pixel));
            *byte++ = char(qBlue(pixel));
        }
    }
    return out;
}

} // namespace

QDBusArgument& operator<<(QDBusArgument& out, const TrayPixmap& pixmap) {
    out.beginStructure();
    out << pixmap.width << pixmap.height << pixmap.argb;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, TrayPixmap& pixmap) {
    in.beginStructure();
    in >> pixmap.width >> pixmap.height >> pixmap.argb;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const TrayToolTip& tip) {
    out.beginStructure();
    out << tip.iconName << tip.pixmaps << tip.title << tip.description;
    out.endStructure();
    return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, TrayToolTip& tip) {
    in.beginStructure();
    in >> tip.iconName >> tip.pixmaps >> tip.title >> tip.description;
    in.endStructure();
    return in;
}

// The item's face on the bus, in the names and types the trays read.
class StatusNotifierItemAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category CONSTANT)
    Q_PROPERTY(QString Id READ id CONSTANT)
    Q_PROPERTY(QString Title READ title CONSTANT)
    Q_PROPERTY(QString Status READ status CONSTANT)
    Q_PROPERTY(int WindowId READ windowId CONSTANT)
    Q_PROPERTY(QString IconName READ none CONSTANT)
    Q_PROPERTY(TrayPixmaps IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ none CONSTANT)
    Q_PROPERTY(TrayPixmaps OverlayIconPixmap READ noPixmaps CONSTANT)
    Q_PROPERTY(QString AttentionIconName READ none CONSTANT)
    Q_PROPERTY(TrayPixmaps AttentionIconPixmap READ noPixmaps CONSTANT)
    Q_PROPERTY(QString AttentionMovieName READ none CONSTANT)
    Q_PROPERTY(TrayToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu CONSTANT)
    Q_PROPERTY(QDBusObjectPath Menu READ menu CONSTANT)
public:
    explicit StatusNotifierItemAdaptor(StatusNotifierItem* item)
        : QDBusAbstractAdaptor(item), m_item(item) {
        connect(item, &StatusNotifierItem::iconChanged, this, &StatusNotifierItemAdaptor::NewIcon);
        connect(item, &StatusNotifierItem::toolTipChanged, this,
                &StatusNotifierItemAdaptor::NewToolTip);
    }

    QString category() const { return QStringLiteral("Communications"); }
    QString id() const { return QStringLiteral("net.velnor.rz"); }
    QString title() const { return QStringLiteral("velnor RZ"); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString none() const { return {}; }
    TrayPixmaps iconPixmap() const { return m_item->pixmaps(); }
    TrayPixmaps noPixmaps() const { return {}; }
    TrayToolTip toolTip() const { return m_item->toolTip(); }
    // The panel is what a click opens, so a right click opens it too.
    bool itemIsMenu() const { return false; }
    QDBusObjectPath menu() const { return QDBusObjectPath(QStringLiteral("/NO_DBUSMENU")); }

public slots:
    void Activate(int x, int y) { m_item->activate(QPoint(x, y)); }
    void SecondaryActivate(int x, int y) { m_item->activate(QPoint(x, y)); }
    void ContextMenu(int x, int y) { m_item->activate(QPoint(x, y)); }
    void Scroll(int, const QString&) {}

signals:
    void NewTitle();
    void NewIcon();
    void NewToolTip();
    void NewStatus(const QString& status);

private:
    StatusNotifierItem* m_item;
};

StatusNotifierItem::StatusNotifierItem(const QDBusConnection& bus, QObject* parent)
    : QObject(parent), m_bus(bus) {
    qDBusRegisterMetaType<TrayPixmap>();
    qDBusRegisterMetaType<TrayPixmaps>();
    qDBusRegisterMetaType<TrayToolTip>();
    // A name of its own for each item, as the trays expect.
    static std::atomic<int> made{0};
    m_service = QStringLiteral("org.kde.StatusNotifierItem-%1-%2")
                    .arg(QCoreApplication::applicationPid())
                    .arg(++made);
    new StatusNotifierItemAdaptor(this);
    m_bus.registerObject(itemPath, this, QDBusConnection::ExportAdaptors);
    m_bus.registerService(m_service);

    m_watcher = new QDBusServiceWatcher(QString::fromLatin1(watcherService), m_bus,
                                        QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_watcher, &QDBusServiceWatcher::serviceRegistered, this,
            &StatusNotifierItem::registerWithWatcher);
    connect(m_watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { setShown(false); });
    m_bus.connect(QString::fromLatin1(watcherService), watcherPath,
                  QString::fromLatin1(watcherService),
                  QStringLiteral("StatusNotifierHostRegistered"), this, SLOT(onHostRegistered()));
    registerWithWatcher();
}

StatusNotifierItem::~StatusNotifierItem() {
    m_bus.unregisterService(m_service);
    m_bus.unregisterObject(itemPath);
}

void StatusNotifierItem::setIcon(const QIcon& icon) {
    TrayPixmaps pixmaps;
    for (int size : sizes) {
        pixmaps.append(toTrayPixmap(icon.pixmap(size, size).toImage()));
    }
    m_pixmaps = std::move(pixmaps);
    emit iconChanged();
}

void StatusNotifierItem::setToolTip(const QString& title, const QString& description) {
    m_title = title;
    m_description = description;
    emit toolTipChanged();
}

TrayToolTip StatusNotifierItem::toolTip() const {
    return TrayToolTip{{}, {}, m_title, m_description};
}

void StatusNotifierItem::onHostRegistered() {
    registerWithWatcher();
}

void StatusNotifierItem::registerWithWatcher() {
    QDBusMessage registration = QDBusMessage::createMethodCall(
        QString::fromLatin1(watcherService), watcherPath, QString::fromLatin1(watcherService),
        QStringLiteral("RegisterStatusNotifierItem"));
    registration << m_service;
    auto* registered = new QDBusPendingCallWatcher(m_bus.asyncCall(registration, 2000), this);
    connect(registered, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                if (call->isError()) {
                    // No watcher (yet): the item waits for one to appear.
                    setShown(false);
                    return;
                }
                // Held by the watcher; visible once a host draws the watcher's items.
                QDBusMessage ask = QDBusMessage::createMethodCall(
                    QString::fromLatin1(watcherService), watcherPath,
                    QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
                ask << QString::fromLatin1(watcherService)
                    << QStringLiteral("IsStatusNotifierHostRegistered");
                auto* asked = new QDBusPendingCallWatcher(m_bus.asyncCall(ask, 2000), this);
                connect(asked, &QDBusPendingCallWatcher::finished, this,
                        [this](QDBusPendingCallWatcher* answer) {
                            answer->deleteLater();
                            const QDBusPendingReply<QDBusVariant> host = *answer;
                            setShown(!host.isError() && host.value().variant().toBool());
                        });
            });
}

void StatusNotifierItem::setShown(bool shown) {
    if (shown == m_shown) {
        return;
    }
    m_shown = shown;
    Log::info(Log::app, shown ? QStringLiteral("The tray's host shows the icon")
                              : QStringLiteral("No tray host shows the icon"));
    emit shownChanged();
}

#include "StatusNotifierItem.moc"

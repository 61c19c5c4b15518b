#include "shell/TrayIcon.h"

#include "history/RecentsModel.h"
#include "platform/Log.h"
#include "shell/ShellState.h"
#include "shell/StatusNotifierItem.h"
#include "telephony/Phone.h"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>
#include <QSystemTrayIcon>

#include <algorithm>

namespace {

const QUrl panelQml(QStringLiteral("qrc:/Velnor/Screens/TrayPanel.qml"));

// The dot in the icon's corner: the registration badge's colours.
QColor stateColour(Phone::Registration::Kind kind) {
    switch (kind) {
    case Phone::Registration::Kind::registered:
        return QColor(0x16, 0xA3, 0x4A);
    case Phone::Registration::Kind::registering:
        return QColor(0xF5, 0x9E, 0x0B);
    case Phone::Registration::Kind::failed:
        return QColor(0xE7, 0x00, 0x0B);
    case Phone::Registration::Kind::off:
        break;
    }
    return QColor(0x6B, 0x6F, 0x7B);
}

// --- voicemail badge ---
// The count in the icon's top corner, in the accent colour; large counts read "9+".
void paintVoicemailBadge(QPainter& painter, int size, int unread) {
    if (unread <= 0) {
        return;
    }
    const qreal badge = size * 0.5;
    const QRectF disc(size - badge - 0.5, 0.5, badge, badge);
    painter.setPen(QPen(Qt::white, size / 16.0));
    painter.setBrush(QColor(0x34, 0x51, 0xF6));
    painter.drawEllipse(disc);
    if (size >= 22) {
        QFont font = painter.font();
        font.setPixelSize(int(badge * 0.62));
        font.setBold(true);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(disc, Qt::AlignCenter,
                         unread > 9 ? QStringLiteral("9+") : QString::number(unread));
    }
}
// --- end of voicemail badge ---

QIcon iconFor(Phone::Registration::Kind kind, int unreadVoicemail = 0) {
    const QIcon base(QStringLiteral(":/images/net.velnor.rz.svg"));
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap = base.pixmap(size, size);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const qreal dot = size * 0.42;
        painter.setPen(QPen(Qt::white, size / 16.0));
        painter.setBrush(stateColour(kind));
        painter.drawEllipse(QRectF(size - dot - 0.5, size - dot - 0.5, dot, dot));
        paintVoicemailBadge(painter, size, unreadVoicemail);
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace

TrayIcon::TrayIcon(Phone& phone, QQmlEngine& engine, QVariantMap panelProperties, QObject* parent)
    : QObject(parent), m_phone(phone), m_engine(engine),
      m_panelProperties(std::move(panelProperties)) {
    connect(&phone, &Phone::registrationUpdated, this, &TrayIcon::refresh);
}

TrayIcon::~TrayIcon() {
    remove();
}

QString TrayIcon::tooltip(const QString& registrationWord) {
    return QStringLiteral("velnor RZ — %1").arg(registrationWord);
}

bool TrayIcon::installed() const {
    return m_icon || (m_item && m_item->shown());
}

bool TrayIcon::install() {
    if (m_item || m_icon) {
        return installed();
    }
    // The tray belongs to the widgets module, which needs its application object.
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        Log::info(Log::app, QStringLiteral("This desktop shows no tray"));
        return false;
    }
    m_item = std::make_unique<StatusNotifierItem>(QDBusConnection::sessionBus());
    connect(m_item.get(), &StatusNotifierItem::shownChanged, this, &TrayIcon::followTrays);
    connect(m_item.get(), &StatusNotifierItem::activated, this, [this](const QPoint& at) {
        m_clickedAt = at;
        toggle();
    });
    followTrays();
    if (!installed() && !m_item->shown()) {
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        const bool watcher = bus && bus->isServiceRegistered(
                                        QString::fromLatin1(StatusNotifierItem::watcherService));
        if (!watcher) {
            Log::info(Log::app, QStringLiteral("This desktop shows no tray"));
        }
    }
    return installed();
}

// The StatusNotifierItem tray wins whenever it shows the icon; the XEmbed
// icon stands in only while no such tray is on the bus.
void TrayIcon::followTrays() {
    if (m_item && m_item->shown()) {
        m_icon.reset();
    } else if (!m_icon) {
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        const bool watcher = bus && bus->isServiceRegistered(
                                        QString::fromLatin1(StatusNotifierItem::watcherService));
        if (!watcher && QSystemTrayIcon::isSystemTrayAvailable()) {
            m_icon = std::make_unique<QSystemTrayIcon>();
            connect(m_icon.get(), &QSystemTrayIcon::activated, this,
                    [this](QSystemTrayIcon::ActivationReason reason) {
                        if (reason == QSystemTrayIcon::Trigger ||
                            reason == QSystemTrayIcon::Context) {
                            m_clickedAt = {};
                            toggle();
                        }
                    });
        }
    }
    refresh();
    if (m_icon) {
        m_icon->show();
    }
    const bool now = installed();
    if (now != m_wasInstalled) {
        m_wasInstalled = now;
        Log::info(Log::app,
                  now ? QStringLiteral("Tray icon shown") : QStringLiteral("The tray went away"));
        emit installedChanged();
    }
}

void TrayIcon::remove() {
    hidePanel();
    const bool was = installed();
    m_icon.reset();
    m_item.reset();
    m_wasInstalled = false;
    if (was) {
        emit installedChanged();
    }
}

void TrayIcon::refresh() {
    const auto kind = m_phone.registration().kind;
    QString text = tooltip(ShellState::registrationWordOf(m_phone));
    QString description = ShellState::registrationWordOf(m_phone);
    // --- call history ---
    if (m_missedCalls > 0) {
        text += u'\n' + missedLine(m_missedCalls);
        description += u'\n' + missedLine(m_missedCalls);
    }
    // --- end of call history ---
    m_toolTip = text;
    if (m_item) {
        m_item->setIcon(iconFor(kind, m_unreadVoicemail));
        m_item->setToolTip(QStringLiteral("velnor RZ"), description);
    }
    if (m_icon) {
        m_icon->setIcon(iconFor(kind, m_unreadVoicemail));
        m_icon->setToolTip(text);
    }
}

// --- call history ---

void TrayIcon::setMissedCalls(int count) {
    if (count == m_missedCalls) {
        return;
    }
    m_missedCalls = count;
    refresh();
}

void TrayIcon::followMissedCalls(RecentsModel& recents) {
    setMissedCalls(recents.missedCount());
    connect(&recents, &RecentsModel::missedCountChanged, this,
            [this, &recents] { setMissedCalls(recents.missedCount()); });
}

QString TrayIcon::missedLine(int count) {
    if (count <= 0) {
        return {};
    }
    return count == 1 ? tr("1 missed call") : tr("%1 missed calls").arg(count);
}

QString TrayIcon::toolTip() const {
    return installed() ? m_toolTip : QString();
}

// --- end of call history ---

bool TrayIcon::makePanel() {
    if (m_panel) {
        return true;
    }
    QQmlComponent component(&m_engine, panelQml);
    std::unique_ptr<QObject> made(component.createWithInitialProperties(m_panelProperties));
    auto* window = qobject_cast<QQuickWindow*>(made.get());
    if (!window) {
        Log::error(Log::app,
                   QStringLiteral("The tray panel did not load: %1").arg(component.errorString()));
        return false;
    }
    // Owned by this object from here on, and gone with it.
    made.release()->setParent(this);
    m_panel = window;
    return true;
}

QRect TrayIcon::anchor() const {
    const QRect geometry = m_icon ? m_icon->geometry() : QRect();
    if (geometry.isValid()) {
        return geometry;
    }
    // A StatusNotifierItem host gives the click's place, when it gives one;
    // else the pointer that clicked is the best guess.
    if (!m_clickedAt.isNull()) {
        return QRect(m_clickedAt, QSize(1, 1));
    }
    return QRect(QCursor::pos(), QSize(1, 1));
}

void TrayIcon::toggle() {
    if (m_panel && m_panel->isVisible()) {
        hidePanel();
        return;
    }
    if (!makePanel()) {
        return;
    }
    const QRect at = anchor();
    QScreen* screen = QGuiApplication::screenAt(at.center());
    const QRect area = screen ? screen->availableGeometry() : QRect(0, 0, 1920, 1080);
    const QSize size = m_panel->size();
    // Below an icon in a top bar, above one in a bottom bar, always on the screen.
    int y = at.bottom() + 4;
    if (y + size.height() > area.bottom()) {
        y = at.top() - 4 - size.height();
    }
    const int x = std::clamp(at.center().x() - size.width() / 2, area.left(),
                             std::max(area.left(), area.right() - size.width()));
    m_panel->setPosition(x, std::max(area.top(), y));
    m_panel->show();
    m_panel->raise();
    m_panel->requestActivate();
}

void TrayIcon::hidePanel() {
    if (m_panel) {
        m_panel->hide();
    }
}

// --- voicemail badge ---
void TrayIcon::setUnreadVoicemail(int count) {
    if (count != m_unreadVoicemail) {
        m_unreadVoicemail = count;
        refresh();
    }
}

QIcon TrayIcon::iconOf(Phone::Registration::Kind kind, int unreadVoicemail) {
    return iconFor(kind, unreadVoicemail);
}
// --- end of voicemail badge ---

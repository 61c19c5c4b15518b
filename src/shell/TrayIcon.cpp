#include "shell/TrayIcon.h"

#include "history/RecentsModel.h"
#include "platform/Log.h"
#include "shell/ShellState.h"
#include "telephony/Phone.h"

#include <QApplication>
#include <QCursor>
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

QIcon iconFor(Phone::Registration::Kind kind) {
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

bool TrayIcon::install() {
    if (m_icon) {
        return true;
    }
    // The tray belongs to the widgets module, which needs its application object.
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()) ||
        !QSystemTrayIcon::isSystemTrayAvailable()) {
        Log::info(Log::app, QStringLiteral("This desktop shows no tray"));
        return false;
    }
    m_icon = std::make_unique<QSystemTrayIcon>();
    refresh();
    connect(m_icon.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context) {
                    toggle();
                }
            });
    m_icon->show();
    Log::info(Log::app, QStringLiteral("Tray icon shown"));
    emit installedChanged();
    return true;
}

void TrayIcon::remove() {
    hidePanel();
    if (m_icon) {
        m_icon.reset();
        emit installedChanged();
    }
}

void TrayIcon::refresh() {
    if (!m_icon) {
        return;
    }
    const auto kind = m_phone.registration().kind;
    m_icon->setIcon(iconFor(kind));
    QString text = tooltip(ShellState::registrationWordOf(m_phone));
    // --- call history ---
    if (m_missedCalls > 0) {
        text += u'\n' + missedLine(m_missedCalls);
    }
    m_icon->setToolTip(text);
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
    return m_icon ? m_icon->toolTip() : QString();
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
    // A StatusNotifierItem host does not say where the icon is: the pointer
    // that clicked it is the best guess.
    return geometry.isValid() ? geometry : QRect(QCursor::pos(), QSize(1, 1));
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

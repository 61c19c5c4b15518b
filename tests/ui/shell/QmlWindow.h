#pragma once

#include <QByteArray>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QVariantMap>

#include <functional>
#include <memory>

// The first item under `under` (itself included), breadth first, that is wanted.
inline QQuickItem* findItem(QQuickItem* under, const std::function<bool(QQuickItem*)>& wanted) {
    QList<QQuickItem*> pending{under};
    while (!pending.isEmpty()) {
        QQuickItem* next = pending.takeFirst();
        if (wanted(next)) {
            return next;
        }
        pending += next->childItems();
    }
    return nullptr;
}

// Where a click at the item's middle lands in its window.
inline QPoint centreInScene(QQuickItem* target) {
    return target->mapToScene(QPointF(target->width() / 2, target->height() / 2)).toPoint();
}

// A window of the screens module made of a few lines of QML, for tests that
// bring their own app parts (a session and phone of a lab) rather than a
// whole Application. Its body names the window `w`; `properties` are set on
// it as it is made, so the body must declare each of them.
class QmlWindow {
public:
    QmlWindow() { engine.addImportPath(QStringLiteral("qrc:/")); }

    // Empty when the window is shown; otherwise what went wrong.
    QString show(const QByteArray& body, const QVariantMap& properties) {
        QQmlComponent component(&engine);
        component.setData("import QtQuick\nimport Velnor.Screens\nWindow {\n id: w\n"
                          " color: Theme.windowBackground\n" +
                              body + "\n}\n",
                          QUrl(QStringLiteral("qrc:/test/Window.qml")));
        if (!component.isReady()) {
            return component.errorString();
        }
        window.reset(
            qobject_cast<QQuickWindow*>(component.createWithInitialProperties(properties)));
        if (!window) {
            return component.errorString();
        }
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get())) {
            return QStringLiteral("the window was never exposed");
        }
        return {};
    }

    QQuickItem* find(const std::function<bool(QQuickItem*)>& wanted) const {
        return findItem(window->contentItem(), wanted);
    }
    QQuickItem* named(const QString& name) const {
        return find([&](QQuickItem* i) { return i->objectName() == name; });
    }

    void click(QQuickItem* target) {
        QTest::mouseClick(window.get(), Qt::LeftButton, {}, centreInScene(target));
    }

    QQmlEngine engine;
    std::unique_ptr<QQuickWindow> window;
};

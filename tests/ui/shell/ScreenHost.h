#pragma once

#include "QmlWindow.h"
#include "shell/Application.h"

#include <QAccessible>
#include <QDir>
#include <QImage>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

// A view of the screens module in a window of its own, given the app's real
// session, phone and shell state, drawn offscreen and grabbed to
// build/screenshots for people to look at.
class ScreenHost : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Application::loadFonts());
        engine.addImportPath(QStringLiteral("qrc:/"));
        restart();
    }

    // A new app over the same settings, as at the next start.
    void restart() {
        window.reset();
        application.reset();
        application = std::make_unique<Application>(settings, secrets);
    }

    Application& app() { return *application; }

    void TearDown() override {
        window.reset();
        application.reset();
    }

    // `body` is QML placed inside the window, with `w` naming the window.
    void host(const QByteArray& body, bool dark = false, QSize size = QSize(920, 640)) {
        const QByteArray source = "import QtQuick\nimport Velnor.Screens\n"
                                  "Window {\n id: w\n"
                                  " property QtObject session\n property QtObject phone\n"
                                  " property QtObject shell\n"
                                  " readonly property QtObject theme: Theme\n"
                                  " color: Theme.windowBackground\n" +
                                  body + "\n}\n";
        QQmlComponent component(&engine);
        component.setData(source, QUrl(QStringLiteral("qrc:/test/Host.qml")));
        ASSERT_TRUE(component.isReady()) << component.errorString().toStdString();
        QObject* made = component.createWithInitialProperties(
            {{"session", QVariant::fromValue<QObject*>(&app().session())},
             {"phone", QVariant::fromValue<QObject*>(&app().phone())},
             {"shell", QVariant::fromValue<QObject*>(&app().shellState())}});
        ASSERT_NE(made, nullptr) << component.errorString().toStdString();
        window.reset(qobject_cast<QQuickWindow*>(made));
        ASSERT_NE(window, nullptr);
        window->property("theme").value<QObject*>()->setProperty("dark", dark);
        window->resize(size);
        window->show();
        window->requestActivate();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    }

    // A window of the module that is its own root, such as the tray panel.
    void hostWindow(const QString& file, bool dark = false) {
        QQmlComponent component(&engine, QUrl("qrc:/Velnor/Screens/" + file));
        ASSERT_TRUE(component.isReady()) << component.errorString().toStdString();
        QObject* made = component.createWithInitialProperties(
            {{"session", QVariant::fromValue<QObject*>(&app().session())},
             {"phone", QVariant::fromValue<QObject*>(&app().phone())},
             {"shell", QVariant::fromValue<QObject*>(&app().shellState())}});
        ASSERT_NE(made, nullptr) << component.errorString().toStdString();
        window.reset(qobject_cast<QQuickWindow*>(made));
        ASSERT_NE(window, nullptr);
        QQmlComponent theme(&engine);
        theme.setData(
            "import QtQuick\nimport Velnor.Screens\nQtObject { property QtObject t: Theme }",
            QUrl("qrc:/test/Theme.qml"));
        std::unique_ptr<QObject> holder(theme.create());
        ASSERT_NE(holder, nullptr) << theme.errorString().toStdString();
        holder->property("t").value<QObject*>()->setProperty("dark", dark);
        window->show();
        window->requestActivate();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    QImage screenshot(const QString& name) {
        QImage image = window->grabWindow();
        QDir().mkpath(VELNOR_SCREENSHOTS);
        image.save(QString(VELNOR_SCREENSHOTS) + "/" + name + ".png");
        return image;
    }

    // Every item of the window's scene, in the visual tree's order.
    QList<QQuickItem*> allItems() const {
        QList<QQuickItem*> items;
        QList<QQuickItem*> pending{window->contentItem()};
        while (!pending.isEmpty()) {
            QQuickItem* next = pending.takeFirst();
            items.append(next);
            pending += next->childItems();
        }
        return items;
    }

    // The items of that name under one item.
    static QList<QQuickItem*> itemsNamed(QQuickItem* under, const char* name) {
        QList<QQuickItem*> found;
        QList<QQuickItem*> pending = under->childItems();
        while (!pending.isEmpty()) {
            QQuickItem* next = pending.takeFirst();
            if (next->objectName() == QLatin1String(name)) {
                found.append(next);
            }
            pending += next->childItems();
        }
        return found;
    }

    QQuickItem* item(const char* name) const {
        return findItem(window->contentItem(),
                        [&](QQuickItem* i) { return i->objectName() == QLatin1String(name); });
    }

    // A visible item showing exactly this text.
    QQuickItem* itemWithText(const QString& text) const {
        for (QQuickItem* candidate : allItems()) {
            if (candidate->property("text").toString() == text && candidate->isVisible() &&
                candidate->opacity() > 0) {
                return candidate;
            }
        }
        return nullptr;
    }

    QPoint centreOf(QQuickItem* target) const { return centreInScene(target); }

    void click(QQuickItem* target) {
        ASSERT_NE(target, nullptr);
        QTest::mouseClick(window.get(), Qt::LeftButton, {}, centreOf(target));
    }

    // Types text key by key into the window, as a person at the keyboard.
    void typeText(const QString& text) {
        for (const QChar character : text) {
            QTest::keyClick(window.get(), character.toLatin1());
        }
    }

    // The name assistive technology reads for an item.
    static QString accessibleName(QQuickItem* target) {
        QAccessibleInterface* face = QAccessible::queryAccessibleInterface(target);
        return face ? face->text(QAccessible::Name) : QString();
    }

    MemorySettingsStore settings;
    MemorySecureStore secrets;
    std::unique_ptr<Application> application;
    QQmlEngine engine;
    std::unique_ptr<QQuickWindow> window;
};

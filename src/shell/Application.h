#pragma once

#include "shell/Appearance.h"

#include <QObject>
#include <QQmlApplicationEngine>

class QQuickWindow;

// The app's one long-lived value in the GUI process: it loads the fonts,
// keeps the palette in step with the desktop, and shows the main window.
class Application : public QObject {
    Q_OBJECT
public:
    explicit Application(QObject* parent = nullptr);

    // Loads the main window; false (and a log line) when QML failed to load.
    bool showMainWindow();

    QQuickWindow* mainWindow() const;
    QQmlApplicationEngine& engine() { return m_engine; }
    Appearance& appearance() { return m_appearance; }
    // The QML palette (the Theme singleton), once the main window has loaded;
    // its `dark` follows appearance().
    QObject* palette();

    // The application's identity (name, desktop file, icon) for the desktop.
    static void describe();
    // The bundled IBM Plex Sans cuts; false when one of them did not load.
    static bool loadFonts();

private:
    QQmlApplicationEngine m_engine;
    Appearance m_appearance;
};

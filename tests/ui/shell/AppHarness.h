#pragma once

#include "DevServer.h"
#include "Services.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

// Records the values announced in PropertiesChanged signals.
class ChangeRecorder : public QObject {
    Q_OBJECT
public:
    QStringList values(const QString& property) const { return m_values.value(property); }

public slots:
    void record(const QDBusMessage& message) {
        const QVariantMap changes = qdbus_cast<QVariantMap>(message.arguments().value(1));
        for (auto it = changes.constBegin(); it != changes.constEnd(); ++it) {
            m_values[it.key()].append(it.value().toString());
        }
        emit changed();
    }

signals:
    void changed();

private:
    QHash<QString, QStringList> m_values;
};

// The app as a person runs it, with every real part around it: an X display
// of its own, the desktop's link opener calling a "browser" that signs in on
// rz-devserver and hands the redirect to a second launch of the app, a
// private session bus with the Secret Service, and a home of its own whose
// settings point at the development dashboard.

class AppHarness : public testing::Test {
protected:
    // rz-devserver's arguments; the default signs in Anna Berger at once.
    explicit AppHarness(const QStringList& serverArguments = {"--auto-approve", "u-001"})
        : server(serverArguments) {}

    void SetUp() override {
        // The app's settings point at the development dashboard.
        QDir().mkpath(home.configHome() + "/velnor");
        QFile config(home.configHome() + "/velnor/rz.conf");
        ASSERT_TRUE(config.open(QIODevice::WriteOnly));
        config.write("[General]\nrz.server=" + server.url().toString().toUtf8() + "\n");
        config.close();

        // The "browser": asks the sign-in page, which approves at once, and
        // opens the address it is sent to with the app, as a browser does
        // with a link of an app's scheme.
        browser = scripts.filePath("browser");
        QFile script(browser);
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\n"
                     "echo \"$1\" > \"" +
                     scripts.filePath("opened").toUtf8() +
                     "\"\n"
                     "location=$(curl -s -o /dev/null -w '%{redirect_url}' \"$1\")\n"
                     "exec \"" VELNOR_APP_PATH "\" \"$location\"\n");
        script.close();
        QFile::setPermissions(browser, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

        // It is this home's default web browser, as a desktop records one, so
        // that a browser installed on the machine is not asked instead.
        QDir().mkpath(home.dataHome() + "/applications");
        QFile entry(home.dataHome() + "/applications/test-browser.desktop");
        ASSERT_TRUE(entry.open(QIODevice::WriteOnly));
        entry.write(
            "[Desktop Entry]\nType=Application\nName=Test browser\nExec=" + browser.toUtf8() +
            " %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\n");
        entry.close();
        QFile defaults(home.configHome() + "/mimeapps.list");
        ASSERT_TRUE(defaults.open(QIODevice::WriteOnly));
        defaults.write("[Default Applications]\nx-scheme-handler/http=test-browser.desktop\n"
                       "x-scheme-handler/https=test-browser.desktop\n");
        defaults.close();
    }

    QProcessEnvironment environment() const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DISPLAY", display.display());
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("BROWSER", browser);
        environment.remove("WAYLAND_DISPLAY");
        return environment;
    }

    QByteArray waitForLine(const QByteArray& text) {
        for (;;) {
            const QByteArray line = app.readLine(std::chrono::seconds(20));
            std::printf("app: %s\n", line.constData());
            if (line.contains(text)) {
                return line;
            }
        }
    }

    int xdotool(const QStringList& arguments) {
        QProcess tool;
        tool.setProcessEnvironment(environment());
        tool.start("xdotool", arguments);
        if (!tool.waitForFinished(10000)) {
            tool.kill();
            tool.waitForFinished();
            return -1;
        }
        return tool.exitCode();
    }

    QImage grabScreen() {
        QProcess grab;
        grab.setProcessEnvironment(environment());
        grab.start("/usr/bin/import", {"-window", "root", "png:-"});
        if (!grab.waitForFinished(10000)) {
            grab.kill();
            grab.waitForFinished();
            return {};
        }
        return QImage::fromData(grab.readAllStandardOutput(), "PNG");
    }

    // Where on the screen pixels of exactly this colour are, as one rectangle.
    QRect areaOfColour(const QColor& colour) {
        const QImage screen = grabScreen();
        QRect area;
        for (int y = 0; y < screen.height(); ++y) {
            for (int x = 0; x < screen.width(); ++x) {
                if (screen.pixelColor(x, y).rgb() == colour.rgb()) {
                    area |= QRect(x, y, 1, 1);
                }
            }
        }
        return area;
    }

    TempHome home;
    PrivateBus bus;
    SecretService secrets{bus};
    DevServer server;
    VirtualDisplay display;
    WindowManager windowManager{display.display()};
    QTemporaryDir scripts;
    QString browser;
    ChildProcess app;
};

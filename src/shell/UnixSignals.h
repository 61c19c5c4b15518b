#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM, SIGINT and SIGHUP into an orderly quit of the event loop, so
// that a logout or a Ctrl-C ends the app as closing its window does.
class UnixSignals : public QObject {
    Q_OBJECT
public:
    explicit UnixSignals(QObject* parent = nullptr);
    ~UnixSignals() override;

signals:
    void quitRequested(int signal);

private:
    QSocketNotifier* m_notifier = nullptr;
};

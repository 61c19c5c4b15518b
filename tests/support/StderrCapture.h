#pragma once

#include <QByteArray>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

// Sends this process's standard error to a file while it lives, so that a test
// can read exactly what the app printed there.
class StderrCapture {
public:
    StderrCapture() {
        m_file.open();
        std::fflush(stderr);
        m_saved = ::dup(STDERR_FILENO);
        ::dup2(m_file.handle(), STDERR_FILENO);
    }
    ~StderrCapture() { restore(); }

    // Everything written so far; standard error goes back where it was.
    QByteArray take() {
        restore();
        m_file.seek(0);
        return m_file.readAll();
    }

private:
    void restore() {
        if (m_saved < 0) {
            return;
        }
        std::fflush(stderr);
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
        m_saved = -1;
    }

    QTemporaryFile m_file;
    int m_saved = -1;
};

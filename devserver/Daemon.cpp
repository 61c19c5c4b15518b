#include "Daemon.h"

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

namespace rzdev {

Daemon::Daemon(QString name, QObject* parent) : QObject(parent), m_name(std::move(name)) {
    // RZ_PHONE_LOG=1 shows what the parts say, for finding out why a call went wrong.
    m_echo = qgetenv("RZ_PHONE_LOG") == "1";
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    // kamailio gets SIGTERM, so that its main process takes its workers with it;
    // the others SIGKILL, as an orderly exit would wait on a registrar that is gone.
    const int deathSignal = m_name == QLatin1String("kamailio") ? SIGTERM : SIGKILL;
    m_process.setChildProcessModifier([deathSignal] {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, deathSignal);
    });
    connect(&m_process, &QProcess::readyRead, this, [this] {
        const QByteArray data = m_process.readAll();
        m_output += data;
        if (m_output.size() > 64 * 1024)
            m_output = m_output.right(48 * 1024);
        m_partial += data;
        for (qsizetype end; (end = m_partial.indexOf('\n')) >= 0;) {
            const QByteArray text = m_partial.left(end);
            m_partial.remove(0, end + 1);
            if (m_echo)
                std::fprintf(stderr, "[%s] %s\n", qPrintable(m_name), text.constData());
            emit line(text);
        }
    });
    connect(&m_process, &QProcess::finished, this, [this](int code) {
        if (!m_stopping) {
            std::fprintf(stderr, "rz-devserver: %s exited (%d): %s\n", qPrintable(m_name), code,
                         m_output.right(1500).constData());
        }
        emit exited(code);
    });
}

Daemon::~Daemon() {
    stop(500);
}

void Daemon::start(const QString& program, const QStringList& arguments,
                   const QString& workingDirectory) {
    m_stopping = false;
    m_output.clear();
    m_partial.clear();
    if (!workingDirectory.isEmpty())
        m_process.setWorkingDirectory(workingDirectory);
    m_process.start(program, arguments);
}

void Daemon::setEnvironment(const QProcessEnvironment& environment) {
    m_process.setProcessEnvironment(environment);
}

void Daemon::stop(int graceMs) {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_stopping = true;
    const pid_t group = pid_t(m_process.processId());
    if (group > 0)
        ::kill(-group, SIGTERM);
    if (!m_process.waitForFinished(graceMs) && group > 0) {
        ::kill(-group, SIGKILL);
        m_process.waitForFinished(1000);
    }
    // Workers that outlived their parent still belong to the group.
    if (group > 0)
        ::kill(-group, SIGKILL);
}

} // namespace rzdev

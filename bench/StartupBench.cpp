// Start-up time to the first frame of the main window, and resident memory
// then, for the app and for a bare Qt Quick window measured in the same run.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

namespace {

struct Sample {
    double startMs = 0;
    double rssMb = 0;
};

double residentMb(qint64 pid) {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
        }
    }
    return 0;
}

std::optional<Sample> measure(const QString& program) {
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    environment.insert("HOME", home.path());
    environment.insert("XDG_CONFIG_HOME", home.path() + "/config");
    environment.insert("XDG_CACHE_HOME", home.path() + "/cache");
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setReadChannel(QProcess::StandardError);
    QElapsedTimer timer;
    timer.start();
    process.start(program, {});
    std::optional<Sample> sample;
    while (timer.elapsed() < 20000 && process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(200);
        while (process.canReadLine()) {
            if (process.readLine().contains("Main window shown")) {
                sample =
                    Sample{double(timer.nsecsElapsed()) / 1e6, residentMb(process.processId())};
            }
        }
        if (sample) {
            break;
        }
    }
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
    return sample;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    constexpr int runs = 7;
    std::vector<double> appStart, appRss, bareStart, bareRss;
    // Alternate the two so that a busy moment of the machine hits both alike.
    for (int i = 0; i < runs; ++i) {
        const auto bare = measure(VELNOR_BARE_PATH);
        const auto ours = measure(VELNOR_APP_PATH);
        if (!bare || !ours) {
            std::fprintf(stderr, "a program did not show its window\n");
            return 1;
        }
        bareStart.push_back(bare->startMs);
        bareRss.push_back(bare->rssMb);
        appStart.push_back(ours->startMs);
        appRss.push_back(ours->rssMb);
    }
    const double start = median(appStart), baseStart = median(bareStart);
    const double rss = median(appRss), baseRss = median(bareRss);
    std::printf("startup_first_frame_ms: %.1f\n", start);
    std::printf("startup_first_frame_ms_bare_qt_quick: %.1f\n", baseStart);
    std::printf("startup_ratio_to_bare_qt_quick: %.2f\n", start / baseStart);
    std::printf("rss_mb_at_first_frame: %.1f\n", rss);
    std::printf("rss_mb_at_first_frame_bare_qt_quick: %.1f\n", baseRss);
    std::printf("rss_ratio_to_bare_qt_quick: %.2f\n", rss / baseRss);
    return 0;
}

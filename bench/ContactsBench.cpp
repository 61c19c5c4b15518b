// Figures of colleagues in the desktop's address book, on Evolution Data
// Server in a private bus whose book already holds 1,000 contacts of the
// user's own: switching on with 1,000 colleagues (each with a picture, from a
// warm picture cache), the longest the main thread goes without turning its
// event loop meanwhile, and a directory change of one colleague brought into
// the book. Baselines: the same 1,000 plain contacts added to the book in one
// batch directly, and the main thread's longest gap while it has nothing to
// do for as long as the export took. Nothing here fails on time.
#include "../tests/integration/contacts/EdsLab.h"
#include "RunTask.h"
#include "Services.h"

#include "contacts/ColleagueContacts.h"
#include "platform/SettingsStore.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QEventLoop>
#include <QImage>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <time.h>
#include <vector>

using std::chrono::steady_clock;

namespace {

constexpr int colleagueCount = 1000;

double msSince(steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
}

// A picture as the directory serves them: a 128-pixel JPEG, a different one each.
QByteArray picture(int i) {
    QImage image(128, 128, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            image.setPixel(x, y, qRgb((x * 2 + i) % 256, (y * 2 + i * 7) % 256, (x + y + i) % 256));
        }
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG", 85);
    return bytes;
}

QCoro::Task<std::optional<QByteArray>> cached(QByteArray bytes) {
    co_return bytes;
}

// The main thread ticks every millisecond; the longest gap between two ticks
// is the longest the user could have waited for the app to answer. The
// timer's own period is part of each gap.
// Beside it, the processor time the main thread spent between two ticks:
// work of its own, whatever else the machine runs meanwhile.
double threadCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1000.0 + double(now.tv_nsec) / 1e6;
}

struct Ticker {
    double maxGapMs = 0;
    double maxBusyMs = 0;
    steady_clock::time_point last = steady_clock::now();
    double lastCpu = threadCpuMs();
    QTimer timer;
    Ticker() {
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, [this] {
            maxGapMs = std::max(maxGapMs, msSince(last));
            maxBusyMs = std::max(maxBusyMs, threadCpuMs() - lastCpu);
            last = steady_clock::now();
            lastCpu = threadCpuMs();
        });
        timer.start(1);
    }
};

int categoryCount(EdsLab& eds) {
    return int(QString::fromUtf8(eds.readVCards()).count(QStringLiteral("CATEGORIES:velnor RZ")));
}

void figures() {
    TempHome home;
    PrivateBus bus;
    EdsLab eds(bus);

    QList<EdsLab::Card> own;
    for (int i = 0; i < colleagueCount; ++i) {
        own.append({QStringLiteral("Friend %1").arg(i),
                    QStringLiteral("Friend"),
                    {QStringLiteral("+49 171 %1").arg(3000000 + i)}});
    }
    const auto direct = steady_clock::now();
    eds.add(own);
    const double directMs = msSince(direct);

    QList<Directory::Entry> users;
    QHash<QString, QByteArray> pictures;
    for (int i = 0; i < colleagueCount + 1; ++i) {
        Directory::Entry entry;
        entry.id = QStringLiteral("u-%1").arg(i, 4, 10, QLatin1Char('0'));
        entry.name = QStringLiteral("Colleague%1 Number%2").arg(i).arg(i % 97);
        entry.email = entry.id + QStringLiteral("@acme.example");
        entry.extension_ = QString::number(1000 + i);
        entry.numbers = QStringList{QStringLiteral("+49 30 555 %1").arg(1000 + i)};
        if (i % 4 == 3) {
            entry.numbers->append(QStringLiteral("+49 170 555 %1").arg(1000 + i));
        }
        entry.avatar = AvatarRef{QStringLiteral("/media/") + entry.id + QStringLiteral(".jpg"),
                                 QStringLiteral("1")};
        pictures.insert(entry.avatar->url, picture(i));
        users.append(entry);
    }
    const QString ownId = users.first().id; // the user: one of 1,001, never exported
    const ColleagueContacts::LoadImage loader = [&pictures](AvatarRef ref) {
        return cached(pictures.value(ref.url));
    };

    IniSettingsStore settings;
    ColleagueContacts colleagues(settings, [] { return std::make_unique<EdsContactStore>(); });

    auto ticker = std::make_unique<Ticker>();
    const auto exportStart = steady_clock::now();
    runTask(colleagues.setEnabled(true, users, ownId, loader), std::chrono::seconds(120));
    const double exportMs = msSince(exportStart);
    const double exportBlockMs = ticker->maxGapMs;
    const double exportBusyMs = ticker->maxBusyMs;
    ticker.reset();
    // Baseline: the ticker alone on an idle main thread for as long as the
    // export took. Its longest gap is what the machine's scheduling costs.
    ticker = std::make_unique<Ticker>();
    {
        QEventLoop idle;
        QTimer::singleShot(int(exportMs), &idle, &QEventLoop::quit);
        idle.exec();
    }
    const double idleBlockMs = ticker->maxGapMs;
    ticker.reset();
    if (colleagues.lastError()) {
        throw std::runtime_error("export failed: " + colleagues.lastErrorText().toStdString());
    }
    if (colleagues.count() != colleagueCount || categoryCount(eds) != colleagueCount) {
        throw std::runtime_error("the book holds " + std::to_string(categoryCount(eds)) +
                                 " colleagues");
    }

    // One colleague changes their name at a time; the median of five.
    std::vector<double> resyncs;
    double resyncBlockMs = 0;
    for (int round = 0; round < 5; ++round) {
        users[1 + round * 100].name = QStringLiteral("Renamed%1 Person").arg(round);
        ticker = std::make_unique<Ticker>();
        const auto start = steady_clock::now();
        runTask(colleagues.sync(users, ownId, loader), std::chrono::seconds(60));
        resyncs.push_back(msSince(start));
        resyncBlockMs = std::max(resyncBlockMs, ticker->maxGapMs);
        ticker.reset();
        if (colleagues.lastError()) {
            throw std::runtime_error("resync failed: " + colleagues.lastErrorText().toStdString());
        }
    }
    const QString book = QString::fromUtf8(eds.readVCards());
    if (!book.contains(QStringLiteral("FN:Renamed4 Person")) ||
        book.count(QStringLiteral("CATEGORIES:velnor RZ")) != colleagueCount) {
        throw std::runtime_error("the renamed colleague is not in the book");
    }
    std::sort(resyncs.begin(), resyncs.end());

    std::printf("export_ms_1000: %.1f\n", exportMs);
    std::printf("main_thread_max_block_ms_export: %.1f\n", exportBlockMs);
    std::printf("main_thread_max_gap_ms_idle_baseline: %.1f\n", idleBlockMs);
    std::printf("main_thread_max_busy_ms_export: %.1f\n", exportBusyMs);
    std::printf("resync_ms_1000_one_change: %.1f\n", resyncs[resyncs.size() / 2]);
    std::printf("main_thread_max_block_ms_resync: %.1f\n", resyncBlockMs);
    std::printf("eds_add_ms_1000_direct_baseline: %.1f\n", directMs);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    try {
        figures();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_contacts: %s\n", e.what());
        return 1;
    }
    return 0;
}

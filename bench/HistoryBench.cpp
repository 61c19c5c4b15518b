// The call list: how soon a launch with calls.v1.json shows rows, what a
// further page of 50 costs merged into 2,000 rows, and the frame time of the
// recents screen scrolled through 2,000 rows, drawn offscreen in software as
// the app draws. Baselines measured in the same run: reading the cache file
// alone, the log's own append without the screen's model, and a bare list of
// 2,000 plain text lines scrolled the same way.
#include "history/RecentsModel.h"
#include "platform/Files.h"
#include "shell/Application.h"

#include "Services.h"

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

using Row = CallHistory::Row;

// Row n of a long call log, newest first, a minute apart, of every kind.
Row logRow(int n) {
    Row row;
    row.callUuid = QStringLiteral("c0ffee00-0000-4000-8000-%1").arg(n, 12, 10, QChar('0'));
    const QDateTime start =
        QDateTime(QDate(2026, 11, 22), QTime(18, 0), Qt::UTC).addSecs(-97 * qint64(n));
    row.startAt = start.toString(Qt::ISODateWithMs);
    row.endAt = start.addSecs(40).toString(Qt::ISODateWithMs);
    switch (n % 4) {
    case 0:
        row.from = "201";
        row.to = "+4930123456";
        row.direction = "outbound";
        row.answerAt = start.addSecs(5).toString(Qt::ISODateWithMs);
        row.mine = Row::Mine{"caller", false};
        break;
    case 1:
        row.from = "203";
        row.fromName = "Chloé Martin";
        row.to = "201";
        row.direction = "internal";
        row.mine = Row::Mine{"callee", false};
        break;
    case 2:
        row.from = "+442071234567";
        row.to = "201";
        row.direction = "inbound";
        row.answerAt = start.addSecs(25).toString(Qt::ISODateWithMs);
        row.voicemail = true;
        row.mine = Row::Mine{"callee", false};
        break;
    default:
        row.from = "+4989555123";
        row.to = "600";
        row.direction = "inbound";
        row.answerAt = start.addSecs(6).toString(Qt::ISODateWithMs);
        row.answeredBy = "u-004";
        row.mine = Row::Mine{"callee", false};
        break;
    }
    return row;
}

QByteArray pageOf(int first, int count) {
    wire::OrderedJson calls = wire::OrderedJson::array();
    for (int n = first; n < first + count; ++n) {
        calls.push_back(logRow(n).toJson());
    }
    wire::OrderedJson page = wire::OrderedJson::object();
    page["calls"] = calls;
    return wire::bytes(page);
}

QCoro::Task<QByteArray> answer(QByteArray body) {
    co_return body;
}

// Pages of the log, from memory: the server's time is not what is measured here.
struct Pages {
    int next = 0;
    CallHistory::Fetch fetch() {
        return [this](QString) {
            const QByteArray body = pageOf(next, CallHistory::pageSize);
            next += CallHistory::pageSize;
            return answer(body);
        };
    }
};

// Loads pages until the log holds `rows` rows. The fetches finish at once.
void fill(CallHistory& history, Pages& pages, int rows) {
    history.load(pages.fetch());
    while (history.rows().size() < rows) {
        history.loadMore(pages.fetch());
    }
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    const auto at = std::min(values.size() - 1, std::size_t(p * double(values.size() - 1) + 0.5));
    return values[at];
}

double median(std::vector<double> values) {
    return percentile(std::move(values), 0.5);
}

double ms(const QElapsedTimer& timer) {
    return double(timer.nsecsElapsed()) / 1e6;
}

void print(const char* name, double value) {
    std::printf("%s: %.3f\n", name, value);
    std::fflush(stdout);
}

// Scrolls a list through its rows, a step per frame, and gives each frame's time.
std::vector<double> scrollFrames(QQuickWindow& window, QQuickItem& list, int frames) {
    std::vector<double> times;
    const qreal step = 37;
    for (int i = 0; i < frames; ++i) {
        const qreal height = list.property("contentHeight").toReal();
        const qreal y = std::fmod(i * step, std::max<qreal>(1, height - list.height()));
        QElapsedTimer timer;
        timer.start();
        list.setProperty("contentY", y);
        // One whole frame: polish, sync and render of the changed scene.
        const QImage frame = window.grabWindow();
        times.push_back(ms(timer));
        if (frame.isNull()) {
            std::fprintf(stderr, "a frame could not be drawn\n");
        }
    }
    return times;
}

std::unique_ptr<QQuickWindow> hostWindow(QQmlEngine& engine, const QByteArray& body,
                                         const QVariantMap& properties) {
    QQmlComponent component(&engine);
    component.setData("import QtQuick\nimport QtQuick.Controls\nimport Velnor.Screens\n"
                      "Window {\n id: w\n width: 640; height: 720\n"
                      " property QtObject shell\n property var rows\n"
                      " color: Theme.windowBackground\n" +
                          body + "\n}\n",
                      QUrl(QStringLiteral("qrc:/bench/Host.qml")));
    std::unique_ptr<QQuickWindow> window(
        qobject_cast<QQuickWindow*>(component.createWithInitialProperties(properties)));
    if (!window) {
        std::fprintf(stderr, "%s\n", qPrintable(component.errorString()));
        std::exit(1);
    }
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get())) {
        std::fprintf(stderr, "the window was not shown\n");
        std::exit(1);
    }
    return window;
}

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    TempHome home;
    Application::describe();
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    QGuiApplication qt(argc, argv);
    Application::loadFonts();
    const int runs = 25;

    // A launch with the first page in the cache file: from making the app to
    // its rows in the recents model.
    const QString cachePath = CallHistory::defaultCachePath();
    {
        QList<Row> first;
        for (int n = 0; n < CallHistory::pageSize; ++n) {
            first.append(logRow(n));
        }
        Files::writeAtomically(cachePath, CallHistory::encodeRows(first));
    }
    std::vector<double> launches, reads;
    for (int i = 0; i < runs; ++i) {
        MemorySettingsStore settings;
        MemorySecureStore secrets;
        QElapsedTimer timer;
        timer.start();
        QFile file(cachePath);
        file.open(QIODevice::ReadOnly);
        const QByteArray bytes = file.readAll();
        reads.push_back(ms(timer));
        timer.restart();
        Application app(settings, secrets);
        const int rows = app.shellState().recentsModel()->rowCount();
        launches.push_back(ms(timer));
        if (rows != CallHistory::pageSize || bytes.isEmpty()) {
            std::fprintf(stderr, "the cached page did not show: %d rows\n", rows);
            return 1;
        }
    }
    print("first_page_visible_ms_cached", median(launches));
    print("first_page_visible_ms_cached_max", *std::max_element(launches.begin(), launches.end()));
    print("cache_file_read_ms", median(reads));

    // A further page of 50 merged into 2,000 rows: the log's append, the
    // merge with the recents and the rows put in place in the screen's model.
    std::vector<double> merges, appends;
    for (int i = 0; i < runs; ++i) {
        MemorySettingsStore settings;
        Recents recents(settings);
        {
            CallHistory history(home.path() + "/no-cache.json");
            RecentsModel model(history, recents, settings);
            Pages pages;
            fill(history, pages, 2000);
            const QByteArray page = pageOf(2000, CallHistory::pageSize);
            QElapsedTimer timer;
            timer.start();
            history.loadMore([page](QString) { return answer(page); });
            merges.push_back(ms(timer));
            if (model.rowCount() != 2050) {
                std::fprintf(stderr, "the page did not merge: %d rows\n", model.rowCount());
                return 1;
            }
        }
        CallHistory bare(home.path() + "/no-cache.json");
        Pages pages;
        fill(bare, pages, 2000);
        const QByteArray page = pageOf(2000, CallHistory::pageSize);
        QElapsedTimer timer;
        timer.start();
        bare.loadMore([page](QString) { return answer(page); });
        appends.push_back(ms(timer));
    }
    print("page_merge_ms", median(merges));
    print("page_merge_ms_max", *std::max_element(merges.begin(), merges.end()));
    print("page_append_ms_log_only", median(appends));

    // The recents screen scrolled through 2,000 rows.
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    Application app(settings, secrets);
    QQmlEngine engine;
    engine.addImportPath(QStringLiteral("qrc:/"));
    Pages pages;
    fill(app.session().history(), pages, 2000);
    const int frames = 600;
    std::vector<double> recentsFrames, bareFrames;
    {
        auto window = hostWindow(
            engine, "RecentsView { anchors.fill: parent; model: w.shell.recents; shell: w.shell }",
            {{"shell", QVariant::fromValue<QObject*>(&app.shellState())}});
        QQuickItem* list = window->findChild<QQuickItem*>("recentsList");
        if (!list || list->property("count").toInt() != 2000) {
            std::fprintf(stderr,
                         "the list does not hold 2,000 rows: %d in the log, %d in the list\n",
                         int(app.session().history().rows().size()),
                         list ? list->property("count").toInt() : -1);
            return 1;
        }
        scrollFrames(*window, *list, 30); // warm: delegates made, glyphs cached
        recentsFrames = scrollFrames(*window, *list, frames);
    }
    {
        QStringList rows;
        for (int i = 0; i < 2000; ++i) {
            rows.append(QStringLiteral("Row %1").arg(i));
        }
        auto window = hostWindow(engine,
                                 "ListView { objectName: \"bare\"; anchors.fill: parent; "
                                 "model: w.rows; delegate: Text { height: 56; text: modelData } }",
                                 {{"rows", rows}});
        QQuickItem* list = window->findChild<QQuickItem*>("bare");
        scrollFrames(*window, *list, 30);
        bareFrames = scrollFrames(*window, *list, frames);
    }
    print("scroll_frame_ms_p99", percentile(recentsFrames, 0.99));
    print("scroll_frame_ms_median", median(recentsFrames));
    print("scroll_frame_ms_p99_bare_list", percentile(bareFrames, 0.99));
    return 0;
}

// Live updates against rz-devserver on loopback, with a company of 5,000:
// presence deltas through the socket into the models, the CPU and memory they
// cost, and how soon a socket cut without a close frame is replaced. The
// baseline is a bare websocket receiving the same frames without reading them.
#include "live/Live.h"

#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"

#include "platform/SecureStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QUrlQuery>
#include <QWebSocket>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

constexpr int users = 5000;
constexpr int deltas = 100'000;
constexpr int burst = 10'000;

double rssMb() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const auto& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
        }
    }
    return -1;
}

double cpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

std::string userId(int i) {
    char id[16];
    std::snprintf(id, sizeof id, "u-%03d", i + 1);
    return id;
}

// Every delta changes its user: each moves that user to the next word after
// the one they have. Made before anything is measured, in bursts the control
// interface takes in one request.
std::vector<json> deltaBursts(const live::PresenceMap& start) {
    static const char* const words[] = {"idle", "ringing", "busy", "dnd", "offline"};
    std::vector<int> current(users);
    for (int u = 0; u < users; ++u) {
        current[size_t(u)] = int(start.value(QString::fromStdString(userId(u))));
    }
    std::vector<json> bursts;
    for (int begin = 0; begin < deltas; begin += burst) {
        json frames = json::array();
        for (int i = begin; i < begin + burst; ++i) {
            int& word = current[size_t(i % users)];
            word = (word + 1) % 5;
            frames.push_back({{"type", "delta"},
                              {"topic", "presence"},
                              {"data", {{"userId", userId(i % users)}, {"state", words[word]}}}});
        }
        bursts.push_back({{"frames", frames}, {"topic", "presence"}});
    }
    return bursts;
}

void push(DevServer& server, const std::vector<json>& bursts) {
    for (const json& body : bursts) {
        server.control("POST", "live/push", body);
    }
}

void fail(const char* what) {
    std::fprintf(stderr, "bench live: %s\n", what);
    std::exit(1);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    DevServer server({"--directory-size", QString::number(users), "--auto-approve", "u-001",
                      "--ping-interval", "600"});
    MemorySecureStore store;
    auto api = API::make(server.url(), store);
    {
        const auto authorization = API::makeAuthorization(server.url());
        QNetworkAccessManager network;
        const auto answer = httpRequest(network, "GET", authorization.url);
        const QUrl redirect(QString::fromUtf8(answer.header("Location")));
        runTask(api->exchangeCode(QUrlQuery(redirect).queryItemValue("code", QUrl::FullyDecoded),
                                  authorization.verifier));
    }

    Live live([api]() { return api->liveConnection(); });
    live.start();
    if (!spinUntil([&] { return live.presence().size() == users; }, 30s)) {
        fail("no presence snapshot");
    }

    // Deltas into the presence model, counted where a view would see them.
    int applied = 0;
    QObject::connect(live.presenceModel(), &QAbstractItemModel::dataChanged, [&] { ++applied; });
    const auto bursts = deltaBursts(live.presence());
    const double rssBefore = rssMb();
    const double cpuBefore = cpuSeconds();
    QElapsedTimer wall;
    wall.start();
    push(server, bursts);
    if (!spinUntil([&] { return applied >= deltas; }, 120s)) {
        fail("not every delta reached the model");
    }
    const double seconds = double(wall.nsecsElapsed()) / 1e9;
    const double cpu = cpuSeconds() - cpuBefore;
    const double rssAfter = rssMb();

    // A socket cut without a close frame, until subscribed again (its first snapshot).
    std::vector<double> reconnects;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        server.control("POST", "live/drop", {{"closeFrame", false}});
        if (!spinUntil([&] { return !live.connected(); }, 10s) ||
            !spinUntil([&] { return live.connected(); }, 10s)) {
            fail("no reconnect");
        }
        reconnects.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(reconnects.begin(), reconnects.end());
    live.stop();

    // The same frames to a bare socket that only counts them.
    QUrl url = server.url("api/live");
    url.setScheme("ws");
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Bearer " + runTask(api->validAccessToken()).toUtf8());
    QWebSocket bare;
    int received = 0;
    QObject::connect(&bare, &QWebSocket::textMessageReceived, [&](const QString&) { ++received; });
    bool open = false;
    QObject::connect(&bare, &QWebSocket::connected, [&] { open = true; });
    bare.open(request);
    if (!spinUntil([&] { return open; }, 10s)) {
        fail("the bare socket did not open");
    }
    bare.sendTextMessage(R"({"type":"sub","topic":"presence"})");
    if (!spinUntil([&] { return received == 1; }, 10s)) {
        fail("the bare socket got no snapshot");
    }
    QElapsedTimer bareWall;
    bareWall.start();
    push(server, bursts);
    if (!spinUntil([&] { return received >= deltas + 1; }, 120s)) {
        fail("the bare socket missed frames");
    }
    const double bareSeconds = double(bareWall.nsecsElapsed()) / 1e9;

    std::printf("deltas_per_s: %.0f\n", deltas / seconds);
    std::printf("cpu_us_per_delta: %.2f\n", cpu * 1e6 / deltas);
    std::printf("rss_growth_mb_100k_deltas: %.2f\n", rssAfter - rssBefore);
    std::printf("reconnect_ms_after_drop: %.0f\n", reconnects[reconnects.size() / 2]);
    std::printf("reconnect_ms_after_drop_max: %.0f\n", reconnects.back());
    std::printf("baseline_bare_socket_frames_per_s: %.0f\n", deltas / bareSeconds);
    return 0;
}

// Figures of the directory with a company of 10,000 users on rz-devserver:
// decoding the full answer (against parsing the same JSON alone), an
// unchanged directory answered 304 (against GET api/me, one small answer),
// one more letter typed into the directory's search, a launcher's query over
// D-Bus (against a bare D-Bus ping of the same service), and what the
// directory adds to the resident memory of a signed-in session.
#include "../tests/integration/session/BrowserKit.h"
#include "DevServer.h"
#include "RunTask.h"
#include "Services.h"

#include "api/Json.h"
#include "history/DirectoryCache.h"
#include "session/Session.h"
#include "shell/SearchProvider.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFile>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QThread>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Milliseconds of one run of work, the median of rounds.
double medianMs(int rounds, const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    return median(times);
}

double rssMb() {
    malloc_trim(0);
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

// The launcher's service as the app serves it, on a thread and bus connection
// of its own, so that the bench's blocking calls are answered.
class LauncherService : public QThread {
public:
    explicit LauncherService(QString address) : m_address(std::move(address)) {}
    QSemaphore ready;

protected:
    void run() override {
        {
            QDBusConnection bus = QDBusConnection::connectToBus(m_address, "launcher-service");
            SearchProvider provider(nullptr);
            provider.publish(bus);
            bus.registerService(QStringLiteral("net.velnor.rz"));
            ready.release();
            exec();
        }
        QDBusConnection::disconnectFromBus("launcher-service");
    }

private:
    QString m_address;
};

void fail(const char* what) {
    std::fprintf(stderr, "bench_directory: %s\n", what);
    std::exit(1);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir caches;
    qputenv("XDG_CACHE_HOME", caches.path().toUtf8());

    DevServer server({"--auto-approve", "u-001", "--directory-size", "10000"});
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    settings.setUrl("rz.server", server.url());
    Session session(settings, secrets);
    session.setOpenBrowser([&session](const QUrl& url) {
        const QUrl redirect = browserSignIn(url);
        QMetaObject::invokeMethod(
            &session, [&session, redirect] { session.handleRedirect(redirect); },
            Qt::QueuedConnection);
        return true;
    });
    // Signed in without a directory: the read that sign-in starts fails once.
    server.control("POST", "faults", {{"path", "api/directory"}, {"status", 500}});
    session.signIn();
    QElapsedTimer waited;
    waited.start();
    while (!session.hasDirectoryError() && !session.hasError() && waited.elapsed() < 20000) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    if (!session.hasDirectoryError() || session.directory()) {
        fail("the sign-in did not end with the directory read failed");
    }
    const double rssBefore = rssMb();

    runTask(session.refreshDirectory(), std::chrono::seconds(30));
    if (!session.directory() || session.directory()->users.size() != 10000) {
        fail("the 10,000-user directory did not load");
    }
    // The search filters the whole list once, as the screen does when it opens.
    session.directoryList()->setQuery(QStringLiteral("a"));
    session.directoryList()->setQuery(QString());
    const double rssAfter = rssMb();

    // Decoding the full answer.
    QNetworkAccessManager network;
    const auto body = runTask(session.api().request(QStringLiteral("api/directory"))).body;
    const double decodeMs = medianMs(15, [&] { (void)decode<Directory>(body); });
    const double parseMs = medianMs(15, [&] { (void)wire::parse(body); });

    // An unchanged directory: 304, nothing decoded.
    const int decodes = session.directoryDecodes();
    const double notModifiedMs = medianMs(30, [&] { runTask(session.refreshDirectory()); });
    const int decodedOn304 = session.directoryDecodes() - decodes;
    const double meMs = medianMs(30, [&] { runTask(session.api().request("api/me")); });

    // One more letter typed into the search over 10,000 rows.
    DirectoryFilter* list = session.directoryList();
    std::vector<double> keystrokes;
    for (const QString& word :
         {QStringLiteral("milo"), QStringLiteral("nora"), QStringLiteral("otto"),
          QStringLiteral("sven"), QStringLiteral("tara"), QStringLiteral("uwe ")}) {
        list->setQuery(QString());
        for (int n = 1; n <= word.size(); ++n) {
            QElapsedTimer timer;
            timer.start();
            list->setQuery(word.left(n));
            if (n > 1) {
                keystrokes.push_back(double(timer.nsecsElapsed()) / 1e6);
            }
        }
    }
    list->setQuery(QString());

    // A launcher's query over D-Bus.
    PrivateBus bus;
    LauncherService service(bus.address());
    service.start();
    service.ready.acquire();
    QDBusConnection client = QDBusConnection::connectToBus(bus.address(), "launcher-client");
    const auto callOnce = [&client](const QString& interface, const QString& method,
                                    const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            "net.velnor.rz", SearchProvider::objectPath, interface, method);
        message.setArguments(arguments);
        const QDBusMessage reply = client.call(message, QDBus::Block, 10000);
        if (reply.type() != QDBusMessage::ReplyMessage) {
            fail(qPrintable(reply.errorMessage()));
        }
        return reply;
    };
    const auto found =
        callOnce("org.gnome.Shell.SearchProvider2", "GetInitialResultSet", {QStringList{"ben"}});
    if (found.arguments().value(0).toStringList().isEmpty()) {
        fail("the launcher found nobody named ben");
    }
    const double launcherMs = medianMs(30, [&] {
        callOnce("org.gnome.Shell.SearchProvider2", "GetInitialResultSet", {QStringList{"ben"}});
    });
    const double pingMs = medianMs(30, [&] { callOnce("org.freedesktop.DBus.Peer", "Ping", {}); });
    service.quit();
    service.wait();

    std::printf("directory_decode_ms_10k: %.2f\n", decodeMs);
    std::printf("baseline_json_parse_ms_10k: %.2f\n", parseMs);
    std::printf("directory_304_ms: %.2f\n", notModifiedMs);
    std::printf("directory_304_decodes: %d\n", decodedOn304);
    std::printf("baseline_get_me_ms: %.2f\n", meMs);
    std::printf("filter_keystroke_ms_10k: %.2f\n", median(keystrokes));
    std::printf("filter_keystroke_max_ms_10k: %.2f\n",
                *std::max_element(keystrokes.begin(), keystrokes.end()));
    std::printf("launcher_query_ms_10k: %.2f\n", launcherMs);
    std::printf("baseline_dbus_ping_ms: %.2f\n", pingMs);
    std::printf("directory_file_kb_10k: %.0f\n",
                double(QFile(DirectoryCache::path()).size()) / 1024.0);
    std::printf("rss_mb_10k_directory: %.1f\n", rssAfter - rssBefore);
    std::printf("baseline_rss_mb_signed_in: %.1f\n", rssBefore);
    return 0;
}

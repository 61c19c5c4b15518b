#include "Server.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QSocketNotifier>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2];

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] auto written = ::write(signalPipe[1], &byte, 1);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("rz-devserver"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A local velnor RZ dashboard for development and tests (loopback only)."));
    parser.addHelpOption();
    QCommandLineOption port(QStringLiteral("port"),
                            QStringLiteral("Port on 127.0.0.1; 0 picks a free one."),
                            QStringLiteral("PORT"), QStringLiteral("8480"));
    QCommandLineOption demo(QStringLiteral("demo"), QStringLiteral("Serve the demo company."));
    QCommandLineOption autoApprove(
        QStringLiteral("auto-approve"),
        QStringLiteral("Sign USER in without the sign-in page (id, extension or e-mail)."),
        QStringLiteral("USER"));
    QCommandLineOption accessTtl(QStringLiteral("access-ttl"),
                                 QStringLiteral("Lifetime of access tokens in seconds."),
                                 QStringLiteral("SECONDS"), QStringLiteral("3600"));
    QCommandLineOption edge(
        QStringLiteral("sip-edge"),
        QStringLiteral("SIP entry point offered to devices, transport:host:port (repeatable)."),
        QStringLiteral("EDGE"));
    QCommandLineOption ping(QStringLiteral("ping-interval"),
                            QStringLiteral("Seconds between websocket pings."),
                            QStringLiteral("SECONDS"), QStringLiteral("25"));
    QCommandLineOption size(QStringLiteral("directory-size"),
                            QStringLiteral("Number of users in the company."), QStringLiteral("N"),
                            QStringLiteral("12"));
    QCommandLineOption phone(
        QStringLiteral("phone"),
        QStringLiteral("Run the phone system: kamailio, rtpengine, baresip and sipp parties."));
    QCommandLineOption state(
        QStringLiteral("state"),
        QStringLiteral("Folder for the phone system's certificates, sounds and "
                       "recordings (default: a temporary one)."),
        QStringLiteral("DIR"));
    QCommandLineOption noAnswer(
        QStringLiteral("no-answer-s"),
        QStringLiteral("Seconds before an unanswered call goes to voicemail."),
        QStringLiteral("SECONDS"), QStringLiteral("20"));
    parser.addOptions(
        {port, demo, autoApprove, accessTtl, edge, ping, size, phone, state, noAnswer});
    parser.process(app);

    rzdev::Config config;
    bool ok = false;
    const int portValue = parser.value(port).toInt(&ok);
    if (!ok || portValue < 0 || portValue > 65535) {
        std::fprintf(stderr, "rz-devserver: bad --port\n");
        return 2;
    }
    config.port = quint16(portValue);
    config.demo = parser.isSet(demo);
    config.phone = config.demo || parser.isSet(phone);
    config.noAnswerS = parser.value(noAnswer).toInt(&ok);
    if (!ok || config.noAnswerS < 1) {
        std::fprintf(stderr, "rz-devserver: bad --no-answer-s\n");
        return 2;
    }
    // Without a folder of its own the phone system lives in a temporary one, gone at exit.
    QTemporaryDir temporaryState(QDir::tempPath() + QStringLiteral("/rz-devserver-XXXXXX"));
    config.stateDir =
        parser.isSet(state) ? QDir(parser.value(state)).absolutePath() : temporaryState.path();
    config.autoApprove = parser.value(autoApprove);
    config.accessTtlS = parser.value(accessTtl).toInt(&ok);
    if (!ok || config.accessTtlS <= 0) {
        std::fprintf(stderr, "rz-devserver: bad --access-ttl\n");
        return 2;
    }
    for (const auto& text : parser.values(edge)) {
        const auto parsed = rzdev::parseEdge(text);
        if (!parsed) {
            std::fprintf(stderr, "rz-devserver: bad --sip-edge %s (want tcp:HOST:PORT)\n",
                         qPrintable(text));
            return 2;
        }
        config.edges.push_back(*parsed);
    }
    config.pingIntervalS = parser.value(ping).toDouble(&ok);
    if (!ok || config.pingIntervalS <= 0) {
        std::fprintf(stderr, "rz-devserver: bad --ping-interval\n");
        return 2;
    }
    config.directorySize = parser.value(size).toInt(&ok);
    if (!ok || config.directorySize < 1) {
        std::fprintf(stderr, "rz-devserver: bad --directory-size\n");
        return 2;
    }

    rzdev::Server server(config);
    if (!server.start()) {
        return 1;
    }
    // The first line of standard output is the port alone, for tests that ask for port 0.
    std::printf("%u\n", unsigned(server.port()));
    std::fflush(stdout);
    std::fprintf(stderr, "rz-devserver: listening on http://127.0.0.1:%u/%s\n",
                 unsigned(server.port()), config.demo ? " (demo)" : "");

    // SIGTERM and SIGINT end the event loop, so that sockets close cleanly.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) == 0) {
        std::signal(SIGTERM, onSignal);
        std::signal(SIGINT, onSignal);
        auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
        QObject::connect(notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    }
    std::signal(SIGPIPE, SIG_IGN);
    return app.exec();
}

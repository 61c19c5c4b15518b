// Figures of rz-devserver with a company of 10,000 users: a full directory
// read, a conditional read answered 304, and the server's resident memory.
// GET api/me is measured in the same run as the baseline of one small answer.
#include "DevServer.h"
#include "Ports.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QUrlQuery>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

QByteArray bearer;

double medianMs(QNetworkAccessManager& network, const QUrl& url,
                QList<QPair<QByteArray, QByteArray>> headers, int expected, int rounds) {
    std::vector<double> times;
    headers.append({"Authorization", bearer});
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        const auto answer = httpRequest(network, "GET", url, {}, headers);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (answer.status != expected) {
            std::fprintf(stderr, "unexpected status %d for %s\n", answer.status,
                         qPrintable(url.toString()));
            std::exit(1);
        }
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

double rssMb(qint64 pid) {
    QFile status(QString("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const auto& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
        }
    }
    return -1;
}

using json = nlohmann::json;

// Signs u-001 in through a server started with --auto-approve u-001; gives the bearer header.
QByteArray signIn(QNetworkAccessManager& network, const QUrl& base) {
    const QByteArray verifier(43, 'v');
    const auto challenge =
        QCryptographicHash::hash(verifier, QCryptographicHash::Sha256)
            .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    QUrl authorize = base.resolved(QUrl("oauth/authorize"));
    authorize.setQuery(
        "response_type=code&client_id=rz-mobile&redirect_uri=rzmobile%3A%2F%2Foauth%2Fcallback"
        "&code_challenge=" +
        QString::fromLatin1(challenge) + "&code_challenge_method=S256&state=bench");
    const auto redirect = httpRequest(network, "GET", authorize);
    const auto code = QUrlQuery(QUrl(QString::fromUtf8(redirect.header("Location"))).query())
                          .queryItemValue("code", QUrl::FullyDecoded);
    const auto tokens =
        httpRequest(network, "POST", base.resolved(QUrl("oauth/token")),
                    "grant_type=authorization_code&client_id=rz-mobile"
                    "&redirect_uri=rzmobile%3A%2F%2Foauth%2Fcallback&code=" +
                        QUrl::toPercentEncoding(code) + "&code_verifier=" + verifier,
                    {{"Content-Type", "application/x-www-form-urlencoded"}});
    if (tokens.status != 200) {
        std::fprintf(stderr, "sign-in failed: %d\n", tokens.status);
        std::exit(1);
    }
    return "Bearer " +
           QByteArray::fromStdString(tokens.json().at("access_token").get<std::string>());
}

} // namespace

// ---------------------------------------------------------------- phone system

namespace phone {

// Proportional memory of one process: shared pages counted once across all who share them.
double pssMb(qint64 pid) {
    QFile rollup(QString("/proc/%1/smaps_rollup").arg(pid));
    if (!rollup.open(QIODevice::ReadOnly))
        return 0;
    for (const auto& line : rollup.readAll().split('\n')) {
        if (line.startsWith("Pss:"))
            return line.mid(4).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return 0;
}

// Resident memory of every process in these process groups, and of the server
// itself; with proportional, the same summed without double-counting shared pages.
double groupRssMb(qint64 server, const std::vector<qint64>& groups, bool proportional = false) {
    const auto measure = [&](qint64 pid) { return proportional ? pssMb(pid) : rssMb(pid); };
    double total = measure(server);
    QDir proc("/proc");
    for (const auto& entry : proc.entryList(QDir::Dirs)) {
        bool number = false;
        const qint64 pid = entry.toLongLong(&number);
        if (!number)
            continue;
        QFile stat("/proc/" + entry + "/stat");
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // The fields after the command's closing parenthesis: state, ppid, pgrp, ...
        const QByteArray text = stat.readAll();
        const auto fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        const qint64 group = fields.value(2).toLongLong();
        if (std::find(groups.begin(), groups.end(), group) != groups.end())
            total += measure(pid);
    }
    return total;
}

// A caller on TCP that authenticates, calls the echo test, and hangs up at once.
QByteArray callerScenario(const std::string& user) {
    const QByteArray u = QByteArray::fromStdString(user);
    const QByteArray invite = "INVITE sip:999@rz.local SIP/2.0\n"
                              "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
                              "From: <sip:" +
                              u +
                              "@rz.local>;tag=[pid]bench[call_number]\n"
                              "To: <sip:999@rz.local>\n"
                              "Call-ID: [call_id]\n"
                              "CSeq: CSEQ INVITE\n"
                              "Contact: <sip:" +
                              u +
                              "@[local_ip]:[local_port];transport=[transport]>\n"
                              "Max-Forwards: 70\n"
                              "AUTH"
                              "Content-Type: application/sdp\n"
                              "Content-Length: [len]\n\n"
                              "v=0\no=- 1 1 IN IP[local_ip_type] [local_ip]\ns=-\n"
                              "c=IN IP[media_ip_type] [media_ip]\nt=0 0\n"
                              "m=audio [media_port] RTP/AVP 0\na=rtpmap:0 PCMU/8000\n";
    QByteArray first = invite;
    first.replace("CSEQ", "1").replace("AUTH", "");
    QByteArray second = invite;
    second.replace("CSEQ", "2").replace("AUTH", "[authentication]\n");
    return "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n"
           "<scenario name=\"echo calls\">\n"
           "<send retrans=\"500\"><![CDATA[\n" +
           first +
           "\n]]></send>\n"
           "<recv response=\"100\" optional=\"true\"/>\n"
           "<recv response=\"407\" auth=\"true\"/>\n"
           "<send><![CDATA[\nACK sip:999@rz.local SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "[last_From:]\n[last_To:]\nCall-ID: [call_id]\nCSeq: 1 ACK\nMax-Forwards: 70\n"
           "Content-Length: 0\n\n]]></send>\n"
           "<send retrans=\"500\"><![CDATA[\n" +
           second +
           "\n]]></send>\n"
           "<recv response=\"100\" optional=\"true\"/>\n"
           "<recv response=\"180\" optional=\"true\"/>\n"
           "<recv response=\"200\" rrs=\"true\"/>\n"
           "<send><![CDATA[\nACK [next_url] SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "[routes]\n[last_From:]\n[last_To:]\nCall-ID: [call_id]\nCSeq: 2 ACK\n"
           "Max-Forwards: 70\nContent-Length: 0\n\n]]></send>\n"
           "<send retrans=\"500\"><![CDATA[\nBYE [next_url] SIP/2.0\n"
           "Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]\n"
           "[routes]\n[last_From:]\n[last_To:]\nCall-ID: [call_id]\nCSeq: 3 BYE\n"
           "Max-Forwards: 70\nContent-Length: 0\n\n]]></send>\n"
           "<recv response=\"200\"/>\n"
           "</scenario>\n";
}

json waitReady(QNetworkAccessManager& network, const QUrl& url) {
    const auto ready = httpRequest(network, "GET", url, {}, {}, std::chrono::seconds(20));
    if (ready.status != 200) {
        std::fprintf(stderr, "the phone system did not become ready: %s\n", ready.body.constData());
        std::exit(1);
    }
    return ready.json();
}

} // namespace phone

namespace {

// rz-devserver --phone: start to ready, the memory of all its processes, and
// calls per second from sipp through kamailio to the echo test.
void benchPhone() {
    QNetworkAccessManager network;
    QTemporaryDir state;
    const QStringList phoneArguments = {
        "--port", "0", "--phone", "--state", state.path(), "--auto-approve", "u-001"};
    QElapsedTimer firstTimer;
    firstTimer.start();
    {
        // The first start makes the certificates and the parties' sounds; later ones reuse them.
        ChildProcess first;
        first.start(DevServer::program(), phoneArguments);
        const auto port = first.readLine(std::chrono::seconds(30));
        phone::waitReady(network, QUrl("http://127.0.0.1:" + port + "/_control/phone/ready"));
        std::printf("phone_first_start_ms: %lld\n", (long long)firstTimer.elapsed());
        first.stop();
    }
    ChildProcess server;
    QElapsedTimer startTimer;
    startTimer.start();
    server.start(DevServer::program(), phoneArguments);
    const QUrl base("http://127.0.0.1:" + server.readLine(std::chrono::seconds(30)) + "/");
    const json status = phone::waitReady(network, base.resolved(QUrl("_control/phone/ready")));
    const auto startMs = startTimer.elapsed();
    std::printf("phone_start_ms: %lld\n", (long long)startMs);
    std::printf("phone_ready_after_spawn_ms: %lld\n",
                (long long)status.at("readyAfterMs").get<qint64>());
    std::vector<qint64> groups;
    for (const auto& p : status.at("processes"))
        groups.push_back(p.at("pid").get<qint64>());
    std::printf("phone_processes: %zu\n", groups.size());
    std::printf("phone_rss_mb: %.1f\n", phone::groupRssMb(server.pid(), groups));
    std::printf("phone_pss_mb: %.1f\n", phone::groupRssMb(server.pid(), groups, true));

    const QByteArray bearer = signIn(network, base);
    const auto device =
        httpRequest(network, "POST", base.resolved(QUrl("api/me/app-device")),
                    R"({"installId":"bench","name":"Bench","platform":"linux"})",
                    {{"Authorization", bearer}, {"Content-Type", "application/json"}});
    if (device.status != 200) {
        std::fprintf(stderr, "app-device failed: %d\n", device.status);
        std::exit(1);
    }
    const auto credentials = device.json();
    const std::string user = credentials.at("sipUsername");
    const std::string password = credentials.at("password");
    const auto tcpPort = status.at("tcp").at("port").get<int>();

    QTemporaryDir work;
    QFile scenario(work.path() + "/calls.xml");
    if (!scenario.open(QIODevice::WriteOnly) || scenario.write(phone::callerScenario(user)) < 0) {
        std::fprintf(stderr, "cannot write the scenario\n");
        std::exit(1);
    }
    scenario.close();
    constexpr int rate = 100;
    constexpr int seconds = 10;
    ChildProcess sipp;
    sipp.process().setWorkingDirectory(work.path());
    QElapsedTimer callTimer;
    callTimer.start();
    sipp.start("sipp", {"-t",
                        "t1",
                        "-sf",
                        scenario.fileName(),
                        "-i",
                        "127.0.0.1",
                        "-p",
                        QString::number(freeLoopbackPort()),
                        "-m",
                        QString::number(rate * seconds),
                        "-r",
                        QString::number(rate),
                        "-rp",
                        "1000",
                        "-l",
                        "200",
                        "-au",
                        QString::fromStdString(user),
                        "-ap",
                        QString::fromStdString(password),
                        "-nostdin",
                        "-timeout",
                        "60s",
                        "-trace_err",
                        "-error_file",
                        work.path() + "/errors.log",
                        "127.0.0.1:" + QString::number(tcpPort)});
    if (!sipp.process().waitForFinished(90000)) {
        std::fprintf(stderr, "sipp did not finish\n");
        std::exit(1);
    }
    const double elapsedS = double(callTimer.elapsed()) / 1000.0;
    const int exitCode = sipp.process().exitCode();
    // sipp ends 0 when every call went through, 1 when at least one failed.
    QFile errors(work.path() + "/errors.log");
    int failed = 0;
    if (errors.open(QIODevice::ReadOnly))
        failed = int(errors.readAll().count("Aborting call"));
    std::printf("calls_total: %d\n", rate * seconds);
    std::printf("calls_failed: %d\n", exitCode == 0 ? 0 : std::max(failed, 1));
    std::printf("calls_per_s: %.1f\n", exitCode == 0 ? rate * seconds / elapsedS : 0.0);
    std::printf("phone_rss_after_calls_mb: %.1f\n", phone::groupRssMb(server.pid(), groups));
    server.stop();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    DevServer server({"--directory-size", "10000", "--auto-approve", "u-001"});
    QNetworkAccessManager network;

    const QByteArray verifier(43, 'v');
    const auto challenge =
        QCryptographicHash::hash(verifier, QCryptographicHash::Sha256)
            .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    QUrl authorize = server.url("oauth/authorize");
    authorize.setQuery(
        "response_type=code&client_id=rz-mobile&redirect_uri=rzmobile%3A%2F%2Foauth%2Fcallback"
        "&code_challenge=" +
        QString::fromLatin1(challenge) + "&code_challenge_method=S256&state=bench");
    const auto redirect = httpRequest(network, "GET", authorize);
    const auto code = QUrlQuery(QUrl(QString::fromUtf8(redirect.header("Location"))).query())
                          .queryItemValue("code", QUrl::FullyDecoded);
    const auto tokens =
        httpRequest(network, "POST", server.url("oauth/token"),
                    "grant_type=authorization_code&client_id=rz-mobile"
                    "&redirect_uri=rzmobile%3A%2F%2Foauth%2Fcallback&code=" +
                        QUrl::toPercentEncoding(code) + "&code_verifier=" + verifier,
                    {{"Content-Type", "application/x-www-form-urlencoded"}});
    if (tokens.status != 200) {
        std::fprintf(stderr, "sign-in failed: %d\n", tokens.status);
        return 1;
    }
    bearer =
        "Bearer " + QByteArray::fromStdString(tokens.json().at("access_token").get<std::string>());

    QElapsedTimer firstTimer;
    firstTimer.start();
    const auto first =
        httpRequest(network, "GET", server.url("api/directory"), {}, {{"Authorization", bearer}});
    const double firstMs = double(firstTimer.nsecsElapsed()) / 1e6;
    const auto tag = first.header("ETag");
    const auto users = first.json().at("users").size();

    const double me = medianMs(network, server.url("api/me"), {}, 200, 50);
    const double full = medianMs(network, server.url("api/directory"), {}, 200, 20);
    const double notModified =
        medianMs(network, server.url("api/directory"), {{"If-None-Match", tag}}, 304, 50);

    std::printf("directory_users: %zu\n", users);
    std::printf("directory_bytes: %lld\n", qlonglong(first.body.size()));
    std::printf("baseline_me_ms: %.3f\n", me);
    std::printf("directory_10k_first_ms: %.3f\n", firstMs); // includes writing the JSON once
    std::printf("directory_10k_ms: %.3f\n", full);
    std::printf("directory_304_ms: %.3f\n", notModified);
    std::printf("directory_10k_ratio: %.1f\n", full / me);
    std::printf("rss_mb: %.1f\n", rssMb(server.pid()));
    server.process().stop();
    benchPhone();
    return 0;
}

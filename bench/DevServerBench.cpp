// Figures of rz-devserver with a company of 10,000 users: a full directory
// read, a conditional read answered 304, and the server's resident memory.
// GET api/me is measured in the same run as the baseline of one small answer.
#include "DevServer.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QUrlQuery>

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
    return 0;
}

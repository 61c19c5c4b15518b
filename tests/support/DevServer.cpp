#include "DevServer.h"

#include <QEventLoop>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcessEnvironment>
#include <QTimer>

#include <stdexcept>

QByteArray HttpResult::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

nlohmann::json HttpResult::json() const {
    return nlohmann::json::parse(body.constData(), body.constData() + body.size());
}

HttpResult httpRequest(QNetworkAccessManager& network, const QByteArray& method, const QUrl& url,
                       const QByteArray& body, const QList<QPair<QByteArray, QByteArray>>& headers,
                       std::chrono::milliseconds bound) {
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    for (const auto& [key, value] : headers) {
        request.setRawHeader(key, value);
    }
    QNetworkReply* reply = network.sendCustomRequest(request, method, body);
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    timer.start(bound);
    if (!reply->isFinished()) {
        loop.exec();
    }
    if (!reply->isFinished()) {
        reply->abort();
        reply->deleteLater();
        throw std::runtime_error("no answer within the bound: " + method.toStdString() + " " +
                                 url.toString().toStdString());
    }
    HttpResult result;
    result.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    result.headers = reply->rawHeaderPairs();
    if (result.status == 0) {
        result.transportError = reply->errorString();
    }
    reply->deleteLater();
    return result;
}

QString DevServer::program() {
    // The build folder is compiled in; RZ_DEVSERVER points the tests at another server.
    return QProcessEnvironment::systemEnvironment().value(
        "RZ_DEVSERVER", QStringLiteral(VELNOR_BUILD_DIR "/devserver/rz-devserver"));
}

DevServer::DevServer(const QStringList& arguments) {
    m_process.start(program(), QStringList{"--port", "0"} + arguments);
    // The first line of standard output is the port the server listens on.
    // With --phone the first start makes its certificates before it listens.
    const auto line = QString::fromUtf8(m_process.readLine(std::chrono::seconds(30)));
    m_port = quint16(line.toUInt());
    if (m_port == 0) {
        throw std::runtime_error("rz-devserver gave no port: " + line.toStdString());
    }
}

QUrl DevServer::url(const QString& path) const {
    return QUrl(QString("http://127.0.0.1:%1/%2").arg(m_port).arg(path));
}

nlohmann::json DevServer::control(const QByteArray& method, const QString& path,
                                  const nlohmann::json& body, std::chrono::milliseconds bound) {
    const QByteArray bytes = body.is_null() ? QByteArray() : QByteArray::fromStdString(body.dump());
    const auto result = httpRequest(m_network, method, url("_control/" + path), bytes,
                                    {{"Content-Type", "application/json"}}, bound);
    if (result.status < 200 || result.status > 299) {
        throw std::runtime_error("control " + method.toStdString() + " " + path.toStdString() +
                                 " gave " + std::to_string(result.status) + ": " +
                                 result.body.toStdString());
    }
    return result.json();
}

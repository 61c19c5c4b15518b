#pragma once

#include "Services.h"

#include <QByteArray>
#include <QList>
#include <QNetworkAccessManager>
#include <QPair>
#include <QStringList>
#include <QUrl>

#include <nlohmann/json.hpp>

#include <chrono>

// One HTTP exchange as a test sees it: status, headers and body, or the
// transport's failure.
struct HttpResult {
    int status = 0;
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    QString transportError; // empty when an answer came

    QByteArray header(const QByteArray& name) const;
    nlohmann::json json() const; // throws when the body is not JSON
};

// Sends one request and waits for its answer within the bound; redirects are
// not followed. Throws std::runtime_error when the bound passes.
HttpResult httpRequest(QNetworkAccessManager& network, const QByteArray& method, const QUrl& url,
                       const QByteArray& body = {},
                       const QList<QPair<QByteArray, QByteArray>>& headers = {},
                       std::chrono::milliseconds bound = std::chrono::seconds(10));

// rz-devserver on a free loopback port for one test, stopped by its PID when
// the object goes.
class DevServer {
public:
    explicit DevServer(const QStringList& arguments = {});

    quint16 port() const { return m_port; }
    QUrl url(const QString& path = {}) const; // http://127.0.0.1:PORT/ + path
    qint64 pid() const { return m_process.pid(); }
    ChildProcess& process() { return m_process; }

    // A request to the control interface; throws unless the answer is 2xx.
    nlohmann::json control(const QByteArray& method, const QString& path,
                           const nlohmann::json& body = nullptr,
                           std::chrono::milliseconds bound = std::chrono::seconds(10));
    // Waits for the phone system of --phone (registrar, relay, parties) to be
    // up, and gives its status. Its start makes certificates and sounds and
    // starts daemons: on a loaded machine, or in an instrumented build, that
    // outlasts a request's usual bound.
    nlohmann::json phoneReady() {
        return control("GET", "phone/ready", nullptr, std::chrono::seconds(30));
    }

    static QString program();

private:
    ChildProcess m_process;
    quint16 m_port = 0;
    QNetworkAccessManager m_network;
};

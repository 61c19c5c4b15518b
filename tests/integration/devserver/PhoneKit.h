#pragma once

// rz-devserver with its phone system, and user agents that are not ours
// (baresip) standing in for the app: they register with what
// api/me/app-device hands out, place and take calls, and record what they hear.

#include "DevServerKit.h"
#include "Ports.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <cmath>
#include <string>
#include <vector>

namespace kit {

// rz-devserver --phone on free ports, ready (kamailio, relay and parties) when constructed.
class PhoneServer {
public:
    explicit PhoneServer(const QStringList& extra = {}) {
        m_process.start(DevServer::program(),
                        QStringList{"--port", "0", "--phone", "--state", m_dir.path()} + extra);
        // The first start makes certificates and sounds before it listens.
        m_port = quint16(m_process.readLine(30s).toUInt());
        if (!m_port)
            throw std::runtime_error("rz-devserver --phone gave no port");
        const auto ready = httpRequest(m_network, "GET", url("_control/phone/ready"), {}, {}, 20s);
        if (ready.status != 200) {
            throw std::runtime_error(
                "the phone system did not become ready: " + ready.body.toStdString() +
                m_process.process().readAllStandardError().toStdString());
        }
        status = ready.json();
    }

    QUrl url(const QString& path = {}) const {
        return QUrl(QString("http://127.0.0.1:%1/%2").arg(m_port).arg(path));
    }
    json control(const QByteArray& method, const QString& path, const json& body = nullptr) {
        const auto result = httpRequest(m_network, method, url("_control/" + path),
                                        body.is_null() ? QByteArray() : dump(body),
                                        {{"Content-Type", "application/json"}});
        if (result.status / 100 != 2) {
            throw std::runtime_error("control " + path.toStdString() + " gave " +
                                     std::to_string(result.status) + ": " +
                                     result.body.toStdString());
        }
        return result.json();
    }
    HttpResult get(const QString& path, const QString& token) {
        return httpRequest(m_network, "GET", url(path), {}, bearer(token));
    }
    // Signs the user in and provisions this computer as one of their devices.
    json provision(const QString& user, const QString& installId, QString* token = nullptr) {
        const auto tokens = signIn(*this, m_network, user);
        if (token)
            *token = tokens.access;
        const auto reply = httpRequest(m_network, "POST", url("api/me/app-device"),
                                       dump(json{{"installId", installId.toStdString()},
                                                 {"name", "Test desk"},
                                                 {"platform", "linux"}}),
                                       bearerJson(tokens.access));
        if (reply.status != 200)
            throw std::runtime_error("app-device gave " + std::to_string(reply.status));
        return reply.json();
    }
    std::uint16_t edgePort(const std::string& transport) const {
        return status.at(transport).at("port").get<std::uint16_t>();
    }
    QString caFile() const {
        return QString::fromStdString(status.at("caFile").get<std::string>());
    }
    quint16 port() const { return m_port; }
    QNetworkAccessManager& network() { return m_network; }
    QString folder() const { return m_dir.path(); }
    ChildProcess& process() { return m_process; }

    json status;

private:
    QTemporaryDir m_dir;
    ChildProcess m_process;
    quint16 m_port = 0;
    QNetworkAccessManager m_network;
};

// A baresip that plays the app: one account, on TCP or TLS, with a tone or
// silence to send and every call's received audio recorded to a WAV file.
class Agent {
public:
    Agent(PhoneServer& server, const json& device, const std::string& transport,
          const QString& sourceWav, const std::string& password = {});
    ~Agent();

    // Waits for the registration's outcome on baresip's output: true for 200 OK.
    bool waitRegistered(std::chrono::milliseconds bound = 10s);
    void command(const std::string& name, const std::string& params = {});
    // The next event whose JSON has every one of the pieces; throws when none comes in time.
    json waitEvent(const std::vector<std::string>& pieces, std::chrono::milliseconds bound = 10s);
    // What this agent heard on its calls (16-bit mono samples), once a call has closed.
    std::vector<std::int16_t> heard();
    std::string output();

private:
    void read(std::chrono::milliseconds bound);

    QTemporaryDir m_home;
    ChildProcess m_process;
    QTcpSocket m_control;
    QByteArray m_buffer;
    std::vector<std::string> m_events;
    size_t m_seen = 0;
    QByteArray m_output;
};

// A WAV of a sine tone at 8 kHz, 16-bit mono, as the agents play it.
QString toneWav(const QString& dir, int hz, double seconds = 60);
// Power of one frequency (Goertzel) and the overall RMS of samples at 8 kHz.
double tonePower(const std::vector<std::int16_t>& samples, double hz);
double rms(const std::vector<std::int16_t>& samples);
// Samples of a 16-bit PCM WAV.
std::vector<std::int16_t> wavSamples(const QByteArray& wav);

} // namespace kit

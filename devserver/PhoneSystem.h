#pragma once

#include "BaresipControl.h"
#include "Daemon.h"
#include "LossyPath.h"
#include "Model.h"

#include <QObject>
#include <QString>
#include <QUdpSocket>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace rzdev {

struct PhoneOptions {
    QString stateDir;     // certificates, sounds, recordings; kept between starts
    quint16 httpPort = 0; // where kamailio asks rz-devserver
    std::string realm;
    int noAnswerMs = 20000;
    int answerDelayMs = 5000; // two rings
};

// A colleague that a real user agent plays: its SIP account in the baresip
// process of the colleagues.
struct PartyAccount {
    std::string role; // speaker, noAnswer, caller
    std::string userId;
    std::string sipUser;
    std::string password;
};

// The phone system behind the dashboard, made of real parts: kamailio as
// registrar and proxy (TCP and TLS), rtpengine relaying the media, baresip
// playing the colleagues and the voicemail recorder, sipp as the echo test and
// the busy colleague. Each runs on free loopback ports in its own process
// group and stops with this object.
class PhoneSystem : public QObject {
    Q_OBJECT
public:
    PhoneSystem(PhoneOptions options, QObject* parent = nullptr);
    ~PhoneSystem() override;

    // Folders, certificates, sounds and ports; false with the reason when one cannot be made.
    bool prepare(QString* error);
    void start(const std::vector<PartyAccount>& parties);
    void stop();

    bool isReady() const { return m_ready; }
    qint64 readyAfterMs() const { return m_readyAfterMs; }
    // A party's registration as kamailio reported it.
    void partyRegistered(const std::string& sipUser);

    quint16 tcpPort() const { return m_tcpPort; }
    quint16 tlsPort() const { return m_tlsPort; }
    quint16 ngPort() const { return m_ngPort; }
    // Loss and jitter on the echo test's media, both ways; false before the
    // phone system has started.
    bool setEchoImpairment(double lossPercent, int jitterMs);
    Json echoImpairment() const;
    QString caFile() const { return m_options.stateDir + QStringLiteral("/ca.pem"); }
    std::string echoContact() const;
    std::string busyContact() const;
    std::string recorderUri() const;
    QString recordingsDir() const { return m_options.stateDir + QStringLiteral("/recordings"); }

    // The registrar stops and comes back on the same ports; the parties register again.
    void setRegistrarDown(bool down);
    bool registrarDown() const { return m_registrarDown; }

    BaresipControl* colleagues() { return m_colleaguesControl.get(); }
    BaresipControl* recorder() { return m_recorderControl.get(); }
    const std::vector<PartyAccount>& parties() const { return m_parties; }
    std::vector<qint64> pids() const;
    // Asks rtpengine for a call's statistics; done gets its answer (an object), if one comes.
    void queryRelay(const std::string& sipCallId, std::function<void(const Json&)> done);
    Json status() const;

signals:
    void ready();
    void failed(const QString& why);
    void colleagueEvent(const rzdev::Json& event);
    void recorderEvent(const rzdev::Json& event);

private:
    bool makeCertificates(QString* error);
    bool makeSounds(QString* error);
    bool writeKamailioConfig(QString* error);
    void startKamailio();
    void startColleagues();
    void startRecorder();
    // A baresip with its home folder, and the control connection that reports it ready.
    std::unique_ptr<BaresipControl> startBaresip(Daemon& daemon, const QString& home,
                                                 const QString& name, quint16 controlPort,
                                                 void (PhoneSystem::*events)(const rzdev::Json&));
    void startSipp(Daemon& daemon, const QString& scenario, quint16 port, quint16 mediaPort);
    QString baresipConfig(const QString& home, quint16 sipPort, quint16 controlPort,
                          const QString& source, bool record);
    void probe(quint16 port, const char* what);
    void checkReady();

    PhoneOptions m_options;
    quint16 m_tcpPort = 0, m_tlsPort = 0, m_ngPort = 0, m_rtpMin = 0;
    quint16 m_echoPort = 0, m_echoMediaPort = 0, m_busyPort = 0, m_busyMediaPort = 0;
    quint16 m_colleaguesSip = 0, m_colleaguesControlPort = 0;
    quint16 m_recorderSip = 0, m_recorderControlPort = 0;
    Daemon m_kamailio{QStringLiteral("kamailio")};
    Daemon m_rtpengine{QStringLiteral("rtpengine")};
    Daemon m_colleaguesProcess{QStringLiteral("baresip colleagues")};
    Daemon m_recorderProcess{QStringLiteral("baresip voicemail")};
    Daemon m_echo{QStringLiteral("sipp echo")};
    Daemon m_busy{QStringLiteral("sipp busy")};
    std::unique_ptr<LossyPath> m_echoPath; // the echo's media goes through it
    std::unique_ptr<BaresipControl> m_colleaguesControl;
    std::unique_ptr<BaresipControl> m_recorderControl;
    std::vector<PartyAccount> m_parties;
    std::set<std::string> m_registered;
    std::set<std::string> m_listening;
    qint64 m_startedMs = 0;
    qint64 m_readyAfterMs = 0;
    bool m_ready = false;
    bool m_registrarDown = false;
    bool m_kamailioUp = false;
    QUdpSocket* m_ng = nullptr;
    std::map<QByteArray, std::function<void(const Json&)>> m_queries; // by cookie
    long m_cookie = 0;
};

} // namespace rzdev

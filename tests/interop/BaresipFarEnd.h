#pragma once

// baresip as a far end: it answers by itself, plays a tone file as its
// microphone, and its sndfile module writes what it decoded to a WAV file
// per call. It is driven over its TCP control socket, whose events (JSON
// in netstrings) are kept in order.

#include "FarEnd.h"
#include "SipLab.h"

#include <QTcpSocket>

#include <vector>

namespace interop {

class BaresipFarEnd final : public FarEnd {
public:
    BaresipFarEnd(const QString& dir, const std::string& user, const Kamailio& kamailio,
                  const TestCertificates& certs, Transport transport, Codec codec);
    ~BaresipFarEnd() override;

    std::string name() const override { return "baresip"; }
    std::string user() const override { return m_user; }

    void expectCall(bool transfer) override;
    void dial(const std::string& user) override;
    void waitAnswered(std::chrono::milliseconds bound) override;
    void waitDtmf(char digit, std::chrono::milliseconds bound) override;
    void waitHeld(std::chrono::milliseconds bound) override;
    void waitResumed(std::chrono::milliseconds bound) override;
    void waitEnded(std::chrono::milliseconds bound) override;
    double heardToneMarginDb(int hz, std::chrono::milliseconds bound) override;

    // A call from that user is up here.
    void waitEstablishedFrom(const std::string& user, std::chrono::milliseconds bound = 15s);

private:
    void command(const std::string& name, const std::string& params = {});
    void readEvents(std::chrono::milliseconds bound);
    // Waits for an event after the mark with every piece in it, and moves the mark past it.
    std::string waitEvent(const std::vector<std::string>& pieces, std::chrono::milliseconds bound);

    std::string m_user;
    QString m_dumps;
    ChildProcess m_process;
    QTcpSocket m_control;
    QByteArray m_buffer;
    std::vector<std::string> m_events;
    size_t m_mark = 0;
};

} // namespace interop

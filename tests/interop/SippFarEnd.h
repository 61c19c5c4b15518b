#pragma once

// sipp as a far end: one scenario per call, each a strict script of the
// messages it expects and sends, with the engine's hold and resume offers and
// its REFER checked by regular expressions. Its media is an echo (-rtp_echo):
// it sends back every RTP packet it receives, so the engine's own tone has
// to come back through it. sipp decodes no audio and plays no codec of its
// own, and this build has no TLS: those cells and checks are not applicable.

#include "FarEnd.h"
#include "SipLab.h"

#include <QString>

namespace interop {

class SippFarEnd final : public FarEnd {
public:
    // port: where kamailio sends calls for the user "sipp".
    SippFarEnd(const QString& dir, std::uint16_t port, const Kamailio& kamailio, Codec codec);
    ~SippFarEnd() override;

    std::string name() const override { return "sipp"; }
    std::string user() const override { return "sipp"; }
    std::string cannotPlayTone() const override {
        return "sipp has no codec of its own; the engine's tone comes back through its RTP echo";
    }
    std::string cannotRecord() const override { return "sipp decodes no audio"; }
    std::string cannotReportDtmf() const override { return "sipp does not read RFC 4733 events"; }
    std::string cannotReport() const override { return "sipp sends no RTCP reports of its own"; }
    std::string referredCaller() const override { return {}; }

    void expectCall(bool transfer) override;
    void dial(const std::string& user) override;
    // The scenario answers by itself; its exit says whether every step matched.
    void waitAnswered(std::chrono::milliseconds) override {}
    void waitDtmf(char, std::chrono::milliseconds) override;
    // The scenario checks the direction of each offer; waitEnded reports it.
    void waitHeld(std::chrono::milliseconds) override {}
    void waitResumed(std::chrono::milliseconds) override {}
    void waitEnded(std::chrono::milliseconds bound) override;
    double heardToneMarginDb(int, std::chrono::milliseconds) override;

private:
    void run(const QString& scenario, std::uint16_t port, const QString& remote);

    QString m_dir;
    std::uint16_t m_port;
    std::uint16_t m_mediaPort;
    std::string m_registrar;
    QString m_media; // the m= line and its rtpmap for the cell's codec
    int m_runs = 0;
    ChildProcess m_process;
};

} // namespace interop

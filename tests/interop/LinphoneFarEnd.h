#pragma once

// linphonec (Debian's linphone-cli) as a far end, driven through its console
// on standard input. It runs without a sound card: "soundcard use files"
// makes it play a WAV file as its microphone and record what it hears into
// another, which it completes when the call ends. Its console says when a
// call connects, is paused by the far end, gets media again, receives a
// digit and ends.

#include "FarEnd.h"
#include "SipLab.h"

#include <QString>

#include <vector>

namespace interop {

class LinphoneFarEnd final : public FarEnd {
public:
    LinphoneFarEnd(const QString& dir, const std::string& user, const Kamailio& kamailio,
                   const TestCertificates& certs, Transport transport, Codec codec);
    ~LinphoneFarEnd() override;

    std::string name() const override { return "linphonec"; }
    std::string user() const override { return m_user; }

    void expectCall(bool transfer) override;
    void dial(const std::string& user) override;
    void waitAnswered(std::chrono::milliseconds bound) override;
    void waitDtmf(char digit, std::chrono::milliseconds bound) override;
    void waitHeld(std::chrono::milliseconds bound) override;
    void waitResumed(std::chrono::milliseconds bound) override;
    void waitEnded(std::chrono::milliseconds bound) override;
    double heardToneMarginDb(int hz, std::chrono::milliseconds bound) override;

private:
    void command(const QByteArray& line);
    void readOutput(std::chrono::milliseconds bound);
    // Waits for the text after the mark and moves the mark past it; gives
    // what came between the mark and the end of the text.
    QByteArray waitText(const QByteArray& text, std::chrono::milliseconds bound);
    // Leaves only the codec of the cell enabled.
    void chooseCodec(Codec codec);

    std::string m_user;
    QString m_home;
    ChildProcess m_process;
    QByteArray m_output;
    qsizetype m_mark = 0;
    int m_calls = 0;
    QString m_recording;
};

} // namespace interop

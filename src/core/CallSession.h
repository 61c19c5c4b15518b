#pragma once

// One call's signalling: the SIP dialog with its offer and answer, hold and
// resume by re-INVITE, blind transfer by REFER. The media it negotiates runs
// in its MediaStream. Everything but readAudio, writeAudio and the plain
// accessors runs on the loop thread.

#include "Core.h"
#include "MediaStream.h"

#include <re.h>

#include <memory>
#include <optional>
#include <string>

namespace core {

class Client;

class CallSession final : public Call, public std::enable_shared_from_this<CallSession> {
public:
    CallSession(Client* client, bool incoming, std::string number, std::optional<std::string> name);
    ~CallSession() override = default;

    // Call, from the app's threads.
    void answer() override;
    void hangup() override;
    std::string sipCallId() const override { return m_callId; }
    std::vector<std::uint64_t> mediaCounters() const override { return m_stream.counters(); }
    CallStats stats() const override { return m_stream.stats(); }
    std::vector<std::int16_t> readAudio() override;
    void readAudioInto(std::int16_t* out, std::size_t count) override {
        m_stream.readAudio(out, count);
    }
    std::optional<std::string> remoteName() const override { return m_name; }
    std::string remoteNumber() const override { return m_number; }
    void writeAudio(const std::vector<std::int16_t>& frame) override;
    void sendDtmf(char digit) override;
    void setHold(bool hold) override;
    void transfer(const std::string& target) override;

    // The loop's side.
    const std::string& callId() const { return m_callId; }
    // The socket and our half of the session description.
    int prepareMedia(const sa& localAddress, bool secure);
    // Sends the INVITE through the client's route.
    int dial(const std::string& target);
    // Takes an incoming INVITE and rings with 180; otherwise gives the status
    // to refuse it with.
    std::uint16_t accept(const struct sip_msg* msg, bool secure);
    void release();
    void ended(const std::string& reason);
    // An outgoing call whose final answer has not come yet.
    bool awaitingAnswer() const { return !m_incoming && !m_established && !m_over; }
    static constexpr const char* unreadableAnswer = "The far end's answer could not be read.";
    // False when the description is unreadable or has no codec in common.
    bool applyRemoteDescription(const struct mbuf* body, bool offer);
    // A re-INVITE of ours that the far end refused.
    void holdRefused();
    // The client registered again on a new connection, from local: a
    // connected call sends a re-INVITE over it so that the far end has the new
    // Contact, and when the address moved, its media comes from a socket there.
    void moveTo(const sa& local, bool addressMoved);

private:
    static void onProgress(const struct sip_msg* msg, void* arg);
    static void onEstablished(const struct sip_msg* msg, void* arg);
    static int onAnswer(const struct sip_msg* msg, void* arg);
    static int onOffer(struct mbuf** descp, const struct sip_msg* msg, void* arg);
    static void onClosed(int err, const struct sip_msg* msg, void* arg);
    static void onHoldGuard(void* arg);
    static void onReferNotify(struct sip* sip, const struct sip_msg* msg, void* arg);
    static void onReferClosed(int err, const struct sip_msg* msg,
                              const struct sipevent_substate* substate, void* arg);
    void report(CallState state);
    // Loop thread: drops the connection when an answer's body swallowed the next message.
    void checkBody(const struct sip_msg* msg);
    void updateDirection();

    Client* m_client; // null once released
    bool m_incoming;
    std::string m_callId;
    std::string m_number;
    std::optional<std::string> m_name;

    // Loop thread only.
    struct sipsess* m_session = nullptr;
    struct sdp_session* m_sdp = nullptr;
    struct sdp_media* m_media = nullptr;
    struct sipsub* m_refer = nullptr;
    struct tmr m_holdTimer;
    bool m_answered = false;
    bool m_established = false;
    bool m_ringingReported = false;
    bool m_over = false;
    bool m_held = false;        // the state the far end has agreed to
    bool m_holdPending = false; // a re-INVITE for hold or resume is out
    bool m_transferDone = false;
    bool m_heldByFarEnd = false;   // its last offer sends us nothing
    bool m_unusableAnswer = false; // the answer to our INVITE could not be used

    MediaStream m_stream;
};

} // namespace core

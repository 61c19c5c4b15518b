#pragma once

// The media of one call: the RTP socket with its RTCP, SRTP with SDES keys,
// RFC 4733 key presses, the codecs, and the hand-off of received audio to the
// render thread and of microphone audio from the capture thread. Opened,
// configured and closed on the loop thread; readAudio runs on the render
// thread, queueFrame on the capture thread, the counters anywhere.

#include "AudioCodec.h"
#include "Core.h"
#include "JitterBuffer.h"
#include "PacketRing.h"

#include <re.h>

#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace core {

class MediaStream {
public:
    // What the offer and answer agreed on.
    struct Agreed {
        sa remote{};
        sa remoteRtcp{};
        int sendPt = -1;
        Codec sendCodec = Codec::pcmu;
        int eventPt = -1;
        std::uint32_t eventRate = 8000;      // the clock of the keypad events
        std::array<int, 128> receiveCodec{}; // our codec for each payload type, -1 for none
        std::string remoteCrypto;            // the far end's a=crypto, empty when none
    };

    MediaStream();
    ~MediaStream();
    MediaStream(const MediaStream&) = delete;
    MediaStream& operator=(const MediaStream&) = delete;

    // Loop thread.
    void setName(std::string name) { m_name = std::move(name); }
    // The socket on a free port of local, and our SRTP key when secure.
    int open(const sa& local, bool secure);
    void close();
    // A new socket on a free port of local, in place of the current one; the
    // keys, codecs and the far end stay. Gives the error and keeps the old
    // socket when no new one can be had.
    int moveTo(const sa& local);
    std::uint16_t localPort() const;
    bool secure() const { return m_secure; }
    // Base64 of our SRTP master key and salt, for the a=crypto line.
    const std::string& localKey() const { return m_localKey; }
    void apply(const Agreed& agreed);
    // Whether our side sends at all: not while holding or held.
    void setSending(bool sending) { m_sending = sending; }
    bool hasRemote() const { return m_haveRemote; }
    bool takesKeys() const { return m_eventPt >= 0; }
    void queueDigit(char digit);
    // Encodes and sends the microphone frames queued so far.
    void flush();

    // Any thread.
    std::vector<std::uint64_t> counters() const;
    CallStats stats() const;

    // Render thread: exactly count samples at 8000 Hz, silence where nothing
    // arrived. Neither allocates, frees nor locks.
    void readAudio(std::int16_t* out, std::size_t count);

    // Capture thread: queues one frame for flush().
    void queueFrame(const std::vector<std::int16_t>& frame);

private:
    static void onRtp(const struct sa* src, const struct rtp_header* hdr, struct mbuf* mb,
                      void* arg);
    static void onRtcp(const struct sa* src, struct rtcp_msg* msg, void* arg);
    static void onDtmfTick(void* arg);
    static bool onSrtpSend(int* err, struct sa* dst, struct mbuf* mb, void* arg);
    static bool onSrtpReceive(struct sa* src, struct mbuf* mb, void* arg);
    static bool onSrtcpSend(int* err, struct sa* dst, struct mbuf* mb, void* arg);
    static bool onSrtcpReceive(struct sa* src, struct mbuf* mb, void* arg);
    void applyCrypto(const std::string& attribute);
    // Render thread: moves arrived packets into the jitter buffer, then
    // decodes or conceals about one frame into m_pcm.
    void drainArrived();
    void refill();

    std::string m_name;

    // Loop thread only.
    struct rtp_sock* m_rtp = nullptr;
    struct telev* m_telev = nullptr;
    struct udp_helper* m_srtpHelper = nullptr;
    struct udp_helper* m_srtcpHelper = nullptr;
    struct srtp* m_srtpSend = nullptr;
    struct srtp* m_srtpReceive = nullptr;
    struct srtp* m_srtcpSend = nullptr;
    struct srtp* m_srtcpReceive = nullptr;
    std::string m_localKey;
    bool m_secure = false;
    bool m_sending = false;
    struct tmr m_dtmfTimer;
    struct sa m_remoteRtp {};
    struct sa m_remoteRtcp {};
    bool m_haveRemote = false;
    int m_sendPt = -1;
    int m_eventPt = -1;
    std::array<int, 128> m_receiveCodec{};
    std::unique_ptr<AudioEncoder> m_encoder;
    std::uint32_t m_sendTimestamp = 0;
    bool m_marker = true;
    std::deque<char> m_dtmfQueue;
    int m_dtmfTicks = -1;
    std::uint32_t m_eventTimestamp = 0;

    // Statistics, cached on the loop when RTCP reports arrive.
    mutable std::mutex m_statsLock;
    std::optional<double> m_remoteLoss;
    std::optional<double> m_remoteJitterMs;
    std::optional<double> m_roundTripMs;
    std::atomic<std::uint64_t> m_packetsIn{0};
    std::atomic<std::uint64_t> m_packetsOut{0};

    // Received media: packets cross from the loop to the render thread
    // through the ring; the render thread owns the jitter buffer, the
    // decoders (all made when the stream opens) and the decoded samples.
    PacketRing m_ring;
    JitterBuffer m_jitter;
    std::array<std::unique_ptr<AudioDecoder>, 4> m_decoders;
    AudioDecoder* m_lastDecoder = nullptr;
    static constexpr std::size_t pcmCapacity = 4096;
    std::array<std::int16_t, pcmCapacity> m_pcm{};
    std::size_t m_pcmCount = 0;
    int m_concealed = 0;
    MediaPacket m_taken; // the packet being decoded
    std::atomic<std::uint64_t> m_lost{0};
    std::atomic<double> m_jitterMs{0};

    // Microphone frames on their way to the loop.
    std::mutex m_sendLock;
    std::deque<std::vector<std::int16_t>> m_outgoing;
};

} // namespace core

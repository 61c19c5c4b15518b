#include "MediaStream.h"

#include "EngineKit.h"
#include "Log.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace core {

MediaStream::MediaStream() {
    tmr_init(&m_dtmfTimer);
    m_receiveCodec.fill(-1);
}

MediaStream::~MediaStream() = default;

int MediaStream::open(const sa& local, bool secure) {
    m_receiveCodec.fill(-1);
    RAND_bytes(reinterpret_cast<unsigned char*>(&m_sendTimestamp), sizeof m_sendTimestamp);
    m_secure = secure;
    // Every decoder the far end may switch to, made now: the render thread
    // must not allocate one when the first packet of a codec arrives.
    for (const Codec codec : {Codec::pcmu, Codec::pcma, Codec::g722, Codec::opus}) {
        if (!m_decoders[std::size_t(codec)]) {
            m_decoders[std::size_t(codec)] = std::make_unique<AudioDecoder>(codec);
        }
    }
    sa address = local;
    sa_set_port(&address, 0);
    int err = rtp_listen(&m_rtp, IPPROTO_UDP, &address, 20000, 40000, true, onRtp, onRtcp, this);
    if (!err) {
        err = telev_alloc(&m_telev, 20);
    }
    if (!err && secure) {
        std::array<std::uint8_t, 30> key{};
        RAND_bytes(key.data(), int(key.size()));
        char encoded[64] = "";
        size_t length = sizeof encoded - 1;
        base64_encode(key.data(), key.size(), encoded, &length);
        encoded[length] = 0;
        m_localKey = encoded;
        err = srtp_alloc(&m_srtpSend, SRTP_AES_CM_128_HMAC_SHA1_80, key.data(), key.size(), 0);
        if (!err) {
            err = srtp_alloc(&m_srtcpSend, SRTP_AES_CM_128_HMAC_SHA1_80, key.data(), key.size(), 0);
        }
        if (!err) {
            // Below the RTP layer: packets are encrypted last and decrypted first.
            err = udp_register_helper(&m_srtpHelper, static_cast<struct udp_sock*>(rtp_sock(m_rtp)),
                                      0, onSrtpSend, onSrtpReceive, this);
        }
        if (!err) {
            err =
                udp_register_helper(&m_srtcpHelper, static_cast<struct udp_sock*>(rtcp_sock(m_rtp)),
                                    0, onSrtcpSend, onSrtcpReceive, this);
        }
    }
    return err;
}

int MediaStream::moveTo(const sa& local) {
    sa address = local;
    sa_set_port(&address, 0);
    struct rtp_sock* fresh = nullptr;
    int err = rtp_listen(&fresh, IPPROTO_UDP, &address, 20000, 40000, true, onRtp, onRtcp, this);
    struct udp_helper* srtpHelper = nullptr;
    struct udp_helper* srtcpHelper = nullptr;
    if (!err && m_secure) {
        // The same keys on the new socket: the far end's contexts stay valid.
        err = udp_register_helper(&srtpHelper, static_cast<struct udp_sock*>(rtp_sock(fresh)), 0,
                                  onSrtpSend, onSrtpReceive, this);
        if (!err) {
            err = udp_register_helper(&srtcpHelper, static_cast<struct udp_sock*>(rtcp_sock(fresh)),
                                      0, onSrtcpSend, onSrtcpReceive, this);
        }
    }
    if (err) {
        mem_deref(fresh);
        return err;
    }
    // The old socket frees its helpers itself.
    mem_deref(m_rtp);
    m_rtp = fresh;
    m_srtpHelper = srtpHelper;
    m_srtcpHelper = srtcpHelper;
    m_marker = true;
    if (m_haveRemote) {
        rtcp_start(m_rtp, "velnor-rz", &m_remoteRtcp);
    }
    info(
        format("call %s: media now on %s", m_name.c_str(), addressText(*rtp_local(m_rtp)).c_str()));
    return 0;
}

std::uint16_t MediaStream::localPort() const {
    return m_rtp ? sa_port(rtp_local(m_rtp)) : 0;
}

void MediaStream::close() {
    tmr_cancel(&m_dtmfTimer);
    // The socket frees its helpers itself.
    m_srtpHelper = nullptr;
    m_srtcpHelper = nullptr;
    m_rtp = static_cast<struct rtp_sock*>(mem_deref(m_rtp));
    m_srtpSend = static_cast<struct srtp*>(mem_deref(m_srtpSend));
    m_srtpReceive = static_cast<struct srtp*>(mem_deref(m_srtpReceive));
    m_srtcpSend = static_cast<struct srtp*>(mem_deref(m_srtcpSend));
    m_srtcpReceive = static_cast<struct srtp*>(mem_deref(m_srtcpReceive));
    m_telev = static_cast<struct telev*>(mem_deref(m_telev));
    m_encoder.reset();
    m_haveRemote = false;
}

void MediaStream::apply(const Agreed& agreed) {
    m_sendPt = agreed.sendPt;
    if (!m_encoder || m_encoder->codec() != agreed.sendCodec) {
        m_encoder = std::make_unique<AudioEncoder>(agreed.sendCodec);
    }
    m_eventPt = agreed.eventPt;
    if (m_telev) {
        telev_set_srate(m_telev, agreed.eventRate);
    }
    m_receiveCodec = agreed.receiveCodec;
    m_remoteRtp = agreed.remote;
    if (!m_haveRemote) {
        m_remoteRtcp = agreed.remoteRtcp;
        rtcp_start(m_rtp, "velnor-rz", &m_remoteRtcp);
    }
    m_haveRemote = true;
    if (m_secure) {
        applyCrypto(agreed.remoteCrypto);
    }
    info(format("call %s: sending %s (payload type %d) over %s to %s", m_name.c_str(),
                codecName(agreed.sendCodec), m_sendPt, m_secure ? "SRTP" : "RTP",
                addressText(m_remoteRtp).c_str()));
}

void MediaStream::applyCrypto(const std::string& attribute) {
    pl tag{}, suite{}, key{};
    if (!attribute.empty() &&
        re_regex(attribute.c_str(), attribute.size(), "[0-9]+ [^ ]+ inline:[^ |]+", &tag, &suite,
                 &key) == 0 &&
        pl_strcmp(&suite, "AES_CM_128_HMAC_SHA1_80") == 0) {
        std::array<std::uint8_t, 64> raw{};
        size_t length = raw.size();
        if (base64_decode(key.p, key.l, raw.data(), &length) == 0 && length == 30 &&
            !m_srtpReceive) {
            // Separate contexts for RTP and RTCP: each keeps its own replay state.
            srtp_alloc(&m_srtpReceive, SRTP_AES_CM_128_HMAC_SHA1_80, raw.data(), length, 0);
            srtp_alloc(&m_srtcpReceive, SRTP_AES_CM_128_HMAC_SHA1_80, raw.data(), length, 0);
        }
    } else {
        warn("call " + m_name + ": the far end offers no usable SRTP key");
    }
}

bool MediaStream::onSrtpSend(int* err, struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    *err = self->m_srtpSend ? srtp_encrypt(self->m_srtpSend, mb) : 0;
    return false;
}

bool MediaStream::onSrtcpSend(int* err, struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    *err = self->m_srtcpSend ? srtcp_encrypt(self->m_srtcpSend, mb) : 0;
    return false;
}

bool MediaStream::onSrtcpReceive(struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    return !self->m_srtcpReceive || srtcp_decrypt(self->m_srtcpReceive, mb) != 0;
}

bool MediaStream::onSrtpReceive(struct sa*, struct mbuf* mb, void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    if (!self->m_srtpReceive) {
        return true; // nothing arrives unencrypted on a secure call
    }
    return srtp_decrypt(self->m_srtpReceive, mb) != 0;
}

void MediaStream::onRtp(const struct sa*, const struct rtp_header* hdr, struct mbuf* mb,
                        void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    self->m_packetsIn.fetch_add(1, std::memory_order_relaxed);
    if (hdr->pt >= 128 || int(hdr->pt) == self->m_eventPt) {
        return;
    }
    const int codec = self->m_receiveCodec[hdr->pt];
    if (codec < 0) {
        return;
    }
    PacketRing::Entry* entry = self->m_ring.claim();
    if (!entry) {
        return; // the render side has stopped reading; this packet is stale anyway
    }
    entry->packet.seq = hdr->seq;
    entry->packet.timestamp = hdr->ts;
    entry->packet.codec = Codec(codec);
    if (!entry->packet.assign(mbuf_buf(mb), mbuf_get_left(mb))) {
        return;
    }
    entry->arrivalMs = double(nowMs());
    self->m_ring.publish();
}

void MediaStream::onRtcp(const struct sa*, struct rtcp_msg* msg, void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    const struct rtcp_rr* reports = nullptr;
    std::uint32_t count = msg->hdr.count;
    std::uint32_t sender = 0;
    if (msg->hdr.pt == RTCP_SR) {
        reports = msg->r.sr.rrv;
        sender = msg->r.sr.ssrc;
    } else if (msg->hdr.pt == RTCP_RR) {
        reports = msg->r.rr.rrv;
        sender = msg->r.rr.ssrc;
    } else {
        return;
    }
    // The far end's view of what we send: only readable here, as it arrives.
    const std::uint32_t ours = self->m_rtp ? rtp_sess_ssrc(self->m_rtp) : 0;
    for (std::uint32_t i = 0; reports && i < count; ++i) {
        if (reports[i].ssrc != ours) {
            continue;
        }
        std::lock_guard lock(self->m_statsLock);
        self->m_remoteLoss = double(reports[i].fraction) / 256.0;
        const std::uint32_t rate = self->m_encoder ? rtpClockRate(self->m_encoder->codec()) : 8000;
        self->m_remoteJitterMs = double(reports[i].jitter) * 1000.0 / double(rate);
        struct rtcp_stats stats {};
        if (self->m_rtp && rtcp_stats(self->m_rtp, sender, &stats) == 0 && stats.rtt) {
            self->m_roundTripMs = double(stats.rtt) / 1000.0;
        }
    }
}

std::vector<std::uint64_t> MediaStream::counters() const {
    return {m_packetsIn.load(), m_packetsOut.load()};
}

CallStats MediaStream::stats() const {
    CallStats out;
    out.packetsReceived = m_packetsIn.load();
    out.packetsLost = m_lost.load(std::memory_order_relaxed);
    out.jitterMs = m_jitterMs.load(std::memory_order_relaxed);
    std::lock_guard lock(m_statsLock);
    out.remoteLoss = m_remoteLoss;
    out.remoteJitterMs = m_remoteJitterMs;
    out.roundTripMs = m_roundTripMs;
    return out;
}

void MediaStream::drainArrived() {
    while (const PacketRing::Entry* entry = m_ring.front()) {
        m_jitter.put(entry->packet, entry->arrivalMs, rtpClockRate(entry->packet.codec));
        m_ring.release();
    }
    m_jitterMs.store(m_jitter.jitterMs(), std::memory_order_relaxed);
}

void MediaStream::refill() {
    while (m_pcmCount < std::size_t(frameSamples)) {
        MediaPacket& packet = m_taken;
        const JitterBuffer::Take taken = m_jitter.take(packet);
        AudioDecoder* decoder = taken == JitterBuffer::Take::packet
                                    ? m_decoders[std::size_t(packet.codec)].get()
                                    : nullptr;
        if (taken == JitterBuffer::Take::lost) {
            m_lost.fetch_add(1, std::memory_order_relaxed);
        }
        const std::size_t room = pcmCapacity - m_pcmCount;
        if (decoder && AudioDecoder::maxDecodedSamples(packet.size) <= room) {
            m_pcmCount += std::size_t(
                decoder->decode(packet.data(), packet.size, m_pcm.data() + m_pcmCount, int(room)));
            m_lastDecoder = decoder;
            m_concealed = 0;
        } else if (m_lastDecoder && m_concealed < 5) {
            // A gap, or nothing yet: bridge up to 100 ms, then fall silent.
            m_lastDecoder->conceal(m_pcm.data() + m_pcmCount);
            m_pcmCount += std::size_t(frameSamples);
            ++m_concealed;
            if (taken == JitterBuffer::Take::empty) {
                return;
            }
        } else {
            std::fill_n(m_pcm.data() + m_pcmCount, frameSamples, std::int16_t(0));
            m_pcmCount += std::size_t(frameSamples);
            return;
        }
    }
}

void MediaStream::readAudio(std::int16_t* out, std::size_t count) {
    drainArrived();
    std::size_t written = 0;
    while (written < count) {
        if (m_pcmCount == 0) {
            refill();
        }
        const std::size_t taken = std::min(count - written, m_pcmCount);
        std::copy_n(m_pcm.data(), taken, out + written);
        std::copy(m_pcm.data() + taken, m_pcm.data() + m_pcmCount, m_pcm.data());
        m_pcmCount -= taken;
        written += taken;
    }
}

void MediaStream::queueFrame(const std::vector<std::int16_t>& frame) {
    std::lock_guard lock(m_sendLock);
    if (m_outgoing.size() > 10) {
        m_outgoing.pop_front();
    }
    m_outgoing.push_back(frame);
}

void MediaStream::flush() {
    for (;;) {
        std::vector<std::int16_t> frame;
        {
            std::lock_guard lock(m_sendLock);
            if (m_outgoing.empty()) {
                return;
            }
            frame = std::move(m_outgoing.front());
            m_outgoing.pop_front();
        }
        if (!m_rtp || !m_haveRemote || !m_encoder || m_sendPt < 0 || !m_sending ||
            m_dtmfTicks >= 0) {
            // Keep the clock moving so that the far end sees no jump when sending resumes.
            if (m_encoder) {
                m_sendTimestamp += rtpFrameTicks(m_encoder->codec());
            }
            continue;
        }
        const std::vector<std::uint8_t> payload =
            m_encoder->encode(frame.data(), int(frame.size()));
        if (payload.empty()) {
            continue;
        }
        struct mbuf* mb = mbuf_alloc(RTP_HEADER_SIZE + payload.size());
        mb->pos = RTP_HEADER_SIZE;
        mbuf_write_mem(mb, payload.data(), payload.size());
        mb->pos = RTP_HEADER_SIZE;
        if (rtp_send(m_rtp, &m_remoteRtp, false, m_marker, std::uint8_t(m_sendPt), m_sendTimestamp,
                     mb) == 0) {
            m_packetsOut.fetch_add(1, std::memory_order_relaxed);
        }
        mem_deref(mb);
        m_marker = false;
        m_sendTimestamp += rtpFrameTicks(m_encoder->codec()) * std::uint32_t(frame.size()) /
                           std::uint32_t(frameSamples);
    }
}

void MediaStream::queueDigit(char digit) {
    m_dtmfQueue.push_back(digit);
    if (!tmr_isrunning(&m_dtmfTimer)) {
        tmr_start(&m_dtmfTimer, 0, onDtmfTick, this);
    }
}

// Each digit sounds for 100 ms, then its end is sent; events go out every 20 ms
// as RFC 4733 packets in place of the voice.
void MediaStream::onDtmfTick(void* arg) {
    auto* self = static_cast<MediaStream*>(arg);
    if (!self->m_rtp) {
        return;
    }
    if (self->m_dtmfTicks < 0) {
        if (self->m_dtmfQueue.empty()) {
            return;
        }
        const char digit = self->m_dtmfQueue.front();
        self->m_dtmfQueue.pop_front();
        telev_send(self->m_telev, telev_digit2code(std::toupper(static_cast<unsigned char>(digit))),
                   false);
        self->m_dtmfTicks = 0;
        // Every packet of one event carries the time stamp of its start.
        self->m_eventTimestamp = self->m_sendTimestamp;
        info(format("call %s: sending key %c", self->m_name.c_str(), digit));
    }
    if (++self->m_dtmfTicks == 5) {
        telev_send(self->m_telev, 0, true);
    }
    struct mbuf* mb = mbuf_alloc(RTP_HEADER_SIZE + 16);
    mb->pos = RTP_HEADER_SIZE;
    mb->end = RTP_HEADER_SIZE;
    bool marker = false;
    const int err = telev_poll(self->m_telev, &marker, mb);
    if (!err) {
        mb->pos = RTP_HEADER_SIZE;
        if (rtp_send(self->m_rtp, &self->m_remoteRtp, false, marker, std::uint8_t(self->m_eventPt),
                     self->m_eventTimestamp, mb) == 0) {
            self->m_packetsOut.fetch_add(1, std::memory_order_relaxed);
        }
    } else if (self->m_dtmfTicks > 5) {
        // The end packets are out: the next digit, or the voice again.
        self->m_dtmfTicks = -1;
    }
    mem_deref(mb);
    if (self->m_dtmfTicks >= 0 || !self->m_dtmfQueue.empty()) {
        tmr_start(&self->m_dtmfTimer, 20, onDtmfTick, self);
    }
}

} // namespace core

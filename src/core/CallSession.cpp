#include "CallSession.h"

#include "Client.h"
#include "EngineKit.h"
#include "Loop.h"
#include "SipText.h"

#include <cctype>
#include <cstring>

namespace core {

namespace {

const Codec codecTags[] = {Codec::pcmu, Codec::pcma, Codec::g722, Codec::opus};

void* tagOf(Codec codec) {
    return const_cast<Codec*>(&codecTags[int(codec)]);
}

constexpr std::uint64_t holdGuardMs = 4000;
constexpr const char* allowHeader = "Allow: INVITE,ACK,BYE,CANCEL,NOTIFY,REFER\r\n";

} // namespace

CallSession::CallSession(Client* client, bool incoming, std::string number,
                         std::optional<std::string> name)
    : m_client(client), m_incoming(incoming), m_number(std::move(number)), m_name(std::move(name)) {
    tmr_init(&m_holdTimer);
}

int CallSession::prepareMedia(const sa& localAddress, bool secure) {
    int err = m_stream.open(localAddress, secure);
    sa address = localAddress;
    sa_set_port(&address, 0);
    if (!err) {
        err = sdp_session_alloc(&m_sdp, &address);
    }
    if (!err) {
        err = sdp_media_add(&m_media, m_sdp, "audio", m_stream.localPort(),
                            secure ? "RTP/SAVP" : "RTP/AVP");
    }
    if (!err) {
        // Offered best first; the far end's first supported one is used to send.
        err |= sdp_format_add(nullptr, m_media, false, "96", "opus", 48000, 2, nullptr, nullptr,
                              tagOf(Codec::opus), false, "minptime=10;useinbandfec=1");
        err |= sdp_format_add(nullptr, m_media, false, "9", "G722", 8000, 1, nullptr, nullptr,
                              tagOf(Codec::g722), false, nullptr);
        err |= sdp_format_add(nullptr, m_media, false, "0", "PCMU", 8000, 1, nullptr, nullptr,
                              tagOf(Codec::pcmu), false, nullptr);
        err |= sdp_format_add(nullptr, m_media, false, "8", "PCMA", 8000, 1, nullptr, nullptr,
                              tagOf(Codec::pcma), false, nullptr);
        err |= sdp_format_add(nullptr, m_media, false, "101", telev_rtpfmt, 8000, 1, nullptr,
                              nullptr, nullptr, false, "0-15");
        // Keypad events go at the clock of the voice (RFC 4733): 48 kHz beside Opus, which
        // some phones insist on when Opus is all they speak.
        err |= sdp_format_add(nullptr, m_media, false, "102", telev_rtpfmt, 48000, 1, nullptr,
                              nullptr, nullptr, false, "0-15");
        err |= sdp_media_set_lattr(m_media, true, "ptime", "20");
    }
    if (!err && secure) {
        err = sdp_media_set_lattr(m_media, true, "crypto", "1 AES_CM_128_HMAC_SHA1_80 inline:%s",
                                  m_stream.localKey().c_str());
    }
    return err;
}

int CallSession::dial(const std::string& target) {
    struct mbuf* offer = nullptr;
    int err = sdp_encode(&offer, m_sdp, true);
    const char* routes[] = {m_client->m_route.c_str()};
    if (!err) {
        err = sipsess_connect(&m_session, m_client->m_sessions, target.c_str(), nullptr,
                              m_client->m_aor.c_str(), m_client->m_account.username.c_str(), routes,
                              1, "application/sdp", offer, Client::onAuth, m_client, false, onOffer,
                              onAnswer, onProgress, onEstablished, nullptr, nullptr, onClosed, this,
                              allowHeader);
    }
    mem_deref(offer);
    if (!err) {
        m_callId = sip_dialog_callid(sipsess_dialog(m_session));
        m_stream.setName(m_callId);
    }
    return err;
}

std::uint16_t CallSession::accept(const struct sip_msg* msg, bool secure) {
    m_callId = text(msg->callid);
    m_stream.setName(m_callId);
    int err = prepareMedia(m_client->m_localAddress, secure);
    if (!err && mbuf_get_left(msg->mb) > 0 && !applyRemoteDescription(msg->mb, true)) {
        return 488;
    }
    if (!err) {
        err = sipsess_accept(&m_session, m_client->m_sessions, msg, 180, "Ringing",
                             m_client->m_account.username.c_str(), "application/sdp", nullptr,
                             Client::onAuth, m_client, false, onOffer, onAnswer, onEstablished,
                             nullptr, nullptr, onClosed, this, allowHeader);
    }
    if (err) {
        warn(format("an incoming call could not be accepted (%s)", strerror(err)));
        return 500;
    }
    return 0;
}

bool CallSession::applyRemoteDescription(const struct mbuf* body, bool offer) {
    if (!body || mbuf_get_left(body) == 0) {
        return false;
    }
    // sdp_decode reads from the buffer's position; leave the message as it was.
    struct mbuf* copy = mbuf_alloc(mbuf_get_left(body));
    mbuf_write_mem(copy, mbuf_buf(body), mbuf_get_left(body));
    copy->pos = 0;
    const int err = sdp_decode(m_sdp, copy, offer);
    mem_deref(copy);
    if (err) {
        warn(format("call %s: unreadable session description (%s)", m_callId.c_str(),
                    strerror(err)));
        return false;
    }
    const struct sdp_format* send = sdp_media_rformat(m_media, nullptr);
    if (!send || !send->data || !sa_isset(sdp_media_raddr(m_media), SA_ALL)) {
        warn("call " + m_callId + ": no common codec");
        return false;
    }
    MediaStream::Agreed agreed;
    agreed.sendCodec = *static_cast<const Codec*>(send->data);
    agreed.sendPt = send->pt;
    // Of the event formats agreed, the one at the voice's clock, else any.
    const std::uint32_t voiceRate = rtpClockRate(agreed.sendCodec);
    const struct list* formats = sdp_media_format_lst(m_media, false);
    for (struct le* entry = list_head(formats); entry; entry = entry->next) {
        const auto* fmt = static_cast<const struct sdp_format*>(entry->data);
        if (!fmt->sup || !fmt->name || str_casecmp(fmt->name, telev_rtpfmt) != 0) {
            continue;
        }
        if (agreed.eventPt < 0 || fmt->srate == voiceRate) {
            agreed.eventPt = fmt->pt;
            agreed.eventRate = fmt->srate;
        }
        if (fmt->srate == voiceRate) {
            break;
        }
    }
    // Decoders for what was agreed: the remote payload types map to our codecs.
    agreed.receiveCodec.fill(-1);
    for (struct le* entry = list_head(formats); entry; entry = entry->next) {
        const auto* fmt = static_cast<const struct sdp_format*>(entry->data);
        if (fmt->sup && fmt->data && fmt->pt >= 0 && fmt->pt < 128) {
            agreed.receiveCodec[size_t(fmt->pt)] = int(*static_cast<const Codec*>(fmt->data));
        }
    }
    agreed.remote = *sdp_media_raddr(m_media);
    sdp_media_raddr_rtcp(m_media, &agreed.remoteRtcp);
    if (const char* crypto = sdp_media_rattr(m_media, "crypto")) {
        agreed.remoteCrypto = crypto;
    }
    m_stream.apply(agreed);
    updateDirection();
    info(format("call %s: direction %s", m_callId.c_str(), sdp_dir_name(sdp_media_dir(m_media))));
    return true;
}

void CallSession::updateDirection() {
    m_stream.setSending(m_media && (sdp_media_dir(m_media) & SDP_SENDONLY));
}

void CallSession::report(CallState state) {
    if (m_client) {
        m_client->reportCall(m_callId, state);
    }
}

void CallSession::ended(const std::string& reason) {
    if (m_over) {
        return;
    }
    m_over = true;
    Client* client = m_client;
    auto keep = shared_from_this();
    release();
    if (client) {
        client->reportCall(m_callId, CallState::ended(reason));
        client->forget(m_callId);
    }
}

void CallSession::release() {
    m_over = true;
    tmr_cancel(&m_holdTimer);
    if (m_session && m_incoming && !m_answered) {
        sipsess_reject(m_session, 486, "Busy Here", nullptr);
    }
    m_refer = static_cast<struct sipsub*>(mem_deref(m_refer));
    m_session = static_cast<struct sipsess*>(mem_deref(m_session));
    m_stream.close();
    m_media = nullptr;
    m_sdp = static_cast<struct sdp_session*>(mem_deref(m_sdp));
    m_client = nullptr;
}

namespace {

// Whether a body ran on into the connection's next message: its
// Content-Length promised more than came before that message.
bool holdsAnotherMessage(const struct mbuf* body) {
    const std::string_view text(reinterpret_cast<const char*>(mbuf_buf(body)), mbuf_get_left(body));
    return text.find("SIP/2.0") != std::string_view::npos;
}

} // namespace

void CallSession::checkBody(const struct sip_msg* msg) {
    if (mbuf_get_left(msg->mb) == 0 || !holdsAnotherMessage(msg->mb) || !m_client) {
        return;
    }
    // Not inside the library's handler of a response on that very connection.
    Loop::instance().post([client = m_client->weak_from_this()] {
        if (auto alive = client.lock()) {
            alive->dropUntrustedConnection("a body that runs into the next message");
        }
    });
}

void CallSession::onProgress(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    self->checkBody(msg);
    if (msg->scode == 183 && mbuf_get_left(msg->mb) > 0 &&
        !self->applyRemoteDescription(msg->mb, false)) {
        // Early media that cannot be played tells of an answer that cannot be
        // either. The call goes on the loop's next turn, outside the library's handler.
        warn("call " + self->m_callId + ": the far end's early media cannot be read");
        Loop::instance().post([weak = self->weak_from_this()] {
            if (auto call = weak.lock()) {
                call->ended(unreadableAnswer);
            }
        });
        return;
    }
    if ((msg->scode == 180 || msg->scode == 183) && !self->m_ringingReported) {
        self->m_ringingReported = true;
        self->report(CallState::ringing());
    }
}

int CallSession::onAnswer(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    self->checkBody(msg);
    if (!self->applyRemoteDescription(msg->mb, false) && !self->m_established) {
        // Nothing to send audio to: the call ends as soon as it is up.
        self->m_unusableAnswer = true;
    }
    if (self->m_holdPending) {
        // The answer to our hold or resume: the far end agreed.
        tmr_cancel(&self->m_holdTimer);
        self->m_holdPending = false;
        self->m_held = sdp_media_ldir(self->m_media) == SDP_SENDONLY;
        self->report(self->m_held ? CallState::held() : CallState::connected());
    }
    return 0;
}

int CallSession::onOffer(struct mbuf** descp, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    self->applyRemoteDescription(msg->mb, true);
    // The far end holding us (or letting go): our answer mirrors its
    // direction, and the call's own state, which is about our hold, stays.
    const int remote = sdp_media_rdir(self->m_media);
    const bool heldThere = !(remote & SDP_SENDONLY);
    if (heldThere != self->m_heldByFarEnd) {
        self->m_heldByFarEnd = heldThere;
        info("call " + self->m_callId +
             (heldThere ? ": held by the far end" : ": resumed by the far end"));
    }
    return sdp_encode(descp, self->m_sdp, false);
}

void CallSession::onEstablished(const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    self->m_established = true;
    if (self->m_unusableAnswer) {
        warn("call " + self->m_callId + ": the far end's answer has no usable audio");
        self->ended(unreadableAnswer);
        return;
    }
    if (!self->m_incoming && !hasAnswerableContact(msg)) {
        // Nothing in the dialog could reach the far end again, a BYE included.
        warn("call " + self->m_callId + ": the far end's answer has a Contact that cannot be read");
        self->ended(unreadableAnswer);
        return;
    }
    self->report(CallState::connected());
}

void CallSession::onClosed(int err, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    std::string reason;
    if (msg && msg->scode >= 300) {
        reason = reasonForStatus(msg->scode, text(msg->reason));
    } else if (err && msg && msg->scode >= 200 && !self->m_established) {
        // The library could not make a dialog of the answer (its Contact, say).
        warn(format("call %s: the far end's answer could not be used (%s)", self->m_callId.c_str(),
                    strerror(err)));
        reason = unreadableAnswer;
    } else if (self->m_transferDone) {
        reason = "Transferred";
    } else if (err == ECONNRESET || !err) {
        reason = self->m_established ? "remote" : (self->m_incoming ? "Cancelled" : "remote");
    } else {
        reason = format("Unavailable (%s)", strerror(err));
    }
    info(format("call %s closed: %s", self->m_callId.c_str(), reason.c_str()));
    self->ended(reason);
}

std::vector<std::int16_t> CallSession::readAudio() {
    // The one allocation here is the frame handed back.
    std::vector<std::int16_t> frame(frameSamples);
    m_stream.readAudio(frame.data(), frame.size());
    return frame;
}

void CallSession::writeAudio(const std::vector<std::int16_t>& frame) {
    if (frame.empty()) {
        return;
    }
    m_stream.queueFrame(frame);
    Loop::instance().post([weak = weak_from_this()] {
        if (auto self = weak.lock()) {
            self->m_stream.flush();
        }
    });
}

void CallSession::answer() {
    Loop::instance().call([this] {
        if (!m_incoming || m_answered) {
            return;
        }
        if (m_over || !m_session) {
            throw CoreError(CoreError::Kind::message, "The call has already ended.");
        }
        struct mbuf* answer = nullptr;
        int err = sdp_encode(&answer, m_sdp, false);
        if (!err) {
            err = sipsess_answer(m_session, 200, "OK", answer, nullptr);
        }
        mem_deref(answer);
        if (err) {
            throw CoreError(CoreError::Kind::message,
                            format("The call could not be answered (%s).", strerror(err)));
        }
        m_answered = true;
    });
}

void CallSession::hangup() {
    auto keep = shared_from_this();
    Loop::instance().call([this] {
        if (m_over || !m_client) {
            return;
        }
        // Releasing the session sends CANCEL before an answer and BYE after
        // it; an unanswered incoming call is refused as busy.
        ended("local");
    });
}

void CallSession::sendDtmf(char digit) {
    const int code = telev_digit2code(std::toupper(static_cast<unsigned char>(digit)));
    if (code < 0) {
        throw CoreError(CoreError::Kind::message,
                        format("\"%c\" is not a key of the keypad.", digit));
    }
    Loop::instance().call([this, digit] {
        if (m_over || !m_stream.hasRemote()) {
            throw CoreError(CoreError::Kind::message, "The call is not connected.");
        }
        if (!m_stream.takesKeys()) {
            throw CoreError(CoreError::Kind::message, "The far end takes no keypad tones.");
        }
        m_stream.queueDigit(digit);
    });
}

void CallSession::setHold(bool hold) {
    Loop::instance().call([this, hold] {
        if (m_over || !m_session || !m_established) {
            throw CoreError(CoreError::Kind::message, "The call is not connected.");
        }
        if (m_holdPending) {
            throw CoreError(CoreError::Kind::message, "The call is already being held or resumed.");
        }
        if (hold == m_held) {
            report(m_held ? CallState::held() : CallState::connected());
            return;
        }
        sdp_media_set_ldir(m_media, hold ? SDP_SENDONLY : SDP_SENDRECV);
        updateDirection();
        struct mbuf* offer = nullptr;
        int err = sdp_encode(&offer, m_sdp, true);
        if (!err) {
            err = sipsess_modify(m_session, offer);
        }
        mem_deref(offer);
        if (err) {
            sdp_media_set_ldir(m_media, m_held ? SDP_SENDONLY : SDP_SENDRECV);
            updateDirection();
            throw CoreError(
                CoreError::Kind::message,
                format("The call could not be %s (%s).", hold ? "held" : "resumed", strerror(err)));
        }
        m_holdPending = true;
        // A refused re-INVITE gives no callback: the guard puts things back.
        tmr_start(&m_holdTimer, holdGuardMs, onHoldGuard, this);
    });
}

void CallSession::moveTo(const sa& local, bool addressMoved) {
    if (m_over || !m_session || !m_established) {
        // A call still being set up has no dialog to renegotiate; it goes on
        // (or fails) over the connection it started on.
        return;
    }
    if (addressMoved) {
        const int err = m_stream.moveTo(local);
        if (err) {
            warn(format("call %s: no media socket at %s (%s)", m_callId.c_str(),
                        addressText(local).c_str(), strerror(err)));
        } else {
            sa address = local;
            sa_set_port(&address, 0);
            sdp_session_set_laddr(m_sdp, &address);
            sdp_media_set_lport(m_media, m_stream.localPort());
        }
    }
    struct mbuf* offer = nullptr;
    int err = sdp_encode(&offer, m_sdp, true);
    if (!err) {
        err = sipsess_modify(m_session, offer);
    }
    mem_deref(offer);
    if (err) {
        warn(format("call %s: the re-INVITE for the new connection could not be sent (%s)",
                    m_callId.c_str(), strerror(err)));
        return;
    }
    info(format("call %s: re-INVITE from %s:%u", m_callId.c_str(), addressText(local).c_str(),
                m_stream.localPort()));
}

void CallSession::holdRefused() {
    if (m_holdPending && !m_over) {
        tmr_cancel(&m_holdTimer);
        onHoldGuard(this);
    }
}

void CallSession::onHoldGuard(void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    if (!self->m_holdPending || self->m_over) {
        return;
    }
    self->m_holdPending = false;
    warn("call " + self->m_callId + ": the far end did not agree to hold or resume");
    sdp_media_set_ldir(self->m_media, self->m_held ? SDP_SENDONLY : SDP_SENDRECV);
    self->updateDirection();
    self->report(self->m_held ? CallState::held() : CallState::connected());
}

void CallSession::transfer(const std::string& target) {
    if (!isCallableNumber(target)) {
        throw CoreError(CoreError::Kind::message,
                        "\"" + target + "\" is not a number that calls can be transferred to.");
    }
    Loop::instance().call([this, target] {
        if (m_over || !m_session || !m_established || !m_client) {
            throw CoreError(CoreError::Kind::message, "The call is not connected.");
        }
        if (m_refer) {
            throw CoreError(CoreError::Kind::message, "A transfer of this call is under way.");
        }
        const std::string uri = m_client->uriFor(target);
        const int err =
            sipevent_drefer(&m_refer, m_client->m_events, sipsess_dialog(m_session),
                            m_client->m_account.username.c_str(), Client::onAuth, m_client, false,
                            onReferNotify, onReferClosed, this, "Refer-To: <%s>\r\n", uri.c_str());
        if (err) {
            throw CoreError(CoreError::Kind::message,
                            format("The transfer could not be started (%s).", strerror(err)));
        }
        info("call " + m_callId + ": transferring to " + uri);
        report(CallState::transferring());
    });
}

void CallSession::onReferNotify(struct sip* sip, const struct sip_msg* msg, void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    sip_reply(sip, msg, 200, "OK");
    struct pl version {
    }, status{}, phrase{};
    if (mbuf_get_left(msg->mb) == 0 ||
        re_regex(reinterpret_cast<const char*>(mbuf_buf(msg->mb)), mbuf_get_left(msg->mb),
                 "SIP/[0-9.]+ [0-9]+[ ]*[^\r\n]*", &version, &status, nullptr, &phrase)) {
        return;
    }
    const std::uint32_t code = pl_u32(&status);
    if (code < 200 || self->m_over) {
        return;
    }
    // The subscription is still in its own handler: let it go once that returned.
    struct sipsub* finished = self->m_refer;
    self->m_refer = nullptr;
    Loop::instance().post([finished] { mem_deref(finished); });
    if (code < 300) {
        self->m_transferDone = true;
        self->ended("Transferred");
    } else {
        self->report(CallState::transferFailed(reasonForStatus(std::uint16_t(code), text(phrase))));
    }
}

void CallSession::onReferClosed(int err, const struct sip_msg* msg, const struct sipevent_substate*,
                                void* arg) {
    auto* self = static_cast<CallSession*>(arg);
    self->m_refer = static_cast<struct sipsub*>(mem_deref(self->m_refer));
    if (self->m_over || self->m_transferDone) {
        return;
    }
    std::string reason = "The transfer failed.";
    if (msg && msg->scode >= 300) {
        reason = reasonForStatus(msg->scode, text(msg->reason));
    } else if (err) {
        reason = format("The transfer failed (%s).", strerror(err));
    }
    self->report(CallState::transferFailed(reason));
}

} // namespace core

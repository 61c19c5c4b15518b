#include "CallRouter.h"

#include <algorithm>

namespace rzdev {

namespace {

Json partyOf(const User& user) {
    return Json{{"number", user.extension}, {"name", user.name}, {"userId", user.id}};
}

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

std::string CallRouter::normalise(const std::string& dialled) {
    std::string text = dialled;
    if (text.starts_with("sip:") || text.starts_with("tel:"))
        text = text.substr(4);
    if (const auto at = text.find_first_of("@;"); at != std::string::npos)
        text = text.substr(0, at);
    std::string out;
    for (char c : text) {
        if ((c >= '0' && c <= '9') || (c == '+' && out.empty()))
            out += c;
    }
    return out;
}

const Device* CallRouter::device(const std::string& sipUser) const {
    for (const auto& d : m_model.devices) {
        if (d.sipUsername == sipUser)
            return &d;
    }
    // Some user agents put a tag of their own after the user in their Contact.
    for (const auto& d : m_model.devices) {
        if (!d.sipUsername.empty() && sipUser.starts_with(d.sipUsername + "-"))
            return &d;
    }
    return nullptr;
}

SipDialog* CallRouter::dialog(const std::string& sipCallId) {
    const auto it = m_dialogs.find(sipCallId);
    return it == m_dialogs.end() ? nullptr : &it->second;
}

SipDialog* CallRouter::dialogOfLive(const std::string& liveId) {
    for (auto& [id, d] : m_dialogs) {
        for (const auto& [user, live] : d.liveIds) {
            if (live == liveId)
                return &d;
        }
    }
    return nullptr;
}

void CallRouter::presentNextCallAs(const std::string& sipUser, const std::string& number) {
    m_presentAs[sipUser] = number;
}

std::optional<std::string> CallRouter::presentation(const std::string& sipCallId) const {
    const auto it = m_dialogs.find(sipCallId);
    if (it == m_dialogs.end() || !it->second.presented)
        return std::nullopt;
    const Json& from = it->second.from;
    std::string name = from.value("name", "");
    // The answer is split at "|", and kamailio puts the name between quotes.
    std::erase_if(name, [](char c) { return c == '|' || c == '"' || c == '\\'; });
    return from.value("number", "") + "|" + name;
}

std::optional<SipDialog> CallRouter::takeVoicemail(const std::string& sipCallId) {
    const auto it = m_voicemail.find(sipCallId);
    if (it == m_voicemail.end())
        return std::nullopt;
    SipDialog d = std::move(it->second);
    m_voicemail.erase(it);
    return d;
}

RouteAnswer CallRouter::route(const std::string& sipCallId, const std::string& fromSipUser,
                              const std::string& fromName, const std::string& dialled,
                              CallChanges& changes, const std::string& callerTag) {
    // A retransmitted or re-challenged INVITE asks again: same answer, no second call.
    const bool known = m_dialogs.contains(sipCallId);
    SipDialog d;
    d.sipCallId = sipCallId;
    d.callerTag = callerTag;
    d.dialled = normalise(dialled);
    d.startMs = m_model.clock().nowMs();
    if (const auto outside = m_presentAs.find(fromSipUser); outside != m_presentAs.end()) {
        // A party standing in for a caller from outside: no user of the company.
        d.from = Json{{"number", outside->second}};
        d.presented = true;
        m_presentAs.erase(outside);
    } else if (const Device* from = device(fromSipUser)) {
        // A colleague is shown by extension and name, as desk phones show them.
        d.callerUserId = from->userId;
        d.callerDeviceId = from->id;
        d.from = partyOf(*m_model.user(from->userId));
        d.presented = true;
    } else {
        d.from = Json{{"number", fromSipUser}};
        if (!fromName.empty())
            d.from["name"] = fromName;
    }
    if (d.dialled.empty())
        return {"reject|484|Address Incomplete"};

    for (const auto& u : m_model.users) {
        if (u.extension == d.dialled || contains(u.numbers, d.dialled)) {
            d.calleeUserIds = {u.id};
            d.to = partyOf(u);
        }
    }
    if (d.calleeUserIds.empty()) {
        for (const auto& g : m_model.groups) {
            if (g.extension == d.dialled || contains(g.numbers, d.dialled)) {
                d.groupId = g.id;
                d.to = Json{{"number", g.extension}, {"name", g.name}};
                for (const auto& member : g.members) {
                    if (member != d.callerUserId)
                        d.calleeUserIds.push_back(member);
                }
            }
        }
    }
    if (d.calleeUserIds.empty() && d.groupId.empty()) {
        // A call flow, by its extension or one of its numbers. The main line
        // feeds the support queue: its available agents are rung; any other
        // flow rings its members.
        for (const auto& f : m_model.flows) {
            if (f.extension != d.dialled && !contains(f.numbers, d.dialled))
                continue;
            d.flowId = f.id;
            d.to = Json{{"number", d.dialled}, {"name", f.name}};
            if (f.id == "f-main" && m_model.queue("q-support")) {
                d.queueId = "q-support";
                for (const auto& agent : m_model.queue("q-support")->agents) {
                    if (agent.state == "available" && agent.userId != d.callerUserId)
                        d.calleeUserIds.push_back(agent.userId);
                }
            } else {
                for (const auto& member : f.members) {
                    if (member != d.callerUserId)
                        d.calleeUserIds.push_back(member);
                }
            }
            break;
        }
        if (d.flowId.empty())
            return {"reject|404|Not Found"};
        if (d.calleeUserIds.empty())
            return {d.queueId.empty() ? "reject|480|Temporarily Unavailable"
                                      : "reject|480|No Agent Available"};
    }
    if (d.calleeUserIds.size() == 1 && d.calleeUserIds.front() == d.callerUserId)
        return {"reject|482|Calling Yourself"};

    // A call to one person (not to a group or a queue) may end in their mailbox.
    const bool personal =
        d.calleeUserIds.size() == 1 && d.groupId.empty() && d.flowId.empty() && d.queueId.empty();
    // The devices that ring: registered ones by their SIP user, or a party's fixed address.
    std::vector<std::string> sipUsers;
    std::string fixedContact;
    for (const auto& userId : d.calleeUserIds) {
        // --- do not disturb: none of the user's phones rings, also not for group calls ---
        if (const User* u = m_model.user(userId); u && u->dnd.value_or(false))
            continue;
        for (const auto& dev : m_model.devices) {
            if (dev.userId != userId)
                continue;
            if (!dev.contact.empty())
                fixedContact = dev.contact;
            else
                sipUsers.push_back(dev.sipUsername);
        }
    }
    RouteAnswer answer;
    if (!fixedContact.empty() && sipUsers.empty()) {
        answer.text = "uri|" + fixedContact;
    } else if (sipUsers.empty()) {
        // Nobody has a phone: straight to the mailbox when there is one.
        const User* callee = personal ? m_model.user(d.calleeUserIds.front()) : nullptr;
        const bool dnd = callee && callee->dnd.value_or(false);
        if (!callee || callee->voicemailBoxId.empty() || m_targets.recorderUri.empty())
            return dnd ? RouteAnswer{"reject|486|Busy Here"}
                       : RouteAnswer{"reject|480|Temporarily Unavailable"};
        d.mailbox = callee->voicemailBoxId;
        answer.text = "uri|" + recorderFor(d.mailbox);
    } else {
        const User* callee = personal ? m_model.user(d.calleeUserIds.front()) : nullptr;
        const bool mailbox = callee && !callee->voicemailBoxId.empty();
        answer.text = "users|" + std::to_string(mailbox ? m_targets.noAnswerMs : 0);
        for (const auto& user : sipUsers)
            answer.text += "|" + user;
        answer.text += "|end";
    }
    if (known)
        return answer;

    if (!d.callerUserId.empty())
        d.liveIds[d.callerUserId] = m_model.nextId("call-");
    if (d.mailbox.empty()) {
        // Only those with a phone are rung; a member without one never sees the call.
        std::vector<std::string> rung;
        for (const auto& userId : d.calleeUserIds) {
            const bool hasPhone =
                std::any_of(m_model.devices.begin(), m_model.devices.end(),
                            [&](const Device& dev) { return dev.userId == userId; });
            if (hasPhone) {
                d.liveIds[userId] = m_model.nextId("call-");
                rung.push_back(userId);
            }
        }
        d.calleeUserIds = rung;
    }
    auto& stored = m_dialogs[sipCallId] = std::move(d);
    if (!stored.callerUserId.empty())
        setPresence(stored.callerUserId, "busy", changes);
    if (stored.mailbox.empty()) {
        for (const auto& userId : stored.calleeUserIds)
            setPresence(userId, "ringing", changes);
    }
    publishAll(stored, changes);
    queueStep(stored, changes);
    return answer;
}

// The queue's board follows the call: waiting while it rings, with the agent
// who took it while connected, and gone when it ends.
void CallRouter::queueStep(SipDialog& d, CallChanges& changes) {
    Queue* queue = d.queueId.empty() ? nullptr : m_model.queue(d.queueId);
    if (!queue)
        return;
    std::erase_if(queue->waiting, [&](const QueueWaiting& w) { return w.callId == d.sipCallId; });
    const bool over = !m_dialogs.contains(d.sipCallId);
    if (!over && d.state == "ringing") {
        QueueWaiting w;
        w.callId = d.sipCallId;
        w.from = d.from;
        w.sinceMs = d.startMs;
        w.state = "waiting";
        queue->waiting.push_back(w);
    }
    for (size_t i = 0; i < queue->waiting.size(); ++i)
        queue->waiting[i].position = int(i) + 1;
    for (auto& agent : queue->agents) {
        if (!contains(d.calleeUserIds, agent.userId) && agent.userId != d.answeredByUserId)
            continue;
        if (over)
            agent.state =
                agent.state == "on_call" || agent.state == "ringing" ? "available" : agent.state;
        else if (d.state == "ringing")
            agent.state = "ringing";
        else if (agent.userId == d.answeredByUserId) {
            if (agent.state != "on_call")
                ++agent.answeredToday;
            agent.state = "on_call";
        } else if (agent.state == "ringing")
            agent.state = "available";
    }
    changes.boards.push_back(queue->id);
}

std::string CallRouter::recorderFor(const std::string& mailbox) const {
    std::string uri = m_targets.recorderUri;
    if (const auto at = uri.find("%box"); at != std::string::npos)
        uri.replace(at, 4, mailbox);
    return uri;
}

RouteAnswer CallRouter::unanswered(const std::string& sipCallId, CallChanges& changes) {
    SipDialog* d = dialog(sipCallId);
    if (!d || d->calleeUserIds.size() != 1 || !d->groupId.empty() || !d->flowId.empty() ||
        !d->queueId.empty() || m_targets.recorderUri.empty())
        return {"none"};
    const User* callee = m_model.user(d->calleeUserIds.front());
    if (!callee || callee->voicemailBoxId.empty())
        return {"none"};
    d->mailbox = callee->voicemailBoxId;
    // The callee's phones stopped ringing; the caller's call goes on to the mailbox.
    const auto it = d->liveIds.find(callee->id);
    if (it != d->liveIds.end()) {
        addLogRow(*d, callee->id, m_model.clock().nowMs());
        changes.ended.emplace_back(callee->id, it->second);
        std::erase_if(m_model.calls,
                      [&](const LiveCall& c) { return c.call.value("id", "") == it->second; });
        d->liveIds.erase(it);
        setPresence(callee->id, "idle", changes);
    }
    return {"uri|" + recorderFor(d->mailbox)};
}

void CallRouter::ringing(const std::string& sipCallId, CallChanges& changes) {
    SipDialog* d = dialog(sipCallId);
    if (!d || d->state != "ringing")
        return;
    // The model already shows the call ringing from its start; a first 180 adds nothing new.
    (void)changes;
}

void CallRouter::answered(const std::string& sipCallId, const std::string& bySipUser,
                          CallChanges& changes) {
    SipDialog* d = dialog(sipCallId);
    if (!d || d->state == "connected")
        return;
    d->state = "connected";
    d->answerMs = m_model.clock().nowMs();
    const Device* by = device(bySipUser);
    if (!d->mailbox.empty() && (!by || !contains(d->calleeUserIds, by->userId))) {
        d->recorderAnswered = true;
    } else if (by) {
        d->answeredByUserId = by->userId;
    } else if (d->calleeUserIds.size() == 1) {
        // A party that answers from its own address (the echo test, say).
        d->answeredByUserId = d->calleeUserIds.front();
    }
    // Everyone else who was rung: answered elsewhere, their ringing ends.
    for (auto it = d->liveIds.begin(); it != d->liveIds.end();) {
        const auto& [userId, liveId] = *it;
        if (userId == d->callerUserId || userId == d->answeredByUserId) {
            ++it;
            continue;
        }
        addLogRow(*d, userId, d->answerMs);
        changes.ended.emplace_back(userId, liveId);
        const std::string gone = liveId;
        std::erase_if(m_model.calls,
                      [&](const LiveCall& c) { return c.call.value("id", "") == gone; });
        setPresence(userId, "idle", changes);
        it = d->liveIds.erase(it);
    }
    if (!d->answeredByUserId.empty()) {
        setPresence(d->answeredByUserId, "busy", changes);
        if (const User* u = m_model.user(d->answeredByUserId))
            d->to = partyOf(*u);
    }
    publishAll(*d, changes);
    queueStep(*d, changes);
    for (const auto& [userId, liveId] : d->liveIds) {
        if (LiveCall* call = m_model.call(liveId)) {
            for (const auto& leg : call->legs)
                changes.legs.emplace_back(liveId, leg);
        }
    }
}

void CallRouter::failed(const std::string& sipCallId, int code, CallChanges& changes) {
    SipDialog* d = dialog(sipCallId);
    if (!d || d->state == "connected")
        return;
    d->failCode = code;
    finish(*d, changes);
}

void CallRouter::ended(const std::string& sipCallId, CallChanges& changes) {
    if (SipDialog* d = dialog(sipCallId))
        finish(*d, changes);
}

void CallRouter::finish(SipDialog& d, CallChanges& changes) {
    const qint64 now = m_model.clock().nowMs();
    for (const auto& [userId, liveId] : d.liveIds) {
        addLogRow(d, userId, now);
        changes.ended.emplace_back(userId, liveId);
        const std::string gone = liveId;
        std::erase_if(m_model.calls,
                      [&](const LiveCall& c) { return c.call.value("id", "") == gone; });
        setPresence(userId, "idle", changes);
    }
    const std::string id = d.sipCallId;
    if (!d.mailbox.empty() && d.recorderAnswered) {
        changes.recorded = id;
        m_voicemail[id] = d;
    }
    SipDialog last = std::move(d);
    m_dialogs.erase(id);
    queueStep(last, changes);
}

void CallRouter::setPresence(const std::string& userId, const std::string& state,
                             CallChanges& changes) {
    User* user = m_model.user(userId);
    // Do-not-disturb stays what the user chose; calls do not change it.
    if (!user || user->presence == "dnd" || user->presence == state)
        return;
    user->presence = state;
    changes.presence.push_back(userId);
}

Json CallRouter::liveCall(const SipDialog& d, const std::string& userId) const {
    const bool caller = userId == d.callerUserId;
    Json call = Json::object();
    call["id"] = d.liveIds.at(userId);
    call["direction"] = caller ? "outbound" : "inbound";
    call["from"] = d.from;
    call["to"] = d.to;
    call["state"] = d.state;
    call["startedAt"] = d.startMs;
    if (d.answerMs)
        call["answeredAt"] = d.answerMs;
    Json legs = Json::array();
    if (caller) {
        legs.push_back(Json{{"sipCallId", d.sipCallId}, {"deviceId", d.callerDeviceId}});
    } else {
        for (const auto& dev : m_model.devices) {
            if (dev.userId == userId)
                legs.push_back(Json{{"sipCallId", d.sipCallId}, {"deviceId", dev.id}});
        }
    }
    call["myLegs"] = std::move(legs);
    return call;
}

void CallRouter::publishAll(SipDialog& d, CallChanges& changes) {
    std::vector<Json> legs = {Json{{"id", d.sipCallId + "-a"}, {"party", d.from}},
                              Json{{"id", d.sipCallId + "-b"}, {"party", d.to}}};
    for (const auto& [userId, liveId] : d.liveIds) {
        Json fresh = liveCall(d, userId);
        LiveCall* existing = m_model.call(liveId);
        if (!existing) {
            m_model.calls.push_back({fresh, userId, legs});
        } else {
            // What server actions set (recording, conference, quality) stays.
            for (auto& [key, value] : fresh.items())
                existing->call[key] = value;
            for (size_t i = 0; i < legs.size() && i < existing->legs.size(); ++i) {
                existing->legs[i]["party"] = legs[i]["party"];
            }
        }
        changes.upserted.push_back(liveId);
    }
}

void CallRouter::addLogRow(const SipDialog& d, const std::string& userId, qint64 endMs) {
    const bool caller = userId == d.callerUserId;
    const bool toUser = d.to.contains("userId") || !d.groupId.empty();
    Json row = Json::object();
    row["callUuid"] = d.liveIds.count(userId) ? d.liveIds.at(userId) : d.sipCallId;
    row["from"] = d.from.value("number", "");
    row["to"] = d.dialled;
    row["direction"] = !d.callerUserId.empty() && toUser ? "internal"
                       : caller                          ? "outbound"
                                                         : "inbound";
    row["startAt"] = isoMs(d.startMs);
    const bool answered = d.answerMs && (caller || d.answeredByUserId == userId);
    if (answered)
        row["answerAt"] = isoMs(d.answerMs);
    row["endAt"] = isoMs(endMs);
    std::string result;
    if (caller) {
        result = d.recorderAnswered  ? "voicemail"
                 : d.answerMs        ? "answered"
                 : d.failCode == 486 ? "busy"
                                     : "no_answer";
    } else {
        result = d.answeredByUserId == userId  ? "answered"
                 : !d.answeredByUserId.empty() ? "answered_elsewhere"
                 : !d.mailbox.empty()          ? "voicemail"
                                               : "missed";
    }
    row["result"] = result;
    if (!d.mailbox.empty())
        row["voicemail"] = true;
    if (d.from.contains("name"))
        row["fromName"] = d.from["name"];
    if (d.to.contains("name"))
        row["toName"] = d.to["name"];
    row["mine"] = Json{{"role", caller ? "caller" : "callee"},
                       {"answeredByMe", !caller && d.answeredByUserId == userId}};
    if (!d.answeredByUserId.empty())
        row["answeredBy"] = d.answeredByUserId;
    m_model.callLog.insert(m_model.callLog.begin(), LogRow{userId, d.startMs, std::move(row)});
}

} // namespace rzdev

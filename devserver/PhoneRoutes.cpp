// The phone system's side of the server: kamailio asks here who may register
// and where a call goes, and reports every step of a call; tests and the demo
// drive the parties through /_control/phone.
#include "PhoneSystem.h"
#include "RelayStats.h"
#include "Server.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTimer>

#include <algorithm>
#include <cstdio>

namespace rzdev {

namespace {

HttpResponse text(int status, const std::string& body) {
    return HttpResponse::bytes(status, QByteArray::fromStdString(body), "text/plain");
}

HttpResponse jsonOk(const Json& json) {
    return HttpResponse::bytes(
        200, QByteArray::fromStdString(json.dump(-1, ' ', false, Json::error_handler_t::replace)),
        "application/json");
}

HttpResponse refuse(int status, const std::string& message) {
    return HttpResponse::bytes(
        status,
        QByteArray::fromStdString(Json{{"error", "bad_request"}, {"message", message}}.dump()),
        "application/json");
}

std::string arg(const HttpRequest& r, const char* name) {
    return r.query.queryItemValue(QLatin1String(name), QUrl::FullyDecoded).toStdString();
}

// The expiry a REGISTER asked for: the contact's own parameter first, then the header.
int expiresOf(const std::string& contact, const std::string& header) {
    const auto at = contact.find("expires=");
    if (at != std::string::npos)
        return std::atoi(contact.c_str() + at + 8);
    if (!header.empty())
        return std::atoi(header.c_str());
    return 3600;
}

std::string randomSecret() {
    static const char alphabet[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    std::string out;
    for (int i = 0; i < 20; ++i)
        out += alphabet[QRandomGenerator::global()->bounded(int(sizeof alphabet) - 1)];
    return out;
}

// The length of a finished WAV file's audio, or a negative number while the
// writer has not yet closed it (its sizes are still placeholders).
double wavSeconds(const QByteArray& wav) {
    if (wav.size() < 44 || !wav.startsWith("RIFF") || wav.mid(8, 4) != "WAVE")
        return -1;
    const auto u32 = [&](qsizetype at) {
        return quint32(quint8(wav[at])) | quint32(quint8(wav[at + 1])) << 8 |
               quint32(quint8(wav[at + 2])) << 16 | quint32(quint8(wav[at + 3])) << 24;
    };
    if (u32(4) != quint32(wav.size() - 8))
        return -1;
    const quint32 byteRate = u32(28);
    const qsizetype data = wav.indexOf("data", 12);
    if (byteRate == 0 || data < 0)
        return -1;
    return double(u32(data + 4)) / byteRate;
}

} // namespace

// The colleagues that real user agents play, and the echo test as a user of the directory.
void Server::addPhoneFixtures() {
    if (!m_model.user("u-echo")) {
        User echo;
        echo.id = "u-echo";
        echo.name = "Echo test";
        echo.extension = "999";
        echo.email = "echo@acme.example";
        echo.presence = "idle";
        m_model.users.push_back(echo);
        m_model.directoryChanged();
    }
    // Ben never answers (his calls go to box-202), David is busy.
    if (User* ben = m_model.user("u-002"))
        ben->voicemailBoxId = "box-202";
    const struct {
        const char* userId;
        const char* sipUser;
        const char* name;
    } parties[] = {
        {"u-002", "acme.202.party", "Desk phone"}, {"u-003", "acme.203.party", "Desk phone"},
        {"u-004", "acme.204.party", "Desk phone"}, {"u-005", "acme.205.party", "Desk phone"},
        {"u-echo", "acme.999.party", "Echo test"},
    };
    for (const auto& p : parties) {
        bool present = false;
        for (const auto& d : m_model.devices)
            present = present || d.sipUsername == p.sipUser;
        if (present)
            continue;
        Device d;
        d.id = std::string("dev-party-") + (p.sipUser + 5);
        d.userId = p.userId;
        d.installId = d.id;
        d.name = p.name;
        d.platform = "party";
        d.sipUsername = p.sipUser;
        d.password = randomSecret();
        if (m_phone && d.userId == "u-echo")
            d.contact = m_phone->echoContact();
        if (m_phone && d.userId == "u-004")
            d.contact = m_phone->busyContact();
        m_model.devices.push_back(d);
    }
}

bool Server::startPhone() {
    PhoneOptions options;
    options.stateDir = m_config.stateDir;
    options.httpPort = port();
    options.realm = m_model.realm;
    options.noAnswerMs = m_config.noAnswerS * 1000;
    options.answerDelayMs = m_config.answerDelayMs;
    m_phone = new PhoneSystem(options, this);
    QString error;
    if (!m_phone->prepare(&error)) {
        std::fprintf(stderr, "rz-devserver: the phone system cannot start: %s\n",
                     qPrintable(error));
        return false;
    }
    if (!m_edgesGiven) {
        m_config.edges = {{"tcp", "127.0.0.1", m_phone->tcpPort()},
                          {"tls", "127.0.0.1", m_phone->tlsPort()}};
    }
    m_router.setTargets({m_phone->recorderUri(), options.noAnswerMs});
    addPhoneFixtures();
    std::vector<PartyAccount> parties;
    for (const auto& d : m_model.devices) {
        if (d.platform != "party" || !d.contact.empty())
            continue;
        const std::string role = d.userId == "u-002"   ? "noAnswer"
                                 : d.userId == "u-003" ? "speaker"
                                                       : "caller";
        parties.push_back({role, d.userId, d.sipUsername, d.password});
    }
    connect(m_phone, &PhoneSystem::colleagueEvent, this, &Server::onColleagueEvent);
    connect(m_phone, &PhoneSystem::recorderEvent, this, &Server::onRecorderEvent);
    connect(m_phone, &PhoneSystem::ready, this, [this] {
        std::fprintf(stderr,
                     "rz-devserver: phone system ready after %lld ms (sip tcp %u, tls %u)\n",
                     (long long)m_phone->readyAfterMs(), unsigned(m_phone->tcpPort()),
                     unsigned(m_phone->tlsPort()));
        const auto waiters = std::exchange(m_readyWaiters, {});
        for (const auto& w : waiters)
            w.send(jsonOk(phoneJson()));
    });
    connect(m_phone, &PhoneSystem::failed, this, [](const QString& why) {
        std::fprintf(stderr, "rz-devserver: phone system: %s\n", qPrintable(why));
    });
    m_phone->start(parties);
    // Call quality as the relay measures it, on the "call:" topic of each connected call.
    auto* quality = new QTimer(this);
    quality->setInterval(2000);
    connect(quality, &QTimer::timeout, this, &Server::pollQuality);
    quality->start();
    return true;
}

void Server::pollQuality() {
    for (const auto& [id, d] : m_router.dialogs()) {
        if (d.state != "connected")
            continue;
        const std::string sipCallId = id;
        m_phone->queryRelay(sipCallId, [this, sipCallId](const Json& answer) {
            SipDialog* d = m_router.dialog(sipCallId);
            if (!d)
                return;
            const auto qualities = legQualities(answer, d->callerTag);
            const std::pair<std::string, const std::optional<Json>*> legs[] = {
                {sipCallId + "-a", &qualities.caller}, {sipCallId + "-b", &qualities.callee}};
            for (const auto& [userId, liveId] : d->liveIds) {
                LiveCall* call = m_model.call(liveId);
                if (!call)
                    continue;
                std::string worst;
                for (const auto& [legId, quality] : legs) {
                    if (!*quality)
                        continue;
                    for (auto& leg : call->legs) {
                        if (leg.value("id", "") != legId ||
                            leg.value("quality", Json()) == **quality)
                            continue;
                        leg["quality"] = **quality;
                        publish("call:" + liveId, Json{{"legId", legId}, {"quality", **quality}});
                    }
                    const std::string level = (**quality)["level"];
                    if (worst.empty() || level == "poor" || (level == "fair" && worst == "good"))
                        worst = level;
                }
                if (!worst.empty() && call->call.value("quality", "") != worst) {
                    call->call["quality"] = worst;
                    publishCall(*call);
                }
            }
        });
    }
}

Json Server::phoneJson() const {
    Json out = m_phone ? m_phone->status() : Json{{"ready", false}};
    Json registrations = Json::array();
    const qint64 now = m_clock.nowMs();
    for (const auto& [contact, r] : m_registrations) {
        if (r.expiresMs <= now)
            continue;
        registrations.push_back(Json{{"sipUsername", r.sipUser},
                                     {"contact", r.contact},
                                     {"transport", r.transport},
                                     {"source", r.source},
                                     {"expiresInS", (r.expiresMs - now) / 1000}});
    }
    out["registrations"] = registrations;
    Json dialogs = Json::array();
    for (const auto& [id, d] : m_router.dialogs()) {
        Json live = Json::object();
        for (const auto& [user, liveId] : d.liveIds)
            live[user] = liveId;
        dialogs.push_back(Json{{"sipCallId", id},
                               {"from", d.from},
                               {"to", d.to},
                               {"dialled", d.dialled},
                               {"state", d.state},
                               {"mailbox", d.mailbox},
                               {"calls", live}});
    }
    out["dialogs"] = dialogs;
    Json parties = Json::array();
    if (m_phone) {
        for (const auto& p : m_phone->parties())
            parties.push_back(
                Json{{"role", p.role}, {"userId", p.userId}, {"sipUsername", p.sipUser}});
    }
    out["parties"] = parties;
    return out;
}

void Server::applyCallChanges(const CallChanges& changes) {
    for (const auto& id : changes.upserted) {
        if (const LiveCall* call = m_model.call(id))
            publishCall(*call);
    }
    for (const auto& [id, leg] : changes.legs)
        publish("call:" + id, Json{{"op", "leg"}, {"leg", leg}});
    for (const auto& [owner, id] : changes.ended) {
        publish("call:" + id, Json{{"op", "end"}});
        publishMine(owner, Json{{"op", "end"}, {"id", id}});
    }
    for (const auto& userId : changes.presence) {
        if (const User* user = m_model.user(userId))
            publishPresence(*user);
    }
    for (const auto& queueId : changes.boards) {
        if (const Queue* queue = m_model.queue(queueId))
            publishBoard(*queue);
    }
    if (changes.recorded)
        fileVoicemail(*changes.recorded, 0);
}

// The recorder's file for a call that reached a mailbox becomes a message
// once baresip has closed it.
void Server::fileVoicemail(const std::string& sipCallId, int attempt) {
    QDir dir(m_phone->recordingsDir());
    const auto files = dir.entryInfoList({QStringLiteral("*-dec.wav")}, QDir::Files, QDir::Time);
    for (const QFileInfo& info : files) {
        if (m_filedRecordings.contains(info.fileName()))
            continue;
        QFile file(info.filePath());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray wav = file.readAll();
        const double seconds = wavSeconds(wav);
        if (seconds < 0)
            break; // still being written: look again shortly
        m_filedRecordings.insert(info.fileName());
        // The message keeps the audio; the recorder's files of the call go.
        QFile::remove(info.filePath());
        QFile::remove(
            info.filePath().replace(QLatin1String("-dec.wav"), QLatin1String("-enc.wav")));
        const auto dialog = m_router.takeVoicemail(sipCallId);
        if (!dialog)
            return;
        VoicemailMessage message;
        message.id = m_model.nextId("vm-");
        message.boxId = dialog->mailbox;
        const std::string caller = dialog->from.value("number", "");
        if (!caller.empty())
            message.caller = caller;
        message.durationS = seconds;
        message.createdMs = m_clock.nowMs();
        message.audio = wav;
        m_model.messages.insert(m_model.messages.begin(), message);
        std::fprintf(stderr, "rz-devserver: new voicemail %s in %s (%.1f s)\n", message.id.c_str(),
                     message.boxId.c_str(), seconds);
        return;
    }
    if (attempt < 100) {
        QTimer::singleShot(50, this,
                           [this, sipCallId, attempt] { fileVoicemail(sipCallId, attempt + 1); });
    } else {
        std::fprintf(stderr, "rz-devserver: no recording for %s\n", sipCallId.c_str());
        m_router.takeVoicemail(sipCallId);
    }
}

void Server::onColleagueEvent(const Json& event) {
    if (event.value("type", "") != "CALL_INCOMING")
        return;
    const std::string aor = event.value("accountaor", "");
    const std::string callId = event.value("id", "");
    // Chloé answers after two rings; Ben lets it ring; the others are callers.
    if (aor.find("acme.203.party") == std::string::npos || callId.empty())
        return;
    QTimer::singleShot(m_config.answerDelayMs, this, [this, callId] {
        if (m_phone && m_phone->colleagues()) {
            m_phone->colleagues()->command("callfind", callId);
            m_phone->colleagues()->command("accept");
        }
    });
}

void Server::onRecorderEvent(const Json& event) {
    // A message is at most two minutes long.
    if (event.value("type", "") != "CALL_ESTABLISHED")
        return;
    const std::string callId = event.value("id", "");
    QTimer::singleShot(120000, this, [this, callId] {
        if (m_phone && m_phone->recorder() && m_router.dialog(callId)) {
            m_phone->recorder()->command("callfind", callId);
            m_phone->recorder()->command("hangup");
        }
    });
}

// Emma rings Anna, when one of Anna's own devices is registered and she is on no call.
bool Server::demoCall() {
    if (!m_phone || !m_phone->isReady() || !m_phone->colleagues())
        return false;
    const User* anna = m_model.user("u-001");
    if (!anna || anna->presence == "dnd")
        return false;
    for (const auto& [id, d] : m_router.dialogs()) {
        if (d.callerUserId == anna->id || d.liveIds.contains(anna->id))
            return false;
    }
    bool registered = false;
    const qint64 now = m_clock.nowMs();
    for (const auto& [contact, r] : m_registrations) {
        for (const auto& d : m_model.devices) {
            registered = registered ||
                         (d.userId == anna->id && d.sipUsername == r.sipUser && r.expiresMs > now);
        }
    }
    if (!registered)
        return false;
    m_phone->colleagues()->command("uafind", "sip:acme.205.party@" + m_model.realm);
    m_phone->colleagues()->command("dial", "sip:" + anna->extension + "@" + m_model.realm);
    return true;
}

void Server::addPhoneRoutes() {
    // kamailio's questions. Plain text, so that its script can read the answer.
    add("GET", "_control/phone/sip/password", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            const auto user = arg(r, "user");
            for (const auto& d : m_model.devices) {
                if (d.sipUsername == user && !user.empty())
                    return text(200, d.password);
            }
            return text(404, "");
        });

    add("GET", "_control/phone/sip/registered", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            Registration reg;
            reg.sipUser = arg(r, "user");
            reg.contact = arg(r, "contact");
            reg.transport = arg(r, "transport");
            reg.source = arg(r, "source");
            const int expires = expiresOf(reg.contact, arg(r, "expires"));
            // The contact's URI alone names the binding; its parameters change.
            std::string key = reg.contact;
            if (const auto open = key.find('<'); open != std::string::npos)
                key = key.substr(open + 1, key.find('>') - open - 1);
            if (reg.contact == "*" || expires <= 0) {
                std::erase_if(m_registrations, [&](const auto& entry) {
                    return entry.second.sipUser == reg.sipUser &&
                           (reg.contact == "*" || entry.first == key);
                });
            } else {
                reg.expiresMs = m_clock.nowMs() + qint64(expires) * 1000;
                m_registrations[key] = reg;
                if (m_phone)
                    m_phone->partyRegistered(reg.sipUser);
            }
            return text(200, "ok");
        });

    add("GET", "_control/phone/sip/route", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            CallChanges changes;
            const auto answer = m_router.route(arg(r, "callid"), arg(r, "from"), arg(r, "name"),
                                               arg(r, "to"), changes, arg(r, "fromtag"));
            applyCallChanges(changes);
            return text(200, answer.text);
        });

    add("GET", "_control/phone/sip/identity", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            // A device may call as its user's extension or one of their numbers.
            const auto user = arg(r, "user");
            const auto from = CallRouter::normalise(arg(r, "from"));
            for (const auto& d : m_model.devices) {
                const User* owner = d.sipUsername == user ? m_model.user(d.userId) : nullptr;
                if (owner && !from.empty() &&
                    (owner->extension == from ||
                     std::find(owner->numbers.begin(), owner->numbers.end(), from) !=
                         owner->numbers.end()))
                    return text(200, "yes");
            }
            return text(403, "no");
        });

    add("GET", "_control/phone/sip/presentation", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            const auto shown = m_router.presentation(arg(r, "callid"));
            return shown ? text(200, *shown) : text(404, "");
        });

    add("GET", "_control/phone/sip/unanswered", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            CallChanges changes;
            const auto answer = m_router.unanswered(arg(r, "callid"), changes);
            applyCallChanges(changes);
            return text(200, answer.text);
        });

    add("GET", "_control/phone/sip/event", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            const auto kind = arg(r, "kind");
            const auto callId = arg(r, "callid");
            CallChanges changes;
            if (kind == "ringing")
                m_router.ringing(callId, changes);
            else if (kind == "answered")
                m_router.answered(callId, arg(r, "by"), changes);
            else if (kind == "failed")
                m_router.failed(callId, std::atoi(arg(r, "code").c_str()), changes);
            else if (kind == "ended")
                m_router.ended(callId, changes);
            else
                return text(400, "unknown event");
            applyCallChanges(changes);
            return text(200, "ok");
        });

    // Tests and the demo.
    add("GET", "_control/phone/ready", false, [this](const HttpRequest&, const Params&, Context&) {
        if (!m_phone)
            return refuse(409, "the phone system is off; start rz-devserver with --phone");
        return jsonOk(phoneJson());
    });
    add("GET", "_control/phone", false, [this](const HttpRequest&, const Params&, Context&) {
        if (!m_phone)
            return refuse(409, "the phone system is off; start rz-devserver with --phone");
        return jsonOk(phoneJson());
    });

    add("POST", "_control/phone/call", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            if (!m_phone || !m_phone->colleagues())
                return refuse(409, "the phone system is not running");
            const Json body = Json::parse(r.body.toStdString(), nullptr, false);
            if (!body.is_object() || !body.contains("from") || !body["from"].is_string() ||
                !body.contains("to") || !body["to"].is_string())
                return refuse(400, "\"from\" (a colleague) and \"to\" (a number) are required");
            const auto from = body["from"].get<std::string>();
            const auto to = body["to"].get<std::string>();
            const PartyAccount* party = nullptr;
            for (const auto& p : m_phone->parties()) {
                const User* u = m_model.user(p.userId);
                if (p.userId == from || (u && u->extension == from))
                    party = &p;
            }
            if (!party)
                return refuse(404, "no colleague with a phone here is " + from);
            if (to.empty() || to.find_first_of(" \"\\<>") != std::string::npos)
                return refuse(400, "\"to\" is not a number");
            // "behaviour": {"hangUpAfterMs": N}, a caller who gives up (or ends
            // the call) N ms after dialling.
            int hangUpAfterMs = -1;
            if (body.contains("behaviour")) {
                const Json& b = body["behaviour"];
                if (!b.is_object() || !b.contains("hangUpAfterMs") ||
                    !b["hangUpAfterMs"].is_number_integer() || b["hangUpAfterMs"].get<int>() < 0 ||
                    b["hangUpAfterMs"].get<int>() > 600000)
                    return refuse(400, "\"behaviour\" is {\"hangUpAfterMs\": 0 to 600000}");
                hangUpAfterMs = b["hangUpAfterMs"].get<int>();
            }
            // "as": the call comes from outside the company, from this number.
            if (body.contains("as")) {
                const std::string as = body["as"].is_string()
                                           ? CallRouter::normalise(body["as"].get<std::string>())
                                           : std::string();
                if (as.empty())
                    return refuse(400, "\"as\" is not a number");
                m_router.presentNextCallAs(party->sipUser, as);
            }
            m_phone->colleagues()->command("uafind", "sip:" + party->sipUser + "@" + m_model.realm);
            m_phone->colleagues()->command("dial", "sip:" + to + "@" + m_model.realm);
            if (hangUpAfterMs >= 0) {
                const std::string caller = "sip:" + party->sipUser + "@" + m_model.realm;
                QTimer::singleShot(hangUpAfterMs, this, [this, caller] {
                    if (m_phone && m_phone->colleagues()) {
                        m_phone->colleagues()->command("uafind", caller);
                        m_phone->colleagues()->command("hangup");
                    }
                });
            }
            return jsonOk(Json{{"ok", true}, {"from", party->userId}});
        });

    add("POST", "_control/phone/hangup", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            if (!m_phone || !m_phone->colleagues())
                return refuse(409, "the phone system is not running");
            const Json body = r.body.isEmpty() ? Json::object()
                                               : Json::parse(r.body.toStdString(), nullptr, false);
            if (!body.is_object())
                return refuse(400, "malformed JSON body");
            std::vector<std::string> ids;
            if (body.contains("callId") && body["callId"].is_string()) {
                std::string id = body["callId"].get<std::string>();
                // A live call id names its SIP dialog too.
                if (const SipDialog* d = m_router.dialogOfLive(id))
                    id = d->sipCallId;
                if (!m_router.dialog(id))
                    return refuse(404, "no such call");
                ids.push_back(id);
            } else {
                for (const auto& [id, d] : m_router.dialogs())
                    ids.push_back(id);
            }
            for (const auto& id : ids) {
                for (BaresipControl* party : {m_phone->colleagues(), m_phone->recorder()}) {
                    if (!party)
                        continue;
                    party->command("callfind", id);
                    party->command("hangup");
                }
            }
            return jsonOk(Json{{"ok", true}, {"calls", ids}});
        });

    add("POST", "_control/phone/loss", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            if (!m_phone)
                return refuse(409, "the phone system is off; start rz-devserver with --phone");
            const Json body = Json::parse(r.body.toStdString(), nullptr, false);
            if (!body.is_object() || !body.contains("percent") || !body["percent"].is_number())
                return refuse(400, "\"percent\" (0 to 100) is required");
            const double percent = body["percent"].get<double>();
            const Json jitter = body.value("jitterMs", Json(0));
            if (percent < 0 || percent > 100)
                return refuse(400, "\"percent\" must lie between 0 and 100");
            if (!jitter.is_number_integer() || jitter.get<int>() < 0 || jitter.get<int>() > 1000)
                return refuse(400, "\"jitterMs\" must be a whole number from 0 to 1000");
            if (!m_phone->setEchoImpairment(percent, jitter.get<int>()))
                return refuse(409, "the phone system is not running");
            // Only the echo test's media passes a path that can be impaired.
            Json out = m_phone->echoImpairment();
            out["ok"] = true;
            out["appliesTo"] = "999";
            return jsonOk(out);
        });

    add("POST", "_control/phone/registrar", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            if (!m_phone)
                return refuse(409, "the phone system is off; start rz-devserver with --phone");
            const Json body = Json::parse(r.body.toStdString(), nullptr, false);
            if (!body.is_object() || !body.contains("down") || !body["down"].is_boolean())
                return refuse(400, "\"down\" must be a boolean");
            const bool down = body["down"].get<bool>();
            m_phone->setRegistrarDown(down);
            if (down) {
                // Its bindings went with it.
                m_registrations.clear();
            }
            return jsonOk(Json{{"ok", true}, {"registrarDown", down}});
        });
}

} // namespace rzdev

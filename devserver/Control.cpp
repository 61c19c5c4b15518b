// The control interface: tests read and change the model, script faults and
// steer the live sockets. Loopback only, never behind a bearer token.
#include "Server.h"

#include <QTimer>
#include <QWebSocket>

namespace rzdev {

namespace {

QByteArray dumpJson(const Json& json) {
    return QByteArray::fromStdString(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

HttpResponse ok(const Json& json = Json{{"ok", true}}) {
    return HttpResponse::bytes(200, dumpJson(json), "application/json");
}

HttpResponse bad(int status, const std::string& message) {
    return HttpResponse::bytes(
        status, dumpJson(Json{{"error", "bad_request"}, {"message", message}}), "application/json");
}

std::optional<Json> body(const HttpRequest& request) {
    if (request.body.isEmpty())
        return Json::object();
    Json json = Json::parse(request.body.constData(),
                            request.body.constData() + request.body.size(), nullptr, false);
    if (json.is_discarded() || !json.is_object())
        return std::nullopt;
    return json;
}

} // namespace

void Server::addControlRoutes() {
#define BODY                                                                                       \
    const auto b = body(r);                                                                        \
    if (!b)                                                                                        \
        return bad(400, "malformed JSON body");

    // The demo company as it was at start; tokens, devices and sockets stay.
    add("POST", "_control/reset", false, [this](const HttpRequest&, const Params&, Context&) {
        const auto devices = m_model.devices;
        m_model.loadDemo(m_config.directorySize);
        m_model.devices = devices;
        if (m_phone)
            addPhoneFixtures();
        m_faults.clear();
        m_requests = Json::array();
        return ok();
    });

    // One step of the demo's activity, now.
    add("POST", "_control/demo/tick", false, [this](const HttpRequest&, const Params&, Context&) {
        demoTick();
        // With the phone system, the step includes a colleague's call to Anna when she can take it.
        const bool called = m_phone && demoCall();
        return ok(Json{{"ok", true}, {"called", called}});
    });

    add("GET", "_control/requests", false,
        [this](const HttpRequest&, const Params&, Context&) { return ok(m_requests); });
    add("DELETE", "_control/requests", false, [this](const HttpRequest&, const Params&, Context&) {
        m_requests = Json::array();
        return ok();
    });

    // {"method":"GET","path":"api/me","count":1,"status":500,"body":"...","delayMs":0,"garbage":false}
    add("POST", "_control/faults", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY Fault f;
        f.method = QByteArray::fromStdString(b->value("method", ""));
        f.path = QString::fromStdString(b->value("path", ""));
        if (f.path.startsWith('/'))
            f.path.remove(0, 1);
        if (f.path.isEmpty())
            return bad(400, "a fault needs a \"path\"");
        f.remaining = b->value("count", 1);
        f.status = b->value("status", 0);
        const Json faultBody = b->value("body", Json());
        f.body = faultBody.is_string() ? QByteArray::fromStdString(faultBody.get<std::string>())
                 : faultBody.is_null() ? QByteArray()
                                       : dumpJson(faultBody);
        f.delayMs = b->value("delayMs", 0);
        f.garbage = b->value("garbage", false);
        if (!f.status && !f.delayMs && !f.garbage) {
            return bad(400, "a fault needs a \"status\", a \"delayMs\" or \"garbage\"");
        }
        m_faults.push_back(f);
        return ok();
    });
    add("DELETE", "_control/faults", false, [this](const HttpRequest&, const Params&, Context&) {
        m_faults.clear();
        return ok();
    });

    // Moves the server's clock forward: tokens and codes age without waiting.
    add("POST", "_control/clock", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY m_clock.advance(qint64(b->value("advanceS", 0.0) * 1000));
        return ok(Json{{"nowMs", m_clock.nowMs()}});
    });

    // {"token": "..."} or nothing for every access token.
    add("POST", "_control/tokens/expire", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            BODY const auto only = QString::fromStdString(b->value("token", ""));
            int count = 0;
            for (auto& [token, access] : m_access) {
                if (only.isEmpty() || token == only) {
                    access.expiresMs = std::min(access.expiresMs, m_clock.nowMs());
                    ++count;
                }
            }
            return ok(Json{{"expired", count}});
        });
    add("POST", "_control/tokens/revoke", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            BODY const auto only = QString::fromStdString(b->value("token", ""));
            int count = 0;
            for (auto& [token, access] : m_access) {
                if (only.isEmpty() || token == only) {
                    access.revoked = true;
                    ++count;
                }
            }
            for (auto it = m_refresh.begin(); it != m_refresh.end();) {
                if (only.isEmpty() || it->first == only) {
                    it = m_refresh.erase(it);
                    ++count;
                } else {
                    ++it;
                }
            }
            return ok(Json{{"revoked", count}});
        });

    add("GET", "_control/live", false, [this](const HttpRequest&, const Params&, Context&) {
        Json list = Json::array();
        for (const auto& s : m_sockets) {
            list.push_back(Json{{"userId", s.userId},
                                {"topics", s.topics},
                                {"pings", s.pings},
                                {"pongs", s.pongs},
                                {"silent", s.silent},
                                {"expiresMs", s.expiresMs},
                                {"token", s.token.toStdString()}});
        }
        return ok(Json{{"sockets", list}, {"silentNew", m_silentSockets}});
    });
    // {"frame": {...} or "raw text", "topic": optional}, or {"frames": [...]} for a burst in order
    add("POST", "_control/live/push", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY if (!b->contains("frame") && !(b->contains("frames") && (*b)["frames"].is_array()))
            return bad(400, "\"frame\" or \"frames\" is required");
        const Json frames = b->contains("frames") ? (*b)["frames"] : Json::array({(*b)["frame"]});
        QStringList texts;
        for (const Json& frame : frames)
            texts.append(frame.is_string() ? QString::fromStdString(frame.get<std::string>())
                                           : QString::fromUtf8(dumpJson(frame)));
        const auto topic = b->value("topic", "");
        int count = 0;
        for (auto& s : m_sockets) {
            if (s.silent || (!topic.empty() && !s.topics.contains(topic)))
                continue;
            for (const QString& text : texts)
                s.ws->sendTextMessage(text);
            ++count;
        }
        return ok(Json{{"sent", count}});
    });
    // {"closeFrame": true} closes with 1001; false cuts the connection.
    add("POST", "_control/live/drop", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY const bool closeFrame = b->value("closeFrame", true);
        std::vector<QWebSocket*> sockets;
        for (auto& s : m_sockets)
            sockets.push_back(s.ws);
        for (auto* ws : sockets) {
            if (closeFrame)
                ws->close(QWebSocketProtocol::CloseCodeGoingAway, "dropped by control");
            else
                ws->abort();
        }
        return ok(Json{{"dropped", sockets.size()}});
    });
    add("POST", "_control/live/silent", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            BODY m_silentSockets = b->value("silent", true);
            return ok();
        });
    add("POST", "_control/live/ping", false, [this](const HttpRequest&, const Params&, Context&) {
        int count = 0;
        for (auto& s : m_sockets) {
            if (s.silent)
                continue;
            s.awaitingPong = true;
            ++s.pings;
            send(&s, Json{{"type", "ping"}});
            ++count;
        }
        return ok(Json{{"sent", count}});
    });

    add("GET", "_control/model", false, [this](const HttpRequest&, const Params&, Context&) {
        Json users = Json::array();
        for (const auto& u : m_model.users) {
            Json me = m_model.meJson(u);
            me["presence"] = u.presence;
            users.push_back(me);
        }
        Json devices = Json::array();
        for (const auto& d : m_model.devices) {
            devices.push_back(Json{{"id", d.id},
                                   {"userId", d.userId},
                                   {"installId", d.installId},
                                   {"name", d.name},
                                   {"platform", d.platform},
                                   {"model", d.model},
                                   {"sipUsername", d.sipUsername},
                                   {"password", d.password}});
        }
        Json messages = Json::array();
        for (const auto& m : m_model.messages) {
            Json e = m_model.voicemailJson(m);
            e["boxId"] = m.boxId;
            messages.push_back(e);
        }
        Json boards = Json::array();
        for (const auto& q : m_model.queues)
            boards.push_back(m_model.boardJson(q));
        Json calls = Json::array();
        for (const auto& c : m_model.calls) {
            calls.push_back(Json{{"call", c.call}, {"owner", c.owner}, {"legs", c.legs}});
        }
        Json groups = Json::array();
        for (const auto& g : m_model.groups) {
            groups.push_back(Json{{"id", g.id}, {"name", g.name}, {"ringing", g.ringing}});
        }
        return ok(Json{{"users", users},
                       {"groups", groups},
                       {"devices", devices},
                       {"voicemail", messages},
                       {"queues", boards},
                       {"calls", calls},
                       {"conferences", m_model.conferences},
                       {"callLogRows", m_model.callLog.size()},
                       {"directoryETag", m_model.directoryETag().toStdString()}});
    });

    // {"presence": "busy", "dnd": true, "recording": "never", "name": "...", "extension": "..."}
    add("PATCH", "_control/users/:user", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY User* user = m_model.user(p.at("user"));
            if (!user)
                return bad(404, "no such user");
            static const std::set<std::string> states{"idle", "ringing", "busy", "dnd", "offline"};
            if (b->contains("presence")) {
                const auto state = b->value("presence", "");
                if (!states.contains(state))
                    return bad(400, "unknown presence");
                user->presence = state;
                publishPresence(*user);
            }
            if (b->contains("dnd"))
                user->dnd = b->value("dnd", false);
            if (b->contains("recording"))
                user->recording = b->value("recording", "");
            bool directory = false;
            for (const char* key : {"name", "email", "extension"}) {
                if (!b->contains(key))
                    continue;
                (std::string(key) == "name"    ? user->name
                 : std::string(key) == "email" ? user->email
                                               : user->extension) = b->value(key, "");
                directory = true;
            }
            if (directory)
                m_model.directoryChanged();
            return ok(m_model.meJson(*user));
        });
    add("POST", "_control/users", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY User u;
        u.id = b->value("id", m_model.nextId("u-x"));
        if (m_model.user(u.id))
            return bad(409, "a user with this id exists");
        u.name = b->value("name", "New Colleague");
        u.email = b->value("email", u.id + "@acme.example");
        u.extension = b->value("extension", std::to_string(5000 + m_model.users.size()));
        u.numbers = b->value("numbers", std::vector<std::string>{});
        m_model.users.push_back(u);
        m_model.directoryChanged();
        publishPresence(m_model.users.back());
        return ok(m_model.meJson(m_model.users.back()));
    });
    add("DELETE", "_control/users/:user", false,
        [this](const HttpRequest&, const Params& p, Context&) {
            if (!m_model.user(p.at("user")))
                return bad(404, "no such user");
            std::erase_if(m_model.users, [&](const User& u) { return u.id == p.at("user"); });
            m_model.directoryChanged();
            return ok();
        });
    add("PATCH", "_control/groups/:group", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY for (auto& g : m_model.groups) {
                if (g.id != p.at("group"))
                    continue;
                g.ringing = b->value("ringing", g.ringing);
                publish("presence", Json{{"groupId", g.id}, {"ringing", g.ringing}});
                return ok();
            }
            return bad(404, "no such group");
        });

    // Queue boards: every change sends the whole board.
    add("POST", "_control/queues/:queue/waiting", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY Queue* q = m_model.queue(p.at("queue"));
            if (!q)
                return bad(404, "no such queue");
            QueueWaiting w;
            w.callId = b->value("callId", m_model.nextId("qc-"));
            w.from = b->value("from", Json("+4930999999"));
            w.position = b->value("position", int(q->waiting.size()) + 1);
            w.sinceMs = b->value("sinceMs", m_clock.nowMs());
            w.state = b->value("state", "waiting");
            w.agent = b->value("agent", Json());
            q->waiting.push_back(w);
            publishBoard(*q);
            return ok(m_model.boardJson(*q));
        });
    add("DELETE", "_control/queues/:queue/waiting/:call", false,
        [this](const HttpRequest&, const Params& p, Context&) {
            Queue* q = m_model.queue(p.at("queue"));
            if (!q)
                return bad(404, "no such queue");
            std::erase_if(q->waiting,
                          [&](const QueueWaiting& w) { return w.callId == p.at("call"); });
            publishBoard(*q);
            return ok(m_model.boardJson(*q));
        });
    add("PATCH", "_control/queues/:queue/agents/:user", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY Queue* q = m_model.queue(p.at("queue"));
            if (!q)
                return bad(404, "no such queue");
            QueueAgent* agent = nullptr;
            for (auto& a : q->agents) {
                if (a.userId == p.at("user"))
                    agent = &a;
            }
            if (!agent) {
                if (!m_model.user(p.at("user")))
                    return bad(404, "no such user");
                q->agents.push_back({p.at("user"), "logged_out", 0});
                agent = &q->agents.back();
            }
            agent->state = b->value("state", agent->state);
            agent->answeredToday = b->value("answeredToday", agent->answeredToday);
            publishBoard(*q);
            return ok(m_model.boardJson(*q));
        });
    add("POST", "_control/queues/:queue/end", false,
        [this](const HttpRequest&, const Params& p, Context&) {
            if (!m_model.queue(p.at("queue")))
                return bad(404, "no such queue");
            publish("queue:" + p.at("queue"), Json{{"op", "end"}});
            return ok();
        });

    // {"call": {...wire call...}, "owner": "u-001", "legs": [...]}: an upsert.
    add("POST", "_control/calls", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY if (!b->contains("call") || !(*b)["call"].is_object() ||
                 !(*b)["call"].contains("id") || !(*b)["call"]["id"].is_string()) {
            return bad(400, "\"call\" must be an object with an \"id\"");
        }
        const Json& wire = (*b)["call"];
        const auto id = wire["id"].get<std::string>();
        LiveCall* call = m_model.call(id);
        if (!call) {
            m_model.calls.push_back({wire, b->value("owner", m_model.users.front().id), {}});
            call = &m_model.calls.back();
        } else {
            call->call = wire;
        }
        if (b->contains("legs")) {
            call->legs.clear();
            for (const auto& leg : (*b)["legs"])
                call->legs.push_back(leg);
        }
        publishCall(*call);
        return ok();
    });
    add("DELETE", "_control/calls/:call", false,
        [this](const HttpRequest&, const Params& p, Context&) {
            LiveCall* call = m_model.call(p.at("call"));
            if (!call)
                return bad(404, "no such call");
            const auto owner = call->owner;
            publish("call:" + p.at("call"), Json{{"op", "end"}});
            std::erase_if(m_model.calls, [&](const LiveCall& c) {
                return c.call.value("id", "") == p.at("call");
            });
            publishMine(owner, Json{{"op", "end"}, {"id", p.at("call")}});
            return ok();
        });
    add("POST", "_control/calls/:call/legs", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY LiveCall* call = m_model.call(p.at("call"));
            if (!call)
                return bad(404, "no such call");
            const Json leg = b->value("leg", Json());
            if (!leg.is_object() || !leg.contains("id"))
                return bad(400, "\"leg\" needs an \"id\"");
            bool replaced = false;
            for (auto& l : call->legs) {
                if (l.value("id", "") == leg.value("id", "")) {
                    l = leg;
                    replaced = true;
                }
            }
            if (!replaced)
                call->legs.push_back(leg);
            publish("call:" + p.at("call"), Json{{"op", "leg"}, {"leg", leg}});
            return ok();
        });
    add("POST", "_control/calls/:call/quality", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY LiveCall* call = m_model.call(p.at("call"));
            if (!call)
                return bad(404, "no such call");
            const auto legId = b->value("legId", "");
            const Json quality = b->value("quality", Json());
            for (auto& l : call->legs) {
                if (l.value("id", "") != legId)
                    continue;
                if (quality.is_null())
                    l.erase("quality");
                else
                    l["quality"] = quality;
            }
            Json delta = Json{{"legId", legId}};
            if (!quality.is_null())
                delta["quality"] = quality;
            publish("call:" + p.at("call"), delta);
            if (quality.is_object() && quality.contains("level")) {
                call->call["quality"] = quality["level"];
                publishCall(*call);
            }
            return ok();
        });

    // {"conference": {...wire conference...}}
    add("POST", "_control/conferences", false,
        [this](const HttpRequest& r, const Params&, Context&) {
            BODY Json conference = b->value("conference", Json());
            if (!conference.is_object() || !conference.contains("id")) {
                return bad(400, "\"conference\" needs an \"id\"");
            }
            if (!conference.contains("locked"))
                conference["locked"] = false;
            if (!conference.contains("participants"))
                conference["participants"] = Json::array();
            std::erase_if(m_model.conferences, [&](const Json& c) {
                return c.value("id", "") == conference.value("id", "");
            });
            m_model.conferences.push_back(conference);
            return ok(conference);
        });
    add("POST", "_control/conferences/:conf/participants", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY Json* conference = m_model.conference(p.at("conf"));
            if (!conference)
                return bad(404, "no such conference");
            const Json participant = b->value("participant", Json());
            if (!participant.is_object() || !participant.contains("id")) {
                return bad(400, "\"participant\" needs an \"id\"");
            }
            auto& list = (*conference)["participants"];
            for (auto it = list.begin(); it != list.end();) {
                it = it->value("id", "") == participant.value("id", "") ? list.erase(it) : it + 1;
            }
            list.push_back(participant);
            publish("conference:" + p.at("conf"),
                    Json{{"op", "join"}, {"participant", participant}});
            return ok();
        });
    add("DELETE", "_control/conferences/:conf/participants/:p", false,
        [this](const HttpRequest&, const Params& p, Context&) {
            Json* conference = m_model.conference(p.at("conf"));
            if (!conference)
                return bad(404, "no such conference");
            auto& list = (*conference)["participants"];
            for (auto it = list.begin(); it != list.end();) {
                it = it->value("id", "") == p.at("p") ? list.erase(it) : it + 1;
            }
            publish("conference:" + p.at("conf"), Json{{"op", "leave"}, {"id", p.at("p")}});
            return ok();
        });
    // {"talking": true} and/or {"muted": true}
    add("PATCH", "_control/conferences/:conf/participants/:p", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY Json* conference = m_model.conference(p.at("conf"));
            if (!conference)
                return bad(404, "no such conference");
            for (auto& participant : (*conference)["participants"]) {
                if (participant.value("id", "") != p.at("p"))
                    continue;
                for (const char* key : {"talking", "muted"}) {
                    if (!b->contains(key))
                        continue;
                    participant[key] = (*b)[key];
                    publish("conference:" + p.at("conf"),
                            Json{{"op", std::string(key) == "muted" ? "mute" : "talking"},
                                 {"id", p.at("p")},
                                 {key, (*b)[key]}});
                }
                return ok();
            }
            return bad(404, "no such participant");
        });
    add("PATCH", "_control/conferences/:conf", false,
        [this](const HttpRequest& r, const Params& p, Context&) {
            BODY Json* conference = m_model.conference(p.at("conf"));
            if (!conference)
                return bad(404, "no such conference");
            (*conference)["locked"] = b->value("locked", false);
            publish("conference:" + p.at("conf"),
                    Json{{"op", "lock"}, {"locked", (*conference)["locked"]}});
            return ok();
        });
    add("DELETE", "_control/conferences/:conf", false,
        [this](const HttpRequest&, const Params& p, Context&) {
            if (!m_model.conference(p.at("conf")))
                return bad(404, "no such conference");
            std::erase_if(m_model.conferences,
                          [&](const Json& c) { return c.value("id", "") == p.at("conf"); });
            publish("conference:" + p.at("conf"), Json{{"op", "end"}});
            return ok();
        });

    // {"boxId": "box-201", "caller": "+49...", "durationS": 12}
    add("POST", "_control/voicemail", false, [this](const HttpRequest& r, const Params&, Context&) {
        BODY VoicemailMessage m;
        m.id = m_model.nextId("vm-");
        m.boxId = b->value("boxId", m_model.users.front().voicemailBoxId);
        if (b->contains("caller") && (*b)["caller"].is_string())
            m.caller = (*b)["caller"].get<std::string>();
        m.durationS = b->value("durationS", 10.0);
        m.createdMs = m_clock.nowMs();
        m_model.messages.insert(m_model.messages.begin(), m);
        return ok(m_model.voicemailJson(m));
    });
#undef BODY
}

} // namespace rzdev

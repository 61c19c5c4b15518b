#include "PhoneKit.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <map>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace kit;

namespace {

// The registrations the server knows of for one SIP user.
std::vector<json> registrationsOf(PhoneServer& server, const std::string& sipUser) {
    std::vector<json> out;
    const auto phone = server.control("GET", "phone");
    for (const auto& r : phone.at("registrations")) {
        if (r.at("sipUsername") == sipUser)
            out.push_back(r);
    }
    return out;
}

// The next non-ping frame on a topic, skipping others.
json nextOn(LiveClient& live, const std::string& topic, std::chrono::milliseconds bound = 10s) {
    QDeadlineTimer deadline(bound);
    for (;;) {
        auto frame =
            live.nextData(std::chrono::milliseconds(std::max<qint64>(1, deadline.remainingTime())));
        if (frame.value("topic", "") == topic)
            return frame;
    }
}

// Lets a call run: its audio needs this long to be sent, relayed and recorded.
void talkFor(std::chrono::milliseconds duration) {
    QEventLoop loop;
    QTimer::singleShot(duration, &loop, &QEventLoop::quit);
    loop.exec();
}

// The processes rz-devserver started under that program name.
std::vector<pid_t> partiesNamed(qint64 server, const QString& comm) {
    std::vector<pid_t> found;
    const QDir tasks(QString("/proc/%1/task").arg(server));
    for (const QString& task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile children(tasks.filePath(task + "/children"));
        if (!children.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray& pid : children.readAll().split(' ')) {
            QFile name("/proc/" + pid.trimmed() + "/comm");
            if (!pid.trimmed().isEmpty() && name.open(QIODevice::ReadOnly) &&
                name.readAll().trimmed() == comm.toUtf8())
                found.push_back(pid_t(pid.trimmed().toInt()));
        }
    }
    return found;
}

struct TcpSocket {
    quint16 remotePort = 0; // 0 for a listening socket
    bool noDelay = false;
};

// Every TCP socket of a process, with TCP_NODELAY read on a copy of its descriptor.
std::vector<TcpSocket> tcpSocketsOf(pid_t pid) {
    // Socket inode to remote port, from the process's own table.
    std::map<QByteArray, quint16> remotes;
    QFile table(QString("/proc/%1/net/tcp").arg(pid));
    if (!table.open(QIODevice::ReadOnly))
        return {};
    for (const QByteArray& line : table.readAll().split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() > 9 && fields[0] != "sl")
            remotes[fields[9]] = quint16(fields[2].split(':').value(1).toUInt(nullptr, 16));
    }
    std::vector<TcpSocket> result;
    // By system call: the C library's own declarations lack C linkage here.
    const int process = int(syscall(SYS_pidfd_open, pid, 0));
    if (process < 0)
        return {};
    const QDir fds(QString("/proc/%1/fd").arg(pid));
    for (const QString& fd : fds.entryList(QDir::System | QDir::NoDotAndDotDot)) {
        const QString target = QFile::symLinkTarget(fds.filePath(fd));
        const auto found = remotes.find(target.section('[', 1).section(']', 0, 0).toUtf8());
        if (!target.contains("socket:[") || found == remotes.end())
            continue;
        const int copy = int(syscall(SYS_pidfd_getfd, process, fd.toInt(), 0));
        if (copy < 0)
            continue;
        int on = 0;
        socklen_t length = sizeof on;
        const bool read = getsockopt(copy, IPPROTO_TCP, TCP_NODELAY, &on, &length) == 0;
        result.push_back({found->second, read && on != 0});
        ::close(copy);
    }
    ::close(process);
    return result;
}

} // namespace

TEST(DevServerPhone, AProvisionedDeviceRegistersOverTcp) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-tcp");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    const auto regs = registrationsOf(server, device.at("sipUsername"));
    ASSERT_EQ(regs.size(), 1u) << server.control("GET", "phone").dump();
    EXPECT_EQ(regs[0].at("transport"), "tcp");
    EXPECT_NE(regs[0].at("contact").get<std::string>().find("127.0.0.1"), std::string::npos);
}

TEST(DevServerPhone, AProvisionedDeviceRegistersOverTlsTrustingTheServersCa) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-tls");
    Agent app(server, device, "tls", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    const auto regs = registrationsOf(server, device.at("sipUsername"));
    ASSERT_EQ(regs.size(), 1u);
    EXPECT_EQ(regs[0].at("transport"), "tls");
}

TEST(DevServerPhone, AWrongPasswordIsRefused) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-wrong");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000), "not-the-password");
    EXPECT_FALSE(app.waitRegistered());
    EXPECT_NE(app.output().find("403"), std::string::npos) << app.output();
    EXPECT_TRUE(registrationsOf(server, device.at("sipUsername")).empty());
}

TEST(DevServerPhone, AnUnknownUserIsRefused) {
    PhoneServer server;
    auto device = server.provision("u-001", "install-stranger");
    device["sipUsername"] = "acme.201.nobody";
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    EXPECT_FALSE(app.waitRegistered());
    EXPECT_NE(app.output().find("403"), std::string::npos) << app.output();
}

TEST(DevServerPhone, TheEchoExtensionSendsTheToneBack) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-echo");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    app.command("dial", "sip:999@rz.local");
    app.waitEvent({"CALL_ESTABLISHED"});
    talkFor(3s);
    app.command("hangup");
    app.waitEvent({"CALL_CLOSED"});
    const auto heard = app.heard();
    ASSERT_GT(heard.size(), 8000u) << "less than a second came back";
    EXPECT_GT(tonePower(heard, 1000), 100 * tonePower(heard, 600));
    EXPECT_GT(rms(heard), 1000);
}

namespace {

// The echo's lossy path as the server counts it, after a call of `seconds`.
json echoPathAfter(PhoneServer& server, Agent& app, std::chrono::milliseconds talk) {
    app.command("dial", "sip:999@rz.local");
    app.waitEvent({"CALL_ESTABLISHED"});
    talkFor(talk);
    app.command("hangup");
    app.waitEvent({"CALL_CLOSED"});
    return server.control("GET", "phone").at("echoImpairment");
}

} // namespace

TEST(DevServerPhone, TheEchoPathPassesEveryPacketUntilTold) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-clean");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    const auto path = echoPathAfter(server, app, 3s);
    // 50 packets a second each way.
    EXPECT_GT(path.at("passed").get<int>(), 200) << path.dump();
    EXPECT_EQ(path.at("dropped").get<int>(), 0) << path.dump();
}

TEST(DevServerPhone, LossSetThroughControlDropsThatShareOfTheEchosPacketsAndTheToneStillComesBack) {
    PhoneServer server;
    const auto set = server.control("POST", "phone/loss", {{"percent", 20}, {"jitterMs", 30}});
    EXPECT_EQ(set.at("appliesTo"), "999");
    const auto device = server.provision("u-001", "install-lossy");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    const auto path = echoPathAfter(server, app, 4s);
    const double dropped = path.at("dropped").get<double>();
    const double share = dropped / (dropped + path.at("passed").get<double>());
    EXPECT_GT(share, 0.12) << path.dump();
    EXPECT_LT(share, 0.28) << path.dump();
    // What got through is still the caller's own tone.
    const auto heard = app.heard();
    ASSERT_GT(heard.size(), 8000u);
    EXPECT_GT(tonePower(heard, 1000), 10 * tonePower(heard, 1500));
}

TEST(DevServerPhone, LossOutsideItsRangeIsRefused) {
    PhoneServer server;
    for (const json& body :
         {json{{"percent", 120}}, json{{"percent", -1}}, json{{"jitter", 5}},
          json{{"percent", 5}, {"jitterMs", 2.5}}, json{{"percent", 5}, {"jitterMs", 5000}}}) {
        const auto reply = httpRequest(server.network(), "POST", server.url("_control/phone/loss"),
                                       dump(body), {{"Content-Type", "application/json"}});
        EXPECT_EQ(reply.status, 400) << body.dump();
    }
}

TEST(DevServerPhone, TheSpeakingColleagueAnswersAfterTwoRingsAndSpeaks) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-speak");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    QElapsedTimer ringing;
    app.command("dial", "sip:203@rz.local");
    app.waitEvent({"CALL_RINGING"});
    ringing.start();
    app.waitEvent({"CALL_ESTABLISHED"}, 15s);
    EXPECT_GE(ringing.elapsed(), 4000);
    talkFor(3s);
    app.command("hangup");
    app.waitEvent({"CALL_CLOSED"});
    const auto heard = app.heard();
    ASSERT_GT(heard.size(), 8000u);
    // The greeting: speech energy well above silence.
    EXPECT_GT(rms(heard), 500);
}

TEST(DevServerPhone, ABlindTransferHandsTheColleagueOnToTheTarget) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-transfer");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    app.command("dial", "sip:203@rz.local");
    app.waitEvent({"CALL_ESTABLISHED"}, 15s);
    app.command("transfer", "sip:999@rz.local");
    // The app's own leg ends once the colleague's new call to the echo is up.
    app.waitEvent({"CALL_CLOSED"}, 15s);
    // The colleague is now in a call of their own with the echo, as the
    // server sees it; the app's call is gone from its list.
    QDeadlineTimer deadline(10000);
    bool transferred = false;
    json phone;
    while (!transferred && !deadline.hasExpired()) {
        phone = server.control("GET", "phone");
        const auto& dialogs = phone.at("dialogs");
        transferred = dialogs.size() == 1 && dialogs[0].at("dialled") == "999" &&
                      dialogs[0].at("state") == "connected" &&
                      dialogs[0].at("from").value("userId", "") == "u-003";
        if (!transferred)
            talkFor(100ms);
    }
    EXPECT_TRUE(transferred) << phone.dump();
}

// Their SIP library leaves Nagle's algorithm on; a NOTIFY written right after
// a 202 then waited ~40 ms for the proxy's delayed ACK on every transfer.
TEST(DevServerPhone, TheColleaguesAndTheRecorderSpeakSipWithoutNaglesAlgorithm) {
    PhoneServer server;
    const auto parties = partiesNamed(server.process().pid(), "baresip");
    ASSERT_EQ(parties.size(), 2u);
    int toKamailio = 0;
    for (const pid_t party : parties) {
        const auto sockets = tcpSocketsOf(party);
        ASSERT_FALSE(sockets.empty()) << "baresip " << party << " has no TCP socket";
        for (const auto& socket : sockets) {
            EXPECT_TRUE(socket.noDelay) << "baresip " << party << " to " << socket.remotePort;
            toKamailio += socket.remotePort == server.edgePort("tcp");
        }
    }
    // The colleagues' registrations hold the connection that carries their calls.
    EXPECT_GE(toKamailio, 1);
}

TEST(DevServerPhone, TheBusyColleagueRefusesWith486) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-busy");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    app.command("dial", "sip:204@rz.local");
    const auto closed = app.waitEvent({"CALL_CLOSED"});
    EXPECT_NE(closed.dump().find("486"), std::string::npos) << closed.dump();
}

TEST(DevServerPhone, AGroupCallRingsADeviceOfEachMember) {
    PhoneServer server;
    // Sales (600): Anna, Frank and Grace; Anna and Frank have a phone here.
    const auto anna = server.provision("u-001", "install-anna");
    const auto frank = server.provision("u-006", "install-frank");
    const QString tone = toneWav(server.folder(), 1000);
    Agent annaApp(server, anna, "tcp", tone);
    Agent frankApp(server, frank, "tls", tone);
    ASSERT_TRUE(annaApp.waitRegistered()) << annaApp.output();
    ASSERT_TRUE(frankApp.waitRegistered()) << frankApp.output();
    server.control("POST", "phone/call", {{"from", "205"}, {"to", "600"}});
    const auto atAnna = annaApp.waitEvent({"CALL_INCOMING"});
    const auto atFrank = frankApp.waitEvent({"CALL_INCOMING"});
    // One call, forked: the same Call-ID at both devices.
    EXPECT_EQ(atAnna.at("id"), atFrank.at("id"));
    frankApp.command("accept");
    frankApp.waitEvent({"CALL_ESTABLISHED"});
    // Anna's phone stops ringing when Frank answers.
    annaApp.waitEvent({"CALL_CLOSED"});
    server.control("POST", "phone/hangup", json::object());
    frankApp.waitEvent({"CALL_CLOSED"});
}

TEST(DevServerPhone, LiveFramesCarryTheCallIdOfTheSipDialog) {
    PhoneServer server;
    QString token;
    const auto device = server.provision("u-001", "install-live", &token);
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    LiveClient live(server, token);
    live.sub("calls:mine");
    EXPECT_EQ(nextOn(live, "calls:mine").at("data").at("calls").size(), 0u);

    app.command("dial", "sip:203@rz.local");
    const auto ringing = app.waitEvent({"CALL_RINGING"});
    const std::string sipCallId = ringing.at("id");
    const auto upsert = nextOn(live, "calls:mine");
    ASSERT_EQ(upsert.at("data").at("op"), "upsert");
    const auto call = upsert.at("data").at("call");
    EXPECT_EQ(call.at("myLegs").at(0).at("sipCallId"), sipCallId);
    EXPECT_EQ(call.at("myLegs").at(0).at("deviceId"), device.at("deviceId"));
    EXPECT_EQ(call.at("state"), "ringing");
    EXPECT_EQ(call.at("direction"), "outbound");
    EXPECT_EQ(call.at("to").at("userId"), "u-003");
    const std::string id = call.at("id");
    live.sub("call:" + id);
    const auto snapshot = nextOn(live, "call:" + id);
    EXPECT_EQ(snapshot.at("data").at("legs").size(), 2u);

    app.waitEvent({"CALL_ESTABLISHED"}, 15s);
    json connected;
    while (connected.is_null()) {
        const auto frame = nextOn(live, "calls:mine");
        if (frame.at("data").value("op", "") == "upsert" &&
            frame.at("data").at("call").at("state") == "connected")
            connected = frame.at("data").at("call");
    }
    EXPECT_EQ(connected.at("id"), id);
    EXPECT_TRUE(connected.contains("answeredAt"));

    app.command("hangup");
    app.waitEvent({"CALL_CLOSED"});
    json ended;
    while (ended.is_null()) {
        const auto frame = nextOn(live, "calls:mine");
        if (frame.at("data").value("op", "") == "end")
            ended = frame.at("data");
    }
    EXPECT_EQ(ended.at("id"), id);

    // The call log has the finished call at the top.
    const auto log = server.get("api/calls?limit=1", token).json();
    const auto row = log.at("calls").at(0);
    EXPECT_EQ(row.at("callUuid"), id);
    EXPECT_EQ(row.at("from"), "201");
    EXPECT_EQ(row.at("to"), "203");
    EXPECT_EQ(row.at("direction"), "internal");
    EXPECT_EQ(row.at("result"), "answered");
    EXPECT_TRUE(row.contains("answerAt"));
    EXPECT_EQ(row.at("mine").at("role"), "caller");
}

TEST(DevServerPhone, AnUnansweredCallToAnnaLeavesAVoicemailWithItsAudio) {
    PhoneServer server;
    QString token;
    const auto device = server.provision("u-001", "install-vm", &token);
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    const auto before = server.get("api/voicemail-boxes/box-201/messages", token).json().size();

    server.control("POST", "phone/call", {{"from", "205"}, {"to", "201"}});
    app.waitEvent({"CALL_INCOMING"});
    QElapsedTimer rang;
    rang.start();
    // Nobody answers: after 20 s the mailbox takes the call and the phone stops ringing.
    app.waitEvent({"CALL_CLOSED"}, 30s);
    EXPECT_GE(rang.elapsed(), 19000);
    // The caller speaks for a few seconds, then hangs up.
    talkFor(4s);
    server.control("POST", "phone/hangup", json::object());

    json messages;
    QDeadlineTimer deadline(10s);
    do {
        messages = server.get("api/voicemail-boxes/box-201/messages", token).json();
    } while (messages.size() == before && !deadline.hasExpired());
    ASSERT_EQ(messages.size(), before + 1);
    const auto message = messages.at(0);
    EXPECT_EQ(message.at("caller"), "205");
    EXPECT_GT(message.at("durationS").get<double>(), 1.0);
    const auto audio =
        server.get(QString::fromStdString("api/voicemail-messages/" +
                                          message.at("id").get<std::string>() + "/audio"),
                   token);
    ASSERT_EQ(audio.status, 200);
    EXPECT_EQ(audio.header("Content-Type"), "audio/wav");
    const auto samples = wavSamples(audio.body);
    ASSERT_GT(samples.size(), 8000u);
    EXPECT_GT(rms(samples), 300) << "the caller's speech is in the message";
}

TEST(DevServerPhone, TheRegistrarGoesDownAndComesBackThroughControl) {
    PhoneServer server;
    const auto tcp = server.edgePort("tcp");
    server.control("POST", "phone/registrar", {{"down", true}});
    QTcpSocket probe;
    probe.connectToHost("127.0.0.1", tcp);
    EXPECT_FALSE(probe.waitForConnected(1000));
    EXPECT_TRUE(server.control("GET", "phone").at("registrarDown").get<bool>());

    server.control("POST", "phone/registrar", {{"down", false}});
    const auto ready =
        httpRequest(server.network(), "GET", server.url("_control/phone/ready"), {}, {}, 20s);
    ASSERT_EQ(ready.status, 200) << ready.body.toStdString();
    // The colleagues registered again with the fresh registrar, and a device can too.
    EXPECT_EQ(registrationsOf(server, "acme.203.party").size(), 1u);
    const auto device = server.provision("u-001", "install-after");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    EXPECT_TRUE(app.waitRegistered()) << app.output();
}

TEST(DevServerPhone, TheDemoRingsAnnasAppWhenSheHasOneAndIsFree) {
    PhoneServer server({"--demo"});
    // No phone of Anna's yet: nobody calls.
    EXPECT_FALSE(server.control("POST", "demo/tick").at("called").get<bool>());
    const auto device = server.provision("u-001", "install-demo");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    EXPECT_TRUE(server.control("POST", "demo/tick").at("called").get<bool>());
    const auto incoming = app.waitEvent({"CALL_INCOMING"});
    // Shown as a colleague, by extension and name, not by the party's SIP identity.
    EXPECT_EQ(incoming.value("peeruri", "").rfind("sip:205@", 0), 0u) << incoming.dump();
    EXPECT_EQ(incoming.value("peerdisplayname", ""), "Emma Lindqvist") << incoming.dump();
    // While she is on that call, the demo leaves her alone.
    EXPECT_FALSE(server.control("POST", "demo/tick").at("called").get<bool>());
}

TEST(DevServerPhone, AColleaguePlayingAnOutsideCallerIsShownByTheNumberGiven) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-outside");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    server.control("POST", "phone/call",
                   {{"from", "205"}, {"to", "201"}, {"as", "+49 170 5550123"}});
    const auto incoming = app.waitEvent({"CALL_INCOMING"});
    EXPECT_EQ(incoming.value("peeruri", "").rfind("sip:+491705550123@", 0), 0u) << incoming.dump();
    EXPECT_EQ(incoming.value("peerdisplayname", ""), "") << incoming.dump();
    // The next call of the same party is a colleague's again.
    server.control("POST", "phone/hangup");
    app.waitEvent({"CALL_CLOSED"});
    server.control("POST", "phone/call", {{"from", "205"}, {"to", "201"}});
    const auto again = app.waitEvent({"CALL_INCOMING"});
    EXPECT_EQ(again.value("peeruri", "").rfind("sip:205@", 0), 0u) << again.dump();
}

TEST(DevServerPhone, ACallerWhoGivesUpStopsRingingTheApp) {
    PhoneServer server;
    const auto device = server.provision("u-001", "install-giveup");
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    QElapsedTimer since;
    since.start();
    server.control("POST", "phone/call",
                   {{"from", "205"}, {"to", "201"}, {"behaviour", {{"hangUpAfterMs", 1500}}}});
    app.waitEvent({"CALL_INCOMING"});
    app.waitEvent({"CALL_CLOSED"});
    EXPECT_GE(since.elapsed(), 1500);
}

TEST(DevServerPhone, ABehaviourThatIsNotOneIsRefused) {
    PhoneServer server;
    for (const json& behaviour : {json("soon"), json{{"hangUpAfterMs", -5}}, json::object(),
                                  json{{"hangUpAfterMs", 1.5}}}) {
        const auto reply =
            httpRequest(server.network(), "POST", server.url("_control/phone/call"),
                        dump(json{{"from", "205"}, {"to", "201"}, {"behaviour", behaviour}}),
                        {{"Content-Type", "application/json"}});
        EXPECT_EQ(reply.status, 400) << behaviour.dump();
    }
}

TEST(DevServerPhone, AnOutsideNumberThatIsNoNumberIsRefused) {
    PhoneServer server;
    const auto reply = httpRequest(server.network(), "POST", server.url("_control/phone/call"),
                                   dump(json{{"from", "205"}, {"to", "201"}, {"as", "nobody"}}),
                                   {{"Content-Type", "application/json"}});
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(reply.json().value("message", ""), "\"as\" is not a number");
}

TEST(DevServerPhone, TheCallTopicCarriesQualityMeasuredByTheRelay) {
    PhoneServer server;
    QString token;
    const auto device = server.provision("u-001", "install-quality", &token);
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    LiveClient live(server, token);
    live.sub("calls:mine");
    nextOn(live, "calls:mine");
    app.command("dial", "sip:203@rz.local");
    const std::string id = nextOn(live, "calls:mine").at("data").at("call").at("id");
    live.sub("call:" + id);
    nextOn(live, "call:" + id);
    app.waitEvent({"CALL_ESTABLISHED"}, 15s);
    // The relay scores a stream once the parties' first RTCP reports came through it.
    json delta;
    while (delta.is_null()) {
        const auto frame = nextOn(live, "call:" + id, 25s);
        if (frame.at("data").contains("quality"))
            delta = frame.at("data");
    }
    const auto legId = delta.at("legId").get<std::string>();
    EXPECT_TRUE(legId.ends_with("-a") || legId.ends_with("-b")) << legId;
    const auto quality = delta.at("quality");
    EXPECT_GT(quality.at("mos").get<double>(), 1.0);
    EXPECT_LE(quality.at("mos").get<double>(), 5.0);
    // Loopback with nothing in the way: no loss, and the level says so.
    EXPECT_EQ(quality.at("lossPct").get<double>(), 0.0);
    EXPECT_EQ(quality.at("level"), "good");
    app.command("hangup");
    app.waitEvent({"CALL_CLOSED"});
}

TEST(DevServerPhone, ACallerOnTheMainLineWaitsInTheSupportQueueUntilAnnaAnswers) {
    PhoneServer server;
    QString token;
    const auto device = server.provision("u-001", "install-queue", &token);
    Agent app(server, device, "tcp", toneWav(server.folder(), 1000));
    ASSERT_TRUE(app.waitRegistered()) << app.output();
    LiveClient live(server, token);
    live.sub("queue:q-support");
    nextOn(live, "queue:q-support");

    server.control("POST", "phone/call", {{"from", "205"}, {"to", "+493055500000"}});
    const auto incoming = app.waitEvent({"CALL_INCOMING"});
    const auto agentOf = [](const json& board, const std::string& user) {
        for (const auto& a : board.at("agents")) {
            if (a.at("userId") == user)
                return a;
        }
        return json();
    };
    const auto waitingOf = [&](const json& board) {
        for (const auto& w : board.at("waiting")) {
            if (w.at("callId") == incoming.at("id"))
                return w;
        }
        return json();
    };
    const auto waitBoard = [&](const std::function<bool(const json&)>& wanted) {
        for (;;) {
            const auto frame = nextOn(live, "queue:q-support");
            const auto board = frame.at("data").at("board");
            if (wanted(board))
                return board;
        }
    };
    const auto ringing = waitBoard([&](const json& b) { return !waitingOf(b).is_null(); });
    EXPECT_EQ(waitingOf(ringing).at("state"), "waiting");
    EXPECT_EQ(waitingOf(ringing).at("from").at("userId"), "u-005");
    EXPECT_EQ(agentOf(ringing, "u-001").at("state"), "ringing");
    const int answeredBefore = agentOf(ringing, "u-001").at("answeredToday");

    app.command("accept");
    app.waitEvent({"CALL_ESTABLISHED"});
    const auto taken = waitBoard([&](const json& b) { return waitingOf(b).is_null(); });
    EXPECT_EQ(agentOf(taken, "u-001").at("state"), "on_call");
    EXPECT_EQ(agentOf(taken, "u-001").at("answeredToday"), answeredBefore + 1);

    app.command("hangup");
    app.waitEvent({"CALL_CLOSED"});
    const auto after =
        waitBoard([&](const json& b) { return agentOf(b, "u-001").at("state") == "available"; });
    EXPECT_TRUE(waitingOf(after).is_null());
}

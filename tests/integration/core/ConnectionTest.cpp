// The connection to the registrar cut from under the engine: a TCP relay
// between the engine and kamailio closes every connection it carries.

#include "Ports.h"
#include "SipLab.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using core::CallState;
using Kind = core::CallState::Kind;
using core::RegistrationState;

namespace {

const char* const registrarHead =
    "  <recv request=\"REGISTER\"/>\n"
    "  <send><![CDATA[\nSIP/2.0 200 OK\n[last_Via:]\n[last_From:]\n"
    "[last_To:];tag=[pid]r\n[last_Call-ID:]\n[last_CSeq:]\n"
    "[last_Contact:]\nExpires: 300\nContent-Length: 0\n\n]]></send>\n";

// A registrar that offers a call over the registration's own connection, as
// a proxy does; brokenLine, when given, takes the place of the header it names.
QString offeringRegistrarScenario(const QString& brokenLine, const QString& afterwards) {
    QStringList headers = {"Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]",
                           "From: <sip:mallory@127.0.0.1>;tag=[pid]m",
                           "To: <sip:alice@127.0.0.1>",
                           "Call-ID: [call_id]",
                           "CSeq: 1 INVITE",
                           "Contact: <sip:mallory@[local_ip]:[local_port];transport=tcp>",
                           "Max-Forwards: 70",
                           "Content-Type: application/sdp",
                           "Content-Length: [len]"};
    const QString name = brokenLine.section(':', 0, 0) + ":";
    for (QString& header : headers) {
        if (!brokenLine.isEmpty() && header.startsWith(name)) {
            header = brokenLine;
        }
    }
    return QString(
               "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n<scenario name=\"offer\">\n") +
           registrarHead + "  <pause milliseconds=\"200\"/>\n" +
           "  <send><![CDATA[\nINVITE sip:alice@127.0.0.1 SIP/2.0\n" + headers.join('\n') +
           "\n\nv=0\no=- 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\n"
           "m=audio [media_port] RTP/AVP 0\na=rtpmap:0 PCMU/8000\n]]></send>\n" +
           afterwards + "</scenario>\n";
}

// Relays TCP from a free loopback port to the target port; cut() closes
// every connection under way, as a NAT or a failing link does.
class Relay {
public:
    explicit Relay(std::uint16_t target) : m_target(target) {
        m_listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = loopback(0);
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(m_listener, 8);
        socklen_t length = sizeof address;
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        pipe(m_wake);
        m_thread = std::thread([this] { run(); });
    }
    ~Relay() {
        m_running = false;
        poke();
        m_thread.join();
        closeAll();
        close(m_listener);
        close(m_wake[0]);
        close(m_wake[1]);
    }
    std::string server() const { return "127.0.0.1:" + std::to_string(m_port); }
    // The next message from the engine is not passed on: its connection is
    // closed instead, so that the request is under way when the link goes.
    void cutAtNextRequest() { m_trap = true; }
    // Connections made from now on go to another port; those under way stay.
    void retarget(std::uint16_t target) { m_target = target; }
    bool trapSprung() const { return !m_trap && m_sprung; }
    // Closes the connections now carried; new ones are relayed as before.
    void cut() {
        m_cut = true;
        poke();
        while (m_cut) {
            std::this_thread::yield(); // the relay thread acknowledges within one poll round
        }
    }

private:
    static sockaddr_in loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        return address;
    }
    void poke() {
        const char byte = 1;
        write(m_wake[1], &byte, 1);
    }
    void closeAll() {
        for (auto& [a, b] : m_pairs) {
            close(a);
            close(b);
        }
        m_pairs.clear();
    }
    void run() {
        while (m_running) {
            std::vector<pollfd> fds = {{m_wake[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
            for (auto& [a, b] : m_pairs) {
                fds.push_back({a, POLLIN, 0});
                fds.push_back({b, POLLIN, 0});
            }
            poll(fds.data(), fds.size(), 1000);
            if (fds[0].revents) {
                char drain[16];
                read(m_wake[0], drain, sizeof drain);
                if (m_cut) {
                    closeAll();
                    m_cut = false;
                    continue;
                }
            }
            if (fds[1].revents & POLLIN) {
                const int inside = accept(m_listener, nullptr, nullptr);
                const int outside = socket(AF_INET, SOCK_STREAM, 0);
                sockaddr_in address = loopback(m_target);
                if (::connect(outside, reinterpret_cast<sockaddr*>(&address), sizeof address) ==
                    0) {
                    m_pairs.emplace_back(inside, outside);
                } else {
                    close(inside);
                    close(outside);
                }
            }
            // Only the pairs that were polled: one accepted just now waits for the next round.
            const size_t polled = (fds.size() - 2) / 2;
            for (size_t i = 0; i < polled; ++i) {
                const pollfd& a = fds[2 + 2 * i];
                const pollfd& b = fds[3 + 2 * i];
                bool closed = false;
                if ((a.revents & POLLIN) && m_trap) {
                    m_sprung = true;
                    m_trap = false;
                    closed = true;
                }
                for (const auto& [from, to] :
                     {std::pair{a, m_pairs[i].second}, std::pair{b, m_pairs[i].first}}) {
                    if (!closed && (from.revents & (POLLIN | POLLHUP | POLLERR))) {
                        char buffer[65536];
                        const ssize_t got = recv(from.fd, buffer, sizeof buffer, 0);
                        if (got <= 0 || send(to, buffer, size_t(got), MSG_NOSIGNAL) != got) {
                            closed = true;
                        }
                    }
                }
                if (closed) {
                    close(m_pairs[i].first);
                    close(m_pairs[i].second);
                    m_pairs[i] = {-1, -1};
                }
            }
            std::erase_if(m_pairs, [](const auto& pair) { return pair.first < 0; });
        }
    }

    std::atomic<std::uint16_t> m_target;
    std::uint16_t m_port = 0;
    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    std::atomic<bool> m_running{true};
    std::atomic<bool> m_cut{false};
    std::atomic<bool> m_trap{false};
    std::atomic<bool> m_sprung{false};
    std::vector<std::pair<int, int>> m_pairs; // relay thread only
    std::thread m_thread;
};

// A registration after the first count states.
RegistrationState nextRegistered(Events& events, size_t after, std::chrono::milliseconds bound) {
    return events.waitRegistration(
        [&after](const RegistrationState& state) {
            if (after > 0) {
                --after;
                return false;
            }
            return state.kind == RegistrationState::Kind::registered;
        },
        bound);
}

} // namespace

TEST(Connection, ACutConnectionToTheRegistrarIsReplacedWithinFiveSeconds) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    Relay relay(kamailio.tcpPort());
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(relay.server(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), RegistrationState::registered());
    const size_t before = events->registrations().size();
    relay.cut();
    EXPECT_EQ(nextRegistered(*events, before, 5s), RegistrationState::registered());
    const auto states = events->registrations();
    ASSERT_GT(states.size(), before);
    EXPECT_EQ(states[before], RegistrationState::registering());
    client->stop();
}

TEST(Connection, ACallOutlivesACutConnectionAndItsEndIsStillReported) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    const std::uint16_t sippPort = freeLoopbackPort();
    Kamailio kamailio(dir.path(), certs, {false, sippPort});
    Sipp sipp(dir.path(), answeringScenario(), sippPort);
    sipp.start();
    Relay relay(kamailio.tcpPort());
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(relay.server(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), RegistrationState::registered());
    auto call = client->placeCall("sipp");
    const std::string id = call->sipCallId();
    ASSERT_EQ(events->waitCall(id, Kind::connected), CallState::connected());
    const size_t before = events->registrations().size();
    relay.cut();
    EXPECT_EQ(nextRegistered(*events, before, 5s), RegistrationState::registered());
    // The call is still up: our BYE finds the far end over the new connection.
    EXPECT_EQ(events->callStates(id).back(), CallState::connected());
    call->hangup();
    EXPECT_EQ(events->waitCall(id, Kind::ended), CallState::ended("local"));
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    client->stop();
}

TEST(Connection, AConnectionCutDuringTheFirstRegisterIsReplacedWithinFiveSeconds) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    Relay relay(kamailio.tcpPort());
    relay.cutAtNextRequest();
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(relay.server(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    EXPECT_EQ(nextRegistered(*events, 0, 5s), RegistrationState::registered());
    EXPECT_TRUE(relay.trapSprung()) << "the first REGISTER was never cut";
    client->stop();
}

TEST(Connection, AConnectionCutDuringARenewalIsReplacedWithinFiveSeconds) {
    QTemporaryDir dir;
    TestCertificates certs(dir.path());
    Kamailio kamailio(dir.path(), certs, {});
    Relay relay(kamailio.tcpPort());
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor(relay.server(), "alice", Kamailio::users().at("alice")), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), RegistrationState::registered());
    const size_t before = events->registrations().size();
    relay.cutAtNextRequest();
    client->reRegister();
    EXPECT_EQ(nextRegistered(*events, before, 5s), RegistrationState::registered());
    EXPECT_TRUE(relay.trapSprung()) << "the renewal was never cut";
    client->stop();
}

TEST(Connection, AServerThatTakesTheRegisterAndNeverAnswersIsReportedAsNotAnswering) {
    // The kernel accepts connections to a listening socket that nobody
    // serves and takes what is sent: a server that has hung.
    const int silent = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(silent, 8), 0);
    socklen_t length = sizeof address;
    getsockname(silent, reinterpret_cast<sockaddr*>(&address), &length);
    const std::string server = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    auto events = std::make_shared<Events>();
    auto client =
        core::SipClient::init(accountFor(server, "alice", Kamailio::users().at("alice")), events);
    client->start();
    EXPECT_EQ(events->waitFailed(10s),
              RegistrationState::failed("The server " + server + " does not answer."));
    client->stop();
    close(silent);
}

namespace {

void unreadableOfferThenAWholeOne(const QString& brokenLine) {
    QTemporaryDir dir;
    const std::uint16_t brokenPort = freeLoopbackPort();
    const std::uint16_t goodPort = freeLoopbackPort();
    Sipp broken(dir.path(), offeringRegistrarScenario(brokenLine, {}), brokenPort);
    broken.start();
    // The second one's offer is whole: it rings, and is turned down.
    QTemporaryDir goodDir;
    Sipp good(goodDir.path(),
              offeringRegistrarScenario({}, "  <recv response=\"100\" optional=\"true\"/>\n"
                                            "  <recv response=\"180\"/>\n"
                                            "  <recv response=\"486\"/>\n" +
                                                QString(registrarHead)),
              goodPort);
    good.start();
    Relay relay(brokenPort);
    LogLines log;
    auto events = std::make_shared<Events>();
    auto client =
        core::SipClient::init(accountFor(relay.server(), "alice", "alice-secret"), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), RegistrationState::registered());
    const size_t before = events->registrations().size();
    relay.retarget(goodPort);
    EXPECT_TRUE(log.waitFor("the registrar sent a message that could not be read")) << log.all();
    EXPECT_EQ(nextRegistered(*events, before, 5s), RegistrationState::registered());
    auto call = events->waitIncoming();
    EXPECT_EQ(call->remoteNumber(), "mallory");
    call->hangup();
    client->stop();
    EXPECT_EQ(good.waitExit(), 0) << good.output();
}

} // namespace

TEST(Connection, AnOfferWithACSeqWithoutItsNumberIsDroppedWithASentenceAndTheNextCallRings) {
    unreadableOfferThenAWholeOne("CSeq: INVITE");
}

TEST(Connection, AnOfferWithAViaWithoutItsHostIsDroppedWithASentenceAndTheNextCallRings) {
    unreadableOfferThenAWholeOne("Via: SIP/2.0/TCP");
}

TEST(Connection, AnOfferWithAContentLengthThatIsNoNumberIsDroppedWithASentenceAndTheNextCallRings) {
    unreadableOfferThenAWholeOne("Content-Length: many");
}

TEST(Connection, AnOfferWithAnUnreadableContactIsRefusedAsABadRequestWithoutRinging) {
    // The message itself reads; only the address to answer to is broken, so
    // the offer gets its answer: 400, and no call rings for it (sipp takes no
    // 180 before the 400).
    QTemporaryDir dir;
    const std::uint16_t port = freeLoopbackPort();
    Sipp sipp(dir.path(),
              offeringRegistrarScenario("Contact: <sip:mallory@",
                                        "  <recv response=\"100\" optional=\"true\"/>\n"
                                        "  <recv response=\"400\"/>\n"),
              port);
    sipp.start();
    LogLines log;
    auto events = std::make_shared<Events>();
    auto client = core::SipClient::init(
        accountFor("127.0.0.1:" + std::to_string(port), "alice", "alice-secret"), events);
    client->start();
    ASSERT_EQ(events->waitRegistered(), RegistrationState::registered());
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
    EXPECT_TRUE(log.waitFor("its Contact cannot be read")) << log.all();
    client->stop();
}

#include "SipLab.h"

#include <gtest/gtest.h>

#include "Ports.h"

#include <malloc.h>

using core::CallState;
using Kind = core::CallState::Kind;

namespace {

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

struct Lab {
    QTemporaryDir dir;
    TestCertificates certs{dir.path()};
    std::uint16_t sippPort = freeLoopbackPort();
    Kamailio kamailio{dir.path(), certs, {false, sippPort}};
    QString tone = writeToneFile(dir.path(), 1000);
    std::shared_ptr<Events> events = std::make_shared<Events>();
    std::shared_ptr<core::SipClient> client;

    void startClient() {
        client = core::SipClient::init(
            accountFor(kamailio.tcpServer(), "alice", Kamailio::users().at("alice")), events);
        client->start();
        ASSERT_EQ(events->waitRegistered().kind, core::RegistrationState::Kind::registered);
    }
};

void oneCall(Lab& lab, const std::string& number = "bob") {
    auto call = lab.client->placeCall(number);
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    for (int i = 0; i < 3; ++i) {
        call->writeAudio(std::vector<std::int16_t>(160, 1000));
        call->readAudio();
    }
    call->hangup();
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::ended), CallState::ended("local"));
}

} // namespace

TEST(Endurance, TwoHundredCallsInARowLeaveMemoryFlat) {
    Lab lab;
    Sipp sipp(lab.dir.path(), answeringScenario(), lab.sippPort, 200);
    sipp.start();
    lab.startClient();
    for (int i = 0; i < 20; ++i) {
        ASSERT_NO_FATAL_FAILURE(oneCall(lab, "sipp")) << "call " << i;
    }
    const std::size_t before = heapInUse();
    for (int i = 20; i < 200; ++i) {
        ASSERT_NO_FATAL_FAILURE(oneCall(lab, "sipp")) << "call " << i;
    }
    // libre keeps each call's ACK for 32 s to answer a retransmitted 200 OK; once
    // those have gone, what is left is the test's own event log (a few hundred
    // bytes a call). A call that leaked its buffers, sockets or codec state
    // would keep kilobytes.
    const auto deadline = std::chrono::steady_clock::now() + 45s;
    std::size_t after = heapInUse();
    while (double(after) - double(before) > 256.0 * 1024 &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(500ms); // the pace of a bounded poll of the heap
        after = heapInUse();
    }
    EXPECT_LT(double(after) - double(before), 256.0 * 1024) << before << " -> " << after;
    lab.client->stop();
    EXPECT_EQ(sipp.waitExit(), 0) << sipp.output();
}

TEST(Endurance, StopWithACallUpEndsItAndNothingArrivesAfterwards) {
    Lab lab;
    Baresip bob(lab.dir.path(), "bob", Baresip::Role::echo, lab.kamailio, lab.tone,
                lab.certs.trustedCa);
    lab.startClient();
    auto call = lab.client->placeCall("bob");
    ASSERT_EQ(lab.events->waitCall(call->sipCallId(), Kind::connected), CallState::connected());
    AudioLoop audio(call, 1000);
    lab.client->stop();
    const int after = lab.events->total();
    // The far end was told: the call is gone there.
    bob.waitEvent({"CALL_CLOSED"});
    audio.stop();
    // The call is still safe to use after its client stopped and went.
    lab.client.reset();
    EXPECT_EQ(call->readAudio().size(), 160u);
    call->hangup();
    EXPECT_EQ(lab.events->total(), after);
}

#include "TwoCallsLab.h"

#include "telephony/CallAudio.h"

#include <QTest>

#include <gtest/gtest.h>

// Hold, a second call, swap and blind transfer, with the app signed in on
// rz-devserver's phone system: the far ends are real user agents, and what
// each side hears is recorded and looked at.
namespace {

bool hears(const std::vector<std::int16_t>& samples, double hz) {
    return samples.size() >= 8000 && toneMarginDb(samples, hz) >= 20.0;
}

bool activeHeld(Phone& phone) {
    return phone.activeCall() && phone.activeCall()->held;
}

} // namespace

TEST(TwoCalls, HoldAndResumeAreHeardAsSilenceAndSoundAtTheFarEnd) {
    // The far end is the echo test: what reaches it comes back to the
    // speaker, so the speaker hears exactly what the far end heard.
    TwoCallsLab lab;
    lab.signInAndRegister();
    lab.phone->dial("999");
    ASSERT_TRUE(waitFor(
        [&] { return status(*lab.phone) == Status::connected && !lab.phone->startingCall(); }));
    talkFor(1s);
    EXPECT_TRUE(hears(lab.speaker(1.5), appTone));

    lab.phone->toggleHold();
    ASSERT_TRUE(waitFor([&] { return activeHeld(*lab.phone); }));
    EXPECT_TRUE(lab.phone->audio().muted());
    talkFor(500ms);
    const auto whileHeld = lab.speaker(1.5);
    EXPECT_LT(kit::rms(whileHeld), 100.0) << kit::rms(whileHeld);
    EXPECT_FALSE(hears(whileHeld, appTone));

    lab.phone->toggleHold();
    ASSERT_TRUE(waitFor([&] { return !activeHeld(*lab.phone); }));
    EXPECT_FALSE(lab.phone->audio().muted());
    talkFor(500ms);
    EXPECT_TRUE(hears(lab.speaker(1.5), appTone));
    lab.phone->hangUpActive();
}

TEST(TwoCalls, ASecondCallHoldsTheFirstSwapBringsItBackAndEitherMayHangUp) {
    TwoCallsLab lab;
    auto frank = lab.frank();
    lab.signInAndRegister();
    lab.callFrank(*frank);
    const QUuid frankCall = lab.phone->activeCall()->uuid;

    // The echo test as the second call: Frank goes on hold.
    lab.phone->dial("999");
    ASSERT_TRUE(lab.phone->heldCall());
    EXPECT_EQ(lab.phone->heldCall()->uuid, frankCall);
    ASSERT_TRUE(waitFor(
        [&] { return status(*lab.phone) == Status::connected && lab.phone->heldCall()->held; }));
    EXPECT_FALSE(lab.phone->lastError()) << lab.phone->lastErrorText().toStdString();
    talkFor(1s);
    const auto withEcho = lab.speaker(1.5);
    EXPECT_TRUE(hears(withEcho, appTone));
    EXPECT_FALSE(hears(withEcho, frankTone));

    // Swap: Frank in front again, the echo on hold.
    lab.phone->swap();
    EXPECT_EQ(lab.phone->activeCall()->uuid, frankCall);
    ASSERT_TRUE(waitFor([&] { return !activeHeld(*lab.phone) && lab.phone->heldCall()->held; }));
    talkFor(500ms);
    const auto withFrank = lab.speaker(1.5);
    EXPECT_TRUE(hears(withFrank, frankTone));
    EXPECT_FALSE(hears(withFrank, appTone));

    // The held echo hangs up from here: Frank stays, heard as before.
    lab.phone->hangUp(lab.phone->heldCall()->uuid);
    EXPECT_FALSE(lab.phone->heldCall());
    EXPECT_EQ(lab.phone->activeCall()->uuid, frankCall);
    EXPECT_TRUE(hears(lab.speaker(1.0), frankTone));

    // Again a second call, and this time the one in front ends: Frank comes
    // forward still on hold and silent until resumed.
    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] {
        return status(*lab.phone) == Status::connected && lab.phone->heldCall() &&
               lab.phone->heldCall()->held;
    }));
    lab.phone->hangUpActive();
    ASSERT_TRUE(lab.phone->activeCall());
    EXPECT_EQ(lab.phone->activeCall()->uuid, frankCall);
    EXPECT_TRUE(lab.phone->activeCall()->held);
    EXPECT_TRUE(lab.phone->audio().muted());
    EXPECT_FALSE(lab.phone->heldCall());
    lab.phone->toggleHold();
    ASSERT_TRUE(waitFor([&] { return !activeHeld(*lab.phone); }));
    EXPECT_FALSE(lab.phone->audio().muted());
    talkFor(500ms);
    EXPECT_TRUE(hears(lab.speaker(1.0), frankTone));

    // Frank hangs up: nothing is left.
    frank->command("hangup");
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
    EXPECT_EQ(lab.phone->recents().entries().size(), 3);
}

TEST(TwoCalls, ABlindTransferHandsChloeToFrankAndHeHearsHer) {
    TwoCallsLab lab;
    auto frank = lab.frank();
    lab.signInAndRegister();
    // Chloé (203) answers after two rings and speaks.
    lab.phone->dial("203");
    ASSERT_TRUE(waitFor([&] { return status(*lab.phone) == Status::connected; }, 15000));
    EXPECT_GT(kit::rms(lab.speaker(1.0)), 300.0);

    lab.phone->transfer("206");
    ASSERT_TRUE(waitFor([&] { return lab.phone->activeCall()->transferring; }));
    // Chloé's phone calls Frank's on its own; he answers, and this side leaves.
    frank->waitEvent({"CALL_INCOMING"}, 15s);
    frank->command("accept");
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }, 15000))
        << lab.phone->lastErrorText().toStdString();
    EXPECT_FALSE(lab.phone->lastError()) << lab.phone->lastErrorText().toStdString();
    const auto& entry = lab.phone->recents().entries().front();
    EXPECT_EQ(entry.remote, "203");
    EXPECT_TRUE(entry.answered);
    EXPECT_FALSE(entry.failure);

    // The two others talk: what Chloé says reaches Frank.
    talkFor(2s);
    frank->command("hangup");
    frank->waitEvent({"CALL_CLOSED"});
    const auto heard = frank->heard();
    ASSERT_GT(heard.size(), 1600u);
    EXPECT_GT(kit::rms(heard), 300.0) << kit::rms(heard);
    // Nothing of this side's 1 kHz: the app is no longer on the call.
    EXPECT_LT(toneMarginDb(heard, appTone), 20.0);
}

TEST(TwoCalls, ATransferToABusyColleagueFailsAndTheCallComesBack) {
    TwoCallsLab lab;
    auto frank = lab.frank();
    lab.signInAndRegister();
    lab.callFrank(*frank);
    const QUuid frankCall = lab.phone->activeCall()->uuid;
    // David (204) is always busy.
    lab.phone->transfer("204");
    ASSERT_TRUE(waitFor([&] { return lab.phone->hasLastError(); }, 15000));
    EXPECT_TRUE(lab.phone->lastErrorText().startsWith("Transfer failed: "))
        << lab.phone->lastErrorText().toStdString();
    ASSERT_TRUE(lab.phone->activeCall());
    EXPECT_EQ(lab.phone->activeCall()->uuid, frankCall);
    EXPECT_FALSE(lab.phone->activeCall()->transferring);
    EXPECT_EQ(status(*lab.phone), Status::connected);
    talkFor(500ms);
    EXPECT_TRUE(hears(lab.speaker(1.0), frankTone));
    lab.phone->hangUpActive();
    frank->waitEvent({"CALL_CLOSED"});
}

TEST(TwoCalls, TwoCallsMergedBecomeAConferenceSeenOnTheLiveTopic) {
    TwoCallsLab lab;
    auto frank = lab.frank();
    lab.signInAndRegister();
    lab.callFrank(*frank);
    EXPECT_FALSE(lab.session->canMerge());
    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] {
        return status(*lab.phone) == Status::connected && lab.phone->heldCall() &&
               lab.phone->heldCall()->held;
    }));
    // Both calls reach the server's list of the user's calls, with this device's legs.
    ASSERT_TRUE(waitFor([&] { return lab.session->canMerge(); }, 15000));
    const auto pair = lab.session->mergeTargets();
    ASSERT_TRUE(pair);
    EXPECT_NE(pair->active, pair->held);

    lab.session->mergeCallsFromScreen();
    ASSERT_TRUE(waitFor([&] { return lab.session->live().conference().has_value(); }, 15000))
        << lab.session->errorText().toStdString();
    EXPECT_FALSE(lab.session->hasError()) << lab.session->errorText().toStdString();
    const QString conference = lab.session->live().conference()->id;
    EXPECT_TRUE(lab.session->live().topics().contains("conference:" + conference))
        << Live::topicsText(lab.session->live().topics()).toStdString();
    lab.phone->hangUpActive();
    lab.phone->hangUpActive();
    frank->waitEvent({"CALL_CLOSED"});
}

TEST(TwoCalls, AMergeTheServerRefusesShowsItsSentence) {
    TwoCallsLab lab;
    auto frank = lab.frank();
    lab.signInAndRegister();
    lab.callFrank(*frank);
    lab.phone->dial("999");
    ASSERT_TRUE(waitFor([&] { return lab.session->canMerge(); }, 15000));
    const auto pair = lab.session->mergeTargets();
    ASSERT_TRUE(pair);
    // The server answers the merge with a page of HTML.
    lab.server.control("POST", "faults",
                       {{"method", "POST"},
                        {"path", ("api/calls/" + pair->active + "/merge").toStdString()},
                        {"status", 200},
                        {"body", "<html><body>Maintenance</body></html>"}});
    lab.session->mergeCallsFromScreen();
    ASSERT_TRUE(waitFor([&] { return lab.session->hasError(); }, 10000));
    EXPECT_EQ(lab.session->errorText(), "HTTP 200: Unexpected answer from api/calls/" +
                                            pair->active + "/merge. Is the server up to date?");
    EXPECT_FALSE(lab.session->live().conference());
    // Nothing changed here: both calls stand as they were.
    EXPECT_TRUE(lab.phone->activeCall());
    EXPECT_TRUE(lab.phone->heldCall());
    lab.phone->hangUpActive();
    lab.phone->hangUpActive();
    frank->waitEvent({"CALL_CLOSED"});
}

#include "session/Session.h"

#include "../telephony/PhoneFixture.h"
#include "api/Json.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

// Which two server calls a merge names, and what a reply the app cannot
// read becomes; the request itself is in the integration suite.
namespace {

live::Call serverCall(const char* id, std::vector<const char*> sipCallIds) {
    live::Call call;
    call.id = id;
    if (!sipCallIds.empty()) {
        QList<live::Call::MyLeg> legs;
        for (const char* sip : sipCallIds) {
            legs.append({QString::fromLatin1(sip), std::nullopt});
        }
        call.myLegs = legs;
    }
    return call;
}

class MergeTest : public PhoneFixture {
protected:
    MergeTest() { session.setPhone(&phone); }

    // Two connected calls: out-1 on hold behind out-2.
    void twoCalls() {
        registered();
        dialled("204");
        phone.callStateChanged("out-1", core::CallState::connected());
        phone.dial("205");
        phone.callStateChanged("out-1", core::CallState::held());
    }

    MemorySecureStore secrets;
    Session session{settings, secrets};
};

} // namespace

TEST(MergePair, EachCallIsFoundByALegOfItsSipCall) {
    const live::Calls calls{serverCall("c-1", {"x", "held"}), serverCall("c-2", {"active"}),
                            serverCall("c-3", {"active"})};
    const auto pair = Session::mergePair(QString("active"), QString("held"), calls);
    ASSERT_TRUE(pair);
    EXPECT_EQ(pair->active, "c-2");
    EXPECT_EQ(pair->held, "c-1");
}

TEST(MergePair, EitherCallMissingFromTheServersListGivesNothing) {
    const live::Calls calls{serverCall("c-1", {"held"}), serverCall("c-2", {})};
    EXPECT_FALSE(Session::mergePair(QString("active"), QString("held"), calls));
    EXPECT_FALSE(Session::mergePair(QString("held"), std::nullopt, calls));
    EXPECT_FALSE(Session::mergePair(QString("held"), QString("held"), {}));
}

TEST_F(MergeTest, WithOneCallThereIsNothingToMerge) {
    registered();
    dialled("204");
    phone.callStateChanged("out-1", core::CallState::connected());
    EXPECT_FALSE(session.mergeTargets());
    EXPECT_FALSE(session.canMerge());
}

TEST_F(MergeTest, WithASecondCallNotYetConnectedNothingIsMerged) {
    registered();
    dialled("204");
    phone.callStateChanged("out-1", core::CallState::connected());
    phone.dial("205");
    // Out-2 is still calling: whatever the server knows, no pair.
    EXPECT_EQ(phone.activeCall()->status, Phone::ActiveCall::Status::calling);
    EXPECT_FALSE(session.mergeTargets());
    phone.callStateChanged("out-2", core::CallState::ringing());
    EXPECT_FALSE(session.mergeTargets());
}

TEST_F(MergeTest, TwoConnectedCallsTheServerDoesNotKnowGiveNothing) {
    twoCalls();
    phone.callStateChanged("out-2", core::CallState::connected());
    EXPECT_FALSE(session.mergeTargets());
    EXPECT_FALSE(session.canMerge());
}

TEST_F(MergeTest, TheCanMergeFlagIsAnnouncedAsTheCallsChange) {
    QSignalSpy spy(&session, &Session::mergeTargetsChanged);
    twoCalls();
    EXPECT_GE(spy.count(), 3);
}

TEST(StrictAnswer, AReadableReplyGivesTheConference) {
    API::Reply reply;
    reply.status = 200;
    reply.body = R"({"conferenceId":"conf-1"})";
    EXPECT_EQ(Session::strictAnswer("api/calls/7/merge", reply).conferenceId, "conf-1");
}

TEST(StrictAnswer, AnHtmlPageWithA200SaysTheServerAnsweredUnexpectedly) {
    API::Reply reply;
    reply.status = 200;
    reply.body = "<html><body>Welcome</body></html>";
    try {
        Session::strictAnswer("api/calls/7/merge", reply);
        FAIL() << "no failure";
    } catch (const API::Failure& failure) {
        EXPECT_EQ(failure.status(), 200);
        EXPECT_EQ(failure.text(), "HTTP 200: Unexpected answer from api/calls/7/merge. Is the "
                                  "server up to date?");
        EXPECT_EQ(Session::failureText(std::make_exception_ptr(failure)), failure.text());
    }
}

TEST(StrictAnswer, AReplyWithoutTheConferenceIsUnexpectedToo) {
    API::Reply reply;
    reply.status = 200;
    reply.body = R"({"ok":true})";
    EXPECT_THROW(Session::strictAnswer("api/calls/7/merge", reply), API::Failure);
}

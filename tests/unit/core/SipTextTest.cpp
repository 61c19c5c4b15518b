#include "core/SipText.h"

#include <gtest/gtest.h>

using namespace core;

TEST(SipText, FailureStatusesReadAsWordsForAPerson) {
    EXPECT_EQ(reasonForStatus(486, "Busy Here"), "Busy");
    EXPECT_EQ(reasonForStatus(600, "Busy Everywhere"), "Busy");
    EXPECT_EQ(reasonForStatus(603, "Decline"), "Declined");
    EXPECT_EQ(reasonForStatus(404, "Not Found"), "Not found");
    EXPECT_EQ(reasonForStatus(408, "Request Timeout"), "No answer");
    EXPECT_EQ(reasonForStatus(480, "Temporarily Unavailable"), "Unavailable");
    EXPECT_EQ(reasonForStatus(503, "Service Unavailable"), "Unavailable");
    EXPECT_EQ(reasonForStatus(487, "Request Terminated"), "Cancelled");
}

TEST(SipText, AnUnlistedStatusKeepsItsPhraseOrItsNumber) {
    EXPECT_EQ(reasonForStatus(415, "Unsupported Media Type"), "Unsupported Media Type");
    EXPECT_EQ(reasonForStatus(499, ""), "Failed (499)");
}

TEST(SipText, NumbersAndSipUsersCanBeDialledButNotSpacesOrSymbols) {
    EXPECT_TRUE(isCallableNumber("+4144123"));
    EXPECT_TRUE(isCallableNumber("bob"));
    EXPECT_TRUE(isCallableNumber("*72#"));
    EXPECT_TRUE(isCallableNumber("first.last"));
    EXPECT_FALSE(isCallableNumber(""));
    EXPECT_FALSE(isCallableNumber("not a number"));
    EXPECT_FALSE(isCallableNumber("bob@evil"));
    EXPECT_FALSE(isCallableNumber("a<b>"));
    EXPECT_FALSE(isCallableNumber(std::string(65, '1')));
}

TEST(SipText, ARefusedReInviteIsKnownByItsCallId) {
    const std::string message = "SIP/2.0 488 Not Acceptable Here\r\n"
                                "Via: SIP/2.0/TCP 127.0.0.1:5060;branch=z9hG4bK1\r\n"
                                "call-id: abc123@host\r\n"
                                "CSeq: 3 INVITE\r\n"
                                "Content-Length: 0\r\n\r\n";
    EXPECT_EQ(refusedInviteCallId(message), std::optional<std::string>("abc123@host"));
}

TEST(SipText, TheCompactCallIdFormIsRead) {
    const std::string message = "SIP/2.0 491 Request Pending\r\ni: xyz\r\nCSeq: 7 INVITE\r\n\r\n";
    EXPECT_EQ(refusedInviteCallId(message), std::optional<std::string>("xyz"));
}

TEST(SipText, ChallengesSuccessesOtherMethodsAndRequestsAreNotRefusals) {
    EXPECT_FALSE(refusedInviteCallId("SIP/2.0 407 Proxy Authentication Required\r\n"
                                     "Call-ID: a\r\nCSeq: 1 INVITE\r\n\r\n"));
    EXPECT_FALSE(refusedInviteCallId("SIP/2.0 200 OK\r\nCall-ID: a\r\nCSeq: 1 INVITE\r\n\r\n"));
    EXPECT_FALSE(refusedInviteCallId("SIP/2.0 486 Busy Here\r\nCall-ID: a\r\nCSeq: 1 BYE\r\n\r\n"));
    EXPECT_FALSE(
        refusedInviteCallId("INVITE sip:a@b SIP/2.0\r\nCall-ID: a\r\nCSeq: 1 INVITE\r\n\r\n"));
    EXPECT_FALSE(refusedInviteCallId("SIP/2.0 486 Busy Here\r\nCSeq: 1 INVITE\r\n\r\n"));
    // A header in the body does not count.
    EXPECT_FALSE(
        refusedInviteCallId("SIP/2.0 486 Busy Here\r\nCSeq: 1 INVITE\r\n\r\nCall-ID: x\r\n"));
}

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

TEST(SipText, AuthorizationValuesAreHiddenFromTheLog) {
    const std::string message =
        "REGISTER sip:example.com SIP/2.0\r\n"
        "Via: SIP/2.0/TLS 10.0.0.2:5061\r\n"
        "Authorization: Digest username=\"alice\", response=\"0123abcd\"\r\n"
        "proxy-authorization :Digest response=\"feed\"\r\n"
        "Content-Length: 0\r\n\r\n";
    const std::string shown = withSecretsHidden(message);
    EXPECT_EQ(shown, "REGISTER sip:example.com SIP/2.0\r\n"
                     "Via: SIP/2.0/TLS 10.0.0.2:5061\r\n"
                     "Authorization: <hidden>\r\n"
                     "proxy-authorization : <hidden>\r\n"
                     "Content-Length: 0\r\n\r\n");
}

TEST(SipText, SrtpKeysAreHiddenAndTheSuiteStays) {
    const std::string sdp =
        "v=0\r\n"
        "m=audio 4000 RTP/SAVP 0\r\n"
        "a=crypto:1 AES_CM_128_HMAC_SHA1_80 "
        "inline:WVNfX19zZW1jdGwgKCkgewkyMjA7fQp9CnVubGVzcyAoc2|2^20|1:4\r\n"
        "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:NzB4d1BINUAvLEw6UzF3WSJ+PSdFcGdUJShpX1Zj\r\n"
        "a=sendrecv\r\n";
    EXPECT_EQ(withSecretsHidden(sdp),
              "v=0\r\n"
              "m=audio 4000 RTP/SAVP 0\r\n"
              "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:<hidden>|2^20|1:4\r\n"
              "a=crypto:2 AES_CM_128_HMAC_SHA1_32 inline:<hidden>\r\n"
              "a=sendrecv\r\n");
}

TEST(SipText, AMessageWithoutSecretsIsLeftAsItWas) {
    const std::string message =
        "SIP/2.0 200 OK\r\nCall-ID: abc\r\nX-Authorization-Hint: none\r\n\r\n";
    EXPECT_EQ(withSecretsHidden(message), message);
}

TEST(SipText, ALastLineWithoutAnEndIsStillMasked) {
    EXPECT_EQ(withSecretsHidden("Authorization: Digest response=\"1\""), "Authorization: <hidden>");
}

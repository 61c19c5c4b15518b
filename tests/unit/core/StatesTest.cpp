#include "core/Core.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace core;

TEST(CoreStates, RegistrationStatesPrintTheirCaseAndReason) {
    EXPECT_EQ(toString(RegistrationState::registered()), "registered");
    EXPECT_EQ(toString(RegistrationState::registering()), "registering");
    EXPECT_EQ(toString(RegistrationState::unregistered()), "unregistered");
    EXPECT_EQ(toString(RegistrationState::failed("Wrong user name or password.")),
              "failed(Wrong user name or password.)");
}

TEST(CoreStates, CallStatesPrintTheirCaseAndReason) {
    std::ostringstream out;
    out << CallState::ended("Busy") << ' ' << CallState::transferFailed("Not found") << ' '
        << CallState::ringing() << ' ' << CallState::connected() << ' ' << CallState::held() << ' '
        << CallState::transferring();
    EXPECT_EQ(out.str(),
              "ended(Busy) transferFailed(Not found) ringing connected held transferring");
}

TEST(CoreStates, ErrorsCarryTheirKindAndText) {
    const CoreError error(CoreError::Kind::unreachable, "sip.example.net:5060", "refused");
    EXPECT_EQ(error.kind(), CoreError::Kind::unreachable);
    EXPECT_EQ(error.text(), "sip.example.net:5060");
    EXPECT_EQ(error.detail(), "refused");
    EXPECT_STREQ(error.what(), "sip.example.net:5060");
}

TEST(CoreStates, AServerWithoutAPortIsInvalidSettings) {
    SipAccount account{"sip.example.net", "", "alice", "pw", false, std::nullopt, false};
    try {
        SipClient::init(account, nullptr);
        FAIL() << "no error";
    } catch (const CoreError& error) {
        EXPECT_EQ(error.kind(), CoreError::Kind::invalidSettings);
    }
}

TEST(CoreStates, AnEmptyUserNameIsInvalidSettings) {
    SipAccount account{"127.0.0.1:5060", "", "", "pw", false, std::nullopt, false};
    try {
        SipClient::init(account, nullptr);
        FAIL() << "no error";
    } catch (const CoreError& error) {
        EXPECT_EQ(error.kind(), CoreError::Kind::invalidSettings);
    }
}

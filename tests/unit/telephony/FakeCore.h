#pragma once

#include "core/Core.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// An engine that does what it is told and records what it was asked, for the
// phone's own rules apart from SIP. Events reach the phone by its delegate,
// as the real engine's do.
class FakeCoreCall : public core::Call {
public:
    FakeCoreCall(std::string id, std::string number, std::optional<std::string> name = {})
        : m_id(std::move(id)), m_number(std::move(number)), m_name(std::move(name)) {}

    void answer() override {
        ++answers;
        if (refuseAnswer) {
            throw core::CoreError(core::CoreError::Kind::message, "The call is gone.");
        }
    }
    void hangup() override { ++hangups; }
    std::string sipCallId() const override { return m_id; }
    std::vector<std::uint64_t> mediaCounters() const override { return counters; }
    core::CallStats stats() const override { return callStats; }
    std::vector<std::int16_t> readAudio() override { return std::vector<std::int16_t>(160, 0); }
    std::optional<std::string> remoteName() const override { return m_name; }
    std::string remoteNumber() const override { return m_number; }
    void writeAudio(const std::vector<std::int16_t>&) override {}
    void sendDtmf(char digit) override {
        if (digit == failingDigit) {
            throw core::CoreError(core::CoreError::Kind::message, "No DTMF");
        }
        digits.push_back(digit);
    }
    void setHold(bool hold) override {
        if (refuseHold) {
            throw core::CoreError(core::CoreError::Kind::message, "The call could not be held.");
        }
        holds.push_back(hold);
    }
    void transfer(const std::string& target) override {
        if (refuseTransfer) {
            throw core::CoreError(core::CoreError::Kind::message,
                                  "A transfer of this call is under way.");
        }
        transfers.push_back(target);
    }

    // --- two calls ---
    std::vector<bool> holds;
    std::vector<std::string> transfers;
    bool refuseHold = false;
    bool refuseTransfer = false;
    core::CallStats callStats;
    std::vector<std::uint64_t> counters{0, 0};

    int answers = 0;
    int hangups = 0;
    bool refuseAnswer = false;
    char failingDigit = 0;
    std::string digits;

private:
    std::string m_id;
    std::string m_number;
    std::optional<std::string> m_name;
};

class FakeClient : public core::SipClient {
public:
    FakeClient(core::SipAccount account, std::shared_ptr<core::ClientDelegate> delegate)
        : account(std::move(account)), delegate(std::move(delegate)) {}

    std::shared_ptr<core::Call> placeCall(const std::string& number) override {
        dialled.push_back(number);
        if (refuseDial) {
            throw *refuseDial;
        }
        auto call = std::make_shared<FakeCoreCall>("out-" + std::to_string(dialled.size()), number);
        placed.push_back(call);
        return call;
    }
    void reRegister() override { ++reRegisters; }
    void networkChanged() override { ++networkChanges; }
    void start() override {
        ++starts;
        if (refuseStart) {
            throw *refuseStart;
        }
    }
    void stop() override { ++stops; }

    core::SipAccount account;
    std::shared_ptr<core::ClientDelegate> delegate;
    std::vector<std::string> dialled;
    std::vector<std::shared_ptr<FakeCoreCall>> placed;
    std::optional<core::CoreError> refuseDial;
    std::optional<core::CoreError> refuseStart;
    int reRegisters = 0;
    int networkChanges = 0;
    int starts = 0;
    int stops = 0;
};

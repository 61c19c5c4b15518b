#pragma once

// Small helpers that the engine's types share. Only the engine's own .cpp
// files include this (it pulls in libre, whose macros must not leak upwards).

#include <re.h>

#include <cstdint>
#include <string>

namespace core {

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

void info(const std::string& text);
void warn(const std::string& text);

// The text of a libre string slice; empty when unset.
std::string text(const pl& value);

// Milliseconds of the steady clock.
std::uint64_t nowMs();

// "127.0.0.1:5060" style text of an address.
std::string addressText(const sa& address);

// Whether a message's Contact is a SIP or SIPS address a dialog can answer to.
bool hasAnswerableContact(const struct sip_msg* msg);

} // namespace core

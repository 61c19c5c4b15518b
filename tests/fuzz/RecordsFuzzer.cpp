#include "api/Records.h"

#include <cstddef>
#include <cstdint>

namespace {

// A reader may fail only with its own error; anything else escaping is a bug.
template <typename Read> void tryRead(Read read) {
    try {
        read();
    } catch (const wire::DecodeError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    tryRead([&] { decode<Me>(body); });
    tryRead([&] { decode<Directory>(body); });
    tryRead([&] { decode<Forwarding>(body).toJson(); });
    tryRead([&] { decode<Target>(body).toJson(); });
    tryRead([&] {
        for (const auto& row : decode<CallLogPage>(body).calls) {
            // What the cache writes must read back the same.
            if (!(decode<CallLogPage::Row>(wire::bytes(row.toJson())) == row)) {
                __builtin_trap();
            }
        }
    });
    tryRead([&] { VoicemailMessage::listFromJson(wire::parse(body)); });
    tryRead([&] { QueueMembership::listFromJson(wire::parse(body)); });
    tryRead([&] { decode<AppDevice>(body); });
    tryRead([&] { decode<Tokens>(body); });
    tryRead([&] { decode<OAuthError>(body); });
    tryRead([&] { decode<AvatarResponse>(body); });
    tryRead([&] { decode<Answer>(body); });
    tryRead([&] { decode<Message>(body); });
    return 0;
}

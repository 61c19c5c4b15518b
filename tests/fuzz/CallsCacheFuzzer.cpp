#include "history/CallHistory.h"

#include <cstddef>
#include <cstdint>

// Whatever bytes "calls.v1.json" holds, reading them gives rows or none; rows
// that were read write back to bytes that read as the same rows, and every
// row turns into a line of the list without failing.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto rows = CallHistory::decodeRows(bytes);
    if (!rows) {
        return 0;
    }
    const auto again = CallHistory::decodeRows(CallHistory::encodeRows(*rows));
    if (!again || !(*again == *rows)) {
        __builtin_trap();
    }
    CallHistory::Owner owner;
    owner.extension_ = QStringLiteral("201");
    owner.usernames = {QStringLiteral("a.b.c1")};
    for (const auto& row : *rows) {
        const auto item = CallHistory::item(row, owner);
        if (item.id != row.callUuid || item.inProgress || item.failure) {
            __builtin_trap();
        }
    }
    return 0;
}

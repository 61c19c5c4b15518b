#include "history/Recents.h"

#include <cstddef>
#include <cstdint>

// Whatever bytes sit under "recents.v1", reading them gives a list or none,
// and a list that was read writes back to bytes that read as the same list.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto entries = Recents::decode(bytes);
    if (entries) {
        const auto again = Recents::decode(Recents::encode(*entries));
        if (!again || !(*again == *entries)) {
            __builtin_trap();
        }
    }
    return 0;
}

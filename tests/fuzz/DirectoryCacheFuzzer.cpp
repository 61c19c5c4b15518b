#include "history/DirectoryCache.h"
#include "history/LauncherQuery.h"

#include <cstddef>
#include <cstdint>

// The launcher's file sits in the caches directory, where anything may be
// written over it: any bytes read as rows or as none, rows that were read
// write back to bytes that read as the same rows, and the launcher's
// searches over them finish.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto rows = DirectoryCache::decode(bytes);
    if (rows) {
        const auto again = DirectoryCache::decode(DirectoryCache::encode(*rows));
        if (!again || !(*again == *rows)) {
            __builtin_trap();
        }
        for (const auto& row : *rows) {
            LauncherQuery::search(*rows, {row.name.left(3)});
            DirectoryCache::entitiesFor(*rows, {row.id});
        }
    }
    return 0;
}

#include "shell/SingleInstance.h"

#include <cstddef>
#include <cstdint>

// A later launch's message arrives from any process of the user: any bytes
// give a list of links or nothing.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray line(reinterpret_cast<const char*>(data), qsizetype(size));
    const QStringList links = SingleInstance::readMessage(line);
    if (links.size() > line.size()) {
        __builtin_trap();
    }
    return 0;
}

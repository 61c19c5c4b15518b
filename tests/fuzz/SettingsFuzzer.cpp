#include "platform/SettingsStore.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace {

QTemporaryDir& folder() {
    static QTemporaryDir dir;
    return dir;
}

const char* const keys[] = {"rz.server",
                            "rz.deviceId",
                            "recents.v1",
                            "colleagues.export",
                            "colleagues.export.map",
                            "call.miniBar",
                            "General/x",
                            ""};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static int counter = 0;
    // A new name each time: the settings library caches a file it has read.
    const QString path = folder().filePath(QStringLiteral("rz-%1.conf").arg(counter++));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly)) {
            return 0;
        }
        file.write(reinterpret_cast<const char*>(data), qsizetype(size));
    }
    {
        IniSettingsStore store(path);
        for (const char* key : keys) {
            (void)store.boolean(key);
            (void)store.text(key);
            (void)store.url(key);
            (void)store.data(key);
            (void)store.dictionary(key);
        }
        // What was read must not stop a write.
        store.setText("rz.deviceId", "d");
        if (store.text("rz.deviceId") != QStringLiteral("d")) {
            __builtin_trap();
        }
    }
    QFile::remove(path);
    return 0;
}

#include "shell/Application.h"

#include <gtest/gtest.h>

// The engine's log filter at start: the environment's RUST_LOG, even when empty.

TEST(ApplicationEntry, WithoutRustLogTheEngineLogsWarningsAndItsOwnInfo) {
    const QByteArray saved = qgetenv("RUST_LOG");
    const bool had = qEnvironmentVariableIsSet("RUST_LOG");
    qunsetenv("RUST_LOG");
    EXPECT_EQ(Application::coreLogFilter(), "warn,velnor_core=info");
    if (had) {
        qputenv("RUST_LOG", saved);
    }
}

TEST(ApplicationEntry, AnEmptyButSetRustLogIsUsedAsItIs) {
    const QByteArray saved = qgetenv("RUST_LOG");
    const bool had = qEnvironmentVariableIsSet("RUST_LOG");
    qputenv("RUST_LOG", "");
    EXPECT_EQ(Application::coreLogFilter(), "");
    qputenv("RUST_LOG", "velnor_core=debug");
    EXPECT_EQ(Application::coreLogFilter(), "velnor_core=debug");
    if (had) {
        qputenv("RUST_LOG", saved);
    } else {
        qunsetenv("RUST_LOG");
    }
}

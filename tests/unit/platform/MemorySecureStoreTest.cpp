#include "platform/SecureStore.h"

#include "RunTask.h"

#include <gtest/gtest.h>

TEST(MemorySecureStore, KeepsValuesByServiceAndAccount) {
    MemorySecureStore store;
    runTask(store.save("r1", "net.velnor.rz.oauth", "https://a/"));
    runTask(store.save("r2", "net.velnor.rz.oauth", "https://b/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://a/")), "r1");
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://b/")), "r2");
    EXPECT_EQ(runTask(store.read("net.velnor.rz.sip", "https://a/")), std::nullopt);
    runTask(store.remove("net.velnor.rz.oauth", "https://a/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://a/")), std::nullopt);
    EXPECT_EQ(store.size(), 1);
}

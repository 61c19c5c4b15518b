#include "platform/SecureStore.h"

#include "RunTask.h"
#include "Services.h"

#include <QMetaObject>

#include <QCoro/QCoroSignal>
#include <qt6keychain/keychain.h>

#include <gtest/gtest.h>

// Every test here talks to a real gnome-keyring Secret Service on a private
// session bus. ctest runs each test in its own process, so each gets its own.
namespace {

class SecretServiceTest : public testing::Test {
protected:
    TempHome home;
    PrivateBus bus;
    SecretService secrets{bus};
    KeychainStore store;
};

// Writes raw bytes the way another program could, bypassing our store.
QCoro::Task<int> writeBytes(QByteArray bytes, QString service, QString account) {
    auto* job = new QKeychain::WritePasswordJob(service);
    job->setKey(account);
    job->setBinaryData(bytes);
    QMetaObject::invokeMethod(job, &QKeychain::Job::start, Qt::QueuedConnection);
    co_await qCoro(job, &QKeychain::Job::finished);
    co_return int(job->error());
}

} // namespace

TEST_F(SecretServiceTest, ASavedValueReadsBack) {
    runTask(store.save("refresh-token-1", "net.velnor.rz.oauth", "http://127.0.0.1:8480/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "http://127.0.0.1:8480/")),
              "refresh-token-1");
}

TEST_F(SecretServiceTest, AMissingValueReadsAsNone) {
    EXPECT_EQ(runTask(store.read("net.velnor.rz.install", "id")), std::nullopt);
}

TEST_F(SecretServiceTest, SavingAgainReplacesTheValue) {
    runTask(store.save("first", "net.velnor.rz.sip", "1001"));
    runTask(store.save("second", "net.velnor.rz.sip", "1001"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.sip", "1001")), "second");
}

TEST_F(SecretServiceTest, ServiceAndAccountTogetherAddressAValue) {
    runTask(store.save("a", "net.velnor.rz.oauth", "https://one.example/"));
    runTask(store.save("b", "net.velnor.rz.oauth", "https://two.example/"));
    runTask(store.save("c", "net.velnor.rz.sip", "https://one.example/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://one.example/")), "a");
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://two.example/")), "b");
    EXPECT_EQ(runTask(store.read("net.velnor.rz.sip", "https://one.example/")), "c");
}

TEST_F(SecretServiceTest, DeleteForgetsOnlyThatValue) {
    runTask(store.save("x", "net.velnor.rz.sip", "1001"));
    runTask(store.save("y", "net.velnor.rz.sip", "1002"));
    runTask(store.remove("net.velnor.rz.sip", "1001"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.sip", "1001")), std::nullopt);
    EXPECT_EQ(runTask(store.read("net.velnor.rz.sip", "1002")), "y");
}

TEST_F(SecretServiceTest, DeletingWhatIsNotThereIsQuiet) {
    runTask(store.remove("net.velnor.rz.sip", "nobody"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.sip", "nobody")), std::nullopt);
}

TEST_F(SecretServiceTest, TextIsKeptExactly) {
    const QString token = QString::fromUtf8("a+b/c=d%2B ü 🙂 \"quoted\"\ttab");
    runTask(store.save(token, "net.velnor.rz.oauth", "https://rz.velnor.net/"));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://rz.velnor.net/")), token);
}

TEST_F(SecretServiceTest, AValueOutlivesTheStoreObjectThatWroteIt) {
    {
        KeychainStore writer;
        runTask(writer.save("kept", "net.velnor.rz.install", "id"));
    }
    KeychainStore reader;
    EXPECT_EQ(runTask(reader.read("net.velnor.rz.install", "id")), "kept");
}

TEST_F(SecretServiceTest, BytesThatAreNotUtf8ReadAsNone) {
    ASSERT_EQ(runTask(writeBytes(QByteArray("\xff\xfe\x80 not text", 11), "net.velnor.rz.oauth",
                                 "https://bytes.example/")),
              int(QKeychain::NoError));
    EXPECT_EQ(runTask(store.read("net.velnor.rz.oauth", "https://bytes.example/")), std::nullopt);
}

#include "session/Session.h"

#include "BrowserKit.h"
#include "DevServer.h"
#include "RunTask.h"
#include "Services.h"
#include "StderrCapture.h"

#include "EventLoopWait.h"
#include <QDirIterator>
#include <QStandardPaths>

#include <QTest>

#include <gtest/gtest.h>

// A refresh token lives in the Secret Service and nowhere else: not in a log
// line, not in the settings file, not in any file under the caches.
namespace {

QCoro::Task<std::optional<QString>> refreshToken(SecureStore& store, QUrl server) {
    co_return co_await store.read("net.velnor.rz.oauth", server.toString(QUrl::FullyEncoded));
}

QByteArray everythingUnder(const QString& folder) {
    QByteArray all;
    QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (file.open(QIODevice::ReadOnly)) {
            all += file.readAll();
        }
    }
    return all;
}

} // namespace

TEST(SecretsStayPut, RefreshTokensAppearInNoLogSettingOrCacheFile) {
    TempHome home;
    PrivateBus bus;
    SecretService service(bus);
    DevServer server({"--auto-approve", "u-001"});
    IniSettingsStore settings;
    settings.setUrl("rz.server", server.url());
    KeychainStore keychain;
    Session session(settings, keychain);
    useSigningInBrowser(session);

    QStringList tokens;
    StderrCapture logs;
    for (int round = 0; round < 2; ++round) {
        session.signIn();
        ASSERT_TRUE(spinUntil([&] { return session.me().has_value() || session.hasError(); },
                              std::chrono::milliseconds(10000)));
        ASSERT_FALSE(session.hasError()) << session.errorText().toStdString();
        const auto token = runTask(refreshToken(keychain, server.url()));
        ASSERT_TRUE(token);
        tokens.append(*token);
        runTask(session.signOutKeepingDevice());
    }
    session.signIn();
    ASSERT_TRUE(
        spinUntil([&] { return session.me().has_value(); }, std::chrono::milliseconds(10000)));
    tokens.append(*runTask(refreshToken(keychain, server.url())));
    const QByteArray logged = logs.take();

    ASSERT_TRUE(logged.contains("Signed in to")) << "the log was not captured";
    const QByteArray settingsFile = everythingUnder(home.configHome());
    ASSERT_TRUE(settingsFile.contains("rz.server")) << "the settings were not found";
    const QByteArray caches = everythingUnder(home.cacheHome());
    for (const QString& token : tokens) {
        ASSERT_GE(token.size(), 16);
        const QByteArray bytes = token.toUtf8();
        // Also as a form would carry it.
        const QByteArray encoded = QUrl::toPercentEncoding(token);
        for (const QByteArray& form : {bytes, encoded}) {
            EXPECT_FALSE(logged.contains(form)) << "a refresh token is in the log";
            EXPECT_FALSE(settingsFile.contains(form)) << "a refresh token is in the settings";
            EXPECT_FALSE(caches.contains(form)) << "a refresh token is in the caches";
        }
    }
}

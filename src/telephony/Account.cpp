#include "telephony/Account.h"

Account Account::builtIn() {
    return {QString::fromLatin1(defaultServer), QString::fromLatin1(defaultRealm), {}, {}, {}};
}

QCoro::Task<Account> Account::load(SettingsStore& settings, SecureStore& secrets) {
    Account account = builtIn();
    if (const auto server = settings.text(QString::fromLatin1(serverKey))) {
        account.server = *server;
    }
    if (const auto realm = settings.text(QString::fromLatin1(realmKey))) {
        account.realm = *realm;
    }
    if (const auto username = settings.text(QString::fromLatin1(usernameKey))) {
        account.username = *username;
    }
    if (const auto transport = settings.text(QString::fromLatin1(transportKey))) {
        account.transport = *transport;
    }
    const auto password =
        co_await secrets.read(QString::fromLatin1(passwordService), account.username);
    account.password = password.value_or(QString());
    co_return account;
}

QCoro::Task<> Account::save(Account account, SettingsStore& settings, SecureStore& secrets) {
    settings.setText(QString::fromLatin1(serverKey), account.server);
    settings.setText(QString::fromLatin1(realmKey), account.realm);
    settings.setText(QString::fromLatin1(usernameKey), account.username);
    settings.setText(QString::fromLatin1(transportKey), account.transport);
    co_await secrets.save(account.password, QString::fromLatin1(passwordService), account.username);
}

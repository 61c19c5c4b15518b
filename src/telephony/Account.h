#pragma once

#include "platform/SecureStore.h"
#include "platform/SettingsStore.h"

#include <QString>

#include <QCoro/QCoroTask>

// The SIP credentials of this device: where to register and as whom. The
// server's name and the user live in the settings, the password in the
// Secret Service under the user's name.
struct Account {
    QString server; // "host:port"
    QString realm;
    QString username;
    QString password;
    // "tls" when the server's edge was offered as TLS: a TLS edge need not sit
    // on 5061 or 443, the ports that tell the engine so by themselves.
    QString transport;

    static constexpr char serverKey[] = "account.server";
    static constexpr char realmKey[] = "account.realm";
    static constexpr char usernameKey[] = "account.username";
    static constexpr char transportKey[] = "account.transport";
    static constexpr char passwordService[] = "net.velnor.rz.sip";
    static constexpr char defaultServer[] = "sip.velnor.net:5060";
    static constexpr char defaultRealm[] = "rz.local";

    // Only a complete account starts the phone; the realm may be empty.
    bool isComplete() const {
        return !server.isEmpty() && !username.isEmpty() && !password.isEmpty();
    }

    // The account of a computer that was never provisioned.
    static Account builtIn();
    // The stored account, with the built-in values where nothing is stored.
    static QCoro::Task<Account> load(SettingsStore& settings, SecureStore& secrets);
    // Writes the three settings, then the password under the account's user.
    static QCoro::Task<> save(Account account, SettingsStore& settings, SecureStore& secrets);

    bool operator==(const Account&) const = default;
};

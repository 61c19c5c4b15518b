#pragma once

#include <QHash>
#include <QPair>
#include <QString>

#include <QCoro/QCoroTask>

#include <optional>

// Secrets kept on this computer only (the refresh token, the install id, the
// SIP password), each addressed by a service and an account.
class SecureStore {
public:
    virtual ~SecureStore() = default;

    // Replaces any value at the address. Failures are not reported: the value
    // is simply not there on the next read.
    virtual QCoro::Task<> save(QString value, QString service, QString account) = 0;
    // The value, or none when it is missing, cannot be read, or is not UTF-8 text.
    virtual QCoro::Task<std::optional<QString>> read(QString service, QString account) = 0;
    // Forgets the value; a missing one is not an error.
    virtual QCoro::Task<> remove(QString service, QString account) = 0;
};

// The desktop's Secret Service (GNOME Keyring, KWallet) through QtKeychain.
// Without one, reads give none and writes are dropped, and the first failure
// is logged once.
class KeychainStore final : public SecureStore {
public:
    QCoro::Task<> save(QString value, QString service, QString account) override;
    QCoro::Task<std::optional<QString>> read(QString service, QString account) override;
    QCoro::Task<> remove(QString service, QString account) override;
};

// For unit tests of logic that keeps secrets.
class MemorySecureStore final : public SecureStore {
public:
    QCoro::Task<> save(QString value, QString service, QString account) override;
    QCoro::Task<std::optional<QString>> read(QString service, QString account) override;
    QCoro::Task<> remove(QString service, QString account) override;

    int size() const { return int(m_values.size()); }

private:
    QHash<QPair<QString, QString>, QString> m_values;
};

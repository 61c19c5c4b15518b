#include "platform/SecureStore.h"

#include "platform/Log.h"

#include <QMetaObject>
#include <QStringDecoder>

#include <QCoro/QCoroSignal>
#include <qt6keychain/keychain.h>

#include <atomic>
#include <chrono>

using namespace std::chrono_literals;

namespace {

// Long enough for a person to answer an unlock prompt of the keyring.
constexpr auto jobBound = 120s;

std::atomic_bool failureLogged = false;

void noteFailure(QKeychain::Job* job, QStringView operation) {
    if (failureLogged.exchange(true)) {
        return;
    }
    Log::error(Log::app, QStringLiteral("Secret Service unavailable (%1 failed: %2); sign-in "
                                        "and the phone's password will not be kept")
                             .arg(operation, job->errorString()));
}

// Runs a job to its end. The job deletes itself afterwards; on time-out it is
// left to finish on its own and the caller sees a failure.
QCoro::Task<bool> run(QKeychain::Job* job) {
    // Started from the event loop, so that a job that finishes at once is not
    // missed before we wait for it.
    QMetaObject::invokeMethod(job, &QKeychain::Job::start, Qt::QueuedConnection);
    auto finished = co_await qCoro(job, &QKeychain::Job::finished, jobBound);
    co_return finished.has_value();
}

std::optional<QString> decodeUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

} // namespace

QCoro::Task<> KeychainStore::save(QString value, QString service, QString account) {
    co_await remove(service, account);
    auto* job = new QKeychain::WritePasswordJob(service);
    job->setInsecureFallback(false);
    job->setKey(account);
    job->setTextData(value);
    if (!co_await run(job)) {
        Log::error(Log::app, u"Secret Service did not answer in time");
        co_return;
    }
    if (job->error() != QKeychain::NoError) {
        noteFailure(job, u"save");
    }
}

QCoro::Task<std::optional<QString>> KeychainStore::read(QString service, QString account) {
    auto* job = new QKeychain::ReadPasswordJob(service);
    job->setInsecureFallback(false);
    job->setKey(account);
    if (!co_await run(job)) {
        Log::error(Log::app, u"Secret Service did not answer in time");
        co_return std::nullopt;
    }
    if (job->error() == QKeychain::EntryNotFound) {
        co_return std::nullopt;
    }
    if (job->error() != QKeychain::NoError) {
        noteFailure(job, u"read");
        co_return std::nullopt;
    }
    co_return decodeUtf8(job->binaryData());
}

QCoro::Task<> KeychainStore::remove(QString service, QString account) {
    auto* job = new QKeychain::DeletePasswordJob(service);
    job->setInsecureFallback(false);
    job->setKey(account);
    if (!co_await run(job)) {
        Log::error(Log::app, u"Secret Service did not answer in time");
        co_return;
    }
    if (job->error() != QKeychain::NoError && job->error() != QKeychain::EntryNotFound) {
        noteFailure(job, u"delete");
    }
}

QCoro::Task<> MemorySecureStore::save(QString value, QString service, QString account) {
    m_values.insert({service, account}, value);
    co_return;
}

QCoro::Task<std::optional<QString>> MemorySecureStore::read(QString service, QString account) {
    const auto found = m_values.constFind({service, account});
    if (found == m_values.constEnd()) {
        co_return std::nullopt;
    }
    QString value = *found;
    co_return value;
}

QCoro::Task<> MemorySecureStore::remove(QString service, QString account) {
    m_values.remove({service, account});
    co_return;
}

#include "platform/system/KeychainSecretStore.h"

#include <QEventLoop>

#include <qt6keychain/keychain.h>

namespace nuvrel {

namespace {

// QtKeychain jobs answer asynchronously; the store's callers are background tasks that wait anyway.
template <typename Job>
QKeychain::Error run(Job& job, const QString& account)
{
    job.setAutoDelete(false);
    job.setInsecureFallback(false);
    job.setKey(account);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec();
    return job.error();
}

} // namespace

std::optional<QString> KeychainSecretStore::load(const QString& service, const QString& account)
{
    QKeychain::ReadPasswordJob job(service);
    if (run(job, account) != QKeychain::NoError)
        return std::nullopt;
    return job.textData();
}

bool KeychainSecretStore::save(const QString& service, const QString& account, const QString& secret)
{
    // Deleting first leaves exactly one item, whatever an older version of the program wrote.
    remove(service, account);
    QKeychain::WritePasswordJob job(service);
    job.setTextData(secret);
    return run(job, account) == QKeychain::NoError;
}

std::optional<QByteArray> KeychainSecretStore::loadBytes(const QString& service, const QString& account)
{
    QKeychain::ReadPasswordJob job(service);
    if (run(job, account) != QKeychain::NoError)
        return std::nullopt;
    return job.binaryData();
}

bool KeychainSecretStore::saveBytes(const QString& service, const QString& account, const QByteArray& secret)
{
    remove(service, account);
    QKeychain::WritePasswordJob job(service);
    job.setBinaryData(secret);
    return run(job, account) == QKeychain::NoError;
}

bool KeychainSecretStore::remove(const QString& service, const QString& account)
{
    QKeychain::DeletePasswordJob job(service);
    const QKeychain::Error error = run(job, account);
    return error == QKeychain::NoError || error == QKeychain::EntryNotFound;
}

} // namespace nuvrel

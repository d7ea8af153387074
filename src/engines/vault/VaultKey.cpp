#include "engines/vault/VaultKey.h"

#include "engines/vault/VaultStore.h"
#include "formats/crypto/AesGcm.h"
#include "platform/SecretStore.h"

namespace nuvrel::VaultKey {

Result obtain(SecretStore& secrets, const QString& folder)
{
    const QString serviceName = QString::fromUtf8(service);
    const QString accountName = QString::fromUtf8(account);
    const std::optional<QByteArray> kept = secrets.loadBytes(serviceName, accountName);
    if (kept && kept->size() == AesGcm::keySize)
        return {Result::Status::Loaded, *kept};
    // Something under our name that is not a key is left alone, like the files it may open.
    if (kept || VaultStore::hasEncryptedFiles(folder))
        return {Result::Status::Missing, {}};
    QByteArray key = AesGcm::randomKey();
    if (key.size() != AesGcm::keySize || !secrets.saveBytes(serviceName, accountName, key))
        return {Result::Status::CannotCreate, {}};
    return {Result::Status::Created, key};
}

} // namespace nuvrel::VaultKey

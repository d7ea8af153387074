#include "engines/vault/VaultKey.h"
#include "engines/vault/VaultStore.h"
#include "support/BackupFixture.h"
#include "support/MemorySecretStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

TEST(VaultKey, MadeOnceNeverReplacedWhileFilesExist)
{
    QTemporaryDir vault;
    MemorySecretStore secrets;
    using Status = VaultKey::Result::Status;
    const QString service = QString::fromUtf8(VaultKey::service);
    const QString account = QString::fromUtf8(VaultKey::account);

    // A keyring that refuses: no key, and none pretended.
    secrets.refuse = true;
    EXPECT_EQ(VaultKey::obtain(secrets, vault.path()).status, Status::CannotCreate);
    secrets.refuse = false;

    const VaultKey::Result first = VaultKey::obtain(secrets, vault.path());
    ASSERT_EQ(first.status, Status::Created);
    EXPECT_EQ(first.key.size(), 32);
    EXPECT_EQ(secrets.bytes.value({service, account}), first.key);
    const VaultKey::Result again = VaultKey::obtain(secrets, vault.path());
    EXPECT_EQ(again.status, Status::Loaded);
    EXPECT_EQ(again.key, first.key);

    // Files sealed, then the key gone (another machine, a keyring reset): said, never replaced.
    writeFile(vault.filePath(QStringLiteral("0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F.nvv")), "NVV1");
    secrets.bytes.clear();
    EXPECT_EQ(VaultKey::obtain(secrets, vault.path()).status, Status::Missing);
    EXPECT_TRUE(secrets.bytes.isEmpty());
    // A keyring that cannot answer looks the same, and is treated the same.
    secrets.refuse = true;
    EXPECT_EQ(VaultKey::obtain(secrets, vault.path()).status, Status::Missing);
    secrets.refuse = false;

    // Something under our name that is not a key is not overwritten, even in an empty vault.
    QTemporaryDir empty;
    secrets.bytes.insert({service, account}, QByteArray("pas une clé"));
    EXPECT_EQ(VaultKey::obtain(secrets, empty.path()).status, Status::Missing);
    EXPECT_EQ(secrets.bytes.value({service, account}), QByteArray("pas une clé"));
}

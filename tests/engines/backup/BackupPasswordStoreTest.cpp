#include "engines/backup/BackupPasswordStore.h"

#include "support/MemorySecretStore.h"

#include <gtest/gtest.h>

using namespace nuvrel;

TEST(BackupPasswordStore, KeepsOneItemPerBackupUnderTheNuvrelService)
{
    test::MemorySecretStore keychain;
    BackupPasswordStore store(keychain);
    EXPECT_EQ(store.query(QStringLiteral("00008110-0001")).service,
              QStringLiteral("Nuvrel : mot de passe de sauvegarde iPhone"));
    EXPECT_EQ(store.query(QStringLiteral("00008110-0001")).account, QStringLiteral("00008110-0001"));

    EXPECT_FALSE(store.load(QStringLiteral("00008110-0001")));
    EXPECT_TRUE(store.save(QStringLiteral("first"), QStringLiteral("00008110-0001")));
    EXPECT_TRUE(store.save(QStringLiteral("Été 2024 ✓"), QStringLiteral("00008110-0001")));
    EXPECT_EQ(keychain.items.size(), 1);
    EXPECT_EQ(store.load(QStringLiteral("00008110-0001")), QStringLiteral("Été 2024 ✓"));
    EXPECT_FALSE(store.load(QStringLiteral("another-backup")));
    EXPECT_TRUE(store.remove(QStringLiteral("00008110-0001")));
    EXPECT_FALSE(store.load(QStringLiteral("00008110-0001")));

    keychain.refuse = true; // a locked keychain: nothing kept, nothing found, no crash
    EXPECT_FALSE(store.save(QStringLiteral("x"), QStringLiteral("00008110-0001")));
    EXPECT_FALSE(store.load(QStringLiteral("00008110-0001")));
}

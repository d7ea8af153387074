// The real keychain: the Secret Service of a gnome-keyring started by tools/test.sh in a private D-Bus
// session (NUVREL_KEYCHAIN_TEST=1). Items are counted with secret-tool, which reads the store directly.

#include "platform/system/KeychainSecretStore.h"

#include <QProcess>
#include <QUuid>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

int itemsIn(const QString& service, const QString& account)
{
    QProcess search;
    search.start(QStringLiteral("secret-tool"), {QStringLiteral("search"), QStringLiteral("--all"),
                                                 QStringLiteral("server"), service, QStringLiteral("user"), account});
    search.waitForFinished(30'000);
    const QString listing = QString::fromUtf8(search.readAllStandardOutput() + search.readAllStandardError());
    return static_cast<int>(listing.count(QStringLiteral("\n[/")) + (listing.startsWith(QStringLiteral("[/")) ? 1 : 0));
}

} // namespace

TEST(KeychainSecretStore, SavesOnceLoadsAndForgetsInTheRealKeychain)
{
    if (qEnvironmentVariable("NUVREL_KEYCHAIN_TEST") != QLatin1StringView("1"))
        GTEST_SKIP() << "needs a running Secret Service: tools/test.sh starts one";

    KeychainSecretStore store;
    const QString service = QStringLiteral("Nuvrel : mot de passe de sauvegarde iPhone");
    const QString account = QUuid::createUuid().toString(QUuid::WithoutBraces);
    EXPECT_FALSE(store.load(service, account));

    ASSERT_TRUE(store.save(service, account, QStringLiteral("first")));
    ASSERT_TRUE(store.save(service, account, QStringLiteral("Été 2024 ✓ пароль")));
    EXPECT_EQ(itemsIn(service, account), 1);
    EXPECT_EQ(store.load(service, account), QStringLiteral("Été 2024 ✓ пароль"));
    EXPECT_FALSE(store.load(service, account + QStringLiteral("-other")));

    EXPECT_TRUE(store.remove(service, account));
    EXPECT_EQ(itemsIn(service, account), 0);
    EXPECT_FALSE(store.load(service, account));
    EXPECT_TRUE(store.remove(service, account)); // nothing left to forget is no failure
}

TEST(KeychainSecretStore, KeepsBytesAsTheyAre)
{
    if (qEnvironmentVariable("NUVREL_KEYCHAIN_TEST") != QLatin1StringView("1"))
        GTEST_SKIP() << "needs a running Secret Service: tools/test.sh starts one";

    // A key: every byte value, zeros and invalid UTF-8 included.
    QByteArray key(32, Qt::Uninitialized);
    for (int i = 0; i < key.size(); ++i)
        key[i] = char(i * 37 + (i == 5 ? 0 : 200));
    key[9] = '\0';
    KeychainSecretStore store;
    const QString service = QStringLiteral("Nuvrel : cle du coffre");
    const QString account = QUuid::createUuid().toString(QUuid::WithoutBraces);
    ASSERT_TRUE(store.saveBytes(service, account, key));
    EXPECT_EQ(itemsIn(service, account), 1);
    EXPECT_EQ(store.loadBytes(service, account), key);
    EXPECT_TRUE(store.remove(service, account));
    EXPECT_FALSE(store.loadBytes(service, account));
}

// The vault page's model against fakes of the owner check, the keyring, the trash and the desktop:
// what each answer of the check leaves, what a lock takes away, and the texts the page shows.

#include "models/vault/VaultModel.h"
#include "l10n/LanguageStore.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

class VaultModelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
        ::chmod(QFile::encodeName(m_runtime.path()).constData(), 0700);
    }
    void TearDown() override
    {
        qunsetenv("XDG_RUNTIME_DIR");
        LanguageStore::shared().setLanguageForThisRun(m_saved);
    }
    QString file(const QString& name, const QByteArray& bytes) const
    {
        const QString path = m_root.filePath(QStringLiteral("Papiers/") + name);
        writeFile(path, bytes);
        return path;
    }
    static bool settle(const VaultModel& model)
    {
        return QTest::qWaitFor([&] { return !model.isBusy(); }, 20000);
    }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_root;
    QTemporaryDir m_runtime;
    FakeServices m_fakes;
};

} // namespace

TEST_F(VaultModelTest, TheOwnerCheckDecidesAndTheVaultOpensOnlyOnItsYes)
{
    VaultModel model(m_fakes.services(), m_root.filePath(QStringLiteral("Coffre")));
    EXPECT_FALSE(model.isUnlocked());

    // Cancelled or failed: locked, said so, and no key made.
    m_fakes.ownerCheck.answer = OwnerCheck::Outcome::Refused;
    model.unlock();
    EXPECT_TRUE(model.isAuthenticating() || model.isBusy());
    ASSERT_TRUE(settle(model));
    EXPECT_FALSE(model.isUnlocked());
    EXPECT_FALSE(model.isAuthenticating());
    EXPECT_EQ(model.message(), QStringLiteral("Authentification annulée ou échouée."));
    EXPECT_TRUE(m_fakes.secrets.bytes.isEmpty());
    EXPECT_EQ(m_fakes.ownerCheck.reasons, QStringList{QStringLiteral("Déverrouiller le coffre de Nuvrel")});

    // Nothing here can ask: said plainly, still locked.
    m_fakes.ownerCheck.answer = OwnerCheck::Outcome::Unavailable;
    model.unlock();
    ASSERT_TRUE(settle(model));
    EXPECT_FALSE(model.isUnlocked());
    EXPECT_EQ(model.message(),
              QStringLiteral("Impossible de vérifier ton identité sur cet ordinateur : le coffre reste verrouillé."));

    // Confirmed, but the keyring refuses a new key.
    m_fakes.ownerCheck.answer = OwnerCheck::Outcome::Confirmed;
    m_fakes.secrets.refuse = true;
    model.unlock();
    ASSERT_TRUE(settle(model));
    EXPECT_FALSE(model.isUnlocked());
    EXPECT_EQ(model.message(), QStringLiteral("Impossible de créer la clé du coffre."));

    m_fakes.secrets.refuse = false;
    model.unlock();
    ASSERT_TRUE(settle(model));
    EXPECT_TRUE(model.isUnlocked());
    EXPECT_TRUE(model.message().isEmpty());
    EXPECT_EQ(model.countText(), QStringLiteral("0 fichier dans le coffre"));
}

TEST_F(VaultModelTest, AddingReportsWhatWentInAndWhatStayed)
{
    VaultModel model(m_fakes.services(), m_root.filePath(QStringLiteral("Coffre")));
    model.unlock();
    ASSERT_TRUE(settle(model));
    ASSERT_TRUE(model.isUnlocked());

    const QString a = file(QStringLiteral("a.pdf"), noise(2000, 1));
    const QString b = file(QStringLiteral("b.pdf"), noise(3000, 2));
    const QString missing = m_root.filePath(QStringLiteral("Papiers/absent.pdf"));
    model.addFiles({a, missing, b});
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.items().size(), 2);
    EXPECT_EQ(model.countText(), QStringLiteral("2 fichiers dans le coffre"));
    EXPECT_EQ(model.message(),
              QStringLiteral("2 fichiers mis dans le coffre. Les originaux sont à la Corbeille : vide-la pour qu'ils "
                             "disparaissent vraiment. Certains fichiers n'ont pas pu être protégés : ils sont restés à "
                             "leur place."));
    EXPECT_EQ(m_fakes.trash.trashed, (QStringList{a, b}));

    // The trash refuses everything: nothing moved, nothing kept.
    m_fakes.trash.refuse = true;
    const QString c = file(QStringLiteral("c.pdf"), noise(10, 3));
    model.addFiles({c});
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.message(), QStringLiteral("Impossible de déplacer ces fichiers."));
    EXPECT_TRUE(QFile::exists(c));
    EXPECT_EQ(model.items().size(), 2);

    // The command line adds a file meanwhile: a refresh shows it, and keeps the last result on show.
    m_fakes.trash.refuse = false;
    Vault::Opening other = Vault::open(m_root.filePath(QStringLiteral("Coffre")), m_fakes.secrets, m_fakes.trash);
    ASSERT_TRUE(other.vault);
    ASSERT_EQ(other.vault->add({c}, m_fakes.trash).added.size(), 1);
    model.refresh();
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.items().size(), 3);
    EXPECT_EQ(model.items().constFirst().name, QStringLiteral("c.pdf"));
    EXPECT_EQ(model.message(), QStringLiteral("Impossible de déplacer ces fichiers."));
}

TEST_F(VaultModelTest, OpenedCopiesGoWhenTheSessionLocks)
{
    VaultModel model(m_fakes.services(), m_root.filePath(QStringLiteral("Coffre")));
    model.unlock();
    ASSERT_TRUE(settle(model));
    model.addFiles({file(QStringLiteral("lettre.txt"), QByteArrayLiteral("chère Léa"))});
    ASSERT_TRUE(settle(model));
    ASSERT_EQ(model.items().size(), 1);
    const QUuid id = model.items().constFirst().id;

    model.open(id);
    ASSERT_TRUE(settle(model));
    ASSERT_EQ(m_fakes.workspace.opened.size(), 1);
    const QString copy = m_fakes.workspace.opened.constFirst();
    EXPECT_EQ(readFile(copy), QByteArrayLiteral("chère Léa"));

    QSignalSpy items(&model, &VaultModel::itemsChanged);
    m_fakes.sessionLock.lock();
    EXPECT_FALSE(model.isUnlocked());
    EXPECT_TRUE(model.items().isEmpty());
    EXPECT_GE(items.count(), 1);
    EXPECT_FALSE(QFile::exists(copy));
    // Whatever the page still holds, nothing opens while locked.
    model.open(id);
    EXPECT_FALSE(model.isBusy());

    // Unlocked again: taken out, back to its folder.
    model.unlock();
    ASSERT_TRUE(settle(model));
    model.restore(id);
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.message(), QStringLiteral("Fichier sorti du coffre."));
    EXPECT_EQ(readFile(m_root.filePath(QStringLiteral("Papiers/lettre.txt"))), QByteArrayLiteral("chère Léa"));
    EXPECT_TRUE(model.items().isEmpty());
}

TEST_F(VaultModelTest, AnEntryThatIsNotWhatItNamesIsRefusedAndKept)
{
    const QString folder = m_root.filePath(QStringLiteral("Coffre"));
    VaultModel model(m_fakes.services(), folder);
    model.unlock();
    ASSERT_TRUE(settle(model));
    model.addFiles({file(QStringLiteral("a.txt"), QByteArrayLiteral("alpha")),
                    file(QStringLiteral("b.txt"), QByteArrayLiteral("beta"))});
    ASSERT_TRUE(settle(model));
    ASSERT_EQ(model.items().size(), 2);
    // Two whole encrypted files swapped behind the vault's back.
    const QString first = QDir(folder).filePath(model.items()[0].fileName());
    const QString second = QDir(folder).filePath(model.items()[1].fileName());
    const QString swap = QDir(folder).filePath(QStringLiteral("swap"));
    ASSERT_TRUE(QFile::rename(first, swap) && QFile::rename(second, first) && QFile::rename(swap, second));

    model.restore(model.items()[0].id);
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.message(), QStringLiteral("Ce fichier du coffre ne correspond pas à sa fiche : il a été déplacé ou "
                                              "échangé. Rien n'a été modifié."));
    EXPECT_EQ(model.items().size(), 2);
    EXPECT_TRUE(QFile::exists(first));
    EXPECT_FALSE(QFile::exists(m_root.filePath(QStringLiteral("Papiers/") + model.items()[0].name)));

    model.deleteForever(model.items()[0].id);
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.items().size(), 1);
}

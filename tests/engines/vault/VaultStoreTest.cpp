#include "engines/vault/VaultStore.h"
#include "formats/crypto/AesGcm.h"
#include "l10n/LanguageStore.h"
#include "support/BackupFixture.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

unsigned modeOf(const QString& path)
{
    struct stat status
    {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 0777 : 0;
}

std::optional<VaultFailure::Kind> extractFailure(const VaultStore& store, const VaultEntry& entry, const QString& out)
{
    try {
        store.extract(entry, out);
        return std::nullopt;
    } catch (const VaultFailure& failure) {
        return failure.kind;
    }
}

class VaultStoreTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        ASSERT_TRUE(VaultStore::makePrivateFolder(vault()));
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }
    QString vault() const { return m_root.filePath(QStringLiteral("home/.local/share/Nuvrel/Coffre")); }
    QString file(const QString& name, const QByteArray& bytes) const
    {
        const QString path = m_root.filePath(QStringLiteral("Documents/") + name);
        writeFile(path, bytes);
        return path;
    }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_root;
    QTemporaryDir m_out;
    QByteArray m_key = AesGcm::randomKey();
};

} // namespace

TEST_F(VaultStoreTest, FilesGoInOwnerOnlyAndComeOutWhole)
{
    EXPECT_EQ(modeOf(vault()), 0700u);
    EXPECT_EQ(modeOf(QFileInfo(vault()).absolutePath()), 0700u); // parents made here too
    const VaultStore store(vault(), m_key);
    const std::optional<VaultStore::Contents> empty = store.load();
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->entries.isEmpty() && empty->recovered.isEmpty() && !empty->fromPreviousIndex);
    EXPECT_FALSE(VaultStore::hasEncryptedFiles(vault()));

    const QByteArray passport = noise(5'000'000, 1);
    const VaultEntry entry = store.add(file(QStringLiteral("passeport.pdf"), passport));
    EXPECT_EQ(entry.name, QStringLiteral("passeport.pdf"));
    EXPECT_EQ(entry.size, passport.size());
    EXPECT_EQ(entry.origin, m_root.filePath(QStringLiteral("Documents")));
    EXPECT_EQ(entry.sha256, QCryptographicHash::hash(passport, QCryptographicHash::Sha256));
    EXPECT_EQ(modeOf(store.pathOf(entry)), 0600u);
    EXPECT_TRUE(VaultStore::hasEncryptedFiles(vault()));
    EXPECT_TRUE(QDir(vault() + QStringLiteral("/.ecriture")).entryList(QDir::Files).isEmpty());

    ASSERT_TRUE(store.commit({entry}));
    const std::optional<VaultStore::Contents> loaded = store.load();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->entries, QList<VaultEntry>{entry});
    EXPECT_TRUE(loaded->recovered.isEmpty());
    const QString out = m_out.filePath(QStringLiteral("passeport.pdf"));
    store.extract(entry, out);
    EXPECT_EQ(readFile(out), passport);

    // Under another key nothing opens, and nothing is mistaken for a lost file.
    const VaultStore stranger(vault(), AesGcm::randomKey());
    EXPECT_FALSE(stranger.load());
    EXPECT_EQ(extractFailure(stranger, entry, m_out.filePath(QStringLiteral("x"))), VaultFailure::Kind::Authentication);

    EXPECT_TRUE(store.removeFile(entry));
    EXPECT_FALSE(QFile::exists(store.pathOf(entry)));
}

TEST_F(VaultStoreTest, AnUnreadableIndexFallsBackToThePreviousOneAndUnnamedFilesAreFoundAgain)
{
    const VaultStore store(vault(), m_key);
    const VaultEntry first = store.add(file(QStringLiteral("a.txt"), "premier"));
    ASSERT_TRUE(store.commit({first}));
    const VaultEntry second = store.add(file(QStringLiteral("b.txt"), "second"));
    ASSERT_TRUE(store.commit({first, second}));
    EXPECT_TRUE(QFile::exists(vault() + QStringLiteral("/index-old.nvv")));

    // The index cut short: the previous one opens, and the file only the lost index named is found
    // again, checked, under its recovered name.
    const QString index = vault() + QStringLiteral("/index.nvv");
    QFile::resize(index, 10);
    std::optional<VaultStore::Contents> contents = store.load();
    ASSERT_TRUE(contents);
    EXPECT_TRUE(contents->fromPreviousIndex);
    EXPECT_EQ(contents->entries, QList<VaultEntry>{first});
    ASSERT_EQ(contents->recovered.size(), 1);
    EXPECT_EQ(contents->recovered[0].id, second.id);
    EXPECT_EQ(contents->recovered[0].name, QStringLiteral("Fichier récupéré"));
    EXPECT_EQ(contents->recovered[0].size, 6);
    EXPECT_EQ(contents->recovered[0].sha256, second.sha256);

    // A file added, then a crash before the index: found at the next load. What is not ours stays
    // untouched: a damaged file with an entry's name, a file with another name.
    ASSERT_TRUE(store.commit({first, second}));
    const VaultEntry orphan = store.add(file(QStringLiteral("c.txt"), "orphelin"));
    writeFile(vault() + QStringLiteral("/0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F.nvv"), "NVV1 pas chiffré");
    writeFile(vault() + QStringLiteral("/notes.nvv"), "autre");
    contents = store.load();
    ASSERT_TRUE(contents);
    EXPECT_FALSE(contents->fromPreviousIndex);
    ASSERT_EQ(contents->recovered.size(), 1);
    EXPECT_EQ(contents->recovered[0].id, orphan.id);
    EXPECT_TRUE(QFile::exists(vault() + QStringLiteral("/0C1D2E3F-4A5B-6C7D-8E9F-0A1B2C3D4E5F.nvv")));
    EXPECT_TRUE(QFile::exists(vault() + QStringLiteral("/notes.nvv")));

    // Neither index opens: nothing is guessed.
    QFile::resize(index, 10);
    QFile::resize(vault() + QStringLiteral("/index-old.nvv"), 10);
    EXPECT_FALSE(store.load());
}

TEST_F(VaultStoreTest, FilesSwappedOrMixedOpenUnderTheKeyButAreRefusedByTheirEntry)
{
    const VaultStore store(vault(), m_key);
    constexpr qint64 size = 2 * VaultCrypto::chunkSize + 10;
    const QByteArray letter = noise(size, 2);
    const QByteArray scan = noise(size, 3);
    const VaultEntry a = store.add(file(QStringLiteral("lettre.pdf"), letter));
    const VaultEntry b = store.add(file(QStringLiteral("scan.pdf"), scan));
    const QString out = m_out.filePath(QStringLiteral("out"));

    // Whole files swapped.
    const QString swap = vault() + QStringLiteral("/swap");
    ASSERT_TRUE(QFile::rename(store.pathOf(a), swap));
    ASSERT_TRUE(QFile::rename(store.pathOf(b), store.pathOf(a)));
    ASSERT_TRUE(QFile::rename(swap, store.pathOf(b)));
    EXPECT_EQ(extractFailure(store, a, out), VaultFailure::Kind::DigestMismatch);
    EXPECT_FALSE(QFile::exists(out));
    ASSERT_TRUE(QFile::rename(store.pathOf(a), swap));
    ASSERT_TRUE(QFile::rename(store.pathOf(b), store.pathOf(a)));
    ASSERT_TRUE(QFile::rename(swap, store.pathOf(b)));
    EXPECT_EQ(extractFailure(store, a, out), std::nullopt);
    QFile::remove(out);

    // The second chunk of one moved into the other, at the same place.
    const qint64 record = 4 + VaultCrypto::chunkSize + 28;
    QByteArray mixed = readFile(store.pathOf(a));
    mixed.replace(12 + record, record, readFile(store.pathOf(b)).mid(12 + record, record));
    QFile::remove(store.pathOf(a));
    writeFile(store.pathOf(a), mixed);
    EXPECT_EQ(extractFailure(store, a, out), VaultFailure::Kind::DigestMismatch);
    EXPECT_FALSE(QFile::exists(out));
    // An entry from before digests opens it as it is: the older format cannot tell.
    VaultEntry older = a;
    older.sha256.clear();
    EXPECT_EQ(extractFailure(store, older, out), std::nullopt);

    // A stopped addition leaves nothing, in the vault or in its work folder.
    std::atomic<bool> cancel{true};
    EXPECT_THROW(store.add(file(QStringLiteral("gros.bin"), letter), {}, &cancel), VaultFailure);
    EXPECT_EQ(QDir(vault()).entryList({QStringLiteral("*.nvv")}, QDir::Files).size(), 2);
    EXPECT_TRUE(QDir(vault() + QStringLiteral("/.ecriture")).entryList(QDir::Files).isEmpty());
}

// The unlocked vault's steps, against a keyring and a trash of the tests' own: what goes in, what
// comes out, and that an original leaves only when its encrypted copy is recorded.

#include "engines/vault/Vault.h"
#include "engines/vault/VaultKey.h"
#include "l10n/LanguageStore.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

class VaultTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
        ASSERT_EQ(::chmod(QFile::encodeName(m_runtime.path()).constData(), 0700), 0);
    }
    void TearDown() override
    {
        qunsetenv("XDG_RUNTIME_DIR");
        LanguageStore::shared().setLanguageForThisRun(m_saved);
    }
    QString vaultFolder() const { return m_root.filePath(QStringLiteral("Coffre")); }
    QString file(const QString& name, const QByteArray& bytes) const
    {
        const QString path = m_root.filePath(QStringLiteral("Papiers/") + name);
        writeFile(path, bytes);
        return path;
    }
    std::unique_ptr<Vault> open()
    {
        Vault::Opening opening = Vault::open(vaultFolder(), m_secrets, m_trash);
        EXPECT_TRUE(opening.vault);
        return std::move(opening.vault);
    }
    /// The entries' encrypted files, the indexes left out.
    QStringList encryptedFiles() const
    {
        QStringList files = QDir(vaultFolder()).entryList({QStringLiteral("*.nvv")}, QDir::Files, QDir::Name);
        files.removeIf([](const QString& name) { return name.startsWith(QLatin1String("index")); });
        return files;
    }

    AppLanguage m_saved = AppLanguage::Auto;
    QTemporaryDir m_root;
    QTemporaryDir m_runtime;
    MemorySecretStore m_secrets;
    FolderTrash m_trash;
};

} // namespace

TEST_F(VaultTest, OriginalsLeaveOnlyOnceTheirCopiesAreRecorded)
{
    std::unique_ptr<Vault> vault = open();
    ASSERT_TRUE(vault);
    const QByteArray passport = noise(3 * 1024 * 1024, 1);
    const QString a = file(QStringLiteral("passeport.pdf"), passport);
    const QString b = file(QStringLiteral("ordonnance.jpg"), noise(1000, 2));
    // Not a file one can put in: a folder, and a link (never followed, so never emptied through).
    const QString folder = m_root.filePath(QStringLiteral("Papiers/dossier"));
    QDir().mkpath(folder);
    const QString link = m_root.filePath(QStringLiteral("Papiers/lien.pdf"));
    ASSERT_TRUE(QFile::link(a, link));

    const VaultAddReport report = vault->add({a, folder, b, link}, m_trash);
    EXPECT_EQ(report.added.size(), 2);
    EXPECT_EQ(report.failed, (QStringList{folder, link}));
    EXPECT_TRUE(report.notMoved.isEmpty());
    EXPECT_EQ(m_trash.trashed, (QStringList{a, b}));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(vault->entries().size(), 2);
    EXPECT_EQ(vault->entries().constFirst().origin, QFileInfo(a).absolutePath());
    EXPECT_EQ(vault->entries().constFirst().size, passport.size());

    // Locked and opened again: the list was recorded, the bytes come back whole.
    vault.reset();
    vault = open();
    ASSERT_EQ(vault->entries().size(), 2);
    const QString restored = vault->restore(vault->entries().constFirst().id);
    EXPECT_EQ(restored, a);
    EXPECT_EQ(readFile(restored), passport);
    EXPECT_EQ(vault->entries().size(), 1);
    EXPECT_EQ(encryptedFiles().size(), 1);

    // A second time in, then out beside a file of the same name: "-2", never over it.
    writeFile(a, QByteArrayLiteral("autre"));
    const QString again = file(QStringLiteral("copie/passeport.pdf"), passport);
    ASSERT_EQ(vault->add({again}, m_trash).added.size(), 1);
    const QUuid id = vault->entries().constLast().id;
    const QString beside = vault->restoreTo(id, QFileInfo(a).absolutePath());
    EXPECT_EQ(QFileInfo(beside).fileName(), QStringLiteral("passeport-2.pdf"));
    EXPECT_EQ(readFile(a), QByteArrayLiteral("autre"));
    EXPECT_EQ(readFile(beside), passport);

    // An origin that is gone: the Documents folder.
    QDir(QFileInfo(again).absolutePath()).removeRecursively();
    const QString gone = file(QStringLiteral("perdu/lettre.txt"), QByteArrayLiteral("lettre"));
    ASSERT_EQ(vault->add({gone}, m_trash).added.size(), 1);
    QDir(QFileInfo(gone).absolutePath()).removeRecursively();
    const QString documents = vault->restore(vault->entries().constLast().id);
    EXPECT_EQ(QFileInfo(documents).absolutePath(),
              QDir(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)).absolutePath());
    EXPECT_EQ(readFile(documents), QByteArrayLiteral("lettre"));

    // Deleted for good: entry and file.
    const QString last = file(QStringLiteral("brouillon.txt"), QByteArrayLiteral("x"));
    ASSERT_EQ(vault->add({last}, m_trash).added.size(), 1);
    ASSERT_TRUE(vault->remove(vault->entries().constLast().id));
    EXPECT_EQ(vault->entries().size(), 1);
    EXPECT_EQ(encryptedFiles().size(), 1);
}

TEST_F(VaultTest, AnOriginalThatCannotLeaveKeepsItsPlaceAndTheVaultDropsItsCopy)
{
    std::unique_ptr<Vault> vault = open();
    ASSERT_TRUE(vault);
    const QString a = file(QStringLiteral("a.txt"), QByteArrayLiteral("alpha"));
    const QString b = file(QStringLiteral("b.txt"), QByteArrayLiteral("beta"));
    m_trash.refuse = true;
    const VaultAddReport report = vault->add({a, b}, m_trash);
    EXPECT_TRUE(report.added.isEmpty());
    EXPECT_EQ(report.notMoved, (QStringList{a, b}));
    EXPECT_EQ(readFile(a), QByteArrayLiteral("alpha"));
    EXPECT_TRUE(vault->entries().isEmpty());
    // No copy left for the next unlock to offer back as a recovered file.
    EXPECT_TRUE(encryptedFiles().isEmpty());
    vault.reset();
    Vault::Opening again = Vault::open(vaultFolder(), m_secrets, m_trash);
    ASSERT_TRUE(again.vault);
    EXPECT_EQ(again.recovered, 0);
    EXPECT_TRUE(again.vault->entries().isEmpty());

    // A stop before the first file: nothing encrypted, nothing moved.
    m_trash.refuse = false;
    std::atomic<bool> cancel{true};
    const VaultAddReport stopped = again.vault->add({a}, m_trash, {}, &cancel);
    EXPECT_TRUE(stopped.cancelled);
    EXPECT_TRUE(QFile::exists(a));
    EXPECT_TRUE(encryptedFiles().isEmpty());
}

TEST_F(VaultTest, OlderPlainFilesAreSealedWithTheirOriginsAndTheWorkFolderIsLeftAlone)
{
    ASSERT_TRUE(VaultStore::makePrivateFolder(vaultFolder()));
    writeFile(vaultFolder() + QStringLiteral("/carte.png"), noise(5000, 7));
    writeFile(vaultFolder() + QStringLiteral("/note.txt"), QByteArrayLiteral("note"));
    writeFile(vaultFolder() + QStringLiteral("/.origines.json"),
              QJsonDocument(QJsonObject{{QStringLiteral("carte.png"), QStringLiteral("/home/louis/Images")}}).toJson());
    // A file being written by an interrupted run lives in the work folder: not an old plain file.
    writeFile(vaultFolder() + QStringLiteral("/.ecriture/0A.nvv.part"), QByteArrayLiteral("partial"));

    Vault::Opening opening = Vault::open(vaultFolder(), m_secrets, m_trash);
    ASSERT_TRUE(opening.vault);
    EXPECT_EQ(opening.migrated, 2);
    EXPECT_FALSE(opening.migrationFailed);
    const QList<VaultEntry> entries = opening.vault->entries();
    ASSERT_EQ(entries.size(), 2);
    for (const VaultEntry& entry : entries)
        EXPECT_EQ(entry.origin,
                  entry.name == QLatin1String("carte.png") ? QStringLiteral("/home/louis/Images") : QString());
    EXPECT_FALSE(QFile::exists(vaultFolder() + QStringLiteral("/carte.png")));
    EXPECT_FALSE(QFile::exists(vaultFolder() + QStringLiteral("/.origines.json")));
    EXPECT_EQ(m_trash.trashed.size(), 3);
    EXPECT_TRUE(QFile::exists(vaultFolder() + QStringLiteral("/.ecriture/0A.nvv.part")));
}

TEST_F(VaultTest, OpenedCopiesLiveInAPrivateFolderUntilRemoved)
{
    std::unique_ptr<Vault> vault = open();
    ASSERT_TRUE(vault);
    const QString a = file(QStringLiteral("secret.txt"), QByteArrayLiteral("secret"));
    ASSERT_EQ(vault->add({a}, m_trash).added.size(), 1);
    const QString copy = vault->openCopy(vault->entries().constFirst().id);
    EXPECT_TRUE(copy.startsWith(m_runtime.path() + QStringLiteral("/Nuvrel-coffre-ouvert/")));
    EXPECT_EQ(readFile(copy), QByteArrayLiteral("secret"));
    struct stat status
    {};
    ASSERT_EQ(::stat(QFile::encodeName(*Vault::openedCopiesFolder()).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_TRUE(Vault::removeOpenedCopies());
    EXPECT_FALSE(QFile::exists(copy));

    // A runtime folder open to others is not used; the temporary folder's own is, per user.
    ASSERT_EQ(::chmod(QFile::encodeName(m_runtime.path()).constData(), 0755), 0);
    const std::optional<QString> shared = Vault::openedCopiesFolder();
    ASSERT_TRUE(shared);
    EXPECT_FALSE(shared->startsWith(m_runtime.path()));
    EXPECT_TRUE(shared->endsWith(QStringLiteral("-") + QString::number(::getuid())));
    // A folder of that name that someone else made open to all is refused, not used.
    ASSERT_TRUE(QDir(*shared).removeRecursively());
    ASSERT_EQ(::mkdir(QFile::encodeName(*shared).constData(), 0777), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(*shared).constData(), 0777), 0);
    EXPECT_FALSE(Vault::openedCopiesFolder());
    EXPECT_THROW(vault->openCopy(vault->entries().constFirst().id), VaultFailure);
    QDir().rmdir(*shared);
}

TEST_F(VaultTest, WithoutItsKeyOrItsListTheVaultStaysShut)
{
    {
        std::unique_ptr<Vault> vault = open();
        ASSERT_EQ(vault->add({file(QStringLiteral("a.txt"), QByteArrayLiteral("a"))}, m_trash).added.size(), 1);
    }
    // The index and the one before it both damaged.
    QFile::remove(vaultFolder() + QStringLiteral("/index.nvv"));
    QFile::remove(vaultFolder() + QStringLiteral("/index-old.nvv"));
    writeFile(vaultFolder() + QStringLiteral("/index.nvv"), noise(200, 4));
    EXPECT_EQ(Vault::open(vaultFolder(), m_secrets, m_trash).error, VaultOpenError::UnreadableIndex);

    // The key gone from the keyring while files exist: never a new key.
    m_secrets.bytes.clear();
    m_secrets.items.clear();
    const Vault::Opening lost = Vault::open(vaultFolder(), m_secrets, m_trash);
    EXPECT_FALSE(lost.vault);
    EXPECT_EQ(lost.error, VaultOpenError::KeyMissing);
    EXPECT_TRUE(m_secrets.bytes.isEmpty());
}

TEST_F(VaultTest, TwoProcessesChangingTheVaultKeepEachOthersFiles)
{
    std::unique_ptr<Vault> window = open();
    std::unique_ptr<Vault> terminal = open();
    ASSERT_TRUE(window && terminal);
    ASSERT_EQ(window->add({file(QStringLiteral("a.txt"), QByteArrayLiteral("a"))}, m_trash).added.size(), 1);
    // The other one still lists nothing, and records from what the disk says, not from what it read.
    ASSERT_EQ(terminal->add({file(QStringLiteral("b.txt"), QByteArrayLiteral("b"))}, m_trash).added.size(), 1);
    EXPECT_EQ(terminal->entries().size(), 2);
    ASSERT_TRUE(window->remove(terminal->entries().constLast().id));
    EXPECT_EQ(window->entries().size(), 1);
    EXPECT_EQ(window->entries().constFirst().name, QStringLiteral("a.txt"));

    // A commit stopped between its two renames: no "index.nvv", the one before in place. The list
    // before opens, and the batch it did not name comes back as recovered, never lost.
    ASSERT_EQ(window->add({file(QStringLiteral("c.txt"), QByteArrayLiteral("c"))}, m_trash).added.size(), 1);
    window.reset();
    terminal.reset();
    ASSERT_TRUE(QFile::remove(vaultFolder() + QStringLiteral("/index.nvv")));
    Vault::Opening opening = Vault::open(vaultFolder(), m_secrets, m_trash);
    ASSERT_TRUE(opening.vault);
    EXPECT_FALSE(opening.fromPreviousIndex);
    EXPECT_EQ(opening.recovered, 1);
    QStringList names;
    for (const VaultEntry& entry : opening.vault->entries())
        names.append(entry.name);
    EXPECT_EQ(names, (QStringList{QStringLiteral("a.txt"), QStringLiteral("Fichier récupéré")}));
}

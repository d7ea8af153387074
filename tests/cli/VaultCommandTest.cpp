// nuvrel-cli vault against the real keyring and a real polkitd: tools/test.sh runs these in a private
// D-Bus session with gnome-keyring and a private system bus with polkitd, where root is always the
// owner. Elsewhere they are skipped.

#include "CliRunner.h"
#include "engines/vault/Vault.h"
#include "platform/system/KeychainSecretStore.h"
#include "support/BackupFixture.h"
#include "support/FakeServices.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

bool enabled()
{
    return qEnvironmentVariable("NUVREL_VAULT_CLI_TEST") == QLatin1String("1");
}

class VaultCommandTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!enabled())
            GTEST_SKIP() << "needs the keyring and polkitd that tools/test.sh starts";
        m_env = {{QStringLiteral("HOME"), m_home.path()},
                 {QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data"))},
                 {QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path()}};
        QFile::setPermissions(m_runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    void TearDown() override
    {
        // The key of this run's vault: a keyring shared by the runs must not keep it.
        if (enabled())
            KeychainSecretStore().remove(QStringLiteral("Nuvrel : cle du coffre"), QStringLiteral("coffre-v1"));
    }
    QString vaultFolder() const { return m_home.filePath(QStringLiteral("data/Nuvrel/Coffre")); }
    QString trashFolder() const { return m_home.filePath(QStringLiteral("data/Trash/files")); }
    CliRun cli(const QStringList& arguments) { return runCli(QStringList{QStringLiteral("vault")} + arguments, m_env); }

    QTemporaryDir m_home;
    QTemporaryDir m_runtime;
    QMap<QString, QString> m_env;
};

} // namespace

TEST_F(VaultCommandTest, EveryCommandRoundTripsAndNamesAreUnambiguous)
{
    ASSERT_EQ(cli({QStringLiteral("list")}).exitCode, 0);
    const QString letter = m_home.filePath(QStringLiteral("Papiers/lettre.txt"));
    writeFile(letter, QByteArrayLiteral("chère Léa"));
    const QString twin = m_home.filePath(QStringLiteral("Autres/lettre.txt"));
    writeFile(twin, QByteArrayLiteral("une autre"));
    const CliRun added = cli({QStringLiteral("add"), letter, twin, m_home.filePath(QStringLiteral("absent"))});
    EXPECT_EQ(added.exitCode, 7) << qPrintable(added.err);
    EXPECT_TRUE(added.out.contains(QStringLiteral("2 fichiers mis dans le coffre.")));
    EXPECT_FALSE(QFile::exists(letter));

    const CliRun listed = cli({QStringLiteral("list"), QStringLiteral("--json")});
    const QJsonArray entries = QJsonDocument::fromJson(listed.out.toUtf8()).array();
    ASSERT_EQ(entries.size(), 2);
    // Two entries of one name: refused by name, taken by id.
    const CliRun ambiguous = cli({QStringLiteral("open"), QStringLiteral("lettre.txt")});
    EXPECT_EQ(ambiguous.exitCode, 3);
    EXPECT_TRUE(ambiguous.err.contains(QStringLiteral("désigne-le par son identifiant")));
    EXPECT_EQ(cli({QStringLiteral("open"), QStringLiteral("inconnu.txt")}).exitCode, 1);
    QString letterId;
    for (const auto& value : entries) {
        if (value.toObject().value(QStringLiteral("origin")).toString() == QFileInfo(letter).absolutePath())
            letterId = value.toObject().value(QStringLiteral("id")).toString();
    }
    ASSERT_FALSE(letterId.isEmpty());

    const CliRun opened = cli({QStringLiteral("open"), letterId.toLower()});
    ASSERT_EQ(opened.exitCode, 0) << qPrintable(opened.err);
    const QString copy = opened.out.trimmed();
    EXPECT_TRUE(copy.startsWith(m_runtime.path()));
    EXPECT_EQ(readFile(copy), QByteArrayLiteral("chère Léa"));
    EXPECT_EQ(cli({QStringLiteral("lock")}).exitCode, 0);
    EXPECT_FALSE(QFile::exists(copy));

    EXPECT_EQ(cli({QStringLiteral("delete"), letterId}).exitCode, 3); // --yes missing
    const QString out = m_home.filePath(QStringLiteral("Sortie"));
    QDir().mkpath(out);
    const CliRun restored = cli({QStringLiteral("restore"), letterId, QStringLiteral("--to"), out});
    ASSERT_EQ(restored.exitCode, 0) << qPrintable(restored.err);
    EXPECT_EQ(readFile(out + QStringLiteral("/lettre.txt")), QByteArrayLiteral("chère Léa"));
    EXPECT_EQ(cli({QStringLiteral("delete"), QStringLiteral("lettre.txt"), QStringLiteral("--yes")}).exitCode, 0);
    EXPECT_TRUE(cli({QStringLiteral("list")}).out.contains(QStringLiteral("0 fichier dans le coffre")));
}

// Killed at random moments while adding: every original is in its place, or in the trash with an entry
// that decrypts to its exact bytes. Never in neither.
TEST_F(VaultCommandTest, AKillAtAnyMomentLosesNothing)
{
    ASSERT_EQ(cli({QStringLiteral("list")}).exitCode, 0); // the key, made once
    const int rounds = qEnvironmentVariableIntValue("NUVREL_VAULT_KILLS") > 0
                           ? qEnvironmentVariableIntValue("NUVREL_VAULT_KILLS")
                           : 200;
    const QList<qint64> sizes{1, 4096, 300'000, 4 * 1024 * 1024 + 1, 2'500'000, 7'000};
    QRandomGenerator random(20261124);
    qint64 fullRunMs = -1; // measured on the first round, which runs whole
    int killedMidway = 0;
    FolderTrash unused;
    KeychainSecretStore keyring;
    for (int round = 0; round < rounds; ++round) {
        QStringList files;
        QHash<QString, QByteArray> digests;
        for (int i = 0; i < sizes.size(); ++i) {
            const QString path = m_home.filePath(QStringLiteral("Originaux/r%1-f%2.bin").arg(round).arg(i));
            const QByteArray bytes = noise(sizes[i], quint32(round * 16 + i));
            writeFile(path, bytes);
            files.append(path);
            digests.insert(path, QCryptographicHash::hash(bytes, QCryptographicHash::Sha256));
        }
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (auto it = m_env.cbegin(); it != m_env.cend(); ++it)
            env.insert(it.key(), it.value());
        process.setProcessEnvironment(env);
        QElapsedTimer clock;
        clock.start();
        process.start(QStringLiteral(NUVREL_CLI), QStringList{QStringLiteral("vault"), QStringLiteral("add")} + files);
        ASSERT_TRUE(process.waitForStarted());
        if (fullRunMs < 0) {
            ASSERT_TRUE(process.waitForFinished(60'000));
            ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
            fullRunMs = std::max<qint64>(clock.elapsed(), 1);
        } else if (!process.waitForFinished(int(std::max<qint64>(random.bounded(fullRunMs + 1), 1)))) {
            ::kill(pid_t(process.processId()), SIGKILL);
            process.waitForFinished();
            ++killedMidway;
        }

        Vault::Opening opening = Vault::open(vaultFolder(), keyring, unused);
        ASSERT_TRUE(opening.vault) << "round " << round;
        for (const QString& file : std::as_const(files)) {
            if (QFile::exists(file)) {
                EXPECT_EQ(QCryptographicHash::hash(readFile(file), QCryptographicHash::Sha256), digests[file]);
                continue;
            }
            const QString name = QFileInfo(file).fileName();
            EXPECT_TRUE(QFile::exists(QDir(trashFolder()).filePath(name))) << qPrintable(file) << " is nowhere";
            bool sealed = false;
            for (const VaultEntry& entry : opening.vault->entries()) {
                if (entry.name != name)
                    continue;
                const QString out = m_home.filePath(QStringLiteral("verifie-") + name);
                opening.vault->store().extract(entry, out);
                sealed = QCryptographicHash::hash(readFile(out), QCryptographicHash::Sha256) == digests[file];
                QFile::remove(out);
            }
            EXPECT_TRUE(sealed) << qPrintable(file) << " left without a sealed copy, round " << round;
        }
        if (HasFailure())
            return;
    }
    // The kills must have landed inside the runs, not only before or after them.
    EXPECT_GT(killedMidway, rounds / 4);
}

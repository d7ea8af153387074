// Hostile and broken input, command by command, as an adversary and an unlucky user meet it. Each row
// says what the user gets: the status, the message, the files left, and the source unchanged.

#include "ChildProcess.h"
#include "formats/plist/PropertyList.h"
#include "support/BackupFixture.h"
#include "support/ChatFixtures.h"
#include "support/FolderSnapshot.h"
#include "support/PlistWriter.h"
#include "support/SampleBackup.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <functional>
#include <sys/stat.h>

using namespace nuvrel::test;

namespace {

const QString password = QStringLiteral("s3cret");

QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray digest(const QString& path)
{
    return QCryptographicHash::hash(bytesOf(path), QCryptographicHash::Sha256);
}

// Two backups (plain, and encrypted with `password`) holding a small file and a large one, and a folder
// for conversations and outputs.
class Scene
{
public:
    Scene()
    {
        SampleBackup plain;
        plain.id = QStringLiteral("plain");
        plain.files = files();
        plain.write(m_root.path());
        SampleBackup locked = plain;
        locked.id = QStringLiteral("locked");
        locked.password = password;
        locked.write(m_root.path());
    }

    static QList<SampleFile> files()
    {
        return {{QStringLiteral("HomeDomain"), QStringLiteral("Library/small.txt"), QByteArray("a small file\n")},
                {QStringLiteral("HomeDomain"), QStringLiteral("Library/large.bin"), pseudoRandomBytes(4 << 20, 7)}};
    }
    static QByteArray large() { return files()[1].contents; }

    QString backups() const { return m_root.path(); }
    QString backup(const QString& id) const { return m_root.filePath(id); }
    QString stored(const QString& id, const QString& path) const
    {
        const QString fileID = SampleBackup::fileID(QStringLiteral("HomeDomain"), path);
        return QDir(backup(id)).filePath(fileID.left(2) + u'/' + fileID);
    }
    QString work(const QString& name = {}) const { return m_work.filePath(name); }

    // A backup command on the scene's backups, in French, with the password on standard input.
    ChildRun cli(QStringList arguments, ChildLimits limits = {}) const
    {
        arguments << QStringLiteral("--root") << m_root.path() << QStringLiteral("--lang") << QStringLiteral("fr");
        if (arguments.contains(QStringLiteral("--password-stdin")) && limits.input.isEmpty())
            limits.input = password.toUtf8() + '\n';
        return runChild(QStringLiteral(NUVREL_CLI), arguments, limits);
    }

private:
    QTemporaryDir m_root;
    QTemporaryDir m_work;
};

// Each entry below `folder` with the digest (the size, for a huge one) and time of a regular file, or
// what else it is: a FIFO is never opened.
QMap<QString, QByteArray> state(const QString& folder)
{
    QMap<QString, QByteArray> entries;
    for (const QString& entry : allEntries(folder)) {
        const QFileInfo info(QDir(folder).filePath(entry));
        QByteArray facts = info.isSymLink() ? QByteArray("link") : info.isDir() ? QByteArray("folder") : "special";
        if (!info.isSymLink() && info.isFile()) {
            facts = (info.size() > (64 << 20) ? QByteArray::number(info.size()) : digest(info.filePath())) +
                    QByteArray::number(info.lastModified().toMSecsSinceEpoch());
        }
        entries.insert(entry, facts);
    }
    return entries;
}

// What a row expects.
struct Expect
{
    Expect(int status_, QString message_ = {}, QString absentMessage_ = {})
        : status(status_)
        , message(std::move(message_))
        , absentMessage(std::move(absentMessage_))
    {}

    int status; ///< the exit status; -SIGNAL for a program a signal ended
    QString message;
    QString absentMessage; ///< a text the output must not hold
};

void check(const ChildRun& run, const Expect& expected, const char* row)
{
    EXPECT_FALSE(run.hung) << row << ": hung";
    const int status = run.signal ? -run.signal : run.exitCode;
    EXPECT_EQ(status, expected.status) << row << "\n" << qPrintable(run.err);
    if (!expected.message.isEmpty()) {
        EXPECT_TRUE(run.err.contains(expected.message) || run.out.contains(expected.message))
            << row << "\n"
            << qPrintable(run.err) << qPrintable(run.out);
    }
    if (!expected.absentMessage.isEmpty()) {
        EXPECT_FALSE(run.err.contains(expected.absentMessage)) << row << "\n" << qPrintable(run.err);
    }
}

// Every name left below `folder` that is not a finished file: a temporary one, or an empty folder.
QStringList unfinished(const QString& folder)
{
    QStringList left;
    for (const QString& entry : allEntries(folder)) {
        if (QFileInfo(entry).fileName().contains(QStringLiteral(".nuvrel-")))
            left.append(entry);
    }
    return left;
}

struct BackupRow
{
    BackupRow(const char* name_, std::function<void(const Scene&)> damage_, QStringList arguments_, Expect expect_,
              QStringList absentOutputs_ = {})
        : name(name_)
        , damage(std::move(damage_))
        , arguments(std::move(arguments_))
        , expect(std::move(expect_))
        , absentOutputs(std::move(absentOutputs_))
    {}

    const char* name;
    std::function<void(const Scene&)> damage;
    QStringList arguments; ///< "{out}" stands for the output folder
    Expect expect;
    QStringList absentOutputs; ///< names that must not be in the output folder
};

} // namespace

TEST(HostileBackups, DamagedBackupsSayWhatIsWrongAndLeaveNothingOfTheFile)
{
    const QList<BackupRow> rows{
        {"encrypted copy cut short",
         [](const Scene& s) {
             QFile::resize(s.stored(QStringLiteral("locked"), QStringLiteral("Library/large.bin")), 1 << 20);
         },
         {QStringLiteral("extract"), QStringLiteral("locked"), QStringLiteral("--password-stdin")},
         {7, QStringLiteral("1 fichier impossible à déchiffrer")},
         {QStringLiteral("large.bin")}},
        {"encrypted copy not whole blocks",
         [](const Scene& s) {
             const QString copy = s.stored(QStringLiteral("locked"), QStringLiteral("Library/large.bin"));
             QFile::resize(copy, QFileInfo(copy).size() - 3);
         },
         {QStringLiteral("extract"), QStringLiteral("locked"), QStringLiteral("--password-stdin")},
         {7, QStringLiteral("impossible à déchiffrer")},
         {QStringLiteral("large.bin")}},
        {"stored copy is a link out of the backup",
         [](const Scene& s) {
             const QString copy = s.stored(QStringLiteral("plain"), QStringLiteral("Library/large.bin"));
             QFile::remove(copy);
             QFile::link(QStringLiteral("/etc/hostname"), copy);
         },
         {QStringLiteral("extract"), QStringLiteral("plain")},
         {7, QStringLiteral("1 fichier absent de la sauvegarde")},
         {QStringLiteral("large.bin")}},
        {"garbage Info.plist",
         [](const Scene& s) { writeFile(s.backup(QStringLiteral("plain")) + QStringLiteral("/Info.plist"), "<?xml"); },
         {QStringLiteral("files"), QStringLiteral("plain")},
         {6, QStringLiteral("Info.plist"), QStringLiteral("introuvable")}},
        {"no Info.plist",
         [](const Scene& s) { QFile::remove(s.backup(QStringLiteral("plain")) + QStringLiteral("/Info.plist")); },
         {QStringLiteral("files"), QStringLiteral("plain")},
         {6, QStringLiteral("La sauvegarde est incomplète : Info.plist manque."), QStringLiteral("introuvable")}},
        {"no index at all",
         [](const Scene& s) { QFile::remove(s.backup(QStringLiteral("plain")) + QStringLiteral("/Manifest.db")); },
         {QStringLiteral("files"), QStringLiteral("plain")},
         {6, QStringLiteral("son index (Manifest.db) manque"), QStringLiteral("Manifest.mbdb")}},
        {"index key damaged, right password",
         [](const Scene& s) {
             const QString plist = s.backup(QStringLiteral("locked")) + QStringLiteral("/Manifest.plist");
             QVariantMap record = nuvrel::PropertyList::fromData(bytesOf(plist)).toMap();
             QByteArray key = record.value(QStringLiteral("ManifestKey")).toByteArray();
             key[12] = static_cast<char>(key[12] ^ 0x5A);
             record.insert(QStringLiteral("ManifestKey"), key);
             writeFile(plist, writePlist(record, PlistFormat::Binary));
         },
         {QStringLiteral("files"), QStringLiteral("locked"), QStringLiteral("--password-stdin")},
         {6, QStringLiteral("La sauvegarde est endommagée : la clé de sa liste de fichiers est illisible."),
          QStringLiteral("mot de passe")}},
        {"Manifest.plist of garbage",
         [](const Scene& s) {
             writeFile(s.backup(QStringLiteral("locked")) + QStringLiteral("/Manifest.plist"), "bplist00garbage");
         },
         {QStringLiteral("files"), QStringLiteral("locked"), QStringLiteral("--password-stdin")},
         {6, QStringLiteral("La sauvegarde est endommagée")}},
        {"Info.plist is a FIFO",
         [](const Scene& s) {
             const QString info = s.backup(QStringLiteral("plain")) + QStringLiteral("/Info.plist");
             QFile::remove(info);
             ::mkfifo(QFile::encodeName(info).constData(), 0600);
         },
         {QStringLiteral("files"), QStringLiteral("plain")},
         {6, QStringLiteral("Info.plist")}},
        {"Manifest.db is a FIFO",
         [](const Scene& s) {
             const QString index = s.backup(QStringLiteral("plain")) + QStringLiteral("/Manifest.db");
             QFile::remove(index);
             ::mkfifo(QFile::encodeName(index).constData(), 0600);
         },
         {QStringLiteral("files"), QStringLiteral("plain")},
         {6, QStringLiteral("Manifest.db")}},
    };
    for (const BackupRow& row : rows) {
        const Scene scene;
        row.damage(scene);
        const QMap<QString, QByteArray> backupsBefore = state(scene.backups());
        QStringList arguments = row.arguments;
        if (arguments.front() == QLatin1StringView("extract"))
            arguments << QStringLiteral("--to") << scene.work(QStringLiteral("out"));
        const ChildRun run = scene.cli(arguments);
        check(run, row.expect, row.name);
        for (const QString& absent : row.absentOutputs)
            EXPECT_FALSE(QFileInfo::exists(scene.work(QStringLiteral("out/HomeDomain/Library/") + absent))) << row.name;
        EXPECT_EQ(unfinished(scene.work()), QStringList()) << row.name;
        EXPECT_EQ(state(scene.backups()), backupsBefore) << row.name << ": a backup is never written";
        if (arguments.front() == QLatin1StringView("extract") && row.expect.status == 7) { // the rest still came
            EXPECT_EQ(bytesOf(scene.work(QStringLiteral("out/HomeDomain/Library/small.txt"))), "a small file\n")
                << row.name;
        }
    }
}

namespace {

struct ChatRow
{
    ChatRow(const char* name_, std::function<QStringList(const QString& folder)> prepare_, Expect expect_,
            QString output_ = {})
        : name(name_)
        , prepare(std::move(prepare_))
        , expect(std::move(expect_))
        , output(std::move(output_))
    {}

    const char* name;
    std::function<QStringList(const QString& folder)> prepare; ///< makes the files, returns the arguments
    Expect expect;
    QString output; ///< a text standard output must hold
};

QString fifo(const QString& path)
{
    ::mkfifo(QFile::encodeName(path).constData(), 0600);
    return path;
}

} // namespace

TEST(HostileConversations, BrokenSourcesSayWhatIsWrongAndNeverHang)
{
    const QList<ChatRow> rows{
        {"impossible date and minority order",
         [](const QString& folder) {
             writeFile(folder + QStringLiteral("/chat.txt"), "14/02/2024, 09:00 - Ana: avant\n"
                                                             "31/02/2024, 10:00 - Bo: le 31 f\xC3\xA9vrier\n"
                                                             "02/25/2024, 10:00 - Bo: dans l'autre ordre\n"
                                                             "16/02/2024, 12:00 - Ana: apr\xC3\xA8s\n");
             return QStringList{QStringLiteral("chat-export"), folder + QStringLiteral("/chat.txt")};
         },
         {0, QStringLiteral("gardées telles quelles dans le message précédent : 2")},
         QStringLiteral("31/02/2024, 10:00 - Bo: le 31 février")},
        {"export of binary garbage",
         [](const QString& folder) {
             writeFile(folder + QStringLiteral("/chat.txt"), pseudoRandomBytes(50'000, 9));
             return QStringList{QStringLiteral("chat-export"), folder + QStringLiteral("/chat.txt")};
         },
         {6, QStringLiteral("Impossible de lire ce fichier")}},
        {"export far too large",
         [](const QString& folder) {
             QFile file(folder + QStringLiteral("/huge.txt"));
             file.open(QIODevice::WriteOnly);
             file.resize(qint64(600) << 20); // sparse: no disk used
             return QStringList{QStringLiteral("chat-export"), file.fileName()};
         },
         {6, QStringLiteral("est trop gros pour une conversation exportée")}},
        {"export is a FIFO",
         [](const QString& folder) {
             return QStringList{QStringLiteral("chat-export"), fifo(folder + QStringLiteral("/chat.txt"))};
         },
         {6}},
        {"missing database",
         [](const QString& folder) {
             return QStringList{QStringLiteral("chats"), folder + QStringLiteral("/absent.db")};
         },
         {6, QStringLiteral("Introuvable : "), QStringLiteral("Accès complet au disque")}},
        {"database is a FIFO",
         [](const QString& folder) {
             return QStringList{QStringLiteral("chats"), fifo(folder + QStringLiteral("/chat.db"))};
         },
         {6}},
        {"PDF to verify is a FIFO",
         [](const QString& folder) {
             writeFile(folder + QStringLiteral("/x.empreinte.txt"), QByteArray(64, 'a'));
             return QStringList{QStringLiteral("verify"), fifo(folder + QStringLiteral("/x.pdf"))};
         },
         {6}},
        {"side file without a fingerprint",
         [](const QString& folder) {
             writeFile(folder + QStringLiteral("/x.pdf"), "%PDF-1.4");
             writeFile(folder + QStringLiteral("/x.empreinte.txt"), QByteArray("\xFF\xFE"
                                                                               "a\0b\0",
                                                                               6));
             return QStringList{QStringLiteral("verify"), folder + QStringLiteral("/x.pdf")};
         },
         {6, QStringLiteral("ne contient aucune empreinte SHA-256")}},
        {"side file in upper case",
         [](const QString& folder) {
             writeFile(folder + QStringLiteral("/x.pdf"), "%PDF-1.4");
             writeFile(folder + QStringLiteral("/x.empreinte.txt"),
                       QCryptographicHash::hash("%PDF-1.4", QCryptographicHash::Sha256).toHex().toUpper());
             return QStringList{QStringLiteral("verify"), folder + QStringLiteral("/x.pdf")};
         },
         {0},
         QStringLiteral("Le PDF est intact")},
        {"a word of a million letters",
         [](const QString& folder) {
             writeFile(folder + QStringLiteral("/chat.txt"),
                       "14/02/2024, 09:00 - Ana: " + QByteArray(1'000'000, 'x') + "\n");
             return QStringList{QStringLiteral("chat-pdf"), QStringLiteral("--export"),
                                folder + QStringLiteral("/chat.txt"), QStringLiteral("-o"),
                                folder + QStringLiteral("/mot.pdf")};
         },
         {0, QStringLiteral("Empreinte SHA-256 du PDF")}},
    };
    for (const ChatRow& row : rows) {
        QTemporaryDir folder;
        QStringList arguments = row.prepare(folder.path());
        const QMap<QString, QByteArray> before = state(folder.path());
        const ChildRun run =
            runChild(QStringLiteral(NUVREL_CLI), arguments << QStringLiteral("--lang") << QStringLiteral("fr"));
        check(run, row.expect, row.name);
        if (!row.output.isEmpty()) {
            EXPECT_TRUE(run.out.contains(row.output)) << row.name << "\n" << qPrintable(run.out.left(2000));
        }
        // The sources are untouched; only a PDF and its side file may appear.
        QMap<QString, QByteArray> after = state(folder.path());
        after.remove(QStringLiteral("mot.pdf"));
        after.remove(QStringLiteral("mot.empreinte.txt"));
        EXPECT_EQ(after, before) << row.name;
    }
}

TEST(HostileConversations, APdfNeverTakesThePlaceOfAnotherFile)
{
    QTemporaryDir folder;
    const QString source = folder.filePath(QStringLiteral("chat.txt"));
    writeFile(source, sampleWhatsAppExport().toUtf8());
    const auto pdf = [&](const QString& output, QStringList more = {}) {
        return runChild(QStringLiteral(NUVREL_CLI),
                        QStringList{QStringLiteral("chat-pdf"), QStringLiteral("--export"), source,
                                    QStringLiteral("-o"), output, QStringLiteral("--lang"), QStringLiteral("fr")} +
                            more);
    };
    // The source itself, or a name whose side file is the source.
    check(pdf(source), {3, QStringLiteral("Choisis un autre nom")}, "output is the source");
    const QString sideIsSource = folder.filePath(QStringLiteral("chat.empreinte.txt"));
    ASSERT_TRUE(QFile::rename(source, sideIsSource));
    const auto pdfFrom = [&](const QString& from, const QString& output) {
        return runChild(QStringLiteral(NUVREL_CLI),
                        {QStringLiteral("chat-pdf"), QStringLiteral("--export"), from, QStringLiteral("-o"), output,
                         QStringLiteral("--lang"), QStringLiteral("fr")});
    };
    check(pdfFrom(sideIsSource, folder.filePath(QStringLiteral("chat.pdf"))),
          {3, QStringLiteral("Choisis un autre nom")}, "side file is the source");
    ASSERT_TRUE(QFile::rename(sideIsSource, source));

    // A taken name gets " (2)", and the side file names the PDF it goes with.
    const QString taken = folder.filePath(QStringLiteral("Louis.pdf"));
    writeFile(taken, "my own document");
    check(pdf(taken), {0}, "taken name");
    EXPECT_EQ(bytesOf(taken), "my own document");
    EXPECT_TRUE(
        bytesOf(folder.filePath(QStringLiteral("Louis (2).empreinte.txt"))).startsWith("Fichier : Louis (2).pdf"));

    // A link at the output is never followed, whatever it points to.
    const QString target = folder.filePath(QStringLiteral("target.txt"));
    writeFile(target, "not to be replaced");
    const QString link = folder.filePath(QStringLiteral("link.pdf"));
    ASSERT_TRUE(QFile::link(target, link));
    check(pdf(link), {0}, "link at the output");
    check(pdf(link, {QStringLiteral("--force")}), {0}, "link at the output, forced");
    EXPECT_EQ(bytesOf(target), "not to be replaced");

    // --force replaces a file, in one step.
    check(pdf(taken, {QStringLiteral("--force")}), {0}, "forced");
    EXPECT_TRUE(bytesOf(taken).startsWith("%PDF"));
    EXPECT_EQ(unfinished(folder.path()), QStringList());
}

TEST(HostileCommands, AWriteCutShortBySignalLeavesNoHalfFileUnderAFinalName)
{
    // The write that crosses the limit gets SIGXFSZ, which ends the program at that write.
    ChildLimits cut;
    cut.maxFileBytes = 1 << 20;
    for (const QString& id : {QStringLiteral("plain"), QStringLiteral("locked")}) {
        const Scene scene;
        QStringList arguments{QStringLiteral("extract"), id, QStringLiteral("--to"), scene.work(QStringLiteral("out"))};
        if (id == QLatin1StringView("locked"))
            arguments << QStringLiteral("--password-stdin");
        const ChildRun killed = scene.cli(arguments, cut);
        check(killed, {-SIGXFSZ}, qPrintable(id));
        const QString large = scene.work(QStringLiteral("out/HomeDomain/Library/large.bin"));
        EXPECT_FALSE(QFileInfo::exists(large)) << qPrintable(id);

        // Run again: the file comes whole; what the killed run left is only under a temporary name.
        check(scene.cli(arguments), {0}, qPrintable(id));
        EXPECT_EQ(bytesOf(large), Scene::large()) << qPrintable(id);
        EXPECT_FALSE(QFileInfo::exists(scene.work(QStringLiteral("out/HomeDomain/Library/large (2).bin"))));
    }

    // A PDF made again over a good one: cut short, the good one stays as it was and still verifies.
    QTemporaryDir folder;
    const QString source = folder.filePath(QStringLiteral("chat.txt"));
    QByteArray longChat;
    for (int i = 0; i < 20'000; ++i)
        longChat += "14/02/2024, 09:00 - Ana: message " + QByteArray::number(i) + " qui a quelques mots\n";
    writeFile(source, longChat);
    const QString pdf = folder.filePath(QStringLiteral("Ana.pdf"));
    writeFile(source + QStringLiteral(".short"), sampleWhatsAppExport().toUtf8());
    const QStringList first{QStringLiteral("chat-pdf"), QStringLiteral("--export"), source + QStringLiteral(".short"),
                            QStringLiteral("-o"), pdf};
    check(runChild(QStringLiteral(NUVREL_CLI), first), {0}, "first PDF");
    const QByteArray good = bytesOf(pdf);
    ChildLimits small;
    small.maxFileBytes = 256 << 10;
    const ChildRun again = runChild(QStringLiteral(NUVREL_CLI),
                                    {QStringLiteral("chat-pdf"), QStringLiteral("--export"), source,
                                     QStringLiteral("-o"), pdf, QStringLiteral("--force")},
                                    small);
    check(again, {-SIGXFSZ}, "PDF cut short");
    EXPECT_EQ(bytesOf(pdf), good);
    check(runChild(QStringLiteral(NUVREL_CLI), {QStringLiteral("verify"), pdf}), {0}, "the good PDF still verifies");
}

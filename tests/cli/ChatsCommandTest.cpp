// nuvrel-cli chats, chat and chat-export, run as a script would run them.

#include "CliRunner.h"

#include "support/BackupFixture.h"
#include "support/ChatFixtures.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace nuvrel::test;

TEST(ChatsCommand, ListsAndPrintsConversationsFromAllThreeSources)
{
    QTemporaryDir dir;
    const QString sms = dir.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    const QStringList lang{QStringLiteral("--lang"), QStringLiteral("en")};

    const CliRun chats = runCli(QStringList{QStringLiteral("chats"), sms, QStringLiteral("--json")} + lang);
    EXPECT_EQ(chats.exitCode, 0) << qPrintable(chats.err);
    const QJsonArray list = QJsonDocument::fromJson(chats.out.toUtf8()).array();
    ASSERT_EQ(list.size(), 2) << qPrintable(chats.out);
    EXPECT_EQ(list[0].toObject().value(QStringLiteral("title")).toString(), QStringLiteral("Famille"));

    const CliRun family = runCli(QStringList{QStringLiteral("chat"), sms, QStringLiteral("2")} + lang);
    EXPECT_EQ(family.exitCode, 0) << qPrintable(family.err);
    EXPECT_TRUE(family.out.startsWith(QStringLiteral("Messages: Famille"))) << qPrintable(family.out);
    EXPECT_TRUE(family.out.contains(QStringLiteral("[attachment: IMG_0003.HEIC]"))) << qPrintable(family.out);
    EXPECT_TRUE(family.out.contains(QStringLiteral("Me: Merci pour la photo, elle est magnifique\n")))
        << qPrintable(family.out);

    const CliRun json = runCli(QStringList{QStringLiteral("chat"), sms, QStringLiteral("1"), QStringLiteral("--format"),
                                           QStringLiteral("json")} +
                               lang);
    const QJsonArray messages =
        QJsonDocument::fromJson(json.out.toUtf8()).object().value(QStringLiteral("messages")).toArray();
    ASSERT_EQ(messages.size(), 2) << qPrintable(json.out); // the reaction is left out
    EXPECT_TRUE(messages[1].toObject().value(QStringLiteral("outgoing")).toBool());

    const QString export_ = dir.filePath(QStringLiteral("WhatsApp Chat - Louis.txt"));
    writeFile(export_, sampleWhatsAppExport().toUtf8());
    const CliRun exported = runCli(QStringList{QStringLiteral("chat-export"), export_} + lang);
    EXPECT_EQ(exported.exitCode, 0) << qPrintable(exported.err);
    EXPECT_TRUE(exported.out.startsWith(QStringLiteral("WhatsApp: Camille / Louis"))) << qPrintable(exported.out);
    EXPECT_TRUE(exported.out.contains(QStringLiteral("Oui, vers 10 h\n    Je prends le pain.")))
        << qPrintable(exported.out);
}

TEST(ChatsCommand, ProblemsHaveTheirExitCodes)
{
    QTemporaryDir dir;
    const QString sms = dir.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    EXPECT_EQ(runCli({QStringLiteral("chat"), sms, QStringLiteral("99")}).exitCode, 1);
    // A missing database is missing, not a refused access.
    const CliRun missing = runCli({QStringLiteral("chats"), dir.filePath(QStringLiteral("missing.db")),
                                   QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(missing.exitCode, 6);
    EXPECT_TRUE(missing.err.startsWith(QStringLiteral("Introuvable : "))) << qPrintable(missing.err);
    writeFile(dir.filePath(QStringLiteral("garbage.db")), QByteArray(4096, 'g'));
    EXPECT_EQ(runCli({QStringLiteral("chats"), dir.filePath(QStringLiteral("garbage.db"))}).exitCode, 6);
    EXPECT_EQ(runCli({QStringLiteral("chats"), sms, QStringLiteral("--source"), QStringLiteral("signal")}).exitCode, 3);
    EXPECT_EQ(runCli({QStringLiteral("chats"), sms, QStringLiteral("--source"), QStringLiteral("telegram")}).exitCode,
              6);
    writeFile(dir.filePath(QStringLiteral("notes.txt")), "no dates here");
    EXPECT_EQ(runCli({QStringLiteral("chat-export"), dir.filePath(QStringLiteral("notes.txt"))}).exitCode, 6);
}

TEST(ChatsCommand, PdfFromEachSourceAndVerifyCatchesOneChangedByte)
{
    QTemporaryDir dir;
    const QString sms = dir.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    const QString pdf = dir.filePath(QStringLiteral("Famille.pdf"));
    const CliRun made = runCli({QStringLiteral("chat-pdf"), sms, QStringLiteral("2"), QStringLiteral("-o"), pdf,
                                QStringLiteral("--lang"), QStringLiteral("en")});
    EXPECT_EQ(made.exitCode, 0) << qPrintable(made.err);
    EXPECT_TRUE(made.out.contains(QStringLiteral("PDF SHA-256 fingerprint:"))) << qPrintable(made.out);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(QStringLiteral("Famille.empreinte.txt"))));

    const CliRun intact = runCli({QStringLiteral("verify"), pdf, QStringLiteral("--lang"), QStringLiteral("en")});
    EXPECT_EQ(intact.exitCode, 0) << qPrintable(intact.out);
    EXPECT_TRUE(intact.out.startsWith(QStringLiteral("The PDF is unchanged"))) << qPrintable(intact.out);

    QFile file(pdf);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    QByteArray bytes = file.readAll();
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x01);
    file.seek(0);
    file.write(bytes);
    file.close();
    const CliRun changed = runCli({QStringLiteral("verify"), pdf, QStringLiteral("--lang"), QStringLiteral("fr")});
    EXPECT_EQ(changed.exitCode, 8);
    EXPECT_TRUE(changed.out.startsWith(QStringLiteral("Le PDF a été modifié"))) << qPrintable(changed.out);

    const QString export_ = dir.filePath(QStringLiteral("WhatsApp Chat - Louis.txt"));
    writeFile(export_, sampleWhatsAppExport().toUtf8());
    const CliRun fromExport = runCli({QStringLiteral("chat-pdf"), QStringLiteral("--export"), export_,
                                      QStringLiteral("-o"), dir.filePath(QStringLiteral("Louis.pdf"))});
    EXPECT_EQ(fromExport.exitCode, 0) << qPrintable(fromExport.err);
    EXPECT_EQ(runCli({QStringLiteral("verify"), dir.filePath(QStringLiteral("Louis.pdf"))}).exitCode, 0);
    const CliRun json = runCli({QStringLiteral("verify"), pdf, QStringLiteral("--json")});
    EXPECT_EQ(json.exitCode, 8);
    EXPECT_EQ(QJsonDocument::fromJson(json.out.toUtf8()).object().value(QStringLiteral("result")).toString(),
              QStringLiteral("modified"));
    EXPECT_EQ(runCli({QStringLiteral("verify"), dir.filePath(QStringLiteral("nothing.pdf"))}).exitCode, 6);
}

TEST(ChatsCommand, PdfOutputNeverReplacesAFileUnlessForcedNorItsOwnSource)
{
    QTemporaryDir dir;
    const QString export_ = dir.filePath(QStringLiteral("chat.txt"));
    writeFile(export_, sampleWhatsAppExport().toUtf8());
    const auto pdf = [&](const QString& output, bool force = false) {
        QStringList arguments{
            QStringLiteral("chat-pdf"), QStringLiteral("--export"), export_, QStringLiteral("-o"), output,
            QStringLiteral("--lang"),   QStringLiteral("en")};
        if (force)
            arguments << QStringLiteral("--force");
        return runCli(arguments);
    };
    const auto contents = [](const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };

    // Its own source, or a name whose side file is the source: refused, the source untouched.
    const QByteArray source = contents(export_);
    EXPECT_EQ(pdf(export_).exitCode, 3);
    EXPECT_EQ(pdf(export_, true).exitCode, 3);
    const QString sideNamed = dir.filePath(QStringLiteral("chat.empreinte.txt"));
    QFile::rename(export_, sideNamed);
    const QString movedExport = sideNamed;
    QStringList arguments{QStringLiteral("chat-pdf"),
                          QStringLiteral("--export"),
                          movedExport,
                          QStringLiteral("-o"),
                          dir.filePath(QStringLiteral("chat.pdf")),
                          QStringLiteral("--force")};
    EXPECT_EQ(runCli(arguments).exitCode, 3);
    QFile::rename(sideNamed, export_);
    EXPECT_EQ(contents(export_), source);

    // A file already there is kept; the PDF takes a free name, and its side file follows it.
    const QString taken = dir.filePath(QStringLiteral("Louis.pdf"));
    writeFile(taken, "someone else's file");
    const CliRun second = pdf(taken);
    EXPECT_EQ(second.exitCode, 0) << qPrintable(second.err);
    EXPECT_TRUE(second.out.startsWith(dir.filePath(QStringLiteral("Louis (2).pdf")))) << qPrintable(second.out);
    EXPECT_EQ(contents(taken), QByteArray("someone else's file"));
    EXPECT_TRUE(contents(dir.filePath(QStringLiteral("Louis (2).empreinte.txt"))).contains("Louis (2).pdf"));

    // A link at the output is never followed; --force replaces the name itself.
    const QString target = dir.filePath(QStringLiteral("precious.txt"));
    writeFile(target, "precious");
    const QString link = dir.filePath(QStringLiteral("link.pdf"));
    ASSERT_TRUE(QFile::link(target, link));
    EXPECT_EQ(pdf(link).exitCode, 0);
    EXPECT_EQ(contents(target), QByteArray("precious"));
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(QStringLiteral("link (2).pdf"))));
    EXPECT_EQ(pdf(link, true).exitCode, 0);
    EXPECT_EQ(contents(target), QByteArray("precious"));
    EXPECT_FALSE(QFileInfo(link).isSymLink());
    EXPECT_TRUE(contents(link).startsWith("%PDF"));
    EXPECT_TRUE(contents(taken) == QByteArray("someone else's file"));
    EXPECT_EQ(pdf(taken, true).exitCode, 0);
    EXPECT_TRUE(contents(taken).startsWith("%PDF"));
}

namespace {

QJsonArray messagesOf(const CliRun& run)
{
    return QJsonDocument::fromJson(run.out.toUtf8()).object().value(QStringLiteral("messages")).toArray();
}

} // namespace

// Telegram's export, WhatsApp's zip with a photo, and pasted text on the standard input; each with a
// period and an owner, and each mistake in those told with its own exit code.
TEST(ChatsCommand, ExportsPastedTextPeriodsAndOwner)
{
    QTemporaryDir dir;
    const QString telegram = dir.filePath(QStringLiteral("result.json"));
    writeFile(telegram, R"({"name": "Ana", "type": "personal_chat", "id": 7, "messages": [
        {"id": 1, "type": "message", "date": "2024-01-01T10:00:00", "date_unixtime": "1704103200", "from": "Ana", "from_id": "user1", "text": "Bonne année"},
        {"id": 2, "type": "message", "date": "2024-01-02T10:00:00", "date_unixtime": "1704189600", "from": "Zoé", "from_id": "user2", "text": ["Merci ", {"type": "bold", "text": "toi"}]},
        {"id": 3, "type": "message", "date": "2024-01-03T10:00:00", "date_unixtime": "1704276000", "from": "Ana", "from_id": "user1", "text": "On se voit ?"}]})");
    const auto chat = [&](const QStringList& more) {
        return runCli(
            QStringList{QStringLiteral("chat"), telegram, QStringLiteral("--format"), QStringLiteral("json")} + more);
    };

    const CliRun listed = runCli({QStringLiteral("chats"), telegram, QStringLiteral("--json")});
    ASSERT_EQ(listed.exitCode, 0) << qPrintable(listed.err);
    const QJsonArray chats = QJsonDocument::fromJson(listed.out.toUtf8()).array();
    ASSERT_EQ(chats.size(), 1);
    EXPECT_EQ(chats[0].toObject().value(QStringLiteral("title")).toString(), QStringLiteral("Telegram : Ana"));
    EXPECT_EQ(chats[0].toObject().value(QStringLiteral("count")).toInt(), 3);

    // One day, both ends included; the number may be left out when the file holds one conversation.
    const CliRun day = chat(
        {QStringLiteral("--from"), QStringLiteral("2024-01-02"), QStringLiteral("--to"), QStringLiteral("2024-01-02")});
    ASSERT_EQ(day.exitCode, 0) << qPrintable(day.err);
    ASSERT_EQ(messagesOf(day).size(), 1);
    EXPECT_EQ(messagesOf(day)[0].toObject().value(QStringLiteral("text")).toString(), QStringLiteral("Merci toi"));
    const CliRun counted = runCli({QStringLiteral("chats"), telegram, QStringLiteral("--from"),
                                   QStringLiteral("2024-01-02"), QStringLiteral("--json")});
    EXPECT_EQ(
        QJsonDocument::fromJson(counted.out.toUtf8()).array()[0].toObject().value(QStringLiteral("count")).toInt(), 2);

    const CliRun mine = chat({QStringLiteral("1"), QStringLiteral("--owner"), QStringLiteral("Zoé")});
    ASSERT_EQ(mine.exitCode, 0) << qPrintable(mine.err);
    EXPECT_EQ(messagesOf(mine)[1].toObject().value(QStringLiteral("sender")).toString(), QStringLiteral("Moi"));
    EXPECT_TRUE(messagesOf(mine)[1].toObject().value(QStringLiteral("outgoing")).toBool());
    EXPECT_FALSE(messagesOf(mine)[0].toObject().value(QStringLiteral("outgoing")).toBool());

    const CliRun nobody = chat({QStringLiteral("--owner"), QStringLiteral("Louis")});
    EXPECT_EQ(nobody.exitCode, 3);
    EXPECT_TRUE(nobody.err.contains(QStringLiteral("Noms possibles : Ana, Zoé."))) << qPrintable(nobody.err);
    EXPECT_EQ(chat({QStringLiteral("--from"), QStringLiteral("2024-13-01")}).exitCode, 3);
    EXPECT_EQ(chat({QStringLiteral("--from"), QStringLiteral("2024-02-01"), QStringLiteral("--to"),
                    QStringLiteral("2024-01-01")})
                  .exitCode,
              3);
    const CliRun empty = chat({QStringLiteral("--from"), QStringLiteral("2025-01-01")});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_EQ(empty.err.trimmed(), QStringLiteral("Aucun message trouvé (vérifie la période choisie)."));

    // WhatsApp's zip, made by the zip tool, with a photo its message names: the PDF holds the picture.
    const QString zip = QStandardPaths::findExecutable(QStringLiteral("zip"));
    const QString pdfimages = QStandardPaths::findExecutable(QStringLiteral("pdfimages"));
    if (!zip.isEmpty() && !pdfimages.isEmpty()) {
        const QString folder = dir.filePath(QStringLiteral("export"));
        QDir().mkpath(folder);
        writeFile(folder + QStringLiteral("/_chat.txt"),
                  "[05/01/2023, 12:34:56] Ana: Regarde\n"
                  "[05/01/2023, 12:35:00] Ana: \xE2\x80\x8E<attached: 00000012-PHOTO-2023-01-05.jpg>\n");
        QImage photo(64, 48, QImage::Format_RGB32);
        photo.fill(Qt::darkCyan);
        ASSERT_TRUE(photo.save(folder + QStringLiteral("/00000012-PHOTO-2023-01-05.jpg"), "JPEG"));
        const QString archive = dir.filePath(QStringLiteral("WhatsApp Chat - Ana.zip"));
        QProcess zipping;
        zipping.setWorkingDirectory(folder);
        zipping.start(zip, {QStringLiteral("-q"), archive, QStringLiteral("_chat.txt"),
                            QStringLiteral("00000012-PHOTO-2023-01-05.jpg")});
        ASSERT_TRUE(zipping.waitForFinished(30'000));
        ASSERT_EQ(zipping.exitCode(), 0);

        const QString pdf = dir.filePath(QStringLiteral("Ana.pdf"));
        const CliRun made = runCli({QStringLiteral("chat-pdf"), archive, QStringLiteral("-o"), pdf});
        ASSERT_EQ(made.exitCode, 0) << qPrintable(made.err);
        EXPECT_EQ(runCli({QStringLiteral("verify"), pdf}).exitCode, 0);
        QProcess images;
        images.start(pdfimages, {QStringLiteral("-list"), pdf});
        ASSERT_TRUE(images.waitForFinished(30'000));
        const QStringList rows = QString::fromUtf8(images.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        EXPECT_EQ(rows.size(), 3) << "a heading, a rule and one picture: " << rows.join(u'\n').toStdString();
    }

    // Pasted text, from the standard input.
    const CliRun pasted =
        runCli({QStringLiteral("chat"), QStringLiteral("-"), QStringLiteral("--source"), QStringLiteral("pasted"),
                QStringLiteral("--format"), QStringLiteral("json"), QStringLiteral("--owner"), QStringLiteral("Ana")},
               {}, QByteArray("Ana : on part à 10 h ?\nBruno : oui\net je prends le pain\n"));
    ASSERT_EQ(pasted.exitCode, 0) << qPrintable(pasted.err);
    const QJsonArray lines = messagesOf(pasted);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines[0].toObject().value(QStringLiteral("sender")).toString(), QStringLiteral("Moi"));
    EXPECT_EQ(lines[1].toObject().value(QStringLiteral("text")).toString(),
              QStringLiteral("oui\net je prends le pain"));
    EXPECT_EQ(
        runCli({QStringLiteral("chats"), QStringLiteral("-"), QStringLiteral("--source"), QStringLiteral("pasted")}, {},
               QByteArray(" \n "))
            .exitCode,
        1);
}

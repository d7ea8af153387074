#include "models/conversations/ConversationsModel.h"

#include "engines/conversations/ConversationPdf.h"
#include "ground/ListRoles.h"
#include "l10n/LanguageStore.h"
#include "models/conversations/SavedConversations.h"
#include "support/ChatFixtures.h"
#include "support/FakeServices.h"
#include "support/PdfTools.h"
#include "support/SampleBackup.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

constexpr int timeoutMs = 60'000;

void write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// SHA-256 as the system's own tool computes it, when it is there.
QString sha256sum(const QString& path)
{
    const QString tool = QStandardPaths::findExecutable(QStringLiteral("sha256sum"));
    if (tool.isEmpty())
        return QString::fromLatin1(QCryptographicHash::hash(readAll(path), QCryptographicHash::Sha256).toHex());
    QProcess process;
    process.start(tool, {path});
    process.waitForFinished(30'000);
    return QString::fromLatin1(process.readAllStandardOutput()).section(u' ', 0, 0);
}

class ConversationsModelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
        m_model = std::make_unique<ConversationsModel>(m_fakes.services());
        m_model->setFolder(m_out.filePath(QStringLiteral("Conversations")));
    }
    void TearDown() override
    {
        m_model.reset();
        LanguageStore::shared().setLanguageForThisRun(m_saved);
    }

    bool idle()
    {
        return QTest::qWaitFor([this] { return m_model->busy().isEmpty() && !m_model->chatsLoading(); }, timeoutMs);
    }
    // Saves the chosen conversation and returns the PDF, after checking what the page says of it.
    QString saveChosen()
    {
        m_model->saveChosen();
        EXPECT_TRUE(idle());
        EXPECT_EQ(m_model->errorNotice(), QString());
        const QString pdf = m_model->lastPdf();
        EXPECT_TRUE(m_model->notice().startsWith(QStringLiteral("PDF créé : ") + QFileInfo(pdf).fileName()));
        EXPECT_EQ(ConversationPDF::verify(pdf), ConversationPDF::Verification::Intact);
        EXPECT_EQ(m_model->pdfFingerprint(), sha256sum(pdf)) << "the fingerprint shown is the file's own";
        return pdf;
    }

    QTemporaryDir m_in;
    QTemporaryDir m_out;
    FakeServices m_fakes;
    std::unique_ptr<ConversationsModel> m_model;
    AppLanguage m_saved = AppLanguage::Auto;
};

// From each kind of file, and from pasted text, to a fingerprinted PDF; a broken file says why.
TEST_F(ConversationsModelTest, EveryFileSourceEndsInAFingerprintedPdf)
{
    EXPECT_FALSE(ConversationsModel::availableSources().contains(ConversationsModel::NoSource));
#ifndef Q_OS_MACOS
    EXPECT_FALSE(ConversationsModel::availableSources().contains(ConversationsModel::ThisComputer));
#endif

    const QString telegram = m_in.filePath(QStringLiteral("result.json"));
    write(telegram, R"({"name": "Ana", "type": "personal_chat", "messages": [
        {"id": 1, "type": "message", "date_unixtime": "1704103200", "from": "Ana", "text": "Bonne année"},
        {"id": 2, "type": "message", "date_unixtime": "1704189600", "from": "Zoé", "text": "Merci"}]})");
    const QString whatsApp = m_in.filePath(QStringLiteral("WhatsApp Chat - Louis.txt"));
    write(whatsApp, sampleWhatsAppExport().toUtf8());
    const QString sms = m_in.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);

    const struct
    {
        ConversationsModel::Source source;
        QString file;
        QString title;
    } files[] = {
        {ConversationsModel::TelegramExport, telegram, QStringLiteral("Telegram : Ana")},
        {ConversationsModel::WhatsAppExport, whatsApp, QStringLiteral("WhatsApp : Camille / Louis")},
        {ConversationsModel::DatabaseFile, sms, QStringLiteral("Famille")},
    };
    for (const auto& [source, file, title] : files) {
        SCOPED_TRACE(file.toStdString());
        m_model->openFile(source, file);
        EXPECT_EQ(m_model->source(), source);
        EXPECT_EQ(m_model->sourceName(), QFileInfo(file).fileName());
        ASSERT_TRUE(idle());
        ASSERT_GE(m_model->chatList().rowCount(), 1) << m_model->chatsMessage().toStdString();
        if (m_model->chosenChat() < 0) { // a database of several conversations: one is chosen
            for (const MessagesChatInfo& chat : m_model->chatList().chats()) {
                if (title.endsWith(chat.title))
                    m_model->choose(chat.id);
            }
        }
        ASSERT_TRUE(idle());
        EXPECT_FALSE(m_model->preview().isEmpty());
        const QString pdf = saveChosen();
        EXPECT_TRUE(pdfText(pdf).contains(title)) << pdfText(pdf).left(200).toStdString();
        EXPECT_TRUE(pdf.startsWith(m_model->folder() + u'/'));
    }

    m_model->openPasted(QStringLiteral("Ana : on part à 10 h ?\nBruno : oui"));
    EXPECT_EQ(m_model->sourceName(), QStringLiteral("Texte collé"));
    ASSERT_TRUE(idle());
    EXPECT_EQ(m_model->senders(), (QStringList{QStringLiteral("Ana"), QStringLiteral("Bruno")}));
    EXPECT_TRUE(pdfText(saveChosen()).contains(QStringLiteral("Texte collé")));

    // Saved, newest first.
    ASSERT_TRUE(QTest::qWaitFor([this] { return m_model->saved().rowCount() == 4; }, timeoutMs));

    // A source chosen while another is still read: the first one's listing never shows, the second loads.
    m_model->openFile(ConversationsModel::TelegramExport, telegram);
    m_model->openPasted(QStringLiteral("Chloé : au revoir"));
    ASSERT_TRUE(idle());
    ASSERT_EQ(m_model->chatList().rowCount(), 1);
    EXPECT_EQ(m_model->source(), ConversationsModel::Pasted);
    EXPECT_EQ(m_model->senders(), QStringList{QStringLiteral("Chloé")});

    const QString broken = m_in.filePath(QStringLiteral("broken.json"));
    write(broken, "{\"name\": \"x\", \"messages\": [");
    m_model->openFile(ConversationsModel::TelegramExport, broken);
    ASSERT_TRUE(idle());
    EXPECT_EQ(m_model->chatList().rowCount(), 0);
    EXPECT_EQ(m_model->chatsMessage(), QStringLiteral("Impossible de lire ce fichier ou cette base de messages."));
}

// A WhatsApp zip made by the zip tool: the photo its message names is drawn in the PDF the page saves,
// as pdfimages, an independent reader, finds.
TEST_F(ConversationsModelTest, AZipExportsPhotoIsDrawnInThePdf)
{
    const QString zip = QStandardPaths::findExecutable(QStringLiteral("zip"));
    const QString pdfimages = QStandardPaths::findExecutable(QStringLiteral("pdfimages"));
    if (zip.isEmpty() || pdfimages.isEmpty())
        GTEST_SKIP() << "zip and pdfimages are installed by tools/install-deps.sh";
    write(m_in.filePath(QStringLiteral("_chat.txt")),
          "[05/01/2023, 12:34:56] Ana: Regarde\n"
          "[05/01/2023, 12:35:00] Ana: \xE2\x80\x8E<attached: 00000012-PHOTO-2023-01-05.jpg>\n");
    QImage photo(80, 60, QImage::Format_RGB32);
    photo.fill(Qt::darkMagenta);
    ASSERT_TRUE(photo.save(m_in.filePath(QStringLiteral("00000012-PHOTO-2023-01-05.jpg")), "JPEG"));
    const QString archive = m_in.filePath(QStringLiteral("WhatsApp Chat - Ana.zip"));
    QProcess zipping;
    zipping.setWorkingDirectory(m_in.path());
    zipping.start(zip, {QStringLiteral("-q"), archive, QStringLiteral("_chat.txt"),
                        QStringLiteral("00000012-PHOTO-2023-01-05.jpg")});
    ASSERT_TRUE(zipping.waitForFinished(30'000));
    ASSERT_EQ(zipping.exitCode(), 0);

    m_model->openFile(ConversationsModel::WhatsAppExport, archive);
    ASSERT_TRUE(idle());
    ASSERT_EQ(m_model->chatList().rowCount(), 1) << m_model->chatsMessage().toStdString();
    const QString pdf = saveChosen();
    QProcess images;
    images.start(pdfimages, {QStringLiteral("-list"), pdf});
    ASSERT_TRUE(images.waitForFinished(30'000));
    const QStringList rows = QString::fromUtf8(images.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(rows.size(), 3) << rows.join(u'\n').toStdString(); // a heading, a rule, one picture
    EXPECT_TRUE(rows[2].contains(QStringLiteral(" 80 ")) && rows[2].contains(QStringLiteral(" 60 ")))
        << rows[2].toStdString();
}

TEST_F(ConversationsModelTest, OwnerPeriodAndTitleShapeThePreviewAndThePdf)
{
    m_model->openPasted(QStringLiteral("[12/03/2024 10:04] Ana : bonjour\n[13/03/2024 11:00] Bruno : salut\n"));
    ASSERT_TRUE(idle());
    EXPECT_EQ(m_model->title(), QStringLiteral("Ana / Bruno"));
    EXPECT_TRUE(m_model->preview().contains(QStringLiteral("Ana : bonjour"))) << m_model->preview().toStdString();

    m_model->setOwner(QStringLiteral("Ana"));
    EXPECT_TRUE(m_model->preview().contains(QStringLiteral("Moi : bonjour")));
    m_model->setOwner(QStringLiteral("Personne")); // not a sender: refused
    EXPECT_EQ(m_model->owner(), QStringLiteral("Ana"));

    m_model->setPeriod(ConversationsModel::Days, QDate(2024, 3, 13), QDate(2024, 3, 13));
    EXPECT_FALSE(m_model->preview().contains(QStringLiteral("bonjour")));
    EXPECT_TRUE(m_model->preview().contains(QStringLiteral("Bruno : salut")));
    // Days given the wrong way round are put back in order.
    m_model->setPeriod(ConversationsModel::Days, QDate(2024, 3, 13), QDate(2024, 3, 12));
    EXPECT_EQ(m_model->periodFrom(), QDate(2024, 3, 12));

    m_model->setTitle(QStringLiteral("Rendez-vous / samedi"));
    const QString pdf = saveChosen();
    EXPECT_EQ(QFileInfo(pdf).fileName(), QStringLiteral("Rendez-vous samedi.pdf"));
    EXPECT_TRUE(pdfText(pdf).contains(QStringLiteral("Moi")));

    // A period that keeps nothing says so, and writes nothing.
    m_model->setPeriod(ConversationsModel::Days, QDate(2025, 1, 1), QDate(2025, 1, 31));
    EXPECT_EQ(m_model->preview(), QStringLiteral("Aucun message trouvé (vérifie la période choisie)."));
    m_model->saveChosen();
    ASSERT_TRUE(idle());
    EXPECT_EQ(m_model->errorNotice(), QStringLiteral("Aucun message trouvé (vérifie la période choisie)."));
    EXPECT_EQ(QDir(m_model->folder()).entryList({QStringLiteral("*.pdf")}).size(), 1);

    // A long conversation is previewed in part.
    m_model->setPeriod(ConversationsModel::Everything);
    QString many;
    for (int i = 0; i < ConversationsModel::previewLimit + 5; ++i)
        many += QStringLiteral("Ana : ligne %1\n").arg(i);
    m_model->openPasted(many);
    ASSERT_TRUE(idle());
    EXPECT_TRUE(m_model->preview().endsWith(QStringLiteral("… et 5 messages de plus dans le PDF.")))
        << m_model->preview().right(80).toStdString();
}

// Ticked conversations are saved one after another, and the saved list tells each PDF's true state.
TEST_F(ConversationsModelTest, TickedConversationsAndTheStateOfEachSavedPdf)
{
    const QString sms = m_in.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    m_model->openFile(ConversationsModel::DatabaseFile, sms);
    ASSERT_TRUE(idle());
    ASSERT_EQ(m_model->chatList().rowCount(), 2);
    for (int row = 0; row < 2; ++row)
        EXPECT_TRUE(m_model->chatList().setData(m_model->chatList().index(row), Qt::Checked, Qt::CheckStateRole));
    m_model->chatList().setQuery(QStringLiteral("Famille")); // a search keeps the ticks
    EXPECT_EQ(m_model->chatList().ticked().size(), 2);
    m_model->saveTicked();
    ASSERT_TRUE(idle());
    EXPECT_TRUE(m_model->notice().startsWith(QStringLiteral("2 conversations enregistrées en PDF")))
        << m_model->notice().toStdString();
    EXPECT_EQ(m_model->lastPdf(), m_model->folder());

    SavedConversations& saved = m_model->saved();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !saved.isScanning() && saved.rowCount() == 2; }, timeoutMs));
    QStringList pdfs;
    for (const auto& item : saved.items())
        pdfs << item.pdf;
    for (const QString& pdf : std::as_const(pdfs))
        EXPECT_EQ(saved.data(saved.index(int(pdfs.indexOf(pdf))), SavedConversations::StateRole).toInt(),
                  int(ConversationPDF::Verification::Intact));

    // One PDF edited, the other's side file gone.
    QFile edited(pdfs[0]);
    ASSERT_TRUE(edited.open(QIODevice::Append));
    edited.write("\n% edited\n");
    edited.close();
    ASSERT_TRUE(QFile::remove(ConversationPDF::sideFilePath(pdfs[1])));
    saved.refresh();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !saved.isScanning(); }, timeoutMs));
    const auto stateOf = [&](const QString& pdf) {
        for (const auto& item : saved.items()) {
            if (item.pdf == pdf)
                return item.state;
        }
        return ConversationPDF::Verification::PdfUnreadable;
    };
    EXPECT_EQ(stateOf(pdfs[0]), ConversationPDF::Verification::Modified);
    EXPECT_EQ(stateOf(pdfs[1]), ConversationPDF::Verification::NoSideFile);
    EXPECT_TRUE(saved.data(saved.index(0), ListRole::Detail).toString().contains(QStringLiteral(" · ")));

    // To the trash, with its side file; a trash that refuses leaves both and says so.
    const int row = int(std::find_if(saved.items().cbegin(), saved.items().cend(),
                                     [&](const auto& item) { return item.pdf == pdfs[0]; }) -
                        saved.items().cbegin());
    m_fakes.trash.refuse = true;
    saved.moveToTrash(row);
    EXPECT_TRUE(QFileInfo::exists(pdfs[0]));
    EXPECT_TRUE(m_model->errorNotice().contains(QStringLiteral("corbeille"))) << m_model->errorNotice().toStdString();
    m_fakes.trash.refuse = false;
    saved.moveToTrash(row);
    EXPECT_EQ(m_fakes.trash.trashed, (QStringList{pdfs[0], ConversationPDF::sideFilePath(pdfs[0])}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !saved.isScanning() && saved.rowCount() == 1; }, timeoutMs));
}

TEST_F(ConversationsModelTest, ABackupsConversationsAfterItsPassword)
{
    QTemporaryDir root;
    const QString sms = m_in.filePath(QStringLiteral("sms.db"));
    writeSampleMessagesDatabase(sms);
    SampleBackup sample;
    sample.password = QStringLiteral("secret");
    sample.files = {{QStringLiteral("HomeDomain"), QStringLiteral("Library/SMS/sms.db"), readAll(sms)}};
    sample.write(root.path());
    qputenv("NUVREL_BACKUP_ROOT", QFile::encodeName(root.path()));
    m_model->scanBackups();
    ASSERT_TRUE(QTest::qWaitFor([this] { return !m_model->backupsScanning(); }, timeoutMs));
    qunsetenv("NUVREL_BACKUP_ROOT");
    ASSERT_EQ(m_model->backups().size(), 1);

    m_model->openBackup(0);
    EXPECT_EQ(m_model->sourceName(), sample.deviceName);
    BackupSession* session = m_model->backupSession();
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->phase(), BackupSession::Phase::AskPassword);
    session->setPassword(QStringLiteral("secret"));
    session->open();
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_model->chatList().rowCount() == 2; }, timeoutMs))
        << m_model->chatsMessage().toStdString();
    m_model->choose(m_model->chatList().chats().constFirst().id);
    ASSERT_TRUE(idle());
    EXPECT_TRUE(pdfText(saveChosen()).contains(QStringLiteral("Messages (sauvegarde iPhone)")));

    // The backup holds no WhatsApp store: said, not failed.
    m_model->setBackupStore(int(BackupChatStore::WhatsApp));
    ASSERT_TRUE(idle());
    EXPECT_EQ(m_model->chatsMessage(), QStringLiteral("Cette sauvegarde ne contient pas ces conversations."));
}

} // namespace

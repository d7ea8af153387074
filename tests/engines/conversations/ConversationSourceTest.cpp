// Conversations through the one source interface, whatever they come from, and the check that a
// conversation PDF is still the file that was made.

#include "engines/conversations/ConversationSource.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationPdf.h"
#include "support/ChatFixtures.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

void write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// The digest as another program computes it.
QString sha256sum(const QString& path)
{
    QProcess process;
    process.start(QStringLiteral("sha256sum"), {path});
    process.waitForFinished();
    return QString::fromLatin1(process.readAllStandardOutput().left(64));
}

} // namespace

TEST(ConversationSource, EverySourceListsAndReadsThroughOneInterface)
{
    QTemporaryDir folder;
    const QString messages = folder.filePath(QStringLiteral("sms.db"));
    const QString whatsApp = folder.filePath(QStringLiteral("ChatStorage.sqlite"));
    const QString exported = folder.filePath(QStringLiteral("WhatsApp Chat - Louis.txt"));
    writeSampleMessagesDatabase(messages);
    writeSampleWhatsAppDatabase(whatsApp);
    write(exported, sampleWhatsAppExport().toUtf8());

    for (const auto& [file, kind] :
         {std::pair{messages, ConvSource::Messages}, std::pair{whatsApp, ConvSource::WhatsApp},
          std::pair{exported, ConvSource::WhatsApp}}) {
        const std::unique_ptr<ConversationSource> source = ConversationSource::forFile(file);
        SCOPED_TRACE(file.toStdString());
        EXPECT_EQ(source->kind(), kind);
        const QList<MessagesChatInfo> chats = source->listChats();
        ASSERT_FALSE(chats.isEmpty());
        const ChatTranscript transcript = source->transcript(chats.first());
        EXPECT_EQ(transcript.messages.size(), chats.first().count);
    }

    // An export is one conversation; asking for another is asking for nothing.
    const auto exportSource = ConversationSource::whatsAppExport(exported);
    ASSERT_EQ(exportSource->listChats().size(), 1);
    EXPECT_FALSE(exportSource->listChats().first().title.isEmpty());
    MessagesChatInfo other = exportSource->listChats().first();
    other.id = 2;
    EXPECT_THROW(exportSource->transcript(other), ConversationError);

    // A missing export says so, without sending the user to the privacy settings; garbage is unreadable.
    try {
        ConversationSource::whatsAppExport(folder.filePath(QStringLiteral("nowhere.txt")))->listChats();
        FAIL();
    } catch (const ConversationError& error) {
        EXPECT_EQ(error.kind(), ConversationError::Kind::File);
        ASSERT_TRUE(error.fileError());
        EXPECT_EQ(error.fileError()->kind(), SystemErrorKind::Missing);
    }
    write(folder.filePath(QStringLiteral("noise.txt")), QByteArray(4096, '\x01'));
    EXPECT_THROW(ConversationSource::whatsAppExport(folder.filePath(QStringLiteral("noise.txt")))->listChats(),
                 ConversationError);
}

// A database source copies its database once: every conversation of a batch is read from that one
// private copy, which goes with the source. Reading on after the original is gone shows it.
TEST(ConversationSource, ADatabaseIsCopiedOnceForAllItsConversations)
{
    QTemporaryDir folder;
    for (const bool whatsApp : {false, true}) {
        SCOPED_TRACE(whatsApp ? "WhatsApp" : "Messages");
        const QString file =
            folder.filePath(whatsApp ? QStringLiteral("ChatStorage.sqlite") : QStringLiteral("chat.db"));
        if (whatsApp)
            writeSampleWhatsAppDatabase(file);
        else
            writeLargeMessagesDatabase(file, 400, 40, 100);
        const std::unique_ptr<ConversationSource> source = ConversationSource::forFile(file);
        const QList<MessagesChatInfo> chats = source->listChats();
        ASSERT_FALSE(chats.isEmpty());
        ASSERT_TRUE(QFile::remove(file));
        qint64 read = 0;
        for (const MessagesChatInfo& chat : chats)
            read += source->transcript(chat).messages.size();
        EXPECT_GT(read, 0);
        if (!whatsApp) {
            EXPECT_EQ(source->messageCount(), 400);
        }
        // A new source has no copy yet, and the original is gone: it says so.
        EXPECT_THROW(ConversationSource::forFile(file)->listChats(), ConversationError);
    }
    // Other sources have no message table to count.
    EXPECT_EQ(ConversationSource::pastedText(QStringLiteral("[12/03/2024 10:04] Ana : Bonjour"))->messageCount(), -1);
}

// Two threads reading one source at once take turns on its copy.
TEST(ConversationSource, OneCopyServesSeveralThreads)
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("chat.db"));
    writeLargeMessagesDatabase(file, 2'000, 20, 500);
    const std::shared_ptr<const ConversationSource> source = ConversationSource::messagesDatabase(file);
    const QList<MessagesChatInfo> chats = source->listChats();
    std::atomic<qint64> read = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (const MessagesChatInfo& chat : chats)
                read += source->transcript(chat).messages.size();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(read, 4 * 2'000);
}

TEST(ConversationPdf, VerificationComparesWithTheRecordedFingerprint)
{
    QTemporaryDir folder;
    const QString pdf = folder.filePath(QStringLiteral("Famille.pdf"));
    write(pdf, QByteArray("%PDF-1.4 a conversation"));
    EXPECT_EQ(ConversationPDF::verify(pdf), ConversationPDF::Verification::NoSideFile);

    // The side file in another language still gives the PDF's digest first.
    const QString side = ConversationPDF::sideFilePath(pdf);
    EXPECT_EQ(side, folder.filePath(QStringLiteral("Famille.empreinte.txt")));
    write(side, QString(QStringLiteral("PDF fingerprint: ") + sha256sum(pdf) + QStringLiteral("\nContent: ") +
                        QString(64, u'0'))
                    .toUtf8());
    EXPECT_EQ(ConversationPDF::verify(pdf), ConversationPDF::Verification::Intact);

    // Written in capitals by another tool, it is the same fingerprint.
    write(side, sha256sum(pdf).toUpper().toLatin1());
    EXPECT_EQ(ConversationPDF::verify(pdf), ConversationPDF::Verification::Intact);

    write(pdf, QByteArray("%PDF-1.4 a conversation, edited"));
    EXPECT_EQ(ConversationPDF::verify(pdf), ConversationPDF::Verification::Modified);
    // A side file that holds no fingerprint says nothing about the PDF: empty, garbage, UTF-16.
    for (const QByteArray& unreadable : {QByteArray(), QByteArray("no digest here"), QByteArray(4096, '\xff'),
                                         QByteArray(reinterpret_cast<const char*>(sha256sum(pdf).utf16()), 128)}) {
        write(side, unreadable);
        EXPECT_EQ(ConversationPDF::verify(pdf), ConversationPDF::Verification::SideFileUnreadable);
    }
    EXPECT_EQ(ConversationPDF::verify(folder.filePath(QStringLiteral("missing.pdf"))),
              ConversationPDF::Verification::PdfUnreadable);
}

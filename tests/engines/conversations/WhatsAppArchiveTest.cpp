#include "engines/conversations/WhatsAppArchive.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationSource.h"
#include "ground/WorkFolder.h"
#include "l10n/LanguageStore.h"
#include "support/FolderSnapshot.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <zip.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

// Archives made with libzip itself, which writes any name asked, "../" ones included.
struct ZipEntry
{
    QByteArray name;
    QByteArray data;
};

void writeZip(const QString& path, const QList<ZipEntry>& entries)
{
    int error = 0;
    zip_t* zip = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    ASSERT_NE(zip, nullptr);
    for (const ZipEntry& entry : entries) {
        zip_source_t* source = zip_source_buffer(zip, entry.data.constData(), zip_uint64_t(entry.data.size()), 0);
        ASSERT_NE(source, nullptr);
        ASSERT_GE(zip_file_add(zip, entry.name.constData(), source, ZIP_FL_ENC_UTF_8), 0);
    }
    ASSERT_EQ(zip_close(zip), 0);
}

// Bytes that do not compress, as a photo's do not.
QByteArray noise(int size, quint32 seed = 1)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes) {
        seed = seed * 1'664'525u + 1'013'904'223u;
        byte = char(seed >> 24);
    }
    return bytes;
}

QStringList workFolders()
{
    return QDir(WorkFolder::root() + QStringLiteral("/exports")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

class WhatsAppArchiveTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    static ConversationError::Kind failure(const QString& file)
    {
        try {
            WhatsAppArchive archive(file);
            archive.listChats();
        } catch (const ConversationError& error) {
            return error.kind();
        }
        ADD_FAILURE() << "read without failure: " << file.toStdString();
        return ConversationError::Kind::Empty;
    }

    QTemporaryDir m_dir;
    AppLanguage m_saved = AppLanguage::Auto;
};

TEST_F(WhatsAppArchiveTest, PhotosNamedByMessagesBecomeImagesAndTheRestStayLabels)
{
    const QByteArray chat =
        "[05/01/2023, 12:34:56] Ana: Regarde\n"
        "[05/01/2023, 12:35:00] Ana: \xE2\x80\x8E<attached: 00000012-PHOTO-2023-01-05-12-35-00.jpg>\n"
        "[05/01/2023, 12:36:00] Bruno: \xE2\x80\x8E<attached: 00000013-VIDEO-2023-01-05-12-36-00.mp4>\n"
        "[05/01/2023, 12:37:00] Bruno: \xE2\x80\x8E<attached: 00000014-PHOTO-absent.jpg>\n"
        "[05/01/2023, 12:38:00] Ana: evil.jpg et encore 00000012-PHOTO-2023-01-05-12-35-00.jpg\n";
    const QString file = m_dir.filePath(QStringLiteral("WhatsApp Chat - Ana.zip"));
    writeZip(file, {{"_chat.txt", chat},
                    {"00000012-PHOTO-2023-01-05-12-35-00.jpg", noise(3000)},
                    {"00000013-VIDEO-2023-01-05-12-36-00.mp4", noise(5000, 2)},
                    {"../../evil.jpg", "evil"},
                    {"notes.txt", "a second text file, not the chat"}});
    const QMap<QString, QByteArray> before = snapshot(m_dir.path());

    QStringList images;
    QString work;
    {
        const auto source = ConversationSource::forFile(file);
        const QList<MessagesChatInfo> chats = source->listChats();
        ASSERT_EQ(chats.size(), 1);
        EXPECT_EQ(chats[0].count, 5);
        const ChatTranscript transcript = source->transcript(chats[0]);
        EXPECT_EQ(transcript.title, QStringLiteral("WhatsApp : Ana / Bruno"));
        ASSERT_EQ(transcript.messages.size(), 5);
        // The note of a photo that shows goes; the others stay as they read.
        EXPECT_EQ(transcript.messages[1].text, QString());
        ASSERT_EQ(transcript.messages[1].images.size(), 1);
        EXPECT_EQ(QFileInfo(transcript.messages[1].images[0]).fileName(),
                  QStringLiteral("00000012-PHOTO-2023-01-05-12-35-00.jpg"));
        EXPECT_EQ(QFile(transcript.messages[1].images[0]).size(), 3000);
        EXPECT_TRUE(transcript.messages[2].images.isEmpty());
        EXPECT_TRUE(transcript.messages[2].text.contains(QStringLiteral("VIDEO")));
        EXPECT_TRUE(transcript.messages[3].images.isEmpty());
        EXPECT_TRUE(transcript.messages[3].text.contains(QStringLiteral("absent.jpg")));
        // A hostile "../../evil.jpg" is copied under a name of ours, inside the work folder.
        ASSERT_EQ(transcript.messages[4].images.size(), 2);
        EXPECT_EQ(transcript.messages[4].images[1], transcript.messages[1].images[0]) << "copied once";
        for (const ChatMessage& message : transcript.messages)
            images << message.images;
        work = QFileInfo(images.constFirst()).absolutePath().section(u'/', 0, -3);
        for (const QString& image : std::as_const(images))
            EXPECT_TRUE(image.startsWith(WorkFolder::root() + u'/')) << image.toStdString();
    }
    // Nothing was written beside the archive or above it, and the copies went with the source.
    EXPECT_EQ(snapshot(m_dir.path()), before);
    EXPECT_FALSE(QFileInfo::exists(QDir(m_dir.path()).filePath(QStringLiteral("../../evil.jpg"))));
    EXPECT_FALSE(QFileInfo::exists(work));

    // Android's layout, and a chat whose only text file is not called _chat.txt.
    const QString android = m_dir.filePath(QStringLiteral("android.zip"));
    writeZip(android,
             {{"WhatsApp Chat with Ana.txt", "05/01/2023, 12:34 - Ana: IMG-20230105-WA0001.jpg (fichier joint)\n"
                                             "05/01/2023, 12:35 - Ana: belle photo\n"},
              {"IMG-20230105-WA0001.jpg", noise(100)}});
    WhatsAppArchive archive(android);
    const ChatTranscript transcript = archive.transcript(archive.listChats().constFirst());
    ASSERT_EQ(transcript.messages.size(), 2);
    EXPECT_EQ(transcript.messages[0].images.size(), 1);
    EXPECT_EQ(transcript.messages[0].text, QString());
}

// Refused by what the archive announces, before a byte is unpacked: a zip bomb, an entry claiming more
// than the limit; and archives that are no export at all.
TEST_F(WhatsAppArchiveTest, BombsAndBrokenArchivesAreRefusedBeforeUnpacking)
{
    const QStringList foldersBefore = workFolders();

    const QString bomb = m_dir.filePath(QStringLiteral("bomb.zip"));
    writeZip(bomb,
             {{"_chat.txt", "[05/01/2023, 12:34:56] Ana: hi\n"}, {"zeros.jpg", QByteArray(20 * 1024 * 1024, '\0')}});
    ASSERT_LT(QFileInfo(bomb).size(), 1024 * 1024);
    EXPECT_EQ(failure(bomb), ConversationError::Kind::SuspectArchive);
    try {
        WhatsAppArchive(bomb).listChats();
    } catch (const ConversationError& error) {
        EXPECT_TRUE(error.message().contains(QStringLiteral("100 fois"))) << error.message().toStdString();
    }

    // A stored entry whose headers claim 3 GiB: both copies of its size patched alike.
    const QString huge = m_dir.filePath(QStringLiteral("huge.zip"));
    {
        int error = 0;
        zip_t* zip = zip_open(QFile::encodeName(huge).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
        ASSERT_NE(zip, nullptr);
        static const char data[] = "[05/01/2023, 12:34:56] Ana: hi\n";
        zip_source_t* source = zip_source_buffer(zip, data, sizeof data - 1, 0);
        const zip_int64_t index = zip_file_add(zip, "_chat.txt", source, 0);
        ASSERT_EQ(zip_set_file_compression(zip, zip_uint64_t(index), ZIP_CM_STORE, 0), 0);
        ASSERT_EQ(zip_close(zip), 0);
        QFile file(huge);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        QByteArray bytes = file.readAll();
        const QByteArray size(reinterpret_cast<const char*>("\x00\x00\x00\xC0"), 4); // 3 GiB, little-endian
        const qsizetype local = bytes.indexOf("PK\x03\x04");
        const qsizetype central = bytes.indexOf("PK\x01\x02");
        ASSERT_GE(local, 0);
        ASSERT_GT(central, local);
        bytes.replace(local + 22, 4, size);
        bytes.replace(central + 24, 4, size);
        file.seek(0);
        file.write(bytes);
    }
    EXPECT_EQ(failure(huge), ConversationError::Kind::TooLarge);

    const QString notZip = m_dir.filePath(QStringLiteral("export.zip"));
    QFile text(notZip);
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("[05/01/2023, 12:34:56] Ana: hi\n");
    text.close();
    EXPECT_EQ(failure(notZip), ConversationError::Kind::Unreadable);
    EXPECT_FALSE(WhatsAppArchive::looksLikeZip(notZip));

    const QString good = m_dir.filePath(QStringLiteral("good.zip"));
    writeZip(good, {{"_chat.txt", QByteArray("[05/01/2023, 12:34:56] Ana: hi\n").repeated(2000)}});
    EXPECT_TRUE(WhatsAppArchive::looksLikeZip(good));
    QFile cut(good);
    ASSERT_TRUE(cut.open(QIODevice::ReadWrite));
    ASSERT_TRUE(cut.resize(cut.size() / 2));
    cut.close();
    EXPECT_EQ(failure(good), ConversationError::Kind::Unreadable);

    const QString twoTexts = m_dir.filePath(QStringLiteral("two.zip"));
    writeZip(twoTexts, {{"a.txt", "[05/01/2023, 12:34:56] Ana: hi\n"}, {"b.txt", "[05/01/2023, 12:34:56] Bo: hi\n"}});
    EXPECT_EQ(failure(twoTexts), ConversationError::Kind::Unreadable);

    EXPECT_EQ(failure(m_dir.filePath(QStringLiteral("absent.zip"))), ConversationError::Kind::File);
    EXPECT_EQ(workFolders(), foldersBefore) << "nothing left behind";
}

} // namespace

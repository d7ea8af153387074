#include "engines/conversations/MessagesReader.h"
#include "engines/conversations/ConversationError.h"

#include "ground/WorkFolder.h"
#include "l10n/LanguageStore.h"
#include "support/ChatFixtures.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>
#include <QTimeZone>

#include <sqlite3.h>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

constexpr qint64 appleEpoch = 978307200;

template <typename Call>
std::optional<ConversationError> errorOf(Call call)
{
    try {
        call();
    } catch (const ConversationError& error) {
        return error;
    }
    return std::nullopt;
}

// Whatever is left in the private copies' folders, down to an empty group folder.
QStringList leftovers()
{
    const QDir group(QDir(WorkFolder::root()).filePath(QStringLiteral("chatdb")));
    return group.exists()
               ? QStringList{group.path()} + group.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
               : QStringList();
}

QMap<QString, QByteArray> digests(const QString& folder)
{
    QMap<QString, QByteArray> result;
    for (const QFileInfo& info : QDir(folder).entryInfoList(QDir::Files | QDir::Hidden)) {
        QFile file(info.filePath());
        file.open(QIODevice::ReadOnly);
        result.insert(info.fileName(), QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256) +
                                           QByteArray::number(info.lastModified().toMSecsSinceEpoch()));
    }
    return result;
}

// The English owner word, so that tests do not depend on the machine's language.
class MessagesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::En);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    // A modern chat.db: three conversations, every kind of row the reader must handle.
    QString modernDatabase()
    {
        const QString path = m_dir.filePath(QStringLiteral("chat.db"));
        FixtureDatabase db(path);
        createModernMessagesSchema(db);
        db.exec(QStringLiteral(
            "INSERT INTO handle (ROWID, id, service) VALUES (1, '+33612345678', 'iMessage'), (2, 'ana@example.com', "
            "'iMessage');"
            "INSERT INTO chat (ROWID, guid, chat_identifier, display_name) VALUES (1, 'c1', '+33612345678', ''),"
            " (2, 'c2', 'chat123', 'Famille'), (3, 'c3', NULL, NULL), (4, 'c4', '', NULL);"));
        // Seconds since 2001 in the first conversation, nanoseconds in the second.
        const auto message = [&db](int id, int chat, qint64 date, int fromMe, const QString& text, int handle,
                                   int type = 0, int attachments = 0) {
            db.exec(QStringLiteral("INSERT INTO message (ROWID, guid, text, handle_id, date, is_from_me, "
                                   "associated_message_type, cache_has_attachments) VALUES (%1, 'm%1', %2, %3, %4, %5, "
                                   "%6, %7); INSERT INTO chat_message_join VALUES (%8, %1, %4);")
                        .arg(id)
                        .arg(text.isNull() ? QStringLiteral("NULL")
                                           : u'\'' + QString(text).replace(u'\'', QStringLiteral("''")) + u'\'')
                        .arg(handle)
                        .arg(date)
                        .arg(fromMe)
                        .arg(type)
                        .arg(attachments)
                        .arg(chat));
        };
        message(1, 1, 600'000'000, 0, QStringLiteral("  Salut \uFFFC "), 1);
        message(2, 1, 600'000'060, 1, QStringLiteral("Coucou"), 0);
        message(3, 1, 600'000'120, 0, QStringLiteral("liked"), 1, 2000);
        message(4, 1, 600'000'121, 0, QStringLiteral("laughed"), 1, 2001);
        message(5, 1, 600'000'122, 0, QStringLiteral("emphasized"), 1, 3999);
        message(6, 1, 600'000'123, 0, QStringLiteral("kept 1000"), 1, 1000);
        message(7, 1, 600'000'124, 0, QStringLiteral("kept 4000"), 1, 4000);
        message(8, 1, 600'000'125, 0, QStringLiteral("kept -1"), 1, -1);
        message(9, 1, 600'000'200, 0, QString(), 1, 0, 1);                   // a photo, with its name
        message(10, 1, 600'000'300, 0, QStringLiteral("\uFFFC  \uFFFC"), 1); // nothing left: not shown
        db.exec(QStringLiteral("INSERT INTO attachment (ROWID, guid, transfer_name) VALUES (1, 'a1', 'IMG_4021.HEIC'),"
                               " (2, 'a2', ''); INSERT INTO message_attachment_join VALUES (9, 1), (9, 2);"));
        // Bodies only in attributedBody: short, 0x81-long, 0x82-long, multi-byte.
        message(20, 2, 700'000'000'000'000'000, 0, QString(), 2);
        db.execWithBlob(QStringLiteral("UPDATE message SET attributedBody = ? WHERE ROWID = 20"),
                        attributedBody(QStringLiteral("Bonne fête 🎉 Zoë")));
        message(21, 2, 700'000'001'000'000'000, 0, QString(), 0);
        db.execWithBlob(QStringLiteral("UPDATE message SET attributedBody = ? WHERE ROWID = 21"),
                        attributedBody(QString(300, u'é')));
        message(22, 2, 700'000'002'000'000'000, 1, QString(), 0);
        db.execWithBlob(QStringLiteral("UPDATE message SET attributedBody = ? WHERE ROWID = 22"),
                        attributedBody(QString(70'000, u'a')));
        message(30, 3, 500'000'000, 0, QStringLiteral("orphan"), 0);
        message(31, 4, 400'000'000, 0, QStringLiteral("empty identifier"), 0);
        return path;
    }

    QTemporaryDir m_dir;
    AppLanguage m_saved = AppLanguage::Auto;
};

QDateTime apple(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(appleEpoch + seconds, QTimeZone::utc());
}

} // namespace

TEST_F(MessagesTest, ListsModernConversationsNewestFirstWithTheirTitles)
{
    const QList<MessagesChatInfo> chats = MessagesReader::listChats(modernDatabase());
    ASSERT_EQ(chats.size(), 4);
    EXPECT_EQ(chats[0].id, 2);
    EXPECT_EQ(chats[0].title, QStringLiteral("Famille"));
    EXPECT_EQ(chats[0].count, 3);
    EXPECT_EQ(chats[0].last, QDateTime::fromMSecsSinceEpoch(appleEpoch * 1000 + 700'000'002'000, QTimeZone::utc()));
    EXPECT_EQ(chats[1].title, QStringLiteral("+33612345678")); // empty display name: the identifier
    EXPECT_EQ(chats[1].count, 10);
    EXPECT_EQ(chats[2].title, QStringLiteral("Conversation")); // neither name nor identifier
    EXPECT_EQ(chats[3].title, QString());                      // an empty identifier is kept as it is
    EXPECT_EQ(MessagesReader::messageCount(m_dir.filePath(QStringLiteral("chat.db"))), 15);
}

TEST_F(MessagesTest, ReadsMessagesCleanedWithoutReactionsAndWithAttachments)
{
    const QString path = modernDatabase();
    const ChatTranscript first = MessagesReader::messages(1, QStringLiteral("Ana"), path);
    EXPECT_EQ(first.title, QStringLiteral("Messages: Ana"));
    QStringList texts;
    for (const ChatMessage& message : first.messages)
        texts.append(message.text);
    EXPECT_EQ(texts, (QStringList{QStringLiteral("Salut"), QStringLiteral("Coucou"), QStringLiteral("kept 1000"),
                                  QStringLiteral("kept 4000"), QStringLiteral("kept -1"),
                                  QStringLiteral("[attachment: IMG_4021.HEIC]")}));
    EXPECT_EQ(first.messages[0].sender, QStringLiteral("+33612345678"));
    EXPECT_EQ(first.messages[1].sender, QStringLiteral("Me")); // the owner word marks the user's messages
    EXPECT_EQ(first.messages[0].date, apple(600'000'000));

    const ChatTranscript second = MessagesReader::messages(2, QStringLiteral("Famille"), path);
    ASSERT_EQ(second.messages.size(), 3);
    EXPECT_EQ(second.messages[0].text, QStringLiteral("Bonne fête 🎉 Zoë"));
    EXPECT_EQ(second.messages[0].sender, QStringLiteral("ana@example.com"));
    EXPECT_EQ(second.messages[1].text, QString(300, u'é'));
    EXPECT_EQ(second.messages[1].sender, QStringLiteral("Famille")); // no handle: the conversation's name
    EXPECT_EQ(second.messages[2].text, QString(70'000, u'a'));
    EXPECT_EQ(second.messages[2].sender, QStringLiteral("Me"));
}

TEST_F(MessagesTest, NewestMessagesOnlyInTheWriteAheadLogAreRead)
{
    // Messages is running: its last messages are still in chat.db-wal when the files are copied.
    const QString live = m_dir.filePath(QStringLiteral("live.db"));
    const QString snapshot = m_dir.filePath(QStringLiteral("snapshot"));
    QDir().mkpath(snapshot);
    {
        FixtureDatabase db(live);
        db.exec(QStringLiteral("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;"));
        createModernMessagesSchema(db);
        db.exec(QStringLiteral("INSERT INTO chat (ROWID, guid, chat_identifier) VALUES (1, 'c', 'Bob');"
                               "INSERT INTO message (ROWID, guid, text, date) VALUES (1, 'm1', 'old', 1);"
                               "INSERT INTO chat_message_join VALUES (1, 1, 1);"));
        db.exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE);"));
        db.exec(QStringLiteral("INSERT INTO message (ROWID, guid, text, date) VALUES (2, 'm2', 'only in the log', 2);"
                               "INSERT INTO chat_message_join VALUES (1, 2, 2);"));
        for (const char* suffix : {"", "-wal", "-shm"})
            QFile::copy(live + QLatin1StringView(suffix),
                        snapshot + QStringLiteral("/chat.db") + QLatin1StringView(suffix));
    }
    const QString source = snapshot + QStringLiteral("/chat.db");
    const QMap<QString, QByteArray> before = digests(snapshot);
    const ChatTranscript transcript = MessagesReader::messages(1, QStringLiteral("Bob"), source);
    ASSERT_EQ(transcript.messages.size(), 2);
    EXPECT_EQ(transcript.messages[1].text, QStringLiteral("only in the log"));
    EXPECT_EQ(MessagesReader::listChats(source).value(0).count, 2);
    EXPECT_EQ(digests(snapshot), before); // never opened, locked or changed; nothing new beside it
}

TEST_F(MessagesTest, OlderSchemasAreListedAndReadWithTheirKeys)
{
    // Old group schema, with an empty chat table as an upgraded database has.
    const QString groups = m_dir.filePath(QStringLiteral("groups.db"));
    {
        FixtureDatabase db(groups);
        db.exec(QStringLiteral(
            "CREATE TABLE chat (ROWID INTEGER PRIMARY KEY, chat_identifier TEXT, display_name TEXT);"
            "CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER);"
            "CREATE TABLE msg_group (ROWID INTEGER PRIMARY KEY, type INTEGER);"
            "CREATE TABLE group_member (ROWID INTEGER PRIMARY KEY, group_id INTEGER, address TEXT);"
            "CREATE TABLE message (ROWID INTEGER PRIMARY KEY, address TEXT, date INTEGER, text TEXT, flags INTEGER, "
            "group_id INTEGER);"
            "INSERT INTO msg_group VALUES (7, 0); INSERT INTO group_member VALUES (1, 7, '+41791234567');"
            "INSERT INTO message VALUES (1, '+41791234567', 1300000000, 'Hallo', 2, 7),"
            " (2, '+41791234567', 1300000060, 'Hi!', 3, 7), (3, '+41791234567', 1300000070, NULL, 2, 7);"));
    }
    const QList<MessagesChatInfo> groupChats = MessagesReader::listChats(groups);
    ASSERT_EQ(groupChats.size(), 1);
    EXPECT_EQ(groupChats[0].id, MessagesReader::groupKeyOffset + 7);
    EXPECT_EQ(groupChats[0].title, QStringLiteral("+41791234567"));
    EXPECT_EQ(groupChats[0].last, QDateTime::fromSecsSinceEpoch(1'300'000'070, QTimeZone::utc())); // Unix time
    const ChatTranscript groupTranscript = MessagesReader::messages(groupChats[0].id, groupChats[0].title, groups);
    ASSERT_EQ(groupTranscript.messages.size(), 2); // the empty row is skipped
    EXPECT_EQ(groupTranscript.messages[0].sender, QStringLiteral("+41791234567"));
    EXPECT_EQ(groupTranscript.messages[1].sender, QStringLiteral("Me")); // flags bit 0

    // The address-only table.
    const QString addresses = m_dir.filePath(QStringLiteral("addresses.db"));
    {
        FixtureDatabase db(addresses);
        db.exec(QStringLiteral(
            "CREATE TABLE message (ROWID INTEGER PRIMARY KEY, address TEXT, date INTEGER, text TEXT, flags INTEGER);"
            "INSERT INTO message VALUES (4, '555-0100', 300000000, 'one', 2), (5, '555-0100', 300000100, 'two', 3),"
            " (6, '555-0199', 200000000, 'other', 2);"));
    }
    const QList<MessagesChatInfo> addressChats = MessagesReader::listChats(addresses);
    ASSERT_EQ(addressChats.size(), 2);
    EXPECT_EQ(addressChats[0].id, MessagesReader::addressKeyOffset + 4);
    EXPECT_EQ(addressChats[0].count, 2);
    EXPECT_EQ(MessagesReader::messages(addressChats[0].id, addressChats[0].title, addresses).messages.size(), 2);

    // Handles without a chat table.
    const QString handles = m_dir.filePath(QStringLiteral("handles.db"));
    {
        FixtureDatabase db(handles);
        db.exec(QStringLiteral(
            "CREATE TABLE handle (ROWID INTEGER PRIMARY KEY, id TEXT);"
            "CREATE TABLE message (ROWID INTEGER PRIMARY KEY, handle_id INTEGER, date INTEGER, text TEXT, "
            "is_from_me INTEGER);"
            "INSERT INTO handle VALUES (1, 'zoe@example.com');"
            "INSERT INTO message VALUES (10, 1, 400000000, 'yo', 0), (11, 1, 400000001, 'yo yo', 1);"));
    }
    const QList<MessagesChatInfo> handleChats = MessagesReader::listChats(handles);
    ASSERT_EQ(handleChats.size(), 1);
    EXPECT_EQ(handleChats[0].id, MessagesReader::handleKeyOffset + 10);
    const ChatTranscript handleTranscript = MessagesReader::messages(handleChats[0].id, QStringLiteral("Zoé"), handles);
    ASSERT_EQ(handleTranscript.messages.size(), 2);
    EXPECT_EQ(handleTranscript.messages[1].sender, QStringLiteral("Me"));
    EXPECT_EQ(handleTranscript.title, QStringLiteral("Messages: Zoé"));
}

TEST_F(MessagesTest, FailuresAreTypedAndTheSourceAndTempFolderStayClean)
{
    const QStringList before = leftovers();
    const std::optional<ConversationError> missing =
        errorOf([&] { MessagesReader::listChats(m_dir.filePath(QStringLiteral("none.db"))); });
    ASSERT_TRUE(missing);
    // Missing is missing: only a refused read sends the user to the privacy settings.
    EXPECT_EQ(missing->kind(), ConversationError::Kind::File);
    EXPECT_TRUE(missing->message().endsWith(QStringLiteral("none.db"))) << qPrintable(missing->message());
    EXPECT_EQ(ConversationError::file(
                  FileError(FileError::Operation::Read, SystemErrorKind::NoPermission, QStringLiteral("/x/chat.db")))
                  .kind(),
              ConversationError::Kind::NoAccess);
    EXPECT_EQ(ConversationError::file(
                  FileError(FileError::Operation::Write, SystemErrorKind::NoSpace, QStringLiteral("/tmp/chat.db")))
                  .kind(),
              ConversationError::Kind::File);

    const QString garbage = m_dir.filePath(QStringLiteral("garbage.db"));
    QFile file(garbage);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(5000, 'x'));
    file.close();
    EXPECT_EQ(errorOf([&] { MessagesReader::listChats(garbage); }), ConversationError::unreadable());
    EXPECT_EQ(errorOf([&] { MessagesReader::messageCount(garbage); }), ConversationError::unreadable());
    EXPECT_EQ(errorOf([&] { MessagesReader::messages(1, QStringLiteral("x"), garbage); }),
              ConversationError::unreadable());

    // A database of something else entirely.
    const QString other = m_dir.filePath(QStringLiteral("other.db"));
    FixtureDatabase(other).exec(QStringLiteral("CREATE TABLE notes (id INTEGER);"));
    EXPECT_EQ(errorOf([&] { MessagesReader::listChats(other); }), ConversationError::unreadable());
    EXPECT_EQ(leftovers(), before); // the private folder is removed on every path
}

TEST(MessagesDates, SecondsNanosecondsAndUnixTime)
{
    const QDateTime now = QDateTime(QDate(2026, 11, 22), QTime(12, 0), QTimeZone::utc());
    EXPECT_EQ(MessagesReader::appleDate(600'000'000, now), apple(600'000'000));
    EXPECT_EQ(MessagesReader::appleDate(1'300'000'000, now),
              QDateTime::fromSecsSinceEpoch(1'300'000'000, QTimeZone::utc()));
    EXPECT_EQ(MessagesReader::appleDate(700'000'000'000'000'000, now), apple(700'000'000));
    EXPECT_EQ(MessagesReader::appleDate(-700'000'000'000'000'000, now), apple(-700'000'000));
    // 950000000 is the edge: read from 2001 it would be 2031, yet the rule starts one second later.
    EXPECT_EQ(MessagesReader::appleDate(950'000'000, now), apple(950'000'000));
    EXPECT_EQ(MessagesReader::appleDate(0, now), apple(0));
}

TEST(MessagesBodies, TypedstreamLengthsAndFailures)
{
    EXPECT_EQ(MessagesReader::decodeAttributedBody(attributedBody(QStringLiteral("hi"))), QStringLiteral("hi"));
    QByteArray blob =
        QByteArray(20, 'x') + "NSString" + QByteArray(5, '\x01') + QByteArray("\x81\x2C\x01", 3) + QByteArray(300, 'z');
    EXPECT_EQ(MessagesReader::decodeAttributedBody(blob)->size(), 300);
    EXPECT_FALSE(MessagesReader::decodeAttributedBody(QByteArray(16, 'x')));
    EXPECT_FALSE(MessagesReader::decodeAttributedBody(QByteArray(40, 'x'))); // no NSString
    EXPECT_FALSE(MessagesReader::decodeAttributedBody(blob.chopped(1)));     // runs past the end
    const QByteArray head = QByteArray(20, 'x') + "NSString" + QByteArray(5, 0);
    EXPECT_FALSE(MessagesReader::decodeAttributedBody(QByteArray(head + '\0' + "abc")));        // length 0
    EXPECT_FALSE(MessagesReader::decodeAttributedBody(QByteArray(head + '\x02' + "\xC3\x28"))); // invalid UTF-8
    // A 0x82 marker too near the end is read as the length itself.
    const QByteArray nearEnd = head + '\x82' + QByteArray(3, 'q');
    EXPECT_FALSE(MessagesReader::decodeAttributedBody(nearEnd));
}

TEST(ConversationRecords, SourcesAndErrorTexts)
{
    EXPECT_EQ(convSourceFromRawValue(u"messages"), ConvSource::Messages);
    EXPECT_EQ(convSourceFromRawValue(u"Messages"), std::nullopt);
    EXPECT_EQ(allConvSources.front(), ConvSource::WhatsApp);
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    EXPECT_TRUE(ConversationError::noAccess(QString()).message().endsWith(QStringLiteral("()")));
    EXPECT_EQ(ConversationError::empty().message(),
              QStringLiteral("Aucun message trouvé (vérifie la période choisie)."));
    EXPECT_EQ(title(ConvSource::Messages), QStringLiteral("Messages (iMessage, SMS)"));
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::Auto);
}

#include "engines/conversations/WhatsAppReader.h"
#include "engines/conversations/ConversationError.h"

#include "l10n/LanguageStore.h"
#include "support/ChatFixtures.h"

#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

class WhatsAppReaderTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::En);
        m_path = m_dir.filePath(QStringLiteral("ChatStorage.sqlite"));
        FixtureDatabase db(m_path);
        createWhatsAppSchema(db);
        db.exec(QStringLiteral(
            "INSERT INTO ZWACHATSESSION (Z_PK, ZREMOVED, ZSESSIONTYPE, ZCONTACTJID, ZPARTNERNAME) VALUES"
            " (1, 0, 0, '33612345678@s.whatsapp.net', 'Ana'),"
            " (2, NULL, NULL, '33698765432@s.whatsapp.net', '')," // no name: the JID; NULL type listed
            " (3, 1, 0, 'removed@s.whatsapp.net', 'Removed'),"    // removed: never listed
            " (4, 0, 3, 'status@broadcast', 'Status'),"           // type 3: never listed
            " (5, 0, 1, '1203630@g.us', 'No messages');"          // no message: absent
            "INSERT INTO ZWAMEDIAITEM (Z_PK, ZTITLE) VALUES (1, 'Facture.pdf'), (2, NULL);"
            "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZISFROMME, ZMESSAGETYPE, ZMEDIAITEM, ZMESSAGEDATE, ZPUSHNAME,"
            " ZTEXT) VALUES"
            " (10, 1, 0, 0, NULL, 700000000.25, 'Ana B.', 'Bonjour'),"
            " (12, 1, 1, 0, NULL, 700000060, NULL, 'second of the same date'),"
            " (11, 1, 0, 0, NULL, 700000060, NULL, 'first of the same date'),"
            " (13, 1, 0, 1, NULL, 700000120, '', '  Vacances  '),"
            " (14, 1, 0, 8, 1, 700000180, 'Ana B.', NULL),"
            " (15, 1, 0, 8, 2, 700000181, 'Ana B.', NULL),"
            " (16, 1, 0, 14, NULL, 700000240, 'Ana B.', NULL),"
            " (17, 1, 0, 14, NULL, 700000241, 'Ana B.', 'still here'),"
            " (18, 1, 0, 0, NULL, 700000300, 'Ana B.', NULL)," // no text, no label: dropped
            " (19, 1, 0, 6, NULL, 700000301, 'Ana B.', NULL)," // a system row: dropped
            " (20, 1, 1, 15, NULL, 700000302, NULL, NULL),"
            " (21, 1, 0, 3, NULL, 700000303, 'Ana B.', NULL),"
            " (30, 2, 0, 0, NULL, 710000000, NULL, 'hello'),"
            " (31, 3, 0, 0, NULL, 720000000, NULL, 'gone'),"
            " (32, 4, 0, 0, NULL, 730000000, NULL, 'status');"));
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    QTemporaryDir m_dir;
    QString m_path;
    AppLanguage m_saved = AppLanguage::Auto;
};

} // namespace

TEST_F(WhatsAppReaderTest, ListsOnlyLiveSessionsWithMessages)
{
    const QList<MessagesChatInfo> chats = WhatsAppReader::listChats(m_path);
    ASSERT_EQ(chats.size(), 2);
    EXPECT_EQ(chats[0].id, 2); // newest first
    EXPECT_EQ(chats[0].title, QStringLiteral("33698765432@s.whatsapp.net"));
    EXPECT_EQ(chats[1].title, QStringLiteral("Ana"));
    EXPECT_EQ(chats[1].count, 12);
    EXPECT_EQ(chats[1].last, QDateTime::fromSecsSinceEpoch(978'307'200 + 700'000'303, QTimeZone::utc()));
}

TEST_F(WhatsAppReaderTest, ReadsBodiesLabelsSendersAndOrder)
{
    const ChatTranscript transcript = WhatsAppReader::messages(1, QStringLiteral("Ana"), m_path);
    EXPECT_EQ(transcript.title, QStringLiteral("WhatsApp: Ana"));
    QStringList bodies;
    QStringList senders;
    for (const ChatMessage& message : transcript.messages) {
        bodies.append(message.text);
        senders.append(message.sender);
    }
    EXPECT_EQ(bodies, (QStringList{QStringLiteral("Bonjour"), QStringLiteral("first of the same date"),
                                   QStringLiteral("second of the same date"), QStringLiteral("Vacances\n[photo]"),
                                   QStringLiteral("[document : Facture.pdf]"), QStringLiteral("[document]"),
                                   QStringLiteral("[deleted message]"), QStringLiteral("still here"),
                                   QStringLiteral("[sticker]"), QStringLiteral("[voice message]")}));
    EXPECT_EQ(senders[0], QStringLiteral("Ana B."));
    EXPECT_EQ(senders[1], QStringLiteral("Ana")); // no push name: the conversation's name
    EXPECT_EQ(senders[2], QStringLiteral("Me"));
    EXPECT_EQ(senders[3], QStringLiteral("Ana")); // an empty push name counts as none
    EXPECT_EQ(transcript.messages[0].date,
              QDateTime::fromMSecsSinceEpoch((978'307'200LL + 700'000'000) * 1000 + 250, QTimeZone::utc()));
}

TEST_F(WhatsAppReaderTest, NotAWhatsAppStoreIsUnreadable)
{
    const QString other = m_dir.filePath(QStringLiteral("other.sqlite"));
    FixtureDatabase(other).exec(QStringLiteral("CREATE TABLE t (x);"));
    try {
        WhatsAppReader::listChats(other);
        FAIL() << "expected an error";
    } catch (const ConversationError& error) {
        EXPECT_EQ(error.kind(), ConversationError::Kind::Unreadable);
    }
}

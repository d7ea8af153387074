#include "engines/conversations/PastedText.h"
#include "engines/conversations/ChatFilters.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationPdf.h"
#include "l10n/LanguageStore.h"

#include <gtest/gtest.h>

#include <ctime>

using namespace nuvrel;

namespace {

class PastedTextTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    AppLanguage m_saved = AppLanguage::Auto;
};

QStringList senders(const ChatTranscript& transcript)
{
    QStringList names;
    for (const ChatMessage& message : transcript.messages)
        names << message.sender;
    return names;
}

TEST_F(PastedTextTest, EachLayoutIsReadAndLinesThatFitNoneContinueTheMessageBefore)
{
    // WhatsApp's lines, pasted from an export.
    auto whatsApp = PastedText::parse(QStringLiteral("[05/01/2023, 12:34:56] Ana: Salut\r\n"
                                                     "[05/01/2023, 12:35:10] Bruno: Ça va ?\r\n"
                                                     "et toi\r\n"));
    ASSERT_TRUE(whatsApp);
    EXPECT_EQ(whatsApp->layout, PastedText::Layout::WhatsApp);
    EXPECT_EQ(whatsApp->transcript.title, QStringLiteral("Ana / Bruno"));
    ASSERT_EQ(whatsApp->transcript.messages.size(), 2);
    EXPECT_EQ(whatsApp->transcript.messages[1].text, QStringLiteral("Ça va ?\net toi"));
    EXPECT_EQ(whatsApp->transcript.messages[1].date, QDateTime(QDate(2023, 1, 5), QTime(12, 35, 10)));

    // "[date] Name : text", in several ways of writing the date; a date no format fits leaves the
    // message without one, and nothing is lost.
    auto bracketed = PastedText::parse(QStringLiteral("\n  \n[12/03/2024 10:04] Ana : Bonjour\n"
                                                      "[2024-03-12 10:05:30] Moi: Coucou\n"
                                                      "suite\n"
                                                      "[12.03.24 10:06] Ana : encore\n"
                                                      "[hier soir] Ana : quand ?\n"));
    ASSERT_TRUE(bracketed);
    EXPECT_EQ(bracketed->layout, PastedText::Layout::Bracketed);
    ASSERT_EQ(bracketed->transcript.messages.size(), 4);
    EXPECT_EQ(senders(bracketed->transcript),
              (QStringList{QStringLiteral("Ana"), ownerName(), QStringLiteral("Ana"), QStringLiteral("Ana")}));
    EXPECT_EQ(bracketed->transcript.messages[0].date, QDateTime(QDate(2024, 3, 12), QTime(10, 4)));
    EXPECT_EQ(bracketed->transcript.messages[1].date, QDateTime(QDate(2024, 3, 12), QTime(10, 5, 30)));
    EXPECT_EQ(bracketed->transcript.messages[1].text, QStringLiteral("Coucou\nsuite"));
    EXPECT_EQ(bracketed->transcript.messages[2].date, QDateTime(QDate(2024, 3, 12), QTime(10, 6)));
    EXPECT_FALSE(bracketed->transcript.messages[3].date.isValid());
    EXPECT_EQ(bracketed->transcript.messages[3].text, QStringLiteral("quand ?"));
    EXPECT_EQ(bracketed->transcript.title, QStringLiteral("Ana"));

    // "Name : text": an address or a time in a message is no sender.
    auto named = PastedText::parse(QStringLiteral("Ana : le lien\nhttps://ex.org/a:b\nà 10:04 devant\n"
                                                  "Bruno: ok"));
    ASSERT_TRUE(named);
    EXPECT_EQ(named->layout, PastedText::Layout::Named);
    ASSERT_EQ(named->transcript.messages.size(), 2);
    EXPECT_EQ(named->transcript.messages[0].text, QStringLiteral("le lien\nhttps://ex.org/a:b\nà 10:04 devant"));
    EXPECT_FALSE(named->transcript.messages[0].date.isValid());
    EXPECT_EQ(named->transcript.undatedLines, 0);

    // Anything else: one block from one sender.
    auto block = PastedText::parse(QStringLiteral("  juste un texte\n\nsur deux paragraphes  "));
    ASSERT_TRUE(block);
    EXPECT_EQ(block->layout, PastedText::Layout::Block);
    ASSERT_EQ(block->transcript.messages.size(), 1);
    EXPECT_EQ(block->transcript.messages[0].text, QStringLiteral("juste un texte\n\nsur deux paragraphes"));
    EXPECT_EQ(block->transcript.title, QStringLiteral("Conversation collée"));

    EXPECT_FALSE(PastedText::parse(QStringLiteral(" \n\t\r\n")));
    EXPECT_FALSE(PastedText::parse(QString()));
}

TEST_F(PastedTextTest, ChoosingTheOwnerChangesWhoSpeaksAndTheFingerprint)
{
    auto pasted = PastedText::parse(QStringLiteral("Ana : a\nBruno : b\nAna : c\nChloé : d"));
    ASSERT_TRUE(pasted);
    const ChatTranscript& before = pasted->transcript;
    EXPECT_EQ(sendersOf(before),
              (QStringList{QStringLiteral("Ana"), QStringLiteral("Bruno"), QStringLiteral("Chloé")}));
    const ChatTranscript mine = withOwner(before, QStringLiteral("Ana"));
    EXPECT_EQ(senders(mine), (QStringList{ownerName(), QStringLiteral("Bruno"), ownerName(), QStringLiteral("Chloé")}));
    EXPECT_EQ(sendersOf(mine), (QStringList{QStringLiteral("Bruno"), QStringLiteral("Chloé")}));
    EXPECT_NE(ConversationPDF::contentFingerprint(mine), ConversationPDF::contentFingerprint(before));
    EXPECT_EQ(withOwner(before, QString()), before);
    EXPECT_EQ(withOwner(before, QStringLiteral("Personne")), before);
}

// Periods at their edges: a local day across a change of clocks, the last 30 days to the second,
// messages of unknown date, and a period that keeps nothing.
TEST_F(PastedTextTest, PeriodsKeepWhatLiesInsideToTheSecond)
{
    const QByteArray savedZone = qgetenv("TZ");
    qputenv("TZ", "Europe/Paris");
    tzset();

    ChatTranscript transcript;
    const auto at = [](const char* utc) { return QDateTime::fromString(QString::fromLatin1(utc), Qt::ISODate); };
    // 31 March 2024 in Paris lasts 23 hours: from 23:00 UTC the day before to 22:00 UTC.
    for (const char* utc :
         {"2024-03-30T22:59:59Z", "2024-03-30T23:00:00Z", "2024-03-31T21:59:59Z", "2024-03-31T22:00:00Z"})
        transcript.messages.append(ChatMessage{at(utc), QStringLiteral("Ana"), QString::fromLatin1(utc), {}});
    transcript.messages.append(ChatMessage{QDateTime(), QStringLiteral("Ana"), QStringLiteral("sans date"), {}});

    const ChatTranscript day = ChatPeriod::localDays(QDate(2024, 3, 31), QDate(2024, 3, 31)).apply(transcript);
    ASSERT_EQ(day.messages.size(), 2);
    EXPECT_EQ(day.messages[0].text, QStringLiteral("2024-03-30T23:00:00Z"));
    EXPECT_EQ(day.messages[1].text, QStringLiteral("2024-03-31T21:59:59Z"));
    EXPECT_EQ(ChatPeriod::localDays(QDate(2024, 3, 31), QDate()).apply(transcript).messages.size(), 3);
    EXPECT_EQ(ChatPeriod::localDays(QDate(), QDate(2024, 3, 30)).apply(transcript).messages.size(), 1);
    EXPECT_EQ(ChatPeriod().apply(transcript).messages.size(), 5) << "everything keeps the undated too";

    // 30 × 24 hours back from the second it is, not 30 local days.
    const ChatTranscript month = ChatPeriod::lastDays(30, at("2024-04-30T21:59:59Z")).apply(transcript);
    ASSERT_EQ(month.messages.size(), 2);
    EXPECT_EQ(month.messages[0].text, QStringLiteral("2024-03-31T21:59:59Z"));
    EXPECT_EQ(ChatPeriod::lastDays(30, at("2024-04-30T22:00:00Z")).apply(transcript).messages.size(), 1);

    try {
        ChatPeriod::localDays(QDate(2025, 1, 1), QDate(2025, 1, 31)).apply(transcript);
        ADD_FAILURE();
    } catch (const ConversationError& error) {
        EXPECT_EQ(error.kind(), ConversationError::Kind::Empty);
        EXPECT_EQ(error.message(), QStringLiteral("Aucun message trouvé (vérifie la période choisie)."));
    }

    if (savedZone.isNull())
        qunsetenv("TZ");
    else
        qputenv("TZ", savedZone);
    tzset();
}

} // namespace

#include "engines/conversations/WhatsAppParser.h"

#include "engines/conversations/ConversationError.h"
#include "l10n/LanguageStore.h"

#include <QBuffer>

#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

class WhatsAppParserTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    static ChatTranscript parse(const QString& text)
    {
        std::optional<ChatTranscript> transcript = WhatsAppParser::parse(text, QStringLiteral("Export"));
        return transcript.value_or(ChatTranscript{QStringLiteral("<nothing>"), {}});
    }
    static QDateTime local(int y, int m, int d, int h, int mi, int s = 0)
    {
        return QDateTime(QDate(y, m, d), QTime(h, mi, s), QTimeZone::systemTimeZone());
    }

    AppLanguage m_saved = AppLanguage::Auto;
};

} // namespace

TEST_F(WhatsAppParserTest, IphoneLineMonthFirstTwelveHour)
{
    const ChatTranscript t = parse(QStringLiteral("[12/31/23, 9:05:07 PM] Ann: hi"));
    ASSERT_EQ(t.messages.size(), 1);
    EXPECT_EQ(t.messages[0].date, local(2023, 12, 31, 21, 5, 7));
    EXPECT_EQ(t.messages[0].sender, QStringLiteral("Ann"));
    EXPECT_EQ(t.messages[0].text, QStringLiteral("hi"));
    EXPECT_EQ(t.title, QStringLiteral("WhatsApp : Ann"));
}

TEST_F(WhatsAppParserTest, AndroidLinesSendersSystemLinesAndContinuations)
{
    const ChatTranscript t = parse(QStringLiteral("31.12.2023, 21:05 - Bob: a: b\n"
                                                  "31.12.2023, 21:06 - Les messages sont chiffrés de bout en bout.\n"
                                                  "01.01.2024, 00:01 - Bob: ligne un\n"
                                                  "ligne deux\n"
                                                  "Zoé: pas un expéditeur\n"
                                                  "\n"
                                                  "01.01.2024, 00:02 - Ann: "));
    ASSERT_EQ(t.messages.size(), 4);
    EXPECT_EQ(t.messages[0].sender, QStringLiteral("Bob"));
    EXPECT_EQ(t.messages[0].text, QStringLiteral("a: b"));
    EXPECT_EQ(t.messages[1].sender, QStringLiteral("Système"));
    EXPECT_EQ(t.messages[1].text, QStringLiteral("Les messages sont chiffrés de bout en bout."));
    EXPECT_EQ(t.messages[2].text, QStringLiteral("ligne un\nligne deux\nZoé: pas un expéditeur"));
    EXPECT_EQ(t.messages[3].text, QString()); // kept although empty
    EXPECT_EQ(t.messages[0].date, local(2023, 12, 31, 21, 5));
    EXPECT_EQ(t.title, QStringLiteral("WhatsApp : Bob / Ann"));
}

TEST_F(WhatsAppParserTest, TwelveHourEdgesAndDateOrder)
{
    const ChatTranscript t = parse(QStringLiteral("[03/04/2024, 12:30 am] A: x\n"
                                                  "[03/04/2024, 12:30 PM] A: y\n"
                                                  "[03/04/2024, 1:30 p.m.] A: z"));
    ASSERT_EQ(t.messages.size(), 3);
    EXPECT_EQ(t.messages[0].date, local(2024, 4, 3, 0, 30)); // all numbers ≤ 12: day first
    EXPECT_EQ(t.messages[1].date, local(2024, 4, 3, 12, 30));
    EXPECT_EQ(t.messages[2].date, local(2024, 4, 3, 13, 30));
}

TEST_F(WhatsAppParserTest, RealExportsWithMarksAndSpecialSpaces)
{
    // An iPhone export: byte-order mark, left-to-right marks, U+202F before "PM", CRLF line ends.
    const QString iphone = QStringLiteral("\uFEFF[22/11/2026, 8:15:02\u202FPM] \u200EAna: Tu viens ?\r\n"
                                          "\u200E[22/11/2026, 8:16:10\u202FPM] Moi: Oui\u00A0!\r\n"
                                          "[22/11/2026, 8:17:00\u202FPM] Ana: \u200Eimage omitted");
    const ChatTranscript t = parse(iphone);
    ASSERT_EQ(t.messages.size(), 3);
    EXPECT_EQ(t.messages[0].date, local(2026, 11, 22, 20, 15, 2));
    EXPECT_EQ(t.messages[0].sender, QStringLiteral("Ana"));
    EXPECT_EQ(t.messages[2].text, QStringLiteral("image omitted"));

    // Five participants keep the fallback title.
    QString crowd;
    for (const char* name : {"A", "B", "C", "D", "E"})
        crowd += QStringLiteral("1/2/24, 10:00 - %1: hi\n").arg(QLatin1StringView(name));
    EXPECT_EQ(parse(crowd).title, QStringLiteral("WhatsApp : Export"));
}

TEST_F(WhatsAppParserTest, OtherLayoutsAreReadOnlyWhenTheUsualOnesReadNothing)
{
    const ChatTranscript yearFirst =
        parse(QStringLiteral("2019/01/30, 20:49 - Ana: hola\n2019/01/31, 8:00 p. m. - Bo: ¿qué?"));
    ASSERT_EQ(yearFirst.messages.size(), 2);
    EXPECT_EQ(yearFirst.messages[0].date, local(2019, 1, 30, 20, 49));
    EXPECT_EQ(yearFirst.messages[1].date, local(2019, 1, 31, 20, 0));
    const ChatTranscript spaced = parse(QStringLiteral("30/1/19, 8:49 p. m. - Ana: hola"));
    ASSERT_EQ(spaced.messages.size(), 1);
    EXPECT_EQ(spaced.messages[0].date, local(2019, 1, 30, 20, 49));
    // A file the usual layouts read is read exactly by them: the year-first line stays a continuation.
    const ChatTranscript mixed = parse(QStringLiteral("30/01/2019, 20:49 - Ana: hola\n2019/01/31, 20:50 - Bo: no"));
    ASSERT_EQ(mixed.messages.size(), 1);
    EXPECT_EQ(mixed.messages[0].text, QStringLiteral("hola\n2019/01/31, 20:50 - Bo: no"));
}

TEST_F(WhatsAppParserTest, NothingReadableGivesNothing)
{
    EXPECT_FALSE(WhatsAppParser::parse(QStringLiteral("just some text\nwithout dates"), QStringLiteral("x")));
    EXPECT_FALSE(WhatsAppParser::parse(QString(), QStringLiteral("x")));
}

TEST_F(WhatsAppParserTest, LinesWithoutAReadableDateAreKeptAsTextAndCounted)
{
    // A day-first file: 31/02 cannot be, 25:00 neither, and "03/25/2024" is in the minority's order.
    const ChatTranscript t = parse(QStringLiteral("14/02/2024, 09:00 - Ana: avant\n"
                                                  "31/02/2024, 10:00 - Bo: date impossible\n"
                                                  "suite de Bo\n"
                                                  "15/02/2024, 25:00 - Bo: heure impossible\n"
                                                  "03/25/2024, 11:00 - Bo: dans l'autre ordre\n"
                                                  "16/02/2024, 12:00 - Ana: après"));
    ASSERT_EQ(t.messages.size(), 2);
    EXPECT_EQ(t.undatedLines, 3);
    EXPECT_EQ(t.messages[0].text, QStringLiteral("avant\n31/02/2024, 10:00 - Bo: date impossible\nsuite de Bo\n"
                                                 "15/02/2024, 25:00 - Bo: heure impossible\n"
                                                 "03/25/2024, 11:00 - Bo: dans l'autre ordre"));
    EXPECT_EQ(t.messages[1].date, local(2024, 2, 16, 12, 0));

    // The majority decides the order: one day-first line among month-first ones is the odd one out.
    const ChatTranscript monthFirst = parse(QStringLiteral("[02/13/24, 9:00:00 AM] A: un\n"
                                                           "[02/14/24, 9:00:00 AM] A: deux\n"
                                                           "[15/02/24, 9:00:00 AM] A: trois\n"
                                                           "[02/16/24, 9:00:00 AM] A: quatre"));
    ASSERT_EQ(monthFirst.messages.size(), 3);
    EXPECT_EQ(monthFirst.undatedLines, 1);
    EXPECT_EQ(monthFirst.messages[1].date, local(2024, 2, 14, 9, 0));
    EXPECT_TRUE(monthFirst.messages[1].text.endsWith(QStringLiteral("\n[15/02/24, 9:00:00 AM] A: trois")));

    // With no message before it, such a line is a message of its own, of unknown time; so is text that
    // comes before the first message.
    const ChatTranscript first = parse(QStringLiteral("en-tête perdu\n31/02/2024, 10:00 - A: impossible"));
    ASSERT_EQ(first.messages.size(), 1);
    EXPECT_FALSE(first.messages[0].date.isValid());
    EXPECT_EQ(first.messages[0].text, QStringLiteral("en-tête perdu\n31/02/2024, 10:00 - A: impossible"));
    EXPECT_EQ(first.undatedLines, 2);
    EXPECT_EQ(parse(QStringLiteral("14/02/2024, 09:00 - Ana: ok")).undatedLines, 0);
}

// A device that gives at most a few bytes per read, as a pipe or a slow disk may.
class Trickle final : public QBuffer
{
public:
    explicit Trickle(QByteArray data, qint64 step)
        : m_step(step)
    {
        setData(std::move(data));
        open(QIODevice::ReadOnly);
    }

protected:
    qint64 readData(char* data, qint64 maxSize) override { return QBuffer::readData(data, std::min(maxSize, m_step)); }

private:
    qint64 m_step;
};

TEST_F(WhatsAppParserTest, AFileReadInPiecesGivesWhatItsWholeTextGives)
{
    // Pieces cut inside CR LF, inside a four-byte character, inside a broken sequence and a mark.
    const QByteArray bytes =
        QByteArrayLiteral("\xEF\xBB\xBF[22/11/2026, 8:15:02\xE2\x80\xAFPM] Ana: \xF0\x9F\x98\x80\r\n"
                          "suite \xE2\x82 cassée \xC3\r\n"
                          "\xE2\x80\x8E[22/11/2026, 8:16:10\xE2\x80\xAFPM] Bo: \xFF\x80 fin\r");
    const std::optional<ChatTranscript> whole = WhatsAppParser::parse(QString::fromUtf8(bytes), QStringLiteral("x"));
    ASSERT_TRUE(whole);
    ASSERT_EQ(whole->messages.size(), 2);
    for (qint64 step : {1, 2, 3, 5, 7, 1 << 20}) {
        Trickle device(bytes, step);
        EXPECT_EQ(WhatsAppParser::parse(device, QStringLiteral("x")), whole) << step;
    }

    // A read that fails half-way is an error, not a shorter conversation.
    class Failing final : public QBuffer
    {
    protected:
        qint64 readData(char* data, qint64 maxSize) override
        {
            return pos() >= 10 ? -1 : QBuffer::readData(data, std::min<qint64>(maxSize, 10));
        }
    } failing;
    failing.setData(bytes);
    failing.open(QIODevice::ReadOnly);
    EXPECT_THROW(WhatsAppParser::parse(failing, QStringLiteral("x")), ConversationError);
}

TEST_F(WhatsAppParserTest, LocalTimesAcrossDaylightSavingSwitches)
{
    // Paris: 02:00 became 03:00 on 31 March 2024, 03:00 became 02:00 again on 27 October 2024.
    const QByteArray savedZone = qgetenv("TZ");
    qputenv("TZ", "Europe/Paris");
    const QTimeZone paris("Europe/Paris");
    const ChatTranscript t = parse(QStringLiteral("31/03/2024, 01:59 - A: before\n"
                                                  "31/03/2024, 03:01 - A: after\n"
                                                  "31/03/2024, 03:59 - A: later\n"
                                                  "27/10/2024, 02:30 - A: in the repeated hour\n"
                                                  "27/10/2024, 04:00 - A: winter\n"
                                                  "15/07/2024, 12:00 - A: summer"));
    ASSERT_EQ(t.messages.size(), 6);
    const QList<QDateTime> expected{
        QDateTime(QDate(2024, 3, 31), QTime(1, 59), paris), QDateTime(QDate(2024, 3, 31), QTime(3, 1), paris),
        QDateTime(QDate(2024, 3, 31), QTime(3, 59), paris), QDateTime(QDate(2024, 10, 27), QTime(2, 30), paris),
        QDateTime(QDate(2024, 10, 27), QTime(4, 0), paris), QDateTime(QDate(2024, 7, 15), QTime(12, 0), paris)};
    for (qsizetype i = 0; i < expected.size(); ++i)
        EXPECT_EQ(t.messages[i].date.toMSecsSinceEpoch(), expected[i].toMSecsSinceEpoch()) << i;
    EXPECT_EQ(t.messages[5].date.toUTC().time(), QTime(10, 0)); // UTC+2 in summer
    if (savedZone.isNull())
        qunsetenv("TZ");
    else
        qputenv("TZ", savedZone);
}

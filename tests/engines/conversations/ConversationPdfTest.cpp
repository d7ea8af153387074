// The conversation PDF, read back by poppler (pdfinfo, pdftotext): an implementation of PDF that is
// not the one that wrote it.

#include "engines/conversations/ConversationPdf.h"

#include "l10n/LanguageStore.h"
#include "support/PdfTools.h"

#include <QCryptographicHash>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

QDateTime local(int y, int mo, int d, int h, int mi)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi), QTimeZone::systemTimeZone());
}

ChatTranscript sample()
{
    ChatTranscript transcript{QStringLiteral("WhatsApp : Camille / Louis"), {}};
    transcript.messages = {
        {local(2026, 11, 21, 23, 58), QStringLiteral("Camille"), QStringLiteral("On se voit demain ?"), {}},
        {local(2026, 11, 21, 23, 59), QStringLiteral("Moi"), QStringLiteral("Oui ! À 10 h au café."), {}},
        {local(2026, 11, 22, 0, 1), QStringLiteral("Camille"), QStringLiteral("Parfait — Привет, שלום, 你好"), {}},
    };
    return transcript;
}

class ConversationPdfTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }
    QString path(const QString& name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
    AppLanguage m_saved = AppLanguage::Auto;
};

} // namespace

TEST_F(ConversationPdfTest, TitlePageSeparatorsFootersAndSideFile)
{
    const ConversationPDF::Result result =
        ConversationPDF::build(path(QStringLiteral("Conversation.pdf")), sample(), QStringLiteral("WhatsApp"));
    EXPECT_EQ(result.pages, 1);
    EXPECT_EQ(pdfPageCount(path(QStringLiteral("Conversation.pdf"))), 1);
    const QString text = pdfText(path(QStringLiteral("Conversation.pdf")));
    EXPECT_TRUE(text.contains(QStringLiteral("WhatsApp : Camille / Louis"))) << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("Nombre de messages : 3"))) << qPrintable(text);
    EXPECT_TRUE(text.contains(result.contentFingerprint)) << qPrintable(text);
    // A new day starts just after midnight, in the local time zone.
    EXPECT_TRUE(text.contains(QStringLiteral("— samedi 21 novembre 2026 —"))) << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("— dimanche 22 novembre 2026 —"))) << qPrintable(text);
    EXPECT_EQ(text.count(QRegularExpression(QStringLiteral("— \\w+ \\d+ \\w+ \\d{4} —"))), 2); // one per day
    EXPECT_TRUE(text.contains(QRegularExpression(QStringLiteral("00:01\\s+Camille : Parfait")))) << qPrintable(text);
    EXPECT_TRUE(text.contains(QStringLiteral("Привет"))) << qPrintable(text); // real text, not drawn shapes
    EXPECT_TRUE(text.contains(QStringLiteral("Nuvrel · page 1 / 1 · empreinte du contenu : ") +
                              result.contentFingerprint.left(16)))
        << qPrintable(text);

    // The side file records the PDF's real SHA-256 and the content fingerprint.
    QFile pdf(path(QStringLiteral("Conversation.pdf")));
    ASSERT_TRUE(pdf.open(QIODevice::ReadOnly));
    const QString realHash =
        QString::fromLatin1(QCryptographicHash::hash(pdf.readAll(), QCryptographicHash::Sha256).toHex());
    EXPECT_EQ(result.pdfFingerprint, realHash);
    EXPECT_EQ(result.sideFile, path(QStringLiteral("Conversation.empreinte.txt")));
    QFile side(result.sideFile);
    ASSERT_TRUE(side.open(QIODevice::ReadOnly));
    const QString sideText = QString::fromUtf8(side.readAll());
    EXPECT_TRUE(sideText.startsWith(QStringLiteral("Fichier : Conversation.pdf\nCréé le : "))) << qPrintable(sideText);
    EXPECT_TRUE(sideText.contains(QStringLiteral("Empreinte SHA-256 du PDF : ") + realHash)) << qPrintable(sideText);
    EXPECT_TRUE(
        sideText.contains(QStringLiteral("Empreinte SHA-256 du contenu des messages : ") + result.contentFingerprint));
}

TEST_F(ConversationPdfTest, ContentFingerprintIsStableAndSensitive)
{
    const ChatTranscript transcript = sample();
    const QString fingerprint = ConversationPDF::contentFingerprint(transcript);
    EXPECT_EQ(fingerprint.size(), 64);
    EXPECT_EQ(ConversationPDF::contentFingerprint(transcript), fingerprint);
    for (qsizetype m = 0; m < transcript.messages.size(); ++m) {
        ChatTranscript changed = transcript;
        changed.messages[m].text[0] = QChar(changed.messages[m].text[0].unicode() + 1);
        EXPECT_NE(ConversationPDF::contentFingerprint(changed), fingerprint) << m;
        changed = transcript;
        changed.messages[m].sender += u'.';
        EXPECT_NE(ConversationPDF::contentFingerprint(changed), fingerprint) << m;
        changed = transcript;
        changed.messages[m].date = changed.messages[m].date.addSecs(1);
        EXPECT_NE(ConversationPDF::contentFingerprint(changed), fingerprint) << m;
    }
    // Only the file name of an image counts, not its folder.
    ChatTranscript withImage = transcript;
    withImage.messages[0].images = {QStringLiteral("/a/IMG_1.JPG")};
    ChatTranscript moved = transcript;
    moved.messages[0].images = {QStringLiteral("/b/IMG_1.JPG")};
    EXPECT_EQ(ConversationPDF::contentFingerprint(withImage), ConversationPDF::contentFingerprint(moved));
    EXPECT_NE(ConversationPDF::contentFingerprint(withImage), fingerprint);
}

TEST_F(ConversationPdfTest, ThousandsOfMessagesFillManyPagesWithAFooterOnEach)
{
    ChatTranscript transcript{QStringLiteral("Messages : Famille"), {}};
    for (int i = 0; i < 3000; ++i)
        transcript.messages.append({local(2026, 1, 1, 8, 0).addSecs(qint64(i) * 600),
                                    QStringLiteral("Personne %1").arg(i % 7),
                                    QStringLiteral("Message %1 : ").arg(i) + QString(i % 5 * 40, u'x'),
                                    {}});
    const ConversationPDF::Result result =
        ConversationPDF::build(path(QStringLiteral("long.pdf")), transcript, QStringLiteral("Messages"));
    EXPECT_GT(result.pages, 50);
    EXPECT_EQ(pdfPageCount(path(QStringLiteral("long.pdf"))), result.pages);
    EXPECT_EQ(ConversationPDF::pageCount(transcript, QStringLiteral("Messages")), result.pages);
    // A document this long is drawn in parts on several cores and joined: every page in its place, with
    // its own footer, and the messages in their order across the joins.
    const QString text = pdfText(path(QStringLiteral("long.pdf")));
    const QStringList pages = text.split(u'\f', Qt::SkipEmptyParts);
    ASSERT_EQ(pages.size(), result.pages);
    for (int page = 1; page <= result.pages; ++page) {
        ASSERT_TRUE(pages[page - 1].contains(QStringLiteral("page %1 / %2 ·").arg(page).arg(result.pages))) << page;
    }
    qsizetype previous = -1;
    for (int i = 0; i < 3000; i += 7) {
        const qsizetype at = text.indexOf(QStringLiteral("Message %1 :").arg(i));
        ASSERT_GT(at, previous) << i;
        previous = at;
    }
    EXPECT_EQ(ConversationPDF::verify(result.pdf), ConversationPDF::Verification::Intact);
}

TEST_F(ConversationPdfTest, ImagesAreThumbnailsAndUnreadableOnesAreSkipped)
{
    QImage photo(3000, 2000, QImage::Format_RGB32);
    photo.fill(Qt::darkCyan);
    ASSERT_TRUE(photo.save(path(QStringLiteral("photo.jpg")), "JPG"));
    QFile broken(path(QStringLiteral("broken.jpg")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("not a picture");
    broken.close();
    ChatTranscript transcript = sample();
    transcript.messages[0].images = {path(QStringLiteral("photo.jpg")), path(QStringLiteral("broken.jpg")),
                                     path(QStringLiteral("missing.jpg"))};
    const ConversationPDF::Result result =
        ConversationPDF::build(path(QStringLiteral("photos.pdf")), transcript, QStringLiteral("WhatsApp"));
    EXPECT_EQ(pdfPageCount(path(QStringLiteral("photos.pdf"))), result.pages);
    // A 3000-pixel photo embedded whole would weigh megabytes.
    EXPECT_LT(QFileInfo(path(QStringLiteral("photos.pdf"))).size(), 400'000);
    const QString images =
        runTool(QStringLiteral("pdfimages"), {QStringLiteral("-list"), path(QStringLiteral("photos.pdf"))});
    EXPECT_EQ(images.count(QStringLiteral("image ")), 1) << qPrintable(images);
}

TEST_F(ConversationPdfTest, AnUnwritableDestinationIsAClearErrorAndATakenNameIsNeverReplaced)
{
    // A file stands where the folder must go.
    QFile blocker(path(QStringLiteral("taken")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    try {
        ConversationPDF::build(path(QStringLiteral("taken/x.pdf")), sample(), QStringLiteral("WhatsApp"));
        FAIL() << "expected an error";
    } catch (const ConversationPDF::Error& error) {
        // What failed and why, once, in a text of our own: never "… PDF : Impossible de créer le PDF : …".
        EXPECT_TRUE(error.message().startsWith(QStringLiteral("Impossible d'écrire ")) &&
                    error.message().contains(QStringLiteral("taken")))
            << qPrintable(error.message());
        EXPECT_EQ(error.message().count(QStringLiteral("Impossible")), 1) << qPrintable(error.message());
    }

    // A second PDF of the same name goes beside the first, each with its own side file.
    const QString first = path(QStringLiteral("Famille.pdf"));
    const auto one = ConversationPDF::build(first, sample(), QStringLiteral("WhatsApp"));
    const auto two = ConversationPDF::build(first, sample(), QStringLiteral("WhatsApp"));
    EXPECT_EQ(one.pdf, first);
    EXPECT_EQ(two.pdf, path(QStringLiteral("Famille (2).pdf")));
    EXPECT_EQ(two.sideFile, path(QStringLiteral("Famille (2).empreinte.txt")));
    EXPECT_EQ(ConversationPDF::verify(one.pdf), ConversationPDF::Verification::Intact);
    EXPECT_EQ(ConversationPDF::verify(two.pdf), ConversationPDF::Verification::Intact);
    EXPECT_TRUE(QDir(m_dir.path()).entryList({QStringLiteral(".nuvrel-*")}, QDir::Hidden | QDir::Files).isEmpty());
}

TEST_F(ConversationPdfTest, SingleMessageAndPaletteCycling)
{
    ChatTranscript one{QStringLiteral("Messages : Zoé"), {}};
    one.messages = {{local(2026, 2, 14, 9, 0), QStringLiteral("Zoé"), QStringLiteral("Bonne Saint-Valentin 🌹"), {}}};
    ConversationPDF::build(path(QStringLiteral("one.pdf")), one, QStringLiteral("Messages"));
    // One message: the same day on both sides of " au ".
    EXPECT_TRUE(pdfText(path(QStringLiteral("one.pdf")))
                    .contains(QStringLiteral("Période : samedi 14 février 2026 au samedi 14 février 2026")));

    ChatTranscript crowd{QStringLiteral("Messages : Groupe"), {}};
    for (const char* name : {"A", "B", "C", "D", "E", "F", "B", "G"})
        crowd.messages.append({local(2026, 2, 14, 9, 0), QString::fromLatin1(name), QStringLiteral("x"), {}});
    const QHash<QString, QColor> colours = ConversationPDF::senderColours(crowd);
    EXPECT_EQ(colours.size(), 7);
    EXPECT_EQ(colours.value(QStringLiteral("F")), colours.value(QStringLiteral("A"))); // the sixth takes the first
    EXPECT_EQ(colours.value(QStringLiteral("G")), colours.value(QStringLiteral("B")));
    EXPECT_NE(colours.value(QStringLiteral("A")), colours.value(QStringLiteral("B")));
    EXPECT_EQ(colours.value(QStringLiteral("A")), QColor::fromRgbF(0.11f, 0.31f, 0.85f));
}

TEST_F(ConversationPdfTest, LineBreaksLongRunsAndUnknownTimesAreAllPrinted)
{
    // A run without a space thousands of characters long, a text that is one long paragraph, the
    // message's own line breaks, and text kept from a line of unknown date: every character is printed
    // once, where it belongs.
    const QString run(30'000, u'ж');
    QString paragraph;
    for (int i = 0; i < 3'000; ++i)
        paragraph += QStringLiteral("mot%1 ").arg(i);
    ChatTranscript transcript{QStringLiteral("WhatsApp : A"), {}};
    transcript.messages = {
        {QDateTime(), QStringLiteral("Système"), QStringLiteral("texte d'avant"), {}},
        {local(2024, 2, 14, 9, 0), QStringLiteral("A"), QStringLiteral("ligne un\nligne deux\r\nligne trois"), {}},
        {local(2024, 2, 14, 9, 1), QStringLiteral("A"), QStringLiteral("avant ") + run + QStringLiteral(" après"), {}},
        {local(2024, 2, 14, 9, 2), QStringLiteral("A"), paragraph, {}},
    };
    const ConversationPDF::Result result =
        ConversationPDF::build(path(QStringLiteral("long runs.pdf")), transcript, QStringLiteral("WhatsApp"));
    EXPECT_EQ(pdfPageCount(result.pdf), result.pages);
    EXPECT_EQ(ConversationPDF::pageCount(transcript, QStringLiteral("WhatsApp")), result.pages);
    const QString text = pdfText(result.pdf);
    EXPECT_TRUE(text.simplified().contains(QStringLiteral("--:-- Système : texte d'avant")))
        << qPrintable(text.left(2000));
    EXPECT_TRUE(text.contains(QStringLiteral("— date inconnue —")));
    EXPECT_TRUE(text.contains(QStringLiteral("ligne un\nligne deux\nligne trois"))) << qPrintable(text.left(2000));
    QString letters = text;
    letters.remove(QRegularExpression(QStringLiteral("[^ж]")));
    EXPECT_EQ(letters.size(), run.size());
    EXPECT_TRUE(text.contains(QStringLiteral("après")));
    const QString flat = text.simplified();
    for (int i : {0, 1, 999, 1000, 2998, 2999})
        EXPECT_TRUE(flat.contains(QStringLiteral(" mot%1 ").arg(i)) || flat.contains(QStringLiteral("mot%1 ").arg(i)))
            << i;
    // Words are never cut where a piece of the paragraph ends.
    static const QRegularExpression words(QStringLiteral("mot(\\d+)"));
    qsizetype found = 0;
    for (auto it = words.globalMatch(flat); it.hasNext(); it.next())
        ++found;
    EXPECT_EQ(found, 3'000);
}

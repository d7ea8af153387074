#include "engines/conversations/ConversationPdf.h"

#include "formats/pdf/PdfPage.h"
#include "ground/NewFile.h"
#include "ground/RegularFile.h"
#include "ground/SystemError.h"
#include "l10n/L.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHash>
#include <QImageReader>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextLayout>

#include <cerrno>

namespace nuvrel {

namespace {

// Points: the page is drawn at 72 dots per inch.
constexpr qreal margin = 50;
constexpr qreal textWidth = 495;
constexpr qreal textHeight = 732;
constexpr qreal footerTop = 804;
constexpr qreal imageWidth = 220;
constexpr int thumbnailPixels = 880; // four pixels per point at the largest displayed width

const QColor secondary = QColor::fromRgbF(0.45f, 0.45f, 0.45f);
const QColor noticeRed = QColor::fromRgbF(0.75f, 0.07f, 0.24f);
const QColor palette[] = {QColor::fromRgbF(0.11f, 0.31f, 0.85f), QColor::fromRgbF(0.02f, 0.47f, 0.34f),
                          QColor::fromRgbF(0.71f, 0.33f, 0.04f), QColor::fromRgbF(0.49f, 0.23f, 0.93f),
                          QColor::fromRgbF(0.75f, 0.07f, 0.24f)};

// One paragraph of the document, or one picture.
struct Block
{
    QString text;
    QList<QTextLayout::FormatRange> formats;
    QFont font;
    Qt::Alignment alignment = Qt::AlignLeft;
    qreal before = 0;
    qreal after = 0;
    QImage image;
    QSizeF imageSize;
};

QTextLayout::FormatRange range(qsizetype start, qsizetype length, const QColor& color)
{
    QTextCharFormat format;
    format.setForeground(color);
    return {static_cast<int>(start), static_cast<int>(length), format};
}

Block paragraph(QString text, QFont font, qreal after, const QColor& color = Qt::black)
{
    Block block;
    block.text = std::move(text);
    block.font = std::move(font);
    block.formats.append(range(0, block.text.size(), color));
    block.after = after;
    return block;
}

// A thumbnail with its orientation applied, or nothing when the file cannot be read as a picture.
std::optional<Block> picture(const QString& path)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > thumbnailPixels || size.height() > thumbnailPixels))
        reader.setScaledSize(size.scaled(thumbnailPixels, thumbnailPixels, Qt::KeepAspectRatio));
    QImage image = reader.read();
    if (image.isNull())
        return std::nullopt;
    const QSize shown =
        reader.transformation().testFlag(QImageIOHandler::TransformationRotate90) ? size.transposed() : size;
    const qreal width = std::min<qreal>(imageWidth, shown.isValid() ? shown.width() : image.width());
    Block block;
    block.image = std::move(image);
    block.imageSize = QSizeF(width, width * block.image.height() / block.image.width());
    block.after = 8;
    return block;
}

// A stretch of a paragraph laid out at once, and how it wraps.
struct Piece
{
    qsizetype end = 0;
    bool anywhere = false; ///< a run without a space, longer than a line: wrapped anywhere
};

constexpr qsizetype pieceSize = 4096; // characters: a few dozen lines
constexpr qsizetype longRun = 200;    // no line holds this many characters without a space

// The piece of `text` that starts at `start`: a run without a space longer than a line is one of its
// own; other text is cut before such a run, and at `pieceSize`.
Piece nextPiece(QStringView text, qsizetype start)
{
    const qsizetype limit = std::min(text.size(), start + pieceSize);
    const auto cut = [&text](qsizetype end) {
        // Never between the two halves of a character outside the basic plane.
        return end < text.size() && end > 0 && text[end - 1].isHighSurrogate() ? end - 1 : end;
    };
    qsizetype run = 0;
    while (start + run < limit && !text[start + run].isSpace())
        ++run;
    if (run >= longRun)
        return {std::max(start + 1, cut(start + run)), true};
    qsizetype runStart = start;
    for (qsizetype i = start; i < limit; ++i) {
        if (text[i].isSpace()) {
            runStart = i + 1;
        } else if (i + 1 - runStart >= longRun) {
            return {runStart, false};
        }
    }
    return {std::max(start + 1, cut(limit)), false};
}

// The format ranges of a block that fall within [start, end), counted from `start`.
QList<QTextLayout::FormatRange> formatsWithin(const QList<QTextLayout::FormatRange>& formats, qsizetype start,
                                              qsizetype end)
{
    QList<QTextLayout::FormatRange> within;
    for (const QTextLayout::FormatRange& format : formats) {
        const qsizetype from = std::max<qsizetype>(format.start, start);
        const qsizetype to = std::min<qsizetype>(qsizetype(format.start) + format.length, end);
        if (from < to)
            within.append({static_cast<int>(from - start), static_cast<int>(to - from), format.format});
    }
    return within;
}

// Lays the blocks out page after page; with a painter, draws them too. Returns the number of pages.
class Paginator
{
public:
    Paginator(QPaintDevice* device, QPdfWriter* writer, QPainter* painter, int pageCount, const QString& fingerprint)
        : m_device(device)
        , m_writer(writer)
        , m_painter(painter)
        , m_pageCount(pageCount)
        , m_fingerprint(fingerprint)
    {}

    int run(const QList<Block>& blocks)
    {
        for (const Block& block : blocks) {
            if (m_page >= ConversationPDF::maxPages)
                break;
            if (m_y > 0)
                m_y += block.before;
            if (block.image.isNull())
                layOutText(block);
            else
                placeImage(block);
            m_y += block.after;
        }
        const int pages = std::min(m_page + 1, ConversationPDF::maxPages);
        if (m_painter)
            drawFooter(pages);
        return pages;
    }

private:
    bool nextPage()
    {
        if (m_page + 1 >= ConversationPDF::maxPages)
            return false;
        if (m_painter) {
            drawFooter(m_pageCount);
            m_writer->newPage();
        }
        ++m_page;
        m_y = 0;
        return true;
    }

    // Laid out piece by piece: one layout of a whole 50 MB message would hold it all shaped at once, and
    // word wrapping takes time in the square of a word's length. A piece ends where its last line
    // starts, so that the next one goes on wrapping the text as if it had never been cut.
    void layOutText(const Block& block)
    {
        const QStringView text(block.text);
        qsizetype start = 0;
        bool afterRun = false;
        do {
            // After a run wrapped on its own, the space that ended it would open the next line.
            if (afterRun)
                while (start < text.size() && text[start].isSpace() && text[start] != QChar::LineSeparator)
                    ++start;
            const Piece piece = nextPiece(text, start);
            const std::optional<qsizetype> resume = layOutPiece(block, start, piece);
            if (!resume)
                return; // no page left
            afterRun = piece.anywhere && *resume == piece.end;
            start = *resume;
        } while (start < text.size());
    }

    // Lays out text[start, piece.end); returns where the next piece starts, or nothing when the pages
    // ran out.
    std::optional<qsizetype> layOutPiece(const Block& block, qsizetype start, const Piece& piece)
    {
        QTextLayout layout(block.text.sliced(start, piece.end - start), block.font, m_device);
        QTextOption option(block.alignment);
        option.setWrapMode(piece.anywhere ? QTextOption::WrapAnywhere : QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.setFormats(formatsWithin(block.formats, start, piece.end));
        layout.beginLayout();
        QList<std::pair<QTextLine, QPointF>> placed;
        std::optional<qsizetype> resume = piece.end;
        for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
            line.setLineWidth(textWidth);
            // The last line of a cut piece is laid out again, whole, at the start of the next.
            if (piece.end < block.text.size() && line.textStart() > 0 &&
                line.textStart() + line.textLength() >= piece.end - start) {
                resume = start + line.textStart();
                break;
            }
            if (m_y > 0 && m_y + line.height() > textHeight) {
                flush(placed);
                if (!nextPage()) {
                    resume.reset();
                    break;
                }
            }
            line.setPosition(QPointF(0, 0));
            placed.append({line, QPointF(margin, margin + m_y)});
            m_y += line.height() + 2; // line spacing 2
        }
        layout.endLayout();
        flush(placed);
        return resume;
    }

    void flush(QList<std::pair<QTextLine, QPointF>>& placed)
    {
        if (m_painter) {
            for (const auto& [line, position] : std::as_const(placed))
                line.draw(m_painter, position);
        }
        placed.clear();
    }

    void placeImage(const Block& block)
    {
        if (m_y > 0 && m_y + block.imageSize.height() > textHeight && !nextPage())
            return;
        if (m_painter)
            m_painter->drawImage(QRectF(QPointF(margin, margin + m_y), block.imageSize), block.image);
        m_y += block.imageSize.height() + 2;
    }

    void drawFooter(int pageCount)
    {
        m_painter->setFont(PdfPage::font(8));
        m_painter->setPen(secondary);
        const QString footer =
            L("Nuvrel · page %@ / %@ · empreinte du contenu : ", m_page + 1, pageCount) + m_fingerprint.left(16) + u'…';
        m_painter->drawText(QPointF(margin, footerTop + QFontMetricsF(m_painter->font(), m_device).ascent()), footer);
    }

    QPaintDevice* m_device;
    QPdfWriter* m_writer;
    QPainter* m_painter;
    int m_pageCount;
    QString m_fingerprint;
    int m_page = 0;
    qreal m_y = 0;
};

// CR LF, CR and LF as the one line break a text layout knows.
QString withLineSeparators(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QString(QChar::LineSeparator))
        .replace(u'\r', QChar::LineSeparator)
        .replace(u'\n', QChar::LineSeparator);
}

QList<Block> documentBlocks(const ChatTranscript& transcript, const QString& sourceLabel, const QString& fingerprint,
                            const QDateTime& generated)
{
    const QLocale locale = Localizer::locale();
    // Text kept from a line whose date could not be read has none: it says so rather than invent one.
    const QString unknownDay = L("date inconnue");
    const auto day = [&locale, &unknownDay](const QDateTime& date) {
        return date.isValid() ? locale.toString(date.toLocalTime().date(), QStringLiteral("dddd d MMMM yyyy"))
                              : unknownDay;
    };
    QList<Block> blocks;
    blocks.reserve(transcript.messages.size() + 8);
    blocks.append(paragraph(transcript.title, PdfPage::font(20, true), 10));
    const QFont info = PdfPage::font(10.5);
    blocks.append(paragraph(L("Source : ") + sourceLabel, info, 2));
    const auto dated = [](const ChatMessage& message) { return message.date.isValid(); };
    const auto firstDated = std::find_if(transcript.messages.cbegin(), transcript.messages.cend(), dated);
    const auto lastDated = std::find_if(transcript.messages.crbegin(), transcript.messages.crend(), dated);
    if (firstDated != transcript.messages.cend())
        blocks.append(paragraph(L("Période : ") + day(firstDated->date) + L(" au ") + day(lastDated->date), info, 2));
    blocks.append(paragraph(L("Nombre de messages : ") + QString::number(transcript.messages.size()), info, 2));
    blocks.append(paragraph(L("Document généré par Nuvrel le ") +
                                locale.toString(generated, QStringLiteral("dddd d MMMM yyyy, HH:mm")),
                            info, 2));
    blocks.append(paragraph(L("Empreinte numérique du contenu (SHA-256) : ") + fingerprint, info, 2));
    Block notice = paragraph(L("Ce document est une copie mise en forme d'une conversation, créée à partir des données "
                               "fournies par l'utilisateur. Il ne remplace pas un constat de commissaire de justice."),
                             PdfPage::font(9.5), 14, noticeRed);
    notice.before = 8;
    blocks.append(std::move(notice));

    const QFont separatorFont = PdfPage::font(10, true);
    const QFont messageFont = PdfPage::font(10.5);
    const QHash<QString, QColor> colours = ConversationPDF::senderColours(transcript);
    QString previousDay;
    for (const ChatMessage& message : transcript.messages) {
        const QString thisDay = day(message.date);
        if (thisDay != previousDay) {
            Block separator = paragraph(QStringLiteral("— ") + thisDay + QStringLiteral(" —"), separatorFont, 6);
            separator.alignment = Qt::AlignHCenter;
            separator.before = 10;
            blocks.append(std::move(separator));
            previousDay = thisDay;
        }
        const QColor colour = colours.value(message.sender);
        const QString time =
            (message.date.isValid() ? locale.toString(message.date.toLocalTime().time(), QStringLiteral("HH:mm"))
                                    : QStringLiteral("--:--")) +
            QStringLiteral("  ");
        Block block;
        block.font = messageFont;
        // A line break of the message is one in the PDF too (a layout takes U+2028 for it, not a line feed).
        block.text = time + message.sender + QStringLiteral(" : ") + withLineSeparators(message.text);
        block.formats = {range(0, time.size(), secondary), range(time.size(), message.sender.size(), colour),
                         range(time.size() + message.sender.size(), block.text.size(), Qt::black)};
        block.after = 5;
        blocks.append(std::move(block));
        for (const QString& image : message.images) {
            if (std::optional<Block> shown = picture(image))
                blocks.append(std::move(*shown));
        }
    }
    return blocks;
}

QString sha256Hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

} // namespace

QString ConversationPDF::contentFingerprint(const ChatTranscript& transcript)
{
    const QLocale posix = QLocale::c();
    QStringList lines;
    lines.reserve(transcript.messages.size());
    for (const ChatMessage& message : transcript.messages) {
        QStringList names;
        for (const QString& image : message.images)
            names.append(QFileInfo(image).fileName());
        lines.append(posix.toString(message.date.toLocalTime(), QStringLiteral("yyyy-MM-dd HH:mm:ss")) + u'|' +
                     message.sender + u'|' + message.text + u'|' + names.join(u','));
    }
    return sha256Hex(lines.join(u'\n').toUtf8());
}

QHash<QString, QColor> ConversationPDF::senderColours(const ChatTranscript& transcript)
{
    QHash<QString, QColor> colours;
    for (const ChatMessage& message : transcript.messages) {
        if (!colours.contains(message.sender))
            colours.insert(message.sender, palette[colours.size() % std::size(palette)]);
    }
    return colours;
}

int ConversationPDF::pageCount(const ChatTranscript& transcript, const QString& sourceLabel)
{
    QBuffer nowhere;
    nowhere.open(QIODevice::WriteOnly);
    const std::unique_ptr<QPdfWriter> writer = PdfPage::writer(&nowhere, transcript.title);
    const QString fingerprint = contentFingerprint(transcript);
    return Paginator(writer.get(), nullptr, nullptr, 0, fingerprint)
        .run(documentBlocks(transcript, sourceLabel, fingerprint, QDateTime::currentDateTime()));
}

QString ConversationPDF::sideFilePath(const QString& pdf)
{
    const QFileInfo info(pdf);
    return info.dir().filePath(info.completeBaseName() + QStringLiteral(".empreinte.txt"));
}

ConversationPDF::Result ConversationPDF::build(const QString& destination, const ChatTranscript& transcript,
                                               const QString& sourceLabel, bool replace)
{
    Result result;
    result.contentFingerprint = contentFingerprint(transcript);
    const QDateTime generated = QDateTime::currentDateTime();
    const QList<Block> blocks = documentBlocks(transcript, sourceLabel, result.contentFingerprint, generated);

    // Written under a temporary name and named when whole, never over an existing file.
    QString written;
    try {
        NewFile output(destination, FreeNameStyle::Parenthesised);
        {
            const std::unique_ptr<QPdfWriter> writer = PdfPage::writer(&output.device(), transcript.title);
            // The footers name the page count, so a first pass only counts the pages.
            const int pages = Paginator(writer.get(), nullptr, nullptr, 0, result.contentFingerprint).run(blocks);
            QPainter painter;
            if (!painter.begin(writer.get()))
                throw FileError::fromErrno(FileError::Operation::Write, errno, destination);
            result.pages =
                Paginator(writer.get(), writer.get(), &painter, pages, result.contentFingerprint).run(blocks);
            if (!painter.end())
                throw FileError::fromErrno(FileError::Operation::Write, errno, destination);
        }
        written = replace ? output.commitReplacing() : output.commit();
    } catch (const FileError& error) {
        // What failed and why, once: "Plus assez de place sur le disque pour écrire …".
        throw Error(error.message());
    }
    result.pdf = written;

    QFile pdf(written);
    if (!pdf.open(QIODevice::ReadOnly))
        throw Error(FileError::fromErrno(FileError::Operation::Read, errno, written).message());
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&pdf);
    result.pdfFingerprint = QString::fromLatin1(hash.result().toHex());

    result.sideFile = sideFilePath(written);
    QSaveFile side(result.sideFile);
    const QString text =
        L("Fichier : ") + QFileInfo(written).fileName() + L("\nCréé le : ") +
        Localizer::locale().toString(generated, QStringLiteral("dddd d MMMM yyyy, HH:mm")) +
        L(" par Nuvrel\nEmpreinte SHA-256 du PDF : ") + result.pdfFingerprint +
        L("\nEmpreinte SHA-256 du contenu des messages : ") + result.contentFingerprint +
        L("\n\nSi le PDF est modifié, même d'un seul caractère, son empreinte change. Garde ce fichier avec le "
          "PDF.\nCe document ne remplace pas un constat de commissaire de justice.");
    if (!side.open(QIODevice::WriteOnly) || side.write(text.toUtf8()) < 0 || !side.commit())
        throw Error(FileError::fromErrno(FileError::Operation::Write, errno, result.sideFile).message());
    return result;
}

ConversationPDF::Verification ConversationPDF::verify(const QString& pdfPath)
{
    QFile pdf;
    if (!openRegularFile(pdf, pdfPath))
        return Verification::PdfUnreadable;
    QFile side;
    if (!openRegularFile(side, sideFilePath(pdfPath), {qint64(1) << 20}))
        return QFileInfo::exists(sideFilePath(pdfPath)) ? Verification::SideFileUnreadable : Verification::NoSideFile;
    static const QRegularExpression hex(QStringLiteral("\\b[0-9a-fA-F]{64}\\b"));
    // A side file is a few lines; a huge one is not ours.
    const QRegularExpressionMatch recorded = hex.match(QString::fromUtf8(side.read(qint64(64) * 1024)));
    if (!recorded.hasMatch())
        return Verification::SideFileUnreadable;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&pdf))
        return Verification::PdfUnreadable;
    const QString actual = QString::fromLatin1(hash.result().toHex());
    return recorded.captured().compare(actual, Qt::CaseInsensitive) == 0 ? Verification::Intact
                                                                         : Verification::Modified;
}

} // namespace nuvrel

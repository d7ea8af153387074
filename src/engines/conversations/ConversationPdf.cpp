#include "engines/conversations/ConversationPdf.h"

#include "formats/pdf/PdfJoin.h"
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
#include <QThread>

#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

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

// The faces the document uses. A block names its face, and each thread that lays blocks out makes its
// own fonts: a font shared between threads caches its engine in one place, which they would race on.
enum class Face { Title, Info, Notice, Separator, Message };

class FaceSet
{
public:
    FaceSet()
        : m_fonts{PdfPage::font(20, true), PdfPage::font(10.5), PdfPage::font(9.5), PdfPage::font(10, true),
                  PdfPage::font(10.5)}
    {}
    const QFont& operator[](Face face) const { return m_fonts[static_cast<int>(face)]; }

private:
    std::array<QFont, 5> m_fonts;
};

// A run of a paragraph in one colour.
struct ColourRange
{
    qsizetype start = 0;
    qsizetype length = 0;
    QColor colour;
};

// One paragraph of the document, or one picture. Plain data, read by several threads at once.
struct Block
{
    QString text;
    QList<ColourRange> colours;
    Face face = Face::Message;
    Qt::Alignment alignment = Qt::AlignLeft;
    qreal before = 0;
    qreal after = 0;
    QImage image;
    QSizeF imageSize;
};

Block paragraph(QString text, Face face, qreal after, const QColor& colour = Qt::black)
{
    Block block;
    block.text = std::move(text);
    block.face = face;
    block.colours.append({0, block.text.size(), colour});
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

// The layout tools of one thread: its faces, its character formats, and the device whose resolution the
// layout uses.
class Typesetter
{
public:
    explicit Typesetter(QPaintDevice* device)
        : m_device(device)
    {}

    // Lays `block` out line by line, handing each line to `take`, which may draw it, until it returns
    // false; returns false then. Laid out piece by piece: one layout of a whole 50 MB message would hold
    // it all shaped at once, and word wrapping takes time in the square of a word's length. A piece ends
    // where its last line starts, so that the next one goes on wrapping the text as if never cut.
    bool forEachLine(const Block& block, const std::function<bool(const QTextLine&)>& take)
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
            QTextLayout layout(block.text.sliced(start, piece.end - start), m_faces[block.face], m_device);
            QTextOption option(block.alignment);
            option.setWrapMode(piece.anywhere ? QTextOption::WrapAnywhere : QTextOption::WrapAtWordBoundaryOrAnywhere);
            layout.setTextOption(option);
            layout.setFormats(formatsWithin(block.colours, start, piece.end));
            layout.beginLayout();
            qsizetype resume = piece.end;
            bool going = true;
            for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
                line.setLineWidth(textWidth);
                // The last line of a cut piece is laid out again, whole, at the start of the next.
                if (piece.end < block.text.size() && line.textStart() > 0 &&
                    line.textStart() + line.textLength() >= piece.end - start) {
                    resume = start + line.textStart();
                    break;
                }
                line.setPosition(QPointF(0, 0));
                if (!take(line)) {
                    going = false;
                    break;
                }
            }
            layout.endLayout();
            if (!going)
                return false;
            afterRun = piece.anywhere && resume == piece.end;
            start = resume;
        } while (start < text.size());
        return true;
    }

private:
    // The colour ranges of a block that fall within [start, end), counted from `start`; one format per
    // colour, made once.
    QList<QTextLayout::FormatRange> formatsWithin(const QList<ColourRange>& colours, qsizetype start, qsizetype end)
    {
        QList<QTextLayout::FormatRange> within;
        for (const ColourRange& colour : colours) {
            const qsizetype from = std::max(colour.start, start);
            const qsizetype to = std::min(colour.start + colour.length, end);
            if (from >= to)
                continue;
            auto format = m_formats.find(colour.colour.rgba());
            if (format == m_formats.end()) {
                QTextCharFormat made;
                made.setForeground(colour.colour);
                format = m_formats.insert(colour.colour.rgba(), made);
            }
            within.append({static_cast<int>(from - start), static_cast<int>(to - from), *format});
        }
        return within;
    }

    QPaintDevice* m_device;
    FaceSet m_faces;
    QHash<QRgb, QTextCharFormat> m_formats;
};

// Where lines go: from the top of a page down, a line that does not fit opening the next page.
class Pager
{
public:
    struct Place
    {
        int page = 0;
        qreal y = 0;
    };

    explicit Pager(int firstPage = 0)
        : m_page(firstPage)
    {}
    void beginBlock(const Block& block)
    {
        if (m_y > 0)
            m_y += block.before;
    }
    void endBlock(const Block& block) { m_y += block.after; }
    // Where a line (or a picture) of `height` goes; nothing once the last page allowed is full.
    std::optional<Place> place(qreal height)
    {
        if (m_y > 0 && m_y + height > textHeight) {
            if (m_page + 1 >= ConversationPDF::maxPages)
                return std::nullopt;
            ++m_page;
            m_y = 0;
        }
        const Place at{m_page, m_y};
        m_y += height + 2; // line spacing 2
        return at;
    }
    int page() const { return m_page; }

private:
    int m_page;
    qreal m_y = 0;
};

// Each block's line heights (a picture is one line): what pagination needs, the same whichever page a
// block falls on.
using Heights = QList<QList<qreal>>;

// Runs `work(first, end)` over [0, count) cut into `parts` ranges, each on a thread of its own.
void inParallel(qsizetype count, int parts, const std::function<void(qsizetype, qsizetype)>& work)
{
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(std::max(parts - 1, 0)));
    for (int part = 1; part < parts; ++part)
        threads.emplace_back(work, count * part / parts, count * (part + 1) / parts);
    work(0, count / parts);
    for (std::thread& thread : threads)
        thread.join();
}

Heights measure(const QList<Block>& blocks, int threads)
{
    Heights heights(blocks.size());
    // Each thread fills its own elements, through a pointer taken before they start: a list's own
    // accessors check whether it is shared on every call.
    QList<qreal>* const measured = heights.data();
    inParallel(blocks.size(), threads, [&](qsizetype first, qsizetype end) {
        QBuffer nowhere;
        nowhere.open(QIODevice::WriteOnly);
        const std::unique_ptr<QPdfWriter> device = PdfPage::writer(&nowhere, {});
        Typesetter typesetter(device.get());
        for (qsizetype i = first; i < end; ++i) {
            const Block& block = blocks[i];
            if (!block.image.isNull()) {
                measured[i] = {block.imageSize.height()};
                continue;
            }
            typesetter.forEachLine(block, [&](const QTextLine& line) {
                measured[i].append(line.height());
                return true;
            });
        }
    });
    return heights;
}

// The pages, and for each page the block that starts it when a block's first line does.
struct Pagination
{
    int pages = 1;
    QList<std::optional<qsizetype>> blockStarting;
};

Pagination paginate(const QList<Block>& blocks, const Heights& heights)
{
    Pagination pagination;
    pagination.blockStarting = {0};
    Pager pager;
    for (qsizetype i = 0; i < blocks.size(); ++i) {
        pager.beginBlock(blocks[i]);
        for (qsizetype line = 0; line < heights[i].size(); ++line) {
            const std::optional<Pager::Place> at = pager.place(heights[i][line]);
            if (!at) {
                pagination.pages = pager.page() + 1;
                return pagination;
            }
            if (at->page == pagination.blockStarting.size())
                pagination.blockStarting.append(line == 0 ? std::optional(i) : std::nullopt);
        }
        pager.endBlock(blocks[i]);
    }
    pagination.pages = pager.page() + 1;
    return pagination;
}

// Draws blocks [first, end), whose first line opens page `firstPage`, with their measured heights, and
// the footers of their pages.
class Drawing
{
public:
    Drawing(QPdfWriter& writer, QPainter& painter, int pageCount, const QString& fingerprint)
        : m_writer(writer)
        , m_painter(painter)
        , m_typesetter(&writer)
        , m_pageCount(pageCount)
        , m_fingerprint(fingerprint)
    {}

    void run(const QList<Block>& blocks, const Heights& heights, qsizetype first, qsizetype end, int firstPage)
    {
        Pager pager(firstPage);
        m_page = firstPage;
        for (qsizetype i = first; i < end; ++i) {
            const Block& block = blocks[i];
            pager.beginBlock(block);
            qsizetype line = 0;
            // Placed by the measured heights, which the pagination counted, never by a second reckoning.
            const auto placeNext = [&]() -> std::optional<Pager::Place> {
                if (line >= heights[i].size())
                    return std::nullopt;
                const std::optional<Pager::Place> at = pager.place(heights[i][line++]);
                if (at && at->page != m_page) {
                    drawFooter();
                    m_writer.newPage();
                    m_page = at->page;
                }
                return at;
            };
            bool going = true;
            if (!block.image.isNull()) {
                if (const std::optional<Pager::Place> at = placeNext())
                    m_painter.drawImage(QRectF(QPointF(margin, margin + at->y), block.imageSize), block.image);
                else
                    going = false;
            } else {
                going = m_typesetter.forEachLine(block, [&](const QTextLine& textLine) {
                    const std::optional<Pager::Place> at = placeNext();
                    if (!at)
                        return false;
                    textLine.draw(&m_painter, QPointF(margin, margin + at->y));
                    return true;
                });
            }
            if (!going)
                break;
            pager.endBlock(block);
        }
        drawFooter();
    }

private:
    void drawFooter()
    {
        m_painter.setFont(m_footerFont);
        m_painter.setPen(secondary);
        const QString text = L("Nuvrel · page %@ / %@ · empreinte du contenu : ", m_page + 1, m_pageCount) +
                             m_fingerprint.left(16) + u'…';
        m_painter.drawText(QPointF(margin, footerTop + QFontMetricsF(m_footerFont, &m_writer).ascent()), text);
    }

    QPdfWriter& m_writer;
    QPainter& m_painter;
    Typesetter m_typesetter;
    QFont m_footerFont = PdfPage::font(8);
    int m_pageCount;
    QString m_fingerprint;
    int m_page = 0;
};

// Documents shorter than this are drawn by one thread: below it, starting a second costs more than it
// saves.
constexpr qsizetype parallelBlocks = 2'000;

int threadsFor(const QList<Block>& blocks)
{
    return blocks.size() < parallelBlocks ? 1 : std::clamp(QThread::idealThreadCount(), 1, 4);
}

// Draws the whole document into `output`: on one thread, or in parts that start at a block's first
// line, drawn at once on several threads and joined. Throws FileError when the output fails.
void drawDocument(QIODevice& output, const QString& title, const QList<Block>& blocks, const Heights& heights,
                  const Pagination& pagination, const QString& fingerprint, const QString& destination)
{
    // The parts: page numbers that a block's first line opens, about evenly spread.
    const int threads = threadsFor(blocks);
    QList<std::pair<qsizetype, int>> starts{{0, 0}}; // block, page
    for (int part = 1; part < threads; ++part) {
        for (int page = pagination.pages * part / threads; page < pagination.blockStarting.size(); ++page) {
            if (const std::optional<qsizetype> block = pagination.blockStarting[page];
                block && *block > starts.constLast().first) {
                starts.append({*block, page});
                break;
            }
        }
    }
    const auto drawPart = [&](QIODevice& device, qsizetype part) {
        const std::unique_ptr<QPdfWriter> writer = PdfPage::writer(&device, title);
        QPainter painter;
        if (!painter.begin(writer.get()))
            return false;
        const qsizetype end = part + 1 < starts.size() ? starts[part + 1].first : blocks.size();
        Drawing(*writer, painter, pagination.pages, fingerprint)
            .run(blocks, heights, starts[part].first, end, starts[part].second);
        return painter.end();
    };
    if (starts.size() == 1) {
        if (!drawPart(output, 0))
            throw FileError::fromErrno(FileError::Operation::Write, errno, destination);
        return;
    }
    QList<QByteArray> parts(starts.size());
    QByteArray* const drawn = parts.data(); // one element per thread, as in measure()
    std::atomic<bool> failed = false;
    inParallel(starts.size(), static_cast<int>(starts.size()), [&](qsizetype first, qsizetype end) {
        for (qsizetype part = first; part < end; ++part) {
            QBuffer buffer(&drawn[part]);
            buffer.open(QIODevice::WriteOnly);
            if (!drawPart(buffer, part))
                failed = true;
        }
    });
    const std::optional<QByteArray> joined = failed ? std::nullopt : joinPdfs(parts);
    if (joined) {
        if (output.write(*joined) != joined->size())
            throw FileError::fromErrno(FileError::Operation::Write, errno, destination);
        return;
    }
    // Parts that do not join (a writer of another make): the document drawn whole instead.
    starts = {{0, 0}};
    if (!drawPart(output, 0))
        throw FileError::fromErrno(FileError::Operation::Write, errno, destination);
}

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
    blocks.append(paragraph(transcript.title, Face::Title, 10));
    blocks.append(paragraph(L("Source : ") + sourceLabel, Face::Info, 2));
    const auto dated = [](const ChatMessage& message) { return message.date.isValid(); };
    const auto firstDated = std::find_if(transcript.messages.cbegin(), transcript.messages.cend(), dated);
    const auto lastDated = std::find_if(transcript.messages.crbegin(), transcript.messages.crend(), dated);
    if (firstDated != transcript.messages.cend())
        blocks.append(
            paragraph(L("Période : ") + day(firstDated->date) + L(" au ") + day(lastDated->date), Face::Info, 2));
    blocks.append(paragraph(L("Nombre de messages : ") + QString::number(transcript.messages.size()), Face::Info, 2));
    blocks.append(paragraph(L("Document généré par Nuvrel le ") +
                                locale.toString(generated, QStringLiteral("dddd d MMMM yyyy, HH:mm")),
                            Face::Info, 2));
    blocks.append(paragraph(L("Empreinte numérique du contenu (SHA-256) : ") + fingerprint, Face::Info, 2));
    Block notice = paragraph(L("Ce document est une copie mise en forme d'une conversation, créée à partir des données "
                               "fournies par l'utilisateur. Il ne remplace pas un constat de commissaire de justice."),
                             Face::Notice, 14, noticeRed);
    notice.before = 8;
    blocks.append(std::move(notice));

    const QHash<QString, QColor> colours = ConversationPDF::senderColours(transcript);
    QString previousDay;
    for (const ChatMessage& message : transcript.messages) {
        const QString thisDay = day(message.date);
        if (thisDay != previousDay) {
            Block separator = paragraph(QStringLiteral("— ") + thisDay + QStringLiteral(" —"), Face::Separator, 6);
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
        block.face = Face::Message;
        // A line break of the message is one in the PDF too (a layout takes U+2028 for it, not a line feed).
        block.text = time + message.sender + QStringLiteral(" : ") + withLineSeparators(message.text);
        block.colours = {{0, time.size(), secondary},
                         {time.size(), message.sender.size(), colour},
                         {time.size() + message.sender.size(), block.text.size(), Qt::black}};
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
    const QList<Block> blocks =
        documentBlocks(transcript, sourceLabel, contentFingerprint(transcript), QDateTime::currentDateTime());
    return paginate(blocks, measure(blocks, threadsFor(blocks))).pages;
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

    // The footers name the page count: the lines are measured first (on every core), then drawn.
    const Heights heights = measure(blocks, threadsFor(blocks));
    const Pagination pagination = paginate(blocks, heights);
    result.pages = pagination.pages;

    // Written under a temporary name and named when whole, never over an existing file.
    QString written;
    try {
        NewFile output(destination, FreeNameStyle::Parenthesised);
        drawDocument(output.device(), transcript.title, blocks, heights, pagination, result.contentFingerprint,
                     destination);
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

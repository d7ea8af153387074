#include "engines/conversations/ConversationPages.h"

#include "engines/conversations/ConversationPdf.h"

#include "formats/pdf/PdfJoin.h"
#include "formats/pdf/PdfPage.h"
#include "ground/SystemError.h"
#include "l10n/L.h"

#include <QBuffer>
#include <QHash>
#include <QPainter>
#include <QPdfWriter>
#include <QTextLayout>
#include <QThread>

#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <cerrno>

namespace nuvrel::conversationpages {

namespace {

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

} // namespace

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

} // namespace nuvrel::conversationpages

#pragma once

// The pages of a conversation PDF: its paragraphs measured on every core, paginated once from their
// line heights, then drawn in parts that are joined. Internal to ConversationPDF.

#include <QColor>
#include <QImage>
#include <QList>
#include <QSizeF>
#include <QString>

#include <optional>

class QIODevice;

namespace nuvrel::conversationpages {

// Points: the page is drawn at 72 dots per inch.
inline constexpr qreal margin = 50;
inline constexpr qreal textWidth = 495;
inline constexpr qreal textHeight = 732;
inline constexpr qreal footerTop = 804;

/// Secondary text: the times of the messages and the footers.
inline const QColor secondary = QColor::fromRgbF(0.45f, 0.45f, 0.45f);

// The faces the document uses. A block names its face, and each thread that lays blocks out makes its
// own fonts: a font shared between threads caches its engine in one place, which they would race on.
enum class Face { Title, Info, Notice, Separator, Message };

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

// Each block's line heights (a picture is one line): what pagination needs, the same whichever page a
// block falls on.
using Heights = QList<QList<qreal>>;

/// How many threads lay `blocks` out: one for short documents, where a second costs more than it saves.
int threadsFor(const QList<Block>& blocks);

/// Each block's line heights, measured on `threads` threads.
Heights measure(const QList<Block>& blocks, int threads);

// The pages, and for each page the block that starts it when a block's first line does.
struct Pagination
{
    int pages = 1;
    QList<std::optional<qsizetype>> blockStarting;
};

Pagination paginate(const QList<Block>& blocks, const Heights& heights);

/// Draws the whole document into `output`, its footers naming the page count and the start of
/// `fingerprint`: on one thread, or in parts that start at a block's first line, drawn at once on
/// several threads and joined. Throws FileError (about `destination`) when the output fails.
void drawDocument(QIODevice& output, const QString& title, const QList<Block>& blocks, const Heights& heights,
                  const Pagination& pagination, const QString& fingerprint, const QString& destination);

} // namespace nuvrel::conversationpages

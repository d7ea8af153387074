#pragma once

#include <QFont>
#include <QMarginsF>
#include <QSizeF>
#include <QString>

#include <memory>

class QIODevice;
class QPainter;
class QPdfWriter;

namespace nuvrel {

/// The page set-up every document of the program shares (the conversation PDF, the recovery sheet,
/// printing): A4 at 72 dots per inch, so that every size reads in points as in a page-layout program,
/// fonts that a PDF can carry, and a paragraph that wraps. Needs a QGuiApplication (fonts).
namespace PdfPage {

inline constexpr int resolution = 72;
inline constexpr QSizeF a4{595, 842}; ///< points

/// A writer of A4 pages with `margins` (points) into `device`, titled for the reader's window.
std::unique_ptr<QPdfWriter> writer(QIODevice* device, const QString& title, const QMarginsF& margins = {});

/// The system's face at `points`. Colour emoji faces are bitmaps that a PDF cannot carry as text: a
/// monochrome emoji face comes before the system's own fallback, so that emoji print as outlines.
QFont font(qreal points, bool bold = false);
/// The system's fixed-width face, where every character must be told apart (a password).
QFont fixedFont(qreal points);

/// Draws `text` wrapped across `width` from `top`; returns the height it took.
qreal paragraph(QPainter& painter, qreal top, qreal width, const QString& text, const QFont& font);

} // namespace PdfPage

} // namespace nuvrel

#pragma once

#include <QString>

class QHBoxLayout;
class QLabel;
class QWidget;

namespace nuvrel {

/// A row that holds `widget` in its middle, for fixed-width cards.
/// Centred by stretches, not by alignment: an aligned widget gets its size hint, and its wrapped text
/// then loses lines.
QHBoxLayout* centredRow(QWidget* widget);

/// A label whose text wraps onto as many lines as it needs, with a style role when one is given.
QLabel* wrappingLabel(QWidget* parent, const QString& objectName = {});

/// How a notice reads: a success or a failure. The colour comes from the window's style, so that it
/// follows a change of light and dark; a colour set on the widget itself would stay behind.
enum class Tone { Plain, Success, Failure };
void setTone(QWidget* widget, Tone tone);

} // namespace nuvrel

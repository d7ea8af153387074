#pragma once

class QHBoxLayout;
class QWidget;

namespace nuvrel {

/// A row that holds `widget` in its middle, for fixed-width cards.
/// Centred by stretches, not by alignment: an aligned widget gets its size hint, and its wrapped text
/// then loses lines.
QHBoxLayout* centredRow(QWidget* widget);

} // namespace nuvrel

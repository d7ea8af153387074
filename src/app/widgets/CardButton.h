#pragma once

#include <QPushButton>

namespace nuvrel {

/// A button that holds a layout of labels (a card of the home page): it takes the clicks and the
/// keyboard, and its height is what its labels need at its width. QPushButton sizes itself by its
/// own text and ignores its layout, so a description that wraps onto a third line would be cut.
class CardButton final : public QPushButton
{
    Q_OBJECT

public:
    explicit CardButton(QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;
};

} // namespace nuvrel

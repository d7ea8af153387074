#include "app/widgets/CardButton.h"

#include <QLayout>

namespace nuvrel {

CardButton::CardButton(QWidget* parent)
    : QPushButton(parent)
{
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

QSize CardButton::sizeHint() const
{
    return layout() ? layout()->totalSizeHint() : QPushButton::sizeHint();
}

QSize CardButton::minimumSizeHint() const
{
    return layout() ? layout()->totalMinimumSize() : QPushButton::minimumSizeHint();
}

bool CardButton::hasHeightForWidth() const
{
    return layout() ? layout()->hasHeightForWidth() : QPushButton::hasHeightForWidth();
}

int CardButton::heightForWidth(int width) const
{
    return layout() ? layout()->totalHeightForWidth(width) : QPushButton::heightForWidth(width);
}

} // namespace nuvrel

#include "app/widgets/IconLabel.h"

#include "app/shell/Icons.h"

#include <QPainter>

namespace nuvrel {

IconLabel::IconLabel(const QString& name, int side, QWidget* parent)
    : QWidget(parent)
    , m_name(name)
{
    setFixedSize(side, side);
}

void IconLabel::setIconName(const QString& name)
{
    if (name == m_name)
        return;
    m_name = name;
    update();
}

void IconLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    Icons::icon(m_name).paint(&painter, rect());
}

} // namespace nuvrel

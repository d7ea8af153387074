#include "app/widgets/Layouts.h"

#include <QHBoxLayout>

namespace nuvrel {

QHBoxLayout* centredRow(QWidget* widget)
{
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(widget);
    row->addStretch(1);
    return row;
}

} // namespace nuvrel

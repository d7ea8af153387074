#include "app/widgets/Layouts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>
#include <QVariant>
#include <QWidget>

namespace nuvrel {

QHBoxLayout* centredRow(QWidget* widget)
{
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(widget);
    row->addStretch(1);
    return row;
}

QLabel* wrappingLabel(QWidget* parent, const QString& objectName)
{
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    if (!objectName.isEmpty())
        label->setObjectName(objectName);
    return label;
}

void setTone(QWidget* widget, Tone tone)
{
    const char* name = tone == Tone::Success ? "success" : tone == Tone::Failure ? "error" : "";
    if (widget->property("tone").toByteArray() == name)
        return;
    widget->setProperty("tone", QByteArray(name));
    // A style sheet reads dynamic properties only when the widget is polished again.
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
}

} // namespace nuvrel

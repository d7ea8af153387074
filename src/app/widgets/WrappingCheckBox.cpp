#include "app/widgets/WrappingCheckBox.h"

#include <QCheckBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>

namespace nuvrel {

WrappingCheckBox::WrappingCheckBox(QWidget* parent)
    : QWidget(parent)
    , m_box(new QCheckBox(this))
    , m_label(new QLabel(this))
{
    m_label->setWordWrap(true);
    m_label->setTextFormat(Qt::PlainText);
    m_label->setCursor(Qt::PointingHandCursor);
    m_label->installEventFilter(this);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(m_box, 0, Qt::AlignTop);
    layout->addWidget(m_label, 1);
    connect(m_box, &QCheckBox::toggled, this, &WrappingCheckBox::toggled);
}

void WrappingCheckBox::setText(const QString& text)
{
    m_label->setText(text);
    m_box->setAccessibleName(text);
}

QString WrappingCheckBox::text() const
{
    return m_label->text();
}

bool WrappingCheckBox::isChecked() const
{
    return m_box->isChecked();
}

void WrappingCheckBox::setChecked(bool checked)
{
    m_box->setChecked(checked);
}

bool WrappingCheckBox::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_label && event->type() == QEvent::MouseButtonRelease &&
        static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton && isEnabled()) {
        m_box->toggle();
        m_box->setFocus(Qt::MouseFocusReason);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace nuvrel

#pragma once

#include <QWidget>

namespace nuvrel {

/// One of the application's icons shown on its own, as a picture. Drawn each time it is painted, in the
/// palette and at the density of that moment: a pixmap made once would keep the light palette's colour
/// in a window turned dark, and the first screen's density on a second one.
class IconLabel final : public QWidget
{
public:
    IconLabel(const QString& name, int side, QWidget* parent = nullptr);

    void setIconName(const QString& name);
    QString iconName() const { return m_name; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_name;
};

} // namespace nuvrel
